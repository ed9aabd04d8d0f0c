// Restart of the tray program, ardguide.exe of the program folder, in every session of a user.
#pragma once

// In each session with a shell ("Explorer.EXE"): ends the tray programs that run there, waiting a few
// seconds for each, and starts a new one for the shell's user on the desktop "WinSta0\Default", with the
// user's environment and rights. What fails in one session is traced and leaves the others alone. Needs
// the rights of a service to start programs for other accounts. Any thread.
void RestartOnAllSessions();
