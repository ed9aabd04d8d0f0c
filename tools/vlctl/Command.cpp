#include "tools/vlctl/Command.h"

#include "platform/Format.h"
#include "tools/vlctl/Text.h"

namespace vlt::ctl
{
Exit ExitFor(DWORD systemError)
{
    switch (systemError) {
    case ERROR_ACCESS_DENIED:
        return ExitNoPermission;
    case ERROR_SERVICE_DOES_NOT_EXIST:
    case ERROR_SERVICE_MARKED_FOR_DELETE:
    case ERROR_FAILED_SERVICE_CONTROLLER_CONNECT:
        return ExitNoService;
    default:
        return ExitFailed;
    }
}

void FailWith(DWORD systemError, const std::string& what)
{
    throw CommandError(ExitFor(systemError), Format("%s: %s (%u)", what, SystemText(systemError), systemError));
}

WString FolderOf(const WString& path)
{
    const std::size_t cut = path.find_last_of(TEXT("\\/"));
    return cut == WString::npos ? WString() : path.substr(0, cut + 1);
}

} // namespace vlt::ctl
