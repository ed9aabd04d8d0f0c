// The settings of the trace, section "debug" of ardentis.ini, read again while the process runs.
#pragma once

#include "platform/win32.h"

#include <atomic>
#include <memory>

namespace vlt::debug
{

struct Settings {
    WString iniFile;
    bool defaultOn = false;

    bool on = false;
    int level = 0;      // the highest that is recorded
    DWORD maxBytes = 0; // from which on the file is put aside
    unsigned oldFiles = 0;
    WString logFile;

    std::unique_ptr<const Settings> before; // whom other threads may still read

    bool operator==(const Settings& other) const
    {
        return iniFile == other.iniFile && on == other.on && level == other.level && maxBytes == other.maxBytes &&
               oldFiles == other.oldFiles && logFile == other.logFile;
    }
};

// Read by any thread without a lock: one may be ended by force at any instant. What was read once is kept
// until the end, some hundred bytes for each edit of the ini.
class HotSettings
{
public:
    constexpr HotSettings() = default;
    ~HotSettings() { delete m_current.load(); }
    HotSettings(const HotSettings&) = delete;
    HotSettings& operator=(const HotSettings&) = delete;

    // defaultOn: when the ini does not say.
    void Begin(WString iniFile, bool defaultOn);

    // Null before Begin. Looks into the ini when that was last done a second ago.
    const Settings* Current();

private:
    void Publish(std::unique_ptr<Settings> settings, const Settings* expected);

    std::atomic<const Settings*> m_current = nullptr;
    std::atomic<ULONGLONG> m_nextLook = 0;
};

} // namespace vlt::debug
