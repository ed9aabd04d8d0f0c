// vlctl settings: on-access scanning's settings by name, with the service's own rules for what counts.
#include "platform/Format.h"
#include "tools/vlctl/Answer.h"
#include "tools/vlctl/SettingsStore.h"
#include "tools/vlctl/Text.h"

namespace vlt::ctl
{
namespace
{

struct Settings {
    std::string name;
    std::string value;
};

const char* KindText(SettingType type)
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

std::string BoundsText(const SettingInfo& setting)
{
    if (setting.type != SettingType::Text)
        return Format("0 to %u", setting.most);
    if (setting.bytes == 0)
        return "written by the service";
    return Format("at most %u characters", setting.bytes / sizeof(WCHAR) - 1);
}

Json Describe(const SettingState& state)
{
    return {{"name", Utf8(state.setting->name)},
            {"kind", KindText(state.setting->type)},
            {"value", state.value},
            {"from", state.from},
            {"default", DefaultText(*state.setting)},
            {"bounds", BoundsText(*state.setting)},
            {"meaning", state.setting->meaning}};
}

void List(const Run& run)
{
    Json rows = Json::array();
    for (const SettingState& state : ReadSettings())
        rows.push_back(Describe(state));
    PrintList(run, "settings", rows);
}

void Get(const Settings& settings, const Run& run)
{
    const SettingInfo& wanted = FindSetting(settings.name);
    const std::vector<SettingState> all = ReadSettings();
    const SettingState& state = all[static_cast<std::size_t>(wanted.id)];
    if (run.json)
        PrintAnswer(run, Describe(state));
    else
        Print(ValueText(state.value) + '\n');
}

void Set(const Settings& settings)
{
    WriteSetting(FindSetting(settings.name), settings.value);
}

// What the machine has otherwise than a new one, and what the service passes over.
void Diff(Run& run)
{
    Json rows = Json::array();
    for (const SettingState& state : ReadSettings()) {
        const std::string usual = DefaultText(*state.setting);
        const bool own = state.setting->type == SettingType::Text && state.setting->bytes == 0;
        if (own || (state.value == usual && std::string_view(state.from) != "invalid"))
            continue;
        rows.push_back({{"name", Utf8(state.setting->name)},
                        {"default", usual},
                        {"value", state.value},
                        {"from", state.from},
                        {"meaning", state.setting->meaning}});
    }
    if (!rows.empty())
        run.exit = ExitNo;
    PrintList(run, "settings", rows);
}

} // namespace

void AddSettingsCommands(CLI::App& app, Run& run)
{
    const auto kept = std::make_shared<Settings>();
    const Word noun = Word(app).Noun("settings", "Show or change the settings of on-access scanning");
    noun.Verb("list", "Every setting as the service reads it", [&run] { List(run); }).Json(run);
    const Word get = noun.Verb("get", "The value that the service uses", [kept, &run] { Get(*kept, run); });
    get.Text("NAME", kept->name, "Name of the setting, in any case");
    get.Json(run);
    const Word set =
        noun.Verb("set", "Write one setting; a running service applies it at once", [kept] { Set(*kept); });
    set.Text("NAME", kept->name, "Name of the setting, in any case");
    set.Text("VALUE", kept->value, "Text, a number, or on and off");
    noun.Verb("diff", "What differs from the defaults; 1 when anything does", [&run] { Diff(run); }).Json(run);
}

} // namespace vlt::ctl
