// The protection state in the operating system's security centre.
#pragma once

// Tells the security centre, through the command program ArdCmdCom.exe, whether anti-virus and
// anti-spyware protection are on; anti-spyware counts as off whenever anti-virus is. Waits for both
// runs of the program, without limit. False when one could not be started; the second is then not tried.
bool ChangeWSCStatus(bool antiVirusOn, bool antiSpywareOn);
