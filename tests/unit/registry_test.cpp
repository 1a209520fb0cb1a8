#include <gtest/gtest.h>

#include <cstring>
#include <cwchar>
#include <iterator>
#include <string>
#include <vector>

#include "registry/Registry.h"
#include "registry_test_support.h"

using namespace registry_test;
using View = FakeKeyStore::View;

namespace {

class RegistryPathTest : public FakeRegistryTest {};
class RegistryReadTest : public FakeRegistryTest {};
class RegistryWriteTest : public FakeRegistryTest {};
class RegistryKeyTest : public FakeRegistryTest {};
class RegistryDeleteTest : public FakeRegistryTest {};

constexpr wchar_t kKey[] = L"Software\\Tarvelle\\Zenthra\\Agent";

// ---------------------------------------------------------------- parsing

TEST_F(RegistryPathTest, ForwardSlashesCountAsBackslashes)
{
    corestring subkey, value;
    EXPECT_EQ(HKEY_LOCAL_MACHINE, ParseRegistryPath(L"hklm/software/x/y", subkey, value));
    EXPECT_EQ(L"software\\x", text(subkey));
    EXPECT_EQ(L"y", text(value));
}

TEST_F(RegistryPathTest, EachShortHiveWordIgnoringCase)
{
    struct Case {
        const wchar_t* path;
        HKEY hive;
    };
    const Case cases[] = {
        {L"HKLM\\a\\v", HKEY_LOCAL_MACHINE},  {L"hkcu\\a\\v", HKEY_CURRENT_USER}, {L"HkCr\\a\\v", HKEY_CLASSES_ROOT},
        {L"hKcC\\a\\v", HKEY_CURRENT_CONFIG}, {L"hku\\a\\v", HKEY_USERS},
    };
    for (const Case& c : cases) {
        corestring subkey, value;
        EXPECT_EQ(c.hive, ParseRegistryPath(c.path, subkey, value)) << c.path;
        EXPECT_EQ(L"a", text(subkey)) << c.path;
        EXPECT_EQ(L"v", text(value)) << c.path;
    }
    corestring subkey, value;
    const std::uint32_t expected[] = {0x80000002u, 0x80000001u, 0x80000000u, 0x80000005u, 0x80000003u};
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        HKEY hive = ParseRegistryPath(cases[i].path, subkey, value);
        EXPECT_EQ(expected[i], static_cast<std::uint32_t>(reinterpret_cast<ULONG_PTR>(hive))) << cases[i].path;
    }
}

TEST_F(RegistryPathTest, LongHiveNamesAreNotUnderstood)
{
    corestring subkey, value;
    EXPECT_EQ(nullptr, ParseRegistryPath(L"HKEY_LOCAL_MACHINE\\Software\\x", subkey, value));
    EXPECT_EQ(nullptr, ParseRegistryPath(L"HKEY_USERS\\S-1-5\\x", subkey, value));
}

TEST_F(RegistryPathTest, UnknownOrMisplacedHiveWordsFail)
{
    const wchar_t* bad[] = {
        L"HKXX\\a\\v",  // unknown four-letter word
        L"HKL\\a\\v",   // three letters, not HKU
        L"HK\\a\\v",    // two letters
        L"\\a\\v",      // no word at all
        L"HKLMX\\a\\v", // backslash only at the sixth place
        L"HKLM",        // no backslash
        L"HCU\\a\\v",   // the shortened forms are not hive words
        L"HU\\a\\v",
    };
    for (const wchar_t* path : bad) {
        corestring subkey, value;
        EXPECT_EQ(nullptr, ParseRegistryPath(path, subkey, value)) << path;
    }
}

TEST_F(RegistryPathTest, NullOrEmptyPathFails)
{
    corestring subkey, value;
    EXPECT_EQ(nullptr, ParseRegistryPath(nullptr, subkey, value));
    EXPECT_EQ(nullptr, ParseRegistryPath(L"", subkey, value));
}

TEST_F(RegistryPathTest, SingleBackslashNamesKeyLikeTheValue)
{
    corestring subkey, value;
    EXPECT_EQ(HKEY_LOCAL_MACHINE, ParseRegistryPath(L"HKLM\\Name", subkey, value));
    EXPECT_EQ(L"Name", text(subkey));
    EXPECT_EQ(L"Name", text(value));
}

TEST_F(RegistryPathTest, EmptyFirstComponentFails)
{
    corestring subkey, value;
    EXPECT_EQ(nullptr, ParseRegistryPath(L"HKLM\\\\Name", subkey, value));
}

TEST_F(RegistryPathTest, TrailingBackslashNamesTheDefaultValue)
{
    corestring subkey, value;
    EXPECT_EQ(HKEY_LOCAL_MACHINE, ParseRegistryPath(L"HKLM\\Software\\x\\", subkey, value));
    EXPECT_EQ(L"Software\\x", text(subkey));
    EXPECT_TRUE(value.empty());
}

TEST_F(RegistryPathTest, RootsAreTheTwoBrandsKeys)
{
    EXPECT_EQ(L"HKLM\\Software\\Tarvelle\\Zenthra", text(GetNewRootKeyPath()));
    EXPECT_EQ(L"HKLM\\Software\\Kesmarc, Inc.\\Kesmarc TQM", text(GetLegacyRootKeyPath()));
}

TEST_F(RegistryPathTest, RootsAreFreshCopies)
{
    corestring first = GetNewRootKeyPath();
    first.append(L"\\Agent");
    corestring legacy = GetLegacyRootKeyPath();
    legacy.append(L"\\Agent");
    EXPECT_EQ(L"HKLM\\Software\\Tarvelle\\Zenthra", text(GetNewRootKeyPath()));
    EXPECT_EQ(L"HKLM\\Software\\Kesmarc, Inc.\\Kesmarc TQM", text(GetLegacyRootKeyPath()));
}

