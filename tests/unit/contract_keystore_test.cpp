// The registry as the tool's logic sees it, asked the same questions through
// the fake key store and through the real Win32 calls (in the lab, Wine).
// Every case works below a fresh key HKCU\Software\ZtContract\<pid>-<n> of
// its own, which the real side deletes with everything below it afterwards.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <cwctype>
#include <string>
#include <vector>

#include "contract_support.h"
#include "fakes/FakeKeyStore.h"
#include "fakes/ScopedServices.h"
#include "platform/Handles.h"
#include "platform/Services.h"

using platform::KeyHandle;

namespace {

constexpr wchar_t kParent[] = L"Software\\ZtContract";

// ---- The two sides

class FakeKeys {
public:
    static const char* name() { return "Fake"; }
    static constexpr bool isReal = false;

    platform::Services services()
    {
        platform::Services s = platform::win32Services();
        s.keys = &m_keys;
        return s;
    }
    void setEnvironment(const std::wstring& name, const std::wstring& value) { m_keys.setEnvironment(name, value); }
    void clearEnvironment(const std::wstring&) {}
    void removeTree(const std::wstring&) {}

private:
    fakes::FakeKeyStore m_keys;
};

class Win32Keys {
public:
    static const char* name() { return "Win32"; }
    static constexpr bool isReal = true;

    platform::Services services() { return platform::win32Services(); }
    void setEnvironment(const std::wstring& name, const std::wstring& value)
    {
        ASSERT_TRUE(::SetEnvironmentVariableW(name.c_str(), value.c_str()));
    }
    void clearEnvironment(const std::wstring& name) { ::SetEnvironmentVariableW(name.c_str(), nullptr); }
    void removeTree(const std::wstring& subkey)
    {
        ::RegDeleteTreeW(HKEY_CURRENT_USER, subkey.c_str());
        ::RegDeleteKeyW(HKEY_CURRENT_USER, subkey.c_str());
        // Refused while another process still has its key in there.
        ::RegDeleteKeyW(HKEY_CURRENT_USER, kParent);
    }
};

// ---- The fixture

template <class Side> class KeyStoreContract : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_subkey = std::wstring(kParent) + L"\\" + contract::uniqueName(L"");
        DWORD disposition = 0;
        ASSERT_EQ(ERROR_SUCCESS, keys().RegCreateKeyExW(HKEY_CURRENT_USER, m_subkey.c_str(), 0, KEY_ALL_ACCESS,
                                                        m_base.out(), &disposition));
        m_made = true;
        ASSERT_EQ(static_cast<DWORD>(REG_CREATED_NEW_KEY), disposition);
    }
    void TearDown() override
    {
        m_base.reset();
        for (const std::wstring& name : m_variables)
            m_side.clearEnvironment(name);
        if (m_made)
            m_side.removeTree(m_subkey);
    }

    platform::KeyStore& keys() { return platform::keys(); }
    HKEY base() const { return m_base.get(); }

    LSTATUS create(KeyHandle& key, const wchar_t* subkey, DWORD options = 0, DWORD* disposition = nullptr)
    {
        return keys().RegCreateKeyExW(base(), subkey, options, KEY_ALL_ACCESS, key.out(), disposition);
    }
    LSTATUS set(const wchar_t* name, DWORD type, const void* data, DWORD size)
    {
        return keys().RegSetValueExW(base(), name, type, static_cast<const BYTE*>(data), size);
    }
    // The text with its terminator, as careful writers store it.
    LSTATUS setText(const wchar_t* name, const std::wstring& text, DWORD type = REG_SZ)
    {
        return set(name, type, text.c_str(), static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
    }
    DWORD sizeOf(const wchar_t* name)
    {
        DWORD size = 0xDEADBEEF;
        EXPECT_EQ(ERROR_SUCCESS, keys().RegQueryValueExW(base(), name, nullptr, nullptr, &size));
        return size;
    }
    // An environment variable of this test's own; the side removes it again.
    std::wstring variable(const std::wstring& value)
    {
        std::wstring name = contract::uniqueName(L"ZT_CONTRACT_");
        std::replace(name.begin(), name.end(), L'-', L'_');
        m_variables.push_back(name);
        m_side.setEnvironment(name, value);
        return name;
    }

    Side m_side;
    fakes::ScopedServices m_scope{m_side.services()};
    KeyHandle m_base;
    std::wstring m_subkey;
    std::vector<std::wstring> m_variables;
    bool m_made = false;
};

