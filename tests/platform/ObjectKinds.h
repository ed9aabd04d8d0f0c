// One of each kind of named object.
#pragma once

#include "platform/win32.h"

namespace vlt::test
{

struct ObjectKind {
    HANDLE (*create)(LPCWSTR name);
    HANDLE (*open)(LPCWSTR name); // with every right
};

inline constexpr ObjectKind kObjectKinds[] = {
    {[](LPCWSTR name) { return CreateEventW(nullptr, FALSE, FALSE, name); },
     [](LPCWSTR name) { return OpenEventW(EVENT_ALL_ACCESS, FALSE, name); }},
    {[](LPCWSTR name) { return CreateMutexW(nullptr, TRUE, name); },
     [](LPCWSTR name) { return OpenMutexW(MUTEX_ALL_ACCESS, FALSE, name); }},
    {[](LPCWSTR name) { return CreateSemaphoreW(nullptr, 1, 4, name); },
     [](LPCWSTR name) { return OpenSemaphoreW(SEMAPHORE_ALL_ACCESS, FALSE, name); }},
    {[](LPCWSTR name) { return CreateWaitableTimerW(nullptr, FALSE, name); },
     [](LPCWSTR name) { return OpenWaitableTimerW(TIMER_ALL_ACCESS, FALSE, name); }},
    {[](LPCWSTR name) { return CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 5000, name); },
     [](LPCWSTR name) { return OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, name); }},
};

} // namespace vlt::test
