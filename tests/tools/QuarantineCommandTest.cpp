// vlctl quarantine on stores that others write to, have torn, or have filled with bad intentions.
#include "ARDCommon/QuarantineFormat.h"
#include "engine/ArdScanAbi.h"
#include "platform/Format.h"
#include "platform/Text.h"
#include "platform/Unique.h"
#include "tests/support/Support.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstring>
#include <iostream>
#include <set>

using namespace vlt::test;
using nlohmann::json;
namespace fs = std::filesystem;

namespace
{

constexpr unsigned kDeadline = 50000;

struct Result {
    int exit = 0;
    std::vector<std::string> lines;
};

QuarantineRecord RecordOf(const std::string& name, WStringView source = TEXT("C:\\in\\a.exe"))
{
    QuarantineRecord record{2, kQuarantinedType, kQuarantinedStatus, 100, {}, {}, {}, {}, {}, {}};
    vlt::CopyToField(record.sourceFolder, WStringView(TEXT("C:\\in\\")));
    vlt::CopyToField(record.sourceName, source.substr(source.find_last_of('\\') + 1));
    vlt::CopyToField(record.quarantinedName, WStringView(vlt::ToWide(name)));
    vlt::CopyToField(record.date, WStringView(TEXT("2024/02/29 23:59")));
    vlt::CopyToField(record.threatName, WStringView(TEXT("Eicar")));
    return record;
}

std::string Bytes(const QuarantineRecord& record)
{
    return {reinterpret_cast<const char*>(&record), sizeof record};
}

class Store
{
public:
    Result Vlctl(std::vector<std::string> arguments) const
    {
        Child child = Launch(std::move(arguments));
        Result result;
        for (std::string line = child.ReadLine(kDeadline); !line.empty(); line = child.ReadLine(kDeadline))
            result.lines.push_back(line);
        result.exit = child.Wait(kDeadline);
        return result;
    }
    Child Launch(std::vector<std::string> arguments) const
    {
        const char* const program = fs::exists(ProductFolder() / "vlctl") ? "vlctl" : "vlctl.exe";
        arguments.insert(arguments.begin(), {"quarantine", "--folder", Path()});
        return Child::Program(ProductFolder() / program, arguments);
    }

    std::string Path(std::string_view name = {}) const { return vlt::ToNarrow(folder.PathW(name), CP_UTF8); }
    void Put(const std::string& name, const std::string& bytes) const { WriteBytes(folder.HostPath(name), bytes); }
    std::string Get(const std::string& name) const { return ReadBytes(folder.HostPath(name)); }
    bool Has(const std::string& name) const { return fs::exists(folder.HostPath(name)); }
    std::string Db() const { return Get("QUADB.VDB"); }

    TempFolder folder;
};

vlt::KernelHandle StoreSemaphore()
{
    return vlt::KernelHandle(
        CreateSemaphoreW(nullptr, 1, 1, (WString(TEXT("Global\\")) + kQuarantineSemaphore).c_str()));
}

} // namespace

