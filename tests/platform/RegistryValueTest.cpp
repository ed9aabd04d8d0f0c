#include "tests/platform/RegistryTest.h"

#include <atomic>
#include <thread>

using namespace vlt;
using namespace vlt::test;

using RegistryValues = RegistryTest;

namespace
{

// Text of one letter: any two in one value would show.
bool IsWhole(const std::string& data)
{
    return !data.empty() && data[0] >= 'a' && data[0] <= 'z' && data.find_first_not_of(data[0]) == std::string::npos &&
           data.size() == static_cast<std::size_t>(data[0] - 'a' + 1) * (data.size() > 3000 ? 700 : 9);
}

std::string Whole(unsigned seed)
{
    const unsigned letter = seed % 26;
    return std::string((letter + 1) * (seed % 2 == 1 && letter >= 4 ? 700 : 9), static_cast<char>('a' + letter));
}

} // namespace

// path, count (0: for ever), seed: sets the value "v" again and again.
VLT_CHILD(registryWriter)
{
    const RegKey key = Open(HKEY_LOCAL_MACHINE, ToWide(args[0]));
    const unsigned count = static_cast<unsigned>(std::stoul(args[1]));
    const unsigned seed = static_cast<unsigned>(std::stoul(args[2]));
    for (unsigned i = 0; count == 0 || i < count; ++i) {
        if (Set(key.Get(), TEXT("v"), Whole(seed + i * 7)) != ERROR_SUCCESS)
            return 1;
        if (i == 0)
            std::puts("started");
    }
    return 0;
}

TEST_F(RegistryValues, KeepTheirTypeAndExactlyTheirBytes)
{
    std::string data;
    for (const std::size_t size :
         {0u, 1u, 3u, 4u, 8u, 255u, 4000u, 4030u, 4040u, 4050u, 4060u, 4096u, 5000u, 300000u, 7u, 4097u, 2u}) {
        data.resize(size);
        for (std::size_t i = 0; i < size; ++i)
            data[i] = static_cast<char>(i * 31 + size);
        const DWORD type = size % 2 == 0 ? REG_BINARY : REG_SZ;
        ASSERT_EQ(ERROR_SUCCESS, Set(Key(), TEXT("v"), data, type)) << size;
        DWORD stored = 99;
        EXPECT_EQ(ERROR_SUCCESS, Code(RegQueryValueExW(Key(), TEXT("v"), nullptr, &stored, nullptr, nullptr)));
        EXPECT_EQ(type, stored);
        EXPECT_EQ(data, Get(Key(), TEXT("v"))) << size;
    }
}

TEST_F(RegistryValues, QueriesFollowTheSizeRules)
{
    ASSERT_EQ(ERROR_SUCCESS, Set(Key(), TEXT("v"), "12345"));
    BYTE buffer[16] = {};
    DWORD type = 0;
    DWORD size = 4;
    EXPECT_EQ(ERROR_MORE_DATA, Code(RegQueryValueExW(Key(), TEXT("v"), nullptr, &type, buffer, &size)));
    EXPECT_EQ(5u, size);
    EXPECT_EQ(DWORD{REG_BINARY}, type);
    EXPECT_EQ(0, buffer[0]);

    // The unnamed value.
    EXPECT_EQ("<2>", Get(Key(), nullptr));
    EXPECT_EQ(ERROR_SUCCESS, Set(Key(), nullptr, "default"));
    EXPECT_EQ("default", Get(Key(), TEXT("")));
}

