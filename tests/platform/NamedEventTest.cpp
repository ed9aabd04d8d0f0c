#include "tests/platform/ObjectKinds.h"
#include "tests/platform/Waiter.h"

#ifndef _WIN32
#include "tests/support/posix/Privileges.h"
#endif

using namespace vlt::test;
using vlt::KernelHandle;

namespace
{

std::string Narrow(const WString& name)
{
    return vlt::ToNarrow(name, CP_UTF8);
}

KernelHandle Create(const WString& name, bool manualReset = true, bool signaled = false)
{
    return KernelHandle(CreateEventW(nullptr, manualReset, signaled, name.c_str()));
}
KernelHandle Open(const WString& name, DWORD access = EVENT_ALL_ACCESS)
{
    return KernelHandle(OpenEventW(access, FALSE, name.c_str()));
}
DWORD OpenError(const WString& name)
{
    SetLastError(0);
    return Open(name) ? 0 : GetLastError();
}

} // namespace

// create <name> or wait <name>: creates or opens the event, tells and waits for it.
VLT_CHILD(named_event)
{
    const WString name = vlt::ToWide(args[1], CP_UTF8);
    const KernelHandle event = args[0] == "create" ? Create(name) : Open(name);
    std::printf("%lu\n", static_cast<unsigned long>(GetLastError()));
    if (!event)
        return 1;
    return static_cast<int>(WaitForSingleObject(event.Get(), args.size() > 2 ? 0 : kSoon));
}

// Makes and closes one event often, and ends.
VLT_CHILD(made_often)
{
    for (int i = 0; i < 5; ++i) {
        if (!Create(vlt::ToWide(args[0], CP_UTF8)))
            return 1;
    }
    return 0;
}

TEST(NamedEvent, OneThatIsMadeOftenIsNewEachTime)
{
    const WString name = ObjectName("Often");
    for (int i = 0; i < 12; ++i) {
        const bool manualReset = i % 3 != 0;
        const bool signaled = i % 2 != 0;
        if (i == 8) { // another process makes it between two of ours
            ASSERT_EQ(Child("made_often", {Narrow(name)}).Wait(kSoon), 0);
        }
        const KernelHandle event = Create(name, manualReset, signaled);
        EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
        EXPECT_EQ(IsSignaled(event), signaled);
        SetEvent(event.Get());
        EXPECT_TRUE(IsSignaled(event));
        EXPECT_EQ(IsSignaled(event), manualReset);
        const KernelHandle same = i % 4 == 0 ? Create(name) : KernelHandle();
        SetEvent(same.Get());
    }
    EXPECT_EQ(OpenError(name), ERROR_FILE_NOT_FOUND);
#ifndef _WIN32
    EXPECT_EQ(Child("made_often", {Narrow(ObjectName("Left"))}).Wait(kSoon), 0);
    EXPECT_NE(access((std::string(std::getenv("VLT_ROOT")) + "/objects/0-" + Narrow(ObjectName("Left"))).c_str(), F_OK),
              0);
#endif
}

TEST(NamedEvent, AnExistingOneIsOpenedWhateverTheArguments)
{
    const WString name = ObjectName("Twice");
    const KernelHandle first = Create(name, true, true);
    ASSERT_TRUE(first);
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    const KernelHandle second = Create(name, false, false);
    ASSERT_TRUE(second);
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    EXPECT_TRUE(IsSignaled(second));
    EXPECT_TRUE(IsSignaled(first)); // still a manual-reset event
    const KernelHandle third(OpenEventA(EVENT_MODIFY_STATE, FALSE, Narrow(name).c_str()));
    ASSERT_TRUE(third);
    EXPECT_TRUE(ResetEvent(third.Get()));
    EXPECT_FALSE(IsSignaled(first));
    // A handle may do what it was opened for.
    EXPECT_EQ(WaitForSingleObject(third.Get(), 0), WAIT_FAILED);
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    const KernelHandle waitOnly = Open(name, SYNCHRONIZE);
    EXPECT_FAILS(SetEvent(waitOnly.Get()), ERROR_ACCESS_DENIED);
    EXPECT_FALSE(IsSignaled(waitOnly));
}

TEST(NamedEvent, AKilledHolderLeavesNothing)
{
    const WString name = ObjectName("Killed");
    for (int round = 0; round < 3; ++round) {
        Child holder("named_event", {"create", Narrow(name)});
        ASSERT_EQ(holder.ReadLine(), "0"); // new each time
        EXPECT_EQ(OpenError(name), 0u);
        holder.Kill(); // while it waits
        holder.Wait(kSoon);
        EXPECT_TRUE(Eventually(kSoon, [&] { return OpenError(name) == ERROR_FILE_NOT_FOUND; }));
    }
    // A waiter that was killed takes no signal with it.
    const KernelHandle event = Create(name, false);
    {
        Child waiter("named_event", {"wait", Narrow(name)});
        ASSERT_EQ(waiter.ReadLine(), "0");
        waiter.Kill();
        waiter.Wait(kSoon);
    }
    SetEvent(event.Get());
    EXPECT_TRUE(IsSignaled(event));
    EXPECT_FALSE(IsSignaled(event));
}

