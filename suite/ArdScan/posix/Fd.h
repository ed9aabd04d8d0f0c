// Owner of a file descriptor.
#pragma once

#include <unistd.h>
#include <utility>

namespace vlt::scan
{

class Fd
{
public:
    explicit Fd(int fd = -1) noexcept : m_fd(fd) {}
    Fd(Fd&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    Fd& operator=(Fd&& other) noexcept
    {
        std::swap(m_fd, other.m_fd);
        return *this;
    }
    ~Fd()
    {
        if (m_fd >= 0)
            close(m_fd);
    }

    int Get() const noexcept { return m_fd; }
    explicit operator bool() const noexcept { return m_fd >= 0; }

private:
    int m_fd;
};

} // namespace vlt::scan
