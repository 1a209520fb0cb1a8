// What corestring does with the text itself: paths, parts, comparison,
// numbers, formatting, code page conversion, tokens and the platform's
// message texts.
#include "core/string/corestring.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdint>
#include <cwchar>
#include <map>
#include <set>
#include <string>
#include <type_traits>

#include "core/win.h"

using CORE::coreException;
using CORE::corestring;
using CORE::coremstring;

namespace {

std::wstring text(const corestring& s) { return std::wstring(s.c_str(), s.length()); }
std::string text(const coremstring& s) { return std::string(s.c_str(), s.length()); }

constexpr std::uint64_t npos = corestring::npos;

// The text the system itself has for a code, trimmed the way a log line wants it.
std::wstring systemTextOf(DWORD code)
{
    wchar_t buffer[4096];
    DWORD n = ::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0, buffer,
                               4096, nullptr);
    std::wstring s(buffer, n);
    const wchar_t* blanks = L" \t\r\n";
    size_t first = s.find_first_not_of(blanks);
    if (first == std::wstring::npos)
        return L"";
    return s.substr(first, s.find_last_not_of(blanks) - first + 1);
}

coremstring& narrowFormat(coremstring& out, std::uint64_t firstSize, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    coremstring::vformat(out, firstSize, format, args);
    va_end(args);
    return out;
}

corestring& wideFormatFrom(corestring& out, std::uint64_t firstSize, const wchar_t* format, ...)
{
    va_list args;
    va_start(args, format);
    corestring::vformat(out, firstSize, format, args);
    va_end(args);
    return out;
}

}  // namespace

// ---------------------------------------------------------------- appendPath

TEST(corestringText, AppendPathAfterTrailingBackslashAddsNone)
{
    corestring s(L"C:\\Temp\\");
    s.appendPath(L"x");
    EXPECT_EQ(L"C:\\Temp\\x", text(s));
}

TEST(corestringText, AppendPathInsertsOneBackslash)
{
    corestring s(L"C:\\Temp");
    s.appendPath(L"x");
    EXPECT_EQ(L"C:\\Temp\\x", text(s));
}

TEST(corestringText, AppendPathConvertsForwardSlashesOfTheComponent)
{
    corestring s(L"C:\\Temp");
    s.appendPath(L"/x/y");
    EXPECT_EQ(L"C:\\Temp\\x\\y", text(s));
}

TEST(corestringText, AppendPathComponentWithLeadingBackslashGetsNoSecond)
{
    corestring s(L"C:\\Temp");
    s.appendPath(L"\\x");
    EXPECT_EQ(L"C:\\Temp\\x", text(s));
}

TEST(corestringText, AppendPathDoesNotMergeTwoBackslashes)
{
    corestring s(L"C:\\Temp\\");
    s.appendPath(L"\\x");
    EXPECT_EQ(L"C:\\Temp\\\\x", text(s));
}

TEST(corestringText, AppendPathOnEmptyStringAddsNoBackslash)
{
    corestring s;
    s.appendPath(L"x");
    EXPECT_EQ(L"x", text(s));
    corestring t;
    t.appendPath(L"a/b");
    EXPECT_EQ(L"a\\b", text(t));
}

TEST(corestringText, AppendPathNullComponentDoesNothing)
{
    corestring s(L"C:\\Temp");
    s.appendPath(nullptr);
    EXPECT_EQ(L"C:\\Temp", text(s));
    corestring empty;
    empty.appendPath(nullptr);
    EXPECT_EQ(nullptr, empty.handle());
}

TEST(corestringText, AppendPathEmptyComponentAddsTrailingBackslash)
{
    corestring s(L"C:\\Temp");
    s.appendPath(L"");
    EXPECT_EQ(L"C:\\Temp\\", text(s));
    s.appendPath(L"");
    EXPECT_EQ(L"C:\\Temp\\", text(s));
    corestring empty;
    empty.appendPath(L"");
    EXPECT_EQ(nullptr, empty.handle());
}

TEST(corestringText, AppendPathLeavesSlashesOfTheStringAlone)
{
    corestring s(L"a/b");
    s.appendPath(L"c");
    EXPECT_EQ(L"a/b\\c", text(s));
}

// ---------------------------------------------------------------- concat, replaceRange, trim

TEST(corestringText, ConcatPutsBothPartsIntoOut)
{
    corestring a(L"left");
    corestring out(L"old content");
    corestring& r = corestring::concat(a, out, L"+right");
    EXPECT_EQ(&out, &r);
    EXPECT_EQ(L"left+right", text(out));
    EXPECT_EQ(L"left", text(a));
}

