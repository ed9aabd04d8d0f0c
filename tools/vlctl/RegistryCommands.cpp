// vlctl registry: single values of either view.
#include "platform/Unique.h"
#include "tools/vlctl/Answer.h"
#include "tools/vlctl/RegistryValue.h"
#include "tools/vlctl/Text.h"

#include <algorithm>
#include <cctype>

namespace vlt::ctl
{
namespace
{

struct Settings {
    std::string path;
    std::string name;
    std::string type = "sz";
    std::vector<std::string> data;
    std::string view = "32";

    REGSAM View() const { return view == "64" ? KEY_WOW64_64KEY : KEY_WOW64_32KEY; }
};

struct Place {
    HKEY root = HKEY_LOCAL_MACHINE;
    std::string subKey;
};

// "HKLM\Software\..."; without a root it is the machine's. Where a path has no backslash, slashes
// separate, which spares quoting in a shell.
Place PlaceOf(std::string path)
{
    if (path.find('\\') == std::string::npos)
        std::replace(path.begin(), path.end(), '/', '\\');
    while (!path.empty() && path.back() == '\\')
        path.pop_back();
    const std::size_t end = path.find('\\');
    std::string first = path.substr(0, end);
    std::transform(first.begin(), first.end(), first.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    const std::pair<const char*, HKEY> roots[] = {
        {"HKLM", HKEY_LOCAL_MACHINE}, {"HKEY_LOCAL_MACHINE", HKEY_LOCAL_MACHINE},
        {"HKU", HKEY_USERS},          {"HKEY_USERS", HKEY_USERS},
        {"HKCU", HKEY_CURRENT_USER},  {"HKEY_CURRENT_USER", HKEY_CURRENT_USER},
        {"HKCR", HKEY_CLASSES_ROOT},  {"HKEY_CLASSES_ROOT", HKEY_CLASSES_ROOT}};
    for (const auto& [name, root] : roots) {
        if (first == name)
            return {root, end == std::string::npos ? std::string() : path.substr(end + 1)};
    }
    return {HKEY_LOCAL_MACHINE, path};
}

RegKey OpenKey(const Settings& settings, REGSAM access)
{
    const Place place = PlaceOf(settings.path);
    RegKey key;
    const LSTATUS status =
        RegOpenKeyExW(place.root, FromUtf8(place.subKey).c_str(), 0, access | settings.View(), key.Receive());
    if (status == static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND))
        throw CommandError(ExitNo, "no key " + settings.path, "vlctl registry list shows what a key holds");
    if (status != static_cast<LSTATUS>(ERROR_SUCCESS))
        FailWith(static_cast<DWORD>(status), settings.path);
    return key;
}

void Get(const Settings& settings, const Run& run)
{
    const RegKey key = OpenKey(settings, KEY_READ);
    const RegistryValue value = ReadValue(key.Get(), settings.name);
    if (run.json)
        PrintAnswer(run, ToJson(value));
    else
        Print(DataText(value) + '\n');
}

void Set(const Settings& settings)
{
    const RegistryValue value = ParseValue(settings.type, settings.data);
    const Place place = PlaceOf(settings.path);
    RegKey key;
    LSTATUS status = RegCreateKeyExW(place.root, FromUtf8(place.subKey).c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                     KEY_READ | KEY_WRITE | settings.View(), nullptr, key.Receive(), nullptr);
    if (status == static_cast<LSTATUS>(ERROR_SUCCESS))
        status = RegSetValueExW(key.Get(), FromUtf8(settings.name).c_str(), 0, value.type, value.data.data(),
                                static_cast<DWORD>(value.data.size()));
    if (status != static_cast<LSTATUS>(ERROR_SUCCESS))
        FailWith(static_cast<DWORD>(status), settings.path);
}

// The names that `next(index, buffer, length)` gives, until it fails.
template <typename Next>
std::vector<std::string> Names(Next next)
{
    std::vector<std::string> names;
    std::vector<WCHAR> buffer(16384);
    for (DWORD index = 0;; ++index) {
        DWORD length = static_cast<DWORD>(buffer.size());
        if (next(index, buffer.data(), &length) != static_cast<LSTATUS>(ERROR_SUCCESS))
            break;
        names.push_back(Utf8(WStringView(buffer.data(), length)));
    }
    std::sort(names.begin(), names.end());
    return names;
}

void List(const Settings& settings, const Run& run)
{
    const RegKey key = OpenKey(settings, KEY_READ);
    const auto keys = Names([&](DWORD index, LPWSTR name, LPDWORD length) {
        return RegEnumKeyExW(key.Get(), index, name, length, nullptr, nullptr, nullptr, nullptr);
    });
    const auto values = Names([&](DWORD index, LPWSTR name, LPDWORD length) {
        return RegEnumValueW(key.Get(), index, name, length, nullptr, nullptr, nullptr, nullptr);
    });
    if (run.json) {
        Json json{{"keys", keys}, {"values", Json::object()}};
        for (const std::string& name : values)
            json["values"][name] = ToJson(ReadValue(key.Get(), name));
        PrintAnswer(run, json);
        return;
    }
    std::vector<std::vector<std::string>> rows;
    for (const std::string& name : keys)
        rows.push_back({Printable(FromUtf8(name)) + '\\'});
    for (const std::string& name : values) {
        const RegistryValue value = ReadValue(key.Get(), name);
        std::string data = DataText(value);
        std::replace(data.begin(), data.end(), '\n', ' ');
        rows.push_back({name.empty() ? "(default)" : Printable(FromUtf8(name)), TypeText(value.type), data});
    }
    Print(Table(rows));
}

void Delete(const Settings& settings, bool wholeKey)
{
    LSTATUS status = ERROR_SUCCESS;
    if (wholeKey) {
        const Place place = PlaceOf(settings.path);
        status = RegDeleteKeyExW(place.root, FromUtf8(place.subKey).c_str(), settings.View(), 0);
    } else {
        status = RegDeleteValueW(OpenKey(settings, KEY_READ | KEY_WRITE).Get(), FromUtf8(settings.name).c_str());
    }
    if (status == static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND))
        throw CommandError(ExitNo, "no " + settings.path + (wholeKey ? "" : " " + settings.name),
                           "vlctl registry list shows what a key holds");
    if (status != static_cast<LSTATUS>(ERROR_SUCCESS))
        FailWith(static_cast<DWORD>(status), settings.path);
}

} // namespace

