#include "suite/ArdScan/HostFile.h"

#include "platform/Unique.h"
#include "suite/ArdScan/windows/FileTimes.h"

#include <algorithm>

namespace vlt::scan
{
namespace
{

constexpr DWORD ShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD AsItIs = FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS;

FileHandle OpenName(const HostPath& path, DWORD access)
{
    return FileHandle(CreateFileW(path.c_str(), access, ShareAll, nullptr, OPEN_EXISTING, AsItIs, nullptr));
}

std::optional<FileId> IdOf(HANDLE file)
{
    BY_HANDLE_FILE_INFORMATION info{};
    if (!GetFileInformationByHandle(file, &info))
        return std::nullopt;
    return FileId{info.dwVolumeSerialNumber, std::uint64_t{info.nFileIndexHigh} << 32 | info.nFileIndexLow};
}

} // namespace

void CHostFile::Close()
{
    if (m_file != INVALID_HANDLE_VALUE)
        CloseHandle(m_file);
    m_file = INVALID_HANDLE_VALUE;
}

OpenResult CHostFile::Open(const HostPath& path)
{
    m_file = OpenName(path, GENERIC_READ).Release();
    if (m_file == INVALID_HANDLE_VALUE) {
        switch (GetLastError()) {
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
            return OpenResult::Gone;
        case ERROR_SHARING_VIOLATION:
        case ERROR_LOCK_VIOLATION:
            return OpenResult::Busy;
        default:
            return OpenResult::Failed;
        }
    }
    BY_HANDLE_FILE_INFORMATION info{};
    if (GetFileType(m_file) != FILE_TYPE_DISK || !GetFileInformationByHandle(m_file, &info))
        return OpenResult::NotRegular;
    if (info.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT))
        return OpenResult::NotRegular;
    m_size = static_cast<std::uint64_t>(info.nFileSizeHigh) << 32 | info.nFileSizeLow;
    m_written = info.ftLastWriteTime;
    return OpenResult::Opened;
}

std::ptrdiff_t CHostFile::Read(std::span<std::uint8_t> buffer)
{
    DWORD count = 0;
    const auto size = static_cast<DWORD>(std::min<std::size_t>(buffer.size(), 1u << 20));
    return ReadFile(m_file, buffer.data(), size, &count, nullptr) ? static_cast<std::ptrdiff_t>(count) : -1;
}

std::ptrdiff_t CHostFile::ReadAt(std::uint64_t offset, std::span<std::uint8_t> buffer)
{
    return ReadFileAt(m_file, offset, buffer);
}

std::optional<FileId> CHostFile::Id() const
{
    return IdOf(m_file);
}

std::optional<FileFacts> CHostFile::Facts() const
{
    BY_HANDLE_FILE_INFORMATION info{};
    if (!GetFileInformationByHandle(m_file, &info))
        return std::nullopt;
    FileFacts facts;
    facts.attributes = info.dwFileAttributes;
    facts.created = FromFileTime(info.ftCreationTime);
    facts.accessed = FromFileTime(info.ftLastAccessTime);
    facts.modified = FromFileTime(info.ftLastWriteTime);
    return facts;
}

bool CHostFile::IsUnchanged() const
{
    BY_HANDLE_FILE_INFORMATION info{};
    return GetFileInformationByHandle(m_file, &info) &&
           m_size == (static_cast<std::uint64_t>(info.nFileSizeHigh) << 32 | info.nFileSizeLow) &&
           CompareFileTime(&info.ftLastWriteTime, &m_written) == 0;
}

bool CHostFile::IsDeleted() const
{
    FILE_STANDARD_INFO info{};
    return GetFileInformationByHandleEx(m_file, FileStandardInfo, &info, sizeof(info)) && info.DeletePending;
}

bool CHostFile::IsTrusted() const
{
    return true; // owners are not kept here
}

bool CHostFile::IsNamed(const HostPath& path) const
{
    const FileHandle named = OpenName(path, FILE_READ_ATTRIBUTES);
    return named && Id() && IdOf(named.Get()) == Id();
}

bool CHostFile::IsHeld(const HostPath& path) const
{
    return !OpenName(path, DELETE) && GetLastError() == ERROR_SHARING_VIOLATION;
}

bool CHostFile::Remove(const HostPath& path) const
{
    if (IsDeleted())
        return true;
    const FileHandle named = OpenName(path, DELETE | FILE_READ_ATTRIBUTES | FILE_WRITE_ATTRIBUTES);
    FILE_BASIC_INFO basic{};
    if (!named || !Id() || IdOf(named.Get()) != Id() ||
        !GetFileInformationByHandleEx(named.Get(), FileBasicInfo, &basic, sizeof(basic)))
        return false;
    const FILE_BASIC_INFO before = basic;
    if (basic.FileAttributes & FILE_ATTRIBUTE_READONLY) { // such a file is not deleted
        basic.FileAttributes = FILE_ATTRIBUTE_NORMAL;
        SetFileInformationByHandle(named.Get(), FileBasicInfo, &basic, sizeof(basic));
    }
    FILE_DISPOSITION_INFO gone{};
    gone.DeleteFile = TRUE;
    if (SetFileInformationByHandle(named.Get(), FileDispositionInfo, &gone, sizeof(gone)))
        return true;
    FILE_BASIC_INFO back = before;
    SetFileInformationByHandle(named.Get(), FileBasicInfo, &back, sizeof(back));
    return false;
}

bool CHostFile::Link(const HostPath&) const
{
    return false; // by handle there is no documented way: a copy is made instead
}

} // namespace vlt::scan
