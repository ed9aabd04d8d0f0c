// Message-only windows and message queues.
#include "tests/platform/Waiter.h"

using namespace vlt::test;
using vlt::KernelHandle;

namespace
{

enum : UINT {
    kAdd = WM_APP, // the sum of both parameters
    kSendOn,       // twice what the window wParam answers to kAdd
    kEndThread,    // ends the thread in the procedure
    kBlock,        // sets the event wParam and waits for the event lParam
};

LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    switch (message) {
    case kAdd:
        return static_cast<LRESULT>(wParam) + lParam;
    case kSendOn:
        return 2 * SendMessageW(reinterpret_cast<HWND>(wParam), kAdd, 20, 1);
    case kEndThread:
        _endthreadex(5);
        return 1;
    case kBlock:
        SetEvent(reinterpret_cast<HANDLE>(wParam));
        WaitForSingleObject(reinterpret_cast<HANDLE>(lParam), INFINITE);
        return 1;
    case WM_DESTROY:
        PostQuitMessage(7);
        return 0;
    default:
        return DefWindowProcW(window, message, wParam, lParam);
    }
}

HWND CreateMessageWindow()
{
    WNDCLASSEXW windowClass{};
    windowClass.cbSize = sizeof windowClass;
    windowClass.lpfnWndProc = Procedure;
    windowClass.lpszClassName = TEXT("VltWindow");
    RegisterClassExW(&windowClass);
    return CreateWindowExW(0, TEXT("VltWindow"), nullptr, 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr);
}

// A thread with a window. It runs messages until it is told to quit; without `pump` it waits for `stop`.
class WindowThread
{
public:
    explicit WindowThread(bool pump = true) : m_pump(pump) { WaitForSingleObject(m_ready.Get(), kSoon); }
    HWND Window() const { return m_window; }
    const TestThread& Thread() const { return m_thread; }

    const KernelHandle stop = MakeEvent(true);

private:
    unsigned Run()
    {
        m_window = CreateMessageWindow();
        SetEvent(m_ready.Get());
        MSG message;
        while (m_pump && GetMessageW(&message, nullptr, 0, 0) > 0)
            DispatchMessageW(&message);
        if (!m_pump)
            WaitForSingleObject(stop.Get(), kSoon);
        return 0;
    }

    const bool m_pump;
    HWND m_window = nullptr;
    const KernelHandle m_ready = MakeEvent(true);
    TestThread m_thread{[this] { return Run(); }};
};

// A thread in one SendMessageW; asleep in it where the host can tell.
class Sender
{
public:
    Sender(HWND window, UINT message, WPARAM wParam = 0, LPARAM lParam = 0)
        : m_thread([=, this] {
              m_result = SendMessageW(window, message, wParam, lParam);
              return 0u;
          })
    {
        m_thread.AwaitAsleep();
    }
    LRESULT Result() const { return m_thread.HasEnded() ? m_result.load() : -1; }

private:
    std::atomic<LRESULT> m_result{-2};
    TestThread m_thread;
};

} // namespace

TEST(Window, PostedMessagesComeInOrderAndTheQuitLast)
{
    const HWND window = CreateMessageWindow();
    ASSERT_NE(window, nullptr);
    const HWND other = CreateMessageWindow();
    PostQuitMessage(3);
    EXPECT_TRUE(PostMessageW(window, kAdd, 1, 2));
    EXPECT_TRUE(PostMessageW(other, kAdd, 7, 7));
    EXPECT_TRUE(PostMessageW(window, kAdd, 3, 4));
    MSG message{};
    ASSERT_GT(GetMessageW(&message, nullptr, 0, 0), 0);
    EXPECT_EQ(message.hwnd, window);
    EXPECT_EQ(DispatchMessageW(&message), 3);
    EXPECT_EQ(SendMessageW(window, kAdd, 40, 2), 42); // past what is queued
    EXPECT_EQ(SendMessageW(other, kSendOn, reinterpret_cast<WPARAM>(window), 0), 42);
    // What was posted to a window goes with it; its end asks for another quit.
    EXPECT_TRUE(DestroyWindow(other));
    ASSERT_GT(GetMessageW(&message, nullptr, 0, 0), 0);
    EXPECT_EQ(message.wParam, 3u);
    EXPECT_EQ(GetMessageW(&message, nullptr, 0, 0), 0);
    EXPECT_EQ(message.wParam, 7u);
}

