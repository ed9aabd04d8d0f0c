#include "realtime/SecurityCentre.h"

#include "ARDCommon/ProgramFolder.h"
#include "ARDCommon/VlDebug.h"
#include "ARDCommon/VlUtil.h"

namespace
{

bool RunCommandProgram(const WString& program, LPCWSTR argument)
{
    if (VlUtil::SyncExecuteProcess((program + argument).c_str()))
        return true;
    VLT_TRACE(20, "VlUtil::SyncExecuteProcess() failed");
    return false;
}

} // namespace

bool ChangeWSCStatus(bool antiVirusOn, bool antiSpywareOn)
{
    VLT_TRACE(40, "ChangeWSCStatus(%d, %d)", int{antiVirusOn}, int{antiSpywareOn});
    const WString program = vlt::ApplicationFolder() + TEXT("ArdCmdCom.exe");
    if (!RunCommandProgram(program, antiVirusOn ? TEXT(" /WSCAntiVirusOn") : TEXT(" /WSCAntiVirusOff")))
        return false;
    VLT_TRACE(40, "Executed WSC virus registration process");
    if (!RunCommandProgram(program,
                           antiVirusOn && antiSpywareOn ? TEXT(" /WSCAntiSpywareOn") : TEXT(" /WSCAntiSpywareOff")))
        return false;
    VLT_TRACE(40, "Executed WSC spyware registration process");
    return true;
}
