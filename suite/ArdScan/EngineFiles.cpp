// What a scan handle does to single files on demand.
#include "suite/ArdScan/Engine.h"

#include "platform/Text.h"
#include "suite/ArdScan/Encoder.h"

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
