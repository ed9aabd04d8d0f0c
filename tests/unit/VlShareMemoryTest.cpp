#include "ARDCommon/VlShareMemory.h"
#include "tests/unit/TraceCapture.h"

#include <cstring>
#include <gtest/gtest.h>

namespace
{

using Lines = std::vector<std::string>;

TEST(VlShareMemory, TellsEachFailureOnceAndKeepsWhatIsThere)
{
    const Lines lines = vlt::test::Traced([] {
        CVlShareMemory made;
        EXPECT_FALSE(made.Open("blk", false));
        EXPECT_FALSE(made.Create("blk", 0, true, false));
        ASSERT_TRUE(made.Create("blk", 5000, true, false));
        EXPECT_EQ(made.MappedSize(), 8192u);
        EXPECT_FALSE(made.Create("other", 10, true, false));
        EXPECT_FALSE(made.Open("other", false));
        void* view = nullptr;
        ASSERT_TRUE(made.Map(&view, false));
        EXPECT_EQ(static_cast<char*>(view)[4999], 0);
        std::memcpy(view, "kept", 5);

        CVlShareMemory again;
        ASSERT_TRUE(again.Create("blk", 10, true, false));
        EXPECT_EQ(again.MappedSize(), 0u);
        ASSERT_TRUE(again.Map(&view, true));
        EXPECT_STREQ(static_cast<char*>(view), "kept");
        EXPECT_EQ(again.MappedSize(), 8192u);
        again.Close();
        again.Unmap();
        EXPECT_FALSE(again.Map(&view, true));
        EXPECT_EQ(view, nullptr);
        // Other names: a final one is taken as it is, one that is global already gets no second prefix.
        EXPECT_FALSE(again.Open("blk_", true));
        EXPECT_TRUE(again.Open("Global\\blk", false));
        made.Close();
        again.Close();
        EXPECT_FALSE(again.Open("blk", false));
    });
    const std::string missing = "40 VlShareMemory.cpp: OpenFileMapping fails (00000002) : name = ";
    EXPECT_EQ(
        lines,
        (Lines{missing + "Global\\blk",
               "20 VlShareMemory.cpp: CreateFileMapping fails (00000057) : size = 0, name = Global\\blk",
               "40 VlShareMemory.cpp: CreateFileMapping success : size = 5000, name = Global\\blk",
               "20 VlShareMemory.cpp: Map file is already opened.", "20 VlShareMemory.cpp: Map file is already opened.",
               "40 VlShareMemory.cpp: CreateFileMapping success : size = 10, name = Global\\blk",
               "20 VlShareMemory.cpp:  MapViewOfFile fails (00000006)", missing + "blk_", missing + "Global\\blk"}));
}

} // namespace
