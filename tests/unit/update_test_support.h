#pragma once
// Shared set-up of the state machine, persistence and reboot tests: all
// services faked, a job key to find, the retry settings pinned, and a key
// store wrapper that records and can refuse single value writes.
#include <gtest/gtest.h>

#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "fakes/FakePlatform.h"
#include "update/RetrySettings.h"
#include "update/UpdateRecord.h"
#include "update/UpdateState.h"

namespace update_test {

inline const std::wstring kNewUpdate = L"Software\\Tarvelle\\Zenthra\\Agent\\Update";
inline const std::wstring kLegacyUpdate = L"Software\\Kesmarc, Inc.\\Kesmarc TQM\\Agent\\Update";
inline const std::wstring kNewVolatile = L"Software\\Tarvelle\\Zenthra\\Agent\\UpdateStatusVolatile";
inline const std::wstring kLegacyVolatile = L"Software\\Kesmarc, Inc.\\Kesmarc TQM\\Agent\\UpdateStatusVolatile";

enum class Root { New, Legacy };

inline std::wstring jobKey(Root root, const std::wstring& job)
{
    return (root == Root::New ? kNewUpdate : kLegacyUpdate) + L"\\" + job;
}

// Forwards to a key store and records the value writes; one value name can
// be made to fail, as a value the management side has locked would.
class RecordingKeys final : public platform::KeyStore {
public:
    explicit RecordingKeys(platform::KeyStore& inner) : m_inner(inner) {}

    struct Write {
        std::wstring name;
        DWORD type;
        DWORD size;
    };
    std::vector<Write> writes;
    std::wstring failValue;  // empty: no fault
    LSTATUS failCode = ERROR_ACCESS_DENIED;
    // Opening or creating a key with the right to set values fails with
    // failCode, as a key whose ACL lets the tool read only would.
    bool refuseWriteAccess = false;

    std::vector<std::wstring> names() const
    {
        std::vector<std::wstring> out;
        for (const Write& w : writes)
            out.push_back(w.name);
        return out;
    }

    LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM rights, PHKEY result) override
    {
        if (refuseWriteAccess && (rights & KEY_SET_VALUE))
            return failCode;
        return m_inner.RegOpenKeyExW(key, subKey, options, rights, result);
    }
    LSTATUS RegOpenCurrentUser(REGSAM rights, PHKEY result) override { return m_inner.RegOpenCurrentUser(rights, result); }
    LSTATUS RegCreateKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM rights, PHKEY result,
                            LPDWORD disposition) override
    {
        if (refuseWriteAccess && (rights & KEY_SET_VALUE))
            return failCode;
        return m_inner.RegCreateKeyExW(key, subKey, options, rights, result, disposition);
    }
    LSTATUS RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD type, LPBYTE data, LPDWORD size) override
    {
        return m_inner.RegQueryValueExW(key, name, type, data, size);
    }
    LSTATUS RegSetValueExW(HKEY key, LPCWSTR name, DWORD type, const BYTE* data, DWORD size) override
    {
        std::wstring n = name ? name : L"";
        writes.push_back({n, type, size});
        if (!failValue.empty() && n == failValue)
            return failCode;
        return m_inner.RegSetValueExW(key, name, type, data, size);
    }
    LSTATUS RegDeleteValueW(HKEY key, LPCWSTR name) override { return m_inner.RegDeleteValueW(key, name); }
    LSTATUS RegEnumKeyExW(HKEY key, DWORD index, LPWSTR name, LPDWORD nameLength) override
    {
        return m_inner.RegEnumKeyExW(key, index, name, nameLength);
    }
    LSTATUS RegEnumValueW(HKEY key, DWORD index, LPWSTR name, LPDWORD nameLength, LPDWORD type, LPBYTE data,
                          LPDWORD dataSize) override
    {
        return m_inner.RegEnumValueW(key, index, name, nameLength, type, data, dataSize);
    }
    LSTATUS RegFlushKey(HKEY key) override { return m_inner.RegFlushKey(key); }
    LSTATUS RegCloseKey(HKEY key) override { return m_inner.RegCloseKey(key); }
    DWORD ExpandEnvironmentStringsW(LPCWSTR source, LPWSTR destination, DWORD size) override
    {
        return m_inner.ExpandEnvironmentStringsW(source, destination, size);
    }

private:
    platform::KeyStore& m_inner;
};

class UpdateTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        maxRetry = 2;
        retryWaitMs = 300000;
    }
    void TearDown() override
    {
        maxRetry = m_savedMaxRetry;
        retryWaitMs = m_savedRetryWaitMs;
    }

    // A job key the reader will find, and the record as the run left it.
    void job(Root root, const std::wstring& name, std::uint32_t state, const wchar_t* result = L"",
             std::int32_t retry = 0)
    {
        p.keys.putString(HKEY_LOCAL_MACHINE, jobKey(root, name), L"STATE", L"OLD");
        UpdateRecord& r = g_updateRecord;
        r.sUpdateKey = name.c_str();
        r.bLegacyUpgrade = root == Root::Legacy;
        r.nState = state;
        r.sResult = result;
        r.nRetry = retry;
    }

    std::optional<std::wstring> stored(Root root, const std::wstring& name, const wchar_t* value) const
    {
        return p.keys.stringValue(HKEY_LOCAL_MACHINE, jobKey(root, name), value);
    }

    std::vector<std::wstring> linesOf(std::initializer_list<const wchar_t*> tags) const { return p.linesOf(tags); }

    std::size_t countOf(const std::wstring& message) const { return p.countOf(message); }

    fakes::FakePlatform p;

private:
    std::int32_t m_savedMaxRetry = maxRetry;
    std::uint32_t m_savedRetryWaitMs = retryWaitMs;
};

}  // namespace update_test
