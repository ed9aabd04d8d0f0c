// Files as the scanner reads them: regular ones only, without blocking and without following a link at
// the end of the path, so that no name in a guarded folder can hold the engine up or lead it elsewhere.
// What is done to a file's name is done only while the name still leads to the file that is open.
#pragma once

#include "suite/ArdScan/FileFacts.h"
#include "suite/ArdScan/PatternSet.h"
#include "suite/Common/HostPath.h"

#include <compare>
#include <cstdint>
#include <optional>
#include <span>

namespace vlt::scan
{

enum class OpenResult {
    Opened,
    NotRegular, // a folder, link, pipe or device: nothing to scan
    Gone,       // no longer there
    Busy,       // open by another program that shares it with nobody (Windows)
    Failed,
};

// Tells open files apart, whatever their names are.
struct FileId {
    std::uint64_t volume = 0;
    std::uint64_t file = 0;
    auto operator<=>(const FileId&) const = default;
};

class CHostFile
{
public:
    CHostFile() = default;
    ~CHostFile() { Close(); }
    CHostFile(const CHostFile&) = delete;
    CHostFile& operator=(const CHostFile&) = delete;

    OpenResult Open(const HostPath& path);
#ifndef _WIN32
    // A regular file that is open for reading, not owned; it must outlive this object.
    bool Borrow(int file);
#endif
    void Close();

    std::uint64_t Size() const
    {
        return m_size;
    } // when it was opened
    // The next bytes: their number, 0 at the end, negative on failure.
    std::ptrdiff_t Read(std::span<std::uint8_t> buffer);
    // Bytes at an offset, as Read; the position of Read stays on Linux and moves on Windows.
    std::ptrdiff_t ReadAt(std::uint64_t offset, std::span<std::uint8_t> buffer);

    std::optional<FileId> Id() const;
    std::optional<FileFacts> Facts() const;
    // Nobody wrote to it since it was opened, as far as size and times show.
    bool IsUnchanged() const;
    // No name leads to it any more.
    bool IsDeleted() const;
    // It may be believed what it says of owners and set-id bits: it belongs to the system or to this user.
    bool IsTrusted() const;
    // The name leads to this file now, and not over a link at its end.
    bool IsNamed(const HostPath& path) const;
    // Whether Remove would have to wait for another program (Windows).
    bool IsHeld(const HostPath& path) const;
    // Takes the name away when it leads to this file. True also when the file has no name any more.
    bool Remove(const HostPath& path) const;
    // Gives the file a second name, never over an existing one. Not every file system can.
    bool Link(const HostPath& path) const;

private:
#ifdef _WIN32
    HANDLE m_file = INVALID_HANDLE_VALUE;
    FILETIME m_written{};
#else
    int m_file = -1;
    bool m_borrowed = false;
    FileTime m_written, m_changed;
#endif
    std::uint64_t m_size = 0;
};

} // namespace vlt::scan
