#include "platform/posix/service/ServiceStore.h"

#include "platform/posix/core/Error.h"
#include "platform/posix/core/MachineRoot.h"
#include "platform/posix/core/Utf.h"
#include "platform/posix/registry/KeyName.h"
#include "platform/posix/registry/ValueFile.h"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace vlt::posix::service
{
namespace
{

constexpr std::uint32_t StatusMagic = 0x31535256; // "VRS1"

struct StatusRecord {
    std::uint32_t magic;
    std::uint32_t processId;
    SERVICE_STATUS status;
    std::uint32_t reserved;
    std::uint64_t check; // of the fields before it
};
static_assert(sizeof(SERVICE_STATUS) == 28);
static_assert(sizeof(StatusRecord) == 48 && offsetof(StatusRecord, status) == 8 && offsetof(StatusRecord, check) == 40);

std::uint64_t CheckOf(const StatusRecord& record)
{
    return registry::Check64(StatusMagic, std::as_bytes(std::span(&record, 1)).first(offsetof(StatusRecord, check)));
}

int ServicesFolder()
{
    static const int folder = open(MachineFolder("services").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    return folder;
}

DWORD ErrorFromHost()
{
    return errno == EROFS ? ERROR_ACCESS_DENIED : ErrorFromErrno(errno);
}

std::string FolderName(WStringView name)
{
    registry::FileName file;
    registry::MakeFileName('s', name, file);
    return file.text;
}

bool IsLocked(int folder)
{
    const Fd file(openat(folder, "process", O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    struct flock query {
    };
    query.l_type = F_WRLCK;
    query.l_whence = SEEK_SET;
    return file && fcntl(file.Get(), F_OFD_GETLK, &query) == 0 && query.l_type != F_UNLCK;
}

bool ReadStatus(int folder, StatusRecord& record)
{
    const Fd file(openat(folder, "status", O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    for (int attempt = 0; file && attempt < 1000; ++attempt) {
        if (pread(file.Get(), &record, sizeof(record), 0) != sizeof(record) || record.magic != StatusMagic)
            return false;
        if (record.check == CheckOf(record))
            return true;
        sched_yield();
    }
    return false;
}

bool WriteFile(int folder, const char* name, const std::string& text)
{
    const Fd file(openat(folder, name, O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644));
    const ssize_t done = file ? write(file.Get(), text.data(), text.size()) : -1;
    if (done >= 0 && done != static_cast<ssize_t>(text.size()))
        errno = ENOSPC;
    return done == static_cast<ssize_t>(text.size());
}

std::string ReadFile(int folder, const char* name)
{
    const Fd file(openat(folder, name, O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    std::string text;
    char buffer[4096];
    for (ssize_t got = 1; file && got > 0;) {
        got = read(file.Get(), buffer, sizeof(buffer));
        if (got > 0)
            text.append(buffer, static_cast<std::size_t>(got));
    }
    return text;
}

// The value of "key=" in the lines of a text.
std::string_view LineOf(std::string_view text, std::string_view key)
{
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        if (line.starts_with(key) && line.size() > key.size() && line[key.size()] == '=')
            return line.substr(key.size() + 1);
        text.remove_prefix(std::min(text.size(), line.size() + 1));
    }
    return {};
}

DWORD NumberOf(std::string_view text, std::string_view key)
{
    const std::string_view digits = LineOf(text, key);
    DWORD number = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return number;
}

void DiscardFolder(int parent, const char* name)
{
    const int folder = openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW);
    if (DIR* const dir = folder >= 0 ? fdopendir(folder) : nullptr) {
        while (const dirent* const entry = readdir(dir))
            unlinkat(folder, entry->d_name, 0);
        closedir(dir);
    } else if (folder >= 0) {
        close(folder);
    }
    unlinkat(parent, name, AT_REMOVEDIR);
}

std::string UniqueName()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    char name[64];
    std::snprintf(name, sizeof(name), ".t%ld-%ld%09ld", static_cast<long>(getpid()), static_cast<long>(now.tv_sec),
                  now.tv_nsec);
    return name;
}

// Takes the folder away in one step.
DWORD Discard(WStringView name)
{
    const std::string unique = UniqueName();
    if (renameat(ServicesFolder(), FolderName(name).c_str(), ServicesFolder(), unique.c_str()) != 0)
        return ErrorFromHost();
    DiscardFolder(ServicesFolder(), unique.c_str());
    return ERROR_SUCCESS;
}

Fd OpenFolder(WStringView name)
{
    return Fd(openat(ServicesFolder(), FolderName(name).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
}

} // namespace

DWORD ServiceFolder::Open(WStringView name, ServiceFolder& folder)
{
    folder.m_folder = OpenFolder(name);
    if (folder.m_folder && folder.IsMarked() && !folder.IsRunning()) {
        folder.RemoveIfMarked(name);
        folder.m_folder = OpenFolder(name);
    }
    if (folder.m_folder)
        return ERROR_SUCCESS;
    return errno == ENOENT ? ERROR_SERVICE_DOES_NOT_EXIST : ErrorFromHost();
}

DWORD ServiceFolder::Create(const ServiceConfig& config, ServiceFolder& folder)
{
    const DWORD known = Open(config.name, folder);
    if (known == ERROR_SUCCESS)
        return folder.IsMarked() ? ERROR_SERVICE_MARKED_FOR_DELETE : ERROR_SERVICE_EXISTS;
    if (known != ERROR_SERVICE_DOES_NOT_EXIST)
        return known;
    std::string text = "name=" + Utf8FromUtf16(config.name) + "\ndisplay=" + Utf8FromUtf16(config.displayName) +
                       "\npath=" + Utf8FromUtf16(config.path) + "\ntype=" + std::to_string(config.type) +
                       "\nstart=" + std::to_string(config.startType) +
                       "\nerror=" + std::to_string(config.errorControl) + '\n';
    const std::string unique = UniqueName();
    if (mkdirat(ServicesFolder(), unique.c_str(), 0755) != 0)
        return ErrorFromHost();
    ServiceFolder made;
    made.m_folder = Fd(openat(ServicesFolder(), unique.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    // With all its files in place a service can run on a full disk.
    const SERVICE_STATUS never{config.type, SERVICE_STOPPED, 0, ERROR_SERVICE_NEVER_STARTED, 0, 0, 0};
    if (made.m_folder && WriteFile(made.Get(), "config", text) && WriteFile(made.Get(), "process", "") &&
        WriteFile(made.Get(), "start", "") && made.WriteStatus(never) == ERROR_SUCCESS &&
        renameat2(ServicesFolder(), unique.c_str(), ServicesFolder(), FolderName(config.name).c_str(),
                  RENAME_NOREPLACE) == 0)
        return Open(config.name, folder);
    const DWORD error = errno == EEXIST ? ERROR_SERVICE_EXISTS : ErrorFromHost();
    DiscardFolder(ServicesFolder(), unique.c_str());
    return error;
}

DWORD ServiceFolder::ReadConfig(ServiceConfig& config) const
{
    const std::string text = ReadFile(Get(), "config");
    if (text.empty())
        return ERROR_SERVICE_MARKED_FOR_DELETE;
    config.name = Utf16FromUtf8(LineOf(text, "name"));
    config.displayName = Utf16FromUtf8(LineOf(text, "display"));
    config.path = Utf16FromUtf8(LineOf(text, "path"));
    config.type = NumberOf(text, "type");
    config.startType = NumberOf(text, "start");
    config.errorControl = NumberOf(text, "error");
    return ERROR_SUCCESS;
}

DWORD ServiceFolder::Remove(WStringView name)
{
    const Fd lock = LockStart();
    if (!lock)
        return errno == ENOENT ? ERROR_SERVICE_MARKED_FOR_DELETE : ErrorFromHost();
    struct stat info {
    };
    if (IsMarked() || (fstat(Get(), &info) == 0 && info.st_nlink == 0))
        return ERROR_SERVICE_MARKED_FOR_DELETE;
    if (!IsRunning())
        return Discard(name);
    return WriteFile(Get(), "deleted", "") ? ERROR_SUCCESS : ErrorFromHost();
}

bool ServiceFolder::IsMarked() const
{
    return faccessat(Get(), "deleted", F_OK, 0) == 0;
}

bool ServiceFolder::IsRunning() const
{
    return IsLocked(Get());
}

SERVICE_STATUS_PROCESS ServiceFolder::Query() const
{
    StatusRecord record{};
    bool running = false;
    bool known = false;
    // The process may come or go between the two looks.
    do {
        running = IsRunning();
        known = ReadStatus(Get(), record);
    } while (running != IsRunning());
    ServiceConfig config;
    SERVICE_STATUS_PROCESS result{};
    if (known) {
        const SERVICE_STATUS& status = record.status;
        result = {status.dwServiceType,
                  status.dwCurrentState,
                  status.dwControlsAccepted,
                  status.dwWin32ExitCode,
                  status.dwServiceSpecificExitCode,
                  status.dwCheckPoint,
                  status.dwWaitHint,
                  record.processId,
                  0};
    }
    if (!known || (!running && result.dwCurrentState != SERVICE_STOPPED)) {
        result = {};
        result.dwServiceType = ReadConfig(config) == ERROR_SUCCESS ? config.type : SERVICE_WIN32_OWN_PROCESS;
        result.dwCurrentState = running ? SERVICE_START_PENDING : SERVICE_STOPPED;
        if (!running)
            result.dwWin32ExitCode = known ? ERROR_PROCESS_ABORTED : ERROR_SERVICE_NEVER_STARTED;
    }
    if (result.dwCurrentState == SERVICE_STOPPED)
        result.dwProcessId = 0;
    return result;
}

bool ServiceFolder::LockProcess(Fd& lock) const
{
    lock = Fd(openat(Get(), "process", O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644));
    struct flock request {
    };
    request.l_type = F_WRLCK;
    request.l_whence = SEEK_SET;
    return lock && fcntl(lock.Get(), F_OFD_SETLK, &request) == 0;
}

DWORD ServiceFolder::WriteStatus(const SERVICE_STATUS& status) const
{
    StatusRecord record{StatusMagic, static_cast<std::uint32_t>(getpid()), status, 0, 0};
    record.check = CheckOf(record);
    const Fd file(openat(Get(), "status", O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644));
    if (file && pwrite(file.Get(), &record, sizeof(record), 0) == sizeof(record))
        return ERROR_SUCCESS;
    return ErrorFromHost();
}

void ServiceFolder::RemoveIfMarked(WStringView name) const
{
    const Fd lock = LockStart();
    if (lock && IsMarked() && !IsRunning())
        Discard(name);
}

Fd ServiceFolder::LockStart() const
{
    Fd lock(openat(Get(), "start", O_RDWR | O_CLOEXEC | O_NOFOLLOW));
    while (lock && flock(lock.Get(), LOCK_EX) != 0)
        if (errno != EINTR)
            return Fd();
    return lock;
}

} // namespace vlt::posix::service
