// What is done to an infected file. Each action works on the open file that was scanned; its name is changed or taken
// away only while it leads to that file.
#pragma once

#include "suite/ArdScan/HostFile.h"
#include "suite/ArdScan/Policy.h"

#include <mutex>
#include <set>

namespace vlt::scan
{

// Files that an action is at work on: whoever comes second leaves them alone.
class CFilesInWork
{
public:
    class Claim
    {
    public:
        Claim(CFilesInWork& files, const std::optional<FileId>& id);
        ~Claim();
        Claim(const Claim&) = delete;
        Claim& operator=(const Claim&) = delete;
        explicit operator bool() const { return m_mine; }

    private:
        CFilesInWork& m_files;
        const FileId m_id;
        bool m_mine;
    };

private:
    std::mutex m_lock;
    std::set<FileId> m_ids;
};

// An infected file and what it was found with.
struct InfectedFile {
    CHostFile& file;
    const HostPath& path;
    WStringView windowsPath;
    const CPatternSet& patterns;
    const Policy& policy;
    CScanner& scanner;
};

// Carries out an action that changes the file; true when it is done. `second` chooses between the folders and
// extensions of the two actions. AS_ACTION_QUARANTINE sets encodedPath to a file in the quarantine folder.
bool ChangeFile(const InfectedFile& infected, std::uint32_t action, bool second, const HostPath& quarantineFolder,
                WString& encodedPath) noexcept;

// Removes the unfinished files that a crash has left in the quarantine folder; those of the last day may be at work.
void RemoveLeftovers(const HostPath& quarantineFolder);

} // namespace vlt::scan
