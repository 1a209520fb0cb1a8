#pragma once
#include "core/win.h"

namespace platform {

// The registry as the tool's logic sees it. Operations keep the Windows
// names, arguments and return codes (LSTATUS, 0 on success).
class KeyStore {
public:
    virtual ~KeyStore() = default;
    virtual LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM rights, PHKEY result) = 0;
    virtual LSTATUS RegOpenCurrentUser(REGSAM rights, PHKEY result) = 0;
    // options may hold REG_OPTION_VOLATILE.
    virtual LSTATUS RegCreateKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM rights,
                                    PHKEY result, LPDWORD disposition) = 0;
    virtual LSTATUS RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD type, LPBYTE data, LPDWORD size) = 0;
    virtual LSTATUS RegSetValueExW(HKEY key, LPCWSTR name, DWORD type, const BYTE* data, DWORD size) = 0;
    virtual LSTATUS RegDeleteValueW(HKEY key, LPCWSTR name) = 0;
    // nameLength: in, the buffer in characters with room for the terminator;
    // out, the name's length without it. ERROR_MORE_DATA when it doesn't fit.
    virtual LSTATUS RegEnumKeyExW(HKEY key, DWORD index, LPWSTR name, LPDWORD nameLength) = 0;
    virtual LSTATUS RegEnumValueW(HKEY key, DWORD index, LPWSTR name, LPDWORD nameLength,
                                  LPDWORD type, LPBYTE data, LPDWORD dataSize) = 0;
    virtual LSTATUS RegFlushKey(HKEY key) = 0;
    virtual LSTATUS RegCloseKey(HKEY key) = 0;
    virtual DWORD ExpandEnvironmentStringsW(LPCWSTR source, LPWSTR destination, DWORD size) = 0;
};

}  // namespace platform
