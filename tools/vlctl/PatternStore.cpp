#include "tools/vlctl/PatternStore.h"

#include "platform/Format.h"
#include "platform/Text.h"
#include "tools/vlctl/Command.h"
#include "tools/vlctl/Machine.h"
#include "tools/vlctl/QuarantineStore.h"
#include "tools/vlctl/Text.h"

#include <algorithm>
#include <tuple>

namespace vlt::ctl
{
namespace
{

constexpr std::size_t MaxPatternFile = 256u << 20; // more no engine loads

// Names that are not those of patterns, so that neither an engine nor the service's count sees them.
WString NewName(const WString& name)
{
    return TEXT("new_") + name;
}
WString OldName(const WString& name)
{
    return TEXT("old_") + name;
}

WString ApplicationFolder()
{
    const WString folder = SuiteFolder();
    if (folder.empty())
        throw CommandError(ExitNo, "the suite is not installed: the registry does not say where it is",
                           "vlctl registry set HKLM\\Software\\Veltrano\\Ardentis 'Application Path' FOLDER");
    return folder;
}

// The files that match, without folders.
std::vector<WString> Find(const WString& pattern)
{
    std::vector<WString> names;
    WIN32_FIND_DATAW found{};
    const FindHandle find(FindFirstFileW(pattern.c_str(), &found));
    if (!find) {
        if (GetLastError() != ERROR_FILE_NOT_FOUND)
            FailWith(GetLastError(), Printable(pattern));
        return names;
    }
    do {
        if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY))
            names.emplace_back(found.cFileName);
    } while (FindNextFileW(find.Get(), &found));
    return names;
}

std::vector<BYTE> ReadWhole(const WString& path)
{
    const FileHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    LARGE_INTEGER size{};
    if (!file || !GetFileSizeEx(file.Get(), &size))
        FailWith(GetLastError(), Printable(path));
    if (static_cast<ULONGLONG>(size.QuadPart) > MaxPatternFile)
        FailWith(ERROR_BAD_LENGTH, Printable(path));
    std::vector<BYTE> bytes(static_cast<std::size_t>(size.QuadPart));
    DWORD done = 0;
    if (!bytes.empty() && !ReadFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &done, nullptr))
        FailWith(GetLastError(), Printable(path));
    bytes.resize(done);
    return bytes;
}

void WriteWhole(const WString& path, const std::vector<BYTE>& bytes)
{
    const FileHandle file(
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD done = 0;
    if (!file || !WriteFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &done, nullptr) ||
        !FlushFileBuffers(file.Get()))
        FailWith(GetLastError(), Printable(path));
    if (done != bytes.size())
        FailWith(ERROR_DISK_FULL, Printable(path));
}

} // namespace

WString AsideName(const WString& name)
{
    return ToWide(kRolledBackPrefix) + name;
}

PatternStore::PatternStore() : m_folder(ApplicationFolder()), m_library(m_folder) {}

std::vector<PatternFileInfo> PatternStore::List() const
{
    std::vector<PatternFileInfo> files;
    for (const PatternKind& kind : kPatternKinds) {
        const WString stem = ToWide(kind.stem);
        const WString newest = m_library.Newest(kind.stem);
        const auto add = [&](const WString& pattern, bool rolledBack) {
            const std::size_t begin = files.size();
            for (const WString& name : Find(m_folder + pattern))
                files.push_back({name, &kind, m_library.VersionOf(m_folder + name),
                                 !rolledBack && LowerCase(name) == LowerCase(newest), rolledBack});
            std::sort(files.begin() + static_cast<std::ptrdiff_t>(begin), files.end(),
                      [](const PatternFileInfo& a, const PatternFileInfo& b) {
                          return std::tie(a.version, a.name) > std::tie(b.version, b.name);
                      });
        };
        add(stem + TEXT(".*"), false);
        if (&kind == &kVirusPatterns)
            add(AsideName(stem) + TEXT(".*"), true);
    }
    return files;
}

bool PatternStore::HasOlderVirusPattern() const
{
    const auto files = List();
    return std::any_of(files.begin(), files.end(), [](const PatternFileInfo& file) {
        return file.kind == &kVirusPatterns && file.version && !file.newest && !file.rolledBack;
    });
}

const PatternKind& PatternStore::KindOf(const WString& file, const std::string& word)
{
    const std::string name = Utf8(LowerCase(file.substr(FolderOf(file).size())));
    for (const PatternKind& kind : kPatternKinds)
        if (word.empty() ? name.starts_with(std::string(kind.stem) + '.') : word == kind.name)
            return kind;
    throw CommandError(ExitUsage, Printable(file) + ": its name does not tell the kind; give it with --kind");
}

WString PatternStore::NameFor(const PatternKind& kind, std::int32_t version)
{
    return ToWide(Format("%s.%03d", kind.stem, version / 100 % 1000));
}

bool PatternStore::Has(const WString& name) const
{
    return GetFileAttributesW((m_folder + name).c_str()) != INVALID_FILE_ATTRIBUTES;
}

void PatternStore::Install(const WString& file, const WString& name) const
{
    const WString scratch = m_folder + NewName(name);
    try {
        WriteWhole(scratch, ReadWhole(file));
        if (Has(name) && !CopyFileW((m_folder + name).c_str(), (m_folder + OldName(name)).c_str(), FALSE))
            FailWith(GetLastError(), Printable(OldName(name)));
        MoveOver(scratch, m_folder + name);
    } catch (...) {
        DeleteAnyFile(scratch);
        throw;
    }
}

void PatternStore::Settle(const WString& name, bool keepNew) const
{
    const WString old = m_folder + OldName(name);
    if (keepNew)
        DeleteAnyFile(old);
    else if (Has(OldName(name)))
        MoveOver(old, m_folder + name);
    else
        DeleteAnyFile(m_folder + name);
}

void PatternStore::Rename(const WString& from, const WString& to) const
{
    MoveOver(m_folder + from, m_folder + to);
}

void PatternStore::Purge(const WString& keptName) const
{
    for (const WString& name : Find(m_folder + AsideName(ToWide(kVirusPatternStem)) + TEXT(".*")))
        if (name != AsideName(keptName))
            DeleteAnyFile(m_folder + name);
}

WString PatternStore::Info(const WCHAR* key) const
{
    WCHAR text[256];
    GetPrivateProfileStringW(TEXT("Info"), key, TEXT(""), text, 256, (m_folder + TEXT("ardentis.ini")).c_str());
    return text;
}

} // namespace vlt::ctl