using Sides = ::testing::Types<FakeKeys, Win32Keys>;
TYPED_TEST_SUITE(KeyStoreContract, Sides, contract::SideName);

// ---- RegCreateKeyExW, RegOpenKeyExW, RegOpenCurrentUser, RegCloseKey

TYPED_TEST(KeyStoreContract, CreateKeyReportsANewKeyThenAnExistingOne)
{
    KeyHandle key;
    DWORD disposition = 0;
    ASSERT_EQ(ERROR_SUCCESS, this->create(key, L"Job", 0, &disposition));
    EXPECT_EQ(static_cast<DWORD>(REG_CREATED_NEW_KEY), disposition);
    ASSERT_EQ(ERROR_SUCCESS, this->create(key, L"job", 0, &disposition));
    EXPECT_EQ(static_cast<DWORD>(REG_OPENED_EXISTING_KEY), disposition);
}

TYPED_TEST(KeyStoreContract, CreateKeyMakesTheMissingKeysOnTheWay)
{
    KeyHandle key;
    DWORD disposition = 0;
    ASSERT_EQ(ERROR_SUCCESS, this->create(key, L"A\\B\\C", 0, &disposition));
    EXPECT_EQ(static_cast<DWORD>(REG_CREATED_NEW_KEY), disposition);
    KeyHandle middle;
    EXPECT_EQ(ERROR_SUCCESS, this->keys().RegOpenKeyExW(this->base(), L"A\\B", 0, KEY_READ, middle.out()));
    ASSERT_EQ(ERROR_SUCCESS, this->create(key, L"A\\B", 0, &disposition));
    EXPECT_EQ(static_cast<DWORD>(REG_OPENED_EXISTING_KEY), disposition);
}

TYPED_TEST(KeyStoreContract, OpenKeyOfAMissingKeyGivesFileNotFoundAndNoHandle)
{
    for (const wchar_t* subkey : {L"Missing", L"Missing\\Deeper"}) {
        HKEY key = reinterpret_cast<HKEY>(static_cast<std::uintptr_t>(0x1234));
        EXPECT_EQ(ERROR_FILE_NOT_FOUND, this->keys().RegOpenKeyExW(this->base(), subkey, 0, KEY_READ, &key));
        EXPECT_EQ(nullptr, key);
    }
}

TYPED_TEST(KeyStoreContract, OpenKeyMatchesNamesWithoutCase)
{
    KeyHandle made;
    ASSERT_EQ(ERROR_SUCCESS, this->create(made, L"MixedCase"));
    KeyHandle key;
    EXPECT_EQ(ERROR_SUCCESS, this->keys().RegOpenKeyExW(this->base(), L"MIXEDCASE", 0, KEY_READ, key.out()));
    EXPECT_TRUE(key.valid());
}

TYPED_TEST(KeyStoreContract, OpenKeyWithALeadingBackslashIsABadPath)
{
    KeyHandle made;
    ASSERT_EQ(ERROR_SUCCESS, this->create(made, L"Sub"));
    KeyHandle key;
    EXPECT_EQ(ERROR_BAD_PATHNAME, this->keys().RegOpenKeyExW(this->base(), L"\\Sub", 0, KEY_READ, key.out()));
}

TYPED_TEST(KeyStoreContract, EveryOperationOnANullKeyIsAnInvalidHandle)
{
    platform::KeyStore& keys = this->keys();
    HKEY key = nullptr;
    EXPECT_EQ(ERROR_INVALID_HANDLE, keys.RegOpenKeyExW(nullptr, L"Sub", 0, KEY_READ, &key));
    KeyHandle created;
    EXPECT_EQ(ERROR_INVALID_HANDLE, keys.RegCreateKeyExW(nullptr, L"Sub", 0, KEY_ALL_ACCESS, created.out(), nullptr));
    DWORD size = 0;
    EXPECT_EQ(ERROR_INVALID_HANDLE, keys.RegQueryValueExW(nullptr, L"V", nullptr, nullptr, &size));
    const DWORD number = 1;
    EXPECT_EQ(ERROR_INVALID_HANDLE,
              keys.RegSetValueExW(nullptr, L"V", REG_DWORD, reinterpret_cast<const BYTE*>(&number), sizeof number));
    EXPECT_EQ(ERROR_INVALID_HANDLE, keys.RegDeleteValueW(nullptr, L"V"));
    wchar_t name[16];
    DWORD length = 16;
    EXPECT_EQ(ERROR_INVALID_HANDLE, keys.RegEnumKeyExW(nullptr, 0, name, &length));
    EXPECT_EQ(ERROR_INVALID_HANDLE, keys.RegEnumValueW(nullptr, 0, name, &length, nullptr, nullptr, nullptr));
    EXPECT_EQ(ERROR_INVALID_HANDLE, keys.RegFlushKey(nullptr));
    EXPECT_EQ(ERROR_INVALID_HANDLE, keys.RegCloseKey(nullptr));
}

