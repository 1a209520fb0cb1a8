// The registry layer against the real key store of the test machine (the
// Wine prefix). Each test works in a key of its own and removes it again.
#include <gtest/gtest.h>

#include <string>

#include "core/string/corestring.h"
#include "fakes/ScopedServices.h"
#include "platform/Services.h"
#include "registry/Policy.h"
#include "registry/Registry.h"

using CORE::corestring;

namespace {

std::wstring text(const corestring& s) { return std::wstring(s.c_str(), static_cast<std::size_t>(s.length())); }

class RegistryWin32Test : public ::testing::Test {
protected:
    void SetUp() override
    {
        const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
        std::string name = info->name();
        m_subkey = L"Software\\ZenthraTest\\" + std::wstring(name.begin(), name.end());
        ::RegDeleteTreeW(HKEY_CURRENT_USER, m_subkey.c_str());
    }
    void TearDown() override
    {
        ::RegDeleteTreeW(HKEY_CURRENT_USER, m_subkey.c_str());
        HKEY parent = nullptr;
        if (::RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\ZenthraTest", 0, KEY_READ, &parent) == ERROR_SUCCESS) {
            DWORD subkeys = 0, values = 0;
            ::RegQueryInfoKeyW(parent, nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, &values, nullptr,
                               nullptr, nullptr, nullptr);
            ::RegCloseKey(parent);
            if (subkeys == 0 && values == 0)
                ::RegDeleteKeyW(HKEY_CURRENT_USER, L"Software\\ZenthraTest");
        }
    }
    std::wstring path(const wchar_t* valueName) const { return L"HKCU\\" + m_subkey + L"\\" + valueName; }

    // Whatever another test installed, these run against the real registry.
    fakes::ScopedServices m_scope{platform::win32Services()};
    std::wstring m_subkey;
};

TEST_F(RegistryWin32Test, WriteThenReadRoundTrip)
{
    ASSERT_TRUE(RegistryWrite(corestring(L"DOWNLOAD"), path(L"STATE").c_str(), REG_SZ, false, false));
    ASSERT_TRUE(RegistryWrite(corestring(L"007"), path(L"RETRY").c_str(), REG_DWORD, false, true));
    ASSERT_TRUE(RegistryWrite(corestring(L"0x100000000"), path(L"Big").c_str(), REG_QWORD, false, false));
    corestring out;
    EXPECT_EQ(static_cast<std::uint32_t>(REG_SZ), RegistryRead(out, path(L"STATE").c_str(), kRegAnyType, false));
    EXPECT_EQ(L"DOWNLOAD", text(out));
    EXPECT_EQ(static_cast<std::uint32_t>(REG_DWORD), RegistryRead(out, path(L"RETRY").c_str(), kRegAnyType, false));
    EXPECT_EQ(L"7", text(out));
    EXPECT_EQ(L"4294967296", text(RegistryReadOrDefault(path(L"Big").c_str(), L"")));
    EXPECT_TRUE(RegistryKeyExists(corestring((L"HKEY_CURRENT_USER\\" + m_subkey).c_str())));
}

TEST_F(RegistryWin32Test, MissingValueGivesTheDefaultAndFileNotFound)
{
    ASSERT_TRUE(RegistryWrite(corestring(), path(L"Ignored").c_str(), kRegAnyType, false, false));
    EXPECT_TRUE(RegistryKeyExists(corestring((L"HKCU\\" + m_subkey).c_str())));
    corestring out;
    EXPECT_EQ(kRegReadFailed, RegistryRead(out, path(L"Ignored").c_str(), kRegAnyType, false));
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), ::GetLastError());
    EXPECT_EQ(L"dflt", text(RegistryReadOrDefault(path(L"Ignored").c_str(), L"dflt")));
}

TEST_F(RegistryWin32Test, TypeFilterRejectsOtherTypes)
{
    ASSERT_TRUE(RegistryWrite(corestring(L"5"), path(L"N").c_str(), REG_DWORD, false, false));
    corestring out;
    EXPECT_EQ(kRegReadFailed, RegistryRead(out, path(L"N").c_str(), REG_SZ, false));
    EXPECT_EQ(static_cast<DWORD>(ERROR_INVALID_DATA), ::GetLastError());
}

TEST_F(RegistryWin32Test, ExpandStringUsesTheProcessEnvironment)
{
    ASSERT_TRUE(::SetEnvironmentVariableW(L"ZT_REGISTRY_TEST", L"C:\\Expanded"));
    ASSERT_TRUE(RegistryWrite(corestring(L"%ZT_REGISTRY_TEST%\\logs"), path(L"Dir").c_str(), REG_EXPAND_SZ, false,
                              false));
    corestring out;
    EXPECT_EQ(static_cast<std::uint32_t>(REG_EXPAND_SZ), RegistryRead(out, path(L"Dir").c_str(), kRegAnyType, false));
    EXPECT_EQ(L"C:\\Expanded\\logs", text(out));
    ::SetEnvironmentVariableW(L"ZT_REGISTRY_TEST", nullptr);
}

TEST_F(RegistryWin32Test, DeleteRemovesTheValue)
{
    ASSERT_TRUE(RegistryWrite(corestring(L"x"), path(L"Gone").c_str(), REG_SZ, false, false));
    EXPECT_TRUE(Util_DeleteRegistryIfExists(corestring(path(L"Gone").c_str())));
    EXPECT_EQ(L"deleted", text(RegistryReadOrDefault(path(L"Gone").c_str(), L"deleted")));
    EXPECT_FALSE(Util_DeleteRegistryIfExists(corestring(path(L"Gone").c_str())));
}

TEST_F(RegistryWin32Test, PolicyReadFindsTheUsersOrdinaryValueThroughTheUsersHive)
{
    ASSERT_TRUE(RegistryWrite(corestring(L"user"), path(L"Setting").c_str(), REG_SZ, false, false));
    corestring out, used;
    EXPECT_EQ(static_cast<std::uint32_t>(REG_SZ), PolicyRead(out, path(L"Setting").c_str(), kRegAnyType, false, &used));
    EXPECT_EQ(L"user", text(out));
    EXPECT_EQ(path(L"Setting"), text(used));
}

}  // namespace
