// The registry functions against the registry of the host.
#include "ARDCommon/Registry.h"
#include "ARDCommon/CipheredValue.h"
#include "ARDCommon/CipheredValueFormat.h"
#include "platform/Format.h"
#include "platform/Unique.h"
#include "tests/support/Support.h"

#include <gtest/gtest.h>

namespace
{

using vlt::RegView;

const HKEY kRoot = HKEY_LOCAL_MACHINE;
const WString kParent = TEXT("Software\\Veltrano\\UnitTest");

// A key of this process alone, gone in both views at the end.
class Registry : public testing::Test
{
protected:
    void TearDown() override
    {
        for (const RegView view : {RegView::Bits32, RegView::Bits64})
            vlt::DeleteRegKey(kRoot, kParent.c_str(), m_child.c_str(), view);
    }

    // A value of any type and bytes, past the functions under test.
    void Store(const WCHAR* name, DWORD type, const void* data, std::size_t size)
    {
        vlt::RegKey key;
        ASSERT_EQ(RegCreateKeyExW(kRoot, Key(), 0, nullptr, 0, KEY_READ | KEY_WRITE | KEY_WOW64_32KEY, nullptr,
                                  key.Receive(), nullptr),
                  LSTATUS{0});
        ASSERT_EQ(RegSetValueExW(key.Get(), name, 0, type, static_cast<const BYTE*>(data), static_cast<DWORD>(size)),
                  LSTATUS{0});
    }
    void StoreText(const WCHAR* name, const WString& text, DWORD type = REG_SZ)
    {
        Store(name, type, text.c_str(), (text.size() + 1) * sizeof(WCHAR));
    }

    LPCWSTR Key() const { return m_key.c_str(); }

