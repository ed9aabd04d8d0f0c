// What a scan handle does to single files on demand.
#include "suite/ArdScan/Engine.h"

#include "platform/Text.h"
#include "suite/ArdScan/Cleaner.h"
#include "suite/ArdScan/Encoder.h"

#include <algorithm>
#include <thread>

namespace vlt::scan
{
namespace
{

// A path that a field cannot hold is left out: a shortened one would lead to another file.
template <std::size_t N>
void PathToField(WCHAR (&field)[N], WStringView path)
{
    CopyToField(field, path.size() < N ? path : WStringView());
}

} // namespace

// Callbacks of scans on demand come on a thread of the library's own, but while the caller is in the call.
std::int32_t CEngine::ScanFile(WStringView path)
{
    AsScanResultCallback callback;
    void* context;
    {
        const std::lock_guard lock(m_lock);
        callback = m_resultCallback;
        context = m_resultContext;
    }
    CJudge judge(m_context);
    const Snapshot& now = judge.Refresh();
    CHostFile file;
    Threat threat{};
    Verdict verdict = Verdict::Failed;
    if (file.Open(ToHost(path)) == OpenResult::Opened)
        verdict = judge.Scan(
            file.Size(), [&](std::span<std::uint8_t> buffer) { return file.Read(buffer); }, threat);
    if (verdict == Verdict::Failed) {
        Result(AS_E_FILE);
        return -AS_E_FILE;
    }
    Result(AS_OK);
    if (verdict != Verdict::Infected)
        return 0;
    if (callback) {
        AsScanResultRecord record{};
        const std::string& name = threat.signature->name;
        std::copy_n(name.begin(), std::min(name.size(), std::size(record.threatName) - 1), record.threatName);
        CScanner scanner;
        record.status = IsCleanable(file, *now.patterns, now.policy.filter, scanner) ? 1 : 2;
        CopyToField(record.path, path);
        std::thread([&] { callback(context, &record); }).join();
    }
    return 1;
}

AsError CEngine::ManualAction(const HostPath& path, std::uint32_t action)
{
    {
        const std::lock_guard lock(m_lock);
        if (m_onAccess || !m_configured)
            return AS_E_STATE;
    }
    if (action != AS_ACTION_CLEAN)
        return AS_E_NOT_SUPPORTED;
    CHostFile file;
    if (file.Open(path) != OpenResult::Opened)
        return AS_E_FILE;
    const CFilesInWork::Claim claim(m_context.filesInWork, file.Id());
    const auto now = m_context.Current();
    CScanner scanner;
    return claim ? CleanFile(file, path, *now->patterns, now->policy.filter, scanner, now->policy.backup) : AS_E_STATE;
}

AsError CEngine::Encode(const HostPath& source, const HostPath& destination)
{
    CHostFile file;
    if (source.empty() || destination.empty())
        return AS_E_ARGUMENT;
    if (file.Open(source) != OpenResult::Opened)
        return AS_E_FILE;
    WString path = ToWindows(std::filesystem::absolute(source));
    // A file that was restored to be looked at and is put back still comes from where it was first.
    CHostFile before;
    if (before.Open(destination) == OpenResult::Opened)
        if (const auto header = ReadEncodedFile(before))
            path = header->path;
    before.Close();
    return EncodeFile(file, path, destination, IfThere::Replace);
}

AsError CEngine::Restore(const HostPath& file, const HostPath& destination)
{
    CHostFile encoded;
    if (file.empty() || destination.empty())
        return AS_E_ARGUMENT;
    return encoded.Open(file) == OpenResult::Opened ? RestoreFile(encoded, destination) : AS_E_FILE;
}

AsError CEngine::BackupInfo(const HostPath& file, AsBackupInfoW& info)
{
    CHostFile encoded;
    if (encoded.Open(file) != OpenResult::Opened)
        return AS_E_FILE;
    const auto header = ReadEncodedFile(encoded);
    if (!header)
        return AS_E_FORMAT;
    info = {};
    PathToField(info.sourcePath, header->path);
    PathToField(info.backupPath, ToWindows(std::filesystem::absolute(file)));
    info.time = static_cast<std::uint32_t>(header->time);
    info.encoded = 1;
    return AS_OK;
}

} // namespace vlt::scan
