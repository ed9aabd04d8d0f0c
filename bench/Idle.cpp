// What the service costs while nothing happens: wake-ups and resident memory, beside a bare process with as many
// threads, each asleep.
#include "bench/Measure.h"
#include "bench/ServiceFixture.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace
{

constexpr int Seconds = 20;

struct Cost {
    std::size_t threads = 0;
    long switches = 0;
    long resident = 0; // kB
};

long Field(const fs::path& file, const std::string& key)
{
    std::ifstream stream(file);
    for (std::string line; std::getline(stream, line);)
        if (line.starts_with(key + ":"))
            return std::strtol(line.c_str() + key.size() + 1, nullptr, 10);
    return 0;
}

Cost CostOf(pid_t process)
{
    const fs::path folder = "/proc/" + std::to_string(process);
    Cost cost{0, 0, Field(folder / "status", "VmRSS")};
    std::error_code error;
    for (const auto& thread : fs::directory_iterator(folder / "task", error)) {
        ++cost.threads;
        cost.switches += Field(thread.path() / "status", "voluntary_ctxt_switches");
    }
    return cost;
}

// A process of that many threads that wait for what never comes.
pid_t Sleepers(std::size_t threads)
{
    const pid_t child = fork();
    if (child != 0)
        return child;
    std::vector<std::thread> all;
    for (std::size_t i = 1; i < threads; ++i)
        all.emplace_back([] { pause(); });
    pause();
    _exit(0);
}

} // namespace

int main()
{
    bench::ServiceFixture service(bench::PrivateTmpfs());
    service.Start();
    const pid_t process = static_cast<pid_t>(service.ProcessId());
    std::this_thread::sleep_for(std::chrono::seconds(2)); // what a start still does afterwards
    const pid_t bare = Sleepers(CostOf(process).threads);
    std::this_thread::sleep_for(std::chrono::seconds(1));
    const Cost before = CostOf(process), bareBefore = CostOf(bare);
    std::this_thread::sleep_for(std::chrono::seconds(Seconds));
    const Cost after = CostOf(process), bareAfter = CostOf(bare);
    kill(bare, SIGKILL);
    waitpid(bare, nullptr, 0);
    const auto perMinute = [](const Cost& from, const Cost& to) {
        return static_cast<double>(to.switches - from.switches) * 60 / Seconds;
    };
    bench::Title("Idle service");
    std::printf("  wake-ups a minute %8.1f   floor bare process with %zu threads %8.1f\n", perMinute(before, after),
                after.threads, perMinute(bareBefore, bareAfter));
    std::printf("  resident memory   %5ld kB   floor the same %23ld kB   ratio %6.2f\n", after.resident,
                bareAfter.resident, static_cast<double>(after.resident) / static_cast<double>(bareAfter.resident));
}
