#include "ARDCommon/QuarantineDb.h"

#include "ARDCommon/QuarantineLock.h"
#include "ARDCommon/VlCriticalSection.h"
#include "ARDCommon/VlDebug.h"
#include "ARDCommon/VlFile.h"
#include "platform/Text.h"

#include <cstring>
#include <set>

namespace
{

constexpr std::size_t kBlockRecords = 128; // about 240 KB
constexpr int kDeleteAttempts = 100;
constexpr DWORD kDeletePause = 20; // ms
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE;

// Writers of this process, one at a time: the last steps of a rewrite are not under the semaphore.
VlCriticalSection& WriterLock()
{
    static VlCriticalSection& lock = *new VlCriticalSection;
    return lock;
}

WString WithBackslash(const WString& folder)
{
    return folder.ends_with(TEXT('\\')) ? folder : folder + TEXT("\\");
}

vlt::FileHandle OpenFile(const WString& file, DWORD access, DWORD disposition)
{
    return vlt::FileHandle(
        CreateFileW(file.c_str(), access, kShareAll, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr));
}

bool WriteAll(const vlt::FileHandle& file, const void* data, std::size_t size)
{
    DWORD written = 0;
    return WriteFile(file.Get(), data, static_cast<DWORD>(size), &written, nullptr) && written == size;
}

// Fills `bytes` with the next block; empty at the end. False when the file cannot be read.
bool ReadBlock(const vlt::FileHandle& file, std::vector<BYTE>& bytes)
{
    bytes.resize(kBlockRecords * sizeof(QuarantineRecord));
    DWORD read = 0;
    if (!ReadFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr))
        return false;
    bytes.resize(read);
    return true;
}

// The whole records of a block, given one by one. What is left over is a torn record.
template <typename Visit>
std::size_t ForEachRecord(std::vector<BYTE>& bytes, Visit visit)
{
    std::size_t offset = 0;
    for (; offset + sizeof(QuarantineRecord) <= bytes.size(); offset += sizeof(QuarantineRecord)) {
        QuarantineRecord record;
        std::memcpy(&record, bytes.data() + offset, sizeof(record));
        visit(record);
    }
    return offset;
}

template <std::size_t N>
bool IsTerminated(const WCHAR (&field)[N])
{
    return vlt::FieldText(field).size() < N;
}

// Could the record have been written by a store? The scratch file has other uses, too.
bool IsPlausible(const QuarantineRecord& record)
{
    return record.platform <= 3 && IsTerminated(record.sourceName) && IsTerminated(record.sourceFolder) &&
           IsTerminated(record.quarantinedName) && IsTerminated(record.date) && IsTerminated(record.threatName) &&
           record.quarantinedName[0] != 0;
}

enum class Found { Nothing, Records, WholeSequence };

// The plausible records of a file: all there is, or among other things. Nothing when it cannot be read. A
// torn record at the end of others is one that a rewrite has carried over.
Found ReadPlausible(const WString& file, std::vector<QuarantineRecord>& records)
{
    const vlt::FileHandle handle = OpenFile(file, GENERIC_READ, OPEN_EXISTING);
    if (!handle)
        return Found::Nothing;
    std::vector<BYTE> bytes;
    bool whole = true;
    bool torn = false;
    do {
        if (!ReadBlock(handle, bytes))
            return Found::Nothing;
        const std::size_t used = ForEachRecord(bytes, [&](const QuarantineRecord& record) {
            if (IsPlausible(record))
                records.push_back(record);
            else
                whole = false;
        });
        torn = torn || used != bytes.size();
    } while (!bytes.empty());
    return whole && (!torn || !records.empty()) ? Found::WholeSequence : Found::Records;
}