TEST(corestringText, ConcatIntoItsFirstOperand)
{
    corestring a(L"one");
    corestring::concat(a, a, L"two");
    EXPECT_EQ(L"onetwo", text(a));
}

TEST(corestringText, ConcatWithNullOrEmptyParts)
{
    corestring empty;
    corestring out;
    corestring::concat(empty, out, L"b");
    EXPECT_EQ(L"b", text(out));
    corestring a(L"a");
    corestring::concat(a, out, nullptr);
    EXPECT_EQ(L"a", text(out));
    corestring::concat(empty, out, nullptr);
    EXPECT_EQ(nullptr, out.handle());
}

TEST(corestringText, ReplaceRangeReplacesTheMiddle)
{
    corestring s(L"abcdef");
    s.replaceRange(2, 2, L"XYZ");
    EXPECT_EQ(L"abXYZef", text(s));
    s.replaceRange(0, 0, L"<", 1);
    EXPECT_EQ(L"<abXYZef", text(s));
    s.replaceRange(1, 2, nullptr, 0);
    EXPECT_EQ(L"<XYZef", text(s));
}

TEST(corestringText, ReplaceRangeClampsPositionAndCount)
{
    corestring s(L"abc");
    s.replaceRange(100, 5, L"d");
    EXPECT_EQ(L"abcd", text(s));
    s.replaceRange(2, 1000, L"!");
    EXPECT_EQ(L"ab!", text(s));
    s.replaceRange(1, npos, L"");
    EXPECT_EQ(L"a", text(s));
}

TEST(corestringText, ReplaceRangeOfEverythingWithNothingGivesNullHandle)
{
    corestring s(L"abc");
    s.replaceRange(0, 3, L"");
    EXPECT_EQ(nullptr, s.handle());
    corestring empty;
    empty.replaceRange(5, 5, L"x");
    EXPECT_EQ(L"x", text(empty));
}

TEST(corestringText, TrimRemovesTheFourBlanksAtBothEnds)
{
    corestring s(L" \t\r\nvalue with inner blanks\n\r\t ");
    s.trim();
    EXPECT_EQ(L"value with inner blanks", text(s));
}

TEST(corestringText, TrimLeftOnlyTouchesTheStart)
{
    corestring s(L"  x  ");
    s.trimLeft();
    EXPECT_EQ(L"x  ", text(s));
}

TEST(corestringText, TrimRightOnlyTouchesTheEnd)
{
    corestring s(L"  x \r\n");
    s.trimRight();
    EXPECT_EQ(L"  x", text(s));
}

TEST(corestringText, TrimOfNothingButBlanksGivesNullHandle)
{
    corestring both(L" \t\r\n ");
    both.trim();
    EXPECT_EQ(nullptr, both.handle());
    corestring left(L"\t\t");
    left.trimLeft();
    EXPECT_EQ(nullptr, left.handle());
    corestring right(L"\r\n");
    right.trimRight();
    EXPECT_EQ(nullptr, right.handle());
}

TEST(corestringText, TrimWithAnotherSet)
{
    corestring s(L"\"quoted\"");
    s.trim(L"\"");
    EXPECT_EQ(L"quoted", text(s));
    corestring t(L"  keep  ");
    t.trim(L"x");
    EXPECT_EQ(L"  keep  ", text(t));
}

TEST(corestringText, TrimOfEmptyStringStaysEmpty)
{
    corestring s;
    s.trim();
    EXPECT_EQ(nullptr, s.handle());
}

TEST(corestringText, ToBackslashesCopiesWithSlashesTurned)
{
    const wchar_t* source = L"a/b/c\\d";
    corestring s = corestring::toBackslashes(source);
    EXPECT_EQ(L"a\\b\\c\\d", text(s));
    EXPECT_STREQ(L"a/b/c\\d", source);
    EXPECT_EQ(nullptr, corestring::toBackslashes(nullptr).handle());
    EXPECT_EQ(nullptr, corestring::toBackslashes(L"").handle());
}

// ---------------------------------------------------------------- parts of the text

TEST(corestringText, LeftRightAndMidAreClamped)
{
    corestring s(L"hello");
    EXPECT_EQ(L"he", text(s.left(2)));
    EXPECT_EQ(L"hello", text(s.left(10)));
    EXPECT_EQ(nullptr, s.left(0).handle());
    EXPECT_EQ(L"lo", text(s.right(2)));
    EXPECT_EQ(L"hello", text(s.right(10)));
    EXPECT_EQ(nullptr, s.right(0).handle());
    EXPECT_EQ(L"ell", text(s.mid(1, 3)));
    EXPECT_EQ(L"o", text(s.mid(4, 10)));
    EXPECT_EQ(L"llo", text(s.mid(2, npos)));
    EXPECT_EQ(nullptr, s.mid(5, 2).handle());
    EXPECT_EQ(nullptr, s.mid(10, 2).handle());
    corestring empty;
    EXPECT_EQ(nullptr, empty.left(3).handle());
    EXPECT_EQ(nullptr, empty.right(3).handle());
    EXPECT_EQ(nullptr, empty.mid(1, 3).handle());
}

