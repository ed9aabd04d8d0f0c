// The thread that acts on the signals of the updater and of user programs.
#pragma once

#include "realtime/WorkerThread.h"

// Thread procedure. Waits for the events below, open to every account, and runs the action of the one
// that is signalled: one at a time, the first of the list first, several signals during an action once.
//
//   Event_EventStop          ends the thread; not a global name
//   Event_Reload_Ksapi       ReloadKsapiPattern
//   Event_Reload_Spyware     ReloadSpywarePattern
//   Event_Reload_Pattern     ReloadAllPatterns
//   Event_Update_ARDFiles    UpdateARDFiles
//
// When one of them cannot be made the service goes without the thread.
unsigned EventThread(CWorkerThread& self);
