// vlctl quarantine restore, rescan: what needs the scan library, since kept files are encoded.
#include "ARDCommon/IpcFormat.h"
#include "platform/Format.h"
#include "platform/Text.h"
#include "tools/vlctl/Answer.h"
#include "tools/vlctl/Host.h"
#include "tools/vlctl/IpcRequest.h"
#include "tools/vlctl/Progress.h"
#include "tools/vlctl/QuarantineCommands.h"
#include "tools/vlctl/ScanLibrary.h"
#include "tools/vlctl/Text.h"

#include <algorithm>

namespace vlt::ctl
{
namespace
{

constexpr unsigned ExclusionSeconds = 5;
constexpr WCHAR RescanMutex[] = TEXT("Global\\Veltrano quarantine rescan");
constexpr WCHAR TempFolder[] = TEXT("Temp\\"); // of all programs that scan what is in quarantine
constexpr WCHAR OwnTempFolder[] = TEXT("vlctl\\");

// A running service would refuse this process the opening of what it has just restored. Without a service
// there is nobody to ask, and when it does not answer the attempt shows what comes of it.
void AskNotToBeScanned()
{
    const PidExceptionRequest request{GetCurrentProcessId(), 1};
    try {
        SendRequest(kPidExceptionChannel, {reinterpret_cast<const BYTE*>(&request), sizeof request}, ExclusionSeconds);
    } catch (const std::runtime_error&) {
    }
}

// The place that an encoded file names is another's word: only a full path on a drive, without steps up,
// streams and control characters, is taken.
bool IsOrdinaryPath(const WString& path)
{
    if (path.size() < 4 || path.size() >= MAX_PATH || path[1] != ':' || (path[2] != '\\' && path[2] != '/') ||
        path.find(TEXT(':'), 2) != WString::npos)
        return false;
    if (std::any_of(path.begin(), path.end(), [](WCHAR unit) { return unit < ' '; }))
        return false;
    for (std::size_t from = 3, to = 0; from <= path.size(); from = to + 1) {
        to = std::min(path.find_first_of(TEXT("\\/"), from), path.size());
        const WString part = path.substr(from, to - from);
        if (part.empty() || part.back() == '.')
            return false;
    }
    return true;
}

WString FullPath(const std::string& text)
{
    WCHAR full[MAX_PATH];
    const DWORD length = GetFullPathNameW(FromUtf8(text).c_str(), MAX_PATH, full, nullptr);
    if (length == 0 || length >= MAX_PATH)
        FailWith(length == 0 ? GetLastError() : ERROR_FILENAME_EXCED_RANGE, text);
    return WString(full, length);
}

WString UniqueFile(const WString& folder)
{
    WCHAR name[MAX_PATH];
    if (GetTempFileNameW(folder.c_str(), TEXT(""), 0, name) == 0)
        FailWith(GetLastError(), Printable(folder));
    return name;
}

// A file that goes at the end, whatever happens.
class WorkingCopy
{
public:
    explicit WorkingCopy(const WString& folder) : m_path(UniqueFile(folder)) {}
    ~WorkingCopy() { DeleteAnyFile(m_path); }
    WorkingCopy(const WorkingCopy&) = delete;
    WorkingCopy& operator=(const WorkingCopy&) = delete;
    const WString& Path() const { return m_path; }

private:
    const WString m_path;
};

// Only what is in the folder is a kept file, whatever the record says.
WString ExistingFile(const QuarantineStore& store, const FileSizes& files, const QuarantineEntry& entry)
{
    const WString path = store.KeptFile(entry.name);
    if (path.empty() || !files.contains(LowerCase(entry.name)))
        throw CommandError(ExitFailed, "the file of this record is missing: " + Printable(entry.name),
                           "vlctl quarantine verify lists all such, vlctl quarantine delete takes the record away");
    return path;
}

// Under a name of its own first, so that nothing is overwritten by half a file, or by accident.
void RestoreTo(const ScanLibrary& library, const WString& file, const WString& target, bool force)
{
    const auto refuse = [&] {
        throw CommandError(ExitFailed, Printable(target) + " exists",
                           "overwrite it with --force, or name another with --to");
    };
    const DWORD attributes = GetFileAttributesW(target.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY))
        throw CommandError(ExitFailed, Printable(target) + " is a folder", "name a file with --to");
    if (attributes != INVALID_FILE_ATTRIBUTES && !force)
        refuse();
    const WorkingCopy copy(FolderOf(target));
    library.Restore(file, copy.Path());
    // The kept file may go next. A file that came back read-only cannot be opened for that.
    FileHandle written(CreateFileW(copy.Path().c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                   OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (written && !FlushFileBuffers(written.Get()))
        FailWith(GetLastError(), Printable(copy.Path()));
    written.Reset();
    if (MoveFileExW(copy.Path().c_str(), target.c_str(), force ? MOVEFILE_REPLACE_EXISTING : 0))
        return;
    const DWORD error = GetLastError();
    if (error == ERROR_ALREADY_EXISTS || error == ERROR_FILE_EXISTS)
        refuse();
    FailWith(error, Printable(target));
}

// The folder for working copies. One process at a time has it, so what is there at the beginning was left
// by one that was killed.
class WorkPlace
{
public:
    explicit WorkPlace(const QuarantineStore& store)
        : m_mutex(CreateMutexW(nullptr, FALSE, RescanMutex)), m_temp(store.Folder() + TempFolder),
          m_folder(m_temp + OwnTempFolder)
    {
        const DWORD waited = m_mutex ? WaitForSingleObject(m_mutex.Get(), 0) : WAIT_FAILED;
        if (waited != WAIT_OBJECT_0 && waited != WAIT_ABANDONED)
            throw CommandError(ExitFailed, "another rescan is under way", "try again when it has ended");
        KeepNewFilesPrivate();
        CreateDirectoryW(m_temp.c_str(), nullptr);
        if (CreateDirectoryW(m_folder.c_str(), nullptr))
            return;
        if (GetLastError() != ERROR_ALREADY_EXISTS)
            FailWith(GetLastError(), Printable(m_folder));
        DeleteLeftovers();
    }
    ~WorkPlace()
    {
        RemoveDirectoryW(m_folder.c_str());
        RemoveDirectoryW(m_temp.c_str()); // stays when another program works there
        ReleaseMutex(m_mutex.Get());
    }
    WorkPlace(const WorkPlace&) = delete;
    WorkPlace& operator=(const WorkPlace&) = delete;
    const WString& Folder() const { return m_folder; }

private:
    void DeleteLeftovers() const
    {
        WIN32_FIND_DATAW found{};
        const FindHandle find(FindFirstFileW((m_folder + TEXT("*")).c_str(), &found));
        for (BOOL more = static_cast<bool>(find); more; more = FindNextFileW(find.Get(), &found)) {
            if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY))
                DeleteAnyFile(m_folder + found.cFileName);
        }
    }