TEST(corestringText, PartsAreCopies)
{
    corestring s(L"hello");
    corestring part = s.left(5);
    EXPECT_NE(s.handle(), part.handle());
    EXPECT_EQ(5u, part.capacity());
}

TEST(corestringText, FindCharFromAPosition)
{
    corestring s(L"abcabc");
    EXPECT_EQ(1u, s.findChar(L'b', 0));
    EXPECT_EQ(1u, s.findChar(L'b', 1));
    EXPECT_EQ(4u, s.findChar(L'b', 2));
    EXPECT_EQ(npos, s.findChar(L'z', 0));
    EXPECT_EQ(npos, s.findChar(L'a', 6));
    EXPECT_EQ(npos, s.findChar(L'a', 100));
    corestring empty;
    EXPECT_EQ(npos, empty.findChar(L'a', 0));
}

TEST(corestringText, FindNoCaseIgnoresCase)
{
    EXPECT_EQ(6u, corestring::findNoCase(L"Hello World", L"WORLD"));
    EXPECT_EQ(0u, corestring::findNoCase(L"MSIEXEC.EXE /i", L"msiexec"));
    EXPECT_EQ(npos, corestring::findNoCase(L"Hello", L"planet"));
    EXPECT_EQ(2u, corestring::findNoCase(L"x\x00C4y", L"Y"));
    EXPECT_EQ(1u, corestring::findNoCase(L"x\x00C4y", L"\x00E4"));
    EXPECT_EQ(npos, corestring::findNoCase(L"", L"a"));
}

TEST(corestringText, StripExtensionCutsAtTheLastDot)
{
    EXPECT_EQ(L"setup.x64", text(corestring::stripExtension(L"setup.x64.msi")));
    EXPECT_EQ(L"setup", text(corestring::stripExtension(L"setup")));
    EXPECT_EQ(L"setup", text(corestring::stripExtension(L"setup.")));
    EXPECT_EQ(nullptr, corestring::stripExtension(L".msi").handle());
    EXPECT_EQ(nullptr, corestring::stripExtension(nullptr).handle());
}

TEST(corestringText, CharAtMayReadTheTerminatorButNoFurther)
{
    corestring s(L"ab");
    EXPECT_EQ(L'a', s.charAt(0));
    EXPECT_EQ(L'b', s.charAt(1));
    EXPECT_EQ(L'\0', s.charAt(2));
    try {
        s.charAt(3);
        FAIL() << "read past the terminator";
    } catch (const coreException& e) {
        EXPECT_EQ(0u, e.code());
        EXPECT_STREQ(L"Array bounds", e.text());
    }
    corestring empty;
    EXPECT_EQ(L'\0', empty.charAt(0));
    EXPECT_THROW(empty.charAt(1), coreException);
}

TEST(corestringText, CharAtForWriteOnlyReachesCharactersInUse)
{
    corestring s(L"ab");
    s.charAtForWrite(1) = L'z';
    EXPECT_EQ(L"az", text(s));
    try {
        s.charAtForWrite(2);
        FAIL() << "the terminator was handed out for writing";
    } catch (const coreException& e) {
        EXPECT_STREQ(L"Array bounds", e.text());
    }
    corestring empty;
    EXPECT_THROW(empty.charAtForWrite(0), coreException);
}

// ---------------------------------------------------------------- comparison

TEST(corestringText, EqualsComparesWholeStringsNotPrefixes)
{
    corestring s(L"DOWNLOAD");
    EXPECT_TRUE(s.equals(L"DOWNLOAD", false));
    EXPECT_FALSE(s.equals(L"DOWNLOADS", false));
    EXPECT_FALSE(s.equals(L"DOWN", false));
    EXPECT_FALSE(s.equals(L"", false));
    EXPECT_FALSE(s.equals(nullptr, false));
    corestring empty;
    EXPECT_TRUE(empty.equals(L"", false));
    EXPECT_TRUE(empty.equals(nullptr, true));
    EXPECT_FALSE(empty.equals(L"x", false));
}

TEST(corestringText, EqualsHonoursTheCaseFlag)
{
    corestring s(L"Updating");
    EXPECT_TRUE(s.equals(L"UPDATING", true));
    EXPECT_TRUE(s.equalsNoCase(L"updating"));
    EXPECT_FALSE(s.equals(L"UPDATING", false));
    EXPECT_FALSE(s.equals(L"UPDATINGX", true));
    EXPECT_TRUE(corestring(L"a") == corestring(L"a"));
    EXPECT_FALSE(corestring(L"a") == corestring(L"A"));
}

