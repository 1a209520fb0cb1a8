// Enumeration of a key's subkeys and values, and the number text preparation.
#include <gtest/gtest.h>

#include <cwchar>
#include <string>
#include <vector>

#include "fakes/FakePlatform.h"
#include "registry/RegistryEnumeration.h"
#include "update/UpdateRecordReader.h"

using CORE::corestring;
using fakes::FakeKeyStore;
using fakes::FakePlatform;

namespace {

const wchar_t* kKey = L"Software\\Tarvelle\\Zenthra\\Agent\\Update\\Job1";
const wchar_t* kKeyPath = L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Update\\Job1";
const wchar_t* kParent = L"Software\\Tarvelle\\Zenthra\\Agent\\Update";
const wchar_t* kParentPath = L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Update\\";

using fakes::whole;

std::vector<std::wstring> names(const CORE::StringList& list)
{
    std::vector<std::wstring> out;
    for (const corestring& s : list)
        out.push_back(whole(s));
    return out;
}

struct EnumerationTest : ::testing::Test {
    FakePlatform p;

    NoCaseMap readAll(const wchar_t* path = kKeyPath, bool use32 = false)
    {
        NoCaseMap map;
        RegistryReadAllValues(map, path, use32);
        EXPECT_EQ(0u, p.keys.openHandleCount()) << "a key was left open";
        return map;
    }
    CORE::StringList list(const wchar_t* path = kParentPath, bool use32 = false)
    {
        CORE::StringList out;
        RegistryListSubkeys(out, path, use32);
        EXPECT_EQ(0u, p.keys.openHandleCount()) << "a key was left open";
        return out;
    }
    std::wstring valueOf(const NoCaseMap& map, const wchar_t* name)
    {
        const corestring* found = map.find(name);
        EXPECT_NE(nullptr, found) << name;
        return found ? whole(*found) : L"<absent>";
    }
};

// ------------------------------------------------------------ subkeys

TEST_F(EnumerationTest, SubkeysOfAMissingKeyGiveAnEmptyListSilently)
{
    EXPECT_TRUE(list().empty());
    EXPECT_TRUE(p.logLines().empty());
}

TEST_F(EnumerationTest, SubkeysOfAKeyWithoutSubkeysGiveAnEmptyList)
{
    p.keys.createKey(HKEY_LOCAL_MACHINE, kParent);
    EXPECT_TRUE(list().empty());
}

TEST_F(EnumerationTest, SubkeysComeInThePlatformsOrder)
{
    p.keys.createKey(HKEY_LOCAL_MACHINE, std::wstring(kParent) + L"\\Zeta");
    p.keys.createKey(HKEY_LOCAL_MACHINE, std::wstring(kParent) + L"\\alpha");
    p.keys.createKey(HKEY_LOCAL_MACHINE, std::wstring(kParent) + L"\\Mid");
    EXPECT_EQ((std::vector<std::wstring>{L"Zeta", L"alpha", L"Mid"}), names(list()));
    p.keys.setEnumerationOrder(FakeKeyStore::Order::Alphabetical, FakeKeyStore::Order::Insertion);
    EXPECT_EQ((std::vector<std::wstring>{L"alpha", L"Mid", L"Zeta"}), names(list()));
}

TEST_F(EnumerationTest, SubkeyNamesAreTrimmedAndBlankOnesDropped)
{
    p.keys.createKey(HKEY_LOCAL_MACHINE, std::wstring(kParent) + L"\\ \tJob1 \r\n");
    p.keys.createKey(HKEY_LOCAL_MACHINE, std::wstring(kParent) + L"\\   ");
    p.keys.createKey(HKEY_LOCAL_MACHINE, std::wstring(kParent) + L"\\Job 2");
    EXPECT_EQ((std::vector<std::wstring>{L"Job1", L"Job 2"}), names(list()));
}

TEST_F(EnumerationTest, SubkeysAreOpenedForReadingOnly)
{
    p.keys.createKey(HKEY_LOCAL_MACHINE, std::wstring(kParent) + L"\\Job1");
    p.keys.clearLog();
    list();
    ASSERT_EQ(1u, p.keys.opens().size());
    EXPECT_EQ(L"open", p.keys.opens()[0].operation);
    EXPECT_EQ(0x20019u, static_cast<unsigned>(p.keys.opens()[0].rights));
    EXPECT_EQ(L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Update\\", p.keys.opens()[0].path);
}

TEST_F(EnumerationTest, SubkeysOfThe32BitView)
{
    p.keys.createKey(HKEY_LOCAL_MACHINE, std::wstring(kParent) + L"\\Native");
    p.keys.createKey(HKEY_LOCAL_MACHINE, std::wstring(kParent) + L"\\Wow", FakeKeyStore::View::Wow32);
    p.keys.clearLog();
    EXPECT_EQ((std::vector<std::wstring>{L"Wow"}), names(list(kParentPath, true)));
    ASSERT_EQ(1u, p.keys.opens().size());
    EXPECT_EQ(0x20219u, static_cast<unsigned>(p.keys.opens()[0].rights));
    EXPECT_EQ((std::vector<std::wstring>{L"Native"}), names(list(kParentPath, false)));
}

TEST_F(EnumerationTest, SubkeysAppendToTheList)
{
    p.keys.createKey(HKEY_LOCAL_MACHINE, std::wstring(kParent) + L"\\Job1");
    CORE::StringList out{corestring(L"earlier")};
    RegistryListSubkeys(out, kParentPath, false);
    EXPECT_EQ((std::vector<std::wstring>{L"earlier", L"Job1"}), names(out));
}

TEST_F(EnumerationTest, UnparsablePathsGiveNothing)
{
    p.keys.createKey(HKEY_LOCAL_MACHINE, std::wstring(kParent) + L"\\Job1");
    EXPECT_TRUE(list(L"").empty());
    EXPECT_TRUE(list(L"HKEY_LOCAL_MACHINE\\Software\\Tarvelle\\Zenthra\\Agent\\Update").empty());
    EXPECT_TRUE(readAll(L"").empty());
    EXPECT_TRUE(readAll(L"nohive").empty());
}

TEST_F(EnumerationTest, AKeyThatFailsToOpenLooksEmpty)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kKey, L"AGENT", L"TOVI");
    p.keys.failOpen(HKEY_LOCAL_MACHINE, kKey, ERROR_ACCESS_DENIED);
    EXPECT_TRUE(readAll().empty());
    EXPECT_TRUE(p.logLines().empty());
}

