#include "realtime/FileUpdates.h"

#include "ARDCommon/AuDelayCopy.h"
#include "ARDCommon/CGEReceiver.h"
#include "ARDCommon/TrayRestart.h"
#include "ARDCommon/VlDebug.h"

namespace
{

// Never destroyed: its thread listens until the process ends.
CGEReceiver& RestartListener()
{
    static CGEReceiver& listener = *new CGEReceiver;
    return listener;
}

void RestartTray(LPCWSTR, void*)
{
    RestartOnAllSessions();
}

} // namespace

void UpdateARDFiles(int atStartUp)
{
    VLT_TRACE(40, "Enter: UpdateARDFiles( %d )", atStartUp);
    if (atStartUp != 0) {
        if (RestartListener().StartCallback(TEXT("Event_RestartARD"), RestartTray, nullptr, false))
            VLT_TRACE(40, "success InitGEvent for RestartOnAllSessions");
        else
            VLT_TRACE(40, "failed InitGEvent for RestartOnAllSessions");
    }
    if (!CAuDelayCopy::DoMoveFileEx())
        VLT_TRACE(20, "CAuDelayCopy::DoMoveFileEx() failed");
    VLT_TRACE(40, "Exit: UpdateARDFiles()");
}
