// The quarantine store on real files.
#include "tests/unit/QuarantineStore.h"

#include <algorithm>
#include <cstring>
#include <fstream>

using namespace vlt;
using namespace vlt::test;

namespace
{

constexpr std::size_t kSize = sizeof(QuarantineRecord);

std::string Bytes(const QuarantineRecord& record)
{
    return std::string(reinterpret_cast<const char*>(&record), kSize);
}

QuarantineRecord MakeRecord(WStringView name, std::uint32_t type = 6, WStringView threat = TEXT("T"))
{
    QuarantineRecord record{};
    record.platform = 2;
    record.type = type;
    record.status = 3;
    CopyToField(record.sourceName, WStringView(TEXT("bad.txt")));
    CopyToField(record.sourceFolder, WStringView(TEXT("C:\\d\\")));
    CopyToField(record.quarantinedName, name);
    CopyToField(record.threatName, threat);
    return record;
}

std::string Name(const QuarantineRecord& record)
{
    return ToNarrow(FieldText(record.quarantinedName));
}

// A store that can scan, with one signature that can be taken out of a file and one that cannot.
class ScanningStore
{
public:
    ScanningStore()
    {
        m_library.WritePatterns("ptf$qrv.002", "version 200\n"
                                               "hex Test-Loose clean 3C 4C 4F 4F 53 45 3E\n" // <LOOSE>
                                               "hex Test-Firm 3C 46 49 52 4D 3E\n");         // <FIRM>
        const WString patterns = m_library.Folder().PathW() + TEXT("\\");
        AsInitRecord record{};
        record.appFolder = record.patternFolder = patterns.c_str();
        record.version = AS_INIT_VERSION;
        m_handle = m_library.Entry<ASInitScanW_t>("ASInitScanW")(2, &record, 0);
        EXPECT_NE(nullptr, m_handle) << record.reason;
        EXPECT_EQ(1, store.QuarantineInitW(m_library.Module(), m_handle, folder.PathW().c_str()));
    }
    ~ScanningStore() { m_library.Entry<ASDeInitScan_t>("ASDeInitScan")(m_handle); }

    // Puts a file of that content away; its name in the store.
    std::string Quarantine(const std::string& content)
    {
        WriteBytes(outside.HostPath("found.txt"), content);
        EXPECT_EQ(1, store._EncodeFileW(outside.PathW("found.txt").c_str(), folder.PathW("encoded.bin").c_str(), true,
                                        false));
        EXPECT_EQ(1, store.RenameEncodeFileW(TEXT("encoded.bin"), outside.PathW("found.txt").c_str(), TEXT("Threat")));
        return Name(Records().back());
    }

    std::vector<QuarantineRecord> Records()
    {
        std::vector<QuarantineRecord> records;
        QuarantineRecord record{};
        while (store._ReadQuarantineDBW(&record))
            records.push_back(record);
        store.CloseEnumerations();
        return records;
    }

    std::string Restored(const std::string& name)
    {
        EXPECT_EQ(1, store.RestoreFileW(folder.PathW(name).c_str(), outside.PathW("restored").c_str(), false));
        return ReadBytes(outside.HostPath("restored"));
    }

    bool HasLeftovers() const
    {
        return std::filesystem::exists(folder.HostPath("TEMP$.$$$")) ||
               std::filesystem::exists(folder.HostPath("$VB$.$$$")) || std::filesystem::exists(folder.HostPath("Temp"));
    }

    TempFolder folder;
    TempFolder outside;

private:
    ScanLibrary m_library;
    AsHandle m_handle = nullptr;

public:
    CQuarantine store;
};

} // namespace

