#include "suite/ArdScan/PatternLoad.h"
#include "suite/ArdScan/ScanContext.h"

#include "engine/ArdScanAbi.h"
#include "tests/fuzz/Bodies.h"
#include "tests/support/Support.h"
#include "tools/ptfc/SignatureText.h"

#include <gtest/gtest.h>

#include <random>

using namespace vlt::scan;
using namespace vlt::test;

namespace
{

std::vector<std::uint8_t> Compiled(const std::string& text)
{
    std::string error;
    const auto file = ParseSignatures(text, error);
    EXPECT_TRUE(file) << error;
    return file ? WritePatternFile(*file).value() : std::vector<std::uint8_t>();
}

void Put(const TempFolder& folder, const char* name, const std::vector<std::uint8_t>& bytes)
{
    WriteBytes(folder.HostPath(name), {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

constexpr char Sample[] = "version 700\nhex One clean 41 42 43 44 ?? 45\nhex Two 4142434445464748\n"
                          "sha256 Three size=9 ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad\n";

} // namespace

TEST(PatternFile, EveryDamageIsNoticed)
{
    const auto good = Compiled(Sample);
    ASSERT_TRUE(ReadPatternFile(good));
    for (std::size_t i = 0; i < good.size(); ++i) {
        auto bad = good;
        bad[i] ^= 0x40;
        EXPECT_FALSE(ReadPatternFile(bad)) << i;
        EXPECT_FALSE(ReadPatternFile(std::span(good).first(i))) << i;
    }
    auto longer = good;
    longer.push_back(0);
    EXPECT_FALSE(ReadPatternFile(longer));
}

TEST(PatternFile, HostileEntriesDoNoHarm)
{
    const auto good = Compiled(Sample);
    EXPECT_TRUE(PatternFileBody(good));
    std::mt19937 random(11);
    int accepted = 0;
    for (int round = 0; round < 20000; ++round) {
        auto bytes = good;
        for (auto n = random() % 4 + 1; n > 0; --n)
            bytes[8 + random() % (bytes.size() - 8)] = static_cast<std::uint8_t>(random());
        if (random() % 4 == 0)
            bytes.resize(random() % (bytes.size() + 1));
        accepted += PatternFileBody(bytes);
    }
    EXPECT_GT(accepted, 0); // the entries were reached
}

TEST(PatternSet, AGenerationGoesWithItsLastScan)
{
    const TempFolder folder;
    Put(folder, "ptf$qrv.001", Compiled("version 100\nhex Old 41424344\n"));
    CScanContext context;
    const auto publish = [&] {
        LoadedSet loaded = LoadSet(folder.HostPath(), AS_RELOAD_ALL, context.Current()->patterns.get());
        context.Update([&](Snapshot& next) { next.patterns = std::move(loaded.set); });
    };
    publish();
    const std::weak_ptr<const CPatternSet> old = context.Current()->patterns;
    Put(folder, "ptf$qrv.002", Compiled("version 200\nhex New 45464748\n"));
    CJudge judge(context);
    judge.Refresh();
    Threat threat{};
    int reads = 0;
    const auto read = [&](std::span<std::uint8_t> buffer) -> std::ptrdiff_t {
        if (++reads > 1)
            return 0;
        publish();
        std::copy_n("ABCD", 4, buffer.begin());
        return 4;
    };
    EXPECT_EQ(judge.Scan(4, read, threat), Verdict::Infected);
    EXPECT_EQ(threat.signature->name, "Old");
    judge.Release();
    EXPECT_TRUE(old.expired());
    EXPECT_EQ(judge.Refresh().patterns->VirusVersion(), 200u);
}

TEST(SignatureText, ErrorsNameTheLine)
{
    std::string error;
    for (const char* bad :
         {"hex X 41 4Z 43 44", "hex X 41 ?? 43 ?? 44", "hex X 414243", "hex 41424344", "sha256 X 00", "version x",
          "kind x", "other", "hex X adware 41424344", "text X abcdef", "text X odd \"abcdef\"", "text X \"abc"}) {
        EXPECT_FALSE(ParseSignatures(std::string("# first\n") + bad + "\n", error)) << bad;
        EXPECT_EQ(error.substr(0, 7), "line 2:") << error;
    }
    EXPECT_FALSE(ParseSignatures("kind spyware\nhex X 41424344\n", error));
    EXPECT_FALSE(ParseSignatures("hex X 41424344\nkind packer\n", error));
    const auto file = ParseSignatures("kind spyware\nversion 7\ntext X dialer \"# \"quoted\" #\" # comment\n", error);
    ASSERT_TRUE(file) << error;
    EXPECT_EQ(std::string(file->patterns[0].value.begin(), file->patterns[0].value.end()), "# \"quoted\" #");
}