TEST(Window, ItsThreadAloneRunsTheProcedure)
{
    WindowThread owner;
    const HWND window = owner.Window();
    ASSERT_NE(window, nullptr);
    EXPECT_EQ(SendMessageW(window, kAdd, 40, 2), 42);
    EXPECT_FAILS(DestroyWindow(window), ERROR_ACCESS_DENIED);
    // Who waits for an answer runs what is sent to him.
    const HWND mine = CreateMessageWindow();
    EXPECT_EQ(SendMessageW(window, kSendOn, reinterpret_cast<WPARAM>(mine), 0), 42);
    EXPECT_TRUE(PostMessageW(window, WM_CLOSE, 0, 0));
    EXPECT_TRUE(owner.Thread().HasEnded());
    EXPECT_FALSE(IsWindow(window));
    EXPECT_FAILS(SendMessageW(window, kAdd, 1, 1), ERROR_INVALID_WINDOW_HANDLE);
    EXPECT_FAILS(PostMessageW(window, kAdd, 1, 1), ERROR_INVALID_WINDOW_HANDLE);
}

TEST(Window, NoEndOfAWindowLeavesItsSenderWaiting)
{
    if (kSleepersAreSeen) { // under Wine a sender that comes in the same moment waits on
        const HWND mine = CreateMessageWindow();
        const Sender first(mine, kAdd, 1, 1);
        EXPECT_TRUE(DestroyWindow(mine)); // never looked for messages
        EXPECT_EQ(first.Result(), 0);
    }

    WindowThread idle(false);
    const Sender second(idle.Window(), kAdd, 1, 1);
    SetEvent(idle.stop.Get());
    EXPECT_EQ(second.Result(), 0);

    WindowThread ending;
    EXPECT_EQ(SendMessageW(ending.Window(), kEndThread, 0, 0), 0);
    EXPECT_TRUE(ending.Thread().HasEnded());
}

#ifndef _WIN32
// Wine keeps the windows of a thread that was terminated, and has no limit for a queue.
TEST(Window, ATerminatedThreadLeavesNoSenderWaiting)
{
    const KernelHandle inside = MakeEvent(true), never = MakeEvent(true);
    WindowThread blocked;
    const Sender third(blocked.Window(), kBlock, reinterpret_cast<WPARAM>(inside.Get()),
                       reinterpret_cast<LPARAM>(never.Get()));
    ASSERT_EQ(WaitForSingleObject(inside.Get(), kSoon), WAIT_OBJECT_0);
    const Sender fourth(blocked.Window(), kAdd, 1, 1); // behind it
    EXPECT_TRUE(TerminateThread(blocked.Thread().Handle(), 1));
    EXPECT_EQ(third.Result(), 0);
    EXPECT_EQ(fourth.Result(), 0);

    // A thread that looks for messages ends at once too; so does one that waits for an answer.
    WindowThread pumping;
    EXPECT_EQ(SendMessageW(pumping.Window(), kAdd, 1, 1), 2);
    WindowThread deaf(false);
    TestThread waiting([&] { return static_cast<unsigned>(SendMessageW(deaf.Window(), kAdd, 1, 1)); });
    waiting.AwaitAsleep();
    EXPECT_TRUE(TerminateThread(pumping.Thread().Handle(), 1));
    EXPECT_TRUE(TerminateThread(waiting.Handle(), 9));
    EXPECT_TRUE(pumping.Thread().HasEnded());
    EXPECT_TRUE(waiting.HasEnded());
    EXPECT_EQ(waiting.ExitCode(), 9u);
    EXPECT_FALSE(IsWindow(pumping.Window()));
    SetEvent(deaf.stop.Get());
}

TEST(Window, AQueueHasALimit)
{
    const HWND window = CreateMessageWindow();
    for (int i = 0; i < 10000; ++i)
        ASSERT_TRUE(PostMessageW(window, kAdd, 0, 0)) << i;
    EXPECT_FAILS(PostMessageW(window, kAdd, 0, 0), ERROR_NOT_ENOUGH_QUOTA);
}
#endif
