#include "ARDCommon/AuDelayCopy.h"

#include "ARDCommon/ProgramFolder.h"
#include "ARDCommon/VlDebug.h"
#include "ARDCommon/VlFile.h"
#include "ARDCommon/VlIni.h"
#include "engine/Wow64FsRedir.h"
#include "platform/Format.h"
#include "platform/Text.h"

namespace
{

std::string ApplicationFolder()
{
    return vlt::ToNarrow(vlt::ApplicationFolder());
}

VlIni Record()
{
    return VlIni(ApplicationFolder() + "ardentis.ini", "AuArd");
}

bool IsNtFamily()
{
    OSVERSIONINFOW version{};
    version.dwOSVersionInfoSize = sizeof(version);
    return !GetVersionExW(&version) || version.dwPlatformId == VER_PLATFORM_WIN32_NT;
}

// The keys of a pair.
struct PairKeys {
    explicit PairKeys(unsigned index)
        : source(vlt::Format("SrcFile%u", index)), destination(vlt::Format("DstFile%u", index))
    {
    }
    std::string source;
    std::string destination;
};

bool IsCountValid(unsigned count)
{
    if (count <= CAuDelayCopy::kMostPairs)
        return true;
    VLT_TRACE(20, "too big count: %u", count);
    return false;
}

// Where pair `number` is staged; the same file name may come from two folders. That is where it lies when
// it has been staged under this number before.
std::string StagedPath(const std::string& folder, std::size_t number, const std::string& source)
{
    // In UTF-16, for the second byte of a character may look like a separator.
    const WString path = vlt::ToWide(source);
    const std::string name = vlt::ToNarrow(path.substr(VlFile::NamePosition(path)));
    const std::string digits = vlt::Format("%u", static_cast<unsigned>(number));
    const bool isStaged = source == folder + "\\" + name && name.starts_with(digits) &&
                          name.find_first_not_of("0123456789") == digits.size();
    return isStaged ? source : folder + "\\" + digits + name;
}

void Stage(DelayCopyPair& pair, const std::string& staged)
{
    if (staged == pair.source)
        return;
    const DWORD attributes = GetFileAttributesA(staged.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY) != 0)
        SetFileAttributesA(staged.c_str(), attributes & ~DWORD{FILE_ATTRIBUTE_READONLY});
    if (CopyFileA(pair.source.c_str(), staged.c_str(), FALSE))
        pair.source = staged;
    else
        VLT_TRACE(20, "CopyFile() failed: %d, src = %s, dest = %s", GetLastError(), pair.source, staged);
}

bool AppendToRecord(const DelayCopyList& pairs)
{
    unsigned count = 0;
    if (!CAuDelayCopy::ReadCount(count))
        return false;
    bool all = true;
    for (const DelayCopyPair& pair : pairs) {
        if (count == CAuDelayCopy::kMostPairs) {
            VLT_TRACE(20, "too many entries");
            all = false;
            break;
        }
        if (CAuDelayCopy::WritePair(count, pair.source, pair.destination))
            ++count;
        else
            all = false;
    }
    return CAuDelayCopy::WriteCount(count) && all;
}

// The short form of a path. The last error is 0 on success.
DWORD ShortPath(const std::string& path, std::string& result)
{
    char text[CAuDelayCopy::kPathLimit] = {};
    const DWORD length = GetShortPathNameA(path.c_str(), text, sizeof(text));
    if (length == 0)
        return GetLastError();
    if (length >= sizeof(text))
        return ERROR_INSUFFICIENT_BUFFER;
    result.assign(text, length);
    return NO_ERROR;
}

bool WriteRename(const VlIni& ini, const DelayCopyPair& pair)
{
    std::string source;
    if (const DWORD error = ShortPath(pair.source, source)) {
        VLT_TRACE(20, "GetShortPathName() failed: %d, src = %s", error, pair.source);
        return false;
    }
    std::string destination;
    if (const DWORD error = ShortPath(pair.destination, destination)) {
        if (error != ERROR_FILE_NOT_FOUND) {
            VLT_TRACE(20, "GetShortPathName() failed: %d, src = %s", error, pair.destination);
            return false;
        }
        destination = pair.destination.substr(0, CAuDelayCopy::kPathLimit - 1);
    }
    if (ini.WriteString(destination.c_str(), source))
        return true;
    VLT_TRACE(20, "VlIni::WriteString() failed");
    return false;
}

