// vlctl settings: on-access scanning's settings by name, with the service's own rules for what counts.
#include "ARDCommon/CipheredValueFormat.h"
#include "ARDCommon/RealTimeSettings.h"
#include "platform/Unique.h"
#include "tools/vlctl/Command.h"
#include "tools/vlctl/RegistryValue.h"
#include "tools/vlctl/Text.h"

#include <algorithm>
#include <optional>
#include <random>

namespace vlt::ctl
{
namespace
{

struct Settings {
    std::string name;
    std::string value;
};

constexpr REGSAM View = KEY_WOW64_32KEY;

const char* TypeName(SettingType type)
{
    switch (type) {
    case SettingType::Number:
        return "number";
    case SettingType::Ciphered:
        return "switch";
    case SettingType::Text:
        break;
    }
    return "text";
}

std::string DefaultText(const SettingInfo& setting)
{
    if (setting.type == SettingType::Text)
        return setting.text ? Utf8(setting.text) : "(program folder)";
    return std::to_string(setting.number);
}

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
            return DataText(value);
        break;
    }
    return std::nullopt;
}

struct Row {
    const SettingInfo* setting;
    std::string value;
    const char* source; // "default", "set", or "invalid" for a stored value that the service ignores
};

std::vector<Row> ReadAll()
{
    RegKey key;
    const LSTATUS status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, kRealTimeScanKey, 0, KEY_READ | View, key.Receive());
    if (status != static_cast<LSTATUS>(ERROR_SUCCESS) && status != static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND))
        FailWith(static_cast<DWORD>(status), Utf8(kRealTimeScanKey));
    std::vector<Row> rows;
    for (const SettingInfo& setting : kRealTimeSettings) {
        Row row{&setting, DefaultText(setting), "default"};
        try {
            if (key) {
                const auto text = Effective(setting, ReadValue(key.Get(), Utf8(setting.name)));
                row.source = text ? "set" : "invalid";
                row.value = text.value_or(row.value);
            }
        } catch (const CommandError& error) {
            if (error.Code() != ExitNo)
                throw;
        }
        rows.push_back(row);
    }
    return rows;
}

void List(const Run& run)
{
    nlohmann::ordered_json json;
    std::vector<std::vector<std::string>> table{{"NAME", "KIND", "VALUE", "FROM", "MEANING"}};
    for (const Row& row : ReadAll()) {
        const std::string name = Utf8(row.setting->name);
        json[name] = {{"kind", TypeName(row.setting->type)},
                      {"value", row.value},
                      {"from", row.source},
                      {"default", DefaultText(*row.setting)},
                      {"meaning", row.setting->meaning}};
        table.push_back({name, TypeName(row.setting->type), row.value, row.source, row.setting->meaning});
    }
    Print(run.json ? json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + '\n' : Table(table));
}

RegistryValue Encode(const SettingInfo& setting, const std::string& text)
{
    if (setting.type == SettingType::Text) {
        RegistryValue value = ParseValue("sz", {text});
        if (value.data.size() > setting.bytes)
            throw CommandError(ExitUsage, setting.bytes == 0
                                              ? "the service itself writes this value"
                                              : "longer than the service reads: " +
                                                    std::to_string(setting.bytes / sizeof(WCHAR) - 1) + " characters");
        return value;
    }
    RegistryValue value = ParseValue("dword", {text == "on" ? "1" : text == "off" ? "0" : text});
    if (setting.type == SettingType::Ciphered) {
        std::uint32_t number = 0;
        std::copy(value.data.begin(), value.data.end(), reinterpret_cast<BYTE*>(&number));
        const CipheredBytes bytes = EncodeCipheredValue(number, std::random_device()());
        value = {REG_BINARY, {bytes.begin(), bytes.end()}};
    }
    return value;
}

void Set(const Settings& settings)
{
    const WString name = FromUtf8(settings.name);
    const auto setting = std::find_if(kRealTimeSettings.begin(), kRealTimeSettings.end(),
                                      [&](const SettingInfo& each) { return lstrcmpiW(each.name, name.c_str()) == 0; });
    if (setting == kRealTimeSettings.end())
        throw CommandError(ExitUsage, "no setting " + settings.name + "; see vlctl settings list");
    const RegistryValue value = Encode(*setting, settings.value);
    RegKey key;
    LSTATUS status = RegCreateKeyExW(HKEY_LOCAL_MACHINE, kRealTimeScanKey, 0, nullptr, REG_OPTION_NON_VOLATILE,
                                     KEY_READ | KEY_WRITE | View, nullptr, key.Receive(), nullptr);
    if (status == static_cast<LSTATUS>(ERROR_SUCCESS))
        status = RegSetValueExW(key.Get(), setting->name, 0, value.type, value.data.data(),
                                static_cast<DWORD>(value.data.size()));
    if (status != static_cast<LSTATUS>(ERROR_SUCCESS))
        FailWith(static_cast<DWORD>(status), Utf8(kRealTimeScanKey));
}

} // namespace

void AddSettingsCommands(CLI::App& app, Run& run)
{
    auto settings = std::make_shared<Settings>();
    CLI::App* const command = app.add_subcommand("settings", "List or change the settings of on-access scanning");
    command->require_subcommand(1);

    CLI::App* const list = command->add_subcommand("list", "Every setting as the service reads it");
    list->add_flag("--json", run.json, "Print JSON");
    list->callback([&run] { List(run); });

    CLI::App* const set = command->add_subcommand("set", "Write one setting; a running service applies it at once");
    set->add_option("name", settings->name, "Name of the setting")->required();
    set->add_option("value", settings->value, "Text, a number, or on and off")->required();
    set->callback([settings] { Set(*settings); });
}

} // namespace vlt::ctl
