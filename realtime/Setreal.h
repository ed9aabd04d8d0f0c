// Engine start-up and shut-down, called by the service object on the service-main thread.
#pragma once

#include "platform/win32.h"

// Brings scanning up; `directory` is the program folder, ending in a backslash. True when scanning is
// set up and every worker thread runs. After false StopRealtimeScan takes down what had been started.
bool InitKSAPI(const WString& directory);

// Takes scanning down. Safe after a failed or partial InitKSAPI, and when called again.
void StopRealtimeScan();
