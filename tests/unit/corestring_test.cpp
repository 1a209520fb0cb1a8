#include "core/string/corestring.h"

#include <gtest/gtest.h>

using CORE::corestring;

TEST(corestring, EmptyStringHasNullHandle)
{
    corestring s;
    EXPECT_EQ(nullptr, s.handle());
    EXPECT_EQ(0u, s.length());
}
