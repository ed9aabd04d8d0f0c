// Tells the administrator, in the event log, that the scan engine does not work.
#pragma once

// The program's text for it, alone when the number is 0, else followed by " (number)".
void ReportEngineFailure(int number);
