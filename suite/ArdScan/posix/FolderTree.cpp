#include "suite/ArdScan/posix/FolderTree.h"

#include "engine/ArdScanAbi.h"

#include <array>
#include <cerrno>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/statfs.h>

namespace vlt::scan
{
namespace
{

namespace fs = std::filesystem;

// f_type of statfs(2).
constexpr std::array<long, 8> KernelFileSystems = {
    0x9fa0 /*proc*/,        0x62656572 /*sysfs*/,   0x27e0eb /*cgroup*/, 0x63677270 /*cgroup2*/,
    0x64626720 /*debugfs*/, 0x74726163 /*tracefs*/, 0x1cd1 /*devpts*/,   0xcafe4a11 /*bpf*/};
constexpr std::array<long, 5> NetworkFileSystems = {0x6969 /*nfs*/, 0xff534d42 /*cifs*/, 0xfe534d42 /*smb2*/,
                                                    0x01021997 /*9p*/, 0x00c36400 /*ceph*/};

template <std::size_t N>
bool Holds(const std::array<long, N>& types, long type)
{
    for (const long each : types)
        if (each == type)
            return true;
    return false;
}

} // namespace

CFolderTree::CFolderTree(IFolderSink& sink, std::vector<fs::path> roots, bool network, bool writes)
    : m_sink(sink), m_roots(std::move(roots)), m_network(network),
      m_mask(IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_ONLYDIR | IN_DONT_FOLLOW | IN_EXCL_UNLINK |
             (writes ? IN_CLOSE_WRITE : 0u)),
      m_inotify(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)), m_stopEvent(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!m_inotify)
        return;
    for (const fs::path& root : m_roots)
        Follow(nullptr, root.native(), Found::AtStart);
    m_thread = std::thread([this] { Run(); });
}

CFolderTree::~CFolderTree()
{
    eventfd_write(m_stopEvent.Get(), 1);
    if (m_thread.joinable())
        m_thread.join();
}

bool CFolderTree::Followable(const fs::path& folder, bool network)
{
    struct statfs info {
    };
    if (statfs(folder.c_str(), &info) != 0)
        return false;
    const long type = static_cast<long>(info.f_type);
    return !Holds(KernelFileSystems, type) && (network || !Holds(NetworkFileSystems, type & 0xffffffffL));
}

fs::path CFolderTree::PathOf(const Folder& folder) const
{
    return folder.parent ? PathOf(*folder.parent) / folder.name : fs::path(folder.name);
}

// The watch comes before the look inside, so that nothing made meanwhile is missed. A folder that goes
// away at any point here is no error.
void CFolderTree::Follow(Folder* parent, const std::string& name, Found found)
{
    const fs::path path = parent ? PathOf(*parent) / name : fs::path(name);
    if (!Followable(path, m_network))
        return;
    const int watch = inotify_add_watch(m_inotify.Get(), path.c_str(), m_mask);
    if (watch < 0) {
        if (errno == ENOSPC)
            m_sink.OnLost();
        return;
    }
    auto& entry = m_folders[watch];
    if (entry && entry->parent == parent && entry->name == name && found == Found::AtStart)
        return; // a root within another
    if (!entry)
        entry = std::make_unique<Folder>();
    Folder& folder = *entry;
    folder.watch = watch;
    Detach(folder);
    Attach(folder, parent, name);
    m_sink.OnFolder(path);

    std::error_code error;
    for (fs::directory_iterator it(path, error), end; !error && it != end; it.increment(error)) {
        std::error_code gone;
        const fs::file_status status = it->symlink_status(gone);
        if (fs::is_directory(status))
            Follow(&folder, it->path().filename().native(), found);
        else if (found == Found::Later && fs::is_regular_file(status))
            m_sink.OnFile(it->path(), AS_DIRECTION_RENAME);
    }
}