// ------------------------------------------------------------ values

TEST_F(EnumerationTest, ValuesAreOpenedForReadingOnly)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kKey, L"AGENT", L"TOVI");
    p.keys.clearLog();
    readAll();
    ASSERT_EQ(1u, p.keys.opens().size());
    EXPECT_EQ(0x20019u, static_cast<unsigned>(p.keys.opens()[0].rights));
    EXPECT_EQ(L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Update\\Job1", p.keys.opens()[0].path);
}

TEST_F(EnumerationTest, ValuesOfThe32BitView)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kKey, L"WHERE", L"native");
    p.keys.putString(HKEY_LOCAL_MACHINE, kKey, L"WHERE", L"wow", REG_SZ, FakeKeyStore::View::Wow32);
    EXPECT_EQ(L"wow", valueOf(readAll(kKeyPath, true), L"WHERE"));
    EXPECT_EQ(L"native", valueOf(readAll(kKeyPath, false), L"WHERE"));
}

TEST_F(EnumerationTest, DwordIsUnsignedDecimal)
{
    p.keys.putDword(HKEY_LOCAL_MACHINE, kKey, L"A", 3);
    p.keys.putDword(HKEY_LOCAL_MACHINE, kKey, L"B", 0xFFFFFFFFu);
    p.keys.putDword(HKEY_LOCAL_MACHINE, kKey, L"C", 0);
    NoCaseMap map = readAll();
    EXPECT_EQ(L"3", valueOf(map, L"A"));
    EXPECT_EQ(L"4294967295", valueOf(map, L"B"));
    EXPECT_EQ(L"0", valueOf(map, L"C"));
}

