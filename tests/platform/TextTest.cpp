#include "platform/Text.h"
#include "tests/platform/Fails.h"

#ifndef _WIN32
#include "platform/posix/core/Utf.h"
#include <random>
#endif

namespace
{

constexpr UINT kUtf8 = CP_UTF8;

TEST(TextTest, ConvertsWithGivenLengths)
{
    const std::string text("gr\xC3\xBC\xC3\x9F \xF0\x9F\x98\x80\0end", 15);
    const WString wide = vlt::ToWide(text, kUtf8);
    EXPECT_EQ(wide, WString(TEXT("gr\u00FC\u00DF \xD83D\xDE00\0end"), 11));
    EXPECT_EQ(vlt::ToNarrow(wide, kUtf8), text);
    EXPECT_EQ(vlt::ToWide(""), WString());

    // A list of texts with two terminators, as registry values hold it.
    const WCHAR list[] = TEXT("one\0two\0");
    char narrow[16] = {};
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, list, 9, narrow, sizeof narrow, nullptr, nullptr), 9);
    EXPECT_EQ(std::string(narrow, 9), std::string("one\0two\0\0", 9));
}

TEST(TextTest, SizesAndFailures)
{
    WCHAR wide[4];
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "abc", -1, nullptr, 0), 4);
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "abc", -1, wide, 4), 4);
    EXPECT_EQ(WString(wide), TEXT("abc"));
    EXPECT_FAILS(MultiByteToWideChar(CP_ACP, 0, "abcd", -1, wide, 4), ERROR_INSUFFICIENT_BUFFER);
    char narrow[2];
    EXPECT_FAILS(WideCharToMultiByte(kUtf8, 0, TEXT("\u20AC"), 1, narrow, 2, nullptr, nullptr),
                 ERROR_INSUFFICIENT_BUFFER);
}

TEST(TextTest, CopiesEndAndComparisonsIgnoreCase)
{
    WCHAR wide[5] = TEXT("1234");
    lstrcpynW(wide, TEXT("abcdef"), 3);
    EXPECT_EQ(WString(wide, 4), (WString{TEXT('a'), TEXT('b'), 0, TEXT('4')})); // no padding
    char narrow[4];
    EXPECT_EQ(lstrcpynA(narrow, "xy", 4), narrow);
    EXPECT_EQ(lstrlenA(narrow) + lstrlenW(TEXT("abc")) + lstrlenW(nullptr), 5);
    vlt::CopyToField(wide, WStringView(TEXT("x")));
    EXPECT_EQ(WString(wide, 5), WString(TEXT("x\0\0\0\0"), 5)); // all of it
    WCHAR text[] = TEXT("-InStall \u00C4\u0416\u00DF1");
    EXPECT_EQ(CharLowerBuffW(text, 12), 12u);
    EXPECT_EQ(WString(text), TEXT("-install \u00E4\u0436\u00DF1"));
    EXPECT_EQ(lstrcmpiW(TEXT("Real\u00C4"), TEXT("rEAL\u00E4")), 0);
    EXPECT_EQ(lstrcmpiA("Abc", "aBC"), 0);
    EXPECT_LT(lstrcmpW(TEXT("a"), TEXT("b")), 0);
}

#ifndef _WIN32
// Any file name of the host must come back from its UTF-16 form, byte for byte: what could not be named
// could not be moved to quarantine.
TEST(TextTest, EveryByteStringMakesTheRoundTrip)
{
    using namespace vlt::posix;
    const auto check = [](const std::string& bytes) { ASSERT_EQ(Utf8FromUtf16(Utf16FromUtf8(bytes)), bytes); };
    for (const char* bytes : {"\xFF\xFE", "\xC3", "\xC3(", "\xED\xA0\x80", "\xED\xA0\x80\xED\xB0\x80",
                              "\xED\xA0\x80\x80", "\xED\xB2\x80", "\xF4\x90\x80\x80", "\xC0\x80", "\xE0\x80\x80"})
        check(bytes);
    std::mt19937 random(20);
    // Bytes near the borders of the encoding come up far more often than in uniform noise.
    constexpr unsigned char likely[] = {0x41, 0x80, 0x90, 0xA0, 0xB0, 0xB2, 0xBF,
                                        0xC3, 0xDF, 0xE0, 0xED, 0xEF, 0xF0, 0xF4};
    for (int i = 0; i < 200000; ++i) {
        std::string bytes;
        for (unsigned length = random() % 8; bytes.size() < length;)
            bytes += static_cast<char>(random() % 8 == 0 ? random() % 256 : likely[random() % sizeof likely]);
        check(bytes);
    }
    for (const char16_t* text : {u"a\xD800z", u"\xDBFF", u"\xDC00x", u"\xDFFF\xD800", u"\xD83D\xDE00"})
        EXPECT_EQ(Utf16FromUtf8(Utf8FromUtf16(text)), text);
    EXPECT_EQ(Utf8FromUtf16(u"\xDCFF"), "\xFF");
}

#endif

} // namespace
