#include "tests/unit/ChannelPeers.h"

#include "ARDCommon/DefSecAttr.h"
#include "ARDCommon/IpcFormat.h"
#include "ARDCommon/NotifyFormat.h"

#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace vlt::test
{

Section::Section(const std::string& name, DWORD size)
    : m_mapping(CreateFileMappingA(INVALID_HANDLE_VALUE, DefSecAttr().Get(), PAGE_READWRITE, 0, size, name.c_str())),
      m_view(static_cast<char*>(MapViewOfFile(m_mapping.Get(), FILE_MAP_ALL_ACCESS, 0, 0, 0)))
{
    if (m_view == nullptr)
        throw std::runtime_error("section " + name + ": error " + std::to_string(GetLastError()));
}

Section::~Section()
{
    UnmapViewOfFile(m_view);
}

std::atomic_ref<std::uint32_t> Section::Number(std::size_t index) const
{
    return std::atomic_ref<std::uint32_t>(reinterpret_cast<std::uint32_t*>(m_view)[index]);
}

namespace
{

void Say(const std::string& line)
{
    std::puts(line.c_str());
    std::fflush(stdout);
}

void Register(const std::string& base, const std::string& name)
{
    const Section list(base + kNotifyListSuffix, sizeof(NotifyList));
    char* slot = list.Bytes();
    while (*slot != 0)
        slot += kNotifySlotSize;
    // The first byte last: until then the list ends here.
    std::memcpy(slot + 1, name.c_str() + 1, name.size());
    *slot = name[0];
}

KernelHandle Open(const std::string& name)
{
    KernelHandle event;
    Eventually(20000, [&] {
        event.Reset(OpenEventA(EVENT_ALL_ACCESS, FALSE, name.c_str()));
        return static_cast<bool>(event);
    });
    return event;
}

// Waits for a message; leaves it in the section.
void Await(const Section& own, HANDLE event)
{
    while (own.Number(0).load() == 0) {
        if (WaitForSingleObject(event, 2) == WAIT_OBJECT_0 && own.Number(0).load() == 0)
            Sleep(1);
    }
}

std::string Payload(const Section& own)
{
    std::string text;
    char digits[3];
    for (std::size_t i = 0; i < own.Number(1).load(); ++i) {
        std::snprintf(digits, sizeof digits, "%02x",
                      static_cast<unsigned>(static_cast<unsigned char>(own.Bytes()[8 + i])));
        text += digits;
    }
    return text;
}

} // namespace

VLT_CHILD(receiver)
{
    const std::string base = "Global\\" + args[0];
    const Section own("Global\\" + args[1], 8 + 1861);
    Register(base, args[1]);
    const KernelHandle event = Open(base + (args.size() > 4 ? args[4] : kNotifySentSuffix));
    const KernelHandle read = Open(base + kNotifyReadSuffix);
    const std::string& mode = args[2];
    Say("ready");
    const auto count = mode == "count" ? static_cast<std::uint32_t>(std::stoul(args[3])) : ~0u;
    for (std::uint32_t taken = 0; taken < count; ++taken) {
        Await(own, event.Get());
        if (mode == "hold") {
            Say("written");
            Sleep(INFINITE);
        }
        if (mode == "print")
            Say(Payload(own));
        else if (own.Number(2).load() != taken)
            Say(std::to_string(own.Number(2).load()) + " came instead of " + std::to_string(taken));
        own.Number(0).store(0);
        SetEvent(read.Get());
    }
    Say("done");
    return 0;
}

VLT_CHILD(requester)
{
    const std::string base = "Global\\" + args[0];
    const bool acknowledged = args.size() < 4;
    const Section request(base + kIpcSectionSuffix, sizeof(PidExceptionRequest));
    const PidExceptionRequest content{static_cast<std::uint32_t>(std::stoul(args[1])), std::stoi(args[2])};
    std::memcpy(request.Bytes(), &content, sizeof content);
    KernelHandle acknowledge;
    if (acknowledged)
        acknowledge.Reset(CreateEventA(DefSecAttr().Get(), TRUE, FALSE, (base + kIpcAcknowledgeSuffix).c_str()));
    SetEvent(Open(base + kIpcRequestSuffix).Get());
    if (!acknowledged) {
        Say("sent");
        Sleep(INFINITE);
    }
    return WaitForSingleObject(acknowledge.Get(), 20000) == WAIT_OBJECT_0 ? 0 : 1;
}

} // namespace vlt::test
