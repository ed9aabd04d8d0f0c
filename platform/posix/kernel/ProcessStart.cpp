#include "platform/posix/kernel/ProcessStart.h"

#include "platform/posix/core/Error.h"
#include "platform/posix/core/Utf.h"
#include "platform/posix/file/Path.h"
#include "platform/posix/kernel/CommandLine.h"
#include "platform/posix/system/Module.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sched.h>
#include <spawn.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace vlt::posix
{
namespace
{

bool IsFile(const std::string& path) noexcept
{
    struct stat status {
    };
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool HasExtension(std::u16string_view name) noexcept
{
    const std::size_t start = name.find_last_of(u"\\/:");
    return name.find(u'.', start == name.npos ? 0 : start) != name.npos;
}

std::string ProgramFolder()
{
    const std::string& path = ProgramHostPath();
    return path.substr(0, path.rfind('/') + 1);
}

// The host paths that a program's name may stand for, in the order of the search.
std::vector<std::string> PathsOf(std::u16string_view name)
{
    if (name.find_first_of(u"\\/:") != name.npos)
        return {HostPathFromWindows(name)};
    const std::string file = Utf8FromUtf16(name);
    std::vector<std::string> paths{ProgramFolder() + file, "./" + file};
    const char* const given = std::getenv("PATH");
    std::string_view folders = given ? given : "";
    while (!folders.empty()) {
        const std::size_t end = std::min(folders.find(':'), folders.size());
        if (end != 0)
            paths.push_back(std::string(folders.substr(0, end)) + '/' + file);
        folders.remove_prefix(std::min(end + 1, folders.size()));
    }
    return paths;
}

// Empty when there is no such file.
std::string FindFile(const std::u16string& name)
{
    for (const std::string& path : PathsOf(name)) {
        if (IsFile(path))
            return path;
    }
    return HasExtension(name) ? std::string() : FindFile(name + u".exe");
}

void Append(std::vector<std::string>& arguments, const std::vector<std::u16string>& more)
{
    for (const std::u16string& argument : more)
        arguments.push_back(Utf8FromUtf16(argument));
}

// The attributes and file actions of a start; freed at its end.
class SpawnSettings
{
public:
    explicit SpawnSettings(bool detached) noexcept
    {
        posix_spawnattr_init(&m_attributes);
        posix_spawn_file_actions_init(&m_actions);
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_setsigmask(&m_attributes, &none);
        posix_spawnattr_setsigdefault(&m_attributes, &all);
        const int flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | (detached ? POSIX_SPAWN_SETSID : 0);
        posix_spawnattr_setflags(&m_attributes, static_cast<short>(flags));
        posix_spawn_file_actions_addclosefrom_np(&m_actions, 3);
    }
    ~SpawnSettings()
    {
        posix_spawn_file_actions_destroy(&m_actions);
        posix_spawnattr_destroy(&m_attributes);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    int Spawn(pid_t& id, const Program& program) const
    {
        std::vector<char*> arguments;
        for (const std::string& argument : program.arguments)
            arguments.push_back(const_cast<char*>(argument.c_str()));
        arguments.push_back(nullptr);
        return posix_spawn(&id, program.path.c_str(), &m_actions, &m_attributes, arguments.data(), environ);
    }

private:
    posix_spawnattr_t m_attributes;
    posix_spawn_file_actions_t m_actions;
};

} // namespace

Program FindProgram(LPCWSTR application, LPCWSTR commandLine)
{
    Program program;
    if (application) {
        program.path = HostPathFromWindows(application);
        Append(program.arguments, SplitArguments(commandLine ? commandLine : application));
        if (!IsFile(program.path))
            program.path.clear();
        return program;
    }
    for (const CommandReading& reading : ReadCommandLine(commandLine)) {
        program.path = FindFile(reading.program);
        if (!program.path.empty()) {
            program.arguments.push_back(Utf8FromUtf16(reading.program));
            Append(program.arguments, SplitArguments(reading.rest));
            break;
        }
    }
    return program;
}

// Windows has no right to execute: a file that nobody may execute is no program.
DWORD StartError(int error, const std::string& path) noexcept
{
    struct stat status {
    };
    if (error == EACCES && stat(path.c_str(), &status) == 0 && (status.st_mode & 0111) == 0)
        return ERROR_BAD_EXE_FORMAT;
    return ErrorFromErrno(error);
}

pid_t StartProgram(LPCWSTR application, LPCWSTR commandLine, bool detached)
{
    const Program program = FindProgram(application, commandLine);
    if (program.path.empty()) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return -1;
    }
    pid_t id = -1;
    if (const int error = SpawnSettings(detached).Spawn(id, program); error != 0) {
        SetLastError(StartError(error, program.path));
        return -1;
    }
    // A process begins at normal priority also when an idle thread starts it, where that is allowed.
    if (sched_getscheduler(0) == SCHED_IDLE) {
        const sched_param none{};
        sched_setscheduler(id, SCHED_OTHER, &none);
    }
    return id;
}

void AbandonProgram(pid_t id) noexcept
{
    kill(id, SIGKILL);
    while (waitpid(id, nullptr, 0) < 0 && errno == EINTR) {
    }
}

} // namespace vlt::posix
