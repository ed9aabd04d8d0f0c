#include "platform/posix/kernel/ObjectFile.h"

#include "platform/posix/core/Error.h"
#include "platform/posix/kernel/Futex.h"
#include "platform/posix/kernel/ObjectName.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <limits>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace vlt::posix
{
namespace
{

// Version 2. All of it but the state is written once, before anybody else holds the object.
struct Header {
    char magic[8];
    std::uint32_t version;
    std::uint32_t kind;
    std::uint32_t parameter;
    std::uint32_t nameLength;
    std::uint64_t dataSize;
    std::uint8_t reserved[32];
    alignas(64) std::uint8_t state[ObjectFile::StateSize];
    char16_t name[ObjectNameLimit]; // whole, since long names share their file name's hash
};
static_assert(offsetof(Header, state) == ObjectFile::StateOffset && offsetof(Header, name) == 128);
static_assert(sizeof(Header) == 704 && sizeof(Header) <= ObjectFile::DataOffset);
constexpr char Magic[8] = {'V', 'L', 'T', 'O', 'B', 'J', '\r', '\n'};
constexpr std::uint32_t Version = 2;

// A maker or remover needs microseconds; one that is stopped must not stop everybody else for ever.
constexpr DWORD BusyLimit = 10000;

// Up to here zeros are written, which takes the room at once; making the file system allocate takes
// hundreds of microseconds on ext4.
constexpr std::uint64_t WriteLimit = 256 * 1024;

bool SetLock(int file, short type) noexcept
{
    struct flock lock {
    };
    lock.l_type = type;
    return fcntl(file, F_OFD_SETLK, &lock) == 0;
}

// F_UNLCK when nobody else holds a lock, or the type of one that somebody holds.
short OthersLock(int file) noexcept
{
    struct flock lock {
    };
    lock.l_type = F_WRLCK;
    return fcntl(file, F_OFD_GETLK, &lock) == 0 ? lock.l_type : static_cast<short>(F_WRLCK);
}

bool IsLinked(int file) noexcept
{
    struct stat status {
    };
    return fstat(file, &status) == 0 && status.st_nlink != 0;
}

// Bytes of the file of an object with that much data; 0 when no file can be that large.
off_t FileSize(std::uint64_t dataSize) noexcept
{
    if (dataSize == 0)
        return sizeof(Header);
    constexpr std::uint64_t page = ObjectFile::DataOffset;
    constexpr std::uint64_t limit = std::numeric_limits<off_t>::max() - 2 * page;
    return dataSize > limit ? 0 : static_cast<off_t>((dataSize + 2 * page - 1) / page * page);
}

// 0 or errno.
int WriteAll(int file, const char* bytes, std::size_t size) noexcept
{
    for (std::size_t done = 0; done < size;) {
        const ssize_t written = pwrite(file, bytes + done, size - done, static_cast<off_t>(done));
        if (written < 0 && errno != EINTR)
            return errno;
        done += written > 0 ? static_cast<std::size_t>(written) : 0;
    }
    return 0;
}

// Without a privilege older kernels refuse the first way.
bool Link(int file, const std::string& path) noexcept
{
    if (linkat(file, "", AT_FDCWD, path.c_str(), AT_EMPTY_PATH) == 0)
        return true;
    if (errno != ENOENT && errno != EPERM)
        return false;
    char self[32];
    std::snprintf(self, sizeof self, "/proc/self/fd/%d", file);
    return linkat(AT_FDCWD, self, AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

class Patience
{
public:
    // False when the time is up.
    bool Pause() noexcept
    {
        if (!m_limit)
            m_limit.emplace(BusyLimit);
        const timespec left = m_limit->Remaining();
        const timespec moment{0, 50'000};
        nanosleep(&moment, nullptr);
        return left.tv_sec != 0 || left.tv_nsec != 0;
    }

private:
    std::optional<Deadline> m_limit;
};

} // namespace

ObjectFile::Hold ObjectFile::TryHold(int file) noexcept
{
    switch (OthersLock(file)) {
    case F_UNLCK:
        return SetLock(file, F_WRLCK) ? Hold::Dead : Hold::Busy;
    case F_RDLCK:
        // Fails when the last holder has gone since and the file is being removed.
        return SetLock(file, F_RDLCK) ? Hold::Held : Hold::Busy;
    default:
        return Hold::Busy;
    }
}

// Of a held file.
DWORD ObjectFile::Check(int file, std::u16string_view name, ObjectKind kind) noexcept
{
    struct stat status {
    };
    Header header{};
    if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode) ||
        pread(file, &header, sizeof header, 0) != static_cast<ssize_t>(sizeof header))
        return ERROR_INVALID_HANDLE;
    if (status.st_nlink == 0)
        return ERROR_FILE_NOT_FOUND;
    const off_t size = FileSize(header.dataSize);
    if (std::memcmp(header.magic, Magic, sizeof Magic) != 0 || header.version != Version ||
        header.kind != static_cast<std::uint32_t>(kind) || header.nameLength != name.size() ||
        std::u16string_view(header.name, name.size()) != name || size == 0 || status.st_size < size ||
        (kind == ObjectKind::Section) != (header.dataSize != 0))
        return ERROR_INVALID_HANDLE;
    m_parameter = header.parameter;
    m_dataSize = header.dataSize;
    return 0;
}

ObjectFile::Step ObjectFile::HoldExisting(Fd file, std::u16string_view name, ObjectKind kind, bool& dead,
                                          DWORD& error) noexcept
{
    Patience patience;
    for (;;) {
        switch (TryHold(file.Get())) {
        case Hold::Held:
            error = Check(file.Get(), name, kind);
            m_file = std::move(file);
            if (error == 0)
                return Step::Done;
            Release(); // the holders may have gone meanwhile and left it to us
            return error == ERROR_FILE_NOT_FOUND ? Step::Again : Step::Done;
        case Hold::Dead:
            dead = IsLinked(file.Get());
            if (!dead || unlink(m_path.c_str()) == 0)
                return Step::Again;
            // Of another account, which alone can remove it.
            m_file = std::move(file);
            return Step::Done;
        case Hold::Busy:
            // The remover's lock can last as long as its process uses what it has mapped.
            if (!IsLinked(file.Get()))
                return Step::Again;
            if (!patience.Pause()) {
                error = ERROR_ACCESS_DENIED;
                return Step::Done;
            }
        }
    }
}

DWORD ObjectFile::Open(std::u16string_view name, ObjectKind kind)
{
    for (;;) {
        Fd file(open(m_path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
        if (!file)
            return ErrorFromErrno(errno);
        bool dead = false;
        DWORD error = 0;
        if (HoldExisting(std::move(file), name, kind, dead, error) == Step::Again)
            continue;
        if (dead)
            SetLock(m_file.Get(), F_UNLCK);
        return dead ? ERROR_FILE_NOT_FOUND : error;
    }
}

// Called with the file locked exclusively; holds it afterwards.
DWORD ObjectFile::Fill(int file, const Request& request, Initialise initialise, const void* context)
{
    const off_t size = FileSize(request.dataSize);
    const bool allocate = request.dataSize > WriteLimit;
    std::vector<char> bytes(size == 0 || allocate ? sizeof(Header) : static_cast<std::size_t>(size));
    Header header{};
    std::memcpy(header.magic, Magic, sizeof Magic);
    header.version = Version;
    header.kind = static_cast<std::uint32_t>(request.kind);
    header.parameter = m_parameter = request.parameter;
    header.dataSize = m_dataSize = request.dataSize;
    header.nameLength = static_cast<std::uint32_t>(request.name.size());
    request.name.copy(header.name, ObjectNameLimit);
    initialise(header.state, context);
    std::memcpy(bytes.data(), &header, sizeof header);
    // All room is taken now: a full disk must not be found by whoever touches the memory.
    int error = size == 0 ? EFBIG : WriteAll(file, bytes.data(), bytes.size());
    if (error == 0 && allocate)
        error = posix_fallocate(file, 0, size);
    if (error == 0 && !SetLock(file, F_RDLCK))
        error = errno;
    if (error == ENOSPC || error == EFBIG || error == EDQUOT)
        return ERROR_COMMITMENT_LIMIT;
    return error == 0 ? 0 : ErrorFromErrno(error);
}

// The file has its mode, its contents and this holder's lock before it has its name, so nobody ever sees
// less of it. Whoever is killed before leaves nothing.
ObjectFile::Step ObjectFile::Make(const Request& request, Initialise initialise, const void* context, DWORD& error)
{
    const mode_t mode = request.forEveryone ? 0666 : 0600;
    const std::string folder = m_path.substr(0, m_path.rfind('/'));
    Fd file(open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, mode));
    if (!file && (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL))
        return MakeNamed(request, initialise, context, error);
    if (!file || (request.forEveryone && fchmod(file.Get(), mode) != 0)) {
        error = ErrorFromErrno(errno);
        return Step::Done;
    }
    error = Fill(file.Get(), request, initialise, context);
    if (error != 0)
        return Step::Done;
    if (!Link(file.Get(), m_path)) {
        if (errno == EEXIST)
            return Step::Again;
        return MakeNamed(request, initialise, context, error);
    }
    m_file = std::move(file);
    return Step::Done;
}

// Where the file system knows no files without a name: until the new one has its mode, other accounts
// are refused.
ObjectFile::Step ObjectFile::MakeNamed(const Request& request, Initialise initialise, const void* context, DWORD& error)
{
    // An existing file of another account in a folder open to all may only be opened without O_CREAT
    // (fs.protected_regular), so this one is always new.
    const mode_t mode = request.forEveryone ? 0666 : 0600;
    Fd file(open(m_path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode));
    if (!file || (request.forEveryone && fchmod(file.Get(), mode) != 0)) {
        error = ErrorFromErrno(errno);
        return !file && errno == EEXIST ? Step::Again : Step::Done;
    }
    // Somebody may have taken it for a dead one's before it was locked.
    if (!SetLock(file.Get(), F_WRLCK) || !IsLinked(file.Get()))
        return Step::Again;
    error = Fill(file.Get(), request, initialise, context);
    if (error == 0)
        m_file = std::move(file);
    else
        unlink(m_path.c_str());
    return Step::Done;
}

DWORD ObjectFile::Create(const Request& request, Initialise initialise, const void* context, bool& made)
{
    for (;;) {
        DWORD error = 0;
        bool dead = false;
        Step step = Step::Done;
        Fd file(open(m_path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
        made = !file && errno == ENOENT;
        if (made)
            step = Make(request, initialise, context, error);
        else if (!file)
            return ErrorFromErrno(errno);
        else
            step = HoldExisting(std::move(file), request.name, request.kind, dead, error);
        if (step == Step::Again)
            continue;
        if (!dead)
            return error;
        // It cannot be removed but is open to us: used anew. Not for data, which may still be mapped;
        // the state of a closed object is looked at by waits in progress at most.
        made = true;
        error = request.dataSize != 0 ? ERROR_ACCESS_DENIED : Fill(m_file.Get(), request, initialise, context);
        if (error != 0)
            SetLock(m_file.Get(), F_UNLCK);
        return error;
    }
}

bool ObjectFile::Release() noexcept
{
    // First given up, then looked at: of two last holders at least one finds that it was the last.
    SetLock(m_file.Get(), F_UNLCK);
    if (OthersLock(m_file.Get()) != F_UNLCK || !SetLock(m_file.Get(), F_WRLCK))
        return false;
    if (IsLinked(m_file.Get()) && unlink(m_path.c_str()) != 0)
        SetLock(m_file.Get(), F_UNLCK);
    return true;
}

void ObjectFile::Park() noexcept
{
    SetLock(m_file.Get(), F_UNLCK);
}

ObjectFile::Retaken ObjectFile::Retake() noexcept
{
    const Hold hold = TryHold(m_file.Get());
    struct stat status {
    };
    if (hold != Hold::Busy && fstat(m_file.Get(), &status) == 0 && status.st_nlink != 0 &&
        status.st_size >= FileSize(m_dataSize))
        return hold == Hold::Held ? Retaken::Held : Retaken::Dead;
    if (hold != Hold::Busy)
        Release();
    return Retaken::No;
}

bool ObjectFile::Revive() noexcept
{
    return SetLock(m_file.Get(), F_RDLCK);
}

std::uint32_t ObjectFile::ParameterIn(const void* page) noexcept
{
    return static_cast<const Header*>(page)->parameter;
}

} // namespace vlt::posix
