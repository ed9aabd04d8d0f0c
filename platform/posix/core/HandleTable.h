// The process's handle table.
//
// A handle value is a slot number and that slot's generation; the generation grows with every use of
// the slot and is 40 bits wide, so a value never comes back. Pin() is one atomic addition and never
// blocks: it keeps the object alive until the pin goes, whoever closes the handle meanwhile.
#pragma once

#include "platform/posix/core/Object.h"
#include "platform/posix/win32/base.h"

#include <memory>
#include <utility>

namespace vlt::posix
{

using KindMask = std::uint32_t;
constexpr KindMask MaskOf(ObjectKind kind) noexcept
{
    return KindMask{1} << static_cast<unsigned>(kind);
}
constexpr KindMask AnyKind = ~KindMask{0};

// Takes the object. Null with ERROR_NOT_ENOUGH_MEMORY when the table is full.
HANDLE InsertHandle(std::unique_ptr<Object> object) noexcept;

// Closes a handle of one of the kinds; false with ERROR_INVALID_HANDLE for any other value.
bool CloseHandleOfKind(HANDLE handle, KindMask kinds) noexcept;

// The number of open handles, for tests.
std::size_t OpenHandleCount() noexcept;

namespace detail
{
Object* PinHandle(HANDLE handle, KindMask kinds) noexcept; // null with ERROR_INVALID_HANDLE
void UnpinHandle(HANDLE handle) noexcept;
} // namespace detail

// A reference to the object behind a handle for the duration of one call.
template <typename T>
class Pinned
{
public:
    Pinned() noexcept = default;
    Pinned(HANDLE handle, KindMask kinds) noexcept
        : m_handle(handle), m_object(static_cast<T*>(detail::PinHandle(handle, kinds)))
    {
    }
    Pinned(Pinned&& other) noexcept : m_handle(other.m_handle), m_object(std::exchange(other.m_object, nullptr)) {}
    Pinned& operator=(Pinned&& other) noexcept
    {
        std::swap(m_handle, other.m_handle);
        std::swap(m_object, other.m_object);
        return *this;
    }
    ~Pinned() { Reset(); }

    void Reset() noexcept
    {
        if (std::exchange(m_object, nullptr))
            detail::UnpinHandle(m_handle);
    }

    explicit operator bool() const noexcept { return m_object != nullptr; }
    T* Get() const noexcept { return m_object; }
    T* operator->() const noexcept { return m_object; }
    T& operator*() const noexcept { return *m_object; }

private:
    HANDLE m_handle = nullptr;
    T* m_object = nullptr;
};

// Pin<EventObject>(handle): T::kKind names the kind; false with ERROR_INVALID_HANDLE otherwise.
template <typename T>
Pinned<T> Pin(HANDLE handle) noexcept
{
    return Pinned<T>(handle, MaskOf(T::kKind));
}

} // namespace vlt::posix