TEST(Quarantine, AFilePutAwayIsMovedAndRecordedToTheByte)
{
    QuarantineStore test;
    const WString threat(131, TEXT('t'));
    ASSERT_EQ(1, test.Quarantine("payload", TEXT("C:\\Users\\x\\in.fected.txt"), threat.c_str()));
    EXPECT_FALSE(std::filesystem::exists(test.File("encoded.bin")));

    const std::string file = ReadBytes(test.File("QUADB.VDB"));
    ASSERT_EQ(kSize, file.size());
    QuarantineRecord record;
    std::memcpy(&record, file.data(), kSize);
    const std::string name = Name(record);
    EXPECT_TRUE(name.ends_with(".tmp") && name.find_first_not_of("0123456789ABCDEFabcdef") == name.size() - 4) << name;
    EXPECT_EQ("payload", ReadBytes(test.File(name)));

    QuarantineRecord expected = MakeRecord(FieldText(record.quarantinedName), 6, WStringView(threat).substr(0, 127));
    CopyToField(expected.sourceName, WStringView(TEXT("in.fected.txt")));
    CopyToField(expected.sourceFolder, WStringView(TEXT("C:\\Users\\x\\")));
    expected.patternVersion = record.patternVersion;
    std::memcpy(expected.engineVersion, record.engineVersion, 8);
    std::memcpy(expected.date, record.date, sizeof record.date);
    EXPECT_EQ(Bytes(expected), file);
    EXPECT_NE(0u, record.patternVersion);
    EXPECT_EQ(16u, FieldText(record.date).size());
    EXPECT_EQ(TEXT('/'), record.date[4]);

    ASSERT_EQ(1, test.Quarantine("second", TEXT(""), TEXT("---")));
    EXPECT_EQ(2u, test.Records().size());
}

TEST(Quarantine, RefusalsLeaveEverythingWhereItIs)
{
    QuarantineStore test;
    CQuarantine none;
    EXPECT_EQ(0, none.RenameEncodeFileW(TEXT("a"), TEXT("b"), TEXT("c")));
    EXPECT_EQ(3u, none.LastErrorCode());
    EXPECT_EQ(0, none.QuarantineInitW(nullptr, nullptr, TEXT("C")));
    EXPECT_EQ(1u, none.LastErrorCode());
    EXPECT_EQ(0, test.Quarantine("payload", TEXT("C:\\x"), TEXT("")));
    EXPECT_EQ(1u, test.store.LastErrorCode());
    EXPECT_EQ(0, test.store.RenameEncodeFileW(TEXT("missing.bin"), TEXT("C:\\x"), TEXT("T")));
    EXPECT_EQ(33u, test.store.LastErrorCode());
    EXPECT_EQ("payload", ReadBytes(test.File("encoded.bin")));
    EXPECT_EQ(0, test.store.ClearAllW());
    EXPECT_FALSE(std::filesystem::exists(test.File("QUADB.VDB"))) << "an empty store is not touched";

    // A folder in place of the record file: the moved file stays, the record is missed.
    std::filesystem::create_directory(test.File("QUADB.VDB"));
    EXPECT_EQ(0, test.Quarantine("payload", TEXT("C:\\x"), TEXT("T")));
    EXPECT_EQ(8u, test.store.LastErrorCode());
    QuarantineRecord record{};
    EXPECT_EQ(0, test.store._ReadQuarantineDBW(&record));
    EXPECT_EQ(8u, test.store.LastErrorCode());
}

TEST(Quarantine, ReadersSkipWhatIsNoFileAndATornRecordMisalignsNothing)
{
    QuarantineStore test;
    std::string file;
    for (int i = 0; i < 300; ++i)
        file += Bytes(MakeRecord(ToWide(std::to_string(i)), i % 3 == 0 ? 3 : 6));
    WriteBytes(test.File("QUADB.VDB"), file + std::string(100, 'x'));
    EXPECT_EQ(200u, test.Records().size());

    ASSERT_EQ(1, test.Quarantine("payload", TEXT("C:\\x"), TEXT("T")));
    const std::string now = ReadBytes(test.File("QUADB.VDB"));
    EXPECT_EQ(302 * kSize, now.size());
    EXPECT_EQ(file + std::string(100, 'x'), now.substr(0, file.size() + 100)) << "the torn record is kept";
    const std::vector<QuarantineRecord> records = test.Records();
    ASSERT_FALSE(records.empty());
    EXPECT_EQ("payload", ReadBytes(test.File(Name(records.back()))));
}

