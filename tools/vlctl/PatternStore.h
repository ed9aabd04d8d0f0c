// The pattern files of an installation, as the updater handles them: names, putting a new file in place, putting one
// aside and back.
#pragma once

#include "tools/vlctl/PatternKinds.h"
#include "tools/vlctl/PatternLibrary.h"

#include <optional>
#include <string>
#include <vector>

namespace vlt::ctl
{

struct PatternFileInfo {
    WString name;
    const PatternKind* kind;
    std::optional<std::int32_t> version; // nothing when the file is damaged
    bool newest = false;
    bool rolledBack = false;
};

// Functions throw CommandError.
class PatternStore
{
public:
    // Of the installed suite.
    PatternStore();

    const WString& Folder() const noexcept { return m_folder; } // ends in a backslash
    const PatternLibrary& Library() const noexcept { return m_library; }

    // Newest first within a kind; what was rolled back comes last.
    std::vector<PatternFileInfo> List() const;

    // Whether an engine would find another virus pattern without the newest.
    bool HasOlderVirusPattern() const;

    // The kind that the file's name or else the word says, and the name that the file gets: by custom its number
    // is version / 100, modulo 1000, and the service relies on it.
    static const PatternKind& KindOf(const WString& file, const std::string& word);
    static WString NameFor(const PatternKind& kind, std::int32_t version);

    bool Has(const WString& name) const;

    // Writes the file's bytes under a name that no engine looks at, flushes them and gives them their name in one step.
    // What had that name is kept beside it until Settle.
    void Install(const WString& file, const WString& name) const;
    // Forgets what Install replaced, or puts it back in place of the new file.
    void Settle(const WString& name, bool keepNew) const;

    // Puts a file aside, or back.
    void Rename(const WString& from, const WString& to) const;
    // Deletes what was put aside but that one.
    void Purge(const WString& keptName) const;

    // An entry of [Info] in ardentis.ini; empty when there is none.
    WString Info(const WCHAR* key) const;

private:
    WString m_folder;
    PatternLibrary m_library;
};

// The name of a file that was put aside.
WString AsideName(const WString& name);

} // namespace vlt::ctl
