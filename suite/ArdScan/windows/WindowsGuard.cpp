// Detection after write with directory change notification: one watch for each folder, all on one
// completion port. Changes are reported after the fact and without the process that made them.
#include "suite/ArdScan/Guard.h"

#include "suite/ArdScan/AfterWrite.h"

#include <array>
#include <map>
#include <optional>

namespace vlt::scan
{
namespace
{

namespace fs = std::filesystem;

// A folder that is watched. The system writes to the buffer until the completion of the last read.
struct Watch {
    OVERLAPPED overlapped{};
    HANDLE folder = INVALID_HANDLE_VALUE;
    HostPath path;
    alignas(DWORD) std::array<BYTE, 16384> buffer;

    ~Watch()
    {
        if (folder != INVALID_HANDLE_VALUE)
            CloseHandle(folder);
    }
};

class CWindowsGuard final : public CGuard
{
public:
    CWindowsGuard(CScanContext& context, const EngineSettings& settings);
    ~CWindowsGuard() override;

    bool Ok() const { return m_port != nullptr; }
    void ForgetVerdicts() override {} // none are kept

private:
    void Follow(const HostPath& folder, bool scanFiles);
    bool Read(Watch& watch);
    void OnChanges(Watch& watch, DWORD size);
    void OnChange(const HostPath& path, DWORD action);
    void Drop(Watch& watch);
    void Run();

