// What a catch costs the thread of the scan library that reports it: the detection callback, from its
// start to its return, beside the bare system calls of its steps.
//
// Each call is timed alone. Before the next one everything that it left behind is waited for: the log
// thread, the broadcast and its receivers.
#include "realtime/Detection.h"
#include "ARDCommon/ProgramFolder.h"
#include "bench/Measure.h"
#include "bench/Receivers.h"
#include "platform/Text.h"
#include "realtime/State.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sched.h>
#include <string>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>
#include <vector>

static_assert(bench::MessageSize == sizeof(AsDetectionRecord));

namespace
{

namespace fs = std::filesystem;
using bench::Receivers;

constexpr char kEncoded[] = "encoded.bin";
constexpr std::size_t kLineSize = 150; // of the virus log for the record below

void Require(bool fine, const char* what)
{
    if (fine)
        return;
    std::fprintf(stderr, "%s failed\n", what);
    std::exit(1);
}

struct Threads {
    std::size_t count = 0;
    bool resting = true; // all but this one sleep
};

Threads OwnThreads()
{
    Threads threads;
    const std::string self = std::to_string(gettid());
    for (const auto& entry : fs::directory_iterator("/proc/self/task")) {
        ++threads.count;
        std::string text;
        std::getline(std::ifstream(entry.path() / "stat"), text);
        const std::size_t name = text.rfind(')');
        if (entry.path().filename() != self && (name == std::string::npos || text.compare(name, 3, ") S") != 0))
            threads.resting = false;
    }
    return threads;
}

// Returns when no more than `count` threads are left and nothing is under way on them.
void AwaitRest(std::size_t count)
{
    for (Threads threads = OwnThreads(); threads.count > count || !threads.resting; threads = OwnThreads())
        sched_yield();
}

void MakeEncoded(const fs::path& folder)
{
    const int file = open((folder / kEncoded).c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600);
    Require(write(file, "x", 1) == 1, "write");
    close(file);
}

// What the service has set up when the library reports, and receivers on its channel.
class Service
{
public:
    Service(const fs::path& root, std::size_t count)
        : m_name("catch" + std::to_string(count)), m_folder(root / "drives/c" / m_name),
          m_channel("bench" + std::to_string(getpid()) + m_name), m_receivers("notify", m_channel, count)
    {
        fs::create_directories(m_folder);
        const WString folder = TEXT("C:\\") + vlt::ToWide(m_name);
        vlt::RealtimeState& state = vlt::Realtime();
        Require(state.quarantine.QuarantineInitW(vlt::ProgramFolder().c_str(), folder.c_str()) == 1, "QuarantineInitW");
        state.notifier = std::make_unique<CNotifySender>(m_channel.c_str(), sizeof(AsDetectionRecord));
        state.publishedNotifier = state.notifier.get();
        m_receivers.Enlist(m_channel);
        m_record.firstAction = AS_ACTION_QUARANTINE;
        m_record.firstResult = AS_RESULT_DONE;
        m_record.denied = 1;
        vlt::CopyToField(m_record.threatName, WStringView(TEXT("Threat")));
        vlt::CopyToField(m_record.infectedPath, WStringView(TEXT("C:\\folder\\bad.txt")));
        vlt::CopyToField(m_record.encodedPath, WStringView(folder + TEXT("\\") + vlt::ToWide(kEncoded)));
    }
    ~Service()
    {
        vlt::RealtimeState& state = vlt::Realtime();
        state.publishedNotifier = nullptr;
        state.notifier->Stop();
        state.notifier.reset();
        state.quarantine.QuarantineClose();
    }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    void Prepare()
    {
        m_receivers.Expect(1);
        MakeEncoded(m_folder);
    }
    void Report() { RealTimeScanVirusCallBack(nullptr, &m_record); }
    void Await()
    {
        m_receivers.AwaitAll();
        Require(!fs::exists(m_folder / kEncoded), "quarantine");
    }

private:
    std::string m_name;
    fs::path m_folder;
    std::string m_channel;
    Receivers m_receivers;
    AsDetectionRecord m_record{};
};

enum class Steps {
    Needed, // what moves, records, logs, tells and keeps
    All,    // and the temporary file that reserves the name, the ini keys that follow the log line, and the
            // yield that lets the other threads begin
};

// The same with the system's calls alone, on the same file system.
class Bare
{
public:
    Bare(const fs::path& root, std::size_t count, Steps steps)
        : m_steps(steps), m_folder(root / ((steps == Steps::All ? "all" : "bare") + std::to_string(count)))
    {
        fs::create_directories(m_folder);
        for (std::size_t i = 0; i < m_values.size(); ++i) {
            m_values[i] = m_folder / ("value" + std::to_string(i));
            std::ofstream(m_values[i]) << std::string(kValueSizes[i], 'x');
        }
        void* const shared = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        Require(shared != MAP_FAILED, "mmap");
        m_semaphore = new (shared) bench::BareEvent;
        m_semaphore->Set(true);
        for (std::size_t i = 0; i < count; ++i)
            m_receivers.push_back(std::make_unique<Receivers>("raw", "", 1));
    }
    ~Bare() { munmap(m_semaphore, 4096); }
    Bare(const Bare&) = delete;
    Bare& operator=(const Bare&) = delete;

