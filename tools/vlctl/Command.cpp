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

namespace
{

const char* UsualAdvice(Exit code)
{
    switch (code) {
    case ExitUsage:
    case ExitNo:
        return "see the command's --help";
    case ExitNoService:
        return "vlctl service install registers the service, vlctl service start starts it";
    case ExitNoPermission:
        return "try again as root, on Windows as an administrator";
    default:
        return "vlctl doctor looks for the cause";
    }
}

} // namespace

CommandError::CommandError(Exit code, const std::string& message, std::string advice)
    : std::runtime_error(message), m_code(code), m_advice(advice.empty() ? UsualAdvice(code) : std::move(advice))
{
}

void FailWith(DWORD systemError, const std::string& what, std::string advice)
{
    throw CommandError(ExitFor(systemError), Format("%s: %s (%u)", what, SystemText(systemError), systemError),
                       std::move(advice));
}

WString FolderOf(const WString& path)
{
    const std::size_t cut = path.find_last_of(TEXT("\\/"));
    return cut == WString::npos ? WString() : path.substr(0, cut + 1);
}

} // namespace vlt::ctl
