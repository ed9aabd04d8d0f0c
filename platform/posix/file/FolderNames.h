// The names of folders that are searched often for a name that is not there.
//
// The host finds exact names only, so a name that is missing may yet be there in another case, and the
// folder has to be read to know: 4 ms with 10,000 files. The names of the folders searched last are kept
// instead, and an inotify watch keeps them true: the host queues an event before the call that made the
// change returns, so whoever reads the queue first sees every change that came before. Only file systems
// whose every change passes this host's kernel are kept, and never more than a bounded number of names.
//
// A child process made by fork begins without names and with a queue of its own. All threads may call.
#pragma once

#include "platform/posix/core/Fd.h"

#include <cstddef>
#include <cstdint>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unordered_set>

struct inotify_event;

namespace vlt::posix
{

class FolderNames
{
public:
    static FolderNames& Instance();

    // The host name in the folder that is equal to `name` but for its case; empty when there is none.
    // `status` is the folder's. Nothing when the folder is not kept: the caller has to read it.
    std::optional<std::string> Find(const char* folder, const struct stat& status, std::u16string_view name);

    // True when the folder is kept and has no such name, in any case. Costs no reading of the folder.
    bool IsKnownMissing(const struct stat& folder, std::u16string_view name);

private:
    struct Folded {
        std::u16string_view name;
    };
    // A set of exact names whose members that differ in case only have one hash.
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(const std::string& name) const;
        std::size_t operator()(Folded folded) const noexcept;
    };
    struct Equal {
        using is_transparent = void;
        bool operator()(const std::string& a, const std::string& b) const noexcept { return a == b; }
        bool operator()(Folded folded, const std::string& name) const;
        bool operator()(const std::string& name, Folded folded) const { return (*this)(folded, name); }
    };
    using Names = std::unordered_set<std::string, Hash, Equal>;

    struct Folder {
        dev_t device;
        ino_t inode;
        int searches = 0; // before it is kept
        int watch = -1;   // when it is kept
        Names names;
    };
    using Folders = std::list<Folder>; // that which was asked for last comes first

    FolderNames() = default;
    void BeginAnew() noexcept;
    Folder& Entry(const struct stat& status);
    Folders::iterator Known(const struct stat& status);
    bool Keep(Folder& folder, const char* path);
    bool Add(Folder& folder, std::string name);
    void Drop(Folder& folder) noexcept;
    void Drain();
    void Apply(const inotify_event& event);
    void Forget() noexcept;

    std::mutex m_lock;
    Fd m_queue;
    Folders m_folders;
    std::size_t m_count = 0; // of names in all folders
};

} // namespace vlt::posix
