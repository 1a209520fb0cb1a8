#include "platform/win32/Win32Services.h"

#include <msi.h>

#include "core/LazyDll.h"

namespace platform {

using CORE::LazyExport;

namespace {
constexpr NTSTATUS kProcedureNotFound = static_cast<NTSTATUS>(0xC000007AL);  // STATUS_PROCEDURE_NOT_FOUND
}

UINT Win32Installer::MsiEnumRelatedProductsW(LPCWSTR upgradeCode, DWORD reserved, DWORD index, LPWSTR productCode)
{
    static const auto call = LazyExport<decltype(&::MsiEnumRelatedProductsW)>(L"msi.dll", "MsiEnumRelatedProductsW");
    return call ? call(upgradeCode, reserved, index, productCode) : ERROR_PROC_NOT_FOUND;
}

UINT Win32Installer::MsiGetProductInfoW(LPCWSTR product, LPCWSTR property, LPWSTR buffer, LPDWORD size)
{
    static const auto call = LazyExport<decltype(&::MsiGetProductInfoW)>(L"msi.dll", "MsiGetProductInfoW");
    return call ? call(product, property, buffer, size) : ERROR_PROC_NOT_FOUND;
}

DWORD Win32Network::WNetAddConnection2W(LPNETRESOURCEW resource, LPCWSTR password, LPCWSTR user, DWORD flags)
{
    static const auto call = LazyExport<decltype(&::WNetAddConnection2W)>(L"mpr.dll", "WNetAddConnection2W");
    return call ? call(resource, password, user, flags) : ERROR_PROC_NOT_FOUND;
}

DWORD Win32Network::WNetCancelConnection2W(LPCWSTR name, DWORD flags, BOOL force)
{
    static const auto call = LazyExport<decltype(&::WNetCancelConnection2W)>(L"mpr.dll", "WNetCancelConnection2W");
    return call ? call(name, flags, force) : ERROR_PROC_NOT_FOUND;
}

NTSTATUS Win32Hashing::BCryptOpenAlgorithmProvider(BCRYPT_ALG_HANDLE* algorithm, LPCWSTR id, LPCWSTR implementation,
                                                   ULONG flags)
{
    static const auto call = LazyExport<decltype(&::BCryptOpenAlgorithmProvider)>(L"bcrypt.dll", "BCryptOpenAlgorithmProvider");
    return call ? call(algorithm, id, implementation, flags) : kProcedureNotFound;
}

NTSTATUS Win32Hashing::BCryptGetProperty(BCRYPT_HANDLE object, LPCWSTR property, PUCHAR output, ULONG size,
                                         ULONG* result, ULONG flags)
{
    static const auto call = LazyExport<decltype(&::BCryptGetProperty)>(L"bcrypt.dll", "BCryptGetProperty");
    return call ? call(object, property, output, size, result, flags) : kProcedureNotFound;
}

NTSTATUS Win32Hashing::BCryptCreateHash(BCRYPT_ALG_HANDLE algorithm, BCRYPT_HASH_HANDLE* hash, PUCHAR object,
                                        ULONG objectSize, PUCHAR secret, ULONG secretSize, ULONG flags)
{
    static const auto call = LazyExport<decltype(&::BCryptCreateHash)>(L"bcrypt.dll", "BCryptCreateHash");
    return call ? call(algorithm, hash, object, objectSize, secret, secretSize, flags) : kProcedureNotFound;
}

NTSTATUS Win32Hashing::BCryptHashData(BCRYPT_HASH_HANDLE hash, PUCHAR input, ULONG size, ULONG flags)
{
    static const auto call = LazyExport<decltype(&::BCryptHashData)>(L"bcrypt.dll", "BCryptHashData");
    return call ? call(hash, input, size, flags) : kProcedureNotFound;
}

NTSTATUS Win32Hashing::BCryptFinishHash(BCRYPT_HASH_HANDLE hash, PUCHAR output, ULONG size, ULONG flags)
{
    static const auto call = LazyExport<decltype(&::BCryptFinishHash)>(L"bcrypt.dll", "BCryptFinishHash");
    return call ? call(hash, output, size, flags) : kProcedureNotFound;
}

NTSTATUS Win32Hashing::BCryptDestroyHash(BCRYPT_HASH_HANDLE hash) { static const auto call = LazyExport<decltype(&::BCryptDestroyHash)>(L"bcrypt.dll", "BCryptDestroyHash");
    return call ? call(hash) : kProcedureNotFound; }

NTSTATUS Win32Hashing::BCryptCloseAlgorithmProvider(BCRYPT_ALG_HANDLE algorithm, ULONG flags)
{
    static const auto call = LazyExport<decltype(&::BCryptCloseAlgorithmProvider)>(L"bcrypt.dll", "BCryptCloseAlgorithmProvider");
    return call ? call(algorithm, flags) : kProcedureNotFound;
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

BOOL Win32Power::ExitWindowsEx(UINT flags, DWORD reason)
{
    static const auto call = LazyExport<decltype(&::ExitWindowsEx)>(L"user32.dll", "ExitWindowsEx");
    return call ? call(flags, reason) : FALSE;
}

}  // namespace platform