// ---------------------------------------------------------------- reading

TEST_F(RegistryReadTest, StringWithTerminator)
{
    keys.putString(HKEY_LOCAL_MACHINE, kKey, L"Name", L"hello");
    corestring out;
    EXPECT_EQ(static_cast<std::uint32_t>(REG_SZ),
              RegistryRead(out, L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Name", kRegAnyType, false));
    EXPECT_EQ(L"hello", text(out));
    EXPECT_EQ(5u, out.length());
}

TEST_F(RegistryReadTest, StringWithoutTerminatorLosesItsLastCharacter)
{
    keys.putStringWithoutTerminator(HKEY_LOCAL_MACHINE, kKey, L"Name", L"abc");
    corestring out;
    EXPECT_EQ(static_cast<std::uint32_t>(REG_SZ),
              RegistryRead(out, L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Name", kRegAnyType, false));
    EXPECT_EQ(L"ab", text(out));
}

TEST_F(RegistryReadTest, PathCaseDoesNotMatter)
{
    keys.putString(HKEY_LOCAL_MACHINE, kKey, L"Name", L"x");
    corestring out;
    EXPECT_EQ(static_cast<std::uint32_t>(REG_SZ),
              RegistryRead(out, L"hklm\\SOFTWARE\\tarvelle\\ZENTHRA\\agent\\NAME", kRegAnyType, false));
    EXPECT_EQ(L"x", text(out));
}

TEST_F(RegistryReadTest, ExpandStringIsExpanded)
{
    keys.setEnvironment(L"ProgramData", L"C:\\ProgramData");
    keys.putString(HKEY_LOCAL_MACHINE, kKey, L"Dir", L"%ProgramData%\\Tarvelle", REG_EXPAND_SZ);
    corestring out;
    EXPECT_EQ(static_cast<std::uint32_t>(REG_EXPAND_SZ),
              RegistryRead(out, L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Dir", kRegAnyType, false));
    EXPECT_EQ(L"C:\\ProgramData\\Tarvelle", text(out));
}

TEST_F(RegistryReadTest, ExpandStringWithUnknownNameStaysAsWritten)
{
    keys.putString(HKEY_LOCAL_MACHINE, kKey, L"Dir", L"%NoSuchVariable%\\x", REG_EXPAND_SZ);
    corestring out;
    ASSERT_NE(kRegReadFailed, RegistryRead(out, L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Dir", kRegAnyType, false));
    EXPECT_EQ(L"%NoSuchVariable%\\x", text(out));
}

TEST_F(RegistryReadTest, ExpandStringStaysUnexpandedWhenExpansionFails)
{
    keys.setEnvironment(L"ProgramData", L"C:\\ProgramData");
    keys.failExpansion(true);
    keys.putString(HKEY_LOCAL_MACHINE, kKey, L"Dir", L"%ProgramData%\\x", REG_EXPAND_SZ);
    corestring out;
    EXPECT_EQ(static_cast<std::uint32_t>(REG_EXPAND_SZ),
              RegistryRead(out, L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Dir", kRegAnyType, false));
    EXPECT_EQ(L"%ProgramData%\\x", text(out));
    EXPECT_GE(keys.expandCount(), 1u);
}

TEST_F(RegistryReadTest, EmptyExpandStringStaysEmpty)
{
    keys.putString(HKEY_LOCAL_MACHINE, kKey, L"Dir", L"", REG_EXPAND_SZ);
    corestring out;
    EXPECT_EQ(static_cast<std::uint32_t>(REG_EXPAND_SZ),
              RegistryRead(out, L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Dir", kRegAnyType, false));
    EXPECT_TRUE(out.empty());
}

TEST_F(RegistryReadTest, PlainStringIsNotExpanded)
{
    keys.setEnvironment(L"ProgramData", L"C:\\ProgramData");
    keys.putString(HKEY_LOCAL_MACHINE, kKey, L"Dir", L"%ProgramData%");
    corestring out;
    ASSERT_NE(kRegReadFailed, RegistryRead(out, L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Dir", kRegAnyType, false));
    EXPECT_EQ(L"%ProgramData%", text(out));
    EXPECT_EQ(0u, keys.expandCount());
}

TEST_F(RegistryReadTest, MultiStringKeepsItsEmbeddedTerminators)
{
    keys.putMultiString(HKEY_LOCAL_MACHINE, kKey, L"List", {L"one", L"two"});
    corestring out;
    EXPECT_EQ(static_cast<std::uint32_t>(REG_MULTI_SZ),
              RegistryRead(out, L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\List", kRegAnyType, false));
    EXPECT_EQ(9u, out.length());
    EXPECT_EQ(std::wstring(L"one\0two\0\0", 9), text(out));
    // Read as a C string it is only its first string.
    EXPECT_EQ(3u, std::wcslen(out.c_str()));
    EXPECT_STREQ(L"one", out.c_str());
}

TEST_F(RegistryReadTest, BinaryKeepsEveryBytePair)
{
    keys.putBytes(HKEY_LOCAL_MACHINE, kKey, L"Blob", REG_BINARY, {0x41, 0x00, 0x42, 0x00, 0x00, 0x00});
    corestring out;
    EXPECT_EQ(static_cast<std::uint32_t>(REG_BINARY),
              RegistryRead(out, L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Blob", kRegAnyType, false));
    EXPECT_EQ(std::wstring(L"AB\0", 3), text(out));
}

TEST_F(RegistryReadTest, BinaryOfOddSizeDropsItsLastByte)
{
    keys.putBytes(HKEY_LOCAL_MACHINE, kKey, L"Blob", REG_BINARY, {0x41, 0x00, 0x42});
    corestring out;
    EXPECT_EQ(static_cast<std::uint32_t>(REG_BINARY),
              RegistryRead(out, L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Blob", kRegAnyType, false));
    EXPECT_EQ(L"A", text(out));
}

TEST_F(RegistryReadTest, DwordAllOnesIsUnsignedDecimal)
{
    keys.putDword(HKEY_LOCAL_MACHINE, kKey, L"N", 4294967295u);
    corestring out;
    EXPECT_EQ(static_cast<std::uint32_t>(REG_DWORD),
              RegistryRead(out, L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\N", kRegAnyType, false));
    EXPECT_EQ(L"4294967295", text(out));
}

TEST_F(RegistryReadTest, DwordSmallValuesAreDecimal)
{
    keys.putDword(HKEY_LOCAL_MACHINE, kKey, L"Zero", 0);
    keys.putDword(HKEY_LOCAL_MACHINE, kKey, L"Sixteen", 16);
    corestring out;
    ASSERT_NE(kRegReadFailed, RegistryRead(out, L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Zero", kRegAnyType, false));
    EXPECT_EQ(L"0", text(out));
    ASSERT_NE(kRegReadFailed,
              RegistryRead(out, L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Sixteen", kRegAnyType, false));
    EXPECT_EQ(L"16", text(out));
}

TEST_F(RegistryReadTest, QwordIsUnsigned64BitDecimal)
{
    keys.putQword(HKEY_LOCAL_MACHINE, kKey, L"Big", 18446744073709551615ull);
    keys.putQword(HKEY_LOCAL_MACHINE, kKey, L"Mid", 1234567890123ull);
    corestring out;
    EXPECT_EQ(static_cast<std::uint32_t>(REG_QWORD),
              RegistryRead(out, L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Big", kRegAnyType, false));
    EXPECT_EQ(L"18446744073709551615", text(out));
    EXPECT_EQ(static_cast<std::uint32_t>(REG_QWORD),
              RegistryRead(out, L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Mid", kRegAnyType, false));
    EXPECT_EQ(L"1234567890123", text(out));
}

TEST_F(RegistryReadTest, EmptyDataIsEmptyTextNotFailure)
{
    keys.putValue(HKEY_LOCAL_MACHINE, kKey, L"EmptySz", REG_SZ, nullptr, 0);
    keys.putValue(HKEY_LOCAL_MACHINE, kKey, L"EmptyBin", REG_BINARY, nullptr, 0);
    corestring out(L"previous");
    EXPECT_EQ(static_cast<std::uint32_t>(REG_SZ),
              RegistryRead(out, L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\EmptySz", kRegAnyType, false));
    EXPECT_TRUE(out.empty());
    out = L"previous";
    EXPECT_EQ(static_cast<std::uint32_t>(REG_BINARY),
              RegistryRead(out, L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\EmptyBin", kRegAnyType, false));
    EXPECT_TRUE(out.empty());
}

TEST_F(RegistryReadTest, LargeStringsAreReadWhole)
{
    // Around the point where the buffer moves off the stack, and well past it.
    for (std::size_t characters : {498u, 499u, 500u, 8192u, 20000u}) {
        std::wstring big;
        for (std::size_t i = 0; i < characters; ++i)
            big.push_back(static_cast<wchar_t>(L'a' + i % 26));
        keys.putString(HKEY_LOCAL_MACHINE, kKey, L"Big", big);
        corestring out;
        ASSERT_EQ(static_cast<std::uint32_t>(REG_SZ),
                  RegistryRead(out, L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Big", kRegAnyType, false))
            << characters;
        EXPECT_EQ(big, text(out)) << characters;
    }
}

TEST_F(RegistryReadTest, LargeBinaryIsReadWhole)
{
    std::vector<BYTE> bytes(16 * 1024 + 2);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<BYTE>(i * 7 + 1);
    keys.putBytes(HKEY_LOCAL_MACHINE, kKey, L"Blob", REG_BINARY, bytes);
    corestring out;
    ASSERT_EQ(static_cast<std::uint32_t>(REG_BINARY),
              RegistryRead(out, L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Blob", kRegAnyType, false));
    ASSERT_EQ(bytes.size() / 2, out.length());
    EXPECT_EQ(0, std::memcmp(bytes.data(), out.c_str(), bytes.size()));
}

TEST_F(RegistryReadTest, TypeFilterRejectsOtherTypeWithoutSecondRead)
{
    keys.putDword(HKEY_LOCAL_MACHINE, kKey, L"N", 5);
    corestring out(L"previous");
    ::SetLastError(0);
    EXPECT_EQ(kRegReadFailed, RegistryRead(out, L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\N", REG_SZ, false));
    EXPECT_EQ(static_cast<DWORD>(ERROR_INVALID_DATA), ::GetLastError());
    EXPECT_EQ(nullptr, out.handle());
    EXPECT_EQ(1u, keys.queryCount());
}

TEST_F(RegistryReadTest, TypeFilterAcceptsTheStoredType)
{
    keys.putDword(HKEY_LOCAL_MACHINE, kKey, L"N", 5);
    corestring out;
    EXPECT_EQ(static_cast<std::uint32_t>(REG_DWORD),
              RegistryRead(out, L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\N", REG_DWORD, false));
    EXPECT_EQ(L"5", text(out));
}

TEST_F(RegistryReadTest, MissingValueFailsWithPlatformCode)
{
    keys.createKey(HKEY_LOCAL_MACHINE, kKey);
    corestring out(L"previous");
    EXPECT_EQ(kRegReadFailed, RegistryRead(out, L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Nope", kRegAnyType, false));
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), ::GetLastError());
    EXPECT_EQ(nullptr, out.handle());
}

TEST_F(RegistryReadTest, MissingKeyFailsWithPlatformCode)
{
    corestring out(L"previous");
    EXPECT_EQ(kRegReadFailed, RegistryRead(out, L"HKLM\\Software\\Nope\\Value", kRegAnyType, false));
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), ::GetLastError());
    EXPECT_EQ(nullptr, out.handle());
}

TEST_F(RegistryReadTest, OpenFailureCodeIsTheLastError)
{
    keys.putString(HKEY_LOCAL_MACHINE, kKey, L"Name", L"x");
    keys.failOpen(HKEY_LOCAL_MACHINE, kKey, ERROR_ACCESS_DENIED);
    corestring out;
    EXPECT_EQ(kRegReadFailed, RegistryRead(out, L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Name", kRegAnyType, false));
    EXPECT_EQ(static_cast<DWORD>(ERROR_ACCESS_DENIED), ::GetLastError());
}

TEST_F(RegistryReadTest, QueryFailureCodeIsTheLastError)
{
    keys.putString(HKEY_LOCAL_MACHINE, kKey, L"Name", L"x");
    keys.failQueries(ERROR_REGISTRY_IO_FAILED);
    corestring out(L"previous");
    EXPECT_EQ(kRegReadFailed, RegistryRead(out, L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Name", kRegAnyType, false));
    EXPECT_EQ(static_cast<DWORD>(ERROR_REGISTRY_IO_FAILED), ::GetLastError());
    EXPECT_EQ(nullptr, out.handle());
}

TEST_F(RegistryReadTest, UnparsablePathFailsWithPathNotFound)
{
    corestring out(L"previous");
    EXPECT_EQ(kRegReadFailed, RegistryRead(out, L"HKLM\\\\Name", kRegAnyType, false));
    EXPECT_EQ(static_cast<DWORD>(ERROR_PATH_NOT_FOUND), ::GetLastError());
    EXPECT_EQ(nullptr, out.handle());
    EXPECT_TRUE(keys.opens().empty());
}

TEST_F(RegistryReadTest, LongHiveNameFailsAndGivesTheDefault)
{
    keys.putString(HKEY_LOCAL_MACHINE, L"Software\\x", L"Name", L"stored");
    corestring out;
    EXPECT_EQ(kRegReadFailed, RegistryRead(out, L"HKEY_LOCAL_MACHINE\\Software\\x\\Name", kRegAnyType, false));
    EXPECT_EQ(static_cast<DWORD>(ERROR_PATH_NOT_FOUND), ::GetLastError());
    EXPECT_EQ(L"fallback", text(RegistryReadOrDefault(L"HKEY_LOCAL_MACHINE\\Software\\x\\Name", L"fallback")));
    EXPECT_EQ(L"stored", text(RegistryReadOrDefault(L"HKLM\\Software\\x\\Name", L"fallback")));
}

TEST_F(RegistryReadTest, SingleBackslashReadsValueInKeyOfTheSameName)
{
    keys.putString(HKEY_LOCAL_MACHINE, L"", L"Name", L"at the root");
    keys.putString(HKEY_LOCAL_MACHINE, L"Name", L"Name", L"in the key");
    corestring out;
    ASSERT_NE(kRegReadFailed, RegistryRead(out, L"HKLM\\Name", kRegAnyType, false));
    EXPECT_EQ(L"in the key", text(out));
    ASSERT_FALSE(keys.opens().empty());
    EXPECT_EQ(L"HKLM\\Name", keys.opens().back().path);
}

TEST_F(RegistryReadTest, EmptyFirstComponentFails)
{
    keys.putString(HKEY_LOCAL_MACHINE, L"Name", L"Name", L"x");
    corestring out;
    EXPECT_EQ(kRegReadFailed, RegistryRead(out, L"HKLM\\\\Name", kRegAnyType, false));
    EXPECT_EQ(L"default", text(RegistryReadOrDefault(L"HKLM\\\\Name", L"default")));
}

TEST_F(RegistryReadTest, TrailingBackslashReadsTheKeysDefaultValue)
{
    keys.putString(HKEY_LOCAL_MACHINE, L"Software\\x", L"", L"default value");
    keys.putString(HKEY_LOCAL_MACHINE, L"Software\\x", L"x", L"named value");
    corestring out;
    EXPECT_EQ(static_cast<std::uint32_t>(REG_SZ), RegistryRead(out, L"HKLM\\Software\\x\\", kRegAnyType, false));
    EXPECT_EQ(L"default value", text(out));
}

TEST_F(RegistryReadTest, OpensForQueryOnlyAndClosesTheKey)
{
    keys.putString(HKEY_LOCAL_MACHINE, kKey, L"Name", L"x");
    corestring out;
    ASSERT_NE(kRegReadFailed, RegistryRead(out, L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Name", kRegAnyType, false));
    ASSERT_EQ(1u, keys.opens().size());
    EXPECT_EQ(static_cast<REGSAM>(KEY_QUERY_VALUE), keys.opens()[0].rights);
    EXPECT_EQ(L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent", keys.opens()[0].path);
    EXPECT_EQ(1u, keys.closeCount());
}

TEST_F(RegistryReadTest, ThirtyTwoBitFlagReadsTheOtherView)
{
    keys.putString(HKEY_LOCAL_MACHINE, kKey, L"Name", L"native");
    keys.putString(HKEY_LOCAL_MACHINE, kKey, L"Name", L"32-bit", REG_SZ, View::Wow32);
    corestring out;
    ASSERT_NE(kRegReadFailed, RegistryRead(out, L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Name", kRegAnyType, true));
    EXPECT_EQ(L"32-bit", text(out));
    EXPECT_EQ(static_cast<REGSAM>(KEY_QUERY_VALUE | KEY_WOW64_32KEY), keys.opens().back().rights);
    ASSERT_NE(kRegReadFailed, RegistryRead(out, L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Name", kRegAnyType, false));
    EXPECT_EQ(L"native", text(out));
    EXPECT_EQ(0u, keys.opens().back().rights & KEY_WOW64_64KEY);
}

TEST_F(RegistryReadTest, OrDefaultGivesDefaultOnlyWhenMissing)
{
    keys.putString(HKEY_LOCAL_MACHINE, kKey, L"Empty", L"");
    EXPECT_EQ(L"dflt", text(RegistryReadOrDefault(L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Missing", L"dflt")));
    corestring empty = RegistryReadOrDefault(L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Empty", L"dflt");
    EXPECT_TRUE(empty.empty());
}

TEST_F(RegistryReadTest, OrDefaultReadsAnyTypeAsText)
{
    keys.putDword(HKEY_LOCAL_MACHINE, kKey, L"N", 42);
    EXPECT_EQ(L"42", text(RegistryReadOrDefault(L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\N", L"dflt")));
}

TEST_F(RegistryReadTest, ValueFromAnOpenKey)
{
    keys.putQword(HKEY_LOCAL_MACHINE, kKey, L"Q", 7);
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, keys.RegOpenKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, KEY_READ, &key));
    corestring out;
    EXPECT_EQ(static_cast<std::uint32_t>(REG_QWORD), RegistryReadValue(out, key, L"Q", kRegAnyType));
    EXPECT_EQ(L"7", text(out));
    out = L"previous";
    EXPECT_EQ(kRegReadFailed, RegistryReadValue(out, key, L"Missing", kRegAnyType));
    EXPECT_EQ(nullptr, out.handle());
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), ::GetLastError());
    EXPECT_EQ(ERROR_SUCCESS, keys.RegCloseKey(key));
}

TEST_F(RegistryReadTest, HivesOtherThanTheMachineAreReachable)
{
    keys.putString(HKEY_CURRENT_USER, L"Software\\u", L"V", L"user");
    keys.putString(HKEY_USERS, L".DEFAULT\\Software\\u", L"V", L"users");
    keys.putString(HKEY_CLASSES_ROOT, L".zt", L"V", L"classes");
    keys.putString(HKEY_CURRENT_CONFIG, L"System\\u", L"V", L"config");
    EXPECT_EQ(L"user", text(RegistryReadOrDefault(L"HKCU\\Software\\u\\V", L"")));
    EXPECT_EQ(L"users", text(RegistryReadOrDefault(L"HKU\\.DEFAULT\\Software\\u\\V", L"")));
    EXPECT_EQ(L"classes", text(RegistryReadOrDefault(L"HKCR\\.zt\\V", L"")));
    EXPECT_EQ(L"config", text(RegistryReadOrDefault(L"HKCC\\System\\u\\V", L"")));
}

// ---------------------------------------------------------------- writing

TEST_F(RegistryWriteTest, DwordWithLeadingZerosIsDecimal)
{
    ASSERT_TRUE(RegistryWrite(corestring(L"007"), L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\N", REG_DWORD, false,
                              false));
    EXPECT_EQ(7u, keys.dwordValue(HKEY_LOCAL_MACHINE, kKey, L"N").value_or(0xDEAD));
    auto stored = keys.value(HKEY_LOCAL_MACHINE, kKey, L"N");
    ASSERT_TRUE(stored.has_value());
    EXPECT_EQ(4u, stored->bytes.size());
}

TEST_F(RegistryWriteTest, DwordTextIsTrimmedAndReadInAutomaticBase)
{
    struct Case {
        const wchar_t* text;
        std::uint32_t expected;
    };
    const Case cases[] = {
        {L" 0010\r\n", 10}, {L"\t0x1F", 31}, {L"-007", 0xFFFFFFF9u}, {L"4294967295", 4294967295u}, {L"abc", 0},
    };
    for (const Case& c : cases) {
        ASSERT_TRUE(RegistryWrite(corestring(c.text), L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\N", REG_DWORD,
                                  false, false));
        EXPECT_EQ(c.expected, keys.dwordValue(HKEY_LOCAL_MACHINE, kKey, L"N").value_or(0xDEAD)) << c.text;
    }
}

TEST_F(RegistryWriteTest, QwordStoresEightBytes)
{
    ASSERT_TRUE(RegistryWrite(corestring(L"0009007199254740993"), L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Q",
                              REG_QWORD, false, false));
    EXPECT_EQ(9007199254740993ull, keys.qwordValue(HKEY_LOCAL_MACHINE, kKey, L"Q").value_or(0));
    auto stored = keys.value(HKEY_LOCAL_MACHINE, kKey, L"Q");
    ASSERT_TRUE(stored.has_value());
    EXPECT_EQ(8u, stored->bytes.size());
    ASSERT_TRUE(RegistryWrite(corestring(L"0x100000000"), L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Q", REG_QWORD,
                              false, false));
    EXPECT_EQ(4294967296ull, keys.qwordValue(HKEY_LOCAL_MACHINE, kKey, L"Q").value_or(0));
}

TEST_F(RegistryWriteTest, StringStoresTextWithTerminator)
{
    ASSERT_TRUE(RegistryWrite(corestring(L"DOWNLOAD"), L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\STATE", REG_SZ,
                              false, false));
    auto stored = keys.value(HKEY_LOCAL_MACHINE, kKey, L"STATE");
    ASSERT_TRUE(stored.has_value());
    EXPECT_EQ(static_cast<DWORD>(REG_SZ), stored->type);
    ASSERT_EQ(18u, stored->bytes.size());
    EXPECT_EQ(0, std::memcmp(L"DOWNLOAD", stored->bytes.data(), 18));
}

TEST_F(RegistryWriteTest, NullTextStoresTheEmptyString)
{
    ASSERT_TRUE(RegistryWrite(corestring(), L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\E", REG_SZ, false, false));
    auto stored = keys.value(HKEY_LOCAL_MACHINE, kKey, L"E");
    ASSERT_TRUE(stored.has_value());
    EXPECT_EQ((std::vector<BYTE>{0, 0}), stored->bytes);
}

TEST_F(RegistryWriteTest, OtherTypesStoreTheTextUnderTheirType)
{
    ASSERT_TRUE(RegistryWrite(corestring(L"%TEMP%\\x"), L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\X", REG_EXPAND_SZ,
                              false, false));
    auto stored = keys.value(HKEY_LOCAL_MACHINE, kKey, L"X");
    ASSERT_TRUE(stored.has_value());
    EXPECT_EQ(static_cast<DWORD>(REG_EXPAND_SZ), stored->type);
    EXPECT_EQ(L"%TEMP%\\x", keys.stringValue(HKEY_LOCAL_MACHINE, kKey, L"X").value_or(L"?"));
}

TEST_F(RegistryWriteTest, AnyTypeOnlyMakesTheKey)
{
    ASSERT_TRUE(RegistryWrite(corestring(L"ignored"), L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Deep\\V",
                              kRegAnyType, false, false));
    EXPECT_TRUE(keys.keyExists(HKEY_LOCAL_MACHINE, L"Software\\Tarvelle\\Zenthra\\Agent\\Deep"));
    EXPECT_EQ(0u, keys.valueCount(HKEY_LOCAL_MACHINE, L"Software\\Tarvelle\\Zenthra\\Agent\\Deep"));
}

TEST_F(RegistryWriteTest, CreatesEveryMissingLevelWithWriteRights)
{
    ASSERT_TRUE(RegistryWrite(corestring(L"v"), L"HKLM\\Software\\A\\B\\C\\D\\Name", REG_SZ, false, false));
    EXPECT_EQ(L"v", keys.stringValue(HKEY_LOCAL_MACHINE, L"Software\\A\\B\\C\\D", L"Name").value_or(L"?"));
    ASSERT_EQ(1u, keys.opens().size());
    EXPECT_EQ(L"create", keys.opens()[0].operation);
    EXPECT_EQ(static_cast<REGSAM>(0x20006), keys.opens()[0].rights);
}

TEST_F(RegistryWriteTest, ThirtyTwoBitFlagAddsWow64RightAndWritesThatView)
{
    ASSERT_TRUE(RegistryWrite(corestring(L"v"), L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Name", REG_SZ, true, false));
    EXPECT_EQ(static_cast<REGSAM>(0x20006 | 0x200), keys.opens().back().rights);
    EXPECT_EQ(L"v", keys.stringValue(HKEY_LOCAL_MACHINE, kKey, L"Name", View::Wow32).value_or(L"?"));
    EXPECT_FALSE(keys.value(HKEY_LOCAL_MACHINE, kKey, L"Name").has_value());
}

TEST_F(RegistryWriteTest, FlushesOnlyWhenAsked)
{
    ASSERT_TRUE(RegistryWrite(corestring(L"1"), L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\A", REG_SZ, false, false));
    EXPECT_EQ(0u, keys.flushCount());
    ASSERT_TRUE(RegistryWrite(corestring(L"1"), L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\A", REG_SZ, false, true));
    EXPECT_EQ(1u, keys.flushCount());
}

TEST_F(RegistryWriteTest, UnparsablePathFailsWithPathNotFound)
{
    ::SetLastError(0);
    EXPECT_FALSE(RegistryWrite(corestring(L"1"), L"HKEY_LOCAL_MACHINE\\Software\\x\\A", REG_SZ, false, false));
    EXPECT_EQ(static_cast<DWORD>(ERROR_PATH_NOT_FOUND), ::GetLastError());
    EXPECT_TRUE(keys.opens().empty());
}

TEST_F(RegistryWriteTest, CreateFailureGivesThePlatformCode)
{
    keys.failOpen(HKEY_LOCAL_MACHINE, kKey, ERROR_ACCESS_DENIED);
    EXPECT_FALSE(RegistryWrite(corestring(L"1"), L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\A", REG_SZ, false, false));
    EXPECT_EQ(static_cast<DWORD>(ERROR_ACCESS_DENIED), ::GetLastError());
}

TEST_F(RegistryWriteTest, SetValueFailureClosesTheKeyAndGivesThePlatformCode)
{
    keys.failSetValue(ERROR_CANTWRITE);
    EXPECT_FALSE(RegistryWrite(corestring(L"1"), L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\A", REG_SZ, false, false));
    EXPECT_EQ(static_cast<DWORD>(ERROR_CANTWRITE), ::GetLastError());
    EXPECT_EQ(1u, keys.closeCount());
}

TEST_F(RegistryWriteTest, FlushFailureGivesThePlatformCode)
{
    keys.failFlush(ERROR_REGISTRY_IO_FAILED);
    EXPECT_FALSE(RegistryWrite(corestring(L"1"), L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\A", REG_SZ, false, true));
    EXPECT_EQ(static_cast<DWORD>(ERROR_REGISTRY_IO_FAILED), ::GetLastError());
}

TEST_F(RegistryWriteTest, WrittenValuesReadBackAsText)
{
    ASSERT_TRUE(RegistryWrite(corestring(L"READY"), L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\S", REG_SZ, false, false));
    ASSERT_TRUE(RegistryWrite(corestring(L"0x10"), L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\D", REG_DWORD, false, false));
    ASSERT_TRUE(RegistryWrite(corestring(L"-1"), L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Q", REG_QWORD, false, false));
    EXPECT_EQ(L"READY", text(RegistryReadOrDefault(L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\S", L"")));
    EXPECT_EQ(L"16", text(RegistryReadOrDefault(L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\D", L"")));
    EXPECT_EQ(L"18446744073709551615", text(RegistryReadOrDefault(L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Q", L"")));
}

// ---------------------------------------------------------------- key test

TEST_F(RegistryKeyTest, AcceptsLongAndShortHiveNames)
{
    keys.createKey(HKEY_LOCAL_MACHINE, L"Software\\x");
    keys.createKey(HKEY_CURRENT_USER, L"Software\\u");
    keys.createKey(HKEY_CLASSES_ROOT, L".zt");
    keys.createKey(HKEY_CURRENT_CONFIG, L"System\\c");
    keys.createKey(HKEY_USERS, L"S-1-5-18\\Software");
    EXPECT_TRUE(RegistryKeyExists(corestring(L"HKEY_LOCAL_MACHINE\\Software\\x")));
    EXPECT_TRUE(RegistryKeyExists(corestring(L"HKLM\\Software\\x")));
    EXPECT_TRUE(RegistryKeyExists(corestring(L"HKEY_CURRENT_USER\\Software\\u")));
    EXPECT_TRUE(RegistryKeyExists(corestring(L"HKCU\\Software\\u")));
    EXPECT_TRUE(RegistryKeyExists(corestring(L"HKEY_CLASSES_ROOT\\.zt")));
    EXPECT_TRUE(RegistryKeyExists(corestring(L"HKCR\\.zt")));
    EXPECT_TRUE(RegistryKeyExists(corestring(L"HKEY_CURRENT_CONFIG\\System\\c")));
    EXPECT_TRUE(RegistryKeyExists(corestring(L"HKCC\\System\\c")));
    EXPECT_TRUE(RegistryKeyExists(corestring(L"HKEY_USERS\\S-1-5-18\\Software")));
    EXPECT_TRUE(RegistryKeyExists(corestring(L"HKU\\S-1-5-18\\Software")));
    // Each in its own hive only.
    EXPECT_FALSE(RegistryKeyExists(corestring(L"HKCU\\Software\\x")));
}

TEST_F(RegistryKeyTest, MissingKeyIsFalse)
{
    EXPECT_FALSE(RegistryKeyExists(corestring(L"HKLM\\Software\\Nope")));
}

TEST_F(RegistryKeyTest, PrefixesAreCaseSensitive)
{
    keys.createKey(HKEY_LOCAL_MACHINE, L"Software\\x");
    EXPECT_FALSE(RegistryKeyExists(corestring(L"hklm\\Software\\x")));
    EXPECT_FALSE(RegistryKeyExists(corestring(L"hkey_local_machine\\Software\\x")));
    EXPECT_TRUE(keys.opens().empty());
}

TEST_F(RegistryKeyTest, OpensWithReadRightsAndCloses)
{
    keys.createKey(HKEY_LOCAL_MACHINE, L"Software\\x");
    EXPECT_TRUE(RegistryKeyExists(corestring(L"HKLM\\Software\\x")));
    ASSERT_EQ(1u, keys.opens().size());
    EXPECT_EQ(static_cast<REGSAM>(0x20019), keys.opens()[0].rights);
    EXPECT_EQ(1u, keys.closeCount());
}

TEST_F(RegistryKeyTest, FirstMatchingPrefixIsCutWhereverItStands)
{
    keys.createKey(HKEY_LOCAL_MACHINE, L"Software\\x");
    // "HKLM\" is found inside the text and cut out of it.
    EXPECT_TRUE(RegistryKeyExists(corestring(L"Software\\HKLM\\x")));
    // The machine's prefixes come first: a user path naming HKLM\ inside it
    // is looked up in the machine's hive.
    keys.createKey(HKEY_LOCAL_MACHINE, L"HKCU\\Software\\y");
    EXPECT_TRUE(RegistryKeyExists(corestring(L"HKCU\\Software\\HKLM\\y")));
    EXPECT_EQ(L"HKLM\\HKCU\\Software\\y", keys.opens().back().path);
}

// ---------------------------------------------------------------- shortening

TEST(RegistryShortenHiveNames, UsersBecomesHU)
{
    EXPECT_EQ(L"HU\\S-1-5\\x", text(ShortenHiveNames(corestring(L"HKEY_USERS\\S-1-5\\x"))));
}

TEST(RegistryShortenHiveNames, EachLongNameHasItsReplacement)
{
    EXPECT_EQ(L"HKLM\\a", text(ShortenHiveNames(corestring(L"HKEY_LOCAL_MACHINE\\a"))));
    EXPECT_EQ(L"HCU\\a", text(ShortenHiveNames(corestring(L"HKEY_CURRENT_USER\\a"))));
    EXPECT_EQ(L"HCR\\a", text(ShortenHiveNames(corestring(L"HKEY_CLASSES_ROOT\\a"))));
    EXPECT_EQ(L"HCC\\a", text(ShortenHiveNames(corestring(L"HKEY_CURRENT_CONFIG\\a"))));
}

TEST(RegistryShortenHiveNames, OnlyTheFirstNameFoundIsReplacedEverywhere)
{
    EXPECT_EQ(L"HKLM\\a\\HKLM\\HKEY_USERS",
              text(ShortenHiveNames(corestring(L"HKEY_LOCAL_MACHINE\\a\\HKEY_LOCAL_MACHINE\\HKEY_USERS"))));
    EXPECT_EQ(L"HKEY_USERS\\HCU", text(ShortenHiveNames(corestring(L"HKEY_USERS\\HKEY_CURRENT_USER"))));
}

TEST(RegistryShortenHiveNames, MatchesCaseAndLeavesOtherTextAlone)
{
    EXPECT_EQ(L"hkey_local_machine\\x", text(ShortenHiveNames(corestring(L"hkey_local_machine\\x"))));
    EXPECT_EQ(L"HKLM\\x", text(ShortenHiveNames(corestring(L"HKLM\\x"))));
    EXPECT_TRUE(ShortenHiveNames(corestring()).empty());
}

TEST_F(RegistryReadTest, OnlyShortenedMachinePathsAreReadable)
{
    keys.putString(HKEY_LOCAL_MACHINE, L"Software\\x", L"V", L"machine");
    keys.putString(HKEY_CURRENT_USER, L"Software\\x", L"V", L"user");
    corestring machine = ShortenHiveNames(corestring(L"HKEY_LOCAL_MACHINE\\Software\\x\\V"));
    corestring user = ShortenHiveNames(corestring(L"HKEY_CURRENT_USER\\Software\\x\\V"));
    EXPECT_EQ(L"machine", text(RegistryReadOrDefault(machine.c_str(), L"unreadable")));
    EXPECT_EQ(L"unreadable", text(RegistryReadOrDefault(user.c_str(), L"unreadable")));
}

// ---------------------------------------------------------------- deletion

TEST_F(RegistryDeleteTest, DeletesTheValueAndLogsTheFullPath)
{
    keys.putString(HKEY_LOCAL_MACHINE, kKey, L"Gone", L"x");
    keys.putString(HKEY_LOCAL_MACHINE, kKey, L"Kept", L"y");
    expectAllKeysClosed = false;  // the key is left to the process's end
    std::size_t before = logLength();
    EXPECT_TRUE(Util_DeleteRegistryIfExists(corestring(L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Gone")));
    EXPECT_FALSE(keys.value(HKEY_LOCAL_MACHINE, kKey, L"Gone").has_value());
    EXPECT_TRUE(keys.value(HKEY_LOCAL_MACHINE, kKey, L"Kept").has_value());
    EXPECT_NE(std::wstring::npos,
              logSince(before).find(
                  L"Util_DeleteRegistryIfExists: Deleted registry key - HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Gone"));
}

TEST_F(RegistryDeleteTest, OpensWithSetValueRightAndLeavesTheKeyOpen)
{
    keys.putString(HKEY_LOCAL_MACHINE, kKey, L"Gone", L"x");
    expectAllKeysClosed = false;
    EXPECT_TRUE(Util_DeleteRegistryIfExists(corestring(L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Gone")));
    ASSERT_EQ(1u, keys.opens().size());
    EXPECT_EQ(static_cast<REGSAM>(KEY_SET_VALUE), keys.opens()[0].rights);
    EXPECT_EQ(1u, keys.openHandleCount());
}

TEST_F(RegistryDeleteTest, MissingKeyIsSkippedAndCountsAsDone)
{
    std::size_t before = logLength();
    EXPECT_TRUE(Util_DeleteRegistryIfExists(corestring(L"HKLM\\Software\\Nope\\Value")));
    EXPECT_NE(std::wstring::npos,
              logSince(before).find(
                  L"Util_DeleteRegistryIfExists: Registry key Software\\Nope doesn't exist, skip deletion"));
    EXPECT_EQ(0u, keys.openHandleCount());
}

TEST_F(RegistryDeleteTest, MissingValueFails)
{
    keys.createKey(HKEY_LOCAL_MACHINE, kKey);
    expectAllKeysClosed = false;
    std::size_t before = logLength();
    EXPECT_FALSE(Util_DeleteRegistryIfExists(corestring(L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Nope")));
    EXPECT_NE(std::wstring::npos,
              logSince(before).find(L"Util_DeleteRegistryIfExists: Registry value Nope couldn't be deleted"));
}

TEST_F(RegistryDeleteTest, UnparsablePathIsSkipped)
{
    std::size_t before = logLength();
    EXPECT_TRUE(Util_DeleteRegistryIfExists(corestring(L"HKEY_LOCAL_MACHINE\\Software\\x\\V")));
    EXPECT_NE(std::wstring::npos, logSince(before).find(L"Util_DeleteRegistryIfExists: Registry key "));
    EXPECT_NE(std::wstring::npos, logSince(before).find(L" doesn't exist, skip deletion"));
}

// ---------------------------------------------------------------- booleans

TEST(RegistryParseBool, WordsAnyCaseOverTheWholeText)
{
    EXPECT_TRUE(ParseBool(corestring(L"TRUE")));
    EXPECT_TRUE(ParseBool(corestring(L"true")));
    EXPECT_TRUE(ParseBool(corestring(L"Yes")));
    EXPECT_TRUE(ParseBool(corestring(L"oN")));
    EXPECT_FALSE(ParseBool(corestring(L"truex")));
    EXPECT_FALSE(ParseBool(corestring(L"tru")));
    EXPECT_FALSE(ParseBool(corestring(L"yess")));
    EXPECT_FALSE(ParseBool(corestring(L"false")));
    EXPECT_FALSE(ParseBool(corestring(L"no")));
    EXPECT_FALSE(ParseBool(corestring(L"off")));
}

TEST(RegistryParseBool, NullAndEmptyAreFalse)
{
    EXPECT_FALSE(ParseBool(corestring()));
    EXPECT_FALSE(ParseBool(corestring(L"")));
}

TEST(RegistryParseBool, NumbersAreReadByWcstolInAutomaticBase)
{
    EXPECT_TRUE(ParseBool(corestring(L"1")));
    EXPECT_TRUE(ParseBool(corestring(L"-1")));
    EXPECT_TRUE(ParseBool(corestring(L"0x10")));
    EXPECT_TRUE(ParseBool(corestring(L"2x")));
    EXPECT_TRUE(ParseBool(corestring(L" 5")));
    EXPECT_FALSE(ParseBool(corestring(L"0")));
    EXPECT_FALSE(ParseBool(corestring(L"0x0")));
    EXPECT_FALSE(ParseBool(corestring(L"x1")));
}

}  // namespace
