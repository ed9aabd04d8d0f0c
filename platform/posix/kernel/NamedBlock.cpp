#include "platform/posix/kernel/NamedBlock.h"

#include "platform/posix/core/Error.h"
#include "platform/posix/core/Fd.h"
#include "platform/posix/core/MachineRoot.h"
#include "platform/posix/core/Utf.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <new>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace vlt::posix
{
namespace
{

constexpr std::size_t NameLimit = 260;

// Version 1. All of it but the state is written once, under the folder's lock.
struct ObjectFile {
    char magic[8];
    std::uint32_t version;
    std::uint32_t kind;
    std::uint32_t parameter;
    std::uint32_t nameLength;
    std::uint64_t dataSize; // the data follows this page
    std::uint8_t reserved[32];
    alignas(64) std::uint8_t state[NamedBlock::StateSize];
    char16_t name[NameLimit]; // whole, since long names share their file name's hash
};
static_assert(offsetof(ObjectFile, state) == 64 && offsetof(ObjectFile, name) == 128);
static_assert(sizeof(ObjectFile) == 704 && sizeof(ObjectFile) <= NamedBlock::DataOffset);
constexpr char Magic[8] = {'V', 'L', 'T', 'O', 'B', 'J', '\r', '\n'};
constexpr std::uint32_t Version = 1;

// An existing file of another account in a folder open to all may only be opened without O_CREAT
// (fs.protected_regular).
Fd OpenOrMake(const std::string& path, mode_t mode, bool& made) noexcept
{
    for (int attempt = 0; attempt < 8; ++attempt) {
        made = false;
        Fd file(open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
        if (file || errno != ENOENT)
            return file;
        file = Fd(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode));
        made = static_cast<bool>(file);
        if (file && fchmod(file.Get(), mode) != 0)
            return Fd();
        if (file || errno != EEXIST)
            return file;
    }
    return Fd();
}

bool Lock(int descriptor, int operation) noexcept
{
    int result = 0;
    do {
        result = flock(descriptor, operation);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

// Held while a name is looked up, made or given up. A descriptor of its own for each use: so it
// excludes other threads as well as other processes, and goes with either.
class FolderLock
{
public:
    FolderLock() noexcept
    {
        bool made = false;
        m_file = OpenOrMake(MachineFolder("objects") + "/.lock", 0666, made);
        m_held = m_file && Lock(m_file.Get(), LOCK_EX);
    }
    explicit operator bool() const noexcept { return m_held; }

private:
    Fd m_file;
    bool m_held = false;
};

std::uint64_t Hash(std::string_view text, std::uint64_t seed) noexcept
{
    std::uint64_t hash = 0xCBF29CE484222325u ^ seed;
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3u;
    return hash;
}

// The session whose plain names this process sees; 0 shares its names with "Global\".
const std::string& Session()
{
    static const std::string& session = *new std::string([] {
        const char* given = std::getenv("VLT_SESSION");
        const unsigned long number = given ? std::strtoul(given, nullptr, 10) : 0;
        return std::to_string(number);
    }());
    return session;
}

void AppendHex(std::string& text, std::uint64_t value, int digits)
{
    for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4)
        text += "0123456789ABCDEF"[(value >> shift) & 15];
}

void* Map(int descriptor) noexcept
{
    void* const memory = mmap(nullptr, sizeof(ObjectFile), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    return memory == MAP_FAILED ? nullptr : memory;
}

// Bytes of the file of an object with that much data; 0 when no file can be that large.
off_t FileSize(std::uint64_t dataSize) noexcept
{
    if (dataSize == 0)
        return sizeof(ObjectFile);
    constexpr std::uint64_t limit = std::numeric_limits<off_t>::max() - 2 * NamedBlock::DataOffset;
    if (dataSize > limit)
        return 0;
    return static_cast<off_t>((dataSize + 2 * NamedBlock::DataOffset - 1) / NamedBlock::DataOffset *
                              NamedBlock::DataOffset);
}

// Room is taken when the object is made: a full disk must not be found by whoever touches the memory.
bool Reserve(int descriptor, std::uint64_t dataSize) noexcept
{
    const off_t size = FileSize(dataSize);
    const int error = size != 0 ? posix_fallocate(descriptor, 0, size) : EFBIG;
    if (error == 0)
        return true;
    SetLastError(error == ENOSPC || error == EFBIG ? ERROR_COMMITMENT_LIMIT : ErrorFromErrno(error));
    return false;
}

// A held file: is it this object? 0, or the error.
DWORD CheckHeld(int descriptor, const void* memory, std::u16string_view name, ObjectKind kind) noexcept
{
    struct stat status {
    };
    if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_size < static_cast<off_t>(sizeof(ObjectFile)))
        return ERROR_INVALID_HANDLE;
    if (!memory)
        return 0;
    const auto& file = *static_cast<const ObjectFile*>(memory);
    if (std::memcmp(file.magic, Magic, sizeof Magic) != 0 || file.version != Version ||
        file.kind != static_cast<std::uint32_t>(kind) || file.nameLength != name.size() ||
        std::u16string_view(file.name, name.size()) != name)
        return ERROR_INVALID_HANDLE;
    const off_t size = FileSize(file.dataSize);
    return size != 0 && status.st_size >= size ? 0 : ERROR_INVALID_HANDLE;
}

// Maps a fresh file, or one that others hold when it is this object, and becomes one of its holders.
// Null with the last error set.
void* MapAndHold(int descriptor, std::u16string_view name, ObjectKind kind, bool fresh) noexcept
{
    DWORD error = fresh ? 0 : CheckHeld(descriptor, nullptr, name, kind);
    void* const memory = error == 0 ? Map(descriptor) : nullptr;
    if (error == 0 && !memory)
        error = ErrorFromErrno(errno);
    if (error == 0 && !fresh)
        error = CheckHeld(descriptor, memory, name, kind);
    if (error == 0 && !Lock(descriptor, LOCK_SH))
        error = ErrorFromErrno(errno);
    if (error == 0)
        return memory;
    if (memory)
        munmap(memory, sizeof(ObjectFile));
    SetLastError(error);
    return nullptr;
}

} // namespace

bool ObjectFileName(std::u16string_view& name, std::string& file)
{
    if (name.size() > NameLimit) {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return false;
    }
    constexpr std::u16string_view global = u"Global\\";
    constexpr std::u16string_view local = u"Local\\";
    const bool everywhere = name.starts_with(global);
    if (everywhere)
        name.remove_prefix(global.size());
    else if (name.starts_with(local))
        name.remove_prefix(local.size());
    if (name.empty() || name.find(u'\\') != name.npos) {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return false;
    }
    const std::string text = Utf8FromUtf16(name);
    file = everywhere ? std::string(1, '0') : Session();
    file += '-';
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if ((byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') ||
            byte == '_') {
            file += c;
        } else {
            file += '%';
            AppendHex(file, byte, 2);
        }
    }
    if (file.size() > 200) {
        file.resize(120);
        file += '~';
        AppendHex(file, Hash(text, 0), 16);
        AppendHex(file, Hash(text, 0x9E3779B97F4A7C15u), 16);
    }
    return true;
}

NamedBlock::NamedBlock(std::string path, int descriptor, void* memory, std::uint64_t dataSize) noexcept
    : m_path(std::move(path)), m_descriptor(descriptor), m_memory(memory), m_dataSize(dataSize)
{
}

NamedBlock::~NamedBlock()
{
    ReleaseName();
    munmap(m_memory, sizeof(ObjectFile));
}

void* NamedBlock::State() const noexcept
{
    return static_cast<ObjectFile*>(m_memory)->state;
}
std::uint32_t NamedBlock::Parameter() const noexcept
{
    return static_cast<ObjectFile*>(m_memory)->parameter;
}

std::unique_ptr<NamedBlock> NamedBlock::Create(const Request& request, Initialise initialise, const void* context)
{
    std::string fileName;
    std::u16string_view name = request.name;
    if (!ObjectFileName(name, fileName))
        return nullptr;
    std::string path = MachineFolder("objects") + '/' + fileName;
    const FolderLock folder;
    if (!folder) {
        SetLastErrorFromErrno();
        return nullptr;
    }
    const mode_t mode = request.forEveryone ? 0666 : 0600;
    bool made = false;
    Fd file = OpenOrMake(path, mode, made);
    if (file && !made && Lock(file.Get(), LOCK_EX | LOCK_NB) && unlink(path.c_str()) == 0)
        file = OpenOrMake(path, mode, made); // was stale
    if (!file) {
        SetLastErrorFromErrno();
        return nullptr;
    }
    // Of another account, which alone can remove it, but open to us and without a holder: used anew.
    const bool fresh = made || Lock(file.Get(), LOCK_EX | LOCK_NB);
    // Never made shorter: a wait whose handle was closed may still look at it.
    if (fresh && !Reserve(file.Get(), request.dataSize)) {
        if (made)
            unlink(path.c_str());
        return nullptr;
    }
    void* const memory = MapAndHold(file.Get(), name, request.kind, fresh);
    if (!memory)
        return nullptr;
    if (fresh) {
        std::memset(memory, 0, sizeof(ObjectFile));
        auto& contents = *static_cast<ObjectFile*>(memory);
        std::memcpy(contents.magic, Magic, sizeof Magic);
        contents.version = Version;
        contents.kind = static_cast<std::uint32_t>(request.kind);
        contents.parameter = request.parameter;
        contents.dataSize = request.dataSize;
        contents.nameLength = static_cast<std::uint32_t>(name.size());
        name.copy(contents.name, NameLimit);
        initialise(contents.state, context);
    }
    SetLastError(fresh ? ERROR_SUCCESS : ERROR_ALREADY_EXISTS);
    return std::unique_ptr<NamedBlock>(
        new NamedBlock(std::move(path), file.Release(), memory, static_cast<const ObjectFile*>(memory)->dataSize));
}

std::unique_ptr<NamedBlock> NamedBlock::Open(std::u16string_view name, ObjectKind kind)
{
    std::string fileName;
    if (!ObjectFileName(name, fileName))
        return nullptr;
    std::string path = MachineFolder("objects") + '/' + fileName;
    const FolderLock folder;
    Fd file(folder ? open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW) : -1);
    if (!file) {
        SetLastErrorFromErrno();
        return nullptr;
    }
    if (Lock(file.Get(), LOCK_EX | LOCK_NB)) {
        unlink(path.c_str());
        SetLastError(ERROR_FILE_NOT_FOUND);
        return nullptr;
    }
    void* const memory = MapAndHold(file.Get(), name, kind, false);
    if (!memory)
        return nullptr;
    SetLastError(ERROR_SUCCESS);
    return std::unique_ptr<NamedBlock>(
        new NamedBlock(std::move(path), file.Release(), memory, static_cast<const ObjectFile*>(memory)->dataSize));
}

void NamedBlock::ReleaseName() noexcept
{
    if (m_descriptor < 0)
        return;
    const ErrnoKeeper keeper;
    const FolderLock folder;
    // A failed upgrade drops the shared lock, which is given up here in any case.
    if (folder && Lock(m_descriptor, LOCK_EX | LOCK_NB))
        unlink(m_path.c_str());
    close(std::exchange(m_descriptor, -1));
}

} // namespace vlt::posix