TEST_F(RegistryValues, NamesIgnoreCaseAndKeepTheFirst)
{
    for (const std::size_t size : {10u, 6000u, 6001u, 20u}) {
        EXPECT_EQ(ERROR_SUCCESS, Set(Key(), TEXT("MixedCase"), std::string(size, 'x')));
        EXPECT_EQ(ERROR_SUCCESS, Set(Key(), TEXT("MIXEDcase"), std::string(size, 'y')));
        EXPECT_EQ(std::string(size, 'y'), Get(Key(), TEXT("mixedcase")));
        WString name;
        DWORD data = 0;
        EXPECT_EQ(ERROR_SUCCESS, EnumValue(Key(), 0, name, &data));
        EXPECT_EQ(TEXT("MixedCase"), name);
        EXPECT_EQ(size, data);
        EXPECT_EQ(ERROR_NO_MORE_ITEMS, EnumValue(Key(), 1, name));
    }
    WCHAR name[9];
    DWORD length = 9;
    EXPECT_EQ(ERROR_MORE_DATA, Code(RegEnumValueW(Key(), 0, name, &length, nullptr, nullptr, nullptr, nullptr)));
    EXPECT_EQ(ERROR_SUCCESS, Code(RegDeleteValueW(Key(), TEXT("mixedCASE"))));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, Code(RegDeleteValueW(Key(), TEXT("MixedCase"))));
    const WString longName(16383, TEXT('n'));
    EXPECT_EQ(ERROR_SUCCESS, Set(Key(), longName.c_str(), "long"));
    EXPECT_EQ("long", Get(Key(), longName.c_str()));
    EXPECT_EQ("<2>", Get(Key(), longName.substr(1).c_str()));
}

TEST_F(RegistryValues, EightBitFormsConvertText)
{
    const WString wide = TEXT("caf\u00E9 \u20AC");
    const std::string narrow = ToNarrow(wide);
    const auto setA = [&](const char* name, const std::string& text, DWORD type) {
        return Code(RegSetValueExA(Key(), name, 0, type, Bytes(text.data()), static_cast<DWORD>(text.size())));
    };
    const std::string inWide(reinterpret_cast<const char*>(wide.c_str()), (wide.size() + 1) * sizeof(WCHAR));
    ASSERT_EQ(ERROR_SUCCESS, setA("text", narrow + '\0', REG_SZ));
    EXPECT_EQ(inWide, Get(Key(), TEXT("Text")));
    ASSERT_EQ(ERROR_SUCCESS, setA("raw", "\x80\x81z", REG_BINARY));
    EXPECT_EQ("\x80\x81z", Get(Key(), TEXT("raw")));

    char buffer[64];
    DWORD type = 0;
    DWORD size = 0;
    auto* const bytes = reinterpret_cast<BYTE*>(buffer);
    EXPECT_EQ(ERROR_SUCCESS, Code(RegQueryValueExA(Key(), "TEXT", nullptr, &type, nullptr, &size)));
    EXPECT_EQ(narrow.size() + 1, size);
    EXPECT_EQ(ERROR_SUCCESS, Code(RegQueryValueExA(Key(), "text", nullptr, &type, bytes, &size)));
    EXPECT_EQ(DWORD{REG_SZ}, type);
    EXPECT_EQ(narrow, buffer);
}

TEST_F(RegistryValues, ReadersNeverSeeAMixture)
{
    ASSERT_EQ(ERROR_SUCCESS, Set(Key(), TEXT("v"), Whole(0)));
    Child first("registryWriter", {NarrowPath(), "3000", "0"});
    Child second("registryWriter", {NarrowPath(), "3000", "3"});
    std::atomic<bool> done{false};
    std::atomic<unsigned> reads{0};
    std::string bad;
    std::thread reader([&] {
        while (!done) {
            const std::string data = Get(Key(), TEXT("v"));
            ++reads;
            if (!IsWhole(data) && !done.exchange(true))
                bad = data;
        }
    });
    EXPECT_EQ(0, first.Wait(50000));
    EXPECT_EQ(0, second.Wait(50000));
    done = true;
    reader.join();
    EXPECT_EQ("", bad);
    EXPECT_GT(reads, 0u);
    EXPECT_TRUE(IsWhole(Get(Key(), TEXT("v"))));
}

TEST_F(RegistryValues, AKilledWriterLeavesTheOldOrTheNewValue)
{
    for (unsigned round = 0; round < 25; ++round) {
        Child writer("registryWriter", {NarrowPath(), "0", std::to_string(round)});
        ASSERT_EQ("started", writer.ReadLine());
        for (unsigned i = 0; i < round * 3; ++i)
            EXPECT_TRUE(IsWhole(Get(Key(), TEXT("v"))));
        writer.Kill();
        writer.Wait(20000);
        EXPECT_TRUE(IsWhole(Get(Key(), TEXT("v")))) << round;
    }
    WString name;
    EXPECT_EQ(ERROR_NO_MORE_ITEMS, EnumValue(Key(), 1, name));
}
