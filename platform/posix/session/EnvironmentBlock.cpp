#include "platform/posix/core/MachineRoot.h"
#include "platform/posix/core/Utf.h"
#include "platform/posix/session/TokenObject.h"
#include "platform/posix/win32/session.h"

#include <cstdlib>
#include <cstring>
#include <pwd.h>

using namespace vlt::posix;

namespace
{

struct Account {
    std::string name;
    std::string home = "/";
    std::string shell = "/bin/sh";
};

// A user without an entry has a number for a name.
Account AccountOf(uid_t user)
{
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> storage(16384);
    if (getpwuid_r(user, &entry, storage.data(), storage.size(), &found) != 0 || !found)
        return {std::to_string(user)};
    return {entry.pw_name, entry.pw_dir, entry.pw_shell};
}

} // namespace

BOOL CreateEnvironmentBlock(LPVOID* environment, HANDLE token, BOOL inherit)
{
    if (!environment || inherit) {
        SetLastError(environment ? ERROR_NOT_SUPPORTED : ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const auto object = Pin<TokenObject>(token);
    if (!object)
        return FALSE;
    const Account account = AccountOf(object->Who().user);
    std::u16string block;
    for (const std::string& entry :
         {"HOME=" + account.home, "LOGNAME=" + account.name, std::string("PATH=/usr/local/bin:/usr/bin:/bin"),
          "SHELL=" + account.shell, "USER=" + account.name, "VLT_ROOT=" + MachineRoot(),
          "VLT_SESSION=" + std::to_string(object->Session())})
        block += Utf16FromUtf8(entry) + u'\0';
    block += u'\0';
    *environment = std::malloc(block.size() * sizeof(WCHAR));
    if (!*environment) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return FALSE;
    }
    std::memcpy(*environment, block.data(), block.size() * sizeof(WCHAR));
    return TRUE;
}

BOOL DestroyEnvironmentBlock(LPVOID environment)
{
    std::free(environment);
    return TRUE;
}