TYPED_TEST(KeyStoreContract, CloseKeyOfAnOpenKey)
{
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, this->keys().RegOpenKeyExW(HKEY_CURRENT_USER, this->m_subkey.c_str(), 0, KEY_READ, &key));
    EXPECT_EQ(ERROR_SUCCESS, this->keys().RegCloseKey(key));
}

// Only HKLM\Software has a separate 32-bit view; the user's Software is
// one key for both.
TYPED_TEST(KeyStoreContract, TheThirtyTwoBitViewOfTheUsersSoftwareIsTheSameKey)
{
    ASSERT_EQ(ERROR_SUCCESS, this->setText(L"Seen", L"both"));
    KeyHandle key;
    ASSERT_EQ(ERROR_SUCCESS, this->keys().RegOpenKeyExW(HKEY_CURRENT_USER, this->m_subkey.c_str(), 0,
                                                        KEY_QUERY_VALUE | KEY_WOW64_32KEY, key.out()));
    DWORD size = 0;
    EXPECT_EQ(ERROR_SUCCESS, this->keys().RegQueryValueExW(key.get(), L"Seen", nullptr, nullptr, &size));
    EXPECT_EQ(10u, size);
}

TYPED_TEST(KeyStoreContract, OpenCurrentUserReachesTheUsersKeys)
{
    ASSERT_EQ(ERROR_SUCCESS, this->setText(L"Who", L"me"));
    KeyHandle user;
    ASSERT_EQ(ERROR_SUCCESS, this->keys().RegOpenCurrentUser(KEY_READ, user.out()));
    KeyHandle key;
    ASSERT_EQ(ERROR_SUCCESS, this->keys().RegOpenKeyExW(user.get(), this->m_subkey.c_str(), 0, KEY_READ, key.out()));
    wchar_t text[8] = {};
    DWORD size = sizeof text;
    DWORD type = 0;
    EXPECT_EQ(ERROR_SUCCESS,
              this->keys().RegQueryValueExW(key.get(), L"Who", &type, reinterpret_cast<BYTE*>(text), &size));
    EXPECT_EQ(static_cast<DWORD>(REG_SZ), type);
    EXPECT_STREQ(L"me", text);
}

TYPED_TEST(KeyStoreContract, AHandleAllowsOnlyWhatItWasOpenedFor)
{
    ASSERT_EQ(ERROR_SUCCESS, this->setText(L"V", L"x"));
    KeyHandle child;
    ASSERT_EQ(ERROR_SUCCESS, this->create(child, L"Child"));
    platform::KeyStore& keys = this->keys();

    KeyHandle reader;
    ASSERT_EQ(ERROR_SUCCESS, keys.RegOpenKeyExW(HKEY_CURRENT_USER, this->m_subkey.c_str(), 0, KEY_QUERY_VALUE,
                                                reader.out()));
    EXPECT_EQ(ERROR_ACCESS_DENIED, keys.RegSetValueExW(reader.get(), L"V", REG_SZ,
                                                       reinterpret_cast<const BYTE*>(L"y"), 4));
    EXPECT_EQ(ERROR_ACCESS_DENIED, keys.RegDeleteValueW(reader.get(), L"V"));
    wchar_t name[16];
    DWORD length = 16;
    EXPECT_EQ(ERROR_ACCESS_DENIED, keys.RegEnumKeyExW(reader.get(), 0, name, &length));

    KeyHandle writer;
    ASSERT_EQ(ERROR_SUCCESS,
              keys.RegOpenKeyExW(HKEY_CURRENT_USER, this->m_subkey.c_str(), 0, KEY_SET_VALUE, writer.out()));
    DWORD size = 0;
    EXPECT_EQ(ERROR_ACCESS_DENIED, keys.RegQueryValueExW(writer.get(), L"V", nullptr, nullptr, &size));
    length = 16;
    EXPECT_EQ(ERROR_ACCESS_DENIED, keys.RegEnumValueW(writer.get(), 0, name, &length, nullptr, nullptr, nullptr));
}

