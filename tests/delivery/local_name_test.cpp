// The payload's local name, taken from the first URL as the tool takes it.
#include <gtest/gtest.h>

#include <string>

#include "LocalName.h"

namespace {

std::string refusal(const std::wstring& name)
{
    std::string why;
    EXPECT_FALSE(mirel::checkLocalName(name, why));
    return why;
}

TEST(LocalName, IsTheLastPathComponent)
{
    EXPECT_EQ(mirel::localNameFromUrl(L"https://localhost/packages/agent-8.12.0.msi"), L"agent-8.12.0.msi");
}

TEST(LocalName, KeepsTheQueryString)
{
    EXPECT_EQ(mirel::localNameFromUrl(L"https://localhost/a.msi?x=1"), L"a.msi?x=1");
}

TEST(LocalName, FollowsASlashInTheQuery)
{
    EXPECT_EQ(mirel::localNameFromUrl(L"https://localhost/get?file=dir/b.msi"), L"b.msi");
}

TEST(LocalName, TakesBackslashesAsSeparatorsToo)
{
    EXPECT_EQ(mirel::localNameFromUrl(L"https://localhost/a\\b.msi"), L"b.msi");
}

TEST(LocalName, IsEmptyForATrailingSlash) { EXPECT_EQ(mirel::localNameFromUrl(L"https://localhost/dir/"), L""); }

TEST(LocalName, IsTheHostWithoutAPath) { EXPECT_EQ(mirel::localNameFromUrl(L"https://localhost"), L"localhost"); }

TEST(LocalName, DecodesPercentEscapes)
{
    EXPECT_EQ(mirel::localNameFromUrl(L"https://localhost/agent%20setup.msi"), L"agent setup.msi");
}

TEST(LocalName, TurnsPlusIntoABlankOnlyWhenThereIsAPercent)
{
    EXPECT_EQ(mirel::localNameFromUrl(L"https://localhost/a+b.msi"), L"a+b.msi");
    EXPECT_EQ(mirel::localNameFromUrl(L"https://localhost/a+b%2C.msi"), L"a b,.msi");
}

TEST(LocalName, DecodesEachEscapeToOneWideCharacter)
{
    // No UTF-8 joining: %C3%A9 is two characters, U+00C3 and U+00A9.
    EXPECT_EQ(mirel::localNameFromUrl(L"https://localhost/%C3%A9.msi"), std::wstring(L"\u00C3\u00A9.msi"));
}

TEST(LocalName, ReadsEscapesAsWcstolDoes)
{
    // "4G" reads as 4, "GG" as 0 (a NUL), "-1" as -1 (0xFFFF).
    EXPECT_EQ(mirel::decodeLikeTheTool(L"a%4Gb"), std::wstring(L"a\x0004"
                                                               L"b"));
    EXPECT_EQ(mirel::decodeLikeTheTool(L"a%GGb"), std::wstring(L"a\0b", 3));
    EXPECT_EQ(mirel::decodeLikeTheTool(L"a%-1b"), std::wstring(L"a\xFFFF"
                                                               L"b"));
}

TEST(LocalName, LeavesAPercentWithoutTwoCharactersAfterIt)
{
    EXPECT_EQ(mirel::decodeLikeTheTool(L"ab%41"), L"abA");
    EXPECT_EQ(mirel::decodeLikeTheTool(L"ab%4"), L"ab%4");
    EXPECT_EQ(mirel::decodeLikeTheTool(L"ab%"), L"ab%");
    // "%4" after the first '%' is no number: wcstol gives 0.
    EXPECT_EQ(mirel::decodeLikeTheTool(L"%%41"), std::wstring(L"\0"
                                                              L"1",
                                                              2));
}

TEST(LocalName, AcceptsAnOrdinaryName)
{
    std::string why;
    EXPECT_TRUE(mirel::checkLocalName(L"Agent Setup (x64) 8.12.msi", why)) << why;
    EXPECT_TRUE(mirel::checkLocalName(L"\u00E9t\u00E9.msi", why)) << why;
}

TEST(LocalName, RefusesAnEmptyName) { EXPECT_EQ(refusal(L""), "the name is empty (the URL ends in '/')"); }

TEST(LocalName, RefusesDotNames)
{
    EXPECT_EQ(refusal(L"."), "the name \".\" names a folder, not a file");
    EXPECT_EQ(refusal(L".."), "the name \"..\" names a folder, not a file");
}

TEST(LocalName, RefusesEachCharacterWindowsRefuses)
{
    for (const wchar_t c : std::wstring(L"<>:\"/\\|?*")) {
        std::wstring name = L"a";
        name.push_back(c);
        name += L"b.msi";
        std::string why;
        EXPECT_FALSE(mirel::checkLocalName(name, why)) << static_cast<int>(c);
        EXPECT_NE(why.find("which Windows refuses in a file name"), std::string::npos) << why;
    }
}

TEST(LocalName, NamesTheRefusedCharacter)
{
    EXPECT_EQ(refusal(L"a.msi?x=1"),
              "the name \"a.msi?x=1\" contains U+003F '?' at position 6, which Windows refuses in a file name");
}

TEST(LocalName, RefusesControlCharacters)
{
    EXPECT_EQ(refusal(std::wstring(L"a\0b", 3)),
              "the name \"a\\x00b\" contains U+0000 at position 2, which Windows refuses in a file name");
    EXPECT_EQ(refusal(L"a\x001F"
                      L"b"),
              "the name \"a\\x1fb\" contains U+001F at position 2, which Windows refuses in a file name");
}

TEST(LocalName, RefusesADecodedPathSeparator)
{
    // "..%5Cevil.exe" would otherwise climb out of the workspace.
    const std::wstring name = mirel::localNameFromUrl(L"https://localhost/..%5Cevil.exe");
    EXPECT_EQ(name, L"..\\evil.exe");
    std::string why;
    EXPECT_FALSE(mirel::checkLocalName(name, why));
}

TEST(LocalName, RefusesATrailingDotOrBlank)
{
    EXPECT_EQ(refusal(L"a.msi."), "the name \"a.msi.\" ends in a dot or blank, which Windows drops");
    EXPECT_EQ(refusal(L"a.msi "), "the name \"a.msi \" ends in a dot or blank, which Windows drops");
}

TEST(LocalName, RefusesDeviceNames)
{
    EXPECT_EQ(refusal(L"CON"), "the name \"CON\" is a device name");
    EXPECT_EQ(refusal(L"nul.msi"), "the name \"nul.msi\" is a device name");
    EXPECT_EQ(refusal(L"com1.txt"), "the name \"com1.txt\" is a device name");
    EXPECT_EQ(refusal(L"LPT9"), "the name \"LPT9\" is a device name");
    std::string why;
    EXPECT_TRUE(mirel::checkLocalName(L"console.msi", why)) << why;
    EXPECT_TRUE(mirel::checkLocalName(L"com10.msi", why)) << why;
}

TEST(LocalName, RefusesANameTooLongForItsPartialFile)
{
    std::string why;
    EXPECT_TRUE(mirel::checkLocalName(std::wstring(242, L'a'), why)) << why;
    EXPECT_EQ(refusal(std::wstring(243, L'a')), "the name is 243 characters long; at most 242 are taken");
}

TEST(LocalName, SanitizesAnArchiveName)
{
    EXPECT_EQ(mirel::sanitizedName(L"get?pkg=a.tar"), L"get_pkg=a.tar");
    EXPECT_EQ(mirel::sanitizedName(L"a.tar"), L"a.tar");
    EXPECT_EQ(mirel::sanitizedName(L"a.tar. "), L"a.tar");
}

TEST(LocalName, GivesAnArchiveAFixedNameWhenNothingIsLeft)
{
    EXPECT_EQ(mirel::sanitizedName(L""), L"payload.tar");
    EXPECT_EQ(mirel::sanitizedName(L".."), L"payload.tar");
    EXPECT_EQ(mirel::sanitizedName(L"nul"), L"payload.tar");
}

}  // namespace