TEST_F(EnumerationTest, ShortDwordDataReadsOnlyItsBytes)
{
    p.keys.putBytes(HKEY_LOCAL_MACHINE, kKey, L"BIG", REG_BINARY, std::vector<BYTE>(40, 0xEE));
    p.keys.putBytes(HKEY_LOCAL_MACHINE, kKey, L"SHORT", REG_DWORD, {0x34, 0x12});
    EXPECT_EQ(L"4660", valueOf(readAll(), L"SHORT"));
}

TEST_F(EnumerationTest, QwordIsSignedDecimal)
{
    p.keys.putQword(HKEY_LOCAL_MACHINE, kKey, L"A", 1234567890123ull);
    p.keys.putQword(HKEY_LOCAL_MACHINE, kKey, L"B", 0xFFFFFFFFFFFFFFFFull);
    p.keys.putQword(HKEY_LOCAL_MACHINE, kKey, L"C", 0x8000000000000000ull);
    NoCaseMap map = readAll();
    EXPECT_EQ(L"1234567890123", valueOf(map, L"A"));
    EXPECT_EQ(L"-1", valueOf(map, L"B"));
    EXPECT_EQ(L"-9223372036854775808", valueOf(map, L"C"));
}

TEST_F(EnumerationTest, StringDropsItsTerminator)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kKey, L"A", L"TOVI");
    EXPECT_EQ(L"TOVI", valueOf(readAll(), L"A"));
}

TEST_F(EnumerationTest, StringWithoutTerminatorLosesItsLastCharacter)
{
    p.keys.putStringWithoutTerminator(HKEY_LOCAL_MACHINE, kKey, L"A", L"TOVI");
    EXPECT_EQ(L"TOV", valueOf(readAll(), L"A"));
}

TEST_F(EnumerationTest, StringOfOddLengthIsCutByIntegerDivision)
{
    // 7 bytes: (7 - 1) / 2 = 3 characters.
    p.keys.putBytes(HKEY_LOCAL_MACHINE, kKey, L"A", REG_SZ, {'a', 0, 'b', 0, 'c', 0, 'd'});
    // 1 byte: nothing is left.
    p.keys.putBytes(HKEY_LOCAL_MACHINE, kKey, L"B", REG_SZ, {'x'});
    NoCaseMap map = readAll();
    EXPECT_EQ(L"abc", valueOf(map, L"A"));
    EXPECT_EQ(L"", valueOf(map, L"B"));
}

TEST_F(EnumerationTest, StringKeepsEmbeddedNuls)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kKey, L"A", std::wstring(L"a\0b", 3));
    EXPECT_EQ(std::wstring(L"a\0b", 3), valueOf(readAll(), L"A"));
}

TEST_F(EnumerationTest, ExpandStringIsExpanded)
{
    p.keys.setEnvironment(L"ProgramData", L"C:\\ProgramData");
    p.keys.putString(HKEY_LOCAL_MACHINE, kKey, L"A", L"%ProgramData%\\x", REG_EXPAND_SZ);
    p.keys.putString(HKEY_LOCAL_MACHINE, kKey, L"B", L"%ProgramData%\\x", REG_SZ);
    NoCaseMap map = readAll();
    EXPECT_EQ(L"C:\\ProgramData\\x", valueOf(map, L"A"));
    EXPECT_EQ(L"%ProgramData%\\x", valueOf(map, L"B"));
    EXPECT_EQ(2u, p.keys.expandCount());
}

TEST_F(EnumerationTest, ExpandStringThatCannotBeExpandedStaysAsStored)
{
    p.keys.setEnvironment(L"ProgramData", L"C:\\ProgramData");
    p.keys.failExpansion(true);
    p.keys.putString(HKEY_LOCAL_MACHINE, kKey, L"A", L"%ProgramData%\\x", REG_EXPAND_SZ);
    EXPECT_EQ(L"%ProgramData%\\x", valueOf(readAll(), L"A"));
}

