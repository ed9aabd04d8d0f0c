#include "suite/ArdScan/Actions.h"

#include "suite/ArdScan/Cleaner.h"

#include <chrono>

namespace vlt::scan
{
namespace
{

namespace fs = std::filesystem;

constexpr int MaxNames = 100;
constexpr std::size_t MaxPath = 259; // of the detection record's fields

bool Exists(const HostPath& path)
{
    std::error_code error;
    return exists(fs::symlink_status(path, error));
}

bool MakePrivateFolder(const HostPath& folder)
{
    std::error_code error;
    if (fs::create_directory(folder, error))
        fs::permissions(folder, fs::perms::owner_all, error);
    return fs::is_directory(fs::symlink_status(folder, error));
}

bool Quarantine(const InfectedFile& infected, const HostPath& folder, WString& encodedPath)
{
    const HostPath encoded = folder / ("AS" + UniqueDigits() + ".enc");
    const WString name = ToWindows(encoded);
    if (name.size() > MaxPath || !MakePrivateFolder(folder))
        return false;
    if (EncodeFile(infected.file, WString(infected.windowsPath), encoded, IfThere::Refuse) != AS_OK)
        return false;
    if (infected.file.Remove(infected.path)) {
        encodedPath = name;
        return true;
    }
    std::error_code error;
    fs::remove(encoded, error);
    return false;
}

// A second name where the file system can, else a copy; then the old name goes.
bool Relocate(const InfectedFile& infected, const HostPath& wish)
{
    for (int n = 0; n < MaxNames; ++n) {
        HostPath target = wish;
        if (n > 0) {
            target.replace_extension("." + std::to_string(n));
            target += wish.extension();
        }
        if (Exists(target))
            continue;
        if (!infected.file.Link(target) && CopyFileTo(infected.file, target, IfThere::Refuse) != AS_OK)
            return false;
        if (infected.file.Remove(infected.path))
            return true;
        std::error_code error;
        fs::remove(target, error);
        return false;
    }
    return false;
}

bool Rename(const InfectedFile& infected, WStringView extension)
{
    const WString end = FoldPath(extension);
    if (end.empty() || end.find_first_of(TEXT("\\/:")) != WString::npos)
        return false;
    if (FoldPath(infected.windowsPath).ends_with(end))
        return true; // by an action before
    HostPath target = infected.path;
    target += HostPath(WString(extension)).native();
    return Relocate(infected, target);
}

bool Move(const InfectedFile& infected, const WString& folder)
{
    if (folder.empty())
        return false;
    const HostPath target = ToHost(folder) / infected.path.filename();
    std::error_code error;
    if (fs::equivalent(target.parent_path(), infected.path.parent_path(), error))
        return true; // it lies there already
    fs::create_directories(target.parent_path(), error);
    return Relocate(infected, target);
}

bool Change(const InfectedFile& infected, std::uint32_t action, bool second, const HostPath& quarantineFolder,
            WString& encodedPath)
{
    const Policy& policy = infected.policy;
    switch (action) {
    case AS_ACTION_QUARANTINE:
        return Quarantine(infected, quarantineFolder, encodedPath);
    case AS_ACTION_CLEAN:
        return CleanFile(infected.file, infected.path, infected.patterns, policy.filter, infected.scanner,
                         policy.backup) == AS_OK;
    case AS_ACTION_DELETE:
        return infected.file.Remove(infected.path);
    case AS_ACTION_RENAME:
        return Rename(infected, policy.renameExtension[second]);
    case AS_ACTION_MOVE:
        return Move(infected, policy.moveFolder[second]);
    default:
        return false;
    }
}

} // namespace

CFilesInWork::Claim::Claim(CFilesInWork& files, const std::optional<FileId>& id)
    : m_files(files), m_id(id.value_or(FileId{})), m_mine(false)
{
    const std::lock_guard lock(files.m_lock);
    m_mine = id && files.m_ids.insert(m_id).second;
}

CFilesInWork::Claim::~Claim()
{
    if (!m_mine)
        return;
    const std::lock_guard lock(m_files.m_lock);
    m_files.m_ids.erase(m_id);
}

bool ChangeFile(const InfectedFile& infected, std::uint32_t action, bool second, const HostPath& quarantineFolder,
                WString& encodedPath) noexcept
{
    try {
        return Change(infected, action, second, quarantineFolder, encodedPath);
    } catch (const std::exception&) { // memory ran out, or a path is not text
        return false;
    }
}

void RemoveLeftovers(const HostPath& quarantineFolder)
{
    std::error_code error;
    for (fs::directory_iterator it(quarantineFolder, error), end; !error && it != end; it.increment(error)) {
        const std::string name = ToUtf8(it->path().filename());
        std::error_code failed;
        const auto written = it->last_write_time(failed);
        if (!failed && name.size() == 23 && name.starts_with("AS") && name.ends_with(".part") &&
            written < fs::file_time_type::clock::now() - std::chrono::hours(24))
            fs::remove(it->path(), failed);
    }
}

} // namespace vlt::scan
