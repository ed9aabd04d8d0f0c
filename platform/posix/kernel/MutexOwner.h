// Who owns a mutex, in the 64 bits that one compare-and-swap changes: a process killed at any instant
// has then told its name or not taken the mutex.
//
//   bits  0..21  thread id as the kernel numbers it; 0: no owner
//   bit   22     abandoned by its last owner; only without one
//   bits 24..41  when the process started, in the kernel's ticks (their lowest 18 bits): its id alone
//                may have gone to another process since
//   bits 42..63  process id
//
// The kernel gives no id above 22 bits. The lower half is the futex word; two owners never share it at
// one time, since no two living threads share an id.
#pragma once

#include "platform/posix/core/Fd.h"

#include <cstdint>
#include <sys/types.h>

namespace vlt::posix
{

using MutexOwner = std::uint64_t;

constexpr MutexOwner NoOwner = 0;
constexpr MutexOwner AbandonedMutex = MutexOwner{1} << 22;
constexpr unsigned OwnerStartShift = 24;
constexpr unsigned OwnerProcessShift = 42;

// The calling thread.
MutexOwner SelfAsOwner() noexcept;

constexpr bool IsOwned(MutexOwner owner) noexcept
{
    return owner != NoOwner && owner != AbandonedMutex;
}
constexpr pid_t OwnerProcess(MutexOwner owner) noexcept
{
    return static_cast<pid_t>(owner >> OwnerProcessShift);
}
constexpr bool InSameProcess(MutexOwner left, MutexOwner right) noexcept
{
    return (left >> OwnerStartShift) == (right >> OwnerStartShift);
}

// A descriptor that becomes readable when the owner's process ends. Without one, `ended` says whether
// that is the reason.
Fd OpenOwnerProcess(MutexOwner owner, bool& ended) noexcept;

} // namespace vlt::posix