QuarantineError AppendTo(const WString& file, const QuarantineRecord* records, std::size_t count)
{
    // Appending is one step for the system, so that a writer which the lock did not hold back cannot
    // write over another's record.
    const vlt::FileHandle handle = OpenFile(file, FILE_APPEND_DATA, OPEN_ALWAYS);
    if (!handle)
        return QuarantineError::Open;
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(handle.Get(), &size))
        return QuarantineError::Write;
    constexpr std::size_t one = sizeof(QuarantineRecord);
    const std::size_t torn = static_cast<std::size_t>(size.QuadPart % static_cast<LONGLONG>(one));
    if (torn == 0)
        return WriteAll(handle, records, count * one) ? QuarantineError::None : QuarantineError::Write;
    VLT_TRACE(20, "Error: the quarantine record file ends in a torn record of %u bytes", static_cast<DWORD>(torn));
    std::vector<BYTE> padded(one - torn + count * one);
    std::memcpy(padded.data() + (one - torn), records, count * one);
    return WriteAll(handle, padded.data(), padded.size()) ? QuarantineError::None : QuarantineError::Write;
}

// Block by block, so that a large store is rewritten at the speed of a copy.
QuarantineError CopyRecords(const vlt::FileHandle& from, const vlt::FileHandle& to, const CQuarantineDb::Keep& keep)
{
    std::vector<BYTE> bytes;
    std::vector<BYTE> kept;
    while (true) {
        if (!ReadBlock(from, bytes))
            return QuarantineError::Read;
        if (bytes.empty())
            break;
        kept.clear();
        const std::size_t used = ForEachRecord(bytes, [&](QuarantineRecord record) {
            if (!keep(record))
                return;
            const auto* const data = reinterpret_cast<const BYTE*>(&record);
            kept.insert(kept.end(), data, data + sizeof(record));
        });
        kept.insert(kept.end(), bytes.begin() + static_cast<std::ptrdiff_t>(used), bytes.end());
        if (!WriteAll(to, kept.data(), kept.size()))
            return QuarantineError::Write;
    }
    // The old file is deleted next: what takes its place must be on the disk by then.
    return FlushFileBuffers(to.Get()) ? QuarantineError::None : QuarantineError::Write;
}

} // namespace

CQuarantineDb::CQuarantineDb(const WString& folder)
    : m_folder(WithBackslash(folder)), m_file(m_folder + kQuarantineDbName),
      m_scratch(m_folder + kQuarantineScratchName)
{
}

void CQuarantineDb::Repair()
{
    if (!VlFile::Exists(m_scratch))
        return;
    const VlLock writer(WriterLock());
    if (!VlFile::Exists(m_file)) {
        std::vector<QuarantineRecord> records;
        const bool taken =
            ReadPlausible(m_scratch, records) == Found::WholeSequence && MoveFileW(m_scratch.c_str(), m_file.c_str());
        VLT_TRACE(20,
                  taken ? "The quarantine record file was missing and has been taken back from \"%ls\""
                        : "Error: the quarantine record file is missing, and \"%ls\" does not hold it",
                  m_scratch);
        return;
    }
    MergeScratch();
}

// Both files are there: a rewrite ended before it deleted the record file, or another program made a
// new record file in the moment when there was none. What only the scratch file knows is appended. False
// when that could not be done.
bool CQuarantineDb::MergeScratch()
{
    CQuarantineLock lock;
    std::vector<QuarantineRecord> rewritten;
    // A rewrite carries a torn tail over, and what else is no record: the ones around it count all the same.
    if (!lock.Lock() || ReadPlausible(m_scratch, rewritten) == Found::Nothing) {
        if (!VlFile::Exists(m_scratch))
            return true; // its writer was alive, and has put it in place
        VLT_TRACE(20, "Error: the quarantine scratch file \"%ls\" could not be read and is left", m_scratch);
        return false;
    }
    std::set<WString> known;
    QuarantineRecord record{};
    QuarantineError error = QuarantineError::None;
    CQuarantineDb reader(m_folder);
    while (reader.Read(record, error))
        known.emplace(vlt::FieldText(record.quarantinedName));
    reader.CloseReader();
    std::erase_if(rewritten, [&](const QuarantineRecord& candidate) {
        const WString name(vlt::FieldText(candidate.quarantinedName));
        return known.contains(name) || !VlFile::Exists(m_folder + name);
    });
    if (!rewritten.empty() && AppendTo(m_file, rewritten.data(), rewritten.size()) != QuarantineError::None) {
        VLT_TRACE(20, "Error: %u quarantine records are left in \"%ls\"", static_cast<DWORD>(rewritten.size()),
                  m_scratch);
        return false;
    }
    DeleteFileW(m_scratch.c_str());
    return true;
}

