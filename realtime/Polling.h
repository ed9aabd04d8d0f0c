// The thread that tells the security centre the protection state again and again.
#pragma once

#include "realtime/WorkerThread.h"

// Thread procedure. The period is the setting PollingTime in minutes, read once, 60 when it is not a
// number; in milliseconds it wraps at 32 bits, and 0 reports without a pause. Ends when its event
// "EVENT_POLLINGSTOP" is signalled, by whomever, or cannot be made.
unsigned PollingStatusThread(CWorkerThread& self);
