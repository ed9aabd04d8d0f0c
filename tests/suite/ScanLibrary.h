// The built ArdScan.dll, loaded by its name and called through its entry points, in a folder of its own
// with patterns and an ini file made for the test.
#pragma once

#include "engine/ArdScanAbi.h"
#include "tests/suite/Patterns.h"

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

namespace vlt::test
{

// What the test's signatures find. It is not a threat to anything else.
inline constexpr char ThreatText[] = "<<this text stands for a virus>>";

class ScanLibrary
{
public:
    // ini is written beside the patterns.
    explicit ScanLibrary(const std::string& ini = {});
    ~ScanLibrary();

    HMODULE Module() const { return m_module.Get(); }
    AsHandle Handle() const { return m_handle; }
    const TempFolder& Folder() const { return m_folder; }

    template <typename Function>
    Function Entry(const char* name) const
    {
        return reinterpret_cast<Function>(Find(name));
    }

    AsConfigRecord Config(std::uint32_t directions = 15);
    bool Configure(const AsConfigRecord& record) const;
    bool Start() const;
    bool Stop() const;
    void WritePatterns(const char* name, const std::string& signatures) const;

    // The number that the status file shows under the key; 0 when there is none yet.
    unsigned long Status(const std::string& key) const;
    std::string StatusText() const;

    std::vector<AsDetectionRecord> Detections() const;
    // From now on a detection callback returns only when this is set back.
    void HoldCallbacks(bool hold);

private:
    void* Find(const char* name) const;
    static void CALLBACK OnDetection(void* context, const AsDetectionRecord* record);

    TempFolder m_folder;
    LibraryHandle m_module;
    AsHandle m_handle = nullptr;
    mutable std::mutex m_lock;
    std::condition_variable m_released;
    bool m_hold = false;
    std::vector<AsDetectionRecord> m_detections;
};

std::string NarrowText(const WCHAR* text); // ASCII

} // namespace vlt::test
