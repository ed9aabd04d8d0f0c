#include "tools/vlctl/QuarantineStore.h"

#include "platform/Format.h"
#include "platform/Text.h"
#include "suite/Channel/SharedObjects.h"
#include "tools/vlctl/Command.h"
#include "tools/vlctl/Text.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>
#include <unordered_set>
#include <vector>

namespace vlt::ctl
{

using namespace suite;

namespace
{

constexpr std::size_t RecordSize = sizeof(QuarantineRecord);
constexpr std::size_t BlockRecords = 512;       // about 1 MB
constexpr ULONGLONG OthersMilliseconds = 3000;  // for others to come to the end of their step
constexpr ULONGLONG LastStepMilliseconds = 500; // of a rewrite, when there is no record file
constexpr DWORD PollMilliseconds = 20;

// The lock of all programs that write to the store. A program in a user's session has plain names of its
// own, while those of the service's session are the global ones.
class StoreLock
{
public:
    StoreLock() : m_semaphore(ShareSemaphore(WString(TEXT("Global\\")) + kQuarantineSemaphore, 1))
    {
        // Nothing waits for this program as an opener waits for the service, so it does not go on
        // without the lock. Then it has no count to give back either.
        if (WaitForSingleObject(m_semaphore.Get(), kQuarantineLockWait) != WAIT_OBJECT_0)
            throw CommandError(ExitFailed, "the quarantine store is in use by another program",
                               "try again when it has ended");
    }
    ~StoreLock() { ReleaseSemaphore(m_semaphore.Get(), 1, nullptr); }
    StoreLock(const StoreLock&) = delete;
    StoreLock& operator=(const StoreLock&) = delete;

private:
    const KernelHandle m_semaphore;
};

// Not shared for deletion: the service tries again for a while then, but does not expect a name that
// stays taken after its deletion.
FileHandle Open(const WString& path, DWORD access, DWORD disposition)
{
    return FileHandle(CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, disposition,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
}

bool Exists(const WString& path)
{
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

// Null when there is no such file.
FileHandle OpenToRead(const WString& path)
{
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY))
        throw CommandError(ExitFailed, Printable(path) + " is a folder",
                           "move it away; the service makes the file when it needs it");
    FileHandle file = Open(path, GENERIC_READ, OPEN_EXISTING);
    const DWORD error = GetLastError();
    if (!file && error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND)
        FailWith(error, Printable(path));
    return file;
}

void Write(const FileHandle& file, const void* data, std::size_t size, const WString& path)
{
    DWORD written = 0;
    if (!WriteFile(file.Get(), data, static_cast<DWORD>(size), &written, nullptr))
        FailWith(GetLastError(), Printable(path));
    if (written != size)
        FailWith(ERROR_DISK_FULL, Printable(path));
}

// Reads blocks of whole records. After the end it may be asked again for what was appended meanwhile.
class RecordReader
{
public:
    explicit RecordReader(const FileHandle& file, const WString& path)
        : m_file(file), m_path(path), m_records(BlockRecords)
    {
    }

    // Empty at the end. The records are the reader's until the next call, and may be changed.
    std::span<QuarantineRecord> Next()
    {
        auto* const bytes = reinterpret_cast<BYTE*>(m_records.data());
        std::memmove(bytes, bytes + m_whole * RecordSize, m_partial);
        std::size_t filled = m_partial;
        for (DWORD got = 1; got != 0 && filled < RecordSize; filled += got) {
            const auto room = static_cast<DWORD>(BlockRecords * RecordSize - filled);
            if (!ReadFile(m_file.Get(), bytes + filled, room, &got, nullptr))
                FailWith(GetLastError(), Printable(m_path));
        }
        m_whole = filled / RecordSize;
        m_partial = filled % RecordSize;
        m_offset += m_whole * RecordSize;
        return {m_records.data(), m_whole};
    }

