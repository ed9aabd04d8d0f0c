// A set of 100,000 signatures: how long the service takes to start with it, and how long an opener waits at most while
// it is reloaded.
#include "bench/Measure.h"
#include "bench/ServiceFixture.h"
#include "suite/Common/PatternFile.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <random>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;

namespace
{

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr std::size_t Signatures = 100000;

// Four in five are byte patterns of 16 to 47 bytes, the others hashes of whole files.
void WriteSignatures(const fs::path& file, std::uint32_t version)
{
    vlt::scan::PatternFile patterns;
    patterns.version = version;
    std::mt19937_64 random(1);
    for (std::size_t i = 0; i < Signatures; ++i) {
        const std::string name = "Sample-" + std::to_string(i);
        if (i % 5 == 0) {
            auto& hash = patterns.hashes.emplace_back();
            hash.name = name;
            hash.size = 1 + random() % 10000000;
            std::generate(hash.hash.begin(), hash.hash.end(), [&] { return static_cast<std::uint8_t>(random()); });
            continue;
        }
        auto& pattern = patterns.patterns.emplace_back();
        pattern.name = name;
        pattern.value.resize(16 + random() % 32);
        std::generate(pattern.value.begin(), pattern.value.end(), [&] { return static_cast<std::uint8_t>(random()); });
        pattern.mask.assign(pattern.value.size(), 0xFF);
    }
    const auto bytes = vlt::scan::WritePatternFile(patterns).value();
    std::ofstream(file, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

UINT LoadedVersion()
{
    return GetPrivateProfileIntW(TEXT("Info"), TEXT("Pattern"), 0, TEXT("C:\\Veltrano\\ardentis.ini"));
}

// The longest open of different files, one after the other, until `done` says so.
template <typename Done>
Milliseconds LongestOpen(const std::vector<std::string>& files, Done&& done)
{
    Clock::duration longest{};
    for (std::size_t i = 0; !done(); ++i) {
        const auto begin = Clock::now();
        const int file = open(files[i % files.size()].c_str(), O_RDONLY | O_CLOEXEC);
        longest = std::max(longest, Clock::now() - begin);
        if (file < 0)
            std::abort();
        close(file);
    }
    return longest;
}

void Reloads(const std::vector<std::string>& files, const fs::path& program)
{
    constexpr int Rounds = 5;
    vlt::KernelHandle reload; // of an idle thread, which makes it a while after the start
    while (!reload) {
        reload.Reset(OpenEventW(EVENT_MODIFY_STATE, FALSE, TEXT("Global\\Event_Reload_Ksapi")));
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    for (std::uint32_t round = 0; round < Rounds; ++round) {
        const std::uint32_t version = 1100 + 100 * round;
        const fs::path file = program / ("ptf$qrv.0" + std::to_string(version / 100));
        WriteSignatures(program / "new", version);
        fs::rename(program / "new", file);
        const auto begin = Clock::now();
        SetEvent(reload.Get());
        auto looked = begin;
        const Milliseconds during = LongestOpen(files, [&] {
            if (Clock::now() - looked < std::chrono::milliseconds(1))
                return false;
            looked = Clock::now();
            return LoadedVersion() == version || looked - begin > std::chrono::minutes(1);
        });
        const Milliseconds whole = Clock::now() - begin;
        const auto quiet = Clock::now();
        looked = quiet;
        const Milliseconds without = LongestOpen(files, [&] {
            if (Clock::now() - looked < std::chrono::milliseconds(1))
                return false;
            looked = Clock::now();
            return LoadedVersion() == 0 || looked - quiet > whole;
        });
        std::printf("  reload %7.1f ms   longest open during it %7.2f ms   as long without %7.2f ms   ratio %6.2f\n",
                    whole.count(), during.count(), without.count(), during / without);
        fs::remove(program / ("ptf$qrv.0" + std::to_string(version / 100 - 1)));
    }
    std::fflush(stdout);
}

} // namespace

int main()
{
    const fs::path parent = bench::PrivateTmpfs();
    std::vector<std::string> files;
    for (int i = 0; i < 256; ++i) {
        files.push_back((parent / std::to_string(i)).string());
        std::ofstream(files.back()) << std::string(4000, 'x') << i;
    }
    bench::ServiceFixture service(parent);
    const fs::path program = fs::path(std::getenv("VLT_ROOT")) / "drives/c/Veltrano";
    const bench::Body start = [&](std::size_t) { service.Start(); };
    const auto stop = [&] { service.Stop(); };
    const fs::path large = program / "ptf$qrv.010";
    WriteSignatures(parent / "signatures", 1000);
    bench::Title("Service with 100,000 signatures");
    bench::Compare({{"start to running", start, [&] { fs::copy_file(parent / "signatures", large); },
                     [&] {
                         stop();
                         fs::remove(large);
                     }},
                    {"with one signature", start, {}, stop},
                    {"start and end of a bare process",
                     [](std::size_t) {
                         if (std::system("exec true") != 0)
                             std::abort();
                     }}},
                   {}, {.operations = 1, .rounds = 7});
    fs::copy_file(parent / "signatures", large);
    service.Start();
    Reloads(files, program);
}
