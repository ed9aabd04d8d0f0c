#include "ARDCommon/NotifySender.h"

#include "ARDCommon/DefSecAttr.h"
#include "ARDCommon/GlobalName.h"
#include "ARDCommon/VlDebug.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <new>
#include <utility>

namespace
{

constexpr DWORD kPoll = 100; // ms

// What receivers get to clear their flags before the first look costs a poll. Both are limits: "read"
// can be set by anyone, also for ever.
constexpr unsigned kChanceTimeouts = 4; // of 1 ms
constexpr unsigned kChanceWakeups = 2 * kNotifySlotCount;

constexpr std::size_t kDataOffset = offsetof(NotifyMessage, size);

std::uint32_t LowHalf(const void* address)
{
    return static_cast<std::uint32_t>(reinterpret_cast<ULONG_PTR>(address));
}

std::string GlobalName(const std::string& base, const char* suffix)
{
    return vlt::MakeGlobalName((base + suffix).c_str());
}

// The other side of the flag is another process; the message is whole before the flag says so.
std::atomic_ref<std::uint32_t> ReadFlag(NotifyMessage* message)
{
    return std::atomic_ref<std::uint32_t>(message->readFlag);
}

} // namespace

// The list while it is mapped. It may be smaller than it should be: only slots that lie wholly in the
// view are slots.
class CNotifySender::List
{
public:
    explicit List(CVlShareMemory& section) : m_section(section)
    {
        void* view = nullptr;
        m_mapped = section.Map(&view, false);
        m_slots = static_cast<char*>(view);
        m_count = std::min(section.MappedSize() / kNotifySlotSize, kNotifySlotCount);
    }
    ~List() { m_section.Unmap(); }
    List(const List&) = delete;
    List& operator=(const List&) = delete;

    explicit operator bool() const { return m_mapped; }

    // Calls serve(name, index) for each receiver up to the end of the list, and frees the slots for
    // which it returns false.
    template <typename Serve>
    void ForEach(Serve serve)
    {
        for (std::size_t i = 0; i < m_count; ++i) {
            const Name name = NameAt(i);
            VLT_TRACE(40, "Scan memfile list[%d] : %s", static_cast<int>(i), name.text);
            if (name.text[0] == 0)
                break;
            if (std::strcmp(name.text, kNotifyFreeSlot) == 0 || serve(name.text, i))
                continue;
            std::memcpy(m_slots + i * kNotifySlotSize, kNotifyFreeSlot, sizeof kNotifyFreeSlot);
            // Readers of the trace know that it names the slot after the freed one.
            VLT_TRACE(40, "%s does not exist.", NameAt(i + 1).text);
        }
    }

private:
    struct Name {
        char text[kNotifySlotSize] = {};
    };

    Name NameAt(std::size_t index) const
    {
        Name name;
        if (index < m_count)
            std::memcpy(name.text, m_slots + index * kNotifySlotSize, kNotifySlotSize - 1);
        return name;
    }

    CVlShareMemory& m_section;
    char* m_slots = nullptr;
    std::size_t m_count = 0;
    bool m_mapped = false;
};

CNotifySender::CNotifySender(const char* baseName, DWORD maxPayload)
    : m_limit(maxPayload + 1), m_baseName(baseName), m_listName(GlobalName(m_baseName, kNotifyListSuffix)),
      m_eventName(GlobalName(m_baseName, kNotifyEventSuffix))
{
    VLT_TRACE(40, "Notify list name : %s", m_listName);
    VLT_TRACE(40, "Event name : %s", m_eventName);
    const bool list = m_list.Create(m_listName.c_str(), sizeof(NotifyList), true, false);
    CreateEvents();
    if (!list || !m_addQueueEvent || !m_stopEvent || !m_notifyEvent)
        throw -1;
    m_thread.Reset(reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, ThreadProc, this, 0, nullptr)));
    if (!m_thread)
        VLT_TRACE(20, "_beginthreadex fails (%08x)", GetLastError());
}

