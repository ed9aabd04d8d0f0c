// The debug trace: diagnostic lines handed to an optional library, vldbg64.dll (VlDebugAbi.h).
//
//     VLT_TRACE(20, "Error: ReadFile (%d)", GetLastError());
//
// Without the library, or when one of its entry points is missing, every call returns without effect.
// Tracing never fails its caller: nothing throws, and the thread's last error is kept. A message of
// more than 1023 bytes is cut. May be called from any thread, before Init and while the process ends.
// Levels: 20 errors, 40 progress and changes of state, 50 detail.
#pragma once

#include "platform/Format.h"
#include "platform/win32.h"

#include <array>
#include <atomic>
#include <cstddef>

class CVlDebug
{
public:
    constexpr CVlDebug() = default;
    CVlDebug(const CVlDebug&) = delete;
    CVlDebug& operator=(const CVlDebug&) = delete;
    virtual ~CVlDebug();

    // Loads the library from `directory` and announces this component to it; false when tracing stays
    // off or incomplete. moduleName is kept, not copied; null with extended 0 traces without a name.
    // Called once, by the thread that starts the service.
    bool Init(LPCWSTR directory, LPCWSTR settingsFile, LPCWSTR moduleName, LONG extended);

    template <typename... Args>
    void Trace(const char* sourceFile, int line, int level, const char* format, const Args&... args) noexcept
    {
        const std::array<vlt::FormatArg, sizeof...(Args)> list{vlt::FormatArg(args)...};
        TraceV(sourceFile, line, level, format, vlt::FormatArgs(list.data(), list.size()));
    }

    void TraceV(const char* sourceFile, int line, int level, const char* format, vlt::FormatArgs args) noexcept;

    void Dump(const char* sourceFile, int line, int level, const void* data, DWORD size) noexcept;

private:
    DWORD m_bufferSize = 1024;
    std::atomic<LPCWSTR> m_moduleName = nullptr;
    std::atomic<LONG> m_extended = 0;
};

// The one instance, usable by every other static object.
extern constinit CVlDebug g_VlDebug;

namespace vlt
{

// The name under which a source file has always appeared in the trace: ".\name.cpp" for a file of the
// program, "..\..\ARDCommon\name.cpp" for a shared one.
template <std::size_t N>
struct TraceSourceName {
    static constexpr const char* kShared = "..\\..\\ARDCommon\\";
    char text[N + 16] = {};

    consteval explicit TraceSourceName(const char (&path)[N])
    {
        std::size_t name = 0;   // where the file name begins
        std::size_t folder = 0; // where the name of its folder does
        for (std::size_t i = 0; i + 1 < N; ++i) {
            if (path[i] == '/' || path[i] == '\\') {
                folder = name;
                name = i + 1;
            }
        }
        std::size_t length = 0;
        const auto append = [&](const char* from) {
            while (*from != 0)
                text[length++] = *from++;
        };
        append(IsShared(path + folder) ? kShared : ".\\");
        append(path + name);
    }

private:
    static consteval bool IsShared(const char* folder)
    {
        const char* expected = "ARDCommon";
        while (*expected != 0) {
            if (*folder++ != *expected++)
                return false;
        }
        return *folder == '/' || *folder == '\\';
    }
};

} // namespace vlt

// The calling file's name in the trace, made at compile time.
#define VLT_TRACE_SOURCE                                                                                               \
    ([]() noexcept -> const char* {                                                                                    \
        static constexpr ::vlt::TraceSourceName vltTraceSourceName{__FILE__};                                          \
        return vltTraceSourceName.text;                                                                                \
    }())

// VLT_TRACE(level, format, ...)
#define VLT_TRACE(level, ...) g_VlDebug.Trace(VLT_TRACE_SOURCE, __LINE__, level, __VA_ARGS__)
