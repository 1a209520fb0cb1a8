#include "platform/win32/Win32Services.h"

#include <msi.h>

namespace platform {

UINT Win32Installer::MsiEnumRelatedProductsW(LPCWSTR upgradeCode, DWORD reserved, DWORD index, LPWSTR productCode)
{
    return ::MsiEnumRelatedProductsW(upgradeCode, reserved, index, productCode);
}

UINT Win32Installer::MsiGetProductInfoW(LPCWSTR product, LPCWSTR property, LPWSTR buffer, LPDWORD size)
{
    return ::MsiGetProductInfoW(product, property, buffer, size);
}

DWORD Win32Network::WNetAddConnection2W(LPNETRESOURCEW resource, LPCWSTR password, LPCWSTR user, DWORD flags)
{
    return ::WNetAddConnection2W(resource, password, user, flags);
}

DWORD Win32Network::WNetCancelConnection2W(LPCWSTR name, DWORD flags, BOOL force)
{
    return ::WNetCancelConnection2W(name, flags, force);
}

NTSTATUS Win32Hashing::BCryptOpenAlgorithmProvider(BCRYPT_ALG_HANDLE* algorithm, LPCWSTR id, LPCWSTR implementation,
                                                   ULONG flags)
{
    return ::BCryptOpenAlgorithmProvider(algorithm, id, implementation, flags);
}

NTSTATUS Win32Hashing::BCryptGetProperty(BCRYPT_HANDLE object, LPCWSTR property, PUCHAR output, ULONG size,
                                         ULONG* result, ULONG flags)
{
    return ::BCryptGetProperty(object, property, output, size, result, flags);
}

NTSTATUS Win32Hashing::BCryptCreateHash(BCRYPT_ALG_HANDLE algorithm, BCRYPT_HASH_HANDLE* hash, PUCHAR object,
                                        ULONG objectSize, PUCHAR secret, ULONG secretSize, ULONG flags)
{
    return ::BCryptCreateHash(algorithm, hash, object, objectSize, secret, secretSize, flags);
}

NTSTATUS Win32Hashing::BCryptHashData(BCRYPT_HASH_HANDLE hash, PUCHAR input, ULONG size, ULONG flags)
{
    return ::BCryptHashData(hash, input, size, flags);
}

NTSTATUS Win32Hashing::BCryptFinishHash(BCRYPT_HASH_HANDLE hash, PUCHAR output, ULONG size, ULONG flags)
{
    return ::BCryptFinishHash(hash, output, size, flags);
}

NTSTATUS Win32Hashing::BCryptDestroyHash(BCRYPT_HASH_HANDLE hash) { return ::BCryptDestroyHash(hash); }

NTSTATUS Win32Hashing::BCryptCloseAlgorithmProvider(BCRYPT_ALG_HANDLE algorithm, ULONG flags)
{
    return ::BCryptCloseAlgorithmProvider(algorithm, flags);
}

BOOL Win32Power::OpenProcessToken(HANDLE process, DWORD access, PHANDLE token)
{
    return ::OpenProcessToken(process, access, token);
}

BOOL Win32Power::LookupPrivilegeValueW(LPCWSTR systemName, LPCWSTR name, PLUID luid)
{
    return ::LookupPrivilegeValueW(systemName, name, luid);
}

BOOL Win32Power::AdjustTokenPrivileges(HANDLE token, BOOL disableAll, PTOKEN_PRIVILEGES newState, DWORD bufferLength,
                                       PTOKEN_PRIVILEGES previousState, PDWORD returnLength)
{
    return ::AdjustTokenPrivileges(token, disableAll, newState, bufferLength, previousState, returnLength);
}

BOOL Win32Power::CloseHandle(HANDLE object) { return ::CloseHandle(object); }

BOOL Win32Power::ExitWindowsEx(UINT flags, DWORD reason) { return ::ExitWindowsEx(flags, reason); }

}  // namespace platform
