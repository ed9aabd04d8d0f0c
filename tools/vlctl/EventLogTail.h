// What the service adds to the system's application log.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace vlt::ctl
{

// Sees the entries from its construction on.
class EventLogTail
{
public:
    EventLogTail();

    // The text of the next error that the service reported about the engine; nothing when there is none yet.
    std::optional<std::string> NextEngineError();

private:
    std::uint64_t m_position; // of the first entry that has not been seen
};

} // namespace vlt::ctl