TEST(corestringText, KeywordEqualsIsExactWithOptionalCase)
{
    EXPECT_TRUE(CORE::keywordEquals(L"ready", L"READY", true));
    EXPECT_FALSE(CORE::keywordEquals(L"ready", L"READY", false));
    EXPECT_TRUE(CORE::keywordEquals(L"READY", L"READY", false));
    EXPECT_FALSE(CORE::keywordEquals(L"READYX", L"READY", true));
    EXPECT_FALSE(CORE::keywordEquals(L"READ", L"READY", true));
    EXPECT_FALSE(CORE::keywordEquals(nullptr, L"READY", true));
    EXPECT_TRUE(CORE::keywordEquals(nullptr, L"", true));
}

TEST(corestringText, CompareNoCaseGivesMinusOneZeroOrOne)
{
    corestring s(L"abc");
    EXPECT_EQ(0, s.compareNoCase(L"ABC"));
    EXPECT_EQ(-1, s.compareNoCase(L"abd"));
    EXPECT_EQ(1, s.compareNoCase(L"ABB"));
    EXPECT_EQ(-1, s.compareNoCase(L"abcd"));
    EXPECT_EQ(1, s.compareNoCase(L"ab"));
    EXPECT_EQ(1, s.compareNoCase(nullptr));
    corestring empty;
    EXPECT_EQ(1, empty.compareNoCase(nullptr));
    EXPECT_EQ(0, empty.compareNoCase(L""));
    EXPECT_EQ(-1, empty.compareNoCase(L"a"));
}

TEST(corestringText, LessThanOrdersCaseSensitivelyByLocale)
{
    EXPECT_TRUE(corestring(L"a") < corestring(L"b"));
    EXPECT_FALSE(corestring(L"b") < corestring(L"a"));
    EXPECT_FALSE(corestring(L"a") < corestring(L"a"));
    EXPECT_TRUE(corestring(L"ab") < corestring(L"abc"));
    EXPECT_FALSE(corestring(L"abc") < corestring(L"ab"));
    EXPECT_TRUE(corestring() < corestring(L"a"));
    EXPECT_FALSE(corestring(L"a") < corestring());
    // Linguistic, not by code unit: 'a' (0x61) sorts before 'B' (0x42).
    EXPECT_TRUE(corestring(L"a") < corestring(L"B"));
    EXPECT_TRUE(corestring(L"a") < corestring(L"A") || corestring(L"A") < corestring(L"a"));
}

TEST(corestringText, OrderedContainersKeepCaseVariantsApart)
{
    std::set<corestring> names;
    names.insert(corestring(L"beta"));
    names.insert(corestring(L"Alpha"));
    names.insert(corestring(L"alpha"));
    names.insert(corestring(L"beta"));
    ASSERT_EQ(3u, names.size());
    EXPECT_EQ(L"beta", text(*names.rbegin()));
    std::map<corestring, int> values;
    values[corestring(L"k")] = 1;
    values[corestring(L"k")] = 2;
    EXPECT_EQ(1u, values.size());
    EXPECT_EQ(2, values[corestring(L"k")]);
}

TEST(corestringText, StartsWithIsAHitAtPositionZero)
{
    corestring s(L"HKLM\\Software");
    EXPECT_TRUE(s.startsWith(L"HKLM"));
    EXPECT_TRUE(s.startsWith(L""));
    EXPECT_FALSE(s.startsWith(L"Software"));
    EXPECT_FALSE(s.startsWith(L"hklm"));
    EXPECT_FALSE(s.startsWith(nullptr));
}

// ---------------------------------------------------------------- numbers

TEST(corestringText, NormalizeNumberDropsLeadingZerosOnly)
{
    EXPECT_EQ(L"12", text(corestring(L"0012").normalizeNumber()));
    EXPECT_EQ(L"0x1F", text(corestring(L"0x1F").normalizeNumber()));
    EXPECT_EQ(L"-7", text(corestring(L"-007").normalizeNumber()));
    EXPECT_EQ(L"+12", text(corestring(L" \t+0012\r\n").normalizeNumber()));
    EXPECT_EQ(L"0", text(corestring(L"0").normalizeNumber()));
    EXPECT_EQ(L"0", text(corestring(L"000").normalizeNumber()));
    EXPECT_EQ(L"100", text(corestring(L"100").normalizeNumber()));
    EXPECT_EQ(L"1002", text(corestring(L"001002").normalizeNumber()));
    EXPECT_EQ(L"0.5", text(corestring(L"00.5").normalizeNumber()));
    EXPECT_EQ(nullptr, corestring(L"  ").normalizeNumber().handle());
    EXPECT_EQ(nullptr, corestring().normalizeNumber().handle());
}

