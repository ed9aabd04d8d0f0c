#include "platform/posix/registry/KeyStore.h"

#include "platform/posix/core/Error.h"
#include "platform/posix/core/MachineRoot.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace vlt::posix::registry
{
namespace
{

constexpr int FolderFlags = O_PATH | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW;
constexpr char View32[] = "@32";

// Opened once; the first of two threads wins.
int KeepOpen(std::atomic<int>& kept, int parent, const char* path) noexcept
{
    const int known = kept.load(std::memory_order_acquire);
    if (known >= 0)
        return known;
    const int fd = openat(parent, path, FolderFlags);
    int expected = -1;
    if (fd >= 0 && !kept.compare_exchange_strong(expected, fd, std::memory_order_acq_rel)) {
        close(fd);
        return expected;
    }
    return fd;
}

int KeepOrMake(std::atomic<int>& kept, const char* name) noexcept
{
    const int store = StoreFolder();
    if (store < 0)
        return -1;
    const int fd = KeepOpen(kept, store, name);
    if (fd >= 0 || errno != ENOENT)
        return fd;
    if (mkdirat(store, name, 0777) != 0 && errno != EEXIST)
        return -1;
    return KeepOpen(kept, store, name);
}

struct DirCloser {
    void operator()(DIR* dir) const noexcept { closedir(dir); }
};
using Dir = std::unique_ptr<DIR, DirCloser>;

// Reads the folder itself, not through the O_PATH descriptor.
Dir OpenDir(int parent, const char* path) noexcept
{
    const int fd = openat(parent, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW);
    DIR* const dir = fd >= 0 ? fdopendir(fd) : nullptr;
    if (!dir && fd >= 0)
        close(fd);
    return Dir(dir);
}

bool HasNoSubKeys(int folder) noexcept
{
    const Dir dir = OpenDir(folder, ".");
    while (const dirent* const entry = dir ? readdir(dir.get()) : nullptr)
        if (entry->d_name[0] == 'k')
            return false;
    return dir != nullptr;
}

// Removes a folder that nobody can open by name any more. A process that still has it open may add
// a value at any time, so a few rounds.
void Discard(int parent, const char* name) noexcept
{
    for (int round = 0; round < 8; ++round) {
        if (const Dir dir = OpenDir(parent, name))
            while (const dirent* const entry = readdir(dir.get()))
                if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
                    unlinkat(dirfd(dir.get()), entry->d_name, 0);
        if (unlinkat(parent, name, AT_REMOVEDIR) == 0 || errno != ENOTEMPTY)
            return;
    }
}

void MakeUniqueName(char (&name)[32]) noexcept
{
    std::uint64_t random = 0;
    if (getrandom(&random, sizeof(random), GRND_NONBLOCK) != sizeof(random)) {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        random = (static_cast<std::uint64_t>(getpid()) << 40) ^ static_cast<std::uint64_t>(now.tv_nsec);
    }
    std::snprintf(name, sizeof(name), "t%016llx", static_cast<unsigned long long>(random));
}

int OldFolder() noexcept
{
    static std::atomic<int> kept{-1};
    return KeepOrMake(kept, ".old");
}

// Held while a key is made or removed. What a killed process left behind is removed under it.
class StoreLock
{
public:
    StoreLock() noexcept : m_fd(openat(StoreFolder(), ".lock", O_RDWR | O_CREAT | O_CLOEXEC, 0666))
    {
        while (m_fd && flock(m_fd.Get(), LOCK_EX) != 0 && errno == EINTR) {
        }
    }
    explicit operator bool() const noexcept { return static_cast<bool>(m_fd); }

private:
    Fd m_fd;
};

void Sweep() noexcept
{
    if (const Dir old = OpenDir(OldFolder(), "."))
        while (const dirent* const entry = readdir(old.get()))
            if (entry->d_name[0] == 't')
                Discard(dirfd(old.get()), entry->d_name);
    static std::atomic<bool> swept{false};
    if (swept.exchange(true))
        return;
    const Dir made = OpenDir(NewFolder(), ".");
    const time_t now = time(nullptr);
    while (const dirent* const entry = made ? readdir(made.get()) : nullptr) {
        struct stat info {
        };
        if (entry->d_name[0] != 't' || fstatat(dirfd(made.get()), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0 ||
            now - info.st_mtime < 600)
            continue;
        if (S_ISDIR(info.st_mode))
            Discard(dirfd(made.get()), entry->d_name);
        else
            unlinkat(dirfd(made.get()), entry->d_name, 0);
    }
}

bool WriteName(int folder, WStringView name) noexcept
{
    const Fd file(openat(folder, ".name", O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    const std::size_t size = name.size() * sizeof(WCHAR);
    return file && write(file.Get(), name.data(), size) == static_cast<ssize_t>(size);
}

// Makes one level, complete with its name, or finds that another has made it.
LSTATUS MakeLevel(int parent, const char* file, WStringView name, bool& created) noexcept
{
    const StoreLock lock;
    const int made = NewFolder();
    if (!lock || made < 0)
        return StatusFromErrno(errno);
    Sweep();
    char unique[32];
    MakeUniqueName(unique);
    if (mkdirat(made, unique, 0777) != 0)
        return StatusFromErrno(errno);
    const Fd folder(openat(made, unique, FolderFlags));
    created = folder && WriteName(folder.Get(), name) && renameat2(made, unique, parent, file, RENAME_NOREPLACE) == 0;
    if (created)
        return ERROR_SUCCESS;
    const int error = errno;
    Discard(made, unique);
    return error == EEXIST ? ERROR_SUCCESS : StatusInKey(parent, error);
}

// The components of a sub-key path as names of folders.
class PathWalk
{
public:
    PathWalk(const KeyBase& base, WStringView path, REGSAM view) noexcept
        : m_rest(path), m_atMachine(base.isMachine), m_view(view)
    {
    }

    // The next component; false at the end, or with Error() set.
    bool Next() noexcept
    {
        while (!m_rest.empty() && m_rest.front() == u'\\')
            m_rest.remove_prefix(1);
        if (m_rest.empty())
            return false;
        name = m_rest.substr(0, m_rest.find(u'\\'));
        m_rest.remove_prefix(name.size());
        if (name.size() > MaxKeyName) {
            m_error = ERROR_INVALID_PARAMETER;
            return false;
        }
        MakeFileName('k', name, file);
        if (m_atMachine && (m_view & KEY_WOW64_32KEY) != 0 && std::strcmp(file.text, "ksoftware") == 0)
            std::strcat(file.text, View32);
        m_atMachine = false;
        return true;
    }
    DWORD Error() const noexcept { return m_error; }

    WStringView name;
    FileName file;

private:
    WStringView m_rest;
    bool m_atMachine;
    REGSAM m_view;
    DWORD m_error = 0;
};

// The whole path as one relative host path, "." for an empty one.
DWORD HostPath(const KeyBase& base, WStringView path, REGSAM view, char (&host)[PATH_MAX]) noexcept
{
    if (!path.empty() && path.front() == u'\\')
        return ERROR_BAD_PATHNAME;
    PathWalk walk(base, path, view);
    std::size_t length = 0;
    while (walk.Next()) {
        const std::size_t size = std::strlen(walk.file.text);
        if (length + size + 2 > sizeof(host))
            return ERROR_FILENAME_EXCED_RANGE;
        if (length != 0)
            host[length++] = '/';
        std::memcpy(host + length, walk.file.text, size);
        length += size;
    }
    if (length == 0)
        host[length++] = '.';
    host[length] = '\0';
    return walk.Error();
}

} // namespace

LSTATUS StatusFromErrno(int error) noexcept
{
    switch (error) {
    case EROFS:
        return ERROR_ACCESS_DENIED;
    case ENOTDIR:
        return ERROR_FILE_NOT_FOUND;
    case ELOOP:
    case EISDIR:
    case ENXIO:
        return ERROR_BADDB; // something of another kind lies there
    default:
        return static_cast<LSTATUS>(ErrorFromErrno(error));
    }
}

bool IsDeleted(int folder) noexcept
{
    struct stat info {
    };
    return fstat(folder, &info) == 0 && info.st_nlink == 0;
}

LSTATUS StatusInKey(int folder, int error) noexcept
{
    return error == ENOENT && IsDeleted(folder) ? ERROR_KEY_DELETED : StatusFromErrno(error);
}

int StoreFolder() noexcept
{
    static std::atomic<int> kept{-1};
    static const std::string& path = *new std::string(MachineFolder("registry"));
    return KeepOpen(kept, AT_FDCWD, path.c_str());
}

int NewFolder() noexcept
{
    static std::atomic<int> kept{-1};
    return KeepOrMake(kept, ".new");
}

Fd MakeNewFile(char (&name)[32]) noexcept
{
    const int folder = NewFolder();
    if (folder < 0)
        return Fd();
    MakeUniqueName(name);
    return Fd(openat(folder, name, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
}

LSTATUS OpenRoot(HKEY key, bool make, KeyBase& base, Fd& owned) noexcept
{
    static std::atomic<int> machine{-1};
    static std::atomic<int> users{-1};
    const bool isMachine = key == HKEY_LOCAL_MACHINE || key == HKEY_CLASSES_ROOT;
    std::atomic<int>& kept = isMachine ? machine : users;
    const char* const name = isMachine ? "machine" : "users";
    const int fd = make ? KeepOrMake(kept, name) : KeepOpen(kept, StoreFolder(), name);
    if (fd < 0)
        return StatusFromErrno(errno);
    base = {fd, key == HKEY_LOCAL_MACHINE};
    if (key == HKEY_LOCAL_MACHINE || key == HKEY_USERS)
        return ERROR_SUCCESS;
    const WStringView path = isMachine ? TEXT("SOFTWARE\\Classes") : TEXT(".DEFAULT");
    const KeyBase root{fd, isMachine};
    bool created = false;
    const LSTATUS status = make ? MakeKeyFolder(root, path, 0, owned, created) : OpenKeyFolder(root, path, 0, owned);
    base.folder = owned.Get();
    return status;
}

LSTATUS OpenKeyFolder(const KeyBase& base, WStringView path, REGSAM view, Fd& folder) noexcept
{
    char host[PATH_MAX];
    if (const DWORD error = HostPath(base, path, view, host))
        return static_cast<LSTATUS>(error);
    folder = Fd(openat(base.folder, host, FolderFlags));
    return folder ? ERROR_SUCCESS : StatusInKey(base.folder, errno);
}

LSTATUS MakeKeyFolder(const KeyBase& base, WStringView path, REGSAM view, Fd& folder, bool& created) noexcept
{
    created = false;
    LSTATUS status = OpenKeyFolder(base, path, view, folder);
    PathWalk walk(base, path, view);
    Fd parent;
    int at = base.folder;
    while (status == ERROR_FILE_NOT_FOUND && walk.Next()) {
        Fd next(openat(at, walk.file.text, FolderFlags));
        if (!next && errno == ENOENT) {
            const LSTATUS made = MakeLevel(at, walk.file.text, walk.name, created);
            if (made != ERROR_SUCCESS)
                return made;
            next = Fd(openat(at, walk.file.text, FolderFlags));
        }
        if (!next)
            return StatusInKey(at, errno);
        parent = std::move(next);
        at = parent.Get();
    }
    if (status == ERROR_FILE_NOT_FOUND) {
        folder = std::move(parent);
        status = ERROR_SUCCESS;
    }
    return status;
}

LSTATUS RemoveKeyFolder(const KeyBase& base, WStringView path, REGSAM view) noexcept
{
    char host[PATH_MAX];
    if (const DWORD error = HostPath(base, path, view, host))
        return static_cast<LSTATUS>(error);
    const StoreLock lock;
    const int old = OldFolder();
    if (!lock || old < 0)
        return StatusFromErrno(errno);
    Sweep();
    const Fd folder(openat(base.folder, host, FolderFlags));
    if (!folder)
        return StatusInKey(base.folder, errno);
    if (!HasNoSubKeys(folder.Get()))
        return ERROR_ACCESS_DENIED;
    char unique[32];
    MakeUniqueName(unique);
    if (renameat2(base.folder, host, old, unique, RENAME_NOREPLACE) != 0)
        return StatusInKey(base.folder, errno);
    Discard(old, unique);
    return ERROR_SUCCESS;
}

LSTATUS ListFolder(int folder, char prefix, bool isMachine, std::vector<std::string>& names)
{
    const Dir dir = OpenDir(folder, ".");
    if (!dir)
        return StatusInKey(folder, errno);
    names.clear();
    while (const dirent* const entry = readdir(dir.get()))
        if (entry->d_name[0] == prefix)
            names.emplace_back(entry->d_name);
    if (names.empty() && IsDeleted(folder))
        return ERROR_KEY_DELETED;
    // Both views of SOFTWARE are one name.
    if (isMachine)
        for (std::string& name : names)
            if (name.ends_with(View32) &&
                std::find(names.begin(), names.end(), name.substr(0, name.size() - 3)) != names.end())
                name.clear();
    std::erase(names, std::string());
    std::sort(names.begin(), names.end());
    return ERROR_SUCCESS;
}

WString NameOfKey(int parent, const char* file)
{
    const WString folded = NameOfFile(file);
    const Fd folder(openat(parent, file, FolderFlags));
    const Fd record(folder ? openat(folder.Get(), ".name", O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK) : -1);
    WCHAR buffer[MaxKeyName + 1];
    const ssize_t size = record ? read(record.Get(), buffer, sizeof(buffer)) : -1;
    if (size <= 0 || size % 2 != 0)
        return folded;
    const WStringView name(buffer, static_cast<std::size_t>(size) / sizeof(WCHAR));
    FileName expected;
    MakeFileName('k', name, expected);
    const std::string_view stored(file);
    return stored.substr(0, stored.find('@')) == expected.text ? WString(name) : folded;
}

} // namespace vlt::posix::registry
