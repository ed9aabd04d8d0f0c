// What the kernel tells of a process. All of it may be of another process when the first one has ended
// and its id was given away: whoever acts on it holds a pidfd and looks afterwards whether that still runs.
#pragma once

#include "platform/posix/win32/base.h"

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace vlt::posix
{

struct ProcessFacts {
    pid_t id = 0;
    pid_t parent = 0;
    unsigned threads = 0;
    unsigned terminal = 0; // device number as in /proc/<id>/stat; 0 for none
    unsigned long long start = 0;
    std::string name; // of the program, without its folder
};

// Empty when there is no such process, or none any more.
std::optional<ProcessFacts> ReadProcessFacts(pid_t id);

// The program that the process runs, as far as this account may know; otherwise the kernel's 15 bytes.
std::string ProgramName(pid_t id, const std::string& kernelName);

struct Credentials {
    uid_t user = 0;
    gid_t group = 0;
    std::vector<gid_t> groups; // supplementary
};

// Empty for a process with several users or groups at once: real, effective, saved or of file accesses.
std::optional<Credentials> ReadCredentials(pid_t id);

struct Login {
    DWORD session = 0; // 0 for none
    uid_t user = 0;    // who logged in
};
Login ReadLogin(pid_t id);

// VLT_SESSION, or else the login's number.
DWORD SessionOf(pid_t id);

std::vector<pid_t> AllProcesses();

} // namespace vlt::posix