    // At the end: what is left over.
    std::span<const BYTE> Tail() const { return {reinterpret_cast<const BYTE*>(m_records.data()), m_partial}; }
    std::uint64_t Offset() const { return m_offset; }

private:
    const FileHandle& m_file;
    const WString& m_path;
    std::vector<QuarantineRecord> m_records;
    std::size_t m_whole = 0;
    std::size_t m_partial = 0;
    std::uint64_t m_offset = 0; // behind the last whole record
};

template <std::size_t N>
bool IsTerminated(const WCHAR (&field)[N])
{
    return FieldText(field).size() < N;
}

// The scratch file of rewrites serves the service for restored files, too.
bool IsRecord(const QuarantineRecord& record)
{
    return record.platform <= 3 && record.quarantinedName[0] != 0 && IsTerminated(record.sourceName) &&
           IsTerminated(record.sourceFolder) && IsTerminated(record.quarantinedName) && IsTerminated(record.date) &&
           IsTerminated(record.threatName);
}

struct Plausible {
    std::vector<QuarantineRecord> records;
    // Nothing else is there. A torn record at the end of others is one that a rewrite has carried over.
    bool whole = false;
};

// What a scratch file holds; nothing when there is none.
Plausible ReadPlausible(const WString& path)
{
    Plausible found;
    const FileHandle file = OpenToRead(path);
    if (!file)
        return found;
    found.whole = true;
    RecordReader reader(file, path);
    for (auto block = reader.Next(); !block.empty(); block = reader.Next()) {
        for (const QuarantineRecord& record : block) {
            if (IsRecord(record))
                found.records.push_back(record);
            else
                found.whole = false;
        }
    }
    found.whole = found.whole && (reader.Tail().empty() || !found.records.empty());
    return found;
}

// A new record begins at a multiple of the record size whatever is there before.
void Append(const WString& path, const std::vector<QuarantineRecord>& records)
{
    const FileHandle file = Open(path, GENERIC_WRITE, OPEN_EXISTING);
    LARGE_INTEGER size{};
    if (!file || !GetFileSizeEx(file.Get(), &size))
        FailWith(GetLastError(), Printable(path));
    const std::size_t torn = static_cast<std::size_t>(size.QuadPart) % RecordSize;
    std::vector<BYTE> bytes(torn == 0 ? 0 : RecordSize - torn);
    const auto* const data = reinterpret_cast<const BYTE*>(records.data());
    bytes.insert(bytes.end(), data, data + records.size() * RecordSize);
    SetFilePointer(file.Get(), 0, nullptr, FILE_END);
    Write(file, bytes.data(), bytes.size(), path);
    FlushFileBuffers(file.Get());
}

WString WithBackslash(WString folder)
{
    if (!folder.empty() && folder.back() != '\\' && folder.back() != '/')
        folder += '\\';
    return folder;
}

} // namespace

QuarantineStore::QuarantineStore(WString folder)
    : m_folder(WithBackslash(std::move(folder))), m_file(m_folder + kQuarantineDbName),
      m_scratch(m_folder + kQuarantineScratchName)
{
    const DWORD attributes = GetFileAttributesW(m_folder.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_DIRECTORY))
        throw CommandError(ExitNo, "there is no quarantine folder " + Printable(m_folder),
                           "the service makes it when it starts; name another with --folder");
}

TornTail QuarantineStore::Read(const Visit& visit) const
{
    FileHandle file = OpenToRead(m_file);
    // The last step of a rewrite may just be under way.
    const ULONGLONG deadline = GetTickCount64() + LastStepMilliseconds;
    while (!file && Exists(m_scratch) && GetTickCount64() < deadline) {
        Sleep(PollMilliseconds);
        file = OpenToRead(m_file);
    }
    if (!file)
        return {};
    RecordReader reader(file, m_file);
    for (auto block = reader.Next(); !block.empty(); block = reader.Next())
        std::for_each(block.begin(), block.end(), visit);
    return {reader.Offset(), reader.Tail().size()};
}

void QuarantineStore::Rewrite(const Keep& keep, bool dropTail) const
{
    const StoreLock lock;
    SettleScratch();
    FileHandle from = OpenToRead(m_file);
    if (!from)
        return;
    FileHandle to = Open(m_scratch, GENERIC_WRITE, CREATE_ALWAYS);
    if (!to)
        FailWith(GetLastError(), Printable(m_scratch));
    try {
        RecordReader reader(from, m_file);
        // Somebody who waited too long for the lock may append without it: once all is on the disk there
        // is a second look for that.
        for (bool more = true; more;) {
            more = false;
            for (auto block = reader.Next(); !block.empty(); block = reader.Next()) {
                const auto end =
                    std::remove_if(block.begin(), block.end(), [&](auto& record) { return !keep(record); });
                Write(to, block.data(), static_cast<std::size_t>(end - block.begin()) * RecordSize, m_scratch);
                more = true;
            }
            if (!more && !dropTail)
                Write(to, reader.Tail().data(), reader.Tail().size(), m_scratch);
            if (!FlushFileBuffers(to.Get()))
                FailWith(GetLastError(), Printable(m_scratch));
        }
        to.Reset();
        from.Reset();
        PutScratchInPlace();
    } catch (...) {
        to.Reset();
        DeleteFileW(m_scratch.c_str());
        throw;
    }
}

