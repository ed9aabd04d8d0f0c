// A registry value as text: parsing of arguments, printing, JSON.
#pragma once

#include "platform/win32.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace vlt::ctl
{

struct RegistryValue {
    DWORD type = REG_NONE;
    std::vector<BYTE> data;
};

// The names of the types: sz, dword, qword, binary, multi, expand.
const std::vector<std::string>& TypeNames();

// Builds a value from its type's name and the words of the command line: numbers are decimal or
// 0x hexadecimal, binary is hexadecimal digits, multi takes one string a word. Throws CommandError
// (usage) for text that does not fit.
RegistryValue ParseValue(const std::string& typeName, const std::vector<std::string>& words);

// The type's name, or "type N" for one that has none here.
std::string TypeText(DWORD type);

// For a terminal. Data that does not fit its type is printed as hexadecimal digits.
std::string DataText(const RegistryValue& value);

// {"type", "bytes", "data"}: a string, a number, a list of strings, or hexadecimal digits.
nlohmann::ordered_json ToJson(const RegistryValue& value);

// Reads one value; throws CommandError, ExitNo when there is none.
RegistryValue ReadValue(HKEY key, const std::string& name);

} // namespace vlt::ctl
