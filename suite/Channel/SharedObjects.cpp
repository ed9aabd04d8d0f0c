#include "suite/Channel/SharedObjects.h"

#include "platform/Text.h"
#include "suite/Channel/Text.h"

namespace vlt::suite
{
namespace
{

constexpr std::string_view GlobalPrefix = "Global\\";

// Security attributes with a null DACL. Theirs for as long as the calls that they are given to.
class OpenToEveryone
{
public:
    OpenToEveryone()
    {
        InitializeSecurityDescriptor(&m_descriptor, SECURITY_DESCRIPTOR_REVISION);
        SetSecurityDescriptorDacl(&m_descriptor, TRUE, nullptr, FALSE);
        m_attributes.nLength = sizeof m_attributes;
        m_attributes.lpSecurityDescriptor = &m_descriptor;
    }
    OpenToEveryone(const OpenToEveryone&) = delete;
    OpenToEveryone& operator=(const OpenToEveryone&) = delete;
    LPSECURITY_ATTRIBUTES Get() { return &m_attributes; }

private:
    alignas(void*) BYTE m_descriptor[SECURITY_DESCRIPTOR_MIN_LENGTH];
    SECURITY_ATTRIBUTES m_attributes{};
};

Section MapWhole(HANDLE mapping, DWORD size)
{
    Section section{KernelHandle(mapping), {}};
    const DWORD error = GetLastError();
    if (section.mapping)
        section.view.Reset(MapViewOfFile(mapping, FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, size));
    if (section.view)
        SetLastError(error); // of the section: whether it was there
    return section;
}

} // namespace

WString GlobalName(std::string_view name)
{
    std::string full(name.starts_with(GlobalPrefix) ? std::string_view() : GlobalPrefix);
    return ToWide(full.append(name));
}

WString ChannelName(const char* channel, const char* suffix)
{
    return GlobalName(std::string(channel) + suffix);
}

KernelHandle ShareEvent(const WString& name, bool manualReset)
{
    KernelHandle event(CreateEventW(OpenToEveryone().Get(), manualReset, FALSE, name.c_str()));
    if (!event)
        FailWith(GetLastError(), Printable(name));
    return event;
}

KernelHandle ShareSemaphore(const WString& name, LONG count)
{
    KernelHandle semaphore(CreateSemaphoreW(OpenToEveryone().Get(), count, count, name.c_str()));
    if (!semaphore)
        FailWith(GetLastError(), Printable(name));
    return semaphore;
}

KernelHandle ShareMutex(const WString& name)
{
    return KernelHandle(CreateMutexW(OpenToEveryone().Get(), FALSE, name.c_str()));
}

Section CreateSection(const WString& name, DWORD size)
{
    SetLastError(0);
    return MapWhole(
        CreateFileMappingW(INVALID_HANDLE_VALUE, OpenToEveryone().Get(), PAGE_READWRITE, 0, size, name.c_str()), size);
}

Section OpenSection(const WString& name, DWORD size)
{
    return MapWhole(OpenFileMappingW(FILE_MAP_READ | FILE_MAP_WRITE, FALSE, name.c_str()), size);
}

} // namespace vlt::suite
