// Patterns that the updater has brought are taken into use.
//
// Each function asks the scan library to load its kind anew. On success the version records are written
// and user programs are told ("Event_Reload_ToolTipInfo" is pulsed); on failure the old patterns stay in
// use, and the event log says so. They run on the thread of the control events, beside an application
// of the settings.
#pragma once

#include "platform/win32.h"

void ReloadKsapiPattern();   // virus patterns
void ReloadSpywarePattern(); // spyware patterns
// Virus, spyware and packed-file patterns. The packed-file heuristic is off meanwhile, and after a
// failure until the next success or application of the settings.
void ReloadAllPatterns();

// Makes the event of that global name for a moment and pulses it (CGEvent.h).
void PulseNamedEvent(LPCWSTR name);