TEST(Quarantine, UpdatesAndDeletionsTouchTheirRecordsOnly)
{
    QuarantineStore test;
    std::string file;
    for (const auto& record : {MakeRecord(TEXT("a.tmp")), MakeRecord(TEXT("A.TMP")), MakeRecord(TEXT("b.tmp"), 6, {}),
                               MakeRecord(TEXT("..\\outside")), MakeRecord(TEXT("old"), 3)})
        file += Bytes(record);
    const std::string endless(kSize, 'A'); // no text has a terminator
    WriteBytes(test.File("QUADB.VDB"), file + endless);
    WriteBytes(test.File("a.tmp"), "a");
    WriteBytes(test.File("../outside"), "outside");

    EXPECT_EQ(1, test.store.UpdateQuarantineDBW(TEXT("a.tmp"), 2, TEXT("New")));
    EXPECT_EQ(1, test.store.UpdateQuarantineDBW(TEXT("b.tmp"), 4, TEXT("New")));
    EXPECT_EQ(1, test.store.UpdateQuarantineDBW(TEXT("no such"), 4, TEXT("New")));
    QuarantineRecord a = MakeRecord(TEXT("a.tmp"), 6, TEXT("New"));
    a.status = 2;
    QuarantineRecord b = MakeRecord(TEXT("b.tmp"), 6, {});
    b.status = 4;
    const std::string rest = Bytes(MakeRecord(TEXT("..\\outside"))) + Bytes(MakeRecord(TEXT("old"), 3)) + endless;
    EXPECT_EQ(Bytes(a) + Bytes(MakeRecord(TEXT("A.TMP"))) + Bytes(b) + rest, ReadBytes(test.File("QUADB.VDB")));

    for (const WCHAR* name : {TEXT("a.tmp"), TEXT("..\\outside")})
        test.store.SelectForDeletion(name);
    EXPECT_EQ(1, test.store.DeleteQuarantinedW());
    EXPECT_EQ(Bytes(MakeRecord(TEXT("A.TMP"))) + Bytes(b) + Bytes(MakeRecord(TEXT("old"), 3)) + endless,
              ReadBytes(test.File("QUADB.VDB")));
    EXPECT_FALSE(std::filesystem::exists(test.File("a.tmp")));
    EXPECT_EQ("outside", ReadBytes(test.File("../outside"))) << "a name never leads out of the folder";
    std::filesystem::remove(test.File("../outside"));
    EXPECT_FALSE(std::filesystem::exists(test.File("$VB$.$$$")));

    WriteBytes(test.File("b.tmp"), "b");
    std::filesystem::create_directory(test.File("Backup"));
    WriteBytes(test.File("Backup/x.RB0"), "x");
    EXPECT_EQ(1, test.store.ClearAllW());
    EXPECT_TRUE(ReadBytes(test.File("QUADB.VDB")).empty());
    EXPECT_FALSE(std::filesystem::exists(test.File("b.tmp")) || std::filesystem::exists(test.File("Backup/x.RB0")));
}

TEST(Quarantine, StartTakesBackWhatARewriteLeft)
{
    struct Case {
        std::string records;
        std::string scratch;
        std::string after;
        bool scratchStays;
    };
    const std::string a = Bytes(MakeRecord(TEXT("a.tmp")));
    const std::string b = Bytes(MakeRecord(TEXT("b.tmp")));
    const std::string gone = Bytes(MakeRecord(TEXT("gone.tmp")));
    const Case cases[] = {
        {"", a + b, a + b, false},               // before the rename
        {a + b, a, a + b, false},                // before the deletion
        {a, a + b + gone, a + b, false},         // another program was quicker than the rename
        {a, "restored infected file", a, false}, // another use of the scratch file
        {a, a + b + "torn", a + b, false},       // the same of a file that ended in a torn record
        {"", a + b.substr(0, 99), a + b.substr(0, 99), false},
        {"", "restored", "", true}, // what is no sequence of records is left for a person to look at
        {"", a + std::string(kSize, '\xFF'), "", true},
    };
    for (const Case& given : cases) {
        TempFolder folder;
        WriteBytes(folder.HostPath("a.tmp"), "a");
        WriteBytes(folder.HostPath("b.tmp"), "b");
        if (!given.records.empty())
            WriteBytes(folder.HostPath("QUADB.VDB"), given.records);
        WriteBytes(folder.HostPath("$VB$.$$$"), given.scratch);
        const QuarantineStore test(folder.PathW());
        EXPECT_EQ(given.after, ReadBytes(folder.HostPath("QUADB.VDB")));
        EXPECT_EQ(given.scratchStays, std::filesystem::exists(folder.HostPath("$VB$.$$$")));
    }
}