    CScanContext& m_context;
    HANDLE m_port = nullptr;
    std::map<HostPath, std::unique_ptr<Watch>> m_watches;
    std::optional<CAfterWrite> m_afterWrite;
    std::thread m_thread;
};

CWindowsGuard::CWindowsGuard(CScanContext& context, const EngineSettings& settings)
    : m_context(context), m_port(CreateIoCompletionPort(INVALID_HANDLE_VALUE, nullptr, 0, 1))
{
    if (!m_port)
        return;
    m_afterWrite.emplace(context);
    std::vector<std::string> shown;
    for (const std::string& folder : settings.folders) {
        const HostPath path = ToHostUtf8(folder).lexically_normal();
        Follow(path, false);
        shown.push_back(ToUtf8(path) + (m_watches.contains(path) ? "" : " (missing)"));
    }
    m_context.status.SetFolders(std::move(shown));
    m_context.status.SetMode("detection after write", "there is no filter driver on this system");
    m_thread = std::thread([this] { Run(); });
}

CWindowsGuard::~CWindowsGuard()
{
    if (!m_port)
        return;
    // The thread cancels the reads and ends when the last one has completed: the buffers stay until then.
    PostQueuedCompletionStatus(m_port, 0, 0, nullptr);
    m_thread.join();
    CloseHandle(m_port);
}

void CWindowsGuard::Follow(const HostPath& folder, bool scanFiles)
{
    if (m_watches.contains(folder))
        return;
    auto watch = std::make_unique<Watch>();
    watch->path = folder;
    watch->folder = CreateFileW(
        folder.c_str(), FILE_LIST_DIRECTORY, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
        OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OVERLAPPED | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (watch->folder == INVALID_HANDLE_VALUE)
        return;
    BY_HANDLE_FILE_INFORMATION info{};
    if (!GetFileInformationByHandle(watch->folder, &info) || !(info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) ||
        (info.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT))
        return;
    if (!CreateIoCompletionPort(watch->folder, m_port, reinterpret_cast<ULONG_PTR>(watch.get()), 0) || !Read(*watch)) {
        m_context.status.Count(Counter::Errors);
        return;
    }
    m_watches.emplace(folder, std::move(watch));

    // The watch came first, so what is made meanwhile is told of; it may then be seen twice.
    WIN32_FIND_DATAW data{};
    const HANDLE find = FindFirstFileW((folder / TEXT("*")).c_str(), &data);
    if (find == INVALID_HANDLE_VALUE)
        return;
    do {
        const WStringView name = data.cFileName;
        if (name == TEXT(".") || name == TEXT("..") || (data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT))
            continue;
        if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
            Follow(folder / name, scanFiles);
        else if (scanFiles)
            OnChange(folder / name, FILE_ACTION_RENAMED_NEW_NAME);
    } while (FindNextFileW(find, &data));
    FindClose(find);
}

bool CWindowsGuard::Read(Watch& watch)
{
    watch.overlapped = {};
    return ReadDirectoryChangesW(watch.folder, watch.buffer.data(), static_cast<DWORD>(watch.buffer.size()), FALSE,
                                 FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_DIR_NAME | FILE_NOTIFY_CHANGE_SIZE |
                                     FILE_NOTIFY_CHANGE_LAST_WRITE,
                                 nullptr, &watch.overlapped, nullptr) != 0;
}

void CWindowsGuard::OnChange(const HostPath& path, DWORD action)
{
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_REPARSE_POINT))
        return;
    if (attributes & FILE_ATTRIBUTE_DIRECTORY) {
        if (action != FILE_ACTION_MODIFIED)
            Follow(path, true);
        return;
    }
    const std::uint32_t direction = action == FILE_ACTION_RENAMED_NEW_NAME ? AS_DIRECTION_RENAME : AS_DIRECTION_WRITE;
    if (m_context.Current()->policy.Wants(direction) && !m_afterWrite->Add(path, direction))
        m_context.status.Count(Counter::Lost);
}

void CWindowsGuard::OnChanges(Watch& watch, DWORD size)
{
    if (size == 0) { // more changes than the buffer holds
        m_context.status.Count(Counter::Lost);
        std::error_code error;
        for (fs::directory_iterator it(watch.path, error), end; !error && it != end; it.increment(error))
            OnChange(it->path(), FILE_ACTION_ADDED);
        return;
    }
    for (DWORD at = 0; at < size;) {
        const auto* change = reinterpret_cast<const FILE_NOTIFY_INFORMATION*>(watch.buffer.data() + at);
        const HostPath path = watch.path / WString(change->FileName, change->FileNameLength / sizeof(WCHAR));
        if (change->Action == FILE_ACTION_REMOVED || change->Action == FILE_ACTION_RENAMED_OLD_NAME) {
            if (const auto child = m_watches.find(path); child != m_watches.end())
                CancelIoEx(child->second->folder, &child->second->overlapped); // ends with its completion
        } else {
            OnChange(path, change->Action);
        }
        if (change->NextEntryOffset == 0)
            break;
        at += change->NextEntryOffset;
    }
}

void CWindowsGuard::Drop(Watch& watch)
{
    // A folder that was renamed takes its own folders with it; they come back under the new name.
    const HostPath path = watch.path;
    m_watches.erase(path);
    for (auto& [name, below] : m_watches)
        if (name.native().starts_with(path.native() + WCHAR('\\')))
            CancelIoEx(below->folder, &below->overlapped);
}

void CWindowsGuard::Run()
{
    bool stopping = false;
    while (!stopping || !m_watches.empty()) {
        DWORD size = 0;
        ULONG_PTR key = 0;
        OVERLAPPED* overlapped = nullptr;
        const BOOL ok = GetQueuedCompletionStatus(m_port, &size, &key, &overlapped, INFINITE);
        if (!overlapped) {
            stopping = true;
            for (auto& [path, watch] : m_watches)
                CancelIoEx(watch->folder, &watch->overlapped);
            continue;
        }
        Watch& watch = *reinterpret_cast<Watch*>(key);
        if (!ok || stopping) {
            Drop(watch);
            continue;
        }
        OnChanges(watch, size);
        if (!Read(watch))
            Drop(watch);
    }
}

} // namespace

std::unique_ptr<CGuard> StartGuard(CScanContext& context, const EngineSettings& settings)
{
    auto guard = std::make_unique<CWindowsGuard>(context, settings);
    return guard->Ok() ? std::move(guard) : nullptr;
}

} // namespace vlt::scan
