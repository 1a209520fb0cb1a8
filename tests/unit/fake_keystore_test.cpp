// The fake key store has to answer like the registry for the tests built on
// it to mean anything.
#include <gtest/gtest.h>

#include <string>

#include "fakes/FakeKeyStore.h"

using fakes::FakeKeyStore;

namespace {

std::wstring enumKey(FakeKeyStore& keys, HKEY key, DWORD index, LSTATUS* status = nullptr)
{
    wchar_t name[256];
    DWORD length = 256;
    LSTATUS s = keys.RegEnumKeyExW(key, index, name, &length);
    if (status)
        *status = s;
    return s == ERROR_SUCCESS ? std::wstring(name, length) : std::wstring();
}

std::wstring enumValueName(FakeKeyStore& keys, HKEY key, DWORD index)
{
    wchar_t name[256];
    DWORD length = 256;
    DWORD type = 0;
    return keys.RegEnumValueW(key, index, name, &length, &type, nullptr, nullptr) == ERROR_SUCCESS
               ? std::wstring(name, length)
               : std::wstring();
}

TEST(RegistryFakeKeyStore, NamesMatchWithoutCase)
{
    FakeKeyStore keys;
    keys.putString(HKEY_LOCAL_MACHINE, L"Software\\Mixed", L"Value", L"x");
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, keys.RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\mixed", 0, KEY_READ, &key));
    DWORD size = 0;
    EXPECT_EQ(ERROR_SUCCESS, keys.RegQueryValueExW(key, L"VALUE", nullptr, nullptr, &size));
    EXPECT_EQ(4u, size);
    EXPECT_EQ(ERROR_SUCCESS, keys.RegCloseKey(key));
    EXPECT_EQ(0u, keys.openHandleCount());
}

TEST(RegistryFakeKeyStore, QueryReportsSizeAndMoreData)
{
    FakeKeyStore keys;
    keys.putString(HKEY_LOCAL_MACHINE, L"Software\\k", L"V", L"abcd");
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, keys.RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Software\\k", 0, KEY_QUERY_VALUE, &key));
    BYTE buffer[64];
    DWORD size = 4;
    DWORD type = 0;
    EXPECT_EQ(ERROR_MORE_DATA, keys.RegQueryValueExW(key, L"V", &type, buffer, &size));
    EXPECT_EQ(10u, size);
    EXPECT_EQ(ERROR_SUCCESS, keys.RegQueryValueExW(key, L"V", &type, buffer, &size));
    EXPECT_EQ(static_cast<DWORD>(REG_SZ), type);
    EXPECT_STREQ(L"abcd", reinterpret_cast<const wchar_t*>(buffer));
    keys.RegCloseKey(key);
}

TEST(RegistryFakeKeyStore, OperationsNeedTheirRights)
{
    FakeKeyStore keys;
    keys.putString(HKEY_LOCAL_MACHINE, L"Software\\k", L"V", L"x");
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, keys.RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Software\\k", 0, KEY_QUERY_VALUE, &key));
    EXPECT_EQ(ERROR_ACCESS_DENIED, keys.RegDeleteValueW(key, L"V"));
    EXPECT_EQ(ERROR_ACCESS_DENIED, keys.RegSetValueExW(key, L"V", REG_SZ, nullptr, 0));
    wchar_t name[16];
    DWORD length = 16;
    EXPECT_EQ(ERROR_ACCESS_DENIED, keys.RegEnumKeyExW(key, 0, name, &length));
    keys.RegCloseKey(key);
}

TEST(RegistryFakeKeyStore, EnumerationInInsertionOrderOrAlphabetical)
{
    FakeKeyStore keys;
    keys.createKey(HKEY_LOCAL_MACHINE, L"Software\\k\\Zeta");
    keys.createKey(HKEY_LOCAL_MACHINE, L"Software\\k\\alpha");
    keys.putString(HKEY_LOCAL_MACHINE, L"Software\\k", L"b", L"1");
    keys.putString(HKEY_LOCAL_MACHINE, L"Software\\k", L"A", L"2");
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, keys.RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Software\\k", 0, KEY_READ, &key));
    EXPECT_EQ(L"Zeta", enumKey(keys, key, 0));
    EXPECT_EQ(L"alpha", enumKey(keys, key, 1));
    EXPECT_EQ(L"b", enumValueName(keys, key, 0));
    EXPECT_EQ(L"A", enumValueName(keys, key, 1));
    keys.setEnumerationOrder(FakeKeyStore::Order::Alphabetical, FakeKeyStore::Order::Alphabetical);
    EXPECT_EQ(L"alpha", enumKey(keys, key, 0));
    EXPECT_EQ(L"Zeta", enumKey(keys, key, 1));
    EXPECT_EQ(L"A", enumValueName(keys, key, 0));
    EXPECT_EQ(L"b", enumValueName(keys, key, 1));
    LSTATUS status = 0;
    enumKey(keys, key, 2, &status);
    EXPECT_EQ(ERROR_NO_MORE_ITEMS, status);
    keys.RegCloseKey(key);
}

TEST(RegistryFakeKeyStore, EnumerationBufferSizes)
{
    FakeKeyStore keys;
    keys.putString(HKEY_LOCAL_MACHINE, L"Software\\k", L"Name", L"abcdef");
    keys.createKey(HKEY_LOCAL_MACHINE, L"Software\\k\\Child");
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, keys.RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Software\\k", 0, KEY_READ, &key));
    wchar_t name[8];
    DWORD length = 5;  // "Child" needs six with its terminator
    EXPECT_EQ(ERROR_MORE_DATA, keys.RegEnumKeyExW(key, 0, name, &length));
    length = 6;
    EXPECT_EQ(ERROR_SUCCESS, keys.RegEnumKeyExW(key, 0, name, &length));
    EXPECT_EQ(5u, length);

    BYTE data[4];
    DWORD dataSize = sizeof data;
    DWORD type = 0;
    length = 8;
    EXPECT_EQ(ERROR_MORE_DATA, keys.RegEnumValueW(key, 0, name, &length, &type, data, &dataSize));
    EXPECT_EQ(14u, dataSize);
    EXPECT_EQ(ERROR_NO_MORE_ITEMS, keys.RegEnumValueW(key, 1, name, &length, &type, nullptr, nullptr));
    keys.RegCloseKey(key);
}

TEST(RegistryFakeKeyStore, VolatileKeysGoAtReboot)
{
    FakeKeyStore keys;
    keys.createKey(HKEY_LOCAL_MACHINE, L"Software\\T");
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, keys.RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"Software\\T\\Volatile", REG_OPTION_VOLATILE,
                                                  KEY_WRITE, &key, nullptr));
    EXPECT_EQ(ERROR_SUCCESS, keys.RegSetValueExW(key, L"NeedReboot", REG_SZ, reinterpret_cast<const BYTE*>(L"1"), 4));
    keys.RegCloseKey(key);
    ASSERT_EQ(ERROR_CHILD_MUST_BE_VOLATILE,
              keys.RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"Software\\T\\Volatile\\Lasting", 0, KEY_WRITE, &key, nullptr));
    EXPECT_TRUE(keys.isVolatile(HKEY_LOCAL_MACHINE, L"Software\\T\\Volatile"));
    EXPECT_FALSE(keys.isVolatile(HKEY_LOCAL_MACHINE, L"Software\\T"));
    keys.simulateReboot();
    EXPECT_FALSE(keys.keyExists(HKEY_LOCAL_MACHINE, L"Software\\T\\Volatile"));
    EXPECT_TRUE(keys.keyExists(HKEY_LOCAL_MACHINE, L"Software\\T"));
}

