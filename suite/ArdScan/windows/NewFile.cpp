#include "suite/ArdScan/NewFile.h"

#include "suite/ArdScan/windows/FileTimes.h"

namespace vlt::scan
{
namespace
{

// What a program may set; the others tell how a file is stored.
constexpr DWORD Settable = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM |
                           FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED;

} // namespace

CNewFile::~CNewFile()
{
    Discard();
}

void CNewFile::Discard()
{
    if (m_file != INVALID_HANDLE_VALUE)
        CloseHandle(m_file);
    m_file = INVALID_HANDLE_VALUE;
    if (m_temporary.empty())
        return;
    SetFileAttributesW(m_temporary.c_str(), FILE_ATTRIBUTE_NORMAL);
    DeleteFileW(m_temporary.c_str());
    m_temporary.clear();
}

bool CNewFile::Create(const HostPath& destination)
{
    m_destination = destination;
    const HostPath name = destination.parent_path() / ("AS" + UniqueDigits() + ".part");
    m_file =
        CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (m_file == INVALID_HANDLE_VALUE)
        return false;
    m_temporary = name;
    return true;
}

bool CNewFile::Append(std::span<const std::uint8_t> bytes)
{
    if (!WriteAt(m_size, bytes))
        return false;
    m_size += bytes.size();
    return true;
}

bool CNewFile::WriteAt(std::uint64_t offset, std::span<const std::uint8_t> bytes)
{
    while (!bytes.empty()) {
        OVERLAPPED place{};
        place.Offset = static_cast<DWORD>(offset);
        place.OffsetHigh = static_cast<DWORD>(offset >> 32);
        DWORD count = 0;
        const auto size = static_cast<DWORD>(std::min<std::size_t>(bytes.size(), 1u << 20));
        if (!WriteFile(m_file, bytes.data(), size, &count, &place) || count == 0)
            return false;
        offset += count;
        bytes = bytes.subspan(count);
    }
    return true;
}

std::ptrdiff_t CNewFile::ReadAt(std::uint64_t offset, std::span<std::uint8_t> buffer)
{
    return ReadFileAt(m_file, offset, buffer);
}

bool CNewFile::Give(const FileFacts& facts, bool)
{
    FILE_BASIC_INFO basic{};
    basic.CreationTime = ToTicks(facts.created);
    basic.LastAccessTime = ToTicks(facts.accessed);
    basic.LastWriteTime = ToTicks(facts.modified);
    basic.FileAttributes = facts.attributes & Settable;
    if (basic.FileAttributes == 0)
        basic.FileAttributes = FILE_ATTRIBUTE_NORMAL;
    return SetFileInformationByHandle(m_file, FileBasicInfo, &basic, sizeof(basic)) != 0;
}

CNewFile::Result CNewFile::Commit(bool replace)
{
    Result result = Result::Failed;
    const bool flushed = FlushFileBuffers(m_file) != 0;
    CloseHandle(m_file);
    m_file = INVALID_HANDLE_VALUE;
    const DWORD flags = MOVEFILE_WRITE_THROUGH | (replace ? MOVEFILE_REPLACE_EXISTING : 0u);
    if (flushed && MoveFileExW(m_temporary.c_str(), m_destination.c_str(), flags)) {
        m_temporary.clear();
        result = Result::Done;
    } else if (flushed && (GetLastError() == ERROR_ALREADY_EXISTS || GetLastError() == ERROR_FILE_EXISTS)) {
        result = Result::Exists;
    }
    Discard();
    return result;
}

bool CNewFile::CommitOver(CHostFile& original)
{
    if (!original.IsNamed(m_destination))
        return false;
    original.Close(); // the system replaces no file that is open
    return Commit(true) == Result::Done;
}

} // namespace vlt::scan
