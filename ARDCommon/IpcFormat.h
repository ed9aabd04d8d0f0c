// What an IPC receiver and the programs that send it requests share: the names of one request channel,
// and the request of the channel that excludes processes.
//
// A channel has a base name B. All its objects are "Global\" ones:
//
//   event    B_evt_ipc      manual-reset, made by the receiver: set or pulsed by the requester
//   section  B_mem_ipc      the request, made by the requester and kept until the acknowledgement
//   event    B_evt_ipc_ret  manual-reset, made by the requester: set by the receiver when it is done
//
// The section must be there before the event is signalled: a receiver that cannot open it stops
// listening for good.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

inline constexpr char kIpcRequestSuffix[] = "_evt_ipc";
inline constexpr char kIpcAcknowledgeSuffix[] = "_evt_ipc_ret";
inline constexpr char kIpcSectionSuffix[] = "_mem_ipc";

// The channel on which the service takes processes to exclude from scanning.
inline constexpr char kPidExceptionChannel[] = "realtime_exception_pid";

struct PidExceptionRequest {
    std::uint32_t processId;
    std::int32_t add; // 0: scan the process again; anything else: exclude it
};
static_assert(sizeof(PidExceptionRequest) == 8);
static_assert(offsetof(PidExceptionRequest, processId) == 0 && offsetof(PidExceptionRequest, add) == 4);
static_assert(std::is_standard_layout_v<PidExceptionRequest> && std::is_trivially_copyable_v<PidExceptionRequest>);
