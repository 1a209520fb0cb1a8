// Telling a collected log's encoding and reading its lines.
#include "LogText.h"

#include <gtest/gtest.h>

#include <string>

#include "fakes/VerboseMsiLog.h"

using namespace ztmsilog;

TEST(LogTextTest, Utf16LittleEndianWithAndWithoutMark)
{
    DecodedLog withMark = DecodeLog(msilog::Utf16File(L"Action ended 12:00:00: X. Return value 3.\r\n"));
    EXPECT_EQ(Encoding::Utf16Le, withMark.encoding);
    EXPECT_EQ(L"Action ended 12:00:00: X. Return value 3.\r\n", withMark.text);
    DecodedLog noMark = DecodeLog(msilog::Utf16File(L"MSI (s) (A4:B8): Doing action: X\r\n", false));
    EXPECT_EQ(Encoding::Utf16LeNoMark, noMark.encoding);
    EXPECT_EQ(L"MSI (s) (A4:B8): Doing action: X\r\n", noMark.text);
}

TEST(LogTextTest, Utf16BigEndianWithAndWithoutMark)
{
    const std::string be("\xFE\xFF\x00W\x00i\x00x", 8);
    DecodedLog withMark = DecodeLog(be);
    EXPECT_EQ(Encoding::Utf16Be, withMark.encoding);
    EXPECT_EQ(L"Wix", withMark.text);
    DecodedLog noMark = DecodeLog(be.substr(2));
    EXPECT_EQ(Encoding::Utf16BeNoMark, noMark.encoding);
    EXPECT_EQ(L"Wix", noMark.text);
}

TEST(LogTextTest, Utf8WithAndWithoutMark)
{
    DecodedLog withMark = DecodeLog("\xEF\xBB\xBF" "Aktion beendet um 12:00:00: X. R\xC3\xBC" "ckgabewert 3.");
    EXPECT_EQ(Encoding::Utf8, withMark.encoding);
    EXPECT_EQ(L"Aktion beendet um 12:00:00: X. R\u00fcckgabewert 3.", withMark.text);
    DecodedLog noMark = DecodeLog("Action termin\xC3\xA9" "e 12:00:00 : X. Valeur renvoy\xC3\xA9" "e 3.");
    EXPECT_EQ(Encoding::Utf8NoMark, noMark.encoding);
    EXPECT_EQ(L"Action termin\u00e9e 12:00:00 : X. Valeur renvoy\u00e9e 3.", noMark.text);
    // Four bytes: a character beyond the first plane, as a surrogate pair.
    EXPECT_EQ(std::wstring(L"\xD83D\xDE00"), DecodeLog("\xF0\x9F\x98\x80").text);
}

TEST(LogTextTest, NarrowCodePageIsReadAsWindows1252)
{
    DecodedLog log = DecodeLog("R\xFC" "ckgabewert 3. \x80 \x93quoted\x94");
    EXPECT_EQ(Encoding::Ansi, log.encoding);
    EXPECT_EQ(L"R\u00fcckgabewert 3. \u20ac \u201cquoted\u201d", log.text);
    // A UTF-8 mark in front of bytes that are no UTF-8.
    DecodedLog marked = DecodeLog("\xEF\xBB\xBF" "caf\xE9");
    EXPECT_EQ(Encoding::Ansi, marked.encoding);
    EXPECT_EQ(L"caf\u00e9", marked.text);
}

TEST(LogTextTest, OverlongAndSurrogateFormsAreNoUtf8)
{
    EXPECT_EQ(Encoding::Ansi, DecodeLog("\xC0\xAF").encoding);
    EXPECT_EQ(Encoding::Ansi, DecodeLog("\xED\xA0\x80").encoding);
    EXPECT_EQ(Encoding::Ansi, DecodeLog("ab\xE2\x82").encoding);  // cut short
}

TEST(LogTextTest, EmptyAndOddSizedInput)
{
    EXPECT_EQ(Encoding::Empty, DecodeLog("").encoding);
    EXPECT_TRUE(DecodeLog("").text.empty());
    DecodedLog odd = DecodeLog(msilog::Utf16File(L"ab") + "c");
    EXPECT_EQ(Encoding::Utf16Le, odd.encoding);
    EXPECT_EQ(L"ab", odd.text);
    EXPECT_EQ(L"", DecodeLog("\xFF\xFE").text);
}

TEST(LogTextTest, BinaryBytesDecodeWithoutHarm)
{
    std::string bytes;
    std::uint32_t state = 99;
    for (int i = 0; i < 100000; ++i) {
        state = state * 1664525u + 1013904223u;
        bytes.push_back(static_cast<char>(state >> 24));
    }
    DecodedLog log = DecodeLog(bytes);
    EXPECT_NE(Encoding::Empty, log.encoding);
    EXPECT_LE(log.text.size(), bytes.size());
    EXPECT_FALSE(ToUtf8(log.text).empty());
}

TEST(LogTextTest, LinesSplitAtLfAndLoseTheirCr)
{
    EXPECT_EQ((std::vector<std::wstring>{L"a", L"b", L"", L"c\r"}), SplitLines(L"a\r\nb\n\nc\r"));
    EXPECT_EQ((std::vector<std::wstring>{L"a", L"b"}), SplitLines(L"a\nb\n"));
    EXPECT_TRUE(SplitLines(L"").empty());
    EXPECT_EQ((std::vector<std::wstring>{L"x\ry"}), SplitLines(L"x\ry"));
}

TEST(LogTextTest, Utf8OfPairsAndUnpairedSurrogates)
{
    EXPECT_EQ("R\xC3\xBC" "ck \xE2\x82\xAC \xF0\x9F\x98\x80", ToUtf8(L"R\u00fcck \u20ac \xD83D\xDE00"));
    EXPECT_EQ("\xEF\xBF\xBD" "x\xEF\xBF\xBD", ToUtf8(std::wstring(L"\xD800x\xDC00")));
    EXPECT_EQ(std::string("a\0b", 3), ToUtf8(std::wstring(L"a\0b", 3)));
}

TEST(LogTextTest, EngineBytesAreMarkedUtf16LittleEndian)
{
    EXPECT_EQ(std::string("\xFF\xFE" "A\0\xFC\0", 6), EngineBytes(L"A\u00fc"));
}

TEST(LogTextTest, EngineTextEndsEveryLineInCrLf)
{
    EXPECT_EQ(L"a\r\n\r\nb\r\n", EngineText({L"a", L"", L"b"}));
    EXPECT_EQ(L"", EngineText({}));
}