TEST(QuarantineCommand, HostileAndTornRecordsAreListedAndNeverFollowed)
{
    const Store store;
    store.Put("1.tmp", "kept");
    store.Put("2.tmp", "orphan");
    const fs::path outside = store.folder.HostPath().parent_path() / "outside.tmp";
    WriteBytes(outside, "not ours");
    QuarantineRecord full;
    std::memset(&full, 'A', sizeof full); // no text ends
    QuarantineRecord other = RecordOf("1.tmp");
    other.type = 3;
    const std::string tail = "torn";
    std::string db = Bytes(RecordOf("1.tmp", TEXT("C:\\in\\x\x001B[2J\x202Ey.exe"))) + Bytes(other) + Bytes(full);
    std::vector<std::string> hostile{"..\\outside.tmp", "../outside.tmp",    "..",  "QUADB.VDB",
                                     "$vb$.$$$",        "quadb.vdb.",        "",    "1.tmp:stream",
                                     "gone.tmp",        store.Path("1.tmp"), "a\nb"};
    for (const std::string& name : hostile)
        db += Bytes(RecordOf(name));
    store.Put("QUADB.VDB", db + tail);

    const Result text = store.Vlctl({"list"});
    EXPECT_EQ(text.exit, 0);
    ASSERT_EQ(text.lines.size(), 3 + hostile.size());
    EXPECT_TRUE(text.lines[1].ends_with("C:\\in\\x\\u001b[2J\\u202ey.exe")) << text.lines[1];
    std::set<std::string> ids;
    for (const std::string& line : store.Vlctl({"list", "--json"}).lines) {
        const json entry = json::parse(line, nullptr, false);
        EXPECT_EQ(entry["schema"], 1) << line;
        EXPECT_EQ(entry["size"].is_null(), entry["name"] != "1.tmp") << line;
        ids.insert(entry["id"]);
    }
    EXPECT_EQ(ids.size(), 2 + hostile.size());

    const Result verified = store.Vlctl({"verify"});
    EXPECT_EQ(verified.exit, 1);
    const auto reports = [&](const std::string& text_) {
        return std::any_of(verified.lines.begin(), verified.lines.end(),
                           [&](const std::string& line) { return line.find(text_) != std::string::npos; });
    };
    for (const char* each : {"unterminated text", "unusable name", "file missing", "no record", "torn record"})
        EXPECT_TRUE(reports(each)) << each;

    // All but the first go, and take nothing with them; what was torn stays behind whole records.
    std::vector<std::string> command{"delete"};
    const json first = json::parse(store.Vlctl({"list", "--json"}).lines[0], nullptr, false);
    ids.erase(first["id"]);
    command.insert(command.end(), ids.begin(), ids.end());
    EXPECT_EQ(store.Vlctl(command).exit, 0);
    EXPECT_EQ(store.Db(), db.substr(0, 2 * sizeof(QuarantineRecord)) + tail);
    EXPECT_EQ(ReadBytes(outside), "not ours");
    EXPECT_EQ(store.Get("1.tmp"), "kept");
    EXPECT_EQ(store.Vlctl({"delete", "no such"}).exit, 1);
    EXPECT_EQ(store.Vlctl({"show", "1.tmp"}).exit, 0);
    EXPECT_EQ(store.Vlctl({"clear"}).exit, 64);
    EXPECT_EQ(store.Vlctl({"clear", "--yes"}).exit, 0);
    EXPECT_TRUE(store.Db().empty() && !store.Has("1.tmp") && !store.Has("2.tmp"));
    EXPECT_EQ(store.Vlctl({"verify"}).exit, 0);
    fs::remove(outside);
}

TEST(QuarantineCommand, WhatACutShortRewriteLeftIsTakenBack)
{
    const Store store;
    const std::string one = Bytes(RecordOf("1.tmp")), two = Bytes(RecordOf("2.tmp")), three = Bytes(RecordOf("3.tmp"));
    for (const char* name : {"1.tmp", "2.tmp", "3.tmp"})
        store.Put(name, "x");
    store.Put("$VB$.$$$", one + two + "torn");
    EXPECT_EQ(store.Vlctl({"verify"}).exit, 1);
    EXPECT_EQ(store.Vlctl({"delete", "1.tmp"}).exit, 1); // as it stands it is not there
    EXPECT_EQ(store.Get("$VB$.$$$"), one + two + "torn");

    // A new file, itself torn, was begun before the copy could be put in place.
    store.Put("QUADB.VDB", three + "torn");
    EXPECT_EQ(store.Vlctl({"delete", "3.tmp"}).exit, 0);
    const std::string db = store.Db();
    ASSERT_EQ(db.size(), 3 * sizeof(QuarantineRecord));
    EXPECT_EQ(db.substr(sizeof(QuarantineRecord)), one + two);
    EXPECT_FALSE(store.Has("$VB$.$$$") || store.Has("3.tmp"));

    // Neither is a restored file that was left there.
    store.Put("$VB$.$$$", "restored");
    EXPECT_EQ(store.Vlctl({"delete", "2.tmp"}).exit, 0);
    EXPECT_EQ(store.Db(), db.substr(0, 2 * sizeof(QuarantineRecord)));
}

TEST(QuarantineCommand, AHundredThousandRecordsAreListedAndVerified)
{
    const Store store;
    std::string db;
    constexpr unsigned count = 100000;
    QuarantineRecord record = RecordOf("");
    for (unsigned i = 0; i < count; ++i) {
        vlt::CopyToField(record.quarantinedName, WStringView(vlt::ToWide(vlt::Format("%x.tmp", i))));
        db += Bytes(record);
    }
    store.Put("QUADB.VDB", db);
    store.Put("0.tmp", "");
    std::set<std::string> ids;
    for (const std::string& line : store.Vlctl({"list"}).lines)
        ids.insert(line.substr(0, line.find(' ')));
    EXPECT_EQ(ids.size(), count + 1); // with the heading
    const Result verified = store.Vlctl({"verify"});
    EXPECT_EQ(verified.exit, 1);
    EXPECT_EQ(verified.lines.back(), "100000 records, 1 files, 99999 problems");
    EXPECT_EQ(store.Db(), db);
}