TEST(corestringText, NormalizeNumberLeavesTheOriginal)
{
    corestring s(L" 010 ");
    corestring n = s.normalizeNumber();
    EXPECT_EQ(L"10", text(n));
    EXPECT_EQ(L" 010 ", text(s));
}

TEST(corestringText, ToIntReadsLeadingZeroAsOctalUnlessNormalized)
{
    corestring s(L"010");
    EXPECT_EQ(8, s.toInt(false));
    EXPECT_EQ(10, s.toInt(true));
    corestring negative(L"-0010");
    EXPECT_EQ(-8, negative.toInt(false));
    EXPECT_EQ(-10, negative.toInt(true));
}

TEST(corestringText, ToIntReadsHexadecimalEitherWay)
{
    corestring s(L"0x1F");
    EXPECT_EQ(31, s.toInt(false));
    EXPECT_EQ(31, s.toInt(true));
    EXPECT_EQ(0, corestring().toInt(true));
    EXPECT_EQ(0, corestring(L"abc").toInt(false));
    EXPECT_EQ(42, corestring(L"42abc").toInt(false));
}

TEST(corestringText, ToUIntAndToInt64CoverTheirRanges)
{
    EXPECT_EQ(4294967295ul, corestring(L"4294967295").toUInt(false));
    EXPECT_EQ(0xFFFFFFFFul, corestring(L"0xFFFFFFFF").toUInt(true));
    EXPECT_EQ(8ul, corestring(L"010").toUInt(false));
    EXPECT_EQ(10ul, corestring(L"010").toUInt(true));
    EXPECT_EQ(9223372036854775807ll, corestring(L"0x7FFFFFFFFFFFFFFF").toInt64(false));
    EXPECT_EQ(-5000000000ll, corestring(L"-5000000000").toInt64(false));
    EXPECT_EQ(8ll, corestring(L"010").toInt64(false));
    EXPECT_EQ(10ll, corestring(L"010").toInt64(true));
}

TEST(corestringText, NarrowToIntBehavesAlike)
{
    EXPECT_EQ(8, coremstring("010").toInt(false));
    EXPECT_EQ(10, coremstring("010").toInt(true));
}

TEST(corestringText, FromNumberWritesDigitsInTheRadix)
{
    EXPECT_EQ(L"0", text(corestring::fromNumber(0u, 10)));
    EXPECT_EQ(L"4294967295", text(corestring::fromNumber(4294967295u, 10)));
    EXPECT_EQ(L"ff", text(corestring::fromNumber(255u, 16)));
    EXPECT_EQ(L"101", text(corestring::fromNumber(5u, 2)));
    EXPECT_EQ(L"18446744073709551615", text(corestring::fromNumber(~std::uint64_t(0), 10)));
    EXPECT_EQ(std::wstring(64, L'1'), text(corestring::fromNumber(~std::uint64_t(0), 2)));
}

// ---------------------------------------------------------------- format

TEST(corestringText, FormatPercentSIsWideInAWideFormat)
{
    corestring out;
    corestring& r = corestring::format(out, L"%s: %s", L"App::Update", L"INFO: started");
    EXPECT_EQ(&out, &r);
    EXPECT_EQ(L"App::Update: INFO: started", text(out));
}

TEST(corestringText, FormatCapitalSIsNarrow)
{
    corestring out;
    corestring::format(out, L"[%S]", "narrow");
    EXPECT_EQ(L"[narrow]", text(out));
}

TEST(corestringText, FormatI64uAndD)
{
    corestring out;
    corestring::format(out, L"%I64u/%d/%u/%08X", 18446744073709551615ull, -42, 7u, 0xBEEFu);
    EXPECT_EQ(L"18446744073709551615/-42/7/0000BEEF", text(out));
}

TEST(corestringText, FormatTakesPositionalArguments)
{
    corestring out;
    corestring::format(out, L"%2$s %1$s", L"world", L"hello");
    EXPECT_EQ(L"hello world", text(out));
    corestring::format(out, L"%2$d-%1$s-%2$d", L"x", 5);
    EXPECT_EQ(L"5-x-5", text(out));
}

TEST(corestringText, FormatNullHandlePrintsNull)
{
    corestring empty;
    corestring out;
    corestring::format(out, L"value=%s", empty.handle());
    EXPECT_EQ(L"value=(null)", text(out));
    corestring::format(out, L"value=%s", empty.c_str());
    EXPECT_EQ(L"value=", text(out));
}