void AddRegistryCommands(CLI::App& app, Run& run)
{
    const auto kept = std::make_shared<Settings>();
    const Word noun = Word(app).Noun("registry", "Read, write, list or delete registry values");
    const auto add = [&](const char* name, const char* meaning, std::function<void()> action) {
        const Word verb = noun.Verb(name, meaning, std::move(action));
        verb.Text("KEY", kept->path, "Key, such as HKLM\\Software\\Veltrano\\Ardentis");
        verb.OneOf("--view", kept->view, {"32", "64"}, "Registry view; the product's own keys are in the 32-bit one");
        return verb;
    };
    const Word get = add("get", "Print one value", [kept, &run] { Get(*kept, run); });
    get.OptionalText("NAME", kept->name, "Name of the value (default: the key's default value)");
    get.Json(run);

    const Word set = add("set", "Write one value, making the key", [kept] { Set(*kept); });
    set.Text("NAME", kept->name, "Name of the value");
    set.Texts("DATA", kept->data, "Text, number, hexadecimal bytes, or one word for each string");
    set.OneOf("--type", kept->type, TypeNames(), "Type of the value");

    add("list", "Print the sub-keys and values of a key", [kept, &run] { List(*kept, run); }).Json(run);

    // An empty name is that of the default value; only without any the key is meant.
    const auto remove = std::make_shared<Word>(app);
    *remove = add("delete", "Delete a value, or a key without sub-keys",
                  [kept, remove] { Delete(*kept, !remove->Given("NAME")); });
    remove->OptionalText("NAME", kept->name, "Name of the value; without it the key");
}

} // namespace vlt::ctl
