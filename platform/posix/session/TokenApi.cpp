#include "platform/posix/core/Error.h"
#include "platform/posix/core/Utf.h"
#include "platform/posix/kernel/ProcessObject.h"
#include "platform/posix/session/UserProgram.h"
#include "platform/posix/win32/session.h"

#include <sys/stat.h>
#include <unistd.h>

using namespace vlt::posix;

namespace
{

constexpr DWORD TokenRights = TOKEN_ASSIGN_PRIMARY | TOKEN_DUPLICATE | TOKEN_QUERY;

BOOL Fail(DWORD error)
{
    SetLastError(error);
    return FALSE;
}

bool SameFile(const std::string& left, const std::string& right)
{
    struct stat a {
    }, b{};
    return stat(left.c_str(), &a) == 0 && stat(right.c_str(), &b) == 0 && a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// A program of this process's user namespace and root folder gives the same user no more rights there.
bool SharesWorld(pid_t id)
{
    const std::string folder = "/proc/" + std::to_string(id);
    return SameFile(folder + "/ns/user", "/proc/self/ns/user") && SameFile(folder + "/root/", "/proc/self/root/");
}

std::vector<std::string> ParseEnvironment(const WCHAR* block)
{
    std::vector<std::string> entries;
    for (std::u16string_view entry(block); !entry.empty(); entry = entry.data() + entry.size() + 1)
        entries.push_back(Utf8FromUtf16(entry));
    return entries;
}

bool IsUsersDesktop(const STARTUPINFOW* startup)
{
    return !startup || !startup->lpDesktop || std::u16string_view(startup->lpDesktop) == u"WinSta0\\Default";
}

} // namespace

BOOL OpenProcessToken(HANDLE process, DWORD access, HANDLE* token)
{
    if (!token || (access & ~TokenRights) != 0)
        return Fail(token ? ERROR_NOT_SUPPORTED : ERROR_INVALID_PARAMETER);
    Pinned<ProcessObject> object;
    pid_t id = getpid();
    if (process != GetCurrentProcess()) {
        object = Pin<ProcessObject>(process);
        if (!object || !object->Grants(PROCESS_QUERY_LIMITED_INFORMATION))
            return FALSE;
        id = object->Record().Id();
    }
    const auto facts = ReadProcessFacts(id);
    auto credentials = ReadCredentials(id);
    const bool allowed = facts && credentials && SharesWorld(id);
    const DWORD session = SessionOf(id);
    if (!allowed || (object && object->Record().TryTake() == Taken::Yes))
        return Fail(ERROR_ACCESS_DENIED);
    *token = InsertHandle(std::make_unique<TokenObject>(std::move(*credentials), session, facts->terminal, access));
    return *token != nullptr;
}

BOOL CreateProcessAsUserW(HANDLE token, LPCWSTR application, LPWSTR commandLine, LPSECURITY_ATTRIBUTES processSecurity,
                          LPSECURITY_ATTRIBUTES threadSecurity, BOOL inheritHandles, DWORD flags, LPVOID environment,
                          LPCWSTR currentDirectory, STARTUPINFOW* startup, PROCESS_INFORMATION* information)
{
    if (processSecurity || threadSecurity || inheritHandles || flags != CREATE_UNICODE_ENVIRONMENT || !environment ||
        currentDirectory || (startup && startup->dwFlags != 0) || !IsUsersDesktop(startup))
        return Fail(ERROR_NOT_SUPPORTED);
    if ((!application && !commandLine) || !information)
        return Fail(ERROR_INVALID_PARAMETER);
    const auto object = Pin<TokenObject>(token);
    if (!object)
        return FALSE;
    if (!object->Grants(TokenRights))
        return Fail(ERROR_ACCESS_DENIED);
    Program program = FindProgram(application, commandLine);
    if (program.path.empty())
        return Fail(ERROR_FILE_NOT_FOUND);
    const pid_t id =
        StartForUser(*object, std::move(program), ParseEnvironment(static_cast<const WCHAR*>(environment)));
    return id > 0 && DeliverChild(id, *information);
}
