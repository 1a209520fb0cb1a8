#pragma once
#include <optional>
#include <string>
#include <vector>

#include "platform/Network.h"

namespace fakes {

// Share connections: every call recorded with what it was given, answers
// chosen by the test.
class FakeNetwork : public platform::Network {
public:
    struct Add {
        DWORD scope = 0;
        DWORD type = 0;
        DWORD displayType = 0;
        DWORD usage = 0;
        std::optional<std::wstring> localName;  // nothing: a null pointer
        std::optional<std::wstring> remoteName;
        std::optional<std::wstring> comment;
        std::optional<std::wstring> provider;
        std::optional<std::wstring> password;
        std::optional<std::wstring> user;
        DWORD flags = 0;
    };
    struct Cancel {
        std::optional<std::wstring> name;
        DWORD flags = 0;
        BOOL force = FALSE;
    };

    DWORD WNetAddConnection2W(LPNETRESOURCEW resource, LPCWSTR password, LPCWSTR user, DWORD flags) override;
    DWORD WNetCancelConnection2W(LPCWSTR name, DWORD flags, BOOL force) override;

    DWORD addResult = NO_ERROR;
    DWORD cancelResult = NO_ERROR;
    std::vector<Add> adds;
    std::vector<Cancel> cancels;
    // Every call in order, "add" or "cancel", for tests of what happens between.
    std::vector<std::wstring> calls;
};

}  // namespace fakes