// ---- Volatile keys

TYPED_TEST(KeyStoreContract, AVolatileKeyTakesOnlyVolatileChildren)
{
    KeyHandle key;
    DWORD disposition = 0;
    ASSERT_EQ(ERROR_SUCCESS, this->create(key, L"Volatile", REG_OPTION_VOLATILE, &disposition));
    EXPECT_EQ(static_cast<DWORD>(REG_CREATED_NEW_KEY), disposition);
    KeyHandle lasting;
    EXPECT_EQ(ERROR_CHILD_MUST_BE_VOLATILE, this->create(lasting, L"Volatile\\Lasting"));
    KeyHandle child;
    EXPECT_EQ(ERROR_SUCCESS, this->create(child, L"Volatile\\Child", REG_OPTION_VOLATILE, &disposition));
    EXPECT_EQ(static_cast<DWORD>(REG_CREATED_NEW_KEY), disposition);
}

TYPED_TEST(KeyStoreContract, OpeningALastingKeyAsVolatileLeavesItLasting)
{
    KeyHandle key;
    ASSERT_EQ(ERROR_SUCCESS, this->create(key, L"Lasting"));
    DWORD disposition = 0;
    ASSERT_EQ(ERROR_SUCCESS, this->create(key, L"Lasting", REG_OPTION_VOLATILE, &disposition));
    EXPECT_EQ(static_cast<DWORD>(REG_OPENED_EXISTING_KEY), disposition);
    KeyHandle child;
    EXPECT_EQ(ERROR_SUCCESS, this->create(child, L"Lasting\\Child"));
}

// ---- RegSetValueExW, RegQueryValueExW, RegDeleteValueW, RegFlushKey

TYPED_TEST(KeyStoreContract, QueryWithoutABufferGivesTheTypeAndSize)
{
    ASSERT_EQ(ERROR_SUCCESS, this->setText(L"State", L"abc"));
    DWORD type = 0;
    DWORD size = 0;
    EXPECT_EQ(ERROR_SUCCESS, this->keys().RegQueryValueExW(this->base(), L"STATE", &type, nullptr, &size));
    EXPECT_EQ(static_cast<DWORD>(REG_SZ), type);
    EXPECT_EQ(8u, size);
    EXPECT_EQ(ERROR_SUCCESS, this->keys().RegQueryValueExW(this->base(), L"State", nullptr, nullptr, nullptr));
}

TYPED_TEST(KeyStoreContract, QueryIntoABufferGivesTheBytes)
{
    ASSERT_EQ(ERROR_SUCCESS, this->setText(L"State", L"abc"));
    wchar_t text[8] = {};
    DWORD size = sizeof text;
    DWORD type = 0;
    EXPECT_EQ(ERROR_SUCCESS,
              this->keys().RegQueryValueExW(this->base(), L"State", &type, reinterpret_cast<BYTE*>(text), &size));
    EXPECT_EQ(static_cast<DWORD>(REG_SZ), type);
    EXPECT_EQ(8u, size);
    EXPECT_STREQ(L"abc", text);
}

TYPED_TEST(KeyStoreContract, QueryIntoTooSmallABufferGivesMoreDataAndTheSizeNeeded)
{
    ASSERT_EQ(ERROR_SUCCESS, this->setText(L"State", L"abc"));
    BYTE buffer[4] = {};
    DWORD size = sizeof buffer;
    DWORD type = 0;
    EXPECT_EQ(ERROR_MORE_DATA, this->keys().RegQueryValueExW(this->base(), L"State", &type, buffer, &size));
    EXPECT_EQ(8u, size);
    EXPECT_EQ(static_cast<DWORD>(REG_SZ), type);
}

TYPED_TEST(KeyStoreContract, QueryWithABufferButNoSizeIsAnInvalidParameter)
{
    ASSERT_EQ(ERROR_SUCCESS, this->setText(L"State", L"abc"));
    BYTE buffer[16] = {};
    EXPECT_EQ(ERROR_INVALID_PARAMETER, this->keys().RegQueryValueExW(this->base(), L"State", nullptr, buffer, nullptr));
}

TYPED_TEST(KeyStoreContract, QueryOfAMissingValueGivesFileNotFound)
{
    DWORD size = 77;
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, this->keys().RegQueryValueExW(this->base(), L"Missing", nullptr, nullptr, &size));
    // Asked for the size alone, the size is cleared ...
    EXPECT_EQ(0u, size);
    // ... but left alone beside a buffer.
    BYTE buffer[16] = {};
    size = sizeof buffer;
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, this->keys().RegQueryValueExW(this->base(), L"Missing", nullptr, buffer, &size));
    EXPECT_EQ(sizeof buffer, size);
}

