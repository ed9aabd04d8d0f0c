// Mappings of files that others may cut short.
//
// Whoever may write the file of an object can also truncate it, and touching a page beyond its end
// raises SIGBUS. A handler, installed with the first mapping, looks whether the address lies in one of
// these mappings; if so it puts a private page of zeros there and the access goes on: the memory is no
// longer shared, but the process lives. Any other SIGBUS goes to the handler that was there before.
#pragma once

#include <cstddef>
#include <sys/types.h>

namespace vlt::posix
{

namespace detail
{
struct GuardedRange;
}

class GuardedMapping
{
public:
    GuardedMapping() noexcept = default;
    // Maps whole pages of the file, shared; empty with errno set when that fails.
    GuardedMapping(int file, off_t offset, std::size_t length, int protection) noexcept;
    GuardedMapping(GuardedMapping&& other) noexcept;
    GuardedMapping& operator=(GuardedMapping&& other) noexcept;
    ~GuardedMapping();

    explicit operator bool() const noexcept { return m_range != nullptr; }
    void* Base() const noexcept;
    std::size_t Length() const noexcept;
    // Is a part of it no longer shared?
    bool IsPatched() const noexcept;

private:
    detail::GuardedRange* m_range = nullptr;
};

} // namespace vlt::posix
