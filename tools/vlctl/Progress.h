// How far long work has come, for whoever sits before the terminal.
#pragma once

#include "platform/win32.h"

#include <string>

namespace vlt::ctl
{

// A bar in the last line of standard error while this lives; nothing when that is not a terminal.
class Progress
{
public:
    Progress(std::string what, std::size_t total);
    ~Progress() { Clear(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void Step();

    // Takes the bar away, so that a line can be printed; the next step brings it back.
    void Clear();

private:
    const std::string m_what;
    const std::size_t m_total;
    const bool m_seen;
    std::size_t m_done = 0;
    ULONGLONG m_next = 0; // tick of the next drawing
    bool m_drawn = false;
};

} // namespace vlt::ctl