TYPED_TEST(KeyStoreContract, NumbersAndBytesKeepTheirTypeAndSize)
{
    const DWORD dword = 0x12345678;
    const unsigned long long qword = 0x0102030405060708ull;
    const BYTE binary[3] = {1, 2, 3};
    ASSERT_EQ(ERROR_SUCCESS, this->set(L"D", REG_DWORD, &dword, sizeof dword));
    ASSERT_EQ(ERROR_SUCCESS, this->set(L"Q", REG_QWORD, &qword, sizeof qword));
    ASSERT_EQ(ERROR_SUCCESS, this->set(L"B", REG_BINARY, binary, sizeof binary));
    struct Expected {
        const wchar_t* name;
        DWORD type;
        const void* bytes;
        DWORD size;
    };
    for (const Expected& e : {Expected{L"D", REG_DWORD, &dword, 4}, Expected{L"Q", REG_QWORD, &qword, 8},
                              Expected{L"B", REG_BINARY, binary, 3}}) {
        BYTE buffer[16] = {};
        DWORD size = sizeof buffer;
        DWORD type = 0;
        ASSERT_EQ(ERROR_SUCCESS, this->keys().RegQueryValueExW(this->base(), e.name, &type, buffer, &size));
        EXPECT_EQ(e.type, type);
        ASSERT_EQ(e.size, size);
        EXPECT_EQ(0, std::memcmp(e.bytes, buffer, size));
    }
}

// Text stored without its terminator, while one follows in memory, is
// stored with it.
TYPED_TEST(KeyStoreContract, TextSetWithoutItsTerminatorGetsItWhenOneFollows)
{
    const wchar_t text[] = L"abc";
    ASSERT_EQ(ERROR_SUCCESS, this->set(L"Sz", REG_SZ, text, 6));
    ASSERT_EQ(ERROR_SUCCESS, this->set(L"Expand", REG_EXPAND_SZ, text, 6));
    ASSERT_EQ(ERROR_SUCCESS, this->set(L"Binary", REG_BINARY, text, 6));
    EXPECT_EQ(8u, this->sizeOf(L"Sz"));
    EXPECT_EQ(8u, this->sizeOf(L"Expand"));
    EXPECT_EQ(6u, this->sizeOf(L"Binary"));
}

// Text stored without a terminator comes back with one added in the
// caller's buffer when there is room for it, and the size says what was
// stored.
TYPED_TEST(KeyStoreContract, TextStoredWithoutATerminatorIsTerminatedWhereThereIsRoom)
{
    const wchar_t longer[] = L"abcd";
    ASSERT_EQ(ERROR_SUCCESS, this->set(L"Cut", REG_SZ, longer, 6));
    ASSERT_EQ(6u, this->sizeOf(L"Cut"));

    BYTE roomy[16];
    std::memset(roomy, 0xCC, sizeof roomy);
    DWORD size = sizeof roomy;
    ASSERT_EQ(ERROR_SUCCESS, this->keys().RegQueryValueExW(this->base(), L"Cut", nullptr, roomy, &size));
    EXPECT_EQ(6u, size);
    EXPECT_EQ(0, std::memcmp(roomy, L"abc", 6));
    EXPECT_EQ(0, roomy[6]);
    EXPECT_EQ(0, roomy[7]);
    EXPECT_EQ(0xCC, roomy[8]);

    BYTE exact[8];
    std::memset(exact, 0xCC, sizeof exact);
    size = 6;
    ASSERT_EQ(ERROR_SUCCESS, this->keys().RegQueryValueExW(this->base(), L"Cut", nullptr, exact, &size));
    EXPECT_EQ(6u, size);
    EXPECT_EQ(0xCC, exact[6]);
    EXPECT_EQ(0xCC, exact[7]);

    wchar_t name[16];
    DWORD length = 16;
    std::memset(roomy, 0xCC, sizeof roomy);
    size = sizeof roomy;
    ASSERT_EQ(ERROR_SUCCESS, this->keys().RegEnumValueW(this->base(), 0, name, &length, nullptr, roomy, &size));
    EXPECT_EQ(6u, size);
    EXPECT_EQ(0, roomy[6]);
    EXPECT_EQ(0, roomy[7]);
}