TEST_F(EnumerationTest, MultiStringIsTakenWithItsNuls)
{
    p.keys.putMultiString(HKEY_LOCAL_MACHINE, kKey, L"A", {L"one", L"two"});
    EXPECT_EQ(std::wstring(L"one\0two\0\0", 9), valueOf(readAll(), L"A"));
}

TEST_F(EnumerationTest, BinaryAndNoneAreTakenAsCharacters)
{
    p.keys.putBytes(HKEY_LOCAL_MACHINE, kKey, L"BIN", REG_BINARY, {'H', 0, 0, 0, 'i', 0, 'z'});
    p.keys.putBytes(HKEY_LOCAL_MACHINE, kKey, L"NONE", REG_NONE, {'o', 0, 'k', 0});
    p.keys.putBytes(HKEY_LOCAL_MACHINE, kKey, L"ODD", 77, {'7', 0});
    NoCaseMap map = readAll();
    EXPECT_EQ(std::wstring(L"H\0i", 3), valueOf(map, L"BIN"));
    EXPECT_EQ(L"ok", valueOf(map, L"NONE"));
    EXPECT_EQ(L"7", valueOf(map, L"ODD"));
}

TEST_F(EnumerationTest, EmptyDataGivesEmptyTextForEveryType)
{
    p.keys.putBytes(HKEY_LOCAL_MACHINE, kKey, L"DW", REG_DWORD, {});
    p.keys.putBytes(HKEY_LOCAL_MACHINE, kKey, L"QW", REG_QWORD, {});
    p.keys.putBytes(HKEY_LOCAL_MACHINE, kKey, L"SZ", REG_SZ, {});
    p.keys.putBytes(HKEY_LOCAL_MACHINE, kKey, L"BIN", REG_BINARY, {});
    NoCaseMap map = readAll();
    ASSERT_EQ(4u, map.size());
    for (const wchar_t* name : {L"DW", L"QW", L"SZ", L"BIN"})
        EXPECT_EQ(L"", valueOf(map, name)) << name;
}

TEST_F(EnumerationTest, DataOf8191BytesIsKept)
{
    std::vector<BYTE> bytes(8191, 0);
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2)
        bytes[i] = 'm';
    p.keys.putBytes(HKEY_LOCAL_MACHINE, kKey, L"BIN", REG_BINARY, bytes);
    p.keys.putBytes(HKEY_LOCAL_MACHINE, kKey, L"SZ", REG_SZ, bytes);
    p.keys.putString(HKEY_LOCAL_MACHINE, kKey, L"LATER", L"here");
    NoCaseMap map = readAll();
    EXPECT_EQ(std::wstring(4095, L'm'), valueOf(map, L"BIN"));
    EXPECT_EQ(std::wstring(4095, L'm'), valueOf(map, L"SZ"));
    EXPECT_EQ(L"here", valueOf(map, L"LATER"));
}

TEST_F(EnumerationTest, DataOf8192BytesEndsTheEnumerationInInsertionOrder)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kKey, L"FIRST", L"1");
    p.keys.putBytes(HKEY_LOCAL_MACHINE, kKey, L"BIG", REG_BINARY, std::vector<BYTE>(8192, 'x'));
    p.keys.putString(HKEY_LOCAL_MACHINE, kKey, L"AFTER", L"2");
    NoCaseMap map = readAll();
    ASSERT_EQ(1u, map.size());
    EXPECT_EQ(L"1", valueOf(map, L"FIRST"));
    EXPECT_EQ(nullptr, map.find(L"BIG"));
    EXPECT_EQ(nullptr, map.find(L"AFTER"));
}