TEST(NamedEvent, NamesAreTakenAsTheyAre)
{
    // Case counts; blanks, dots, slashes and letters of any script are part of a name.
    const WString base = ObjectName("A");
    const WString text(240, TEXT('l'));
    for (const WCHAR* suffix : {TEXT("x"), TEXT("X"), TEXT(" ."), TEXT("../y"), TEXT("/"), TEXT("%41"),
                                TEXT("\u00E4\u4E2D"), TEXT("*?:|"), text.c_str()}) {
        const WString name = base + suffix;
        const KernelHandle event = Create(name);
        EXPECT_TRUE(event) << Narrow(name);
        EXPECT_EQ(GetLastError(), ERROR_SUCCESS) << Narrow(name);
        EXPECT_EQ(OpenError(name), 0u);
        EXPECT_EQ(OpenError(name + TEXT("2")), ERROR_FILE_NOT_FOUND);
    }
    EXPECT_FAILS(Create(base + TEXT("\\inner")), ERROR_PATH_NOT_FOUND);
    // An empty name is none.
    const KernelHandle unnamed = Create(WString());
    EXPECT_TRUE(Create(WString()));
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
}

TEST(NamedEvent, GlobalNamesAreThoseOfSessionZero)
{
    const WString name = ObjectName("Session");
    const KernelHandle event = Create(TEXT("Global\\") + name);
    ASSERT_TRUE(event);
    EXPECT_EQ(OpenError(TEXT("Global\\") + name), 0u);
    EXPECT_EQ(OpenError(TEXT("global\\") + name), ERROR_PATH_NOT_FOUND);
#ifndef _WIN32
    EXPECT_EQ(OpenError(name), 0u);
    EXPECT_EQ(OpenError(TEXT("Local\\") + name), 0u);
    for (const auto& [given, error] : {std::pair{Narrow(name), ERROR_FILE_NOT_FOUND}, {"Global\\" + Narrow(name), 0}}) {
        Child other("named_event", {"wait", given, "0"}, {{"VLT_SESSION", "2"}});
        EXPECT_EQ(other.ReadLine(), std::to_string(error)) << given;
    }
#endif
}

TEST(NamedEvent, OneNameIsOfOneKind)
{
    const WString name = ObjectName("Kind");
    for (const ObjectKind& held : kObjectKinds) {
        const KernelHandle object(held.create(name.c_str()));
        for (const ObjectKind& kind : kObjectKinds) {
            for (const auto call : {kind.create, kind.open}) {
                SetLastError(0);
                EXPECT_EQ(KernelHandle(call(name.c_str())).Get() != nullptr, &kind == &held);
                EXPECT_EQ(GetLastError() == ERROR_INVALID_HANDLE, &kind != &held) << GetLastError();
            }
        }
    }
}

TEST(NamedEvent, SecurityDescriptorsAreChecked)
{
    alignas(void*) unsigned char block[SECURITY_DESCRIPTOR_MIN_LENGTH];
    ASSERT_TRUE(InitializeSecurityDescriptor(block, SECURITY_DESCRIPTOR_REVISION));
    ASSERT_TRUE(SetSecurityDescriptorDacl(block, TRUE, nullptr, FALSE));
    SECURITY_ATTRIBUTES attributes{sizeof attributes, block, TRUE};
    const KernelHandle event(CreateEventW(&attributes, TRUE, FALSE, ObjectName("Open").c_str()));
    EXPECT_TRUE(event);
    const KernelHandle closed = Create(ObjectName("Closed"));

#ifndef _WIN32
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root to become another account";
    // Another account opens the one and not the other, and makes names of its own.
    ASSERT_EQ(chmod(std::getenv("VLT_ROOT"), 0755), 0);
    Child other("other_account", {Narrow(ObjectName("Open")), Narrow(ObjectName("Closed")), Narrow(ObjectName("Own"))});
    EXPECT_EQ(other.ReadLine(), "open 0, create 183");
    EXPECT_EQ(other.ReadLine(), "open 5, create 5");
    EXPECT_EQ(other.ReadLine(), "open 2, create 0");
    EXPECT_TRUE(IsSignaled(event));
    EXPECT_EQ(other.Wait(kSoon), 0);
    EXPECT_EQ(OpenError(ObjectName("Own")), ERROR_FILE_NOT_FOUND);

    // At any instant an object for everyone is there for everyone, or not at all.
    attributes.bInheritHandle = FALSE;
    KernelHandle stop(CreateEventW(&attributes, TRUE, FALSE, ObjectName("Stop").c_str()));
    Child opener("other_account_opener", {Narrow(ObjectName("Stop")), Narrow(ObjectName("Brief"))});
    EXPECT_EQ(opener.ReadLine(), "ready");
    for (int i = 0; i < 3000; ++i)
        EXPECT_TRUE(KernelHandle(CreateEventW(&attributes, TRUE, FALSE, ObjectName("Brief").c_str())));
    SetEvent(stop.Get());
    EXPECT_EQ(opener.Wait(kSoon), 0);
#endif
}

#ifndef _WIN32
VLT_CHILD(other_account)
{
    if (!BecomeNobody())
        return 1;
    for (const std::string& arg : args) {
        const WString name = vlt::ToWide(arg, CP_UTF8);
        const KernelHandle opened = Open(name);
        const DWORD openError = opened ? 0 : GetLastError();
        const KernelHandle created = Create(name);
        std::printf("open %u, create %u\n", openError, GetLastError());
        if (opened)
            SetEvent(opened.Get());
    }
    return 0;
}

VLT_CHILD(other_account_opener)
{
    if (!BecomeNobody())
        return 1;
    const KernelHandle stop = Open(vlt::ToWide(args[0], CP_UTF8));
    const WString name = vlt::ToWide(args[1], CP_UTF8);
    std::puts("ready");
    while (!IsSignaled(stop)) {
        if (!Open(name) && GetLastError() != ERROR_FILE_NOT_FOUND)
            return 2;
    }
    return 0;
}
#endif
