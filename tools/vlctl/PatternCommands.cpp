// vlctl patterns: what the updater and the user interface do with pattern files.
#include "platform/Format.h"
#include "platform/Text.h"
#include "tools/vlctl/Answer.h"
#include "tools/vlctl/PatternReload.h"
#include "tools/vlctl/PatternStore.h"
#include "tools/vlctl/RollbackRecord.h"
#include "tools/vlctl/Text.h"

#include <array>

namespace vlt::ctl
{
namespace
{

struct Settings {
    std::string file;
    std::string kind;
    bool force = false;
    std::uint32_t timeoutSeconds = 60;
};

// Tells what became of a reload; `done` is what was done before it. A service that does not run is no failure then.
void Conclude(Run& run, Json done, const std::string& text, const ReloadResult& reload)
{
    static constexpr std::array states{"reloaded", "failed", "not running", "no answer"};
    const bool alone = done.empty();
    done["service"] = states[static_cast<std::size_t>(reload.outcome)];
    if (reload.outcome == ReloadOutcome::Failed)
        done["error"] = reload.text;
    if (reload.outcome == ReloadOutcome::Failed || reload.outcome == ReloadOutcome::NoAnswer)
        run.exit = ExitFailed;
    else if (reload.outcome == ReloadOutcome::NotRunning && alone)
        run.exit = ExitNoService;
    if (run.json)
        return PrintAnswer(run, done);
    static constexpr std::array texts{"the service has reloaded its patterns",
                                      "the service could not reload and goes on with the patterns that it had: ",
                                      "the service is not running; it takes the patterns at its start",
                                      "the service does not answer"};
    Print((text.empty() ? "" : text + '\n') + texts[static_cast<std::size_t>(reload.outcome)] + reload.text + '\n');
}

std::string VersionText(const std::optional<std::int32_t>& version)
{
    return version ? std::to_string(*version) : "?";
}

Json RecordJson(const RollbackRecord& record)
{
    const auto text = [&](const WCHAR* name) { return Utf8(record.Get(name)); };
    const bool active = record.Get(RollbackValue::EnableAuto) != 0 && record.Get(RollbackValue::RollbackFlag) != 0;
    // 0 stands for the default.
    const auto frequency = [&](const RollbackValue::Number& value) {
        const DWORD number = record.Get(value);
        return number != 0 ? number : value.fallback;
    };
    return {{"probation",
             {{"active", active},
              {"normalStops", record.Get(RollbackValue::NormalCounter)},
              {"normalStopsNeeded", frequency(RollbackValue::FreqNormal)},
              {"abnormalEnds", record.Get(RollbackValue::AbnormalCounter)},
              {"abnormalEndsNeeded", frequency(RollbackValue::FreqAbnormal)}}},
            {"rolledBack",
             {{"file", text(RollbackValue::RbPatName)},
              {"version", text(RollbackValue::RbBeforeNo)},
              {"engine", text(RollbackValue::EngVer)},
              {"program", text(RollbackValue::PrgVer)},
              {"byService", record.Get(RollbackValue::NotifyFlag) != 0}}},
            {"restored", {{"file", text(RollbackValue::RsPatName)}, {"version", text(RollbackValue::RsPatNo)}}}};
}

std::string RecordText(const Json& record)
{
    std::string text;
    if (const Json& probation = record["probation"]; probation["active"])
        text += Format("on probation: %s of %s abnormal ends, %s of %s normal stops\n",
                       probation["abnormalEnds"].dump(), probation["abnormalEndsNeeded"].dump(),
                       probation["normalStops"].dump(), probation["normalStopsNeeded"].dump());
    const auto describe = [&](const char* what, const Json& entry) {
        if (entry["file"] != "")
            text += Format("%s: %s, version %s\n", what, entry["file"].get<std::string>(),
                           entry["version"].get<std::string>());
    };
    describe(record["rolledBack"]["byService"] ? "rolled back by the service" : "rolled back", record["rolledBack"]);
    describe("restored", record["restored"]);
    return text;
}

void List(const Run& run)
{
    const PatternStore store;
    Json json{{"folder", Utf8(store.Folder())}, {"files", Json::array()}, {"loaded", Json::object()}};
    std::vector<std::vector<std::string>> table{{"FILE", "KIND", "VERSION", "STATE"}};
    for (const PatternFileInfo& file : store.List()) {
        const char* const state = file.rolledBack ? "rolled back"
                                  : !file.version ? "damaged"
                                  : file.newest   ? "newest"
                                                  : "older";
        const std::string kind(file.kind->name);
        json["files"].push_back({{"file", Utf8(file.name)},
                                 {"kind", kind},
                                 {"version", file.version ? Json(*file.version) : Json()},
                                 {"state", state}});
        table.push_back({Printable(file.name), kind, VersionText(file.version), state});
    }
    std::string loaded;
    for (const PatternKind& kind : kPatternKinds) {
        const std::string version = kind.loadedVersion ? Printable(store.Info(kind.loadedVersion)) : std::string();
        json["loaded"][std::string(kind.name)] = version;
        if (!version.empty() && version != "0")
            loaded += Format("%s%s %s", loaded.empty() ? "loaded: " : ", ", kind.name, version);
    }
    const Json record = RecordJson(RollbackRecord());
    json.update(record);
    if (run.json)
        return PrintAnswer(run, json);
    Print(Table(table) + (loaded.empty() ? "" : loaded + '\n') + RecordText(record));
}

// What the name of a file and its version come to; refuses what no engine would load.
std::pair<const PatternKind*, std::int32_t> Examine(const PatternStore& store, const Settings& settings,
                                                    const WString& file)
{
    const PatternKind& kind = PatternStore::KindOf(file, settings.kind);
    const auto version = store.Library().VersionOf(file);
    if (!version && !settings.force)
        throw CommandError(ExitFailed, settings.file + ": not a pattern file, or a damaged one", "get it once more");
    const WString newest = store.Library().Newest(kind.stem);
    const auto current = newest.empty() ? std::nullopt : store.Library().VersionOf(store.Folder() + newest);
    if (version && current && *version < *current && !settings.force)
        throw CommandError(ExitFailed,
                           Format("version %d is older than %s, version %d, which would stay in use", *version,
                                  Printable(newest), *current),
                           "--force puts it there all the same");
    return {&kind, version.value_or(0)};
}

void ForgetRestored(const RollbackRecord& record)
{
    record.Set(RollbackValue::RsPatName, {});
    record.Set(RollbackValue::RsPatNo, {});
}

// The probation begins before the file is there: a service that starts with it and dies is counted.
void Install(const Settings& settings, Run& run)
{
    const PatternStore store;
    const WString file = FromUtf8(settings.file);
    const auto [kind, version] = Examine(store, settings, file);
    const WString name =
        version != 0 ? PatternStore::NameFor(*kind, version) : file.substr(FolderOf(file).size()); // damaged
    const RollbackRecord record;
    const bool virus = kind == &kVirusPatterns;
    const DWORD before = record.Get(RollbackValue::RollbackFlag);
    if (virus)
        record.StartProbation();
    const auto withdraw = [&] {
        if (virus)
            record.Set(RollbackValue::RollbackFlag, before);
    };
    try {
        store.Install(file, name);
    } catch (...) {
        withdraw();
        throw;
    }
    const ReloadResult reload = ReloadPatterns(kind->reloadEvent, settings.timeoutSeconds * 1000);
    const bool refused = reload.outcome == ReloadOutcome::Failed;
    store.Settle(name, !refused);
    if (refused)
        withdraw();
    else if (record.Get(RollbackValue::RsPatName) == name)
        ForgetRestored(record); // it was installed anew
    const std::string text = Format(refused ? "withdrawn %s" : "installed %s, version %d%s", Printable(name), version,
                                    virus ? ", on probation" : "");
    Conclude(run,
             {{"file", Utf8(name)},
              {"kind", std::string(kind->name)},
              {"version", version},
              {"installed", !refused},
              {"probation", virus && !refused}},
             text, reload);
}

void Reload(const Settings& settings, Run& run)
{
    const char* event = kReloadAllEvent;
    for (const PatternKind& kind : kPatternKinds)
        if (settings.kind == kind.name)
            event = kind.reloadEvent;
    Conclude(run, {}, {}, ReloadPatterns(event, settings.timeoutSeconds * 1000));
}

WString ProgramVersion()
{
    const WString program = InstalledProgram();
    DWORD ignored = 0;
    std::vector<BYTE> block(GetFileVersionInfoSizeW(program.c_str(), &ignored));
    void* root = nullptr;
    UINT size = 0;
    if (block.empty() || !GetFileVersionInfoW(program.c_str(), 0, static_cast<DWORD>(block.size()), block.data()) ||
        !VerQueryValueW(block.data(), TEXT("\\"), &root, &size) || size < sizeof(VS_FIXEDFILEINFO))
        return {};
    const auto* const info = static_cast<const VS_FIXEDFILEINFO*>(root);
    return Format(TEXT("%d.%d.%d.%d"), info->dwFileVersionMS >> 16, info->dwFileVersionMS & 0xFFFF,
                  info->dwFileVersionLS >> 16, info->dwFileVersionLS & 0xFFFF);
}

void ClearRolledBack(const RollbackRecord& record)
{
    for (const WCHAR* name :
         {RollbackValue::RbPatName, RollbackValue::RbBeforeNo, RollbackValue::EngVer, RollbackValue::PrgVer})
        record.Set(name, {});
}

// As the service does it, but at the operator's wish: nobody needs to be told, and no probation goes on.
void Rollback(const Settings& settings, Run& run)
{
    const PatternStore store;
    const WString name = store.Library().Newest(kVirusPatternStem);
    const auto version = name.empty() ? std::nullopt : store.Library().VersionOf(store.Folder() + name);
    if (!version || !store.HasOlderVirusPattern())
        throw CommandError(ExitNo, "there is no older virus pattern to fall back to",
                           "vlctl patterns list shows what there is, vlctl patterns install brings another");
    const RollbackRecord record;
    const WString program = ProgramVersion();
    store.Rename(name, AsideName(name));
    record.Set(RollbackValue::RbPatName, name);
    record.Set(RollbackValue::RbBeforeNo, ToWide(std::to_string(*version)));
    record.Set(RollbackValue::EngVer, store.Info(TEXT("Engine")));
    record.Set(RollbackValue::PrgVer, program);
    record.Set(RollbackValue::NotifyFlag, 0);
    ForgetRestored(record);
    record.EndProbation();
    store.Purge(name);
    Conclude(run, {{"file", Utf8(name)}, {"version", *version}, {"rolledBack", true}},
             Format("rolled back %s, version %d", Printable(name), *version),
             ReloadPatterns(kVirusPatterns.reloadEvent, settings.timeoutSeconds * 1000));
}

// The service's next start puts the pattern aside once more, unless a newer one has come by then.
void Restore(const Settings& settings, Run& run)
{
    const PatternStore store;
    const RollbackRecord record;
    const WString name = record.Get(RollbackValue::RbPatName), number = record.Get(RollbackValue::RbBeforeNo);
    const bool recorded = !name.empty() && !number.empty();
    const char* const why = !recorded                     ? "no virus pattern is rolled back"
                            : !store.Has(AsideName(name)) ? "the file that was rolled back is gone"
                            : store.Has(name)             ? "a file of its name has come since"
                                                          : nullptr;
    if (why) {
        ClearRolledBack(record);
        if (recorded)
            store.Purge({});
        throw CommandError(ExitNo, why, "vlctl patterns list shows what there is");
    }
    store.Rename(AsideName(name), name);
    ClearRolledBack(record);
    record.Set(RollbackValue::RsPatName, name);
    record.Set(RollbackValue::RsPatNo, number);
    Conclude(run, {{"file", Utf8(name)}, {"version", Utf8(number)}, {"restored", true}},
             Format("restored %s, version %s", Printable(name), Printable(number)),
             ReloadPatterns(kVirusPatterns.reloadEvent, settings.timeoutSeconds * 1000));
}

} // namespace

void AddPatternCommands(CLI::App& app, Run& run)
{
    const auto kept = std::make_shared<Settings>();
    const Word noun = Word(app).Noun("patterns", "List, install, reload, roll back the pattern files");
    noun.Footer("2 when the service could not reload and goes on with what it had.");
    const auto add = [&](const char* name, const char* meaning, auto action) {
        const Word verb = noun.Verb(name, meaning, [kept, &run, action] { action(*kept, run); });
        verb.Json(run);
        return verb;
    };
    std::vector<std::string> kinds;
    for (const PatternKind& kind : kPatternKinds)
        kinds.emplace_back(kind.name);

    add("list", "List the files, the probation and what was rolled back", [](const auto&, Run& its) { List(its); });
    const Word install = add("install", "Put a new file in place, as the updater does", Install);
    install.Text("FILE", kept->file, "Pattern file");
    install.OneOf("--kind", kept->kind, kinds, "What it holds, when its name does not tell");
    install.Flag("--force", kept->force, "Also when it is older, or damaged");
    const Word reload = add("reload", "Make the service reload; 69 when it is not running", Reload);
    reload.OneOf("--kind", kept->kind, kinds, "Only these (default: all)");
    const Word rollback = add("rollback", "Put the newest virus pattern aside; 1 when there is no older one", Rollback);
    const Word restore = add("restore", "Put back what was rolled back; 1 when nothing was", Restore);
    for (const Word& verb : {install, reload, rollback, restore})
        verb.Number("--timeout", kept->timeoutSeconds, 1, 3600, "Longest wait for the service in seconds");
}

} // namespace vlt::ctl
