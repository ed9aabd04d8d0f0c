#include "tests/unit/TraceCapture.h"

#include "ARDCommon/VlDebug.h"
#include "platform/Text.h"
#include "tests/support/Support.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace vlt::test
{
namespace
{

// The library's log, in the folder of the running program.
std::filesystem::path LogFile()
{
    return ProgramFolder() / "recorded.log";
}

void LoadLibraryOnce()
{
    static const bool loaded = [] {
        std::string folder = "Z:" + std::string(VLT_RECORDING_FOLDER);
        std::replace(folder.begin(), folder.end(), '/', '\\');
        return g_VlDebug.Init(ToWide(folder).c_str(), TEXT("C:\\no.ini"), TEXT("Test"), 1);
    }();
    if (!loaded)
        throw std::runtime_error("the recording trace library cannot be loaded");
}

} // namespace

std::vector<std::string> Traced(const std::function<void()>& action)
{
    LoadLibraryOnce();
    std::filesystem::remove(LogFile());
    action();
    std::vector<std::string> lines;
    std::istringstream log(ReadBytes(LogFile()));
    for (std::string line; std::getline(log, line);) {
        const auto json = nlohmann::json::parse(line);
        if (json.at("call") != "TraceExA")
            continue;
        const std::string source = json.at("source");
        lines.push_back(std::to_string(json.at("level").get<int>()) + " " + source.substr(source.rfind('\\') + 1) +
                        ": " + json.at("text").get<std::string>());
    }
    return lines;
}

std::string TracedText(const std::function<void()>& action)
{
    std::string text, last;
    for (std::string line : Traced(action)) {
        line.resize(std::min(line.size(), line.find("data = ")));
        if (line != last)
            text += line + '\n';
        last = line;
    }
    return text;
}

} // namespace vlt::test
