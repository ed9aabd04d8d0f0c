#include "bench/Receivers.h"

#include "ARDCommon/DefSecAttr.h"
#include "ARDCommon/GlobalName.h"
#include "ARDCommon/NotifyFormat.h"
#include "ARDCommon/VlShareMemory.h"
#include "platform/Unique.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <sched.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <zmq.h>

extern char** environ;

namespace bench
{
namespace
{

[[noreturn]] void Fail(const char* what)
{
    std::fprintf(stderr, "%s failed\n", what);
    std::exit(2);
}

Board* MapBoard(int file)
{
    void* const view = mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (view == MAP_FAILED)
        Fail("mmap");
    return static_cast<Board*>(view);
}

// What every kind does with a message, which it has copied out.
class Taker
{
public:
    explicit Taker(Board& board) : m_board(board) {}

    void Take(const Message& message)
    {
        if (message.number != m_next)
            ++m_board.disorders;
        m_next = message.number + 1;
        ++m_board.receipts;
        if (m_board.missing.fetch_sub(1) == 1)
            m_board.all.Set(true);
    }

private:
    Board& m_board;
    std::uint32_t m_next = 0;
};

void ReceiveRaw(Board& board, Taker& taker)
{
    Message copy;
    std::uint32_t seen = board.sequence;
    ++board.ready;
    while (!board.quit) {
        if (board.sequence == seen) {
            syscall(SYS_futex, &board.sequence, FUTEX_WAIT, seen, nullptr, nullptr, 0);
            continue;
        }
        ++seen;
        std::memcpy(&copy, &board.message, sizeof copy);
        taker.Take(copy);
    }
}

vlt::KernelHandle ShareEvent(const std::string& channel, const char* suffix, BOOL manualReset)
{
    const DefSecAttr security;
    vlt::KernelHandle event(
        CreateEventA(security.Get(), manualReset, FALSE, vlt::MakeGlobalName((channel + suffix).c_str()).c_str()));
    if (!event)
        Fail("CreateEventA");
    return event;
}

// When its message is taken and others' are not, the notify event stays set: the next one is then
// announced by "sent". The time-out is for a sender without that event, and longer than the tick: on a
// virtual machine each shorter timer is an exit to the host, several microseconds.
void ReceiveNotify(Board& board, Taker& taker, const std::string& channel, std::size_t index)
{
    CVlShareMemory section;
    void* view = nullptr;
    if (!section.Create(Receivers::SectionName(channel, index).c_str(), 4096, true, false) ||
        !section.Map(&view, false))
        Fail("section of a receiver");
    auto* const header = static_cast<NotifyMessage*>(view);
    const std::atomic_ref<std::uint32_t> flag(header->readFlag);
    const vlt::KernelHandle notify = ShareEvent(channel, kNotifyEventSuffix, TRUE);
    const vlt::KernelHandle sent = ShareEvent(channel, kNotifySentSuffix, TRUE);
    const vlt::KernelHandle read = ShareEvent(channel, kNotifyReadSuffix, FALSE);
    Message copy;
    ++board.ready;
    while (!board.quit) {
        if (flag.load(std::memory_order_acquire) != 0) {
            std::memcpy(&copy, header + 1, sizeof copy);
            flag.store(0, std::memory_order_release);
            SetEvent(read.Get());
            taker.Take(copy);
            continue;
        }
        if (WaitForSingleObject(notify.Get(), 0) == WAIT_OBJECT_0)
            WaitForSingleObject(sent.Get(), 20);
        else
            WaitForSingleObject(notify.Get(), INFINITE);
    }
}

void ReceiveZmq(Board& board, Taker& taker, const std::string& channel)
{
    void* const context = zmq_ctx_new();
    void* const subscriber = zmq_socket(context, ZMQ_SUB);
    void* const acknowledge = zmq_socket(context, ZMQ_PUSH);
    const int linger = 0;
    zmq_setsockopt(acknowledge, ZMQ_LINGER, &linger, sizeof linger);
    if (zmq_setsockopt(subscriber, ZMQ_SUBSCRIBE, "", 0) != 0 ||
        zmq_connect(acknowledge, ("ipc://@" + channel + "-ack").c_str()) != 0 ||
        zmq_connect(subscriber, ("ipc://@" + channel).c_str()) != 0)
        Fail("zmq_connect");
    Message copy;
    ++board.ready;
    while (zmq_recv(subscriber, &copy, sizeof copy, 0) == static_cast<int>(sizeof copy) && !board.quit) {
        taker.Take(copy);
        zmq_send(acknowledge, "", 0, 0);
    }
}

pid_t Spawn(const std::string& kind, const std::string& channel, std::size_t index, int file)
{
    std::string arguments[] = {"/proc/self/exe", "receive", kind, channel, std::to_string(index), std::to_string(file)};
    std::vector<char*> pointers;
    for (std::string& argument : arguments)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    pid_t process = 0;
    if (posix_spawn(&process, pointers[0], nullptr, nullptr, pointers.data(), environ) != 0)
        Fail("posix_spawn");
    return process;
}

} // namespace

Receivers::Receivers(const std::string& kind, const std::string& channel, std::size_t count)
    : m_file(memfd_create("bench", 0)) // inherited by the children
{
    if (m_file < 0 || ftruncate(m_file, sizeof(Board)) != 0)
        Fail("memfd_create");
    m_board = new (MapBoard(m_file)) Board{};
    for (std::size_t i = 0; i < count; ++i)
        m_processes.push_back(Spawn(kind, channel, i, m_file));
    while (m_board->ready != count)
        sched_yield();
}

Receivers::~Receivers()
{
    // Wherever they wait.
    for (const pid_t process : m_processes)
        kill(process, SIGKILL);
    for (const pid_t process : m_processes)
        waitpid(process, nullptr, 0);
    munmap(m_board, sizeof(Board));
    close(m_file);
}

void Receivers::Enlist(const std::string& channel) const
{
    CVlShareMemory list;
    void* view = nullptr;
    if (!list.Open((channel + kNotifyListSuffix).c_str(), false) || !list.Map(&view, false))
        Fail("list of receivers");
    for (std::size_t i = 0; i < m_processes.size(); ++i)
        lstrcpynA(static_cast<NotifyList*>(view)->slot[i], SectionName(channel, i).c_str(), kNotifySlotSize);
}

void Receivers::Expect(std::size_t messages)
{
    m_board->missing = static_cast<std::uint32_t>(messages * m_processes.size());
}

void Receivers::AwaitAll()
{
    if (!m_processes.empty())
        m_board->all.Wait(true);
}

std::string Receivers::SectionName(const std::string& channel, std::size_t index)
{
    return channel + "_receiver_" + std::to_string(index);
}

int Receivers::Main(int argc, char** argv)
{
    if (argc != 6 || std::strcmp(argv[1], "receive") != 0)
        return -1;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const std::string kind = argv[2];
    Board& board = *MapBoard(std::atoi(argv[5]));
    Taker taker(board);
    if (kind == "raw")
        ReceiveRaw(board, taker);
    else if (kind == "notify")
        ReceiveNotify(board, taker, argv[3], std::strtoul(argv[4], nullptr, 10));
    else
        ReceiveZmq(board, taker, argv[3]);
    return 0;
}

} // namespace bench