    WString m_child = vlt::Format(TEXT("%u"), GetCurrentProcessId());
    WString m_key = kParent + TEXT("\\") + m_child;
};

constexpr WCHAR kName[] = TEXT("Value");

WString ReadText(LPCWSTR key, const WCHAR* name, const WCHAR* fallback, DWORD size, bool wanted)
{
    std::vector<WCHAR> buffer(size + 8, TEXT('#'));
    EXPECT_EQ(vlt::GetRegString(kRoot, key, name, fallback, buffer.data(), size), wanted);
    EXPECT_EQ(WString(buffer.data() + size, 8), WString(8, TEXT('#'))) << "wrote behind the buffer";
    return buffer.data();
}

std::string ReadTextA(LPCWSTR key, const char* name, const char* fallback, DWORD size, bool wanted)
{
    std::vector<char> buffer(size + 8, '#');
    EXPECT_EQ(vlt::GetRegStringA(kRoot, key, name, fallback, buffer.data(), size), wanted);
    EXPECT_EQ(std::string(buffer.data() + size, 8), std::string(8, '#')) << "wrote behind the buffer";
    return buffer.data();
}

TEST_F(Registry, NumberOfAnotherTypeOrSizeIsTheDefault)
{
    const BYTE bytes[8] = {1, 0, 0, 0, 0, 0, 0, 0};
    for (const DWORD type : {REG_SZ, REG_BINARY, REG_DWORD, REG_QWORD}) {
        for (const DWORD size : {0u, 3u, 4u, 8u}) {
            Store(kName, type, bytes, size);
            EXPECT_EQ(vlt::GetRegDword(kRoot, Key(), kName, 42), type == REG_DWORD && size == 4 ? 1u : 42u) << type;
            EXPECT_EQ(vlt::GetRegQword(kRoot, Key(), kName, 42), type == REG_QWORD && size == 8 ? 1u : 42u) << type;
        }
    }
    EXPECT_EQ(vlt::GetRegQword(kRoot, Key(), TEXT("none"), 42), 42u);

    EXPECT_EQ(vlt::GetRegDword(kRoot, nullptr, TEXT("dword"), 42), 42u);
    EXPECT_EQ(vlt::GetRegDword(kRoot, Key(), nullptr, 42), 42u);
}

TEST_F(Registry, TextIsBoundByItsBytesAgainstTheBuffersCharacters)
{
    struct {
        DWORD size;
        std::size_t fits; // characters without the terminator
    } const cases[] = {{1538, 768}, {520, 259}, {260, 129}};
    for (const auto& test : cases) {
        StoreText(kName, WString(test.fits, TEXT('x')));
        EXPECT_EQ(ReadText(Key(), kName, TEXT("fallback"), test.size, true), WString(test.fits, TEXT('x')));
        StoreText(kName, WString(test.fits + 1, TEXT('x')));
        EXPECT_EQ(ReadText(Key(), kName, TEXT("fallback"), test.size, false), TEXT("fallback"));
    }
    StoreText(kName, WString(200000, TEXT('x')));
    EXPECT_EQ(ReadText(Key(), kName, TEXT("fallback"), 5, false), TEXT("fall")) << "the default is cut to the buffer";
    EXPECT_EQ(ReadText(Key(), TEXT("absent"), nullptr, 5, false), TEXT(""));
    WCHAR untouched = TEXT('#');
    EXPECT_FALSE(vlt::GetRegString(kRoot, Key(), kName, TEXT("x"), &untouched, 0));
    EXPECT_EQ(untouched, TEXT('#'));
}

TEST_F(Registry, PlainTextOfAnySizeIsTerminatedAndOtherTypesAreNoText)
{
    const WCHAR text[] = TEXT("abcd"); // Windows adds a terminator that stands right behind the bytes
    Store(kName, REG_SZ, text, 6);
    EXPECT_EQ(ReadText(Key(), kName, TEXT("fallback"), 6, true), TEXT("abc"));
    Store(kName, REG_SZ, text, 5);
    EXPECT_EQ(ReadText(Key(), kName, TEXT("fallback"), 5, true), TEXT("ab"));
    for (const DWORD type : {REG_EXPAND_SZ, REG_MULTI_SZ, REG_BINARY, REG_DWORD}) {
        StoreText(TEXT("Other"), TEXT("text"), type);
        EXPECT_EQ(ReadText(Key(), TEXT("Other"), TEXT("fallback"), 64, false), TEXT("fallback")) << type;
        EXPECT_EQ(ReadTextA(Key(), "Other", "fallback", 64, false), "fallback") << type;
    }
    Store(kName, REG_SZ, nullptr, 0);
    EXPECT_EQ(ReadText(Key(), kName, TEXT("fallback"), 5, true), TEXT(""));
}

TEST_F(Registry, NarrowTextMayFillItsBuffer)
{
    StoreText(kName, WString(255, TEXT('x')));
    EXPECT_EQ(ReadTextA(Key(), "Value", "fallback", 256, true), std::string(255, 'x'));
    StoreText(kName, WString(256, TEXT('x')));
    EXPECT_EQ(ReadTextA(Key(), "Value", "fallback", 256, false), "fallback");
    EXPECT_EQ(ReadTextA(Key(), "absent", "fallback", 4, false), "fal");
    EXPECT_EQ(ReadTextA(Key(), nullptr, "fallback", 64, false), "fallback");

    StoreText(kName, TEXT("gr\u00FCn"));
    char narrow[16] = {};
    WideCharToMultiByte(CP_ACP, 0, TEXT("gr\u00FCn"), -1, narrow, sizeof(narrow), nullptr, nullptr);
    EXPECT_EQ(ReadTextA(Key(), "Value", "fallback", 64, true), narrow);
}

TEST_F(Registry, ValuesRoundTripInEachViewForItself)
{
    EXPECT_TRUE(vlt::SetRegDword(kRoot, Key(), TEXT("Number"), 0xFFFFFFFEu));
    EXPECT_EQ(vlt::GetRegDword(kRoot, Key(), TEXT("number"), 7), 0xFFFFFFFEu) << "names ignore case";
    EXPECT_TRUE(vlt::SetRegQword(kRoot, Key(), TEXT("Wide"), 0xFEDCBA9876543210u));
    EXPECT_EQ(vlt::GetRegQword(kRoot, Key(), TEXT("Wide"), 7), 0xFEDCBA9876543210u);
    EXPECT_FALSE(vlt::RegKeyExists(kRoot, Key(), RegView::Bits64));
    EXPECT_TRUE(vlt::SetRegString(kRoot, Key(), kName, TEXT("32")));
    EXPECT_TRUE(vlt::SetRegString(kRoot, Key(), kName, TEXT("64"), RegView::Bits64));
    WCHAR text[16] = {};
    EXPECT_TRUE(vlt::GetRegString(kRoot, Key(), kName, TEXT(""), text, 16));
    EXPECT_EQ(WString(text), TEXT("32"));
    EXPECT_TRUE(vlt::GetRegString(kRoot, Key(), kName, TEXT(""), text, 16, RegView::Bits64));
    EXPECT_EQ(WString(text), TEXT("64"));
    std::vector<BYTE> stored;
    EXPECT_TRUE(vlt::GetRegBytes(kRoot, Key(), kName, stored));
    EXPECT_EQ(stored, (std::vector<BYTE>{'3', 0, '2', 0, 0, 0})) << "the terminator is stored";
    EXPECT_TRUE(vlt::DeleteRegKey(kRoot, kParent.c_str(), m_child.c_str(), RegView::Bits64));
    EXPECT_FALSE(vlt::DeleteRegKey(kRoot, kParent.c_str(), m_child.c_str(), RegView::Bits64));
    EXPECT_FALSE(vlt::DeleteRegKey(kRoot, Key(), TEXT(""))) << "an empty name would be the key itself";
    EXPECT_TRUE(vlt::RegValueExists(kRoot, Key(), kName)) << "the other view's key is another key";
    EXPECT_TRUE(vlt::DeleteRegValue(kRoot, Key(), kName));
    EXPECT_FALSE(vlt::DeleteRegValue(kRoot, Key(), kName));
    EXPECT_FALSE(vlt::RegValueExists(kRoot, Key(), kName));
}

TEST_F(Registry, FileContentIsStoredWholeOrNotAtAll)
{
    const vlt::test::TempFolder folder;
    std::string content(70001, '\0');
    for (std::size_t i = 0; i < content.size(); ++i)
        content[i] = static_cast<char>(i * 13);
    vlt::test::WriteBytes(folder.HostPath("file.bin"), content);
    const WString file = folder.PathW("file.bin");
    EXPECT_TRUE(vlt::SetRegFileContent(kRoot, Key(), kName, file.c_str()));
    std::vector<BYTE> read;
    EXPECT_TRUE(vlt::GetRegBytes(kRoot, Key(), kName, read));
    EXPECT_EQ(std::string(read.begin(), read.end()), content);

    EXPECT_FALSE(vlt::GetRegBytes(kRoot, Key(), TEXT("absent"), read));
    EXPECT_TRUE(read.empty());
    EXPECT_FALSE(vlt::SetRegBytes(kRoot, Key(), kName, nullptr, 4));
    EXPECT_FALSE(vlt::SetRegFileContent(kRoot, Key(), TEXT("Other"), folder.PathW("absent.bin").c_str()));
    EXPECT_FALSE(vlt::SetRegFileContent(kRoot, Key(), TEXT("Other"), folder.PathW().c_str())) << "a folder";
    {
        const vlt::FileHandle writer(
            CreateFileW(file.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
        EXPECT_FALSE(vlt::SetRegFileContent(kRoot, Key(), TEXT("Other"), file.c_str())) << "someone writes it";
    }
    EXPECT_FALSE(vlt::RegValueExists(kRoot, Key(), TEXT("Other")));
}

TEST_F(Registry, CipheredValue)
{
    for (const DWORD value : {0u, 1u, 0x12345678u, 0xFFFFFFFFu}) {
        DWORD read = 99;
        EXPECT_EQ(SetRegIntValue(kRoot, Key(), kName, value), LSTATUS{0});
        EXPECT_EQ(GetRegIntValue(kRoot, Key(), kName, 5, &read), LSTATUS{0});
        EXPECT_EQ(read, value);
    }
    // Bytes made by hand from the description in the header: a reader and a writer that were wrong
    // in the same way would still agree with each other.
    const BYTE zero[] = {0x04, 0x03, 0x02, 0x01, 0x1D, 0xB1, 0xC7, 0x61};
    Store(kName, REG_BINARY, zero, 8);
    DWORD read = 99;
    EXPECT_EQ(GetRegIntValue(kRoot, Key(), kName, 5, &read), LSTATUS{0});
    EXPECT_EQ(read, 0u);
}

} // namespace
