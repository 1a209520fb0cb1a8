#pragma once
#include "core/win.h"
#include <winnetwk.h>

namespace platform {

// Connections to network shares.
class Network {
public:
    virtual ~Network() = default;
    virtual DWORD WNetAddConnection2W(LPNETRESOURCEW resource, LPCWSTR password, LPCWSTR user, DWORD flags) = 0;
    virtual DWORD WNetCancelConnection2W(LPCWSTR name, DWORD flags, BOOL force) = 0;
};

}  // namespace platform
