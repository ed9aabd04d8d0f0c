// The file of the trace, shared by all processes that trace into it.
//
// Nothing is kept between two lines and no lock is held while one is written: it is one write at the
// file's end, which the system keeps whole. A file that has reached its size becomes ".1", ".1 becomes
// ".2" and so on; who does that holds a named mutex, and the others go on writing meanwhile, into the
// old file or the new one.
#pragma once

#include "suite/vldbg64/HotSettings.h"

#include <string_view>

namespace vlt::debug
{

class LogFile
{
public:
    // Whole lines. What cannot be written is counted, and the next success tells the number; after a
    // failure nothing is tried for a second, so a locked file or a full disk costs its callers no time.
    void Append(const Settings& settings, std::string_view lines);

private:
    bool Write(const Settings& settings, std::string_view lines);
    bool PutAside(const Settings& settings);

    std::atomic<ULONGLONG> m_quietUntil = 0;
    std::atomic<ULONGLONG> m_noRotationUntil = 0;
    std::atomic<unsigned> m_lost = 0;
};

} // namespace vlt::debug
