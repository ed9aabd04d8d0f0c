// One message to all receivers, until every one has taken it: the notify sender beside shared memory
// with one futex word, and beside publish and subscribe over local sockets with acknowledgements. Then
// ten thousand detections posted at once, and what a process with a sender and its receivers occupies.
#include "ARDCommon/NotifySender.h"
#include "bench/Measure.h"
#include "bench/Receivers.h"
#include "engine/ArdScanAbi.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <unistd.h>
#include <zmq.h>

static_assert(bench::MessageSize == sizeof(AsDetectionRecord));

namespace
{

using bench::Message;
using bench::Receivers;

std::string Channel(const char* kind, std::size_t count)
{
    return "bench" + std::to_string(getpid()) + kind + std::to_string(count);
}

// The sender of the product with its receivers in the list.
class NotifySide
{
public:
    explicit NotifySide(std::size_t count)
        : m_channel(Channel("notify", count)), m_sender(m_channel.c_str(), bench::MessageSize),
          m_receivers("notify", m_channel, count)
    {
        m_receivers.Enlist(m_channel);
    }
    ~NotifySide() { m_sender.Stop(); }

    void Post()
    {
        m_message.number = m_number++;
        if (!m_sender.Notify(&m_message, sizeof m_message))
            std::abort();
    }
    Receivers& All() noexcept { return m_receivers; }

private:
    std::string m_channel;
    CNotifySender m_sender;
    Receivers m_receivers;
    Message m_message{};
    std::uint32_t m_number = 0;
};

class RawSide
{
public:
    explicit RawSide(std::size_t count) : m_receivers("raw", "", count) {}

    void Post()
    {
        bench::Board& board = m_receivers.Shared();
        m_message.number = m_number++;
        std::memcpy(&board.message, &m_message, sizeof m_message);
        ++board.sequence;
        syscall(SYS_futex, &board.sequence, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
    }
    Receivers& All() noexcept { return m_receivers; }

private:
    Receivers m_receivers;
    Message m_message{};
    std::uint32_t m_number = 0;
};

class ZmqSide
{
public:
    explicit ZmqSide(std::size_t count) : m_channel(Channel("zmq", count)), m_count(count), m_context(zmq_ctx_new())
    {
        m_publisher = zmq_socket(m_context, ZMQ_XPUB); // tells when somebody has subscribed
        m_acknowledged = zmq_socket(m_context, ZMQ_PULL);
        const int verbose = 1; // of equal subscriptions too
        zmq_setsockopt(m_publisher, ZMQ_XPUB_VERBOSE, &verbose, sizeof verbose);
        if (zmq_bind(m_publisher, ("ipc://@" + m_channel).c_str()) != 0 ||
            zmq_bind(m_acknowledged, ("ipc://@" + m_channel + "-ack").c_str()) != 0)
            std::abort();
        m_receivers.emplace("zmq", m_channel, count);
        char subscription[16];
        for (std::size_t i = 0; i < count; ++i)
            zmq_recv(m_publisher, subscription, sizeof subscription, 0);
    }
    ~ZmqSide()
    {
        m_receivers.reset();
        zmq_close(m_publisher);
        zmq_close(m_acknowledged);
        zmq_ctx_term(m_context);
    }

    void Round()
    {
        m_message.number = m_number++;
        zmq_send(m_publisher, &m_message, sizeof m_message, 0);
        char nothing = 0;
        for (std::size_t i = 0; i < m_count; ++i)
            zmq_recv(m_acknowledged, &nothing, sizeof nothing, 0);
    }

private:
    std::string m_channel;
    std::size_t m_count;
    void* m_context;
    void* m_publisher = nullptr;
    void* m_acknowledged = nullptr;
    std::optional<Receivers> m_receivers;
    Message m_message{};
    std::uint32_t m_number = 0;
};

template <typename Side>
bench::Body Rounds(Side& side)
{
    return [&side](std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            side.All().Expect(1);
            side.Post();
            side.All().AwaitAll();
        }
    };
}

void Broadcast(std::size_t count)
{
    NotifySide notify(count);
    RawSide raw(count);
    ZmqSide zmq(count);
    const std::string to = std::to_string(count) + (count == 1 ? " receiver" : " receivers");
    bench::Compare({{"message to " + to, Rounds(notify)},
                    {"shared memory, one futex", Rounds(raw)},
                    {"ZeroMQ publish, subscribe",
                     [&](std::size_t messages) {
                         for (std::size_t i = 0; i < messages; ++i)
                             zmq.Round();
                     }}},
                   {2.0, count == 1 ? 0.0 : 1.0}, {.operations = 200, .rounds = 11});
}

// Resident kibibytes by kind: "RssAnon", "RssFile" and "RssShmem" of this process.
long Resident(const std::string& kind)
{
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == kind + ':') {
            long size = 0;
            status >> size;
            return size;
        }
    }
    return -1;
}

void TenThousand()
{
    constexpr std::size_t messages = 10000;
    constexpr std::size_t count = 32;
    NotifySide side(count);
    const auto begin = std::chrono::steady_clock::now();
    side.All().Expect(messages);
    for (std::size_t i = 0; i < messages; ++i)
        side.Post();
    side.All().AwaitAll();
    const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - begin;
    const bench::Board& board = side.All().Shared();
    std::printf("  %zu detections to %zu receivers: %.2f s, %.0f us each; taken %llu of %zu, out of order %llu\n",
                messages, count, spent.count(), spent.count() * 1e6 / messages,
                static_cast<unsigned long long>(board.receipts), messages * count,
                static_cast<unsigned long long>(board.disorders));
}

// In a process that has done nothing else.
int Memory()
{
    const long before = Resident("RssAnon");
    const long beforeFile = Resident("RssFile");
    NotifySide side(32);
    for (int i = 0; i < 100; ++i)
        Rounds(side)(1);
    std::printf("  sender with 32 receivers: %ld KiB of its own (%ld more than without), %ld KiB of files and shared "
                "memory (%ld more)\n",
                Resident("RssAnon"), Resident("RssAnon") - before, Resident("RssFile") + Resident("RssShmem"),
                Resident("RssFile") - beforeFile);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (const int result = Receivers::Main(argc, argv); result >= 0)
        return result;
    if (argc == 2 && std::strcmp(argv[1], "memory") == 0)
        return Memory();
    bench::Title("Broadcast of 1860 bytes until all have taken it");
    for (const std::size_t count : {1u, 8u, 32u})
        Broadcast(count);
    TenThousand();
    std::fflush(stdout);
    const std::string self = std::filesystem::read_symlink("/proc/self/exe");
    return std::system(('\'' + self + "' memory").c_str());
}
