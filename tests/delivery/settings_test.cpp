// The client's settings: defaults, and the registry values that override
// them (read here from a key of the test's own under HKEY_CURRENT_USER).
#include <windows.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "Settings.h"

namespace {

const mirel::SettingRule& rule(const wchar_t* name)
{
    for (const mirel::SettingRule& r : mirel::settingRules())
        if (std::wstring(r.name) == name)
            return r;
    throw std::runtime_error("no such setting");
}

std::vector<std::uint8_t> dword(std::uint32_t v)
{
    return {static_cast<std::uint8_t>(v), static_cast<std::uint8_t>(v >> 8), static_cast<std::uint8_t>(v >> 16),
            static_cast<std::uint8_t>(v >> 24)};
}

std::vector<std::uint8_t> sz(const std::wstring& text)
{
    std::vector<std::uint8_t> out;
    for (wchar_t c : text + L'\0') {
        out.push_back(static_cast<std::uint8_t>(c & 0xff));
        out.push_back(static_cast<std::uint8_t>(c >> 8));
    }
    return out;
}

TEST(SettingsDefaults, AreBoundedTimeouts)
{
    mirel::Settings s;
    EXPECT_EQ(s.resolveTimeoutSeconds, 30u);
    EXPECT_EQ(s.connectTimeoutSeconds, 30u);
    EXPECT_EQ(s.sendTimeoutSeconds, 30u);
    EXPECT_EQ(s.responseTimeoutSeconds, 60u);
    EXPECT_EQ(s.stallTimeoutSeconds, 60u);
    EXPECT_EQ(s.attemptTimeoutSeconds, 0u);
    EXPECT_FALSE(s.checkRevocation);
}

TEST(SettingsDefaults, LiveUnderTheClientsKey)
{
    EXPECT_EQ(std::wstring(mirel::kSettingsKey), L"Software\\Tarvelle\\Zenthra\\DeliveryClient");
}

TEST(SettingsValue, TakesADword)
{
    std::uint32_t value = 0;
    std::string why;
    ASSERT_TRUE(mirel::parseSettingValue(rule(L"StallTimeoutSeconds"), REG_DWORD, dword(5), value, why)) << why;
    EXPECT_EQ(value, 5u);
}

TEST(SettingsValue, TakesADecimalText)
{
    std::uint32_t value = 0;
    std::string why;
    ASSERT_TRUE(mirel::parseSettingValue(rule(L"ConnectTimeoutSeconds"), REG_SZ, sz(L"45"), value, why)) << why;
    EXPECT_EQ(value, 45u);
}

TEST(SettingsValue, RefusesOutOfRange)
{
    std::uint32_t value = 7;
    std::string why;
    EXPECT_FALSE(mirel::parseSettingValue(rule(L"StallTimeoutSeconds"), REG_DWORD, dword(0), value, why));
    EXPECT_EQ(why, "0 is outside 1..3600");
    EXPECT_FALSE(mirel::parseSettingValue(rule(L"StallTimeoutSeconds"), REG_DWORD, dword(3601), value, why));
    EXPECT_EQ(why, "3601 is outside 1..3600");
    EXPECT_FALSE(mirel::parseSettingValue(rule(L"CheckRevocation"), REG_DWORD, dword(2), value, why));
    EXPECT_EQ(why, "2 is outside 0..1");
    EXPECT_EQ(value, 7u);
}

TEST(SettingsValue, TakesZeroWhereItMeansNone)
{
    std::uint32_t value = 9;
    std::string why;
    ASSERT_TRUE(mirel::parseSettingValue(rule(L"AttemptTimeoutSeconds"), REG_DWORD, dword(0), value, why)) << why;
    EXPECT_EQ(value, 0u);
}

TEST(SettingsValue, RefusesOtherTypesAndTexts)
{
    std::uint32_t value = 0;
    std::string why;
    EXPECT_FALSE(mirel::parseSettingValue(rule(L"StallTimeoutSeconds"), REG_BINARY, dword(5), value, why));
    EXPECT_EQ(why, "type 3 (a REG_DWORD or a REG_SZ number is taken)");
    EXPECT_FALSE(mirel::parseSettingValue(rule(L"StallTimeoutSeconds"), REG_SZ, sz(L"5s"), value, why));
    EXPECT_EQ(why, "the text \"5s\" is not a decimal number");
    EXPECT_FALSE(mirel::parseSettingValue(rule(L"StallTimeoutSeconds"), REG_SZ, sz(L"-5"), value, why));
    EXPECT_FALSE(mirel::parseSettingValue(rule(L"StallTimeoutSeconds"), REG_SZ, sz(L""), value, why));
    EXPECT_FALSE(mirel::parseSettingValue(rule(L"StallTimeoutSeconds"), REG_DWORD, {1, 2}, value, why));
    EXPECT_EQ(why, "a REG_DWORD of 2 bytes");
}

class SettingsFromRegistry : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_subkey = L"Software\\ZenthraDeliveryTests\\Settings" + std::to_wstring(::GetCurrentProcessId());
        ASSERT_EQ(::RegCreateKeyExW(HKEY_CURRENT_USER, m_subkey.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &m_key,
                                    nullptr),
                  ERROR_SUCCESS);
    }
    void TearDown() override
    {
        ::RegCloseKey(m_key);
        ::RegDeleteKeyW(HKEY_CURRENT_USER, m_subkey.c_str());
    }
    void setDword(const wchar_t* name, DWORD value)
    {
        ASSERT_EQ(::RegSetValueExW(m_key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof(value)),
                  ERROR_SUCCESS);
    }
    void setText(const wchar_t* name, const std::wstring& text)
    {
        ASSERT_EQ(::RegSetValueExW(m_key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                                   static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t))),
                  ERROR_SUCCESS);
    }
    std::wstring m_subkey;
    HKEY m_key = nullptr;
};

