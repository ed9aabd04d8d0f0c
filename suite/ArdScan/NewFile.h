// A file that is being written. It has a temporary name beside its destination until it is whole, so a
// crash leaves what was there before, and at worst a file "AS<digits>.part" more.
#pragma once

#include "suite/ArdScan/HostFile.h"

#ifndef _WIN32
#include "platform/posix/core/Fd.h"
#endif

namespace vlt::scan
{

// 16 hexadecimal digits that no other caller got.
std::string UniqueDigits();

class CNewFile
{
public:
    CNewFile() = default;
    ~CNewFile(); // removes what was not committed
    CNewFile(const CNewFile&) = delete;
    CNewFile& operator=(const CNewFile&) = delete;

    // The folder must exist. Only this user may read the file.
    bool Create(const HostPath& destination);
    bool Append(std::span<const std::uint8_t> bytes);
    bool WriteAt(std::uint64_t offset, std::span<const std::uint8_t> bytes);
    std::ptrdiff_t ReadAt(std::uint64_t offset, std::span<std::uint8_t> buffer);
    std::uint64_t Size() const { return m_size; }

    // Gives the file attributes and times and, as far as the caller may, mode, owner and extended attributes. Without
    // `trusted`, and for set-id bits when the owner cannot be given, what would lend rights stays away. After the
    // last write.
    bool Give(const FileFacts& facts, bool trusted);

    enum class Result { Done, Exists, Failed };
    // Flushes the file and gives it the destination's name. The temporary file is gone when this fails.
    Result Commit(bool replace);
    // As Commit, in place of this file, while the destination's name leads to it. On Windows the original is closed.
    bool CommitOver(CHostFile& original);

private:
    void Discard();

    std::uint64_t m_size = 0;
    HostPath m_destination;
#ifdef _WIN32
    HostPath m_temporary;
    HANDLE m_file = INVALID_HANDLE_VALUE;
#else
    // The folder is held open: its path may come to lead elsewhere.
    posix::Fd m_folder, m_file;
    std::string m_temporary; // empty when there is none
#endif
};

} // namespace vlt::scan
