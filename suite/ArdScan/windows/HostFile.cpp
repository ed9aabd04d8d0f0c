#include "suite/ArdScan/HostFile.h"

#include <algorithm>

namespace vlt::scan
{

CHostFile::~CHostFile()
{
    if (m_file != INVALID_HANDLE_VALUE)
        CloseHandle(m_file);
}

OpenResult CHostFile::Open(const HostPath& path)
{
    m_file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                         OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS, nullptr);
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
    return OpenResult::Opened;
}

std::ptrdiff_t CHostFile::Read(std::span<std::uint8_t> buffer)
{
    DWORD count = 0;
    const auto size = static_cast<DWORD>(std::min<std::size_t>(buffer.size(), 1u << 20));
    return ReadFile(m_file, buffer.data(), size, &count, nullptr) ? static_cast<std::ptrdiff_t>(count) : -1;
}

} // namespace vlt::scan
