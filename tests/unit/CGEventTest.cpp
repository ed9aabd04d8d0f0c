// Named event pairs between threads, processes, sessions and accounts.
#include "ARDCommon/CGEReceiver.h"
#include "ARDCommon/CGESender.h"
#include "ARDCommon/DefSecAttr.h"
#include "ARDCommon/GlobalName.h"
#include "platform/Text.h"
#include "tests/platform/Waiter.h"

#include <gtest/gtest.h>

#include <cstdio>

#ifndef _WIN32
#include <unistd.h>
#endif

using namespace vlt::test;
using vlt::KernelHandle;

namespace
{

constexpr UINT kMessage = WM_APP + 1;
constexpr DWORD kMoment = 20;      // for an answer that may be missed: it is asked for again
constexpr DWORD kIdleSoon = 60000; // a thread of idle priority starves on a busy machine

WString Name(const char* base)
{
    return vlt::ToWide("VltPair" + std::to_string(GetCurrentProcessId()) + base, CP_UTF8);
}
std::string Narrow(const WString& name)
{
    return vlt::ToNarrow(name, CP_UTF8);
}
KernelHandle OpenPlain(const WString& name)
{
    return KernelHandle(OpenEventW(EVENT_ALL_ACCESS, FALSE, name.c_str()));
}

void Say(const std::string& text)
{
    std::puts(text.c_str());
    std::fflush(stdout);
}

// Pulses until the listener was waiting and its answer came in time.
bool AskUntilAnswered(CGEvent& event)
{
    return Eventually(kSoon, [&] { return event.PulseAndWait(kMoment); });
}

struct Calls {
    std::atomic<int> count{0};
    WString name;
    static void Note(LPCWSTR name, void* context)
    {
        auto& calls = *static_cast<Calls*>(context);
        calls.name = name;
        ++calls.count;
    }
};

// A window on a thread of its own that counts the messages with the parameters 5 and 6.
class CountingWindow
{
public:
    CountingWindow() { WaitForSingleObject(m_ready.Get(), kSoon); }
    ~CountingWindow() { PostMessageW(m_window, WM_CLOSE, 0, 0); }
    HWND Get() const { return m_window; }
    int Count() const { return s_count; }

private:
    static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
    {
        if (message == WM_DESTROY)
            PostQuitMessage(0);
        if (message == kMessage && wParam == 5 && lParam == 6)
            ++s_count;
        return DefWindowProcW(window, message, wParam, lParam);
    }

    unsigned Run()
    {
        WNDCLASSEXW windowClass{};
        windowClass.cbSize = sizeof windowClass;
        windowClass.lpfnWndProc = Procedure;
        windowClass.lpszClassName = TEXT("VltCountingWindow");
        RegisterClassExW(&windowClass);
        m_window = CreateWindowExW(0, windowClass.lpszClassName, nullptr, 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr,
                                   nullptr);
        SetEvent(m_ready.Get());
        MSG message;
        while (GetMessageW(&message, nullptr, 0, 0) > 0)
            DispatchMessageW(&message);
        return 0;
    }

    static inline std::atomic<int> s_count{0};
    HWND m_window = nullptr;
    const KernelHandle m_ready = MakeEvent(true);
    TestThread m_thread{[this] { return Run(); }};
};

} // namespace

// Owns the pair until a line comes in; with "answer" it listens and answers.
VLT_CHILD(pair_owner)
{
    CGEReceiver receiver;
    CGEvent silent;
    const WString name = vlt::ToWide(args[0], CP_UTF8);
    const auto callback = [](LPCWSTR called, void* context) {
        Say(static_cast<const char*>(context) + vlt::ToNarrow(called, CP_UTF8));
    };
    char text[] = "called ";
    Say((args[1] == "answer" ? receiver.StartCallback(name.c_str(), callback, text, true) : silent.Create(name.c_str()))
            ? "ready"
            : "failed");
    while (std::getchar() != '\n') {
    }
    return 0;
}

// set, ask or pulse the pair, as another process.
VLT_CHILD(pair_sender)
{
#ifndef _WIN32
    if (args.size() > 2 && (setgid(65534) != 0 || setuid(65534) != 0))
        return 1;
#endif
    const WString name = vlt::ToWide(args[1], CP_UTF8);
    CGESender sender;
    CGEvent event;
    if (args[0] == "pulse")
        Say(sender.Pulse(name.c_str()) ? "done" : "failed");
    else if (!event.Open(name.c_str()))
        Say("not there");
    else
        Say((args[0] == "set" ? event.Set() : AskUntilAnswered(event)) ? "done" : "failed");
    return 0;
}

