// vlctl quarantine: what the service has put away.
#include "tools/vlctl/QuarantineCommands.h"

#include "platform/Format.h"
#include "platform/Text.h"
#include "suite/Channel/Interrupt.h"
#include "tools/vlctl/Answer.h"
#include "tools/vlctl/Progress.h"
#include "tools/vlctl/Text.h"

#include <CLI/CLI.hpp>

#include <cmath>
#include <cstdio>
#include <unordered_set>

namespace vlt::ctl
{
namespace
{

constexpr std::size_t PrintedAtOnce = 1 << 16; // characters

// The files are read from the folder once and not asked for one by one; null when the record has none.
const std::uint64_t* SizeOf(const FileSizes& files, const QuarantineEntry& entry)
{
    const auto found = files.find(LowerCase(entry.name));
    return found == files.end() ? nullptr : &found->second;
}

Json Describe(const QuarantineEntry& entry, const FileSizes& files, const std::string& id)
{
    const std::uint64_t* const size = SizeOf(files, entry);
    return {{"id", id},
            {"date", Utf8(entry.date)},
            {"threat", Utf8(entry.threat)},
            {"size", size ? Json(*size) : Json()},
            {"path", Utf8(entry.source)},
            {"name", Utf8(entry.name)},
            {"status", entry.status}};
}

void List(const QuarantineSettings& settings, const Run& run)
{
    const QuarantineStore store = settings.Store();
    const QuarantineList list(store);
    PrintState(store, list);
    const FileSizes files = store.Files();
    if (run.json) {
        std::string text;
        for (const QuarantineEntry& entry : list.Entries()) {
            text += JsonLine(Describe(entry, files, list.ShortId(entry)));
            if (text.size() >= PrintedAtOnce) {
                Print(text);
                text.clear();
            }
        }
        Print(text);
        return;
    }
    std::vector<std::vector<std::string>> rows;
    rows.reserve(list.Entries().size() + 1);
    rows.push_back({"ID", "DATE", "SIZE", "THREAT", "PATH"});
    for (const QuarantineEntry& entry : list.Entries()) {
        const std::uint64_t* const size = SizeOf(files, entry);
        rows.push_back({list.ShortId(entry), Printable(entry.date), size ? std::to_string(*size) : "missing",
                        entry.threat.empty() ? "-" : Printable(entry.threat), Printable(entry.source)});
    }
    if (rows.size() > 1)
        Print(Table(rows));
}

void Show(const QuarantineSettings& settings, const Run& run)
{
    const QuarantineStore store = settings.Store();
    const QuarantineList list(store);
    const FileSizes files = store.Files();
    for (const QuarantineEntry* const entry : list.Find(settings.ids.front())) {
        Json object = Describe(*entry, files, Format("%016llx", entry->id));
        object["type"] = entry->type;
        object["platform"] = entry->platform;
        object["patternVersion"] = entry->patternVersion;
        object["engineVersion"] = std::isfinite(entry->engineVersion) ? Json(entry->engineVersion) : Json();
        object["file"] = SizeOf(files, *entry) ? Json(Utf8(store.KeptFile(entry->name))) : Json();
        PrintAnswer(run, object);
    }
}

void Delete(const QuarantineSettings& settings)
{
    const QuarantineStore store = settings.Store();
    std::vector<WString> names;
    {
        const QuarantineList list(store);
        PrintState(store, list);
        // All are looked up before the first one is gone.
        std::unordered_set<WString> seen;
        for (const std::string& id : settings.ids) {
            const WString& name = list.Find(id).front()->name;
            if (seen.insert(name).second)
                names.push_back(name);
        }
    }
    const std::size_t done = DeleteFromQuarantine(store, names);
    Print(Format("%u deleted\n", done));
    if (done != names.size())
        throw CommandError(ExitFailed, Format("%u left", names.size() - done), "the lines above say why");
}

struct Deleted {
    std::size_t done = 0, left = 0;
};

void DeleteMatching(const WString& folder, const WCHAR* pattern, Progress& progress, Deleted& deleted)
{
    std::vector<WString> names;
    WIN32_FIND_DATAW found{};
    const FindHandle find(FindFirstFileW((folder + pattern).c_str(), &found));
    for (BOOL more = static_cast<bool>(find); more; more = FindNextFileW(find.Get(), &found)) {
        if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY))
            names.emplace_back(found.cFileName);
    }
    for (const WString& name : names) {
        ++(!IsInterrupted() && DeleteAnyFile(folder + name) ? deleted.done : deleted.left);
        progress.Step();
    }
}