TYPED_TEST(KeyStoreContract, SetValueWithoutDataButWithASizeIsNoAccess)
{
    EXPECT_EQ(ERROR_NOACCESS, this->set(L"V", REG_SZ, nullptr, 4));
    EXPECT_EQ(ERROR_NOACCESS, this->set(L"V", REG_DWORD, nullptr, 4));
    EXPECT_EQ(ERROR_SUCCESS, this->set(L"Empty", REG_SZ, nullptr, 0));
    DWORD type = 0;
    DWORD size = 99;
    EXPECT_EQ(ERROR_SUCCESS, this->keys().RegQueryValueExW(this->base(), L"Empty", &type, nullptr, &size));
    EXPECT_EQ(static_cast<DWORD>(REG_SZ), type);
    EXPECT_EQ(0u, size);
}

TYPED_TEST(KeyStoreContract, SetValueReplacesTypeAndData)
{
    ASSERT_EQ(ERROR_SUCCESS, this->setText(L"V", L"text"));
    const DWORD number = 7;
    ASSERT_EQ(ERROR_SUCCESS, this->set(L"v", REG_DWORD, &number, sizeof number));
    DWORD type = 0;
    DWORD read = 0;
    DWORD size = sizeof read;
    EXPECT_EQ(ERROR_SUCCESS,
              this->keys().RegQueryValueExW(this->base(), L"V", &type, reinterpret_cast<BYTE*>(&read), &size));
    EXPECT_EQ(static_cast<DWORD>(REG_DWORD), type);
    EXPECT_EQ(7u, read);
}

TYPED_TEST(KeyStoreContract, DeleteValueRemovesItThenFindsNothing)
{
    ASSERT_EQ(ERROR_SUCCESS, this->setText(L"Gone", L"x"));
    EXPECT_EQ(ERROR_SUCCESS, this->keys().RegDeleteValueW(this->base(), L"GONE"));
    DWORD size = 0;
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, this->keys().RegQueryValueExW(this->base(), L"Gone", nullptr, nullptr, &size));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, this->keys().RegDeleteValueW(this->base(), L"Gone"));
}

TYPED_TEST(KeyStoreContract, FlushKeyOfAnOpenKeySucceeds)
{
    ASSERT_EQ(ERROR_SUCCESS, this->setText(L"V", L"x"));
    EXPECT_EQ(ERROR_SUCCESS, this->keys().RegFlushKey(this->base()));
}

// ---- RegEnumKeyExW

TYPED_TEST(KeyStoreContract, EnumKeysListsEveryChildThenNoMoreItems)
{
    for (const wchar_t* child : {L"Zeta", L"alpha", L"Mid"}) {
        KeyHandle key;
        ASSERT_EQ(ERROR_SUCCESS, this->create(key, child));
    }
    std::vector<std::wstring> names;
    LSTATUS status = ERROR_SUCCESS;
    for (DWORD index = 0; index < 10; ++index) {
        wchar_t name[32];
        DWORD length = 32;
        status = this->keys().RegEnumKeyExW(this->base(), index, name, &length);
        if (status != ERROR_SUCCESS)
            break;
        EXPECT_EQ(std::wcslen(name), length);
        names.push_back(name);
    }
    EXPECT_EQ(ERROR_NO_MORE_ITEMS, status);
    // Windows gives subkeys in no promised order.
    std::sort(names.begin(), names.end());
    EXPECT_EQ((std::vector<std::wstring>{L"Mid", L"Zeta", L"alpha"}), names);
}

TYPED_TEST(KeyStoreContract, EnumKeysOfAKeyWithoutChildrenGivesNoMoreItems)
{
    wchar_t name[32];
    DWORD length = 32;
    EXPECT_EQ(ERROR_NO_MORE_ITEMS, this->keys().RegEnumKeyExW(this->base(), 0, name, &length));
}

TYPED_TEST(KeyStoreContract, EnumKeyIntoTooSmallABufferGivesMoreDataAndKeepsTheCount)
{
    KeyHandle key;
    ASSERT_EQ(ERROR_SUCCESS, this->create(key, L"Child"));
    wchar_t name[8] = {};
    DWORD length = 5;  // "Child" needs six with its terminator
    EXPECT_EQ(ERROR_MORE_DATA, this->keys().RegEnumKeyExW(this->base(), 0, name, &length));
    EXPECT_EQ(5u, length);
    length = 6;
    EXPECT_EQ(ERROR_SUCCESS, this->keys().RegEnumKeyExW(this->base(), 0, name, &length));
    EXPECT_EQ(5u, length);
    EXPECT_STREQ(L"Child", name);
}