TEST(GlobalName, ThePrefixIsAddedOnceWhereThereAreSessions)
{
    EXPECT_EQ(vlt::MakeGlobalName(TEXT("a")), TEXT("Global\\a"));
    EXPECT_EQ(vlt::MakeGlobalName("a"), "Global\\a");
    EXPECT_EQ(vlt::MakeGlobalName(TEXT("Global\\a")), TEXT("Global\\a"));
    EXPECT_EQ(vlt::MakeGlobalName("Global\\a"), "Global\\a");
    EXPECT_EQ(vlt::MakeGlobalName(TEXT("global\\a")), TEXT("Global\\global\\a"));
    EXPECT_EQ(vlt::MakeGlobalName(TEXT("Global")), TEXT("Global\\Global"));
    // Windows 98, NT 4.0 and 2000.
    EXPECT_EQ(vlt::MakeGlobalName(TEXT("a"), 1, 4), TEXT("a"));
    EXPECT_EQ(vlt::MakeGlobalName(TEXT("a"), 2, 4), TEXT("a"));
    EXPECT_EQ(vlt::MakeGlobalName(TEXT("a"), 2, 5), TEXT("Global\\a"));
    WCHAR cut[10];
    vlt::GetGlobalName(TEXT("abc"), cut, 10);
    EXPECT_EQ(WStringView(cut), TEXT("Global\\ab"));
}

TEST(CGEvent, AListenerAnswersOtherProcessesAndSessionsWhileItLives)
{
    const WString name = Name("Answer");
    CGESender sender;
    EXPECT_FALSE(sender.Pulse(name.c_str()));
    EXPECT_FALSE(sender.PulseAndWait(name.c_str()));
    EXPECT_FALSE(CGEvent::Exists(name.c_str()));
    Child owner("pair_owner", {Narrow(name), "answer"});
    ASSERT_EQ(owner.ReadLine(), "ready");
    EXPECT_TRUE(CGEvent::Exists(name.c_str()));
    EXPECT_TRUE(sender.Pulse(name.c_str()));
    {
        CGEvent event;
        ASSERT_TRUE(event.Open((TEXT("Global\\") + name).c_str()));
        EXPECT_TRUE(AskUntilAnswered(event));
        EXPECT_EQ(owner.ReadLine(), "called " + Narrow(name));
    }
    Child other("pair_sender", {"ask", Narrow(name)}, {{"VLT_SESSION", "2"}});
    EXPECT_EQ(other.ReadLine(), "done");
    EXPECT_EQ(other.Wait(kSoon), 0);
    owner.WriteLine("");
    EXPECT_EQ(owner.Wait(kSoon), 0);
    EXPECT_FALSE(CGEvent::Exists(name.c_str()));
}

TEST(CGEvent, ASenderIsReleasedByTheListenersClose)
{
    const WString name = Name("Close");
    Child owner("pair_owner", {Narrow(name), "silent"});
    ASSERT_EQ(owner.ReadLine(), "ready");
    {
        CGEvent event;
        ASSERT_TRUE(event.Open(name.c_str()));
        EXPECT_FALSE(event.PulseAndWait(kMoment));
    }
    // The sender resets the return event on its way into the wait: so it is seen to be there.
    const KernelHandle answer = OpenPlain(TEXT("Global\\") + name + TEXT("RET"));
    ASSERT_TRUE(answer);
    SetEvent(answer.Get());
    TestThread waiting([&] {
        CGESender sender;
        return sender.PulseAndWait(name.c_str()) ? 1u : 0u;
    });
    ASSERT_TRUE(Eventually(kSoon, [&] { return !IsSignaled(answer); }));
    owner.WriteLine("");
    EXPECT_TRUE(waiting.HasEnded());
    EXPECT_EQ(waiting.ExitCode(), 1u);
}

TEST(CGEvent, ASignalThatIsSetReachesTheCallbackOnce)
{
    const WString name = Name("Once");
    Calls calls;
    CGEvent event;
    event.SetCallback(Calls::Note, &calls, false);
    ASSERT_TRUE(event.Create(name.c_str()));
    const KernelHandle signal = OpenPlain(TEXT("Global\\") + name);
    ASSERT_TRUE(signal);
    EXPECT_TRUE(event.Set());
    EXPECT_TRUE(event.StartCallbackThread());
    EXPECT_TRUE(Eventually(kSoon, [&] { return !IsSignaled(signal); }));
    EXPECT_EQ(calls.count, 1);
    EXPECT_EQ(calls.name, name);
    EXPECT_FALSE(event.StartCallbackThread());
    EXPECT_EQ(event.LastError(), ERROR_BUSY);
    // After Close nobody listens, and it may start anew; without a reply nobody is answered.
    event.Close();
    EXPECT_FALSE(event.Pulse());
    EXPECT_EQ(event.LastError(), ERROR_INVALID_HANDLE);
    ASSERT_TRUE(event.Create(name.c_str()));
    EXPECT_EQ(event.LastError(), ERROR_SUCCESS);
    EXPECT_TRUE(event.StartCallbackThread());
    EXPECT_FALSE(event.PulseAndWait(kMoment));
}