void QuarantineStore::PutScratchInPlace() const
{
    MoveOver(m_scratch, m_file);
}

// The service puts its copy in place after it has given the lock back. What is still there after a
// while was left by a program that was killed.
void QuarantineStore::SettleScratch() const
{
    const ULONGLONG deadline = GetTickCount64() + OthersMilliseconds;
    while (Exists(m_scratch) && GetTickCount64() < deadline)
        Sleep(PollMilliseconds);
    if (!Exists(m_scratch))
        return;
    if (Exists(m_file))
        return MergeScratch();
    if (ReadPlausible(m_scratch).whole && !MoveFileW(m_scratch.c_str(), m_file.c_str()))
        FailWith(GetLastError(), Printable(m_scratch));
}

// A new record file may have been begun in the moment when there was none. Records that only the copy
// has go to its end; those of files that are gone have been dropped since.
void QuarantineStore::MergeScratch() const
{
    std::vector<QuarantineRecord> copied = ReadPlausible(m_scratch).records;
    std::unordered_set<WString> known;
    Read([&](const QuarantineRecord& record) { known.emplace(FieldText(record.quarantinedName)); });
    std::erase_if(copied, [&](const QuarantineRecord& record) {
        const WString name(FieldText(record.quarantinedName));
        return known.contains(name) || KeptFile(name).empty() || !Exists(KeptFile(name));
    });
    if (!copied.empty())
        Append(m_file, copied);
}

bool QuarantineStore::IsCutShort() const
{
    return !Exists(m_file) && Exists(m_scratch);
}

FileSizes QuarantineStore::Files() const
{
    FileSizes files;
    WIN32_FIND_DATAW found{};
    const FindHandle find(FindFirstFileW((m_folder + TEXT("*")).c_str(), &found));
    if (!find) {
        if (GetLastError() != ERROR_FILE_NOT_FOUND)
            FailWith(GetLastError(), Printable(m_folder));
        return files;
    }
    do {
        // A link is not a kept file, and nobody knows where it leads.
        if (!(found.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) &&
            !KeptFile(found.cFileName).empty())
            files[LowerCase(found.cFileName)] =
                (static_cast<std::uint64_t>(found.nFileSizeHigh) << 32) | found.nFileSizeLow;
    } while (FindNextFileW(find.Get(), &found));
    if (GetLastError() != ERROR_NO_MORE_FILES)
        FailWith(GetLastError(), Printable(m_folder));
    return files;
}

WString QuarantineStore::KeptFile(WStringView name) const
{
    // A blank or dot at its end would be dropped, a colon names a stream of a file.
    static constexpr WCHAR NotPlain[] = TEXT("\\/:*?\"<>|");
    if (name.empty() || name.back() == '.' || name.back() == ' ' || name.find_first_of(NotPlain) != WStringView::npos ||
        std::any_of(name.begin(), name.end(), [](WCHAR unit) { return unit < ' '; }))
        return {};
    const WString lower = LowerCase(name);
    for (const WStringView own : {kQuarantineDbName, kQuarantineScratchName, kQuarantineCopyName}) {
        if (lower == LowerCase(own))
            return {};
    }
    return m_folder + WString(name);
}

WString LowerCase(WStringView text)
{
    WString lower(text);
    if (!lower.empty())
        CharLowerBuffW(lower.data(), static_cast<DWORD>(lower.size()));
    return lower;
}

void MoveOver(const WString& from, const WString& to)
{
    // A program that reads the file may hold it for a moment.
    const ULONGLONG deadline = GetTickCount64() + OthersMilliseconds;
    while (!MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING)) {
        const DWORD error = GetLastError();
        if ((error != ERROR_SHARING_VIOLATION && error != ERROR_ACCESS_DENIED) || GetTickCount64() >= deadline)
            FailWith(error, Printable(to));
        Sleep(PollMilliseconds);
    }
}

bool DeleteAnyFile(const WString& path)
{
    SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    return DeleteFileW(path.c_str()) || GetLastError() == ERROR_FILE_NOT_FOUND;
}

} // namespace vlt::ctl
