// The threads that apply the settings anew when the user interface has changed them.
//
// Each watches the values of one key, not its sub-keys, and on a change applies all settings under the
// settings lock. Several changes while the settings are being applied count once. A key that is not
// there when its watcher starts, or that is deleted, is not followed until the next start.
#pragma once

#include "realtime/WorkerThread.h"

// Thread procedures: the key of the settings, and that of the exceptions.
unsigned WhenRegChange(CWorkerThread& self);
unsigned WhenExceptionRegChange(CWorkerThread& self);
