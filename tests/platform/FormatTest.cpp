#include "platform/Format.h"
#include "platform/Text.h"

#include <gtest/gtest.h>

namespace
{

using vlt::Format;
using vlt::FormatTo;

enum class Color : unsigned short { Red = 7 };

TEST(FormatTest, NumbersFollowTheCRules)
{
    EXPECT_EQ(Format("%d|%5d|%-5d|%05d|%+d|% d", 42, 42, 42, 42, 42, 42), "42|   42|42   |00042|+42| 42");
    EXPECT_EQ(Format("%x %X %#x %08X %o", 255u, 255u, 255u, 0xBEEFu, 8), "ff FF 0xff 0000BEEF 10");
    EXPECT_EQ(Format("%.3d|%8.3d|%-8.3d|%.0d|%03d", 7, 7, 7, 0, -5), "007|     007|007     ||-05");
    EXPECT_EQ(Format("%*d|%-*d|%.*s", 4, 1, 4, 1, 2, "abc"), "   1|1   |ab");
    EXPECT_EQ(Format("%d %d", std::numeric_limits<int>::min(), std::numeric_limits<long long>::min()),
              "-2147483648 -9223372036854775808");
    EXPECT_EQ(Format("%.2f|%8.3f|%-8.1f|%e|%+.0f", 3.14159, -2.5, 1.25, 12345.678, 2.0),
              "3.14|  -2.500|1.2     |1.234568e+04|+2");
    EXPECT_EQ(Format("%d", Color::Red), "7");
}

// An argument has the width of its type: a size that says otherwise must neither cut it nor read past it.
TEST(FormatTest, IntegersKeepTheirOwnWidth)
{
    const long long big = 0x123456789ABCDEF0;
    EXPECT_EQ(Format("%I64d %lld %d %ld", big, big, big, big),
              "1311768467463790320 1311768467463790320 1311768467463790320 1311768467463790320");
    EXPECT_EQ(Format("%I64x %llu %lu", 0xFFFFFFFFu, 5u, 0xFFFFFFFFu), "ffffffff 5 4294967295");
    EXPECT_EQ(Format("%d %u %x", 0xFFFFFFFFu, -1, static_cast<short>(-1)), "-1 4294967295 ffffffff");
    EXPECT_EQ(Format("%u %x", static_cast<unsigned char>(200), -1ll), "200 ffffffffffffffff");
}

TEST(FormatTest, TextOfBothWidths)
{
    const WString wide = vlt::ToWide("w\xC3\xA4hlen", 65001);
    EXPECT_EQ(Format("%s|%hs|%10s|%-6s|%.2s", "abc", "abc", "abc", "abc", "abc"), "abc|abc|       abc|abc   |ab");
    EXPECT_EQ(Format("[%S] [%ls] [%ws]", TEXT("a b"), TEXT("c"), TEXT("d")), "[a b] [c] [d]");
    EXPECT_EQ(Format(TEXT("%s|%ls|%S|%hs"), TEXT("own"), TEXT("own"), "other", "other"), TEXT("own|own|other|other"));
    EXPECT_EQ(Format(TEXT("%s"), wide), wide);
    EXPECT_EQ(Format("%c%c %C", 'a', 98, TEXT('c')), "ab c");
    EXPECT_EQ(Format(TEXT("%c%c%%"), TEXT('x'), 'y'), TEXT("xy%"));
    EXPECT_EQ(Format("%p", reinterpret_cast<void*>(0xABCDEF)), "0000000000ABCDEF");
    const char unterminated[3] = {'x', 'y', 'z'};
    EXPECT_EQ(Format("%.3s", static_cast<const char*>(unterminated)), "xyz");
}

TEST(FormatTest, WrongArgumentsShowAndNeverCrash)
{
    EXPECT_EQ(Format("%s %d %p %c", 5, "text", 5, "text"), "(?) (?) (?) (?)");
    EXPECT_EQ(Format("%s %S", TEXT("wide"), "narrow"), "(?) (?)");
    EXPECT_EQ(Format("%d and %s", 1), "1 and (missing)");
    EXPECT_EQ(Format("%s|%S", static_cast<const char*>(nullptr), static_cast<const WCHAR*>(nullptr)), "(null)|(null)");
    EXPECT_EQ(Format("100%"), "100%");
    EXPECT_EQ(Format("%n %y %d", 3), "%n %y 3");
    EXPECT_EQ(Format("%99999999999d", 1).size(), 4096u);
}

TEST(FormatTest, BoundedOutputIsCutAndTerminated)
{
    char small[6] = {'#', '#', '#', '#', '#', '#'};
    EXPECT_EQ(FormatTo(small, 5, "%s", "longer"), 4u);
    EXPECT_STREQ(small, "long");
    EXPECT_EQ(small[5], '#');
    WCHAR wide[4];
    EXPECT_EQ(FormatTo(wide, 4, TEXT("%d"), 123456), 3u);
    EXPECT_EQ(WString(wide), TEXT("123"));
}

} // namespace
