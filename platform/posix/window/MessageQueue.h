// The message queue of a thread.
//
// Every wait for messages is on the waiting thread's own futex word: its receiver wakes a sender by
// that sender's queue. So a sender can run what is sent to it meanwhile, and two threads that send to
// each other do not block.
//
// Requests live in the queues and never in a frame that TerminateThread may discard.
#pragma once

#include "platform/posix/win32/kernel.h"
#include "platform/posix/win32/window.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

namespace vlt::posix
{

class MessageQueue
{
public:
    static constexpr std::size_t kPostLimit = 10000;

    // The calling thread's, made at the first use. It ends with the thread.
    static const std::shared_ptr<MessageQueue>& OfCaller();

    // By any thread. A window must be this queue's: ERROR_INVALID_WINDOW_HANDLE otherwise.
    bool Post(const MSG& message);

    // On the queue's own thread.
    void AddWindow(HWND window);
    // Drops what is under way to the window and releases its senders. False when it was not there.
    bool RemoveWindow(HWND window);
    void Quit(int exitCode);
    // Waits for the next posted message; runs what is sent meanwhile.
    void Get(MSG& message);

    // Sends from this queue's thread to a window of another and waits for the result; 0 with
    // ERROR_INVALID_WINDOW_HANDLE when the window was not there, or went without an answer.
    LRESULT Send(std::shared_ptr<MessageQueue> target, WNDPROC procedure, const MSG& message);

    void End() noexcept;

private:
    struct Request {
        MSG message;
        WNDPROC procedure;
        std::shared_ptr<MessageQueue> sender;
        LRESULT result = 0;
        bool answered = false;
        std::atomic<bool> done{false};
    };
    using RequestRef = std::shared_ptr<Request>;

    bool Owns(HWND window) const { return std::find(m_windows.begin(), m_windows.end(), window) != m_windows.end(); }
    bool AcceptSent(const RequestRef& request);
    bool RunOneSent();
    bool TakePosted(MSG& message);
    std::uint32_t Seen() const noexcept { return m_changes.load(std::memory_order_acquire); }
    void Sleep(std::uint32_t seen) noexcept;
    void Wake() noexcept;
    static void Release(Request& request) noexcept;

    std::atomic<std::uint32_t> m_changes{0}; // futex word
    std::mutex m_lock;
    std::deque<MSG> m_posted;
    std::deque<RequestRef> m_sent; // to this thread, not begun
    std::vector<HWND> m_windows;
    bool m_quit = false;
    int m_exitCode = 0;
    // Of this thread alone.
    std::vector<RequestRef> m_running;  // begun here; the innermost last
    std::vector<RequestRef> m_outgoing; // waited for here; the innermost last
};

} // namespace vlt::posix
