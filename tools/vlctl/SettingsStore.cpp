#include "tools/vlctl/SettingsStore.h"

#include "ARDCommon/CipheredValueFormat.h"
#include "platform/Format.h"
#include "platform/Unique.h"
#include "tools/vlctl/Command.h"
#include "tools/vlctl/RegistryValue.h"
#include "tools/vlctl/Text.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <random>

namespace vlt::ctl
{
namespace
{

constexpr REGSAM View = KEY_WOW64_32KEY;

// What the service makes of a stored value; nothing when it falls back to the default.
std::optional<std::string> Effective(const SettingInfo& setting, const RegistryValue& value)
{
    switch (setting.type) {
    case SettingType::Number:
        if (value.type == REG_DWORD && value.data.size() == sizeof(std::uint32_t))
            return DataText(value);
        break;
    case SettingType::Ciphered:
        if (value.type == REG_BINARY && value.data.size() == kCipheredValueSize)
            return std::to_string(DecodeCipheredValue(std::span<const std::uint8_t, kCipheredValueSize>(value.data)));
        break;
    case SettingType::Text:
        if (value.type == REG_SZ && (setting.bytes == 0 || value.data.size() <= setting.bytes))
            return ToJson(value)["data"].get<std::string>();
        break;
    }
    return std::nullopt;
}

SettingState StateOf(const SettingInfo& setting, HKEY key)
{
    SettingState state{&setting, DefaultText(setting), "default"};
    if (!key)
        return state;
    try {
        const auto text = Effective(setting, ReadValue(key, Utf8(setting.name)));
        state.from = text ? "set" : "invalid";
        state.value = text.value_or(state.value);
    } catch (const CommandError& error) {
        if (error.Code() != ExitNo)
            throw;
    }
    return state;
}

RegKey OpenSettings()
{
    RegKey key;
    const LSTATUS status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, kRealTimeScanKey, 0, KEY_READ | View, key.Receive());
    if (status != static_cast<LSTATUS>(ERROR_SUCCESS) && status != static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND))
        FailWith(static_cast<DWORD>(status), Utf8(kRealTimeScanKey));
    return key;
}

std::string ReadSetting(SettingId id)
{
    const RegKey key = OpenSettings();
    return StateOf(Setting(id), key.Get()).value;
}

RegistryValue EncodeText(const SettingInfo& setting, const std::string& text)
{
    RegistryValue value = ParseValue("sz", {text});
    if (setting.bytes == 0)
        throw CommandError(ExitUsage, Utf8(setting.name) + ": the service itself writes this value",
                           "there is nothing to set");
    if (value.data.size() > setting.bytes)
        throw CommandError(ExitUsage, Format("%s: longer than the service reads", Utf8(setting.name)),
                           Format("use at most %u characters", setting.bytes / sizeof(WCHAR) - 1));
    return value;
}

RegistryValue Encode(const SettingInfo& setting, const std::string& text)
{
    if (setting.type == SettingType::Text)
        return EncodeText(setting, text);
    RegistryValue value = ParseValue("dword", {text == "on" ? "1" : text == "off" ? "0" : text});
    std::uint32_t number = 0;
    std::copy(value.data.begin(), value.data.end(), reinterpret_cast<BYTE*>(&number));
    if (number > setting.most)
        throw CommandError(ExitUsage, Format("%s: %u is out of bounds", Utf8(setting.name), number),
                           Format("use 0 to %u: %s", setting.most, setting.meaning));
    if (setting.type == SettingType::Ciphered) {
        const CipheredBytes bytes = EncodeCipheredValue(number, std::random_device()());
        value = {REG_BINARY, {bytes.begin(), bytes.end()}};
    }
    return value;
}

} // namespace

std::string DefaultText(const SettingInfo& setting)
{
    if (setting.type == SettingType::Text)
        return setting.text ? Utf8(setting.text) : "(program folder)";
    return std::to_string(setting.number);
}

std::vector<SettingState> ReadSettings()
{
    const RegKey key = OpenSettings();
    std::vector<SettingState> states;
    for (const SettingInfo& setting : kRealTimeSettings)
        states.push_back(StateOf(setting, key.Get()));
    return states;
}

std::uint32_t ReadNumberSetting(SettingId id)
{
    return static_cast<std::uint32_t>(std::strtoul(ReadSetting(id).c_str(), nullptr, 10));
}

std::string ReadTextSetting(SettingId id)
{
    return ReadSetting(id);
}

bool ReadSwitch(SettingId id)
{
    return ReadNumberSetting(id) != 0;
}

const SettingInfo& FindSetting(const std::string& name)
{
    const WString wide = FromUtf8(name);
    const auto found = std::find_if(kRealTimeSettings.begin(), kRealTimeSettings.end(),
                                    [&](const SettingInfo& each) { return lstrcmpiW(each.name, wide.c_str()) == 0; });
    if (found == kRealTimeSettings.end())
        throw CommandError(ExitUsage, "no setting " + Printable(wide), "vlctl settings list has their names");
    return *found;
}

void WriteSetting(const SettingInfo& setting, const std::string& text)
{
    const RegistryValue value = Encode(setting, text);
    RegKey key;
    LSTATUS status = RegCreateKeyExW(HKEY_LOCAL_MACHINE, kRealTimeScanKey, 0, nullptr, REG_OPTION_NON_VOLATILE,
                                     KEY_READ | KEY_WRITE | View, nullptr, key.Receive(), nullptr);
    if (status == static_cast<LSTATUS>(ERROR_SUCCESS))
        status = RegSetValueExW(key.Get(), setting.name, 0, value.type, value.data.data(),
                                static_cast<DWORD>(value.data.size()));
    if (status != static_cast<LSTATUS>(ERROR_SUCCESS))
        FailWith(static_cast<DWORD>(status), Utf8(kRealTimeScanKey));
}

} // namespace vlt::ctl
