// Files as the scanner reads them: regular ones only, without blocking and without following a link at
// the end of the path, so that no name in a guarded folder can hold the engine up or lead it elsewhere.
#pragma once

#include "suite/ArdScan/HostPath.h"
#include "suite/ArdScan/PatternSet.h"

#include <cstdint>
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

class CHostFile
{
public:
    CHostFile() = default;
    ~CHostFile();
    CHostFile(const CHostFile&) = delete;
    CHostFile& operator=(const CHostFile&) = delete;

    OpenResult Open(const HostPath& path);
    std::uint64_t Size() const { return m_size; }
    // The next bytes: their number, 0 at the end, negative on failure.
    std::ptrdiff_t Read(std::span<std::uint8_t> buffer);

private:
#ifdef _WIN32
    HANDLE m_file = INVALID_HANDLE_VALUE;
#else
    int m_file = -1;
#endif
    std::uint64_t m_size = 0;
};

} // namespace vlt::scan
