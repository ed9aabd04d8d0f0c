// Calls that fail.
#pragma once

#include "platform/win32.h"

#include <gtest/gtest.h>

// The call returns false, null or zero and sets that last error itself.
#define EXPECT_FAILS(call, code)                                                                                       \
    do {                                                                                                               \
        SetLastError(0);                                                                                               \
        EXPECT_FALSE(call);                                                                                            \
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(code));                                                           \
    } while (false)
