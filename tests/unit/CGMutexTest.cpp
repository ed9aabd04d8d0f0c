// Markers of running programs, in this process and others, in this session and others.
#include "ARDCommon/CGMutex.h"
#include "tests/platform/Waiter.h"

using namespace vlt::test;
using vlt::KernelHandle;

namespace
{

// Under Wine all processes are of one session.
#ifdef _WIN32
constexpr int kElsewhere = CGMutex::kInThisSession;
#else
constexpr int kElsewhere = CGMutex::kInOtherSession;
#endif

bool MutexExists(const WString& name)
{
    return static_cast<bool>(KernelHandle(OpenMutexW(SYNCHRONIZE, FALSE, name.c_str())));
}

Child Start(const WString& name, const char* session)
{
    return Child("marker", {vlt::ToNarrow(name, CP_UTF8)}, {{"VLT_SESSION", session}});
}

} // namespace

// What the marker's pair gives to another process, and what it sees of it; then holds it.
VLT_CHILD(marker)
{
    const WString name = vlt::ToWide(args[0], CP_UTF8);
    CGMutex mutex;
    const int running = CGMutex::IsRunning(name.c_str());
    const int made = mutex.CreatePair(name.c_str());
    std::printf("%d %d\n", running, made);
    return StayUntilInputEnds();
}

TEST(CGMutex, APairTellsThisSessionFromOthers)
{
    const WString name = ObjectName("Pair");
    const std::string elsewhere = std::to_string(kElsewhere) + " " + std::to_string(kElsewhere);
    CGMutex first;
    EXPECT_EQ(CGMutex::IsRunning(name.c_str()), 0);
    EXPECT_EQ(first.CreatePair(name.c_str()), 1);
    EXPECT_EQ(Start(name, "0").ReadLine(), "2 2");
    EXPECT_EQ(Start(name, "2").ReadLine(), elsewhere);
    CGMutex second;
    EXPECT_EQ(second.CreatePair(name.c_str()), 2);
    // The second holds nothing; making the first's anew gives it up before.
    EXPECT_EQ(first.CreatePair(name.c_str()), 1);
    first.Close();
    EXPECT_EQ(CGMutex::IsRunning(name.c_str()), 0);

    // A marker goes with its process.
    Child holder = Start(name, "2");
    EXPECT_EQ(holder.ReadLine(), "0 1");
    EXPECT_EQ(first.CreatePair(name.c_str()), kElsewhere);
    holder.Kill();
    EXPECT_TRUE(Eventually(kSoon, [&] { return CGMutex::IsRunning(name.c_str()) == 0; }));
    EXPECT_FALSE(MutexExists(TEXT("Local_") + name));
    EXPECT_EQ(first.CreateGlobal(name.c_str()), 1);
    EXPECT_EQ(second.CreateGlobal((TEXT("Global\\") + name).c_str()), 2);
    EXPECT_EQ(CGMutex::IsRunning(name.c_str()), 3); // there is no marker of this session

    // Without sessions the name is used bare.
    const WString bare = ObjectName("Bare");
    EXPECT_EQ(CGMutex::IsRunning(bare.c_str(), false), 0);
    EXPECT_EQ(first.CreatePair(bare.c_str(), false), 1);
    EXPECT_TRUE(MutexExists(bare));
    EXPECT_FALSE(MutexExists(TEXT("Local_") + bare));
    EXPECT_EQ(second.CreatePair(bare.c_str(), false), 2);
}

TEST(CGMutex, WhatFailsLeavesNoMarker)
{
    const WString name = ObjectName("Taken");
    CGMutex mutex;
    KernelHandle other(CreateEventW(nullptr, TRUE, FALSE, (TEXT("Global\\") + name).c_str()));
    EXPECT_EQ(mutex.CreatePair(name.c_str()), 0);
    EXPECT_EQ(CGMutex::IsRunning(name.c_str()), 0);
    EXPECT_EQ(mutex.CreateGlobal(name.c_str()), 0);
    other.Reset(CreateEventW(nullptr, TRUE, FALSE, (TEXT("Local_") + name).c_str()));
    EXPECT_EQ(mutex.CreatePair(name.c_str()), 0);
    EXPECT_FALSE(MutexExists(TEXT("Global\\") + name));
    for (const WString& hostile : {WString(260, TEXT('x')), WString(TEXT("a\\b"))}) {
        EXPECT_EQ(mutex.CreatePair(hostile.c_str()), 0);
        EXPECT_EQ(CGMutex::IsRunning(hostile.c_str()), 0);
    }
}
