// Receivers of a broadcast in processes of their own, of three kinds that take the same messages and
// acknowledge each to the same board.
#pragma once

#include "bench/Futex.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

namespace bench
{

inline constexpr std::size_t MessageSize = 1860;

// Begins with the number of the message; whoever takes it looks whether it is the next one.
struct Message {
    std::uint32_t number;
    unsigned char rest[MessageSize - sizeof(std::uint32_t)];
};
static_assert(sizeof(Message) == MessageSize);

// In memory that all processes share.
struct Board {
    std::atomic<std::uint32_t> ready;     // receivers that listen
    std::atomic<std::uint32_t> missing;   // receipts until the sender is woken
    BareEvent all;                        // set by the last of them
    std::atomic<std::uint64_t> receipts;  // since the start
    std::atomic<std::uint64_t> disorders; // messages whose number was not the next one
    std::atomic<bool> quit;
    alignas(64) std::atomic<std::uint32_t> sequence; // of the raw kind: the futex word
    Message message;                                 // of the raw kind
};

// A set of receivers of one kind ("notify", "raw" or "zmq") on the named channel.
class Receivers
{
public:
    Receivers(const std::string& kind, const std::string& channel, std::size_t count); // returns when all listen
    ~Receivers();                                                                      // ends them
    Receivers(const Receivers&) = delete;
    Receivers& operator=(const Receivers&) = delete;

    Board& Shared() noexcept { return *m_board; }
    // Kind "notify": writes the receivers into the list that the sender of the channel has made.
    void Enlist(const std::string& channel) const;
    // Before `messages` are sent, and until every receiver has taken them all.
    void Expect(std::size_t messages);
    void AwaitAll();

    // Section of one receiver of the kind "notify".
    static std::string SectionName(const std::string& channel, std::size_t index);

    // The body of a receiver's process, when the arguments are those of one; -1 otherwise.
    static int Main(int argc, char** argv);

private:
    std::vector<pid_t> m_processes;
    int m_file = -1;
    Board* m_board = nullptr;
};

} // namespace bench
