// How the running proxy makes itself known in the machine.
//
//   mutex    Global\VlProxy_Running       owned by the proxy's main thread for as long as it lives
//   section  Global\VlProxy_Information   a VlpxInformation
//
// Both are the proxy account's own: others, save root and the system, cannot open them. The system takes
// the mutex from a proxy that ends in any way, so a section that somebody still holds proves nothing.
#pragma once

#include "ARDCommon/VlpxPidFormat.h"
#include "platform/win32.h"

namespace vlt::proxy
{

inline constexpr WCHAR kRunningMutex[] = TEXT("Global\\VlProxy_Running");
inline constexpr WCHAR kInformationSection[] = TEXT("Global\\VlProxy_Information");
inline constexpr WCHAR kProgram[] = TEXT("VlProxy.exe");

// What the command program copies behind the status of a VlpxPidBlock.
struct VlpxInformation {
    std::uint32_t size; // of this record
    std::uint32_t reserved4[4];
    std::uint32_t processId;
    std::uint32_t reserved24;
};
static_assert(sizeof(VlpxInformation) == 28 && offsetof(VlpxInformation, processId) == 20);
static_assert(offsetof(VlpxPidBlock, reserved4) + offsetof(VlpxInformation, processId) ==
              offsetof(VlpxPidBlock, processId));

} // namespace vlt::proxy
