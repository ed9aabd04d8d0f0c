#include "tests/suite/ScanLibrary.h"

#include <gtest/gtest.h>

namespace vlt::test
{
std::string NarrowText(const WCHAR* text)
{
    std::string result;
    for (; *text; ++text)
        result += static_cast<char>(*text);
    return result;
}

ScanLibrary::ScanLibrary(const std::string& ini)
{
    WritePatterns("ptf$qrv.001", std::string("version 100\ntext Test-Virus \"") + ThreatText + "\"\n");
    WriteBytes(m_folder.HostPath("ArdScan.ini"), ini);
    m_module = LoadBuilt("ArdScan.dll");
    const WString folder = m_folder.PathW() + TEXT("\\");
    AsInitRecord record{};
    record.appFolder = record.patternFolder = folder.c_str();
    record.version = AS_INIT_VERSION;
    m_handle = Entry<ASInitScanW_t>("ASInitScanW")(2, &record, 1);
    EXPECT_NE(m_handle, nullptr) << record.reason;
}

ScanLibrary::~ScanLibrary()
{
    HoldCallbacks(false);
    EXPECT_EQ(Entry<ASDeInitScan_t>("ASDeInitScan")(m_handle), 1);
}

void* ScanLibrary::Find(const char* name) const
{
    void* entry = reinterpret_cast<void*>(GetProcAddress(m_module.Get(), name));
    EXPECT_NE(entry, nullptr) << name;
    return entry;
}

AsConfigRecord ScanLibrary::Config(std::uint32_t directions)
{
    AsConfigRecord record{};
    record.firstAction = AS_ACTION_CLEAN;
    record.secondAction = AS_ACTION_NONE;
    record.extractSizeLimit = 0xFFFFFFFFu;
    record.directionMask = directions;
    record.extensionList[0] = '*';
    record.monitorNetwork = 1;
    record.detectionCallback = record.spywareCallback = &OnDetection;
    record.detectionContext = record.spywareContext = this;
    return record;
}

bool ScanLibrary::Configure(const AsConfigRecord& record) const
{
    return Entry<ASSetConfigW_t>("ASSetConfigW")(m_handle, &record) == 1;
}

bool ScanLibrary::Start() const
{
    return Entry<ASStartScan_t>("ASStartScan")(m_handle) == 1;
}
bool ScanLibrary::Stop() const
{
    return Entry<ASStopScan_t>("ASStopScan")(m_handle, 0) == 1;
}

void ScanLibrary::WritePatterns(const char* name, const std::string& signatures) const
{
    WritePattern(m_folder, name, signatures);
}

std::string ScanLibrary::StatusText() const
{
    return ReadBytes(m_folder.HostPath("ArdScan.status"));
}

unsigned long ScanLibrary::Status(const std::string& key) const
{
    const std::string text = StatusText();
    const auto at = text.find("\"" + key + "\": ");
    return at == std::string::npos ? 0 : std::strtoul(text.c_str() + at + key.size() + 4, nullptr, 10);
}

std::vector<AsDetectionRecord> ScanLibrary::Detections() const
{
    const std::lock_guard lock(m_lock);
    return m_detections;
}

void ScanLibrary::HoldCallbacks(bool hold)
{
    const std::lock_guard lock(m_lock);
    m_hold = hold;
    m_released.notify_all();
}

void CALLBACK ScanLibrary::OnDetection(void* context, const AsDetectionRecord* record)
{
    auto& self = *static_cast<ScanLibrary*>(context);
    std::unique_lock lock(self.m_lock);
    self.m_detections.push_back(*record);
    self.m_released.wait(lock, [&] { return !self.m_hold; });
}

} // namespace vlt::test
