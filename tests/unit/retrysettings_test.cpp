// The two retry settings beside the job keys.
#include "update/RetrySettings.h"

#include <gtest/gtest.h>

#include "fakes/FakePlatform.h"

using fakes::FakePlatform;

namespace {

const wchar_t* kUpdate = L"Software\\Tarvelle\\Zenthra\\Agent\\Update";
const wchar_t* kPolicyUpdate = L"Software\\Policies\\Tarvelle\\Zenthra\\Agent\\Update";
const wchar_t* kLegacyUpdate = L"Software\\Kesmarc, Inc.\\Kesmarc TQM\\Agent\\Update";

struct RetrySettingsTest : ::testing::Test {
    FakePlatform p;
    std::int32_t savedRetry = maxRetry;
    std::uint32_t savedWait = retryWaitMs;
    void SetUp() override
    {
        // Anything but the defaults, so that a read that changes nothing shows.
        maxRetry = 77;
        retryWaitMs = 77;
    }
    void TearDown() override
    {
        maxRetry = savedRetry;
        retryWaitMs = savedWait;
    }
    void putRetry(const wchar_t* text) { p.keys.putString(HKEY_LOCAL_MACHINE, kUpdate, L"MAXDOWNLOADANDUPGRADERETRY", text); }
    void putWait(const wchar_t* text) { p.keys.putString(HKEY_LOCAL_MACHINE, kUpdate, L"RetryWaitPeriod", text); }
};

TEST_F(RetrySettingsTest, AbsentValuesGiveTheDefaults)
{
    ReadRetrySettings();
    EXPECT_EQ(2, maxRetry);
    EXPECT_EQ(300000u, retryWaitMs);
}

TEST_F(RetrySettingsTest, PlainValuesAreUsed)
{
    putRetry(L"5");
    putWait(L"60000");
    ReadRetrySettings();
    EXPECT_EQ(5, maxRetry);
    EXPECT_EQ(60000u, retryWaitMs);
}

TEST_F(RetrySettingsTest, DwordValuesAreUsed)
{
    p.keys.putDword(HKEY_LOCAL_MACHINE, kUpdate, L"MAXDOWNLOADANDUPGRADERETRY", 4);
    p.keys.putDword(HKEY_LOCAL_MACHINE, kUpdate, L"RetryWaitPeriod", 0xFFFFFFFFu);
    ReadRetrySettings();
    EXPECT_EQ(4, maxRetry);
    EXPECT_EQ(0xFFFFFFFFu, retryWaitMs);
}

TEST_F(RetrySettingsTest, HexadecimalAndLeadingZeros)
{
    putRetry(L"010");
    putWait(L"0x10");
    ReadRetrySettings();
    EXPECT_EQ(10, maxRetry);
    EXPECT_EQ(16u, retryWaitMs);
}

TEST_F(RetrySettingsTest, TextThatIsNoNumberGivesZero)
{
    putRetry(L"abc");
    putWait(L"soon");
    ReadRetrySettings();
    EXPECT_EQ(0, maxRetry);
    EXPECT_EQ(0u, retryWaitMs);
}

TEST_F(RetrySettingsTest, NoClampSignedAndUnsigned)
{
    putRetry(L" -3 ");
    putWait(L"-1");
    ReadRetrySettings();
    EXPECT_EQ(-3, maxRetry);
    // The unsigned conversion wraps a negative text.
    EXPECT_EQ(0xFFFFFFFFu, retryWaitMs);
}

TEST_F(RetrySettingsTest, ZeroIsKept)
{
    putRetry(L"0");
    putWait(L"0");
    ReadRetrySettings();
    EXPECT_EQ(0, maxRetry);
    EXPECT_EQ(0u, retryWaitMs);
}

TEST_F(RetrySettingsTest, PolicyValueWins)
{
    putRetry(L"5");
    putWait(L"1000");
    p.keys.putString(HKEY_LOCAL_MACHINE, kPolicyUpdate, L"MAXDOWNLOADANDUPGRADERETRY", L"9");
    p.keys.putString(HKEY_LOCAL_MACHINE, kPolicyUpdate, L"RetryWaitPeriod", L"2000");
    ReadRetrySettings();
    EXPECT_EQ(9, maxRetry);
    EXPECT_EQ(2000u, retryWaitMs);
}

TEST_F(RetrySettingsTest, TheLegacyRootIsNotRead)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kLegacyUpdate, L"MAXDOWNLOADANDUPGRADERETRY", L"7");
    p.keys.putString(HKEY_LOCAL_MACHINE, kLegacyUpdate, L"RetryWaitPeriod", L"7");
    ReadRetrySettings();
    EXPECT_EQ(2, maxRetry);
    EXPECT_EQ(300000u, retryWaitMs);
    // Policies of the former brand may be looked at; its own root is not.
    for (const std::wstring& path : p.keys.openedPaths())
        EXPECT_NE(0u, path.rfind(L"HKLM\\Software\\Kesmarc", 0)) << path;
}

}  // namespace
