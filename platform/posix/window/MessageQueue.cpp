#include "platform/posix/window/MessageQueue.h"

#include "platform/posix/core/HandleTable.h"
#include "platform/posix/kernel/Futex.h"
#include "platform/posix/kernel/ThreadSelf.h"

namespace vlt::posix
{
namespace
{

struct QueueOfThread {
    std::shared_ptr<MessageQueue> queue = std::make_shared<MessageQueue>();
    QueueOfThread() = default;
    QueueOfThread(const QueueOfThread&) = delete;
    QueueOfThread& operator=(const QueueOfThread&) = delete;
    ~QueueOfThread() { queue->End(); }
};

} // namespace

const std::shared_ptr<MessageQueue>& MessageQueue::OfCaller()
{
    static thread_local const QueueOfThread t_queue;
    return t_queue.queue;
}

bool MessageQueue::Post(const MSG& message)
{
    {
        const std::lock_guard guard(m_lock);
        if (message.hwnd && !Owns(message.hwnd)) {
            SetLastError(ERROR_INVALID_WINDOW_HANDLE);
            return false;
        }
        if (m_posted.size() >= kPostLimit) {
            SetLastError(ERROR_NOT_ENOUGH_QUOTA);
            return false;
        }
        m_posted.push_back(message);
    }
    Wake();
    return true;
}

void MessageQueue::AddWindow(HWND window)
{
    const std::lock_guard guard(m_lock);
    m_windows.push_back(window);
}

bool MessageQueue::RemoveWindow(HWND window)
{
    std::deque<RequestRef> dropped;
    {
        const std::lock_guard guard(m_lock);
        if (std::erase(m_windows, window) == 0)
            return false;
        std::erase_if(m_posted, [&](const MSG& message) { return message.hwnd == window; });
        const auto first = std::stable_partition(
            m_sent.begin(), m_sent.end(), [&](const RequestRef& request) { return request->message.hwnd != window; });
        dropped.assign(first, m_sent.end());
        m_sent.erase(first, m_sent.end());
    }
    for (const RequestRef& request : dropped)
        Release(*request);
    return true;
}

void MessageQueue::Quit(int exitCode)
{
    const std::lock_guard guard(m_lock);
    m_quit = true;
    m_exitCode = exitCode;
}

void MessageQueue::Get(MSG& message)
{
    while (true) {
        const std::uint32_t seen = Seen();
        if (RunOneSent())
            continue;
        if (TakePosted(message))
            return;
        Sleep(seen);
    }
}

LRESULT MessageQueue::Send(std::shared_ptr<MessageQueue> target, WNDPROC procedure, const MSG& message)
{
    m_outgoing.push_back(std::make_shared<Request>(message, procedure, OfCaller()));
    if (!target->AcceptSent(m_outgoing.back())) {
        m_outgoing.pop_back();
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return 0;
    }
    target.reset();
    const Request* const request = m_outgoing.back().get();
    while (true) {
        const std::uint32_t seen = Seen();
        if (request->done.load(std::memory_order_acquire))
            break;
        if (!RunOneSent())
            Sleep(seen);
    }
    const LRESULT result = request->result;
    if (!request->answered)
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    m_outgoing.pop_back();
    return result;
}

bool MessageQueue::AcceptSent(const RequestRef& request)
{
    {
        const std::lock_guard guard(m_lock);
        if (!Owns(request->message.hwnd))
            return false;
        m_sent.push_back(request);
    }
    Wake();
    return true;
}

bool MessageQueue::RunOneSent()
{
    {
        const std::lock_guard guard(m_lock);
        if (m_sent.empty())
            return false;
        m_running.push_back(std::move(m_sent.front()));
        m_sent.pop_front();
    }
    Request& request = *m_running.back();
    const MSG& message = request.message;
    request.result = request.procedure(message.hwnd, message.message, message.wParam, message.lParam);
    request.answered = true;
    Release(request);
    m_running.pop_back();
    return true;
}

bool MessageQueue::TakePosted(MSG& message)
{
    const std::lock_guard guard(m_lock);
    if (!m_posted.empty()) {
        message = m_posted.front();
        m_posted.pop_front();
        return true;
    }
    if (!m_quit)
        return false;
    m_quit = false;
    message = {};
    message.message = WM_QUIT;
    message.wParam = static_cast<WPARAM>(m_exitCode);
    return true;
}

void MessageQueue::Sleep(std::uint32_t seen) noexcept
{
    PlainWait nothing;
    const WaitScope scope(nothing);
    FutexWait(reinterpret_cast<const std::uint32_t*>(&m_changes), seen, false, Deadline(INFINITE));
}

void MessageQueue::Wake() noexcept
{
    m_changes.fetch_add(1, std::memory_order_acq_rel);
    FutexWake(reinterpret_cast<const std::uint32_t*>(&m_changes), 1, false);
}

void MessageQueue::Release(Request& request) noexcept
{
    // The sender's thread may end between the answer and the wake.
    const std::shared_ptr<MessageQueue> sender = std::move(request.sender);
    request.done.store(true, std::memory_order_release);
    sender->Wake();
}

void MessageQueue::End() noexcept
{
    std::deque<RequestRef> sent;
    std::vector<HWND> windows;
    {
        const std::lock_guard guard(m_lock);
        sent.swap(m_sent);
        windows.swap(m_windows);
        m_posted.clear();
    }
    for (const HWND window : windows)
        CloseHandleOfKind(reinterpret_cast<HANDLE>(window), MaskOf(ObjectKind::Window));
    for (const RequestRef& request : m_running)
        Release(*request);
    for (const RequestRef& request : sent)
        Release(*request);
    m_running.clear();
    m_outgoing.clear();
}

} // namespace vlt::posix
