// Owner of a file descriptor. Closing keeps errno.
#pragma once

#include <cerrno>
#include <unistd.h>
#include <utility>

namespace vlt::posix
{

class Fd
{
public:
    explicit Fd(int fd = -1) noexcept : m_fd(fd) {}
    Fd(Fd&& other) noexcept : m_fd(other.Release()) {}
    Fd& operator=(Fd&& other) noexcept
    {
        std::swap(m_fd, other.m_fd);
        return *this;
    }
    ~Fd()
    {
        if (m_fd >= 0) {
            const int error = errno;
            close(m_fd);
            errno = error;
        }
    }

    int Get() const noexcept { return m_fd; }
    int Release() noexcept { return std::exchange(m_fd, -1); }
    explicit operator bool() const noexcept { return m_fd >= 0; }

private:
    int m_fd;
};

} // namespace vlt::posix
