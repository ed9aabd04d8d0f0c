#include "ARDCommon/VlUtil.h"

#include "platform/Format.h"

#include <vector>

namespace VlUtil
{

bool SyncExecuteProcess(LPCWSTR commandLine)
{
    vlt::KernelHandle process;
    return StartProcess(commandLine, process) && WaitForSingleObject(process.Get(), INFINITE) == WAIT_OBJECT_0;
}

bool StartProcess(LPCWSTR commandLine, vlt::KernelHandle& process)
{
    WString writable = commandLine; // the system changes it while it looks for the program
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION information{};
    if (!CreateProcessW(nullptr, writable.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &information))
        return false;
    const vlt::KernelHandle thread(information.hThread);
    process.Reset(information.hProcess);
    return true;
}

WString GetModuleVersion(LPCWSTR file)
{
    DWORD ignored = 0;
    const DWORD size = GetFileVersionInfoSizeW(file, &ignored);
    if (size == 0)
        return {};
    std::vector<BYTE> block(size);
    void* root = nullptr;
    UINT length = 0;
    if (!GetFileVersionInfoW(file, 0, size, block.data()) ||
        !VerQueryValueW(block.data(), TEXT("\\"), &root, &length) || length < sizeof(VS_FIXEDFILEINFO))
        return {};
    const auto* info = static_cast<const VS_FIXEDFILEINFO*>(root);
    return vlt::Format(TEXT("%d.%d.%d.%d"), info->dwFileVersionMS >> 16, info->dwFileVersionMS & 0xFFFF,
                       info->dwFileVersionLS >> 16, info->dwFileVersionLS & 0xFFFF);
}

vlt::LocalMem CreateNullDaclDescriptor()
{
    vlt::LocalMem descriptor(LocalAlloc(LPTR, SECURITY_DESCRIPTOR_MIN_LENGTH));
    if (!descriptor || !InitializeSecurityDescriptor(descriptor.Get(), SECURITY_DESCRIPTOR_REVISION) ||
        !SetSecurityDescriptorDacl(descriptor.Get(), TRUE, nullptr, FALSE))
        return {};
    return descriptor;
}

} // namespace VlUtil
