// vlctl exclusions: files and folders that are not scanned, and why a file is or is not.
#include "suite/Common/HostPath.h"
#include "tools/vlctl/Answer.h"
#include "tools/vlctl/ExclusionList.h"
#include "tools/vlctl/ScanDecision.h"
#include "tools/vlctl/Text.h"

#include <algorithm>

namespace vlt::ctl
{
namespace
{

struct Settings {
    std::string path;
    bool file = false;
    bool folder = false;
};

void List(Run& run)
{
    Json rows = Json::array();
    for (const Exclusion& entry : ReadExclusions())
        rows.push_back({{"entry", entry.name},
                        {"kind", entry.folder ? "folder" : "file"},
                        {"inForce", entry.inForce},
                        {"path", entry.path.empty() ? Json() : Json(Utf8(entry.path))},
                        {"note", entry.note.empty() ? Json() : Json(entry.note)}});
    PrintList(run, "exclusions", rows);
}

// Unless the caller says which, a path is a folder when there is one or when it ends like one.
bool IsMeantAsFolder(const Settings& settings, const WString& path)
{
    if (settings.file || settings.folder)
        return settings.folder;
    const char end = settings.path.empty() ? '\0' : settings.path.back();
    return end == '/' || end == '\\' || IsFolder(path);
}

bool IsSame(const Exclusion& entry, const WString& path)
{
    return entry.inForce && scan::FoldPath(entry.path) == scan::FoldPath(path);
}

void Add(const Settings& settings)
{
    const WString path = FullPath(settings.path);
    const bool folder = IsMeantAsFolder(settings, path);
    const std::vector<Exclusion> list = ReadExclusions();
    const bool there = std::any_of(list.begin(), list.end(), [&](const Exclusion& entry) {
        return entry.folder == folder && IsSame(entry, path);
    });
    if (!there)
        AddExclusion(list, path, folder);
    Print((there ? "excluded already: " : folder ? "excluded folder: " : "excluded file: ") + Printable(path) + '\n');
}

void Remove(const Settings& settings)
{
    const WString path = FullPath(settings.path);
    unsigned removed = 0;
    // One after another, since removing changes what is the last.
    for (;; ++removed) {
        const std::vector<Exclusion> list = ReadExclusions();
        const auto found =
            std::find_if(list.begin(), list.end(), [&](const Exclusion& entry) { return IsSame(entry, path); });
        if (found == list.end())
            break;
        RemoveExclusion(list, *found);
    }
    if (removed == 0)
        throw CommandError(ExitNo, Printable(path) + ": not excluded by an entry of its own",
                           "vlctl exclusions test shows which entry decides");
    Print("scanned again: " + Printable(path) + '\n');
}

void Test(const Settings& settings, Run& run)
{
    const WString path = FullPath(settings.path);
    const ScanDecision decision = DecideScan(path);
    if (!decision.scanned)
        run.exit = ExitNo;
    PrintAnswer(run, {{"path", Utf8(path)},
                      {"scanned", decision.scanned},
                      {"decidedBy", decision.decidedBy},
                      {"entry", decision.entry},
                      {"detail", decision.detail}});
}

} // namespace

void AddExclusionCommands(CLI::App& app, Run& run)
{
    const auto kept = std::make_shared<Settings>();
    const Word noun = Word(app).Noun("exclusions", "Files and folders that are not scanned");
    noun.Verb("list", "Every entry, and whether the service comes to it", [&run] { List(run); }).Json(run);
    const Word add = noun.Verb("add", "Do not scan this file, or what is in this folder", [kept] { Add(*kept); });
    add.Flag("--file", kept->file, "It is a file, also when there is none yet");
    add.Flag("--folder", kept->folder, "It is a folder, also when there is none yet");
    const Word remove = noun.Verb("remove", "Scan it again; 1 when it has no entry", [kept] { Remove(*kept); });
    const Word test = noun.Verb("test", "Would a file be scanned, and which entry decides; 1 when not",
                                [kept, &run] { Test(*kept, run); });
    for (const Word& verb : {add, remove, test})
        verb.Text("PATH", kept->path, "File or folder");
    test.Json(run);
}

} // namespace vlt::ctl
