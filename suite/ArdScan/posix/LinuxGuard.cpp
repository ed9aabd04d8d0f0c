// Prevention with fanotify where the process may, else detection after write with inotify.
#include "suite/ArdScan/Guard.h"

#include "suite/ArdScan/AfterWrite.h"
#include "suite/ArdScan/posix/FanotifyGroup.h"
#include "suite/ArdScan/posix/FolderTree.h"
#include "suite/ArdScan/posix/WriteWatch.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <set>
#include <sys/fanotify.h>
#include <sys/stat.h>

namespace vlt::scan
{
namespace
{

namespace fs = std::filesystem;

bool IsMountPoint(const fs::path& folder)
{
    struct stat own {
    }, above{};
    return folder.has_relative_path() && stat(folder.c_str(), &own) == 0 &&
           stat(folder.parent_path().c_str(), &above) == 0 && own.st_dev != above.st_dev;
}

std::uint64_t Permissions(const Policy& policy)
{
    return (policy.Wants(AS_DIRECTION_OPEN) ? FAN_OPEN_PERM : 0u) |
           (policy.Wants(AS_DIRECTION_EXECUTE) ? FAN_OPEN_EXEC_PERM : 0u);
}

class CLinuxGuard final : public CGuard, public IFolderSink
{
public:
    CLinuxGuard(CScanContext& context, const EngineSettings& settings);
    ~CLinuxGuard() override;

    bool Ok() const { return m_tree && m_tree->Ok(); }
    void ForgetVerdicts() override;

private:
    void OnFolder(const fs::path& folder) override;
    void OnFile(const fs::path& file, std::uint32_t direction) override;
    void OnLost() override;

    void ChooseRoots();
    void ChooseMode();
    bool MarkRoot(const fs::path& root);
    void Mark(const fs::path& folder);

    CScanContext& m_context;
    const EngineSettings m_settings;
    const std::uint64_t m_permissions;
    const bool m_network;
    std::vector<fs::path> m_roots;
    std::mutex m_lock; // of the group and the folders, between their changes
    std::unique_ptr<CFanotifyGroup> m_group;
    std::set<fs::path> m_marked; // folders with a mark of their own
    std::unique_ptr<CWriteWatch> m_writes;
    std::optional<CAfterWrite> m_afterWrite;
    std::unique_ptr<CFolderTree> m_tree;
};

CLinuxGuard::CLinuxGuard(CScanContext& context, const EngineSettings& settings)
    : m_context(context), m_settings(settings), m_permissions(Permissions(context.Current()->policy)),
      m_network(context.Current()->policy.network)
{
    ChooseRoots();
    ChooseMode();
    m_afterWrite.emplace(m_context);
    m_tree = std::make_unique<CFolderTree>(*this, m_roots, m_network, !m_writes);
}

CLinuxGuard::~CLinuxGuard()
{
    // Openers first; the threads that could still add marks or scans after.
    {
        const std::lock_guard lock(m_lock);
        m_group.reset();
    }
    m_tree.reset();
    m_writes.reset();
}

void CLinuxGuard::ChooseRoots()
{
    std::vector<std::string> shown;
    for (const std::string& folder : m_settings.folders) {
        std::error_code error;
        fs::path root = fs::canonical(ToHostUtf8(folder), error);
        if (error || !fs::is_directory(root, error)) {
            shown.push_back(folder + " (missing)");
            continue;
        }
        shown.push_back(root.native());
        if (std::find(m_roots.begin(), m_roots.end(), root) == m_roots.end())
            m_roots.push_back(std::move(root));
    }
    m_context.status.SetFolders(std::move(shown));
}

void CLinuxGuard::ChooseMode()
{
    auto& status = m_context.status;
    auto group = std::make_unique<CFanotifyGroup>(m_context, m_settings, m_permissions);
    if (!group->Ok()) {
        status.SetMode("detection after write", std::string("fanotify: ") + std::strerror(group->Error()));
        return;
    }
    auto writes = std::make_unique<CWriteWatch>(
        m_context,
        [this](int file) {
            const std::lock_guard lock(m_lock);
            if (m_group)
                m_group->Forget(file);
        },
        [this] { ForgetVerdicts(); });
    if (!writes->Ok()) {
        status.SetMode("detection after write", std::string("fanotify: ") + std::strerror(errno));
        return;
    }
    m_writes = std::move(writes);
    if (m_permissions == 0) {
        status.SetMode("detection after write", "neither opening nor execution is to be scanned");
        return;
    }
    m_group = std::move(group);
    if (m_roots.empty())
        status.SetMode("prevention", "no folder to guard");
    else
        status.SetMode("prevention", "");
    for (const fs::path& root : m_roots)
        if (m_writes && MarkRoot(root))
            m_writes->MarkWhole(root.c_str(), m_settings.mounts);
}

// True when one mark serves for everything below the root.
bool CLinuxGuard::MarkRoot(const fs::path& root)
{
    const bool whole = m_settings.mounts == MountPolicy::WholeFileSystem ||
                       (m_settings.mounts == MountPolicy::Automatic && IsMountPoint(root));
    return whole && m_group->MarkWhole(root.c_str(), m_settings.mounts);
}

void CLinuxGuard::OnFolder(const fs::path& folder)
{
    const std::lock_guard lock(m_lock);
    Mark(folder);
    m_marked.insert(folder);
}

void CLinuxGuard::Mark(const fs::path& folder)
{
    if (m_writes)
        m_writes->MarkFolder(folder.c_str());
    if (m_group && !m_group->MarkFolder(folder.c_str()) && errno != ENOENT)
        m_context.status.Count(Counter::Errors);
}

void CLinuxGuard::OnFile(const fs::path& file, std::uint32_t direction)
{
    if (m_context.Current()->policy.Wants(direction) && !m_afterWrite->Add(file, direction))
        m_context.status.Count(Counter::Lost);
}

void CLinuxGuard::OnLost()
{
    m_context.status.Count(Counter::Lost);
    m_context.status.Touch();
}

// A group cannot drop the verdicts it keeps without dropping its marks. So a new group takes over: both
// see the opens while it is marked, then the old one finishes what it has.
void CLinuxGuard::ForgetVerdicts()
{
    std::unique_ptr<CFanotifyGroup> old;
    {
        const std::lock_guard lock(m_lock);
        if (!m_group)
            return;
        auto next = std::make_unique<CFanotifyGroup>(m_context, m_settings, m_permissions);
        if (next->Ok()) {
            old = std::exchange(m_group, std::move(next));
        } else { // descriptors ran out; an instant without marks is better than verdicts that never end
            m_context.status.Count(Counter::Errors);
            m_group->RemoveMarks();
        }
        for (const fs::path& root : m_roots)
            MarkRoot(root);
        std::erase_if(m_marked, [&](const fs::path& folder) {
            return !m_group->MarkFolder(folder.c_str()) && (errno == ENOENT || errno == ENOTDIR);
        });
    }
    if (old)
        old->Drain();
}

} // namespace

std::unique_ptr<CGuard> StartGuard(CScanContext& context, const EngineSettings& settings)
{
    auto guard = std::make_unique<CLinuxGuard>(context, settings);
    return guard->Ok() ? std::move(guard) : nullptr;
}

} // namespace vlt::scan
