// Keys: folders below <machine root>/registry.
//
//   machine/ users/           HKEY_LOCAL_MACHINE and HKEY_USERS
//   machine/ksoftware         the 64-bit view of SOFTWARE; machine/ksoftware@32 the 32-bit one
//   <key folder>/.name        the key's name as it was first written, UTF-16
//   .new/                     files and folders being made; .old/ keys being removed
//
// A key appears and disappears by one rename. Both are done under a lock of the store, so that a key
// with sub-keys is never removed; opening, reading and writing take no lock.
#pragma once

#include "platform/posix/core/Fd.h"
#include "platform/posix/registry/KeyName.h"

#include <string>
#include <vector>

namespace vlt::posix::registry
{

// The code of a call for an errno value: a store that cannot be written is ERROR_ACCESS_DENIED.
LSTATUS StatusFromErrno(int error) noexcept;

// As above after a failure below a key's folder: ERROR_KEY_DELETED when the key is gone.
LSTATUS StatusInKey(int folder, int error) noexcept;

// Whether the key of an open folder has been deleted.
bool IsDeleted(int folder) noexcept;

// Where a sub-key path starts.
struct KeyBase {
    int folder = -1;
    bool isMachine = false; // HKEY_LOCAL_MACHINE itself: SOFTWARE below it has two views
};

// The registry folder itself, opened once and kept. -1 with errno.
int StoreFolder() noexcept;

// The folder of one of the predefined keys, made when `make`. HKEY_CURRENT_USER is the .DEFAULT user
// of HKEY_USERS, as for the system account; HKEY_CLASSES_ROOT is SOFTWARE\Classes, 64-bit view.
// `owned` holds the folder when it is not one kept for the process's life.
LSTATUS OpenRoot(HKEY key, bool make, KeyBase& base, Fd& owned) noexcept;

// `view` holds KEY_WOW64_32KEY or not. An empty path opens the base again.
LSTATUS OpenKeyFolder(const KeyBase& base, WStringView path, REGSAM view, Fd& folder) noexcept;
LSTATUS MakeKeyFolder(const KeyBase& base, WStringView path, REGSAM view, Fd& folder, bool& created) noexcept;
LSTATUS RemoveKeyFolder(const KeyBase& base, WStringView path, REGSAM view) noexcept;

// The file names with the prefix in a key's folder, sorted.
LSTATUS ListFolder(int folder, char prefix, bool isMachine, std::vector<std::string>& names);

// The true name of a sub-key.
WString NameOfKey(int parent, const char* file);

// A new empty file in .new/ for a value being made; name receives its name there.
Fd MakeNewFile(char (&name)[32]) noexcept;
int NewFolder() noexcept;

} // namespace vlt::posix::registry
