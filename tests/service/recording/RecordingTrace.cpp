// vldbg64.dll as the service sees it: every trace line, recorded with all that comes with it.
#include "tests/service/recording/Recorder.h"

#include <cstdarg>

namespace
{

using vlt::record::Json;
using vlt::record::Value;

void Line(const char* call, const char* source, int line, int level, Json more, const char* format, va_list arguments)
{
    // The service hands its text over as the argument of a fixed format.
    const std::string_view fixed = format ? format : "";
    Json json{{"from", "vldbg64"}, {"call", call}, {"source", Value(source)}, {"line", line}, {"level", level}};
    json.update(more);
    json["format"] = Value(format);
    json["text"] = fixed == "%s" ? Value(va_arg(arguments, const char*)) : Json();
    vlt::record::Write(json);
}

} // namespace

extern "C" {

void InitDebug(const char* settingsFile, int hotSwitch)
{
    vlt::record::Write(
        {{"from", "vldbg64"}, {"call", "InitDebug"}, {"settings", Value(settingsFile)}, {"hotSwitch", hotSwitch}});
}

void InitDebugEx(const char* settingsFile, int hotSwitch, const char* module, int one)
{
    vlt::record::Write({{"from", "vldbg64"},
                        {"call", "InitDebugEx"},
                        {"settings", Value(settingsFile)},
                        {"hotSwitch", hotSwitch},
                        {"module", Value(module)},
                        {"one", one}});
}

void DumpA(std::uintptr_t, std::uintptr_t, std::uintptr_t, std::uintptr_t, std::uintptr_t) {}

void TraceA(const char* source, int line, int level, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    Line("TraceA", source, line, level, Json::object(), format, arguments);
    va_end(arguments);
}

#ifndef WITHOUT_TraceExA
void TraceExA(const char* source, int line, int level, const char* module, int one, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    Line("TraceExA", source, line, level, {{"module", Value(module)}, {"one", one}}, format, arguments);
    va_end(arguments);
}
#endif

} // extern "C"
