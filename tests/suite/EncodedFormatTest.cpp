#include "suite/ArdScan/EncodedFormat.h"
#include "tests/fuzz/Bodies.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

using namespace vlt::scan;

TEST(EncodedFormat, AcceptsItsOwnHeadersAndSurvivesAnyOther)
{
    EncodedHeader header;
    header.path = TEXT("C:\\a\\b");
    header.facts.modified = {-5, 7};
    header.facts.hasOwner = true;
    header.facts.mode = 04755;
    header.facts.extended = {{"user.a", "12"}};
    const auto good = WriteEncodedHeader(header);
    ASSERT_TRUE(good);
    ASSERT_TRUE(vlt::test::EncodedHeaderBody(*good));
    std::mt19937 random(9);
    int accepted = 0;
    for (int round = 0; round < 20000; ++round) {
        std::vector<std::uint8_t> bytes = *good;
        for (auto n = 1 + random() % 3; n > 0; --n)
            bytes[random() % bytes.size()] = static_cast<std::uint8_t>(random());
        if (random() % 4 == 0)
            bytes.resize(random() % (2 * bytes.size()));
        accepted += vlt::test::EncodedHeaderBody(bytes);
    }
    EXPECT_GT(accepted, 1000); // what lies behind the checksum was reached
    EXPECT_LT(accepted, 20000);
}

TEST(EncodedFormat, TheKeystreamDoesNotDependOnTheBlocks)
{
    std::vector<std::uint8_t> whole(1000, 'x'), pieces = whole;
    ApplyKeystream(42, EncodedFixedSize + 3, whole);
    for (std::size_t at = 0, size = 1; at < pieces.size(); at += size, size = size % 29 + 1) {
        size = std::min(size, pieces.size() - at);
        ApplyKeystream(42, EncodedFixedSize + 3 + at, std::span(pieces).subspan(at, size));
    }
    EXPECT_EQ(whole, pieces);
    EXPECT_EQ(std::search_n(whole.begin(), whole.end(), 4, 'x'), whole.end());
}
