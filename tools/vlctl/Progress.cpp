#include "tools/vlctl/Progress.h"

#include "platform/Format.h"
#include "tools/vlctl/Host.h"

#include <cstdio>

namespace vlt::ctl
{
namespace
{

constexpr ULONGLONG RedrawMilliseconds = 100;
constexpr std::size_t BarWidth = 30;

} // namespace

Progress::Progress(std::string what, std::size_t total)
    : m_what(std::move(what)), m_total(total == 0 ? 1 : total), m_seen(ErrorsAreSeen()),
      m_next(GetTickCount64() + RedrawMilliseconds)
{
}

void Progress::Step()
{
    ++m_done;
    if (!m_seen || GetTickCount64() < m_next)
        return;
    m_next = GetTickCount64() + RedrawMilliseconds;
    m_drawn = true;
    std::string bar(BarWidth, '.');
    bar.replace(0, BarWidth * m_done / m_total, BarWidth * m_done / m_total, '#');
    std::fputs(Format("\r%s [%s] %u/%u", m_what, bar, m_done, m_total).c_str(), stderr);
    std::fflush(stderr);
}

void Progress::Clear()
{
    if (!m_drawn)
        return;
    std::fprintf(stderr, "\r%*s\r", static_cast<int>(m_what.size() + BarWidth + 48), "");
    std::fflush(stderr);
    m_drawn = false;
    m_next = 0;
}

} // namespace vlt::ctl
