// Named event pairs between threads, processes, sessions and accounts.
#include "ARDCommon/CGEReceiver.h"
#include "ARDCommon/CGESender.h"
#include "ARDCommon/DefSecAttr.h"
#include "ARDCommon/GlobalName.h"
#include "tests/platform/Waiter.h"

#ifndef _WIN32
#include "tests/support/posix/Privileges.h"
#endif

using namespace vlt::test;
using vlt::KernelHandle;

namespace
{

constexpr UINT kMessage = WM_APP + 1;
constexpr UINT kDone = WM_APP + 2;
constexpr DWORD kMoment = 20;       // for an answer that may be missed: it is asked for again
constexpr DWORD kIdleSoon = 120000; // a thread of idle priority starves on a busy machine

KernelHandle OpenPlain(const WString& name)
{
    return KernelHandle(OpenEventW(EVENT_ALL_ACCESS, FALSE, name.c_str()));
}

// Pulses until the listener was waiting and its answer came in time.
bool AskUntilAnswered(CGEvent& event)
{
    return Eventually(kSoon, [&] { return event.PulseAndWait(kMoment); });
}

int g_messages = 0; // with the parameters that the listeners were given

LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    if (message == kMessage && wParam == 5 && lParam == 6)
        ++g_messages;
    return DefWindowProcW(window, message, wParam, lParam);
}

HWND CreateMessageWindow()
{
    WNDCLASSEXW windowClass{};
    windowClass.cbSize = sizeof windowClass;
    windowClass.lpfnWndProc = Procedure;
    windowClass.lpszClassName = TEXT("VltPairWindow");
    RegisterClassExW(&windowClass);
    return CreateWindowExW(0, windowClass.lpszClassName, nullptr, 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr,
                           nullptr);
}

// Runs this thread's messages up to one of that number.
void PumpUntil(UINT last)
{
    MSG message{};
    while (message.message != last && GetMessageW(&message, nullptr, 0, 0) > 0)
        DispatchMessageW(&message);
}

} // namespace

// Owns the pair until a line comes in; with "answer" it listens and answers.
VLT_CHILD(pair_owner)
{
    CGEReceiver receiver;
    CGEvent silent;
    const WString name = vlt::ToWide(args[0], CP_UTF8);
    const auto callback = [](LPCWSTR called, void* context) {
        std::puts((static_cast<const char*>(context) + vlt::ToNarrow(called, CP_UTF8)).c_str());
    };
    char text[] = "called ";
    const bool owns =
        args[1] == "answer" ? receiver.StartCallback(name.c_str(), callback, text, true) : silent.Create(name.c_str());
    std::puts(owns ? "ready" : "failed");
    while (std::getchar() != '\n') {
    }
    return 0;
}

// set, ask or pulse the pair, as another process.
VLT_CHILD(pair_sender)
{
#ifndef _WIN32
    if (args.size() > 2 && !BecomeNobody())
        return 1;
#endif
    const WString name = vlt::ToWide(args[1], CP_UTF8);
    CGESender sender;
    CGEvent event;
    if (args[0] == "pulse")
        std::puts(sender.Pulse(name.c_str()) ? "done" : "failed");
    else if (!event.Open(name.c_str()))
        std::puts("not there");
    else
        std::puts((args[0] == "set" ? event.Set() : AskUntilAnswered(event)) ? "done" : "failed");
    return 0;
}

TEST(GlobalName, ThePrefixIsAddedOnceWhereThereAreSessions)
{
    EXPECT_EQ(vlt::MakeGlobalName("a"), "Global\\a");
    EXPECT_EQ(vlt::MakeGlobalName(TEXT("Global\\a")), TEXT("Global\\a"));
    EXPECT_EQ(vlt::MakeGlobalName(TEXT("global\\a")), TEXT("Global\\global\\a"));
    EXPECT_EQ(vlt::MakeGlobalName(TEXT("a"), 2, 4), TEXT("a")); // NT 4.0 and 2000
    EXPECT_EQ(vlt::MakeGlobalName(TEXT("a"), 2, 5), TEXT("Global\\a"));
    WCHAR cut[10];
    vlt::GetGlobalName(TEXT("abc"), cut, 10);
    EXPECT_EQ(WStringView(cut), TEXT("Global\\ab"));
}