// Whatever is put away meanwhile stays, with its record.
void Clear(const QuarantineSettings& settings)
{
    if (!settings.yes)
        throw CommandError(ExitUsage, "clear destroys all that is in quarantine", "say --yes to do so");
    const QuarantineStore store = settings.Store();
    Deleted deleted;
    {
        Progress progress("clearing", store.Files().size());
        const WString backups = store.Folder() + kQuarantineBackupFolder + TEXT("\\");
        DeleteMatching(backups, kQuarantineBackupPattern, progress, deleted);
        DeleteMatching(store.Folder(), kQuarantineFilePattern, progress, deleted);
    }
    std::size_t left = 0, records = 0;
    const TornTail tail = store.Read([&](const QuarantineRecord&) { ++records; });
    if (records != 0 || tail.size != 0) {
        // Asked for under the lock: a file that came after those that were deleted is there by then.
        FileSizes files;
        bool known = false;
        store.Rewrite(
            [&](QuarantineRecord& record) {
                if (!known)
                    files = store.Files();
                known = true;
                const bool stays = files.contains(LowerCase(FieldText(record.quarantinedName)));
                left += stays;
                return stays;
            },
            true);
    }
    Print(Format("%u files deleted, %u records left\n", deleted.done, left));
    if (deleted.left != 0)
        throw CommandError(ExitFailed, Format("%u files could not be deleted", deleted.left),
                           "try again as root, on Windows as an administrator");
}

} // namespace

QuarantineStore QuarantineSettings::Store() const
{
    if (!folder.empty())
        return QuarantineStore(FromUtf8(folder));
    WString program = programFolder.empty() ? FolderOf(InstalledProgram()) : FromUtf8(programFolder);
    if (!program.empty() && program.back() != '\\' && program.back() != '/')
        program += '\\';
    return QuarantineStore(program + TEXT("Quarantine"));
}

void Complain(const std::string& what)
{
    std::fprintf(stderr, "vlctl: %s\n", what.c_str());
}

bool IsInterrupted()
{
    return WaitForSingleObject(suite::InterruptEvent(), 0) == WAIT_OBJECT_0;
}

void PrintState(const QuarantineStore& store, const QuarantineList& list)
{
    const TornTail& tail = list.Tail();
    if (tail.size != 0)
        Complain(Format("the record file ends in a torn record: %u bytes at %u", tail.size, tail.offset));
    if (store.IsCutShort())
        Complain("the record file is missing; the service takes it back at its next start");
}

std::size_t DeleteFromQuarantine(const QuarantineStore& store, const std::vector<WString>& names)
{
    const FileSizes files = store.Files();
    std::unordered_set<WString> gone;
    {
        Progress progress("deleting", names.size());
        for (const WString& name : names) {
            if (IsInterrupted())
                break;
            // Only what is in the folder is a kept file, whatever the record says.
            const WString path = store.KeptFile(name);
            if (path.empty() || !files.contains(LowerCase(name)) || DeleteAnyFile(path)) {
                gone.insert(name);
            } else {
                const DWORD error = GetLastError();
                progress.Clear();
                Complain(Format("%s: %s (%u)", Printable(path), SystemText(error), error));
            }
            progress.Step();
        }
    }
    if (!gone.empty()) {
        store.Rewrite([&](QuarantineRecord& record) {
            return record.type < kFirstQuarantinedType || !gone.contains(WString(FieldText(record.quarantinedName)));
        });
    }
    return gone.size();
}

void AddQuarantineCommands(CLI::App& app, Run& run)
{
    auto settings = std::make_shared<QuarantineSettings>();
    CLI::App* const quarantine = app.add_subcommand("quarantine", "What the service has put away");
    quarantine->require_subcommand(1);
    quarantine->add_option("--folder", settings->folder, "Folder of the store");
    quarantine->add_option("--program-folder", settings->programFolder, "Folder of the service's program");
    quarantine->fallthrough();
    const auto add = [&](const char* name, const char* description, auto command) {
        CLI::App* const added = quarantine->add_subcommand(name, description);
        added->fallthrough();
        added->callback([settings, command] { command(*settings); });
        return added;
    };
    const auto takeJson = [&](CLI::App* command) {
        command->add_flag("--json", run.json, "Print one JSON object a line");
    };
    const auto takeIds = [&](CLI::App* command, int most) {
        return command->add_option("ID", settings->ids, "Id as listed, a beginning of it, or the kept file's name")
            ->expected(1, most);
    };
    constexpr int any = 1 << 20;

    takeJson(add("list", "List what is in quarantine", [&run](const auto& its) { List(its, run); }));
    CLI::App* const show = add("show", "Print all that is known of one", [&run](const auto& its) { Show(its, run); });
    takeIds(show, 1)->required();
    takeJson(show);
    CLI::App* const restore = add("restore", "Put one back, from where it came", RestoreQuarantined);
    takeIds(restore, 1)->required();
    restore->add_option("--to", settings->to, "Put it there instead");
    restore->add_flag("--force", settings->force, "Overwrite what is there");
    restore->add_flag("--keep", settings->keep, "Leave it in quarantine as well");
    takeIds(add("delete", "Destroy some", Delete), any)->required();
    CLI::App* const rescan =
        add("rescan", "Scan some again and note the result", [&run](const auto& its) { RescanQuarantined(its, run); });
    CLI::Option* const ids = takeIds(rescan, any);
    rescan->add_flag("--all", settings->all, "Scan all")->excludes(ids);
    takeJson(rescan);
    add("clear", "Destroy all, and all backup copies", Clear)
        ->add_flag("--yes", settings->yes, "Without it nothing is done");
    takeJson(add("verify", "Compare records and files; 1 when anything is wrong",
                 [&run](const auto& its) { VerifyQuarantine(its, run); }));
}

} // namespace vlt::ctl
