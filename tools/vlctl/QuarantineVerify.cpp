// vlctl quarantine verify: every record against its file and every file against its record.
#include "platform/Format.h"
#include "tools/vlctl/Answer.h"
#include "tools/vlctl/QuarantineCommands.h"
#include "tools/vlctl/Text.h"

#include <algorithm>
#include <set>

namespace vlt::ctl
{
namespace
{

constexpr DWORD SettleMilliseconds = 500;

struct Problem {
    std::string what;
    WString name; // of a kept file
    WString detail;

    auto operator<=>(const Problem&) const = default;
};

struct Findings {
    std::size_t records = 0;
    std::size_t files = 0;
    std::set<Problem> problems;
};

void CheckRecord(const QuarantineStore& store, const QuarantineEntry& entry, const FileSizes& files, Findings& findings)
{
    const auto wrong = [&](const char* what) { findings.problems.insert({what, entry.name, entry.source}); };
    if (!entry.terminated)
        wrong("unterminated text");
    if (store.KeptFile(entry.name).empty())
        wrong("unusable name");
    else if (!files.contains(LowerCase(entry.name)))
        wrong("file missing");
}

Findings Look(const QuarantineStore& store)
{
    Findings findings;
    // A file comes before its record, so records are read after the files.
    const FileSizes files = store.Files();
    const QuarantineList list(store);
    findings.records = list.Entries().size();
    std::unordered_map<WString, std::size_t> recorded;
    for (const QuarantineEntry& entry : list.Entries()) {
        CheckRecord(store, entry, files, findings);
        if (++recorded[LowerCase(entry.name)] == 2)
            findings.problems.insert({"several records", entry.name, entry.source});
    }
    const WString ending(kQuarantineFilePattern + 1);
    for (const auto& [name, size] : files) {
        if (!name.ends_with(ending))
            continue;
        ++findings.files;
        if (!recorded.contains(name))
            findings.problems.insert({"no record", name, {}});
    }
    if (list.Tail().size != 0) {
        const std::string where = Format("%u bytes at %u", list.Tail().size, list.Tail().offset);
        findings.problems.insert({"torn record", kQuarantineDbName, FromUtf8(where)});
    }
    if (store.IsCutShort())
        findings.problems.insert({"rewrite cut short", kQuarantineScratchName, {}});
    return findings;
}

} // namespace

void VerifyQuarantine(const QuarantineSettings& settings, Run& run)
{
    const QuarantineStore store = settings.Store();
    Findings findings = Look(store);
    // Between a file and its record, and within a rewrite, lies a moment. What is wrong stays wrong.
    if (!findings.problems.empty()) {
        Sleep(SettleMilliseconds);
        Findings again = Look(store);
        std::erase_if(again.problems, [&](const Problem& problem) { return !findings.problems.contains(problem); });
        findings = std::move(again);
    }
    std::string json;
    std::vector<std::vector<std::string>> rows;
    for (const Problem& problem : findings.problems) {
        if (run.json) {
            json +=
                JsonLine({{"problem", problem.what}, {"name", Utf8(problem.name)}, {"detail", Utf8(problem.detail)}});
        } else {
            rows.push_back({problem.what, Printable(problem.name), Printable(problem.detail)});
        }
    }
    if (run.json)
        Print(json);
    else
        Print(Table(rows) + Format("%u records, %u files, %u problems\n", findings.records, findings.files,
                                   findings.problems.size()));
    if (!findings.problems.empty())
        run.exit = ExitNo;
}

} // namespace vlt::ctl
