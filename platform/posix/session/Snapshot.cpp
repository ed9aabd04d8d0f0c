#include "platform/posix/core/HandleTable.h"
#include "platform/posix/core/Utf.h"
#include "platform/posix/session/ProcessFacts.h"
#include "platform/posix/win32/session.h"

#include <map>

using namespace vlt::posix;

namespace
{

class SnapshotObject final : public Object
{
public:
    static constexpr ObjectKind kKind = ObjectKind::Snapshot;

    explicit SnapshotObject(std::vector<ProcessFacts> processes) noexcept
        : Object(kKind), m_processes(std::move(processes))
    {
    }

    void Rewind() noexcept { m_next = 0; }
    const ProcessFacts* Next() noexcept { return m_next < m_processes.size() ? &m_processes[m_next++] : nullptr; }

private:
    const std::vector<ProcessFacts> m_processes;
    std::size_t m_next = 0;
};

bool MayBeShell(const ProcessFacts& process, const Login& login)
{
    if (login.session == 0 || process.terminal == 0)
        return false;
    const auto credentials = ReadCredentials(process.id);
    return credentials && credentials->user == login.user;
}

std::vector<ProcessFacts> Collect()
{
    std::vector<ProcessFacts> processes;
    std::map<DWORD, std::size_t> shells; // by session
    for (const pid_t id : AllProcesses()) {
        auto facts = ReadProcessFacts(id);
        if (!facts)
            continue; // it has ended
        facts->name = ProgramName(id, facts->name);
        const Login login = ReadLogin(id);
        if (MayBeShell(*facts, login)) {
            const auto [shell, isFirst] = shells.try_emplace(login.session, processes.size());
            if (!isFirst && facts->start < processes[shell->second].start)
                shell->second = processes.size();
        }
        processes.push_back(std::move(*facts));
    }
    for (const auto& [session, index] : shells)
        processes[index].name = "Explorer.EXE";
    return processes;
}

BOOL Give(SnapshotObject& snapshot, LPPROCESSENTRY32W entry)
{
    if (!entry || entry->dwSize < sizeof *entry) {
        SetLastError(ERROR_BAD_LENGTH);
        return FALSE;
    }
    const ProcessFacts* const process = snapshot.Next();
    if (!process) {
        SetLastError(ERROR_NO_MORE_FILES);
        return FALSE;
    }
    *entry = {};
    entry->dwSize = sizeof *entry;
    entry->th32ProcessID = static_cast<DWORD>(process->id);
    entry->th32ParentProcessID = static_cast<DWORD>(process->parent);
    entry->cntThreads = process->threads;
    Utf16FromUtf8(process->name).copy(entry->szExeFile, MAX_PATH - 1);
    return TRUE;
}

} // namespace

HANDLE CreateToolhelp32Snapshot(DWORD flags, DWORD processId)
{
    static_cast<void>(processId); // of other kinds of snapshot
    if (flags != TH32CS_SNAPPROCESS) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return INVALID_HANDLE_VALUE;
    }
    const HANDLE handle = InsertHandle(std::make_unique<SnapshotObject>(Collect()));
    return handle ? handle : INVALID_HANDLE_VALUE;
}

BOOL Process32FirstW(HANDLE snapshot, LPPROCESSENTRY32W entry)
{
    const auto object = Pin<SnapshotObject>(snapshot);
    if (!object)
        return FALSE;
    object->Rewind();
    return Give(*object, entry);
}

BOOL Process32NextW(HANDLE snapshot, LPPROCESSENTRY32W entry)
{
    const auto object = Pin<SnapshotObject>(snapshot);
    return object ? Give(*object, entry) : FALSE;
}

BOOL ProcessIdToSessionId(DWORD processId, LPDWORD sessionId)
{
    const auto id = static_cast<pid_t>(processId);
    if (!sessionId || id <= 0 || !ReadProcessFacts(id)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    *sessionId = SessionOf(id);
    return TRUE;
}