TEST(CGEvent, AListenerAnswersOtherProcessesAndSessionsWhileItLives)
{
    const WString name = ObjectName("Answer");
    CGESender sender;
    EXPECT_FALSE(sender.Pulse(name.c_str()));
    EXPECT_FALSE(sender.PulseAndWait(name.c_str()));
    EXPECT_FALSE(CGEvent::Exists(name.c_str()));
    Child owner("pair_owner", {NarrowName("Answer"), "answer"});
    ASSERT_EQ(owner.ReadLine(), "ready");
    EXPECT_TRUE(CGEvent::Exists(name.c_str()));
    EXPECT_TRUE(sender.Pulse(name.c_str()));
    Child other("pair_sender", {"ask", NarrowName("Answer")}, {{"VLT_SESSION", "2"}});
    EXPECT_EQ(other.ReadLine(), "done");
    EXPECT_EQ(other.Wait(kSoon), 0);
    EXPECT_EQ(owner.ReadLine(), "called " + NarrowName("Answer"));
    owner.WriteLine("");
    EXPECT_EQ(owner.Wait(kSoon), 0);
    EXPECT_FALSE(CGEvent::Exists(name.c_str()));
}

TEST(CGEvent, ASenderIsReleasedByTheListenersClose)
{
    const WString name = ObjectName("Close");
    Child owner("pair_owner", {NarrowName("Close"), "silent"});
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
    const WString name = ObjectName("Once");
    std::atomic<int> calls{0};
    CGEvent event;
    event.SetCallback([](LPCWSTR, void* context) { ++*static_cast<std::atomic<int>*>(context); }, &calls, false);
    ASSERT_TRUE(event.Create(name.c_str()));
    const KernelHandle signal = OpenPlain(TEXT("Global\\") + name);
    ASSERT_TRUE(signal);
    EXPECT_TRUE(event.Set());
    EXPECT_TRUE(event.StartCallbackThread());
    EXPECT_TRUE(Eventually(kSoon, [&] { return !IsSignaled(signal); }));
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(event.StartCallbackThread());
    EXPECT_EQ(event.LastError(), ERROR_BUSY);
    event.Close();
    EXPECT_FALSE(event.Pulse());
    EXPECT_EQ(event.LastError(), ERROR_INVALID_HANDLE);
}

TEST(CGEvent, MessagesReachAWindowForEachKindOfListener)
{
    const WString name = ObjectName("Window");
    const HWND window = CreateMessageWindow();
    CGEReceiver receiver;
    ASSERT_TRUE(receiver.StartPost(name.c_str(), window, kMessage, 5, 6));
    Child setter("pair_sender", {"set", NarrowName("Window")});
    PumpUntil(kMessage);
    EXPECT_EQ(setter.ReadLine(), "done");
    EXPECT_EQ(g_messages, 1);
    const KernelHandle signal = OpenPlain(TEXT("Global\\") + name);
    EXPECT_TRUE(Eventually(kIdleSoon, [&] { return !IsSignaled(signal); }));

    ASSERT_TRUE(receiver.StartSend(name.c_str(), window, kMessage, 5, 6)); // instead of the first
    TestThread asker([&] {
        Child child("pair_sender", {"ask", NarrowName("Window")});
        const bool answered = child.ReadLine() == "done";
        PostMessageW(window, kDone, 0, 0);
        return answered ? 1u : 0u;
    });
    PumpUntil(kDone);
    EXPECT_TRUE(asker.HasEnded());
    EXPECT_EQ(asker.ExitCode(), 1u);
    EXPECT_GE(g_messages, 2);
}

TEST(CGEvent, WhatFailsLeavesNoHandle)
{
    const WString name = ObjectName("Fails");
    CGEvent event;
    EXPECT_FALSE(event.Open(name.c_str()));
    EXPECT_EQ(event.LastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(event.IsHeld());
    // None can be made when the other name is taken by something else.
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
}

TEST(DefSecAttr, OtherAccountsMayOpenWhatIsMade)
{
    const DefSecAttr security;
    ASSERT_NE(security.Get(), nullptr);
    EXPECT_TRUE(security.Get()->bInheritHandle);
#ifndef _WIN32
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root to become another account";
    ASSERT_EQ(chmod(std::getenv("VLT_ROOT"), 0755), 0);
#endif
    CGEvent event;
    ASSERT_TRUE(event.Create(ObjectName("Account").c_str()));
    Child other("pair_sender", {"pulse", NarrowName("Account"), "as another"});
    EXPECT_EQ(other.ReadLine(), "done");
}