void CNotifySender::CreateEvents()
{
    const DefSecAttr security;
    m_addQueueEvent.Reset(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    if (!m_addQueueEvent)
        VLT_TRACE(20, "CreateEvent fails : AddQueue (%08x)", GetLastError());
    m_stopEvent.Reset(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    if (!m_stopEvent)
        VLT_TRACE(20, "CreateEvent fails : Stop (%08x)", GetLastError());
    m_notifyEvent.Reset(CreateEventA(security.Get(), TRUE, FALSE, m_eventName.c_str()));
    if (!m_notifyEvent)
        VLT_TRACE(20, "CreateEvent fails : NotifyEvent (%08x)", GetLastError());
    m_sentEvent.Reset(CreateEventA(security.Get(), TRUE, FALSE, GlobalName(m_baseName, kNotifySentSuffix).c_str()));
    m_readEvent.Reset(CreateEventA(security.Get(), FALSE, FALSE, GlobalName(m_baseName, kNotifyReadSuffix).c_str()));
}

CNotifySender::~CNotifySender()
{
    EndThread();
    m_list.Close();
    const auto close = [](vlt::KernelHandle& event, const char* text) {
        if (event)
            VLT_TRACE(40, text);
        event.Reset();
    };
    close(m_addQueueEvent, "CloseHandle hAddQueue");
    close(m_stopEvent, "CloseHandle hStop");
    close(m_notifyEvent, "CloseHandle NotifyEvent");
}

bool CNotifySender::Notify(const void* data, DWORD size) noexcept
{
    const std::size_t blockSize = sizeof size + size;
    std::list<Block> added;
    try {
        added.push_back({std::unique_ptr<BYTE[]>(new BYTE[blockSize]), blockSize});
    } catch (const std::bad_alloc&) {
        VLT_TRACE(20, "Mermory allocate error");
        return false;
    }
    if (size > m_limit) {
        VLT_TRACE(20, "data size is larger than memory size (%d, %d)", size, m_limit);
        return false;
    }
    BYTE* const bytes = added.front().bytes.get();
    std::memcpy(bytes, &size, sizeof size);
    if (size != 0)
        std::memcpy(bytes + sizeof size, data, size);
    {
        const VlLock lock(m_lock);
        m_queue.splice(m_queue.end(), added);
    }
    SetEvent(m_addQueueEvent.Get());
    Sleep(0); // lets the thread run
    return true;
}

void CNotifySender::Stop()
{
    if (!m_stopEvent)
        return;
    EndThread();
    m_stopEvent.Reset();
}

void CNotifySender::EndThread()
{
    if (!m_thread)
        return;
    SetEvent(m_stopEvent.Get());
    WaitForSingleObject(m_thread.Get(), INFINITE);
    m_thread.Reset();
}

unsigned __stdcall CNotifySender::ThreadProc(void* self)
{
    static_cast<CNotifySender*>(self)->Run();
    return 0;
}

void CNotifySender::Run()
{
    const HANDLE handles[] = {m_addQueueEvent.Get(), m_stopEvent.Get()};
    for (;;) {
        const DWORD result = WaitForMultipleObjects(2, handles, FALSE, INFINITE);
        if (result == WAIT_OBJECT_0) {
            Drain();
            continue;
        }
        if (result != WAIT_OBJECT_0 + 1)
            VLT_TRACE(20, "unknown error : %d", result);
        return;
    }
}

// A message that is queued between the last look and the reset goes out with the next one.
void CNotifySender::Drain()
{
    std::list<Block> taken;
    const auto take = [&] {
        const VlLock lock(m_lock);
        if (!m_queue.empty())
            taken.splice(taken.end(), m_queue, m_queue.begin());
        return !taken.empty();
    };
    while (take()) {
        Send(taken.front());
        taken.clear();
        CheckAllReadFlag();
        Sleep(0);
    }
    ResetEvent(m_addQueueEvent.Get());
}

// Writes the message and gives the receivers the chance to have taken it before the first look.
void CNotifySender::Send(const Block& block)
{
    for (Written& written : m_written)
        written.taken = false;
    if (NotifyToReceiver(block)) {
        if (m_sentEvent)
            PulseEvent(m_sentEvent.Get());
        GiveChance();
    }
    for (Written& written : m_written) {
        written.message = nullptr;
        written.section.Close();
    }
}

bool CNotifySender::NotifyToReceiver(const Block& block)
{
    VLT_TRACE(50, "NotifyToReceiver : data = 0x%08x", LowHalf(block.bytes.get()));
    VLT_TRACE(50, "    size = %d, data = 0x%08x", block.size - sizeof(DWORD),
              LowHalf(block.bytes.get() + sizeof(DWORD)));
    {
        List list(m_list);
        if (!list)
            return false;
        list.ForEach([&](const char* name, std::size_t i) { return WriteData(name, block, m_written[i]); });
    }
    SetEvent(m_notifyEvent.Get());
    VLT_TRACE(40, "Set hNotifyEvent");
    return true;
}

// Leaves the section mapped in `written`: its flag is looked at until the chance is over.
bool CNotifySender::WriteData(const char* name, const Block& block, Written& written)
{
    VLT_TRACE(50, "WriteData memfile = %s, data = %08x", name, LowHalf(block.bytes.get()));
    if (IsList(name))
        return false;
    void* view = nullptr;
    for (;;) {
        if (!written.section.Open(name, false))
            return false;
        if (written.section.Map(&view, false))
            break;
        written.section.Close();
        Sleep(kPoll);
    }
    if (written.section.MappedSize() < kDataOffset + block.size) {
        written.section.Close();
        return false;
    }
    std::memcpy(static_cast<BYTE*>(view) + kDataOffset, block.bytes.get(), block.size);
    written.message = static_cast<NotifyMessage*>(view);
    lstrcpynA(written.name, name, sizeof written.name);
    ReadFlag(written.message).store(1, std::memory_order_release);
    return true;
}

void CNotifySender::GiveChance()
{
    unsigned timeouts = 0;
    for (unsigned wakeups = 0; timeouts < kChanceTimeouts && wakeups < kChanceWakeups && AnyUnread();) {
        if (WaitForSingleObject(m_readEvent.Get(), 1) == WAIT_OBJECT_0) {
            ++wakeups;
            continue;
        }
        if (!m_readEvent)
            Sleep(1);
        ++timeouts;
        // One may have been about to wait when the last pulse came.
        if (m_sentEvent)
            PulseEvent(m_sentEvent.Get());
    }
}

bool CNotifySender::AnyUnread()
{
    bool any = false;
    for (Written& written : m_written) {
        if (written.message != nullptr && ReadFlag(written.message).load(std::memory_order_acquire) == 0)
            written.taken = std::exchange(written.message, nullptr) != nullptr;
        any = any || written.message != nullptr;
    }
    return any;
}

void CNotifySender::CheckAllReadFlag()
{
    VLT_TRACE(50, "CheckAllReadFlag");
    {
        List list(m_list);
        if (!list)
            return;
        list.ForEach([&](const char* name, std::size_t i) { return CheckReadFlag(name, m_written[i]); });
    }
    ResetEvent(m_notifyEvent.Get());
    VLT_TRACE(40, "Reset hNotifyEvent");
}

// Returns when the receiver has taken the message: true; or is gone: false.
bool CNotifySender::CheckReadFlag(const char* name, const Written& written)
{
    VLT_TRACE(50, "CheckReadFlag memfile = %s", name);
    if (IsList(name))
        return false;
    // Not looked up again; should it have gone since, the next message frees its slot.
    if (written.taken && std::strcmp(written.name, name) == 0)
        return true;
    for (;;) {
        CVlShareMemory section;
        if (!section.Open(name, false))
            return false;
        void* view = nullptr;
        if (section.Map(&view, true)) {
            if (section.MappedSize() < sizeof(NotifyMessage))
                return false;
            const std::uint32_t flag = ReadFlag(static_cast<NotifyMessage*>(view)).load(std::memory_order_acquire);
            if (flag == 0)
                return true;
            section.Unmap();
            section.Close();
            VLT_TRACE(40, "Receiver have not read %s, %d", name, flag);
        } else {
            section.Close();
        }
        // Not held meanwhile: the section is to vanish with its receiver.
        Sleep(kPoll);
    }
}

// The list written as a receiver would be lost, and looked at as one never be read. There may be more
// than one path to it through the system's namespaces, all with the same last part; some ignore case.
bool CNotifySender::IsList(const char* name) const
{
    const auto last = [](std::string_view text) { return text.substr(text.rfind('\\') + 1); };
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; };
    const std::string_view ours = last(m_listName);
    const std::string_view other = last(name);
    return std::equal(ours.begin(), ours.end(), other.begin(), other.end(),
                      [&](char a, char b) { return lower(a) == lower(b); });
}
