// Replacements of program files that an update has left for the next start of the system.
#pragma once

// Hands them to the system (CAuDelayCopy). At the start of the service also makes it listen, for the
// life of the process, to "Event_RestartARD", on which it restarts the tray program in every session.
void UpdateARDFiles(int atStartUp);