// A child of a folder, or a root. A folder that was deleted is only told of later, when its name may long
// be another's: it then goes on without a parent.
void CFolderTree::Attach(Folder& folder, Folder* parent, const std::string& name)
{
    folder.parent = parent;
    folder.name = name;
    if (!parent)
        return;
    Folder*& child = parent->children[name];
    if (child && child != &folder)
        child->parent = nullptr;
    child = &folder;
}

void CFolderTree::Detach(Folder& folder)
{
    if (Folder* const parent = std::exchange(folder.parent, nullptr))
        parent->children.erase(folder.name);
}

// A folder and all below it have new paths.
void CFolderTree::Announce(const Folder& folder)
{
    m_sink.OnFolder(PathOf(folder));
    for (const auto& [name, child] : folder.children)
        Announce(*child);
}

// Forgets a folder and all below it.
void CFolderTree::Drop(Folder& folder, bool removeWatch)
{
    while (!folder.children.empty())
        Drop(*folder.children.begin()->second, removeWatch);
    Detach(folder);
    if (m_moving == &folder)
        m_moving = nullptr;
    if (removeWatch)
        inotify_rm_watch(m_inotify.Get(), folder.watch);
    m_folders.erase(folder.watch);
}

void CFolderTree::Rescan()
{
    m_sink.OnLost();
    for (const fs::path& root : m_roots)
        Follow(nullptr, root.native(), Found::Later);
}

void CFolderTree::Run()
{
    alignas(inotify_event) std::array<char, 16384> buffer;
    for (;;) {
        pollfd fds[] = {{m_inotify.Get(), POLLIN, 0}, {m_stopEvent.Get(), POLLIN, 0}};
        // The second half of a move within the guarded folders follows the first one closely.
        if (poll(fds, 2, m_moving ? 100 : -1) == 0)
            EndMove();
        if (fds[1].revents)
            return;
        const ssize_t size = read(m_inotify.Get(), buffer.data(), buffer.size());
        for (ssize_t at = 0; at < size;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + at);
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            OnEvent(event->mask, event->wd, event->cookie, event->len ? event->name : "");
        }
    }
}

// A folder that was moved and did not come in anywhere has left the guarded folders.
void CFolderTree::EndMove()
{
    if (Folder* gone = std::exchange(m_moving, nullptr))
        Drop(*gone, true);
}

void CFolderTree::OnEvent(std::uint32_t mask, int watch, std::uint32_t cookie, const std::string& name)
{
    if (mask & IN_Q_OVERFLOW) {
        Rescan();
        return;
    }
    const auto entry = m_folders.find(watch);
    if (entry == m_folders.end())
        return; // of a folder that was dropped
    Folder& folder = *entry->second;
    if (mask & IN_IGNORED) {
        Drop(folder, false);
        return;
    }
    if (m_moving && !((mask & IN_MOVED_TO) && cookie == m_movingCookie) && !(mask & IN_MOVED_FROM))
        EndMove();
    if (m_folders.find(watch) == m_folders.end())
        return; // it was in what has just left
    const bool isFolder = (mask & IN_ISDIR) != 0;
    if ((mask & IN_MOVED_FROM) && isFolder) {
        EndMove();
        if (const auto child = folder.children.find(name); child != folder.children.end()) {
            m_moving = child->second;
            m_movingCookie = cookie;
            Detach(*m_moving);
        }
    } else if ((mask & IN_MOVED_TO) && isFolder && m_moving && cookie == m_movingCookie) {
        Folder& moved = *std::exchange(m_moving, nullptr);
        Attach(moved, &folder, name);
        Announce(moved);
    } else if ((mask & (IN_CREATE | IN_MOVED_TO)) && isFolder) {
        Follow(&folder, name, Found::Later);
    } else if ((mask & IN_MOVED_TO) && !isFolder) {
        m_sink.OnFile(PathOf(folder) / name, AS_DIRECTION_RENAME);
    } else if (mask & IN_CLOSE_WRITE) {
        m_sink.OnFile(PathOf(folder) / name, AS_DIRECTION_WRITE);
    }
}

} // namespace vlt::scan