// Appends as the service does, fifty records for each line of its input.
VLT_CHILD(appender)
{
    const WString path = vlt::ToWide(args[0], CP_UTF8) + TEXT("\\QUADB.VDB");
    unsigned next = 0;
    for (std::string line; std::getline(std::cin, line);) {
        for (const unsigned end = next + 50; next < end; ++next) {
            const QuarantineRecord record = RecordOf(vlt::Format("%u.tmp", next));
            const vlt::KernelHandle semaphore = StoreSemaphore();
            if (WaitForSingleObject(semaphore.Get(), kDeadline) != WAIT_OBJECT_0)
                return 1;
            vlt::FileHandle file(CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                             OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
            DWORD written = 0;
            SetFilePointer(file.Get(), 0, nullptr, FILE_END);
            const BOOL done = WriteFile(file.Get(), &record, sizeof record, &written, nullptr);
            file.Reset();
            ReleaseSemaphore(semaphore.Get(), 1, nullptr);
            if (!done)
                return 2;
        }
    }
    return 0;
}

TEST(QuarantineCommand, DeletingWhileTheServiceAppendsLosesNothing)
{
    const Store store;
    constexpr unsigned rounds = 8;
    std::string db;
    for (unsigned i = 0; i < rounds; ++i) {
        db += Bytes(RecordOf(vlt::Format("d%u.tmp", i)));
        store.Put(vlt::Format("d%u.tmp", i), "x");
    }
    store.Put("QUADB.VDB", db);
    Child appender("appender", {store.Path()});
    for (unsigned i = 0; i < rounds; ++i) {
        Child deleting = store.Launch({"delete", vlt::Format("d%u.tmp", i)});
        EXPECT_TRUE(appender.WriteLine("go"));
        EXPECT_EQ(deleting.Wait(kDeadline), 0);
        EXPECT_FALSE(store.Has(vlt::Format("d%u.tmp", i)));
    }
    appender.CloseInput();
    ASSERT_EQ(appender.Wait(kDeadline), 0);
    std::string expected;
    for (unsigned i = 0; i < 50 * rounds; ++i)
        expected += Bytes(RecordOf(vlt::Format("%u.tmp", i)));
    EXPECT_TRUE(store.Db() == expected);
}

TEST(QuarantineCommand, WithoutTheLockNothingIsChanged)
{
    const Store store;
    const std::string db = Bytes(RecordOf("1.tmp"));
    store.Put("QUADB.VDB", db);
    const vlt::KernelHandle semaphore = StoreSemaphore();
    ASSERT_EQ(WaitForSingleObject(semaphore.Get(), kDeadline), WAIT_OBJECT_0);
    EXPECT_EQ(store.Vlctl({"delete", "1.tmp"}).exit, 2);
    EXPECT_EQ(store.Db(), db);
    // It has given no count back that it never had.
    EXPECT_EQ(WaitForSingleObject(semaphore.Get(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
    ReleaseSemaphore(semaphore.Get(), 1, nullptr);
    EXPECT_EQ(store.Vlctl({"delete", "1.tmp"}).exit, 0);
    fs::remove(store.folder.HostPath("QUADB.VDB"));
    fs::create_directory(store.folder.HostPath("QUADB.VDB"));
    EXPECT_EQ(store.Vlctl({"list"}).exit, 2);
}

namespace
{

// Encodes files as the service's scan library does before they are put away.
class Encoder
{
public:
    Encoder()
    {
        const fs::path library = ProductFolder() / "ArdScan.dll";
        m_library.Reset(LoadLibraryW(WindowsPath(library).c_str()));
        const WString folder = WindowsPath(ProductFolder()) + TEXT("\\");
        AsInitRecord record{};
        record.appFolder = record.patternFolder = folder.c_str();
        record.version = AS_INIT_VERSION;
        m_handle = Entry<ASInitScanW_t>("ASInitScanW")(2, &record, 0);
        EXPECT_NE(m_handle, nullptr);
    }
    ~Encoder() { Entry<ASDeInitScan_t>("ASDeInitScan")(m_handle); }
    bool Encode(const WString& from, const WString& to) const
    {
        return Entry<ASEncodeFileW_t>("ASEncodeFileW")(m_handle, from.c_str(), to.c_str()) == 1;
    }

private:
    static WString WindowsPath(const fs::path& host)
    {
#ifdef _WIN32
        return host.wstring();
#else
        return TEXT("Z:") + vlt::ToWide(host.string(), CP_UTF8);
#endif
    }
    template <typename Function>
    Function Entry(const char* name) const
    {
        return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(m_library.Get(), name)));
    }

    vlt::LibraryHandle m_library;
    AsHandle m_handle = nullptr;
};

} // namespace

TEST(QuarantineCommand, RestoresByteForByteAndOverwritesOnlyWhenTold)
{
    const Store store;
    const Encoder encoder;
    const TempFolder origin;
    std::string bytes(3000001, 0);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(i * i >> 7);
    const fs::path original = origin.HostPath("a.exe");
    WriteBytes(original, bytes);
    ASSERT_TRUE(encoder.Encode(origin.PathW("a.exe"), store.folder.PathW("1.tmp")));
    const std::string encoded = store.Get("1.tmp"), db = Bytes(RecordOf("1.tmp", TEXT("C:\\elsewhere\\b.exe")));
    store.Put("QUADB.VDB", db);
    const auto isUntouched = [&] { return store.Db() == db && store.Get("1.tmp") == encoded; };

    WriteBytes(original, "precious");
    EXPECT_EQ(store.Vlctl({"restore", "1.tmp"}).exit, 2);
    EXPECT_EQ(ReadBytes(original), "precious");
    EXPECT_EQ(store.Vlctl({"restore", "1.tmp", "--force", "--keep"}).exit, 0);
    EXPECT_TRUE(ReadBytes(original) == bytes && isUntouched());
    WriteBytes(original, "precious");

    // Half a file is not restored, and neither is one that does not fit where it should go.
    store.Put("1.tmp", encoded.substr(0, encoded.size() / 2));
    EXPECT_EQ(store.Vlctl({"restore", "1.tmp", "--force"}).exit, 2);
    store.Put("1.tmp", encoded);
    const std::string other = vlt::ToNarrow(origin.PathW("b.exe"), CP_UTF8);
    EXPECT_EQ(store.Vlctl({"restore", "1.tmp", "--to", other + "\\c"}).exit, 2);
    EXPECT_EQ(store.Vlctl({"restore", "1.tmp", "--to", store.Path(), "--force"}).exit, 2);
    EXPECT_TRUE(ReadBytes(original) == "precious" && isUntouched());

    EXPECT_EQ(store.Vlctl({"restore", "1.tmp", "--to", other}).exit, 0);
    EXPECT_TRUE(ReadBytes(origin.HostPath("b.exe")) == bytes);
    EXPECT_TRUE(store.Db().empty() && !store.Has("1.tmp"));
    EXPECT_EQ(std::distance(fs::directory_iterator(origin.HostPath()), {}), 2);
}

TEST(QuarantineCommand, RescanNotesWhatIsFoundAndLeavesNoWorkingCopy)
{
    const Store store;
    const Encoder encoder;
    const TempFolder origin;
    const std::string texts[] = {"X5O!P%@AP[4\\PZX54(P^)7CC)7}$EICAR-", "STANDARD-ANTIVIRUS-TEST-FILE!$H+H*", "clean"};
    WriteBytes(origin.HostPath("bad"), texts[0] + texts[1]);
    WriteBytes(origin.HostPath("good"), texts[2]);
    ASSERT_TRUE(encoder.Encode(origin.PathW("bad"), store.folder.PathW("1.tmp")));
    ASSERT_TRUE(encoder.Encode(origin.PathW("good"), store.folder.PathW("2.tmp")));
    QuarantineRecord bad = RecordOf("1.tmp"), good = RecordOf("2.tmp"), gone = RecordOf("3.tmp");
    bad.status = good.status = 9;
    store.Put("QUADB.VDB", Bytes(bad) + Bytes(good) + Bytes(gone) + "torn");
    fs::create_directories(store.folder.HostPath("Temp/vlctl"));
    store.Put("Temp/vlctl/left.tmp", "by a killed one");

    const Result result = store.Vlctl({"rescan", "--all", "--json"});
    EXPECT_EQ(result.exit, 2); // one file is missing
    ASSERT_EQ(result.lines.size(), 3u);
    EXPECT_EQ(json::parse(result.lines[0], nullptr, false)["threat"], "Test-File");
    EXPECT_EQ(json::parse(result.lines[1], nullptr, false)["result"], "clean");
    EXPECT_EQ(json::parse(result.lines[2], nullptr, false)["result"], "failed");
    bad.status = kQuarantinedStatus;
    vlt::CopyToField(bad.threatName, WStringView(TEXT("Test-File")));
    good.status = 1;
    EXPECT_TRUE(store.Db() == Bytes(bad) + Bytes(good) + Bytes(gone) + "torn");
    EXPECT_FALSE(store.Has("Temp"));
    EXPECT_EQ(store.Vlctl({"rescan", "2.tmp"}).exit, 0);
}
