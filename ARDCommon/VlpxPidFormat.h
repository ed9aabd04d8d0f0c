// How the command program tells the service which process is the suite's proxy.
//
// The service makes the section (GlobalName.h gives its full name) and runs "ArdCmdCom.exe /GetVlpxPID",
// which opens it, fills it and ends. Every account may open the section.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr const char* kVlpxPidSection = "SHMEM_VLPXPID";
inline constexpr const char* kVlpxPidArgument = "/GetVlpxPID";

struct VlpxPidBlock {
    std::uint32_t status; // kVlpxPidValid, or anything else for a process that is not known
    std::uint32_t reserved4[5];
    std::uint32_t processId;
    std::uint32_t reserved28;
};
inline constexpr std::uint32_t kVlpxPidValid = 1;
static_assert(sizeof(VlpxPidBlock) == 32);
static_assert(offsetof(VlpxPidBlock, reserved4) == 4 && offsetof(VlpxPidBlock, processId) == 24 &&
              offsetof(VlpxPidBlock, reserved28) == 28);