TEST_F(SettingsFromRegistry, KeepsTheDefaultsWithoutValues)
{
    mirel::SettingsReport report;
    mirel::Settings s = mirel::loadSettingsFrom(HKEY_CURRENT_USER, m_subkey.c_str(), report);
    EXPECT_EQ(s.stallTimeoutSeconds, 60u);
    EXPECT_TRUE(report.taken.empty());
    EXPECT_TRUE(report.ignored.empty());
}

TEST_F(SettingsFromRegistry, KeepsTheDefaultsWithoutTheKey)
{
    mirel::SettingsReport report;
    mirel::Settings s =
        mirel::loadSettingsFrom(HKEY_CURRENT_USER, L"Software\\ZenthraDeliveryTests\\NoSuchKey", report);
    EXPECT_EQ(s.connectTimeoutSeconds, 30u);
    EXPECT_TRUE(report.taken.empty());
}

TEST_F(SettingsFromRegistry, TakesEachValueAndReportsIt)
{
    setDword(L"StallTimeoutSeconds", 5);
    setDword(L"ConnectTimeoutSeconds", 12);
    setText(L"AttemptTimeoutSeconds", L"600");
    setDword(L"CheckRevocation", 1);
    mirel::SettingsReport report;
    mirel::Settings s = mirel::loadSettingsFrom(HKEY_CURRENT_USER, m_subkey.c_str(), report);
    EXPECT_EQ(s.stallTimeoutSeconds, 5u);
    EXPECT_EQ(s.connectTimeoutSeconds, 12u);
    EXPECT_EQ(s.attemptTimeoutSeconds, 600u);
    EXPECT_TRUE(s.checkRevocation);
    EXPECT_EQ(s.responseTimeoutSeconds, 60u);
    EXPECT_EQ(report.taken, (std::vector<std::string>{"ConnectTimeoutSeconds = 12", "StallTimeoutSeconds = 5",
                                                      "AttemptTimeoutSeconds = 600", "CheckRevocation = 1"}));
}

TEST_F(SettingsFromRegistry, IgnoresABadValueAndSaysWhy)
{
    setDword(L"StallTimeoutSeconds", 0);
    setText(L"SendTimeoutSeconds", L"fast");
    mirel::SettingsReport report;
    mirel::Settings s = mirel::loadSettingsFrom(HKEY_CURRENT_USER, m_subkey.c_str(), report);
    EXPECT_EQ(s.stallTimeoutSeconds, 60u);
    EXPECT_EQ(s.sendTimeoutSeconds, 30u);
    EXPECT_EQ(report.ignored, (std::vector<std::string>{"SendTimeoutSeconds: the text \"fast\" is not a decimal number",
                                                        "StallTimeoutSeconds: 0 is outside 1..3600"}));
}

}  // namespace