bool HandOver(const DelayCopyList& pairs)
{
    CWow64FsRedir redirection;
    redirection.Disable();
    bool all = true;
    for (const DelayCopyPair& pair : pairs) {
        if (!MoveFileExA(pair.source.c_str(), pair.destination.c_str(),
                         MOVEFILE_REPLACE_EXISTING | MOVEFILE_DELAY_UNTIL_REBOOT)) {
            VLT_TRACE(20, "MoveFileEx() failed: %d", GetLastError());
            all = false;
        }
    }
    redirection.Revert();
    return all;
}

} // namespace

bool CAuDelayCopy::Schedule(DelayCopyList pairs)
{
    const std::string folder = ApplicationFolder() + "NEW";
    if (!CreateDirectoryA(folder.c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS) {
        VLT_TRACE(20, "CreateDirectory() failed: %d", GetLastError());
        return false;
    }
    for (std::size_t i = 0; i < pairs.size(); ++i)
        Stage(pairs[i], StagedPath(folder, i + 1, pairs[i].source));
    return IsNtFamily() ? AppendToRecord(pairs) : WriteWinInit(pairs);
}

bool CAuDelayCopy::DoMoveFileEx()
{
    if (!IsNtFamily())
        return true;
    DelayCopyList pairs;
    if (!ReadRecord(pairs))
        return false;
    if (pairs.empty())
        return true;
    return HandOver(pairs) && DeleteRecord();
}

bool CAuDelayCopy::ReadRecord(DelayCopyList& pairs)
{
    pairs.clear();
    unsigned count = 0;
    if (!ReadCount(count))
        return false;
    const VlIni ini = Record();
    constexpr DWORD longest = DWORD{kPathLimit} - 1;
    for (unsigned index = 0; index < count; ++index) {
        const PairKeys keys(index);
        DelayCopyPair pair;
        if (ini.ReadString(keys.source.c_str(), pair.source, longest) &&
            ini.ReadString(keys.destination.c_str(), pair.destination, longest))
            pairs.push_back(std::move(pair));
    }
    return true;
}

bool CAuDelayCopy::ReadCount(unsigned& count)
{
    count = Record().ReadUint("Count", 0);
    return IsCountValid(count);
}

bool CAuDelayCopy::WriteCount(unsigned count)
{
    if (!IsCountValid(count))
        return false;
    if (Record().WriteUint("Count", count))
        return true;
    VLT_TRACE(20, "VlIni::WriteUint() failed");
    return false;
}

bool CAuDelayCopy::WritePair(unsigned index, const std::string& source, const std::string& destination)
{
    if (source.size() >= kPathLimit || destination.size() >= kPathLimit) {
        VLT_TRACE(20, "too long path: src = %s, dst = %s", source, destination);
        return false;
    }
    if (index >= kMostPairs) {
        VLT_TRACE(20, "invalid index: %d", index);
        return false;
    }
    const VlIni ini = Record();
    const PairKeys keys(index);
    if (ini.WriteString(keys.source.c_str(), source) && ini.WriteString(keys.destination.c_str(), destination))
        return true;
    VLT_TRACE(20, "VlIni::WriteString() failed");
    return false;
}

bool CAuDelayCopy::DeleteRecord()
{
    if (Record().DeleteSection())
        return true;
    VLT_TRACE(20, "VlIni::DeleteSection() failed");
    return false;
}

bool CAuDelayCopy::WriteWinInit(const DelayCopyList& pairs)
{
    const VlIni ini("wininit.ini", "rename");
    bool all = true;
    for (const DelayCopyPair& pair : pairs)
        all = WriteRename(ini, pair) && all;
    return all;
}