TEST(corestringText, FormatDoublesTheBufferForLongOutput)
{
    std::wstring longText(20000, L'q');
    corestring out;
    corestring::format(out, L"<%s>", longText.c_str());
    EXPECT_EQ(L"<" + longText + L">", text(out));
    corestring::format(out, L"%20000d", 7);
    ASSERT_EQ(20000u, out.length());
    EXPECT_EQ(L'7', out.handle()[19999]);
    EXPECT_EQ(L' ', out.handle()[0]);
}

TEST(corestringText, FormatAroundTheFirstBufferSize)
{
    corestring out;
    corestring::format(out, L"%8191d", 1);  // fits with its terminator
    EXPECT_EQ(8191u, out.length());
    corestring::format(out, L"%8192d", 2);  // needs one more
    EXPECT_EQ(8192u, out.length());
    EXPECT_EQ(L'2', out.handle()[8191]);
}

TEST(corestringText, FormatStopsAtTheFirstTerminator)
{
    corestring out;
    corestring::format(out, L"a%cb", 0);
    EXPECT_EQ(L"a", text(out));
}

TEST(corestringText, FormatOfNothingGivesNullHandle)
{
    corestring out(L"old");
    corestring::format(out, L"%s", L"");
    EXPECT_EQ(nullptr, out.handle());
}

TEST(corestringText, FormatMayTakeItsOutputAsArgument)
{
    corestring out(L"base");
    corestring::format(out, L"%s+%s", out.c_str(), L"more");
    EXPECT_EQ(L"base+more", text(out));
}

TEST(corestringText, WideVformatGrowsFromTheCallersSize)
{
    corestring out;
    wideFormatFrom(out, 2, L"%s-%d", L"abcdefgh", 42);
    EXPECT_EQ(L"abcdefgh-42", text(out));
}

TEST(corestringText, NarrowVformatGrowsFromTheCallersSize)
{
    coremstring out;
    narrowFormat(out, 4, "%s-%d", "abcdefgh", 42);
    EXPECT_EQ("abcdefgh-42", text(out));
    narrowFormat(out, 1, "%2$s %1$s", "b", "a");
    EXPECT_EQ("a b", text(out));
    narrowFormat(out, 16, "%S|%I64d", L"wide", -1ll);
    EXPECT_EQ("wide|-1", text(out));
    std::string longText(20000, 'n');
    narrowFormat(out, 8, "%s", longText.c_str());
    EXPECT_EQ(longText, text(out));
}

// ---------------------------------------------------------------- conversion

TEST(corestringText, Utf8RoundTripKeepsNonAscii)
{
    const wchar_t* wide = L"Gr\x00FC\x00DF" L"e \x20AC \x4E2D";
    coremstring narrow = CORE::to_mstr(wide, std::wcslen(wide), 65001);
    EXPECT_EQ("Gr\xC3\xBC\xC3\x9F" "e \xE2\x82\xAC \xE4\xB8\xAD", text(narrow));
    corestring back = CORE::to_wstr(narrow.c_str(), narrow.length(), 65001);
    EXPECT_EQ(std::wstring(wide), text(back));
}

TEST(corestringText, ToMstrTakesThreeBytesPerCharacter)
{
    std::wstring euros(3000, L'\x20AC');
    coremstring narrow = CORE::to_mstr(euros.c_str(), euros.size(), 65001);
    EXPECT_EQ(9000u, narrow.length());
    corestring back = CORE::to_wstr(narrow.c_str(), narrow.length(), 65001);
    EXPECT_EQ(euros, text(back));
}

TEST(corestringText, ConversionOfNullOrZeroLengthGivesNullHandle)
{
    EXPECT_EQ(nullptr, CORE::to_mstr(nullptr, 5, 65001).handle());
    EXPECT_EQ(nullptr, CORE::to_mstr(L"abc", 0, 65001).handle());
    EXPECT_EQ(nullptr, CORE::to_mstr(L"", corestring::npos, 65001).handle());
    EXPECT_EQ(nullptr, CORE::to_wstr(nullptr, 5, 65001).handle());
    EXPECT_EQ(nullptr, CORE::to_wstr("abc", 0, 65001).handle());
    EXPECT_EQ(nullptr, CORE::to_wstr("", coremstring::npos, 65001).handle());
}

TEST(corestringText, ConversionStopsAtTheFirstZero)
{
    EXPECT_EQ("ab", text(CORE::to_mstr(L"ab\0cd", 5, 65001)));
    EXPECT_EQ(L"ab", text(CORE::to_wstr("ab\0cd", 5, 65001)));
}