// ---- RegEnumValueW

// Windows lists values in the order they were first set, and so does the
// fake. Wine keeps them sorted by name, case aside, which is what the real
// side is checked for there.
TYPED_TEST(KeyStoreContract, EnumValuesComeInTheOrderTheyWereSet)
{
    for (const wchar_t* value : {L"b", L"C", L"a"})
        ASSERT_EQ(ERROR_SUCCESS, this->setText(value, value));
    std::vector<std::wstring> names;
    LSTATUS status = ERROR_SUCCESS;
    for (DWORD index = 0; index < 10; ++index) {
        wchar_t name[32];
        DWORD length = 32;
        status = this->keys().RegEnumValueW(this->base(), index, name, &length, nullptr, nullptr, nullptr);
        if (status != ERROR_SUCCESS)
            break;
        names.push_back(std::wstring(name, length));
    }
    EXPECT_EQ(ERROR_NO_MORE_ITEMS, status);
    std::vector<std::wstring> expected = {L"b", L"C", L"a"};
    if (TypeParam::isReal && contract::runningUnderWine())
        expected = {L"a", L"b", L"C"};
    EXPECT_EQ(expected, names);
}

TYPED_TEST(KeyStoreContract, EnumValueGivesNameTypeAndData)
{
    ASSERT_EQ(ERROR_SUCCESS, this->setText(L"Test", L"foobar"));
    wchar_t name[16] = {};
    DWORD length = 16;
    DWORD type = 1234;
    wchar_t data[16] = {};
    DWORD size = sizeof data;
    ASSERT_EQ(ERROR_SUCCESS, this->keys().RegEnumValueW(this->base(), 0, name, &length, &type,
                                                        reinterpret_cast<BYTE*>(data), &size));
    EXPECT_EQ(4u, length);
    EXPECT_STREQ(L"Test", name);
    EXPECT_EQ(static_cast<DWORD>(REG_SZ), type);
    EXPECT_EQ(14u, size);
    EXPECT_STREQ(L"foobar", data);
}

TYPED_TEST(KeyStoreContract, EnumValueWithoutADataBufferGivesItsSize)
{
    ASSERT_EQ(ERROR_SUCCESS, this->setText(L"Test", L"foobar"));
    wchar_t name[16] = {};
    DWORD length = 16;
    DWORD type = 1234;
    DWORD size = 0;
    ASSERT_EQ(ERROR_SUCCESS, this->keys().RegEnumValueW(this->base(), 0, name, &length, &type, nullptr, &size));
    EXPECT_STREQ(L"Test", name);
    EXPECT_EQ(static_cast<DWORD>(REG_SZ), type);
    EXPECT_EQ(14u, size);
}

// A name that doesn't fit: nothing is copied and the name's count stays, but
// the type and the data's size are reported.
TYPED_TEST(KeyStoreContract, EnumValueWithTooShortANameBuffer)
{
    ASSERT_EQ(ERROR_SUCCESS, this->setText(L"Test", L"foobar"));
    wchar_t name[16] = L"xxxxxxxx";
    DWORD length = 3;
    DWORD type = 1234;
    wchar_t data[16] = L"xxxxxxxx";
    DWORD size = sizeof data;
    EXPECT_EQ(ERROR_MORE_DATA, this->keys().RegEnumValueW(this->base(), 0, name, &length, &type,
                                                          reinterpret_cast<BYTE*>(data), &size));
    EXPECT_EQ(3u, length);
    EXPECT_EQ(static_cast<DWORD>(REG_SZ), type);
    EXPECT_EQ(14u, size);
    EXPECT_STREQ(L"xxxxxxxx", name);
    EXPECT_STREQ(L"xxxxxxxx", data);
}

// Data that doesn't fit: the name is given, the data is not, and its size
// is reported.
TYPED_TEST(KeyStoreContract, EnumValueWithTooSmallADataBuffer)
{
    ASSERT_EQ(ERROR_SUCCESS, this->setText(L"Test", L"foobar"));
    wchar_t name[16] = L"xxxxxxxx";
    DWORD length = 16;
    DWORD type = 1234;
    wchar_t data[16] = L"xxxxxxxx";
    DWORD size = 2;
    EXPECT_EQ(ERROR_MORE_DATA, this->keys().RegEnumValueW(this->base(), 0, name, &length, &type,
                                                          reinterpret_cast<BYTE*>(data), &size));
    EXPECT_EQ(4u, length);
    EXPECT_STREQ(L"Test", name);
    EXPECT_EQ(static_cast<DWORD>(REG_SZ), type);
    EXPECT_EQ(14u, size);
    EXPECT_STREQ(L"xxxxxxxx", data);
}

