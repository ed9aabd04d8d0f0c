#include "platform/posix/file/FolderNames.h"

#include "platform/posix/core/Utf.h"
#include "platform/posix/file/Path.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <linux/magic.h>
#include <memory>
#include <new>
#include <pthread.h>
#include <sys/inotify.h>
#include <sys/vfs.h>

namespace vlt::posix
{
namespace
{

constexpr std::size_t MostFolders = 16;
constexpr std::size_t MostNames = 100'000; // about 7 MB
// A program that misses a name or two reads the folder; a watch costs more than that at its end.
constexpr int SearchesBefore = 3;
constexpr int NeverKept = -1; // a number of searches

// The host rounds the name with its terminator up to a multiple of the event's size.
constexpr std::size_t LargestEvent = sizeof(inotify_event) + NAME_MAX + 1;

constexpr std::uint32_t Changes = IN_CREATE | IN_MOVED_TO | IN_DELETE | IN_MOVED_FROM | IN_ONLYDIR;

// Others may change without a word: over the network, through FUSE, in a lower layer.
bool TellsOfChanges(int descriptor) noexcept
{
    constexpr std::array<std::int64_t, 7> Local = {EXT4_SUPER_MAGIC, XFS_SUPER_MAGIC, BTRFS_SUPER_MAGIC, TMPFS_MAGIC,
                                                   F2FS_SUPER_MAGIC, RAMFS_MAGIC,     0xCA451A4E /* bcachefs */};
    struct statfs status;
    return fstatfs(descriptor, &status) == 0 &&
           std::find(Local.begin(), Local.end(), std::int64_t{status.f_type}) != Local.end();
}

} // namespace

FolderNames& FolderNames::Instance()
{
    static FolderNames& names = []() -> FolderNames& {
        FolderNames& made = *new FolderNames; // threads use files while the process exits
        pthread_atfork([] { Instance().m_lock.lock(); }, [] { Instance().m_lock.unlock(); },
                       [] { Instance().BeginAnew(); });
        return made;
    }();
    return names;
}

// In a new process: the queue and its watches are the parent's.
void FolderNames::BeginAnew() noexcept
{
    for (Folder& folder : m_folders)
        folder.watch = -1;
    Forget();
    m_queue = Fd();
    m_lock.unlock();
}

std::size_t FolderNames::Hash::operator()(const std::string& name) const
{
    return (*this)(Folded{FoldCase(WindowsName(name))});
}

std::size_t FolderNames::Hash::operator()(Folded folded) const noexcept
{
    return std::hash<std::u16string_view>{}(folded.name);
}

bool FolderNames::Equal::operator()(Folded folded, const std::string& name) const
{
    return FoldCase(WindowsName(name)) == folded.name;
}

std::optional<std::string> FolderNames::Find(const char* folder, const struct stat& status, std::u16string_view name)
{
    const std::lock_guard lock(m_lock);
    Drain();
    Folder& entry = Entry(status);
    if (entry.watch < 0 && !Keep(entry, folder))
        return std::nullopt;
    const std::u16string folded = FoldCase(name);
    const auto found = entry.names.find(Folded{folded});
    return found == entry.names.end() ? std::string() : *found;
}

bool FolderNames::IsKnownMissing(const struct stat& folder, std::u16string_view name)
{
    const std::lock_guard lock(m_lock);
    Drain();
    const auto found = Known(folder);
    if (found == m_folders.end() || found->watch < 0)
        return false;
    const std::u16string folded = FoldCase(name);
    return !found->names.contains(Folded{folded});
}

// Whatever path led to it: the inode's number is not used again while the watch stands.
FolderNames::Folders::iterator FolderNames::Known(const struct stat& status)
{
    return std::find_if(m_folders.begin(), m_folders.end(), [&](const Folder& folder) {
        return folder.device == status.st_dev && folder.inode == status.st_ino;
    });
}

FolderNames::Folder& FolderNames::Entry(const struct stat& status)
{
    const auto found = Known(status);
    if (found != m_folders.end()) {
        m_folders.splice(m_folders.begin(), m_folders, found);
    } else {
        if (m_folders.size() == MostFolders) {
            Drop(m_folders.back());
            m_folders.pop_back();
        }
        m_folders.push_front({status.st_dev, status.st_ino, 0, -1, {}});
    }
    return m_folders.front();
}

bool FolderNames::Keep(Folder& folder, const char* path)
{
    if (folder.searches == NeverKept || ++folder.searches < SearchesBefore)
        return false;
    folder.searches = NeverKept;
    if (!m_queue)
        m_queue = Fd(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    const int descriptor = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(descriptor < 0 ? nullptr : fdopendir(descriptor), &closedir);
    struct stat status;
    if (!entries || fstat(descriptor, &status) != 0 || status.st_dev != folder.device ||
        status.st_ino != folder.inode || !TellsOfChanges(descriptor))
        return false;
    char self[32];
    std::snprintf(self, sizeof self, "/proc/self/fd/%d", descriptor);
    // Watched first: a change while the names are read comes as an event, too.
    folder.watch = inotify_add_watch(m_queue.Get(), self, Changes);
    if (folder.watch < 0)
        return false;
    bool whole = true;
    try {
        while (const dirent* entry = readdir(entries.get()))
            whole = whole && Add(folder, entry->d_name);
    } catch (const std::bad_alloc&) {
        whole = false;
    }
    if (!whole)
        Drop(folder);
    Drain();
    return folder.watch >= 0;
}

// False when there are too many names.
bool FolderNames::Add(Folder& folder, std::string name)
{
    if (m_count == MostNames)
        return false;
    m_count += folder.names.insert(std::move(name)).second;
    return true;
}

void FolderNames::Drop(Folder& folder) noexcept
{
    if (folder.watch >= 0)
        inotify_rm_watch(m_queue.Get(), folder.watch);
    folder.watch = -1;
    m_count -= folder.names.size();
    Names().swap(folder.names);
}

// The folders may be kept again.
void FolderNames::Forget() noexcept
{
    for (Folder& folder : m_folders) {
        Drop(folder);
        folder.searches = 0;
    }
}

// Takes in all that has happened until now.
void FolderNames::Drain()
{
    alignas(inotify_event) char buffer[16384];
    while (m_queue) {
        const ssize_t got = read(m_queue.Get(), buffer, sizeof buffer);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0) {
            if (got == 0 || errno != EAGAIN)
                Forget();
            return;
        }
        for (ssize_t at = 0; at < got;) {
            const auto& event = *reinterpret_cast<const inotify_event*>(buffer + at);
            Apply(event);
            at += static_cast<ssize_t>(sizeof event + event.len);
        }
        if (static_cast<std::size_t>(got) + LargestEvent <= sizeof buffer)
            return; // there was room for one more
    }
}

void FolderNames::Apply(const inotify_event& event)
{
    if ((event.mask & IN_Q_OVERFLOW) != 0)
        return Forget();
    const auto folder = std::find_if(m_folders.begin(), m_folders.end(),
                                     [&](const Folder& kept) { return kept.watch == event.wd && kept.watch >= 0; });
    if (folder == m_folders.end())
        return;                           // of a watch that was given up
    if ((event.mask & IN_IGNORED) != 0) { // deleted, or unmounted
        folder->watch = -1;
        folder->searches = 0;
        Drop(*folder);
    } else if ((event.mask & (IN_CREATE | IN_MOVED_TO)) != 0) {
        bool added = false;
        try {
            added = Add(*folder, event.name);
        } catch (const std::bad_alloc&) {
        }
        if (!added)
            Drop(*folder);
    } else if ((event.mask & (IN_DELETE | IN_MOVED_FROM)) != 0) {
        m_count -= folder->names.erase(event.name);
    }
}

} // namespace vlt::posix