TEST(Quarantine, AFileGoesInEncodedAndComesBackIdentical)
{
    ScanningStore test;
    const std::string content("in\0fected", 9);
    const WString found = test.outside.PathW("found.txt");
    const WString encoded = test.folder.PathW("kept.bin");
    const auto encode = [&](const WString& destination, bool retry) {
        return test.store._EncodeFileW(found.c_str(), destination.c_str(), true, retry);
    };
    EXPECT_EQ(0, encode(encoded, true));
    EXPECT_EQ(35u, test.store.LastErrorCode());

    WriteBytes(test.outside.HostPath("found.txt"), content);
    ASSERT_TRUE(SetFileAttributesW(found.c_str(), FILE_ATTRIBUTE_READONLY));
    EXPECT_EQ(0, encode(test.folder.PathW("missing") + TEXT("\\kept.bin"), true));
    EXPECT_NE(0u, GetFileAttributesW(found.c_str()) & FILE_ATTRIBUTE_READONLY) << "given back after the failure";
    EXPECT_EQ(content, ReadBytes(test.outside.HostPath("found.txt")));
    EXPECT_FALSE(test.HasLeftovers());

    ASSERT_EQ(1, encode(encoded, false));
    EXPECT_FALSE(std::filesystem::exists(test.outside.HostPath("found.txt")));
    EXPECT_EQ(std::string::npos, ReadBytes(test.folder.HostPath("kept.bin")).find(content));
    EXPECT_NE(0u, GetFileAttributesW(encoded.c_str()) & FILE_ATTRIBUTE_READONLY);

    // To a place of the caller's, over what is there; then to the place where it was found.
    WriteBytes(test.outside.HostPath("other.txt"), "other");
    const WString other = test.outside.PathW("other.txt");
    ASSERT_TRUE(SetFileAttributesW(other.c_str(), FILE_ATTRIBUTE_READONLY));
    EXPECT_EQ(1, test.store.RestoreFileW(encoded.c_str(), other.c_str(), false));
    EXPECT_EQ(1, test.store.RestoreFileW(encoded.c_str(), nullptr, true));
    EXPECT_EQ(content, ReadBytes(test.outside.HostPath("other.txt")));
    EXPECT_EQ(content, ReadBytes(test.outside.HostPath("found.txt")));
    for (const WString& file : {found, other, encoded}) {
        EXPECT_NE(0u, GetFileAttributesW(file.c_str()) & FILE_ATTRIBUTE_READONLY);
        SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL); // else the test's folders cannot be removed
    }

#ifndef _WIN32
    // The library takes a slash in front for a path of the host; the store's copy still gets through.
    ASSERT_TRUE(SetCurrentDirectoryW(test.outside.PathW().c_str()));
    WString slashed = test.outside.PathW("other.txt").substr(2);
    std::replace(slashed.begin(), slashed.end(), TEXT('\\'), TEXT('/'));
    WriteBytes(test.outside.HostPath("other.txt"), "other");
    EXPECT_EQ(1, test.store.RestoreFileW(encoded.c_str(), slashed.c_str(), true));
    EXPECT_EQ(content, ReadBytes(test.outside.HostPath("other.txt")));
    ASSERT_TRUE(SetCurrentDirectoryW(TEXT("C:\\"))); // a folder in use cannot be removed
#endif

    WriteBytes(test.folder.HostPath("foreign.bin"), "not encoded");
    EXPECT_EQ(0, test.store.RestoreFileW(test.folder.PathW("foreign.bin").c_str(), other.c_str(), true));
    EXPECT_EQ(21u, test.store.LastErrorCode());
    std::filesystem::create_directory(test.outside.HostPath("folder"));
    EXPECT_EQ(0, test.store.RestoreFileW(encoded.c_str(), test.outside.PathW("folder").c_str(), true));
    EXPECT_EQ(content, ReadBytes(test.outside.HostPath("other.txt")));
    EXPECT_FALSE(test.HasLeftovers());

    // The scratch file is not used while records lie in it that could not be taken back.
    WriteBytes(test.folder.HostPath("a.tmp"), "a");
    WriteBytes(test.folder.HostPath("$VB$.$$$"), Bytes(MakeRecord(TEXT("a.tmp"))));
    std::filesystem::create_directory(test.folder.HostPath("QUADB.VDB"));
    EXPECT_EQ(0, test.store.RestoreFileW(encoded.c_str(), test.outside.PathW("folder").c_str(), true));
    EXPECT_EQ(Bytes(MakeRecord(TEXT("a.tmp"))), ReadBytes(test.folder.HostPath("$VB$.$$$")));
}