    void Prepare()
    {
        for (const auto& receiver : m_receivers)
            receiver->Expect(1);
        m_target = m_folder / (std::to_string(m_message.number) + ".tmp");
        MakeEncoded(m_folder);
    }
    void Report()
    {
        if (m_steps == Steps::All) {
            close(open(m_target.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600));
            unlink(m_target.c_str());
        }
        Require(rename((m_folder / kEncoded).c_str(), m_target.c_str()) == 0, "rename");
        m_semaphore->Wait(true);
        Append(m_folder / "QUADB.VDB", kRecordSize, false);
        m_semaphore->Set(true);
        std::thread([this, copy = std::make_unique<bench::Message>(m_message)] {
            Append(m_folder / "log", kLineSize, true);
            for (int key = 0; m_steps == Steps::All && key < 3; ++key)
                ReplaceIni();
        }).detach();
        Broadcast();
        if (m_steps == Steps::All)
            sched_yield();
        for (std::size_t i = 0; i < m_values.size(); ++i)
            WriteValue(m_values[i], kValueSizes[i]);
    }
    void Await()
    {
        for (const auto& receiver : m_receivers)
            receiver->AwaitAll();
    }

private:
    static constexpr std::size_t kRecordSize = sizeof(QuarantineRecord);
    static constexpr std::array<std::size_t, 4> kValueSizes = {4, 4, 36, 14};

    static void Append(const fs::path& path, std::size_t size, bool flush)
    {
        static constexpr char data[kRecordSize] = {};
        const int file = open(path.c_str(), O_CREAT | O_WRONLY | O_APPEND | O_CLOEXEC, 0600);
        Require(write(file, data, size) == static_cast<ssize_t>(size), "append");
        if (flush)
            fsync(file);
        close(file);
    }
    // Each key is written by itself, and no reader finds half a file.
    void ReplaceIni() const
    {
        const fs::path made = m_folder / "ini.new";
        const int file = open(made.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600);
        static constexpr char text[100] = {};
        Require(write(file, text, sizeof text) == sizeof text, "ini");
        close(file);
        Require(rename(made.c_str(), (m_folder / "ini").c_str()) == 0, "ini");
    }
    static void WriteValue(const fs::path& path, std::size_t size)
    {
        static constexpr char data[64] = {};
        const int file = open(path.c_str(), O_WRONLY | O_CLOEXEC);
        Require(pwrite(file, data, size, 0) == static_cast<ssize_t>(size), "pwrite");
        close(file);
    }
    void Broadcast()
    {
        ++m_message.number;
        for (const auto& receiver : m_receivers) {
            bench::Board& board = receiver->Shared();
            std::memcpy(&board.message, &m_message, sizeof m_message);
            ++board.sequence;
            syscall(SYS_futex, &board.sequence, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
        }
    }

    Steps m_steps;
    fs::path m_folder;
    fs::path m_target;
    std::array<fs::path, 4> m_values;
    bench::BareEvent* m_semaphore = nullptr;
    std::vector<std::unique_ptr<Receivers>> m_receivers;
    bench::Message m_message{};
};

void Callback(const fs::path& root, std::size_t count)
{
    Service service(root, count);
    Bare bare(root, count, Steps::Needed);
    Bare all(root, count, Steps::All);
    const std::size_t threads = OwnThreads().count;
    const auto each = [threads](const std::string& name, auto& side) {
        return bench::Case{name,
                           [&side](std::size_t operations) {
                               for (std::size_t i = 0; i < operations; ++i)
                                   side.Report();
                           },
                           [&side] { side.Prepare(); },
                           [&side, threads] {
                               side.Await();
                               AwaitRest(threads);
                           }};
    };
    const std::string to = std::to_string(count) + (count == 1 ? " receiver" : " receivers");
    bench::Compare({each("callback, " + to, service), each("bare system calls", bare),
                    each("same, temporary file, ini, yield", all)},
                   {1.3}, {.operations = 1, .rounds = 301});
}

// The log and the ini records lie beside the program: a copy of it in the machine root keeps them on
// the file system of the store, and out of the build.
void InstallAndRun(const fs::path& root, char** argv)
{
    const fs::path self = fs::read_symlink("/proc/self/exe");
    const fs::path installed = root / "drives/c/Detection";
    fs::create_directories(installed);
    if (fs::equivalent(self.parent_path(), installed))
        return;
    for (const auto& entry : fs::directory_iterator(self.parent_path())) {
        const std::string name = entry.path().filename().string();
        if (entry.path() == self || name == "libvlplatform.so" || name == "ArdScan.dll" || name.starts_with("ptf$"))
            fs::copy_file(entry.path(), installed / name, fs::copy_options::overwrite_existing);
    }
    execv((installed / self.filename()).c_str(), argv);
    Require(false, "execv");
}

} // namespace

int main(int argc, char** argv)
{
    if (const int result = Receivers::Main(argc, argv); result >= 0)
        return result;
    const char* const root = std::getenv("VLT_ROOT");
    if (!root)
        return 2;
    InstallAndRun(root, argv);
    bench::Title("A catch: the detection callback, quarantine to last detection");
    for (const std::size_t count : {0u, 1u, 8u})
        Callback(root, count);
}
