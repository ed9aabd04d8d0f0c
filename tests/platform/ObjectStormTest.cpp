// Processes that use named objects of every kind in random order and are killed at random instants.
#include "tests/platform/ObjectKinds.h"
#include "tests/platform/Waiter.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <iterator>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <random>
#include <sys/prctl.h>
#include <sys/syscall.h>

using namespace vlt::test;
using vlt::KernelHandle;

namespace
{

constexpr int kNames = 6; // few, so that they meet: in the same object, and with another kind of it
constexpr int kKinds = std::size(kObjectKinds);
using Random = std::mt19937;

int Draw(Random& random, int below)
{
    return static_cast<int>(random() % static_cast<unsigned>(below));
}

void Use(int kind, HANDLE object, Random& random)
{
    LARGE_INTEGER due;
    due.QuadPart = -Draw(random, 20000);
    switch (kind) {
    case 0:
        static_cast<void>(Draw(random, 2) ? SetEvent(object) : PulseEvent(object));
        break;
    case 1:
        ReleaseMutex(object);
        break;
    case 2:
        ReleaseSemaphore(object, 1 + Draw(random, 2), nullptr);
        break;
    case 3:
        SetWaitableTimer(object, &due, Draw(random, 3), nullptr, nullptr, FALSE);
        break;
    default:
        if (const vlt::MappedView view(MapViewOfFile(object, FILE_MAP_ALL_ACCESS, 0, 0, 0)); view)
            static_cast<volatile char*>(view.Get())[4999] = 1;
    }
}

// One of many turns. The failure that must not be, or 0.
DWORD Turn(const std::string& base, Random& random, std::vector<std::pair<int, KernelHandle>>& held)
{
    const WString name = vlt::ToWide(base + std::to_string(Draw(random, kNames)), CP_UTF8);
    const int kind = Draw(random, kKinds);
    if (held.size() < 6) {
        const auto make = Draw(random, 2) ? kObjectKinds[kind].create : kObjectKinds[kind].open;
        KernelHandle object(make(name.c_str()));
        const DWORD error = GetLastError();
        if (!object)
            return error == ERROR_INVALID_HANDLE || error == ERROR_FILE_NOT_FOUND ? 0 : error;
        held.emplace_back(kind, std::move(object));
    }
    Use(held.back().first, held.back().second.Get(), random);
    std::vector<HANDLE> handles;
    for (const auto& [heldKind, object] : held) {
        if (heldKind != kKinds - 1)
            handles.push_back(object.Get());
    }
    const auto count = static_cast<DWORD>(handles.size());
    if (count != 0 &&
        WaitForMultipleObjects(count, handles.data(), FALSE, static_cast<DWORD>(Draw(random, 3))) == WAIT_FAILED)
        return GetLastError();
    if (Draw(random, 2) != 0)
        held.erase(held.begin() + Draw(random, static_cast<int>(held.size())));
    return 0;
}

// As on a file system that knows no files without a name.
bool RefuseUnnamedFiles()
{
    constexpr auto Load = [](std::size_t offset) {
        return sock_filter BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(offset));
    };
    sock_filter steps[] = {Load(offsetof(seccomp_data, nr)),
                           BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat, 0, 3),
                           Load(offsetof(seccomp_data, args) + 2 * sizeof(std::uint64_t)),
                           BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, O_TMPFILE & ~O_DIRECTORY, 0, 1),
                           BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EOPNOTSUPP),
                           BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    const sock_fprog program{std::size(steps), steps};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

} // namespace

VLT_CHILD(storm)
{
    if (args[2] == "named" && !RefuseUnnamedFiles())
        return 2;
    Random random(static_cast<unsigned>(std::strtoul(args[1].c_str(), nullptr, 10)));
    std::puts("ready");
    std::vector<std::pair<int, KernelHandle>> held;
    DWORD error = 0;
    while (error == 0)
        error = Turn(args[0], random, held);
    std::printf("error %lu\n", static_cast<unsigned long>(error));
    return 1;
}

// Takes part and is not killed; then answers as often as it is asked.
VLT_CHILD(storm_survivor)
{
    const KernelHandle calm(OpenEventA(SYNCHRONIZE, FALSE, (args[0] + "calm").c_str()));
    const KernelHandle ask(OpenEventA(SYNCHRONIZE, FALSE, (args[0] + "ask").c_str()));
    const KernelHandle answer(OpenEventA(EVENT_MODIFY_STATE, FALSE, (args[0] + "answer").c_str()));
    Random random(static_cast<unsigned>(std::strtoul(args[1].c_str(), nullptr, 10)));
    {
        std::vector<std::pair<int, KernelHandle>> held;
        while (WaitForSingleObject(calm.Get(), 0) == WAIT_TIMEOUT) {
            if (const DWORD error = Turn(args[0], random, held); error != 0)
                return static_cast<int>(error);
        }
    }
    while (WaitForSingleObject(ask.Get(), kSoon) == WAIT_OBJECT_0)
        SetEvent(answer.Get());
    return 0;
}

TEST(ObjectStorm, ProcessesKilledAtAnyInstantHarmNobody)
{
    const char* const given = std::getenv("VLT_STORM_SEED");
    const unsigned seed = given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : std::random_device()();
    std::printf("VLT_STORM_SEED=%u\n", seed);
    Random random(seed);
    const std::string base = NarrowName("Storm");
    const auto event = [&](const char* name, bool manualReset) {
        return KernelHandle(CreateEventA(nullptr, manualReset, FALSE, (base + name).c_str()));
    };
    KernelHandle calm = event("calm", true);
    KernelHandle ask = event("ask", false);
    KernelHandle answer = event("answer", false);
    {
        Child survivor("storm_survivor", {base, std::to_string(random())});
        const auto start = [&] {
            const std::string making = Draw(random, 2) ? "named" : "";
            auto child = std::make_unique<Child>("storm", std::vector{base, std::to_string(random()), making});
            EXPECT_EQ(child->ReadLine(), "ready");
            return child;
        };
        std::unique_ptr<Child> children[] = {start(), start(), start()};
        const ULONGLONG end = GetTickCount64() + 4000;
        for (int round = 0; round < 200 && GetTickCount64() < end; ++round) {
            Sleep(static_cast<DWORD>(Draw(random, 8)));
            auto& child = children[static_cast<std::size_t>(Draw(random, 3))];
            if (child->Wait(0) != Child::kStillRunning)
                FAIL() << child->ReadLine();
            child->Kill();
            child = start();
        }
        for (auto& child : children) {
            child->Kill();
            child->Wait(kSoon);
        }
        SetEvent(calm.Get());
        for (int i = 0; i < 50; ++i) {
            SetEvent(ask.Get());
            ASSERT_EQ(WaitForSingleObject(answer.Get(), kSoon), WAIT_OBJECT_0) << "survivor: " << survivor.Wait(0);
        }
        survivor.Kill();
        survivor.Wait(kSoon);
    }
    for (KernelHandle* handle : {&calm, &ask, &answer})
        handle->Reset();
    for (int number = 0; number < kNames; ++number) {
        for (const ObjectKind& kind : kObjectKinds) {
            EXPECT_FALSE(KernelHandle(kind.open(vlt::ToWide(base + std::to_string(number), CP_UTF8).c_str())));
            EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
        }
    }
    for (const auto& entry : std::filesystem::directory_iterator(std::string(std::getenv("VLT_ROOT")) + "/objects"))
        EXPECT_EQ(entry.path().filename().string()[0], '.') << entry.path();
}