TEST(corestringText, ConversionFailureThrowsItsOwnText)
{
    try {
        CORE::to_mstr(L"abc", 3, 4711);  // no such code page
        FAIL() << "a failed conversion went unnoticed";
    } catch (const coreException& e) {
        EXPECT_EQ(0u, e.code());
        EXPECT_STREQ(L"to_mstr Failed", e.text());
    }
    try {
        CORE::to_wstr("abc", 3, 4711);
        FAIL() << "a failed conversion went unnoticed";
    } catch (const coreException& e) {
        EXPECT_STREQ(L"to_wstr Failed", e.text());
    }
}

// ---------------------------------------------------------------- tokens

TEST(corestringText, TokenizeReadsDoubledQuoteAsOne)
{
    const wchar_t* cursor = L"a \"b\"\"c\" d";
    corestring first = corestring::tokenize(cursor, L" ", L"\"");
    EXPECT_EQ(L"a", text(first));
    EXPECT_EQ(L' ', *cursor);  // a plain token leaves the cursor on its delimiter
    corestring second = corestring::tokenize(cursor, L" ", L"\"");
    EXPECT_EQ(L"b\"c", text(second));
    EXPECT_EQ(L' ', *cursor);  // behind the closing quote
    corestring third = corestring::tokenize(cursor, L" ", L"\"");
    EXPECT_EQ(L"d", text(third));
    EXPECT_EQ(L'\0', *cursor);
    EXPECT_EQ(nullptr, corestring::tokenize(cursor, L" ", L"\"").handle());
}

TEST(corestringText, SplitOfTheQuotedExampleGivesThreeTokens)
{
    CORE::StringList list = corestring::split(L"a \"b\"\"c\" d", L" ", L"\"");
    ASSERT_EQ(3u, list.size());
    EXPECT_EQ(L"a", text(list[0]));
    EXPECT_EQ(L"b\"c", text(list[1]));
    EXPECT_EQ(L"d", text(list[2]));
}

TEST(corestringText, UnbalancedQuoteIsReadAsPlainTokenWithTheQuote)
{
    CORE::StringList list = corestring::split(L"a \"bc d", L" ", L"\"");
    ASSERT_EQ(3u, list.size());
    EXPECT_EQ(L"a", text(list[0]));
    EXPECT_EQ(L"\"bc", text(list[1]));
    EXPECT_EQ(L"d", text(list[2]));
}

TEST(corestringText, UnbalancedQuoteAfterADoubledPairIsReadPlain)
{
    const wchar_t* cursor = L"\"x\"\"y z";
    corestring token = corestring::tokenize(cursor, L" ", L"\"");
    EXPECT_EQ(L"\"x\"\"y", text(token));
    EXPECT_EQ(L' ', *cursor);
}

TEST(corestringText, QuotedTokenKeepsDelimitersAndEndsAtTheQuote)
{
    CORE::StringList list = corestring::split(L"  \"C:\\Program Files\\x\"next", L" ", L"\"");
    ASSERT_EQ(2u, list.size());
    EXPECT_EQ(L"C:\\Program Files\\x", text(list[0]));
    EXPECT_EQ(L"next", text(list[1]));
}

TEST(corestringText, DoubledQuoteAtTheEndOfAQuotedToken)
{
    CORE::StringList list = corestring::split(L"\"ab\"\"\"", L" ", L"\"");
    ASSERT_EQ(1u, list.size());
    EXPECT_EQ(L"ab\"", text(list[0]));
}

TEST(corestringText, EitherQuoteCharacterOpensAndOnlyItCloses)
{
    CORE::StringList list = corestring::split(L"'a\"b' \"c'd\"", L" ", L"'\"");
    ASSERT_EQ(2u, list.size());
    EXPECT_EQ(L"a\"b", text(list[0]));
    EXPECT_EQ(L"c'd", text(list[1]));
}

TEST(corestringText, SplitStopsAtTheFirstEmptyToken)
{
    CORE::StringList list = corestring::split(L"a,b,,c", L",", nullptr);
    // Runs of delimiters are skipped, so no empty token arises in the middle.
    ASSERT_EQ(3u, list.size());
    EXPECT_EQ(L"c", text(list[2]));
    EXPECT_TRUE(corestring::split(L"", L",", nullptr).empty());
    EXPECT_TRUE(corestring::split(L" , ,", L", ", nullptr).empty());
    EXPECT_TRUE(corestring::split(nullptr, L",", nullptr).empty());
}

TEST(corestringText, SplitStopsAtAQuotedEmptyToken)
{
    CORE::StringList list = corestring::split(L"a \"\" b", L" ", L"\"");
    ASSERT_EQ(1u, list.size());
    EXPECT_EQ(L"a", text(list[0]));
    EXPECT_TRUE(corestring::split(L"\"\" a b", L" ", L"\"").empty());
}