    const KernelHandle m_mutex;
    const WString m_temp;
    const WString m_folder;
};

// By the kept file's name.
using Verdicts = std::unordered_map<WString, ScanLibrary::Verdict>;

void UpdateRecords(const QuarantineStore& store, const Verdicts& verdicts)
{
    if (verdicts.empty())
        return;
    store.Rewrite([&](QuarantineRecord& record) {
        const auto found = verdicts.find(WString(FieldText(record.quarantinedName)));
        if (found == verdicts.end() || record.type < kFirstQuarantinedType)
            return true;
        record.status = found->second.code;
        if (!found->second.threat.empty() && record.threatName[0] != 0)
            CopyToField(record.threatName, WStringView(found->second.threat));
        return true;
    });
}

void PrintVerdict(const std::string& id, const QuarantineEntry& entry, const ScanLibrary::Verdict& verdict, bool json)
{
    static constexpr const char* results[] = {"failed", "clean", "cleanable", "infected"};
    const char* const result = results[verdict.code];
    if (!json) {
        Print(Format("%s  %s  %s  %s\n", id, result, Printable(verdict.threat), Printable(entry.source)));
        return;
    }
    Print(JsonLine({{"id", id}, {"result", result}, {"threat", Utf8(verdict.threat)}, {"path", Utf8(entry.source)}}));
}

std::vector<const QuarantineEntry*> Chosen(const QuarantineSettings& settings, const QuarantineList& list)
{
    std::vector<const QuarantineEntry*> chosen;
    for (const std::string& id : settings.ids) {
        const QuarantineEntry* const entry = list.Find(id).front();
        if (std::find(chosen.begin(), chosen.end(), entry) == chosen.end())
            chosen.push_back(entry);
    }
    for (const QuarantineEntry& entry : list.Entries()) {
        if (settings.all)
            chosen.push_back(&entry);
    }
    return chosen;
}

} // namespace

void RestoreQuarantined(const QuarantineSettings& settings)
{
    const QuarantineStore store = settings.Store();
    const QuarantineList list(store);
    PrintState(store, list);
    const QuarantineEntry& entry = *list.Find(settings.ids.front()).front();
    const WString file = ExistingFile(store, store.Files(), entry);
    const ScanLibrary library;
    AskNotToBeScanned();
    const WString target = settings.to.empty() ? library.SourceOf(file) : FullPath(settings.to);
    if (settings.to.empty() && !IsOrdinaryPath(target))
        throw CommandError(ExitFailed, "it says that it comes from \"" + Printable(target) + '"',
                           "name a place with --to");
    RestoreTo(library, file, target, settings.force);
    Print(Printable(target) + '\n');
    if (!settings.keep && DeleteFromQuarantine(store, {entry.name}) != 1)
        throw CommandError(ExitFailed, "it is restored, and also still in quarantine",
                           "vlctl quarantine delete takes it away there");
}

void RescanQuarantined(const QuarantineSettings& settings, Run& run)
{
    if (settings.ids.empty() && !settings.all)
        throw CommandError(ExitUsage, "nothing is named that is to be scanned", "name some ids, or say --all");
    const QuarantineStore store = settings.Store();
    const QuarantineList list(store);
    PrintState(store, list);
    const std::vector<const QuarantineEntry*> chosen = Chosen(settings, list);
    const FileSizes files = store.Files();
    ScanLibrary library;
    AskNotToBeScanned();
    const WorkPlace place(store);

    Verdicts verdicts;
    std::size_t failed = 0;
    Progress progress("scanning", chosen.size());
    for (const QuarantineEntry* const entry : chosen) {
        if (IsInterrupted())
            break;
        ScanLibrary::Verdict verdict{0, {}};
        std::string why;
        try {
            const WString file = ExistingFile(store, files, *entry);
            const WorkingCopy copy(place.Folder());
            library.Restore(file, copy.Path());
            verdict = library.Scan(copy.Path(), store.Folder());
            verdicts[entry->name] = verdict;
        } catch (const CommandError& error) {
            why = error.what();
            ++failed;
        }
        progress.Clear();
        PrintVerdict(list.ShortId(*entry), *entry, verdict, run.json);
        if (!why.empty())
            Complain(why);
        progress.Step();
    }
    progress.Clear();
    UpdateRecords(store, verdicts);
    if (failed != 0)
        throw CommandError(ExitFailed, Format("%u could not be scanned", failed), "the lines above say why");
}

} // namespace vlt::ctl
