// What the event viewer makes of the service's events.
#include "platform/Text.h"
#include "platform/Unique.h"
#include "tests/support/Support.h"

#include <gtest/gtest.h>

TEST(EventMessages, EveryEventOfTheServiceIsASentence)
{
    const std::filesystem::path file = vlt::test::ProgramFolder() / "../../bin/VLEVENT.dll";
    const vlt::LibraryHandle library(LoadLibraryExW(file.wstring().c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE));
    ASSERT_TRUE(library);
    const auto text = [&](DWORD id) {
        DWORD_PTR strings[] = {reinterpret_cast<DWORD_PTR>(TEXT("What was reported."))};
        WCHAR buffer[256] = {};
        FormatMessageW(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY, library.Get(), id, 0, buffer, 256,
                       reinterpret_cast<va_list*>(strings));
        return WString(buffer);
    };
    EXPECT_EQ(TEXT("What was reported.\r\n"), text(0xA0000003u)) << "says itself what to do";
    EXPECT_EQ(TEXT("What was reported.\r\nThe service cannot go on without this and ends.\r\n"), text(0));
    EXPECT_EQ(WString(), text(3));
}
