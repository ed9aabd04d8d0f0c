#include "tools/vlctl/EventLogTail.h"

#include "tools/vlctl/Command.h"
#include "tools/vlctl/Text.h"

#ifdef _WIN32
#include "platform/Unique.h"

#include <vector>
#else
#include "platform/posix/core/MachineRoot.h"

#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#endif

namespace vlt::ctl
{
namespace
{

constexpr std::uint32_t EngineErrorId = 0xA0000003;

} // namespace

#ifdef _WIN32

namespace
{

struct EventLogTraits : NullPointerTraits<HANDLE> {
    static void Close(HANDLE log) { CloseEventLog(log); }
};
using EventLogHandle = Unique<EventLogTraits>;

std::uint64_t NextRecord(const EventLogHandle& log)
{
    DWORD oldest = 0, count = 0;
    return log && GetOldestEventLogRecord(log.Get(), &oldest) && GetNumberOfEventLogRecords(log.Get(), &count)
               ? std::uint64_t{oldest} + count
               : 0;
}

} // namespace

EventLogTail::EventLogTail() : m_position(NextRecord(EventLogHandle(OpenEventLogW(nullptr, TEXT("Application"))))) {}

std::optional<std::string> EventLogTail::NextEngineError()
{
    const EventLogHandle log(OpenEventLogW(nullptr, TEXT("Application")));
    std::vector<BYTE> buffer(0x10000); // the most that one entry takes
    for (const std::uint64_t end = NextRecord(log); m_position < end; ++m_position) {
        DWORD size = 0, needed = 0;
        if (!ReadEventLogW(log.Get(), EVENTLOG_SEEK_READ | EVENTLOG_FORWARDS_READ, static_cast<DWORD>(m_position),
                           buffer.data(), static_cast<DWORD>(buffer.size()), &size, &needed))
            continue; // cleared meanwhile
        const auto* const record = reinterpret_cast<const EVENTLOGRECORD*>(buffer.data());
        const auto* const source = reinterpret_cast<const WCHAR*>(record + 1);
        if (record->EventID != EngineErrorId || WString(source) != DisplayName)
            continue;
        ++m_position;
        return record->NumStrings != 0 ? Printable(reinterpret_cast<const WCHAR*>(buffer.data() + record->StringOffset))
                                       : std::string();
    }
    return std::nullopt;
}

#else

namespace
{

std::filesystem::path LogFile()
{
    return posix::MachineFolder("eventlog") + "/application.jsonl";
}

// The text when the line is such an error.
std::optional<std::string> EngineError(const std::string& line)
{
    try {
        const auto entry = nlohmann::json::parse(line);
        if (entry.at("id") == EngineErrorId && entry.at("source") == Utf8(DisplayName))
            return Printable(FromUtf8(entry.at("strings").at(0).get<std::string>()));
    } catch (const nlohmann::json::exception&) { // not a line of the service
    }
    return std::nullopt;
}

std::uint64_t SizeOf(const std::filesystem::path& file)
{
    std::error_code error;
    const auto size = std::filesystem::file_size(file, error);
    return error ? 0 : size;
}

} // namespace

EventLogTail::EventLogTail() : m_position(SizeOf(LogFile())) {}

std::optional<std::string> EventLogTail::NextEngineError()
{
    std::ifstream stream(LogFile(), std::ios::binary);
    if (SizeOf(LogFile()) < m_position)
        m_position = 0; // a new file was begun
    stream.seekg(static_cast<std::streamoff>(m_position));
    for (std::string line; std::getline(stream, line) && !stream.eof();) { // the last one may still be in writing
        m_position += line.size() + 1;
        if (auto text = EngineError(line))
            return text;
    }
    return std::nullopt;
}

#endif

} // namespace vlt::ctl
