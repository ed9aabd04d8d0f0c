// Linux: a named object is a file that each of its holders has locked. A process that ends without closing it
// leaves the file, without a lock; who uses the name next takes it over, unless it is another account's.
#include "platform/posix/core/Fd.h"
#include "platform/posix/core/MachineRoot.h"
#include "platform/win32.h"
#include "tools/vlctl/Doctor.h"

#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace vlt::ctl
{
namespace
{

namespace fs = std::filesystem;

constexpr DWORD MomentMilliseconds = 100; // in which a maker or a remover has done with its file

enum class Hold { Held, Removable, Foreign };

// One that cannot be opened is gone, or of another account, of which nothing is known.
Hold HoldOf(const fs::path& path)
{
    const posix::Fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    struct flock lock {
    };
    struct stat info {
    };
    lock.l_type = F_WRLCK;
    if (!file || fcntl(file.Get(), F_OFD_GETLK, &lock) != 0 || lock.l_type != F_UNLCK || fstat(file.Get(), &info) != 0)
        return Hold::Held;
    return geteuid() == 0 || geteuid() == info.st_uid ? Hold::Removable : Hold::Foreign;
}

} // namespace

std::vector<StaleObject> StaleObjects()
{
    std::vector<fs::path> free;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(posix::MachineFolder("objects"), error))
        if (entry.is_regular_file(error) && HoldOf(entry.path()) != Hold::Held)
            free.push_back(entry.path());
    if (!free.empty())
        Sleep(MomentMilliseconds);
    std::vector<StaleObject> stale;
    for (const fs::path& path : free)
        if (const Hold hold = HoldOf(path); hold != Hold::Held)
            stale.push_back({path.filename().string(), hold == Hold::Removable});
    return stale;
}

} // namespace vlt::ctl
