// What lies on the disk: libraries, patterns, room, and what an earlier run has left.
#include "ARDCommon/NotifyFormat.h"
#include "ARDCommon/RollbackFormat.h"
#include "ARDCommon/ScanInfoFormat.h"
#include "platform/Format.h"
#include "platform/Unique.h"
#include "suite/Channel/ReceiverList.h"
#include "suite/Common/HostPath.h"
#include "suite/Common/PatternFolder.h"
#include "tools/vlctl/Doctor.h"
#include "tools/vlctl/Machine.h"
#include "tools/vlctl/QuarantineStore.h"
#include "tools/vlctl/Text.h"

#include <chrono>
#include <system_error>

namespace vlt::ctl
{

using suite::ReceiverList;

namespace
{

namespace fs = std::filesystem;

constexpr std::uint64_t Megabyte = 1 << 20;
constexpr std::uint64_t LeastRoom = 32 * Megabyte; // below it quarantine and logs are about to fail
constexpr std::uint64_t GoodRoom = 512 * Megabyte;

// What the service asks the scan library for; without any of these it does not start.
constexpr const char* ScanEntries[] = {"ASGetLastError",
                                       "ASInitScanW",
                                       "ASDeInitScan",
                                       "ASSetConfigW",
                                       "ASScanFileW",
                                       "ASManualActionW",
                                       "ASStartScan",
                                       "ASStopScan",
                                       "ASGetEngineInfo",
                                       "ASGetFirstVirusInfo",
                                       "ASGetNextVirusInfo",
                                       "ASGetPatternInformation",
                                       "ASGetEngineInformation",
                                       "ASGetVirusInfo",
                                       "ASGetSpyWarePatternVersion",
                                       "ASSetExceptionFilePathW",
                                       "ASSetExceptionFolderPathW",
                                       "ASGetEngineDefaultExtListW",
                                       "ASReloadPatternW"};
constexpr const char* PatternEntries[] = {"KSGetLastPattern", "KSGetPatternInternalVersion"};

void CheckLibrary(const WString& path, std::span<const char* const> entries, const char* needed, Findings& findings)
{
    constexpr const char* check = "libraries";
    constexpr const char* again = "install the file again from the package";
    if (GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES)
        return findings.Problem(check, Format("%s is missing: %s", Printable(path), needed), again);
    const LibraryHandle library(LoadLibraryW(path.c_str()));
    if (!library) {
        const DWORD error = GetLastError();
        return findings.Problem(
            check, Format("%s cannot be loaded: %s (%u)", Printable(path), SystemText(error), error), again);
    }
    for (const char* const entry : entries)
        if (!GetProcAddress(library.Get(), entry))
            findings.Problem(check, Format("%s lacks %s", Printable(path), entry), again);
}

// A file's time that is later than now by more than clocks of two machines differ.
bool IsOfTheFuture(const fs::path& file)
{
    std::error_code error;
    const auto time = fs::last_write_time(file, error);
    return !error && time > fs::file_time_type::clock::now() + std::chrono::hours(24);
}

// False, with a finding, when there is nowhere to look.
bool KnowsFolder(const Patient& patient, const char* check, Findings& findings)
{
    if (patient.folder.empty())
        findings.Unknown(check, "the product's folder is not known", "vlctl service install");
    return !patient.folder.empty();
}

std::uint32_t Now()
{
    return static_cast<std::uint32_t>(std::chrono::system_clock::to_time_t(std::chrono::system_clock::now()));
}

} // namespace

void CheckLibraries(const Patient& patient, Findings& findings)
{
    if (!KnowsFolder(patient, "libraries", findings))
        return;
    CheckLibrary(patient.folder + TEXT("ArdScan.dll"), ScanEntries, "nothing is scanned", findings);
    const WString suite = SuiteFolder();
    CheckLibrary((suite.empty() ? patient.folder : suite) + TEXT("Ksapi64.dll"), PatternEntries,
                 "restored patterns are not compared", findings);
}

void CheckPatterns(const Patient& patient, Findings& findings)
{
    constexpr const char* check = "patterns";
    if (!KnowsFolder(patient, check, findings))
        return;
    const fs::path folder = scan::ToHost(patient.folder);
    const auto newest = scan::LoadNewest(folder, scan::VirusStem, scan::PatternKind::Virus);
    const std::size_t count = scan::ListPatterns(folder, scan::VirusStem, scan::PatternKind::Virus).size();
    if (!newest.file)
        return findings.Problem(check, "no usable virus patterns in " + Printable(patient.folder),
                                "install a pattern file there and restart the service");
    if (newest.broken)
        findings.Warning(check, "a newer pattern file is damaged; in use is " + newest.name,
                         "install the newest pattern file again");
    findings.Ok(check, Format("%s, version %u%s", newest.name, newest.file->version,
                              count > 1 ? "" : "; none older to roll back to"));
}

void CheckClock(const Patient& patient, Findings& findings)
{
    constexpr const char* check = "clock";
    constexpr const char* remedy = "set the clock, and keep it set by the network";
    constexpr std::uint32_t earliest = 1704067200; // 2024
    if (Now() < earliest)
        findings.Problem(check, "it says " + UtcText(Now()), remedy);
    const auto last = MachineNumber(kScanInfoKey, ScanInfoValue::LastDetectTime);
    if (last && *last > Now() && *last - Now() > 24 * 3600)
        findings.Warning(check, "the last detection is of " + UtcText(*last) + ", which is still to come", remedy);
    const auto patterns = scan::ListPatterns(scan::ToHost(patient.folder), scan::VirusStem, scan::PatternKind::Virus);
    for (const scan::PatternEntry& pattern : patterns)
        if (IsOfTheFuture(pattern.path))
            findings.Warning(check, "the pattern file " + pattern.name + " is of the future", remedy);
}

void CheckDisk(const Patient& patient, Findings& findings)
{
    constexpr const char* check = "disk";
    if (!KnowsFolder(patient, check, findings))
        return;
    std::error_code error;
    const fs::space_info space = fs::space(scan::ToHost(patient.folder), error);
    if (error)
        return findings.Unknown(check, Printable(patient.folder) + ": " + error.message(),
                                "see that the folder is there");
    const std::string room = Format("%u MB free for logs and quarantine", space.available / Megabyte);
    const std::string remedy = "make room on the disk of " + Printable(patient.folder) + "; see vlctl quarantine list";
    if (space.available < LeastRoom)
        findings.Problem(check, room, remedy);
    else if (space.available < GoodRoom)
        findings.Warning(check, room, remedy);
    else
        findings.Ok(check, room);
}

namespace
{

void CheckObjects(Findings& findings)
{
    constexpr const char* check = "stale";
    const std::vector<StaleObject> objects = StaleObjects();
    for (const StaleObject& object : objects)
        if (!object.removable)
            findings.Warning(check, "nobody holds the object " + object.file + ", and its name is another account's",
                             "let that account or root delete it in the folder objects of the machine root");
    if (!objects.empty() && !findings.Has(check))
        findings.Ok(check, Format("%u objects of programs that have ended; the next to use a name takes it over",
                                  objects.size()));
}

} // namespace

void CheckStale(const Patient& patient, Findings& findings)
{
    constexpr const char* check = "stale";
    const auto runs = MachineNumber(kRollbackKey, RollbackValue::RtsStatus.name);
    if (patient.process == 0 && runs.value_or(0) != 0)
        findings.Warning(check, "the service did not end in order", "vlctl service start, and see what the logs say");
    if (const auto list = ReceiverList::Open(kVirusFoundChannel))
        for (const ReceiverList::Entry& entry : list->Entries())
            if (!entry.live)
                findings.Warning(check, Format("slot %u of the receivers is of one that has gone", entry.slot),
                                 "the service frees it with its next detection; vlctl selftest makes one");
    const WString quarantine = patient.folder + TEXT("Quarantine");
    if (!patient.folder.empty() && GetFileAttributesW(quarantine.c_str()) != INVALID_FILE_ATTRIBUTES &&
        QuarantineStore(quarantine).IsCutShort())
        findings.Problem(check, "a change of the quarantine's records was cut short", "vlctl quarantine verify");
    CheckObjects(findings);
}

} // namespace vlt::ctl
