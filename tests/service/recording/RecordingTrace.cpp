// vldbg64.dll as the service sees it: every trace line, recorded with all that comes with it.
#include "tests/service/recording/Recorder.h"

#include <cstdarg>

namespace
{

using vlt::record::Fields;
using vlt::record::Write;

void Line(const char* call, Fields first, const char* format, va_list arguments)
{
    // The service hands its text over as the argument of a fixed format.
    const bool fixed = format && std::string_view(format) == "%s";
    Write("vldbg64", call, first, {{"format", format}, {"text", fixed ? va_arg(arguments, const char*) : "(format)"}});
}

} // namespace

extern "C" {

void InitDebug(const char* settingsFile, int hotSwitch)
{
    Write("vldbg64", "InitDebug", {{"settings", settingsFile}, {"hotSwitch", hotSwitch}});
}

void InitDebugEx(const char* settingsFile, int hotSwitch, const char* module, int one)
{
    Write("vldbg64", "InitDebugEx",
          {{"settings", settingsFile}, {"hotSwitch", hotSwitch}, {"module", module}, {"one", one}});
}

void DumpA(const char*, int, int, const void*, DWORD) {}

void TraceA(const char* source, int line, int level, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    Line("TraceA", {{"source", source}, {"line", line}, {"level", level}}, format, arguments);
    va_end(arguments);
}

#ifndef WITHOUT_TraceExA
void TraceExA(const char* source, int line, int level, const char* module, int one, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    Line("TraceExA", {{"source", source}, {"line", line}, {"level", level}, {"module", module}, {"one", one}}, format,
         arguments);
    va_end(arguments);
}
#endif

} // extern "C"