QuarantineError CQuarantineDb::Append(const Fill& fill)
{
    const VlLock writer(WriterLock());
    CQuarantineLock lock;
    if (!lock.Lock())
        return QuarantineError::Semaphore;
    QuarantineRecord record{};
    const QuarantineError error = fill(record);
    return error == QuarantineError::None ? AppendTo(m_file, &record, 1) : error;
}

bool CQuarantineDb::Read(QuarantineRecord& record, QuarantineError& error)
{
    error = QuarantineError::None;
    if (!m_reader) {
        m_reader = OpenFile(m_file, GENERIC_READ, OPEN_ALWAYS);
        if (!m_reader) {
            error = QuarantineError::Open;
            return false;
        }
    }
    while (m_next < m_read || FillBlock(error)) {
        const QuarantineRecord& next = m_block[m_next++];
        if (next.type >= kFirstQuarantinedType) {
            record = next;
            return true;
        }
    }
    return false;
}

bool CQuarantineDb::FillBlock(QuarantineError& error)
{
    m_block.resize(kBlockRecords);
    m_next = m_read = 0;
    DWORD bytes = 0;
    if (!ReadFile(m_reader.Get(), m_block.data(), kBlockRecords * sizeof(QuarantineRecord), &bytes, nullptr)) {
        error = QuarantineError::Read;
        return false;
    }
    m_read = bytes / sizeof(QuarantineRecord);
    // A record that is just being appended is read again, whole.
    if (const std::size_t torn = bytes % sizeof(QuarantineRecord); torn != 0)
        SetFilePointer(m_reader.Get(), -static_cast<LONG>(torn), nullptr, FILE_CURRENT);
    return m_read != 0;
}

void CQuarantineDb::CloseReader()
{
    m_reader.Reset();
    m_block = {};
    m_next = m_read = 0;
}

QuarantineError CQuarantineDb::Rewrite(const Keep& keep)
{
    const VlLock writer(WriterLock());
    // Records that an earlier merge could not append, on a full disk, are nowhere else.
    if (VlFile::Exists(m_scratch) && VlFile::Exists(m_file) && !MergeScratch())
        return QuarantineError::Open;
    CQuarantineLock lock;
    if (!lock.Lock())
        return QuarantineError::Semaphore;
    vlt::FileHandle from = OpenFile(m_file, GENERIC_READ, OPEN_EXISTING);
    if (!from)
        return QuarantineError::Open;
    vlt::FileHandle to = OpenFile(m_scratch, GENERIC_WRITE, CREATE_ALWAYS);
    if (!to)
        return QuarantineError::Open;
    const QuarantineError error = CopyRecords(from, to, keep);
    from.Reset();
    to.Reset();
    lock.Unlock();
    if (error != QuarantineError::None) {
        DeleteFileW(m_scratch.c_str());
        return error;
    }
    return PutScratchInPlace() ? QuarantineError::None : QuarantineError::Write;
}

bool CQuarantineDb::PutScratchInPlace()
{
    // Programs that read the file keep it from being deleted, though not for long.
    for (int attempt = 0; !DeleteFileW(m_file.c_str()); ++attempt) {
        if (GetLastError() != ERROR_SHARING_VIOLATION || attempt == kDeleteAttempts) {
            DeleteFileW(m_scratch.c_str());
            return false;
        }
        Sleep(kDeletePause);
    }
    if (!MoveFileW(m_scratch.c_str(), m_file.c_str()))
        MergeScratch(); // another program has made a new one meanwhile
    return true;
}

QuarantineError CQuarantineDb::Truncate()
{
    const VlLock writer(WriterLock());
    CQuarantineLock lock;
    if (!lock.Lock())
        return QuarantineError::Semaphore;
    const vlt::FileHandle file = OpenFile(m_file, GENERIC_WRITE, CREATE_ALWAYS);
    return file ? QuarantineError::None : QuarantineError::Open;
}
