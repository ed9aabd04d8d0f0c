// Moves that wait for the next start of the system.
//
// The list is where Windows has it: HKLM\SYSTEM\CurrentControlSet\Control\Session Manager, the
// multi-string PendingFileRenameOperations. Each move is two texts, "\??\" and the full path to move and
// then the same of the target, with a "!" in front when it may be replaced, or an empty text when the
// file is to be deleted.
//
// <machine root>/boot is the lock of the list. Its first line is the id of the boot that the list was made
// in (the kernel's boot_id, or the first line of the file that VLT_BOOT_ID names). In another boot the list
// is due. It is carried out in order before the first service starts, or before the first new move is put
// down; the second line counts the moves that have been tried, so that whoever is killed leaves the rest to
// the next. A source that has gone is passed over. A move that fails is reported to the event log and
// dropped.
#pragma once

#include "platform/posix/win32/base.h"

namespace vlt::posix
{

// Puts a move down, or a deletion when `to` is null. FALSE with the last error set.
BOOL AddPendingMove(LPCWSTR from, LPCWSTR to, bool replace);

// Carries the list out when it is due. Returns at once in a boot where that was done.
void CarryOutPendingMoves();

} // namespace vlt::posix
