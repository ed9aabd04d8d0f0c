#include "realtime/EngineFailure.h"

#include "ARDCommon/EventLog.h"
#include "platform/Format.h"

namespace
{

constexpr UINT kText = 1002;
constexpr DWORD kEvent = 0xA0000003;

} // namespace

void ReportEngineFailure(int number)
{
    WCHAR buffer[512] = {};
    LoadStringW(GetModuleHandleW(nullptr), kText, buffer, 512);
    const WString text = number == 0 ? WString(buffer) : vlt::Format(TEXT("%s (%d)"), buffer, number);
    vlt::LogEvent(vlt::kServiceDisplayName, text.c_str(), kEvent, true);
}
