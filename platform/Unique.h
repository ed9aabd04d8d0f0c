// Move-only owners, one per kind of system handle. Closing keeps the calling thread's last error, so
// an owner may go out of scope between a failing call and the read of its code.
#pragma once

#include "platform/win32.h"

#include <utility>

namespace vlt
{

template <typename Traits>
class Unique
{
public:
    using Handle = typename Traits::Handle;

    Unique() noexcept = default;
    explicit Unique(Handle handle) noexcept : m_handle(handle) {}
    Unique(Unique&& other) noexcept : m_handle(other.Release()) {}
    Unique& operator=(Unique&& other) noexcept
    {
        if (this != &other)
            Reset(other.Release());
        return *this;
    }
    Unique(const Unique&) = delete;
    Unique& operator=(const Unique&) = delete;
    ~Unique() { Reset(); }

    Handle Get() const noexcept { return m_handle; }
    explicit operator bool() const noexcept { return Traits::IsValid(m_handle); }

    Handle Release() noexcept { return std::exchange(m_handle, Traits::Null()); }

    void Reset(Handle handle = Traits::Null()) noexcept
    {
        const Handle old = std::exchange(m_handle, handle);
        if (Traits::IsValid(old)) {
            const DWORD error = GetLastError();
            Traits::Close(old);
            SetLastError(error);
        }
    }

    // For calls that return the handle through a pointer. Closes what is held first.
    Handle* Receive() noexcept
    {
        Reset();
        return &m_handle;
    }

private:
    Handle m_handle = Traits::Null();
};

template <typename T>
struct NullPointerTraits {
    using Handle = T;
    static Handle Null() noexcept { return nullptr; }
    static bool IsValid(Handle handle) noexcept { return handle != nullptr; }
};

struct KernelHandleTraits : NullPointerTraits<HANDLE> {
    static void Close(HANDLE handle) noexcept { CloseHandle(handle); }
};

struct FileHandleTraits {
    using Handle = HANDLE;
    static Handle Null() noexcept { return INVALID_HANDLE_VALUE; }
    static bool IsValid(Handle handle) noexcept { return handle != INVALID_HANDLE_VALUE; }
    static void Close(Handle handle) noexcept { CloseHandle(handle); }
};

struct FindHandleTraits : FileHandleTraits {
    static void Close(Handle handle) noexcept { FindClose(handle); }
};

struct RegKeyTraits : NullPointerTraits<HKEY> {
    static void Close(HKEY key) noexcept { RegCloseKey(key); }
};

struct ModuleTraits : NullPointerTraits<HMODULE> {
    static void Close(HMODULE module) noexcept { FreeLibrary(module); }
};

struct MappedViewTraits : NullPointerTraits<void*> {
    static void Close(void* view) noexcept { UnmapViewOfFile(view); }
};

struct LocalMemTraits : NullPointerTraits<HLOCAL> {
    static void Close(HLOCAL memory) noexcept { LocalFree(memory); }
};

struct ServiceHandleTraits : NullPointerTraits<SC_HANDLE> {
    static void Close(SC_HANDLE handle) noexcept { CloseServiceHandle(handle); }
};

struct EventSourceTraits : NullPointerTraits<HANDLE> {
    static void Close(HANDLE source) noexcept { DeregisterEventSource(source); }
};

using KernelHandle = Unique<KernelHandleTraits>;   // CloseHandle; events, threads, processes
using FileHandle = Unique<FileHandleTraits>;       // CloseHandle; CreateFileW, INVALID_HANDLE_VALUE when empty
using FindHandle = Unique<FindHandleTraits>;       // FindClose
using RegKey = Unique<RegKeyTraits>;               // RegCloseKey
using LibraryHandle = Unique<ModuleTraits>;        // FreeLibrary
using MappedView = Unique<MappedViewTraits>;       // UnmapViewOfFile
using LocalMem = Unique<LocalMemTraits>;           // LocalFree
using ServiceHandle = Unique<ServiceHandleTraits>; // CloseServiceHandle
using EventSource = Unique<EventSourceTraits>;     // DeregisterEventSource

} // namespace vlt
