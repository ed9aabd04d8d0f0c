// The store behind the registry where it is a store of files: damage, a full disk, a read-only one.
#include "platform/posix/core/MachineRoot.h"
#include "platform/posix/registry/KeyName.h"
#include "platform/posix/registry/ValueFile.h"
#include "tests/fuzz/Bodies.h"
#include "tests/platform/RegistryTest.h"
#include "tests/support/posix/Privileges.h"

#include <cstring>
#include <filesystem>
#include <random>

using namespace vlt;
using namespace vlt::test;
namespace fs = std::filesystem;

namespace
{

// The bytes of a value file, by the description of the format.
std::string ValueBytes(const WString& name, DWORD type, const std::string& data)
{
    using namespace vlt::posix::registry;
    const ValueFileHeader header = MakeHeader(name);
    const ValueRecord record = MakeRecord(type, std::as_bytes(std::span(data)));
    std::string bytes(reinterpret_cast<const char*>(&header), sizeof(header));
    bytes.append(reinterpret_cast<const char*>(name.data()), name.size() * sizeof(WCHAR));
    bytes.resize(RecordOffset(name.size()));
    return bytes.append(reinterpret_cast<const char*>(&record), sizeof(record)) + data;
}

class RegistryStore : public RegistryTest
{
protected:
    // The file of the test's value "v".
    static fs::path File()
    {
        for (const auto& entry : fs::recursive_directory_iterator(posix::MachineFolder("registry")))
            if (entry.path().filename() == "vv")
                return entry.path();
        return {};
    }
};

std::string RegistryFolder()
{
    return std::string(std::getenv("VLT_ROOT")) + "/registry";
}

#define CHECK(condition)                                                                                               \
    if (!(condition)) {                                                                                                \
        std::printf("line %d: %s\n", __LINE__, #condition);                                                            \
        return 1;                                                                                                      \
    }

} // namespace

// A registry on a file system that is too small.
VLT_CHILD(fullDisk)
{
    if (!MountSmallDisk(RegistryFolder(), "64k"))
        return 77;
    const RegKey key = Create(HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\Full"));
    CHECK(Set(key.Get(), TEXT("small"), "old") == ERROR_SUCCESS);
    CHECK(Set(key.Get(), TEXT("large"), std::string(9000, 'o')) == ERROR_SUCCESS);
    DWORD status = ERROR_SUCCESS;
    for (int i = 0; status == ERROR_SUCCESS && i < 100; ++i)
        status = Set(key.Get(), (TEXT("filler") + ToWide(std::to_string(i))).c_str(), std::string(4000, 'f'));
    CHECK(status == ERROR_DISK_FULL);
    CHECK(Set(key.Get(), TEXT("new"), "n") == ERROR_DISK_FULL);
    CHECK(Get(key.Get(), TEXT("new")) == "<2>");
    CHECK(Set(key.Get(), TEXT("large"), std::string(9001, 'n')) == ERROR_DISK_FULL);
    CHECK(Get(key.Get(), TEXT("large")) == std::string(9000, 'o'));
    CHECK(Set(key.Get(), TEXT("small"), "new") == ERROR_SUCCESS); // in its place there is room
    CHECK(Get(key.Get(), TEXT("small")) == "new");
    RegKey sub;
    CHECK(Code(RegCreateKeyW(key.Get(), TEXT("Sub"), sub.Receive())) == ERROR_DISK_FULL);
    CHECK(SubKeys(key.Get()).empty());
    CHECK(Code(RegDeleteValueW(key.Get(), TEXT("filler0"))) == ERROR_SUCCESS);
    CHECK(Set(key.Get(), TEXT("new"), "n") == ERROR_SUCCESS);
    return 0;
}

VLT_CHILD(readOnlyStore)
{
    {
        const RegKey key = Create(HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\ReadOnly"));
        CHECK(Set(key.Get(), TEXT("v"), "old") == ERROR_SUCCESS);
    }
    const RegKey writer = Open(HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\ReadOnly"));
    const std::string folder = RegistryFolder();
    if (!HaveOwnMounts() || mount(folder.c_str(), folder.c_str(), nullptr, MS_BIND, nullptr) != 0 ||
        mount("none", folder.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0)
        return 77;
    // A process that meets the store as it is now: what is open from before still leads to the other mount.
    return Child("readOnlyUser").Wait(20000);
}

VLT_CHILD(readOnlyUser)
{
    RegKey key;
    CHECK(Code(RegOpenKeyExW(HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\ReadOnly"), 0, KEY_ALL_ACCESS, key.Receive())) ==
          ERROR_ACCESS_DENIED);
    key = Open(HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\ReadOnly"), KEY_READ);
    CHECK(Get(key.Get(), TEXT("v")) == "old");
    CHECK(Code(RegCreateKeyW(HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\Other"), key.Receive())) == ERROR_ACCESS_DENIED);
    CHECK(Set(HKEY_LOCAL_MACHINE, TEXT("v"), "x") == ERROR_ACCESS_DENIED);
    CHECK(Code(RegDeleteKeyExW(HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\ReadOnly"), 0, 0)) == ERROR_ACCESS_DENIED);
    return 0;
}

TEST_F(RegistryStore, AFullDiskKeepsTheOldValuesAndAReadOnlyOneDeniesAccess)
{
    for (const char* body : {"fullDisk", "readOnlyStore"}) {
        Child child(body);
        const std::string said = child.ReadLine(40000);
        const int code = child.Wait(10000);
        if (code == 77)
            GTEST_SKIP() << "needs the right to mount file systems";
        EXPECT_EQ(0, code) << body << ", " << said;
    }
}

TEST_F(RegistryStore, ADamagedValueIsReportedAndCanBeSetAgain)
{
    ASSERT_EQ(ERROR_SUCCESS, Set(Key(), TEXT("v"), "good"));
    const fs::path file = File();
    EXPECT_EQ(ValueBytes(TEXT("v"), REG_BINARY, "good"), ReadBytes(file)) << "the format is what other tools rely on";
    const std::string large = ValueBytes(TEXT("v"), REG_BINARY, std::string(9000, 'x'));
    std::string torn = ValueBytes(TEXT("v"), REG_BINARY, "good");
    torn.back() = '!';
    std::string endless = torn;
    std::memset(endless.data() + 32, 0xFF, 4);
    for (const std::string& bytes : {std::string(), std::string("x"), std::string(5000, '\0'), torn, endless,
                                     torn.substr(0, 30), large.substr(0, 8999)}) {
        WriteBytes(file, bytes);
        EXPECT_EQ("<1009>", Get(Key(), TEXT("v")));
        DWORD size = 0;
        EXPECT_EQ(ERROR_BADDB, Code(RegQueryValueExA(Key(), "v", nullptr, nullptr, nullptr, &size)));
        WString name;
        EXPECT_EQ(ERROR_BADDB, EnumValue(Key(), 0, name));
        EXPECT_EQ(ERROR_SUCCESS, Set(Key(), TEXT("v"), "again"));
        EXPECT_EQ("again", Get(Key(), TEXT("v")));
        EXPECT_EQ(ERROR_SUCCESS, EnumValue(Key(), 0, name));
        EXPECT_EQ(TEXT("v"), name);
    }
    fs::remove(file);
    fs::create_directory(file);
    EXPECT_NE(ERROR_SUCCESS, Set(Key(), TEXT("v"), "x"));
    EXPECT_EQ("<1009>", Get(Key(), TEXT("v")));
    fs::remove(file);
    fs::create_symlink("/etc/passwd", file);
    EXPECT_EQ("<1009>", Get(Key(), TEXT("v"))) << "a link is not followed";
    EXPECT_EQ(ERROR_SUCCESS, Set(Key(), TEXT("v"), "x"));
    EXPECT_EQ("x", Get(Key(), TEXT("v")));
}

TEST_F(RegistryStore, AKeyThatLostItsNameGoesByTheFoldedOne)
{
    Create(Key(), TEXT("Some Name%"));
    for (const auto& entry : fs::recursive_directory_iterator(posix::MachineFolder("registry")))
        if (entry.path().parent_path().filename() == "ksome name%25")
            WriteBytes(entry.path(), "odd");
    EXPECT_EQ(std::vector<WString>{TEXT("some name%")}, SubKeys(Key()));
}

TEST_F(RegistryStore, NoBytesBreakTheReader)
{
    std::mt19937_64 random(20260131);
    std::vector<std::string> seeds;
    for (const WString& name : {WString(), WString(TEXT("v")), WString(TEXT("PollingTime")), WString(300, TEXT('n'))})
        for (const std::size_t size : {0u, 1u, 4u, 40u, 5000u})
            seeds.push_back(ValueBytes(name, REG_BINARY, std::string(size, 'd')));
    for (int i = 0; i < 60000; ++i) {
        std::string bytes = seeds[random() % seeds.size()];
        for (std::uint64_t changes = random() % 4; changes > 0; --changes)
            bytes[random() % std::min<std::size_t>(bytes.size(), 80)] = static_cast<char>(random());
        if (random() % 3 == 0)
            bytes.resize(random() % (bytes.size() + 20));
        EXPECT_NO_THROW(RegistryValueBody({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()}));
    }

    // Every single wrong bit in record and data shows.
    using namespace vlt::posix::registry;
    const std::string good = ValueBytes(TEXT("v"), REG_DWORD, "1234");
    for (std::size_t bit = RecordOffset(1) * 8; bit < good.size() * 8; ++bit) {
        std::string bad = good;
        bad[bit / 8] = static_cast<char>(bad[bit / 8] ^ (1 << (bit % 8)));
        ValueView view;
        const bool reserved = bit / 8 >= RecordOffset(1) + 12 && bit / 8 < RecordOffset(1) + 16;
        EXPECT_EQ(reserved, ParseValue(std::as_bytes(std::span(bad)), 1, view) == ValueState::Good) << bit;
    }
}
