#include "ARDCommon/VlDebug.h"

#include "ARDCommon/VlDebugAbi.h"
#include "platform/Text.h"

namespace
{

constexpr DWORD kNameBytes = 260;

// Beside the instance and trivially destructible, so that a thread that traces while the process ends
// still finds them.
struct EntryPoints {
    std::atomic<InitDebug_t> initDebug = nullptr;
    std::atomic<InitDebugEx_t> initDebugEx = nullptr;
    std::atomic<TraceA_t> traceA = nullptr;
    std::atomic<TraceExA_t> traceExA = nullptr;
    std::atomic<DumpA_t> dumpA = nullptr;
};

constinit HMODULE g_module = nullptr;
constinit EntryPoints g_entry;
constinit std::atomic<int> g_callers = 0; // threads that may be inside the library

struct CallerCount {
    CallerCount() noexcept { ++g_callers; }
    ~CallerCount() { --g_callers; }
};

class KeepLastError
{
public:
    ~KeepLastError() { SetLastError(m_error); }

private:
    DWORD m_error = GetLastError();
};

// The zeroed block of one trace call.
class MessageBlock
{
public:
    explicit MessageBlock(SIZE_T size) noexcept
        : m_memory(GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, size)),
          m_text(m_memory != nullptr ? static_cast<char*>(GlobalLock(m_memory)) : nullptr)
    {
    }
    ~MessageBlock()
    {
        if (m_text != nullptr)
            GlobalUnlock(m_memory);
        if (m_memory != nullptr)
            GlobalFree(m_memory);
    }
    MessageBlock(const MessageBlock&) = delete;
    MessageBlock& operator=(const MessageBlock&) = delete;

    char* Text() const noexcept { return m_text; }

private:
    HGLOBAL m_memory;
    char* m_text;
};

struct NarrowName {
    char text[kNameBytes] = {};

    explicit NarrowName(LPCWSTR wide) noexcept
    {
        if (wide != nullptr && WideCharToMultiByte(CP_ACP, 0, wide, -1, text, kNameBytes, nullptr, nullptr) == 0)
            text[0] = 0;
    }
};

template <typename Function>
bool Resolve(const char* name, std::atomic<Function>& slot)
{
    const auto function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(g_module, name)));
    if (function == nullptr)
        return false;
    slot = function;
    return true;
}

} // namespace

constinit CVlDebug g_VlDebug;

CVlDebug::~CVlDebug()
{
    g_entry.initDebug = nullptr;
    g_entry.initDebugEx = nullptr;
    g_entry.traceA = nullptr;
    g_entry.traceExA = nullptr;
    g_entry.dumpA = nullptr;
    // A thread may still be inside the library; the process is about to take it away with everything.
    if (g_module != nullptr && g_callers == 0)
        FreeLibrary(g_module);
    g_module = nullptr;
}

bool CVlDebug::Init(LPCWSTR directory, LPCWSTR settingsFile, LPCWSTR moduleName, LONG extended)
{
    if (directory == nullptr)
        return false;
    WString path = directory;
    if (path.empty() || path.back() != TEXT('\\'))
        path += TEXT('\\');
    path += TEXT("vldbg64.dll");
    g_module = LoadLibraryW(path.c_str());
    if (g_module == nullptr)
        return false;

    // What was found stays bound when a later one is missing.
    if (!Resolve("InitDebug", g_entry.initDebug) || !Resolve("InitDebugEx", g_entry.initDebugEx) ||
        !Resolve("DumpA", g_entry.dumpA) || !Resolve("TraceA", g_entry.traceA) ||
        !Resolve("TraceExA", g_entry.traceExA))
        return false;

    const NarrowName settings(settingsFile);
    const BOOL hotSwitch = GetPrivateProfileIntW(TEXT("debug"), TEXT("hot_switch"), 0, settingsFile) != 0;
    if (moduleName != nullptr)
        m_moduleName = moduleName;
    m_extended = extended;

    const CallerCount count;
    if (extended != 0 && m_moduleName != nullptr)
        g_entry.initDebugEx.load()(settings.text, hotSwitch, NarrowName(m_moduleName).text, 1);
    else
        g_entry.initDebug.load()(settings.text, hotSwitch);
    return true;
}

void CVlDebug::TraceV(const char* sourceFile, int line, int level, const char* format, vlt::FormatArgs args) noexcept
try {
    const CallerCount count;
    const LPCWSTR moduleName = m_moduleName;
    const bool plain = moduleName == nullptr || m_extended == 0;
    const TraceA_t traceA = plain ? g_entry.traceA.load() : nullptr;
    const TraceExA_t traceExA = plain ? nullptr : g_entry.traceExA.load();
    if (traceA == nullptr && traceExA == nullptr)
        return;

    const KeepLastError keepLastError;
    const MessageBlock block(m_bufferSize);
    if (block.Text() == nullptr)
        return;
    vlt::FormatToV(block.Text(), m_bufferSize, format, args);
    // Never as the format itself: a message may hold a percent sign.
    if (traceA != nullptr)
        traceA(sourceFile, line, level, "%s", block.Text());
    else
        traceExA(sourceFile, line, level, NarrowName(moduleName).text, 1, "%s", block.Text());
} catch (...) {
    // Out of memory while text was converted: the line is lost, the caller goes on.
}

void CVlDebug::Dump(const char* sourceFile, int line, int level, const void* data, DWORD size) noexcept
{
    const CallerCount count;
    const DumpA_t dumpA = g_entry.dumpA;
    if (dumpA == nullptr)
        return;
    const KeepLastError keepLastError;
    dumpA(sourceFile, line, level, data, size);
}