TEST(RegistryFakeKeyStore, ThirtyTwoBitViewLivesUnderWow6432Node)
{
    FakeKeyStore keys;
    keys.putString(HKEY_LOCAL_MACHINE, L"Software\\T", L"V", L"32", REG_SZ, FakeKeyStore::View::Wow32);
    EXPECT_TRUE(keys.keyExists(HKEY_LOCAL_MACHINE, L"Software\\Wow6432Node\\T"));
    EXPECT_FALSE(keys.keyExists(HKEY_LOCAL_MACHINE, L"Software\\T"));
    HKEY key = nullptr;
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, keys.RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Software\\T", 0, KEY_READ, &key));
    ASSERT_EQ(ERROR_SUCCESS,
              keys.RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Software\\T", 0, KEY_READ | KEY_WOW64_32KEY, &key));
    EXPECT_EQ(L"HKLM\\Software\\Wow6432Node\\T", keys.opens().back().path);
    keys.RegCloseKey(key);
}

TEST(RegistryFakeKeyStore, InjectedOpenFaultsAndHandleTracking)
{
    FakeKeyStore keys;
    keys.createKey(HKEY_LOCAL_MACHINE, L"Software\\T");
    keys.failOpen(HKEY_LOCAL_MACHINE, L"software\\t", ERROR_ACCESS_DENIED);
    HKEY key = nullptr;
    EXPECT_EQ(ERROR_ACCESS_DENIED, keys.RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Software\\T", 0, KEY_READ, &key));
    EXPECT_EQ(ERROR_ACCESS_DENIED, keys.opens().back().status);
    keys.clearFaults();
    ASSERT_EQ(ERROR_SUCCESS, keys.RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Software\\T", 0, KEY_READ, &key));
    EXPECT_EQ(1u, keys.openHandleCount());
    EXPECT_EQ(ERROR_SUCCESS, keys.RegCloseKey(key));
    EXPECT_EQ(ERROR_INVALID_HANDLE, keys.RegCloseKey(key));
    EXPECT_EQ(0u, keys.openHandleCount());
    EXPECT_EQ(ERROR_BAD_PATHNAME, keys.RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"\\Software", 0, KEY_READ, &key));
}

TEST(RegistryFakeKeyStore, ExpansionSizesAndVariables)
{
    FakeKeyStore keys;
    keys.setEnvironment(L"Root", L"C:\\R");
    EXPECT_EQ(8u, keys.ExpandEnvironmentStringsW(L"%ROOT%\\x%", nullptr, 0));
    wchar_t out[16];
    EXPECT_EQ(8u, keys.ExpandEnvironmentStringsW(L"%ROOT%\\x%", out, 16));
    EXPECT_STREQ(L"C:\\R\\x%", out);
    EXPECT_EQ(1u, keys.ExpandEnvironmentStringsW(L"", nullptr, 0));
}

}  // namespace
