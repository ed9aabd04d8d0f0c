#include "suite/ArdCmdCom/ProxyProcess.h"

#include "platform/Unique.h"

#include <cstring>

namespace vlt::cmd
{
namespace
{

using namespace proxy;

// A mutex that can be had has no living owner.
bool IsRunning()
{
    const KernelHandle mutex(OpenMutexW(SYNCHRONIZE | MUTEX_MODIFY_STATE, FALSE, kRunningMutex));
    if (!mutex)
        return false;
    const DWORD result = WaitForSingleObject(mutex.Get(), 0);
    if (result != WAIT_TIMEOUT)
        ReleaseMutex(mutex.Get());
    return result == WAIT_TIMEOUT;
}

std::optional<VlpxInformation> ReadInformation()
{
    const KernelHandle section(OpenFileMappingW(FILE_MAP_READ, FALSE, kInformationSection));
    const MappedView view(section ? MapViewOfFile(section.Get(), FILE_MAP_READ, 0, 0, sizeof(VlpxInformation))
                                  : nullptr);
    if (!view)
        return std::nullopt;
    VlpxInformation information{};
    std::memcpy(&information, view.Get(), sizeof information);
    return information;
}

bool IsProxyProgram(DWORD processId)
{
    const FileHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32FirstW(snapshot.Get(), &entry); more; more = Process32NextW(snapshot.Get(), &entry)) {
        if (entry.th32ProcessID == processId)
            return lstrcmpiW(entry.szExeFile, kProgram) == 0;
    }
    return false;
}

} // namespace

std::optional<VlpxInformation> FindProxy()
{
    if (!IsRunning())
        return std::nullopt;
    const auto information = ReadInformation();
    if (!information || information->size != sizeof(VlpxInformation) || !IsProxyProgram(information->processId))
        return std::nullopt;
    return information;
}

} // namespace vlt::cmd