TEST(corestringText, SplitWithoutQuotesReadsQuotesAsText)
{
    CORE::StringList list = corestring::split(L"\"a b\"", L" ", nullptr);
    ASSERT_EQ(2u, list.size());
    EXPECT_EQ(L"\"a", text(list[0]));
    EXPECT_EQ(L"b\"", text(list[1]));
}

TEST(corestringText, NarrowSplitBehavesAlike)
{
    std::vector<coremstring> list = coremstring::split("x \"y\"\"z\" w", " ", "\"");
    ASSERT_EQ(3u, list.size());
    EXPECT_EQ("y\"z", text(list[1]));
}

// ---------------------------------------------------------------- platform text

TEST(corestringText, SystemMessageIsTrimmed)
{
    corestring s = CORE::systemMessage(0, 0, FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_IGNORE_INSERTS,
                                       L" \t message text \r\n", nullptr);
    EXPECT_EQ(L"message text", text(s));
    corestring system =
        CORE::systemMessage(5, 0, FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, nullptr);
    ASSERT_FALSE(system.empty());
    wchar_t last = system.handle()[system.length() - 1];
    EXPECT_TRUE(last != L'\n' && last != L'\r' && last != L' ' && last != L'\t');
}

TEST(corestringText, SystemMessageWithoutTextIsEmpty)
{
    ASSERT_EQ(L"", systemTextOf(0x1234567u));
    corestring s = CORE::systemMessage(0x1234567u, 0, FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                                       nullptr, nullptr);
    EXPECT_EQ(nullptr, s.handle());
}

TEST(corestringText, ErrorTextOfALowCodeIsDecimalWithSystemText)
{
    std::wstring system = systemTextOf(5);
    ASSERT_FALSE(system.empty());
    EXPECT_EQ(L"5 (" + system + L")", text(CORE::errorText(5)));
}

TEST(corestringText, ErrorTextOfAHighCodeIsSixteenHexDigits)
{
    std::wstring system = systemTextOf(0x80070005u);
    EXPECT_EQ(L"0x0000000080070005 (" + system + L")", text(CORE::errorText(0x80070005u)));
    ASSERT_EQ(L"", systemTextOf(0xDEADBEEFu));
    EXPECT_EQ(L"0x00000000DEADBEEF ()", text(CORE::errorText(0xDEADBEEFu)));
}

TEST(corestringText, ErrorTextWithoutSystemTextHasAnEmptyPair)
{
    ASSERT_EQ(L"", systemTextOf(0x1234567u));
    EXPECT_EQ(L"19088743 ()", text(CORE::errorText(0x1234567u)));
}

// ---------------------------------------------------------------- coreException

TEST(corestringText, CoreExceptionHoldsItsOwnCopyOfTheText)
{
    static_assert(std::has_virtual_destructor_v<coreException>, "thrown and caught by base");
    wchar_t buffer[] = L"OutOfMem";
    coreException e(0, buffer);
    buffer[0] = L'X';
    EXPECT_EQ(0u, e.code());
    EXPECT_STREQ(L"OutOfMem", e.text());

    coreException copy(e);
    EXPECT_STREQ(L"OutOfMem", copy.text());
    EXPECT_NE(e.text(), copy.text());

    coreException other(7, L"other");
    other = e;
    EXPECT_EQ(0u, other.code());
    EXPECT_STREQ(L"OutOfMem", other.text());
    other = other;
    EXPECT_STREQ(L"OutOfMem", other.text());

    coreException none(3, nullptr);
    EXPECT_STREQ(L"", none.text());
}

// ---- WideToUtf8

TEST(WideToUtf8, AsciiIsUnchanged)
{
    EXPECT_EQ("SUCCESS 1.2", CORE::WideToUtf8(corestring(L"SUCCESS 1.2")));
}

TEST(WideToUtf8, EmptyGivesEmpty)
{
    EXPECT_EQ("", CORE::WideToUtf8(corestring()));
    EXPECT_EQ("", CORE::WideToUtf8(corestring(L"")));
}

TEST(WideToUtf8, NonAsciiBecomesUtf8Bytes)
{
    EXPECT_EQ("\xC3\xA9", CORE::WideToUtf8(corestring(L"\u00E9")));
    EXPECT_EQ("\xE6\x97\xA5", CORE::WideToUtf8(corestring(L"\u65E5")));
    // A surrogate pair is one four-byte character.
    EXPECT_EQ("\xF0\x9F\x98\x80", CORE::WideToUtf8(corestring(L"\xD83D\xDE00")));
}

TEST(WideToUtf8, StopsAtTheFirstZero)
{
    corestring withZero(L"ab\0cd", 5);
    ASSERT_EQ(5u, withZero.length());
    EXPECT_EQ("ab", CORE::WideToUtf8(withZero));
}
