#include "bench/Measure.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace bench
{
namespace
{

using Clock = std::chrono::steady_clock;

double NanosecondsEach(const Body& body, std::size_t count)
{
    const auto begin = Clock::now();
    body(count);
    const std::chrono::duration<double, std::nano> spent = Clock::now() - begin;
    return spent.count() / static_cast<double>(count);
}

double Median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

std::string Readable(double nanoseconds)
{
    char text[32];
    if (nanoseconds < 1000)
        std::snprintf(text, sizeof text, "%.1f ns", nanoseconds);
    else if (nanoseconds < 1000000)
        std::snprintf(text, sizeof text, "%.2f us", nanoseconds / 1000);
    else
        std::snprintf(text, sizeof text, "%.2f ms", nanoseconds / 1000000);
    return text;
}

} // namespace

void Title(const std::string& text)
{
    std::printf("\n%s\n", text.c_str());
    std::fflush(stdout);
}

void Compare(const std::vector<Case>& cases, const std::vector<double>& aims, const Options& options)
{
    std::vector<std::vector<double>> times(cases.size());
    for (std::size_t round = 0; round < options.rounds; ++round) {
        for (std::size_t i = 0; i < cases.size(); ++i) {
            if (cases[i].prepare)
                cases[i].prepare();
            times[i].push_back(NanosecondsEach(cases[i].body, options.operations));
            if (cases[i].settle)
                cases[i].settle();
        }
    }
    for (std::size_t i = 1; i < cases.size(); ++i) {
        std::vector<double> ratios;
        for (std::size_t round = 0; round < options.rounds; ++round)
            ratios.push_back(times[0][round] / times[i][round]);
        const double aim = i - 1 < aims.size() ? aims[i - 1] : 0;
        std::printf("  %-34s %11s   floor %-34s %11s   ratio %6.2f", cases[0].name.c_str(),
                    Readable(Median(times[0])).c_str(), cases[i].name.c_str(), Readable(Median(times[i])).c_str(),
                    Median(ratios));
        if (aim > 0)
            std::printf("   aim %.1f", aim);
        std::printf("\n");
    }
    std::fflush(stdout);
}

} // namespace bench
