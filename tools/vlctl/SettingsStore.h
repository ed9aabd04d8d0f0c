// The settings of on-access scanning as the service reads them, by the one table that it uses itself
// (ARDCommon/RealTimeSettings.h).
#pragma once

#include "ARDCommon/RealTimeSettings.h"

#include <string>
#include <vector>

namespace vlt::ctl
{

struct SettingState {
    const SettingInfo* setting;
    std::string value; // what the service uses
    const char* from;  // "default", "set", or "invalid" for a stored value that the service passes over
};

// All of them in the order of the table. Throws CommandError when the key is there but not readable.
std::vector<SettingState> ReadSettings();

std::string DefaultText(const SettingInfo& setting);

// What the service uses.
std::uint32_t ReadNumberSetting(SettingId id);
std::string ReadTextSetting(SettingId id);
bool ReadSwitch(SettingId id);

// The setting of that name in any case. Throws CommandError (usage) when there is none.
const SettingInfo& FindSetting(const std::string& name);

// Writes a value: text, a number, or "on" and "off". Throws CommandError, usage when it is out of bounds.
void WriteSetting(const SettingInfo& setting, const std::string& value);

} // namespace vlt::ctl
