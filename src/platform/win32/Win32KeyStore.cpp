#include "platform/win32/Win32Services.h"

namespace platform {

LSTATUS Win32KeyStore::RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM rights, PHKEY result)
{
    return ::RegOpenKeyExW(key, subKey, options, rights, result);
}

LSTATUS Win32KeyStore::RegOpenCurrentUser(REGSAM rights, PHKEY result) { return ::RegOpenCurrentUser(rights, result); }

LSTATUS Win32KeyStore::RegCreateKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM rights, PHKEY result,
                                       LPDWORD disposition)
{
    return ::RegCreateKeyExW(key, subKey, 0, nullptr, options, rights, nullptr, result, disposition);
}

LSTATUS Win32KeyStore::RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD type, LPBYTE data, LPDWORD size)
{
    return ::RegQueryValueExW(key, name, nullptr, type, data, size);
}

LSTATUS Win32KeyStore::RegSetValueExW(HKEY key, LPCWSTR name, DWORD type, const BYTE* data, DWORD size)
{
    return ::RegSetValueExW(key, name, 0, type, data, size);
}

LSTATUS Win32KeyStore::RegDeleteValueW(HKEY key, LPCWSTR name) { return ::RegDeleteValueW(key, name); }

LSTATUS Win32KeyStore::RegEnumKeyExW(HKEY key, DWORD index, LPWSTR name, LPDWORD nameLength)
{
    return ::RegEnumKeyExW(key, index, name, nameLength, nullptr, nullptr, nullptr, nullptr);
}

LSTATUS Win32KeyStore::RegEnumValueW(HKEY key, DWORD index, LPWSTR name, LPDWORD nameLength, LPDWORD type,
                                     LPBYTE data, LPDWORD dataSize)
{
    return ::RegEnumValueW(key, index, name, nameLength, nullptr, type, data, dataSize);
}

LSTATUS Win32KeyStore::RegFlushKey(HKEY key) { return ::RegFlushKey(key); }

LSTATUS Win32KeyStore::RegCloseKey(HKEY key) { return ::RegCloseKey(key); }

DWORD Win32KeyStore::ExpandEnvironmentStringsW(LPCWSTR source, LPWSTR destination, DWORD size)
{
    return ::ExpandEnvironmentStringsW(source, destination, size);
}

}  // namespace platform