TEST_F(EnumerationTest, DataOf8192BytesEndsTheEnumerationInAlphabeticalOrder)
{
    p.keys.setEnumerationOrder(FakeKeyStore::Order::Insertion, FakeKeyStore::Order::Alphabetical);
    p.keys.putString(HKEY_LOCAL_MACHINE, kKey, L"ZULU", L"z");
    p.keys.putBytes(HKEY_LOCAL_MACHINE, kKey, L"MIKE", REG_SZ, std::vector<BYTE>(8192, 'x'));
    p.keys.putString(HKEY_LOCAL_MACHINE, kKey, L"ALPHA", L"a");
    NoCaseMap map = readAll();
    ASSERT_EQ(1u, map.size());
    EXPECT_EQ(L"a", valueOf(map, L"ALPHA"));
    EXPECT_EQ(nullptr, map.find(L"ZULU"));
}

TEST_F(EnumerationTest, DefaultValueIsLeftOut)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kKey, L"", L"default");
    p.keys.putString(HKEY_LOCAL_MACHINE, kKey, L"AGENT", L"TOVI");
    NoCaseMap map = readAll();
    ASSERT_EQ(1u, map.size());
    EXPECT_EQ(L"TOVI", valueOf(map, L"AGENT"));
}

TEST_F(EnumerationTest, NamesAreTrimmedAndFoundInAnyCase)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kKey, L" \tagent\r\n ", L"TOVI");
    NoCaseMap map = readAll();
    ASSERT_EQ(1u, map.size());
    EXPECT_EQ(L"agent", whole(map.entries()[0].first));
    EXPECT_EQ(L"TOVI", valueOf(map, L"AGENT"));
    EXPECT_EQ(L"TOVI", valueOf(map, L"Agent"));
}

TEST_F(EnumerationTest, ANameOfBlanksOnlyStoresAnEmptyTextUnderTheEmptyName)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kKey, L"  \t ", L"lost");
    NoCaseMap map = readAll();
    ASSERT_EQ(1u, map.size());
    EXPECT_EQ(L"", whole(map.entries()[0].first));
    EXPECT_EQ(L"", whole(map.entries()[0].second));
}

TEST_F(EnumerationTest, TwoNamesThatTrimToTheSameNameKeepTheLaterText)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kKey, L"AGENT", L"TOVI");
    p.keys.putString(HKEY_LOCAL_MACHINE, kKey, L" agent ", L"OTHER");
    NoCaseMap map = readAll();
    ASSERT_EQ(1u, map.size());
    EXPECT_EQ(L"OTHER", valueOf(map, L"AGENT"));
}

// ------------------------------------------------------------ numbers

TEST(ParseNumberText, TrimsAndDropsLeadingZerosBeforeDigits)
{
    const std::pair<const wchar_t*, const wchar_t*> cases[] = {
        {L"010", L"10"},       {L"0", L"0"},         {L"000", L"0"},       {L" \t\r\n42\n ", L"42"},
        {L"-007", L"-7"},      {L"+010", L"+10"},    {L"0x10", L"0x10"},   {L"00x10", L"0x10"},
        {L"", L""},            {L"abc", L"abc"},     {L"00.5", L"0.5"},    {L"-", L"-"},
        {L"0010abc", L"10abc"}, {L"- 5", L"- 5"},    {L"+-0", L"+-0"},     {L"-0", L"-0"},
        {L"1 0", L"1 0"},
    };
    for (const auto& [in, out] : cases)
        EXPECT_EQ(std::wstring(out), whole(ParseNumberText(corestring(in)))) << in;
}

TEST(ParseNumberText, BaseZeroNeverReadsOctal)
{
    auto signedOf = [](const wchar_t* t) { return std::wcstol(ParseNumberText(corestring(t)).c_str(), nullptr, 0); };
    EXPECT_EQ(10, signedOf(L"010"));
    EXPECT_EQ(16, signedOf(L"0x10"));
    EXPECT_EQ(16, signedOf(L"0X10"));
    EXPECT_EQ(-8, signedOf(L"-0008"));
    EXPECT_EQ(0, signedOf(L"0"));
    EXPECT_EQ(0, signedOf(L"abc"));
    EXPECT_EQ(9, signedOf(L" 09 "));
}

TEST(ParseNumberText, NullTextGivesEmpty)
{
    EXPECT_TRUE(ParseNumberText(corestring()).empty());
}

}  // namespace
