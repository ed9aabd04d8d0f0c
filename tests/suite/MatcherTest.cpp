#include "platform/Format.h"
#include "suite/ArdScan/PatternSet.h"
#include "tools/ptfc/SignatureText.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

using namespace vlt::scan;

namespace
{

std::shared_ptr<const CPatternSet> Compile(const std::string& text)
{
    std::string error;
    auto file = ParseSignatures(text, error);
    EXPECT_TRUE(file) << error;
    PatternFiles files;
    if (file)
        files.virus = std::make_shared<const PatternFile>(std::move(*file));
    return std::make_shared<const CPatternSet>(std::move(files), 0);
}

// The name of what is found, "" for nothing, "!" for a failed scan. Reads come in pieces of this size.
std::string Scan(const CPatternSet& set, const std::string& content, std::size_t piece = SIZE_MAX)
{
    CScanner scanner;
    std::size_t at = 0;
    const auto read = [&](std::span<std::uint8_t> buffer) {
        const std::size_t count = std::min({buffer.size(), content.size() - at, piece});
        std::copy_n(content.begin() + static_cast<std::ptrdiff_t>(at), count, buffer.begin());
        at += count;
        return static_cast<std::ptrdiff_t>(count);
    };
    const ScanResult result = scanner.Scan(set, {}, content.size(), read);
    if (result.outcome == ScanOutcome::Failed)
        return "!";
    return result.outcome == ScanOutcome::Infected ? result.threat.signature->name : "";
}

} // namespace

TEST(Matcher, FindsAPatternAtEveryPlaceAroundABlockBorder)
{
    const auto set = Compile("hex Border 41 42 43 44 ?? ?? 58 59 ?? 5A 5A\n");
    for (const std::size_t offset : {0u, 1u, 131050u, 131061u, 131071u, 131072u, 131083u, 131094u, 262140u}) {
        std::string content(offset, 'A');
        content += "ABCD..XY.ZZ";
        EXPECT_EQ(Scan(*set, content), "Border") << offset; // at the very end of the file
        content.append(200000, 'B');
        EXPECT_EQ(Scan(*set, content), "Border") << offset;
        EXPECT_EQ(Scan(*set, content, 4093), "Border") << offset;
        content[offset + 10] = 'z';
        EXPECT_EQ(Scan(*set, content), "") << offset;
    }
    EXPECT_EQ(Scan(*set, "ABCD..XY.Z"), ""); // cut off by the end of the file
}

TEST(Matcher, FindsWildcardsAtBothEndsOfAPattern)
{
    const auto set = Compile("hex Ends ?? ?? 4D 5A 90 ?? ??\n");
    EXPECT_EQ(Scan(*set, "abMZ\x90yz"), "Ends");
    EXPECT_EQ(Scan(*set, "bMZ\x90yz"), "");
    EXPECT_EQ(Scan(*set, "abMZ\x90y"), "");
}

TEST(Matcher, FindsAllOfThousandsOfOverlappingPatterns)
{
    // Suffixes and prefixes of each other, so failure links and outputs of inner states matter.
    std::mt19937 random(7);
    std::string text;
    std::vector<std::string> bodies;
    for (int i = 0; i < 20000; ++i) {
        std::string body;
        const std::size_t length = 5 + random() % 12;
        for (std::size_t n = 0; n < length; ++n)
            body += static_cast<char>(i % 2 ? 'a' + random() % 4 : random() % 256);
        text += "hex P" + std::to_string(i) + ' ';
        for (const char c : body)
            text += vlt::Format("%02X", static_cast<unsigned char>(c));
        text += '\n';
        bodies.push_back(body);
    }
    const auto set = Compile(text);
    for (std::size_t i = 0; i < bodies.size(); i += 37) {
        const std::string found = Scan(*set, "--" + bodies[i]);
        ASSERT_FALSE(found.empty()) << i;
        // Another pattern may lie inside, but what is reported must really be there.
        const std::string& reported = bodies[std::stoul(found.substr(1))];
        EXPECT_NE(("--" + bodies[i]).find(reported), std::string::npos) << i;
    }
    // Against a plain search, over random text of the small alphabet.
    for (int round = 0; round < 50; ++round) {
        std::string content;
        for (int n = 0; n < 12; ++n)
            content += static_cast<char>('a' + random() % 5);
        const bool plain = std::any_of(bodies.begin(), bodies.end(), [&](const std::string& body) {
            return content.find(body) != std::string::npos;
        });
        EXPECT_EQ(!Scan(*set, content).empty(), plain) << content;
    }
}

TEST(Scanner, HashesOnlyWholeFilesOfTheRightSize)
{
    // SHA-256 of "abc".
    const std::string hash = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
    const auto sized = Compile("sha256 Abc size=3 " + hash + "\n");
    EXPECT_EQ(Scan(*sized, "abc"), "Abc");
    EXPECT_EQ(Scan(*sized, "abc", 1), "Abc");
    EXPECT_EQ(Scan(*sized, "abcd"), "");
    EXPECT_FALSE(sized->HashesSize(4));
    const auto any = Compile("sha256 Abc " + hash + "\n");
    EXPECT_TRUE(any->HashesSize(4));
    EXPECT_EQ(Scan(*any, "abc"), "Abc");
}

TEST(Scanner, AFailedReadIsNeitherCleanNorAThreat)
{
    const auto set = Compile("hex Any 41 42 43 44\n");
    CScanner scanner;
    int calls = 0;
    const auto read = [&](std::span<std::uint8_t> buffer) -> std::ptrdiff_t {
        buffer[0] = 'x';
        return ++calls == 1 ? 1 : -1;
    };
    EXPECT_EQ(scanner.Scan(*set, {}, 2, read).outcome, ScanOutcome::Failed);
}
