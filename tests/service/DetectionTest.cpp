// What one detection leaves behind: the store, the day's log, the last detection in the ini file and in
// the registry, and the pulse for user interfaces agree.
#include "ARDCommon/QuarantineFormat.h"
#include "engine/ArdScanAbi.h"
#include "platform/Text.h"
#include "tests/platform/Waiter.h"
#include "tests/service/Lives.h"

#include <cstring>
#include <ctime>

using namespace vlt::test;

namespace
{

constexpr const WCHAR* kScanInfoKey = TEXT("Software\\Veltrano\\Ardentis\\15\\ScanInfo");

struct Case {
    const char* name;
    WStringView threat;
    WStringView path;
    WStringView second;
    std::uint32_t first[2]; // action, result
    std::uint32_t other[2];
    const char* source; // recorded in the store; null: not put away
    const char* kept;   // with this threat
    const char* shown;  // as the last detection; null: unchanged
};

std::string Dword(const Value& value)
{
    std::uint32_t number = 0;
    if (value.type != REG_DWORD || value.bytes.size() != sizeof number)
        return "(none)";
    std::memcpy(&number, value.bytes.data(), sizeof number);
    return std::to_string(number);
}

void ExpectStore(const Installation& service, const Case& each)
{
    const std::string file = ReadBytes(service.File("Quarantine/QUADB.VDB"));
    EXPECT_EQ(each.source == nullptr, std::filesystem::exists(service.File("Quarantine/encoded.bin")));
    ASSERT_EQ(each.source == nullptr ? 0 : sizeof(QuarantineRecord), file.size());
    if (each.source == nullptr)
        return;
    QuarantineRecord record;
    std::memcpy(&record, file.data(), sizeof record);
    const std::string name = vlt::ToNarrow(vlt::FieldText(record.quarantinedName));
    EXPECT_EQ("encoded", ReadBytes(service.File("Quarantine/" + name)));
    EXPECT_EQ(each.source,
              vlt::ToNarrow(vlt::FieldText(record.sourceFolder)) + vlt::ToNarrow(vlt::FieldText(record.sourceName)));
    EXPECT_EQ(each.kept, vlt::ToNarrow(vlt::FieldText(record.threatName)));
}

void ExpectLastDetection(const Installation& service, const Case& each, std::time_t before)
{
    const Value shown = ReadValue(kScanInfoKey, "LastDetectFile");
    ASSERT_EQ(each.shown == nullptr, shown.type == REG_NONE);
    EXPECT_EQ(each.shown == nullptr, service.Ini("Info", "LastTime") == "(none)");
    if (each.shown == nullptr)
        return;
    EXPECT_EQ(each.shown, shown.Text());
    EXPECT_EQ(each.shown, service.Ini("Info", "LastInfectFile"));
    EXPECT_EQ(vlt::ToNarrow(each.threat), service.Ini("Info", "LastVirus"));
    EXPECT_EQ(vlt::ToNarrow(each.threat), ReadValue(kScanInfoKey, "LastDetectVirus").Text());
    EXPECT_EQ("0", Dword(ReadValue(kScanInfoKey, "LastDetectType")));
    const std::time_t written = std::stol(Dword(ReadValue(kScanInfoKey, "LastDetectTime")));
    EXPECT_TRUE(before <= written && written <= std::time(nullptr));
}

} // namespace

TEST(ServiceDetections, EveryRecordOfOneAgrees)
{
    const WStringView none;
    const Case cases[] = {
        {"encoded at once",
         TEXT("Threat"),
         TEXT("C:\\bad\\f.txt"),
         none,
         {2, 1},
         {0, 0},
         "C:\\bad\\f.txt",
         "Threat",
         "C:\\bad\\f.txt"},
        {"encoded second, under its other name", none, none, TEXT("C:\\o"), {3, 2}, {2, 1}, "C:\\o", "---", nullptr},
        {"a member of an archive", TEXT("T"), TEXT("C:\\a"), TEXT("m"), {2, 1}, {0, 0}, nullptr, "", "C:\\a (m)"},
        {"encoding failed", TEXT("T"), TEXT("C:\\a"), none, {2, 2}, {2, 0}, nullptr, "", "C:\\a"},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name);
        Installation service;
        RegDeleteKeyExW(HKEY_LOCAL_MACHINE, kScanInfoKey, KEY_WOW64_32KEY, 0);
        std::filesystem::create_directory(service.File("Quarantine"));
        WriteBytes(service.File("Quarantine/encoded.bin"), "encoded");
        AsDetectionRecord record{};
        vlt::CopyToField(record.threatName, each.threat);
        vlt::CopyToField(record.infectedPath, each.path);
        vlt::CopyToField(record.secondPath, each.second);
        vlt::CopyToField(record.encodedPath, WStringView(service.Folder() + TEXT("Quarantine\\encoded.bin")));
        record.firstAction = each.first[0];
        record.firstResult = each.first[1];
        record.secondAction = each.other[0];
        record.secondResult = each.other[1];
        WriteBytes(service.File("detect.bin"), {reinterpret_cast<const char*>(&record), sizeof record});

        const vlt::KernelHandle refresh(CreateEventW(nullptr, TRUE, FALSE, TEXT("Global\\Event_Refresh_Status")));
        const vlt::KernelHandle enough(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        const TestThread listener([&] {
            const HANDLE handles[] = {refresh.Get(), enough.Get()};
            return static_cast<unsigned>(WaitForMultipleObjects(2, handles, FALSE, kSoon));
        });
        listener.AwaitAsleep();
        const std::time_t before = std::time(nullptr);
        ASSERT_TRUE(service.Start());
        ASSERT_TRUE(Eventually(20000, [&] {
            return static_cast<bool>(
                Holds(service.Transcript(), {"50 .\\Detection.cpp Leave ThreadWriteVirusLogForRealTimeScan()..."}));
        }));
        ASSERT_TRUE(service.Reaches(SERVICE_RUNNING));
        ASSERT_TRUE(service.Control(SERVICE_CONTROL_STOP));
        ASSERT_TRUE(service.Reaches(SERVICE_STOPPED));
        SetEvent(enough.Get());
        ASSERT_TRUE(listener.HasEnded());
        if (kSleepersAreSeen) {
            EXPECT_EQ(each.shown == nullptr ? 1u : 0u, listener.ExitCode());
        }
        ExpectStore(service, each);
        ExpectLastDetection(service, each, before);
    }
}
