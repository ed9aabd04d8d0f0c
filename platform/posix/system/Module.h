// Loaded libraries.
//
// A module handle is a number that is never given twice in a process's life, dressed as a pointer;
// a stale or foreign value is refused. The program itself and the system's own modules (kernel32.dll,
// advapi32.dll) are modules too. One lock, which a library's DllMain may enter again, is held while
// libraries are loaded and freed; looking up a module or a function takes only the table's lock.
#pragma once

#include "platform/posix/win32/base.h"

#include <optional>
#include <span>
#include <string>

namespace vlt::posix
{

// The functions of a module that is not a file.
struct PseudoExport {
    const char* name;
    FARPROC function;
};
struct PseudoModule {
    const char16_t* name; // lower case
    std::span<const PseudoExport> exports;
};
const PseudoModule* FindPseudoModule(std::u16string_view name);

// The running program's file as the host names it, found once.
const std::string& ProgramHostPath();

// Where the module's code and data lie, null for a module without a file. Null module: the program.
// Nothing for a value that is no module.
std::optional<const void*> ModuleImage(HMODULE module);

} // namespace vlt::posix
