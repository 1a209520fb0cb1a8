// The client's text helpers: UTF-8 and UTF-16, hex, numbers, and texts made
// safe for one log line.
#include <gtest/gtest.h>

#include <string>

#include "TextUtil.h"

namespace {

TEST(TextConversion, RoundTripsUtf8)
{
    std::wstring wide;
    ASSERT_TRUE(mirel::utf8ToWide("\xC3\xA9t\xC3\xA9 \xE2\x82\xAC", wide));
    EXPECT_EQ(wide, L"\u00E9t\u00E9 \u20AC");
    EXPECT_EQ(mirel::wideToUtf8(wide), "\xC3\xA9t\xC3\xA9 \xE2\x82\xAC");
}

TEST(TextConversion, RefusesInvalidUtf8)
{
    std::wstring wide;
    EXPECT_FALSE(mirel::utf8ToWide("\xFF\xFE", wide));
    EXPECT_FALSE(mirel::utf8ToWide("a\xC3", wide));
    EXPECT_TRUE(mirel::utf8ToWide("", wide));
    EXPECT_TRUE(wide.empty());
}

TEST(HexText, IsLowerCase)
{
    const std::uint8_t bytes[] = {0x00, 0xAB, 0x7f, 0xff};
    EXPECT_EQ(mirel::toHex(bytes, 4), "00ab7fff");
    EXPECT_EQ(mirel::hexValue('F'), 15);
    EXPECT_EQ(mirel::hexValue('g'), -1);
}

TEST(LogText, ShowsControlCharactersAndStaysShort)
{
    EXPECT_EQ(mirel::forLog(std::string("a\r\nb\x7f")), "a\\x0d\\x0ab\\x7f");
    EXPECT_EQ(mirel::forLog(std::string(10, 'x'), 4), "xxxx...");
    EXPECT_EQ(mirel::forLog(std::wstring(L"C:\\\u00E9")), "C:\\\xC3\xA9");
}

TEST(DecimalText, TakesOnlyDigits)
{
    std::uint64_t v = 0;
    EXPECT_TRUE(mirel::parseDecimal("18446744073", v));
    EXPECT_EQ(v, 18446744073u);
    EXPECT_TRUE(mirel::parseDecimal("9999999999999999999", v));
    EXPECT_FALSE(mirel::parseDecimal("99999999999999999999", v));
    EXPECT_FALSE(mirel::parseDecimal("", v));
    EXPECT_FALSE(mirel::parseDecimal("+1", v));
    EXPECT_FALSE(mirel::parseDecimal("1 ", v));
    EXPECT_FALSE(mirel::parseDecimal("0x10", v));
}

TEST(NoCase, ComparesAsciiOnly)
{
    EXPECT_TRUE(mirel::equalsNoCase("Bytes", "bYTES"));
    EXPECT_FALSE(mirel::equalsNoCase("bytes", "byte"));
    EXPECT_EQ(mirel::asciiLower("AbC-\xC3\x89"), "abc-\xC3\x89");
}

}  // namespace
