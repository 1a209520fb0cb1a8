#include "core/log/LogLine.h"

#include <gtest/gtest.h>

#include "fakes/FakePlatform.h"

using CORE::corestring;
using fakes::FakePlatform;

TEST(LogLine, FormatsWithWideStringArguments)
{
    FakePlatform p;
    corestring nothing;
    LogLine(L"%s: value %s and %d", L"Tag", nothing.handle(), 5);
    EXPECT_TRUE(p.logHas(L"Tag: value (null) and 5"));
}