TYPED_TEST(KeyStoreContract, EnumValuePastTheLastGivesNoMoreItems)
{
    wchar_t name[16];
    DWORD length = 16;
    EXPECT_EQ(ERROR_NO_MORE_ITEMS, this->keys().RegEnumValueW(this->base(), 0, name, &length, nullptr, nullptr, nullptr));
    ASSERT_EQ(ERROR_SUCCESS, this->setText(L"Only", L"x"));
    length = 16;
    EXPECT_EQ(ERROR_NO_MORE_ITEMS, this->keys().RegEnumValueW(this->base(), 1, name, &length, nullptr, nullptr, nullptr));
}

TYPED_TEST(KeyStoreContract, EnumValueWithoutANameBufferIsAnInvalidParameter)
{
    ASSERT_EQ(ERROR_SUCCESS, this->setText(L"Only", L"x"));
    DWORD length = 16;
    EXPECT_EQ(ERROR_INVALID_PARAMETER,
              this->keys().RegEnumValueW(this->base(), 0, nullptr, &length, nullptr, nullptr, nullptr));
    wchar_t name[16];
    EXPECT_EQ(ERROR_INVALID_PARAMETER,
              this->keys().RegEnumValueW(this->base(), 0, name, nullptr, nullptr, nullptr, nullptr));
    BYTE data[8];
    length = 16;
    EXPECT_EQ(ERROR_INVALID_PARAMETER,
              this->keys().RegEnumValueW(this->base(), 0, name, &length, nullptr, data, nullptr));
}

// ---- ExpandEnvironmentStringsW

TYPED_TEST(KeyStoreContract, ExpandGivesTheTextAndItsLengthWithTheTerminator)
{
    const std::wstring name = this->variable(L"C:\\Root");
    std::wstring lower = name;
    std::transform(lower.begin(), lower.end(), lower.begin(), [](wchar_t c) { return static_cast<wchar_t>(std::towlower(c)); });
    for (const std::wstring& written : {name, lower}) {
        const std::wstring source = L"%" + written + L"%\\logs";
        wchar_t out[64] = {};
        EXPECT_EQ(13u, this->keys().ExpandEnvironmentStringsW(source.c_str(), out, 64)) << written;
        EXPECT_STREQ(L"C:\\Root\\logs", out);
    }
}

TYPED_TEST(KeyStoreContract, ExpandLeavesUnknownNamesAndLoneMarksAsWritten)
{
    const std::wstring unknown = L"%" + contract::uniqueName(L"ZT_CONTRACT_UNSET_") + L"%\\x";
    wchar_t out[64] = {};
    EXPECT_EQ(unknown.size() + 1, this->keys().ExpandEnvironmentStringsW(unknown.c_str(), out, 64));
    EXPECT_EQ(unknown, out);
    EXPECT_EQ(4u, this->keys().ExpandEnvironmentStringsW(L"50%", out, 64));
    EXPECT_STREQ(L"50%", out);
}

// With too little room the size needed comes back; what the buffer then
// holds is not to be relied on.
TYPED_TEST(KeyStoreContract, ExpandIntoTooSmallABufferGivesTheSizeNeeded)
{
    const std::wstring source = L"%" + this->variable(L"C:\\Root") + L"%\\logs";
    EXPECT_EQ(13u, this->keys().ExpandEnvironmentStringsW(source.c_str(), nullptr, 0));
    wchar_t small[4] = {};
    EXPECT_EQ(13u, this->keys().ExpandEnvironmentStringsW(source.c_str(), small, 4));
    EXPECT_EQ(1u, this->keys().ExpandEnvironmentStringsW(L"", nullptr, 0));
}

TYPED_TEST(KeyStoreContract, ExpandLeavesTheLastErrorAlone)
{
    const std::wstring source = L"%" + this->variable(L"v") + L"%";
    wchar_t out[8] = {};
    ::SetLastError(0xDEADBEEF);
    EXPECT_EQ(2u, this->keys().ExpandEnvironmentStringsW(source.c_str(), out, 8));
    EXPECT_EQ(0xDEADBEEFu, ::GetLastError());
}

}  // namespace