TEST(Quarantine, ScanningTellsWhatIsKeptAndChangesItsRecordOnly)
{
    ScanningStore test;
    std::vector<AsScanResultRecord> results;
    test.store.AttachResultList(&results);
    struct Case {
        const char* content;
        const char* threat;  // in the record afterwards
        std::uint32_t only;  // result and status of the scan
        std::uint32_t clean; // status of the scan that would clean
    };
    for (const Case& given : {Case{"harmless", "Threat", 1, 2}, Case{"a <LOOSE> end", "Test-Loose", 2, 4},
                              Case{"a <FIRM> end", "Test-Firm", 3, 3}}) {
        const std::string name = test.Quarantine(given.content);
        WString otherCase = ToWide(name);
        for (WCHAR& letter : otherCase)
            letter = letter >= 'a' && letter <= 'z' ? static_cast<WCHAR>(letter - 32) : letter;
        std::uint32_t result = 0;
        EXPECT_EQ(static_cast<int>(given.only), test.store.ScanW(otherCase.c_str(), 1, &result)) << given.content;
        EXPECT_EQ(given.only, result);
        EXPECT_EQ(given.only, test.Records().back().status);
        EXPECT_EQ(given.threat, ToNarrow(FieldText(test.Records().back().threatName)));
        EXPECT_EQ(1, test.store._ScanCleanW(otherCase.c_str(), 1, &result));
        EXPECT_EQ(given.only, result);
        EXPECT_EQ(given.clean, test.Records().back().status);
        EXPECT_EQ(given.content, test.Restored(name));
        EXPECT_FALSE(test.HasLeftovers());
    }
    EXPECT_EQ(4u, results.size()) << "two scans of two infected files";
    std::uint32_t result = 0;
    EXPECT_EQ(0, test.store.ScanW(TEXT("no such"), 1, &result));
}

TEST(Quarantine, CleaningTakesTheThreatOutAndKeepsABackup)
{
    ScanningStore test;
    std::uint32_t result = 0;
    const std::string firm = test.Quarantine("a <FIRM> end");
    EXPECT_EQ(0, test.store._ScanCleanW(ToWide(firm).c_str(), 2, &result));
    EXPECT_EQ(20u, test.store.LastErrorCode());
    EXPECT_EQ(3u, test.Records().back().status);
    EXPECT_EQ("a <FIRM> end", test.Restored(firm));

    const std::string loose = test.Quarantine("a <LOOSE> end");
    EXPECT_EQ(1, test.store._ScanCleanW(ToWide(loose).c_str(), 2, &result));
    EXPECT_EQ(2u, result);
    EXPECT_EQ(4u, test.Records().back().status);
    EXPECT_EQ("a  end", test.Restored(loose));

    // The backup is in no record: it is found through the listing.
    QuarantineRecord backup{};
    ASSERT_EQ(1, test.store.GetBackupInfoW(&backup));
    const WString name(FieldText(backup.quarantinedName));
    EXPECT_EQ(3u, backup.type);
    EXPECT_EQ(1u, backup.status);
    EXPECT_EQ(16u, FieldText(backup.date).size());
    EXPECT_EQ(0, test.store.GetBackupInfoW(&backup));
    EXPECT_EQ(2, test.store.ScanW(name.c_str(), 1, &result));
    EXPECT_EQ("a <LOOSE> end", test.Restored("Backup\\" + ToNarrow(name)));
    EXPECT_EQ(1, test.store.DeleteBackupW(name.c_str()));
    test.store.CloseEnumerations();
    EXPECT_EQ(0, test.store.GetBackupInfoW(&backup));
    EXPECT_FALSE(test.HasLeftovers());
}

TEST(Quarantine, StartRemovesTheDecodedCopiesThatAKilledProgramLeft)
{
    TempFolder folder;
    std::filesystem::create_directory(folder.HostPath("Temp"));
    for (const char* const copy : {"TEMP$.$$$", "Temp/1A.tmp"})
        WriteBytes(folder.HostPath(copy), "infected");
    const QuarantineStore test(folder.PathW());
    EXPECT_FALSE(std::filesystem::exists(folder.HostPath("TEMP$.$$$")) ||
                 std::filesystem::exists(folder.HostPath("Temp")));
}
