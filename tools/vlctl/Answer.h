// What a command has found out, once for both readers: JSON as it is for programs, and the same as text.
//
// Every JSON object that vlctl prints begins with "schema". Members may be added without a new number; it
// goes up when one is renamed, taken away or given another meaning.
#pragma once

#include "tools/vlctl/Command.h"

#include <nlohmann/json.hpp>

#include <string>

namespace vlt::ctl
{

using Json = nlohmann::ordered_json;

constexpr int SchemaVersion = 1;

// One object in one line, with the schema in front. Text that is not UTF-8 gets replacement characters.
std::string JsonLine(const Json& object);

// Prints an object: as JSON, or as two columns with the member names in words. Lists take a line for each
// entry, objects within it stand in one line.
void PrintAnswer(const Run& run, const Json& object);

// Prints a list of objects: {"schema", name: [...]}, or a table with the member names as its head, in
// which long cells are cut. Without entries the table is nothing.
void PrintList(const Run& run, const char* name, const Json& rows);

// A single value as the text shows it: yes and no, "-" for nothing, control characters escaped.
std::string ValueText(const Json& value);

// The text in the colour of a state ("ok", "protected" green, "warning", "degraded" yellow, ...) where
// standard output takes colours.
std::string Painted(const std::string& text, const std::string& state);

} // namespace vlt::ctl
