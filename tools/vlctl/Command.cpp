#include "tools/vlctl/Command.h"

#include "platform/Format.h"
#include "platform/Unique.h"
#include "tools/vlctl/Text.h"

namespace vlt::ctl
{
namespace
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

} // namespace

std::string SystemText(DWORD systemError)
{
    LPWSTR text = nullptr;
    const DWORD length = FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
        systemError, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reinterpret_cast<LPWSTR>(&text), 0, nullptr);
    if (length == 0)
        return "error";
    const LocalMem owner(text);
    WStringView view(text, length);
    while (!view.empty() && (view.back() == '\n' || view.back() == '\r' || view.back() == '.'))
        view.remove_suffix(1);
    return Printable(view);
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