TEST(CGEvent, MessagesReachAWindowForEachKindOfListener)
{
    const WString name = Name("Window");
    CountingWindow window;
    ASSERT_NE(window.Get(), nullptr);
    CGEReceiver receiver;
    ASSERT_TRUE(receiver.StartPost(name.c_str(), window.Get(), kMessage, 5, 6));
    Child setter("pair_sender", {"set", Narrow(name)});
    EXPECT_EQ(setter.ReadLine(), "done");
    EXPECT_TRUE(Eventually(kIdleSoon, [&] { return window.Count() == 1; }));
    const KernelHandle signal = OpenPlain(TEXT("Global\\") + name);
    EXPECT_TRUE(Eventually(kIdleSoon, [&] { return !IsSignaled(signal); }));

    ASSERT_TRUE(receiver.StartSend(name.c_str(), window.Get(), kMessage, 5, 6)); // instead of the first
    Child asker("pair_sender", {"ask", Narrow(name)});
    EXPECT_EQ(asker.ReadLine(), "done");
    EXPECT_GE(window.Count(), 2);

    // Without a window it still answers.
    ASSERT_TRUE(receiver.StartSend(name.c_str(), nullptr, kMessage, 5, 6));
    Child again("pair_sender", {"ask", Narrow(name)});
    EXPECT_EQ(again.ReadLine(), "done");
}

TEST(CGEvent, WhatFailsLeavesNoHandle)
{
    const WString name = Name("Fails");
    CGEvent event;
    EXPECT_FALSE(event.Open(name.c_str()));
    EXPECT_EQ(event.LastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(event.IsHeld());
    // A signal event alone is no pair.
    KernelHandle signal(CreateEventW(nullptr, TRUE, FALSE, (TEXT("Global\\") + name).c_str()));
    EXPECT_FALSE(event.Open(name.c_str()));
    EXPECT_EQ(event.LastError(), ERROR_FILE_NOT_FOUND);
    signal.Reset();
    EXPECT_FALSE(CGEvent::Exists(name.c_str()));
    // Nor can one be made when the other name is taken by something else.
    const KernelHandle section(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 16,
                                                  (TEXT("Global\\") + name + TEXT("RET")).c_str()));
    ASSERT_TRUE(section);
    EXPECT_FALSE(event.Create(name.c_str()));
    EXPECT_EQ(event.LastError(), ERROR_INVALID_HANDLE);
    EXPECT_FALSE(CGEvent::Exists(name.c_str()));

    const WString longest = name + WString(249 - name.size(), TEXT('x'));
    EXPECT_TRUE(event.Create(longest.c_str()));
    EXPECT_TRUE(CGEvent::Exists(longest.c_str()));
    EXPECT_FALSE(event.Create((longest + TEXT("x")).c_str()));
    EXPECT_EQ(event.LastError(), ERROR_FILENAME_EXCED_RANGE);
    EXPECT_FALSE(CGEvent::Exists(longest.c_str()));
    EXPECT_FALSE(event.Create((TEXT("global\\") + name).c_str()));
    EXPECT_EQ(event.LastError(), ERROR_PATH_NOT_FOUND);
    EXPECT_FALSE(event.StartSendThread() && event.Pulse());
}

TEST(DefSecAttr, OtherAccountsMayOpenWhatIsMade)
{
    const DefSecAttr security;
    ASSERT_NE(security.Get(), nullptr);
    EXPECT_EQ(security.Get()->nLength, sizeof(SECURITY_ATTRIBUTES));
    EXPECT_TRUE(security.Get()->bInheritHandle);
#ifndef _WIN32
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root to become another account";
    ASSERT_EQ(chmod(std::getenv("VLT_ROOT"), 0755), 0);
#endif
    CGEvent event;
    ASSERT_TRUE(event.Create(Name("Account").c_str()));
    Child other("pair_sender", {"pulse", Narrow(Name("Account")), "as another"});
    EXPECT_EQ(other.ReadLine(), "done");
}
