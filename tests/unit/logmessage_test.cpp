#include "core/log/logmessage.h"

#include <gtest/gtest.h>

#include "fakes/FakePlatform.h"

using fakes::FakePlatform;

TEST(LogMessage, FormatsWithMicrosoftConventionsIntoTheToolLog)
{
    FakePlatform p;
    CORE::logMessage(CORE::LOG_WARN, L"%1$s: %2$d, %3$S, %2$d", L"wide", 42, "narrow");
    EXPECT_EQ((std::vector<std::wstring>{L"wide: 42, narrow, 42"}), p.logLines());
}

TEST(LogMessage, EveryCallIsOneLine)
{
    FakePlatform p;
    CORE::logMessage(CORE::LOG_ERROR, L"first");
    CORE::logMessage(CORE::LOG_TRACE, L"second %u", 7u);
    EXPECT_EQ((std::vector<std::wstring>{L"first", L"second 7"}), p.logLines());
}

TEST(LogMessage, NullFormatWritesNothing)
{
    FakePlatform p;
    CORE::logMessage(CORE::LOG_INFO, nullptr);
    EXPECT_TRUE(p.logLines().empty());
}
