#include "ARDCommon/VlShareMemory.h"
#include "tests/unit/TraceCapture.h"

#include <cstring>
#include <gtest/gtest.h>

TEST(VlShareMemory, TellsEachFailureOnceAndKeepsWhatIsThere)
{
    const std::string text = vlt::test::TracedText([] {
        CVlShareMemory made, again;
        EXPECT_FALSE(made.Create("blk", 0, true, false));
        ASSERT_TRUE(made.Create("blk", 5000, true, false));
        EXPECT_EQ(made.MappedSize(), 8192u);
        EXPECT_FALSE(made.Create("other", 10, true, false) || made.Open("other", false));
        void* view = nullptr;
        ASSERT_TRUE(made.Map(&view, false));
        std::strcpy(static_cast<char*>(view), "kept");
        ASSERT_TRUE(again.Create("blk", 10, true, false));
        EXPECT_EQ(again.MappedSize(), 0u);
        ASSERT_TRUE(again.Map(&view, true));
        EXPECT_STREQ(static_cast<char*>(view), "kept");
        again.Close();
        again.Unmap();
        EXPECT_FALSE(again.Map(&view, true));
        EXPECT_EQ(view, nullptr);
        EXPECT_FALSE(again.Open("blk_", true)); // a final name gets no prefix
        EXPECT_TRUE(again.Open("Global\\blk", false));
    });
    EXPECT_EQ(text, "20 VlShareMemory.cpp: CreateFileMapping fails (00000057) : size = 0, name = Global\\blk\n"
                    "40 VlShareMemory.cpp: CreateFileMapping success : size = 5000, name = Global\\blk\n"
                    "20 VlShareMemory.cpp: Map file is already opened.\n"
                    "40 VlShareMemory.cpp: CreateFileMapping success : size = 10, name = Global\\blk\n"
                    "20 VlShareMemory.cpp:  MapViewOfFile fails (00000006)\n"
                    "40 VlShareMemory.cpp: OpenFileMapping fails (00000002) : name = blk_\n");
}
