#include "platform/win32/Win32Services.h"

#include <shlwapi.h>

#include "core/LazyDll.h"

namespace platform {

using CORE::LazyExport;

HANDLE Win32FileSystem::CreateFileW(LPCWSTR path, DWORD access, DWORD share, DWORD disposition, DWORD attributes)
{
    return ::CreateFileW(path, access, share, nullptr, disposition, attributes, nullptr);
}

BOOL Win32FileSystem::ReadFile(HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read)
{
    return ::ReadFile(file, buffer, toRead, read, nullptr);
}

BOOL Win32FileSystem::WriteFile(HANDLE file, LPCVOID buffer, DWORD toWrite, LPDWORD written)
{
    return ::WriteFile(file, buffer, toWrite, written, nullptr);
}

DWORD Win32FileSystem::GetFileSize(HANDLE file, LPDWORD sizeHigh) { return ::GetFileSize(file, sizeHigh); }

BOOL Win32FileSystem::CloseHandle(HANDLE file) { return ::CloseHandle(file); }

BOOL Win32FileSystem::CopyFileW(LPCWSTR from, LPCWSTR to, BOOL failIfExists) { return ::CopyFileW(from, to, failIfExists); }

BOOL Win32FileSystem::DeleteFileW(LPCWSTR path) { return ::DeleteFileW(path); }

HANDLE Win32FileSystem::FindFirstFileW(LPCWSTR pattern, LPWIN32_FIND_DATAW data) { return ::FindFirstFileW(pattern, data); }

BOOL Win32FileSystem::FindNextFileW(HANDLE find, LPWIN32_FIND_DATAW data) { return ::FindNextFileW(find, data); }

BOOL Win32FileSystem::FindClose(HANDLE find) { return ::FindClose(find); }

DWORD Win32FileSystem::GetFileAttributesW(LPCWSTR path) { return ::GetFileAttributesW(path); }

BOOL Win32FileSystem::CreateDirectoryW(LPCWSTR path) { return ::CreateDirectoryW(path, nullptr); }

DWORD Win32FileSystem::GetTempPathW(DWORD size, LPWSTR buffer) { return ::GetTempPathW(size, buffer); }

BOOL Win32FileSystem::GetDiskFreeSpaceExW(LPCWSTR directory, PULARGE_INTEGER freeToCaller, PULARGE_INTEGER total,
                                          PULARGE_INTEGER totalFree)
{
    return ::GetDiskFreeSpaceExW(directory, freeToCaller, total, totalFree);
}

DWORD Win32FileSystem::GetCurrentDirectoryW(DWORD size, LPWSTR buffer) { return ::GetCurrentDirectoryW(size, buffer); }

BOOL Win32FileSystem::PathFileExistsW(LPCWSTR path)
{
    static const auto call = LazyExport<decltype(&::PathFileExistsW)>(L"shlwapi.dll", "PathFileExistsW");
    return call ? call(path) : FALSE;
}

DWORD Win32FileSystem::GetFileVersionInfoSizeW(LPCWSTR path, LPDWORD handle)
{
    return ::GetFileVersionInfoSizeW(path, handle);
}

BOOL Win32FileSystem::GetFileVersionInfoW(LPCWSTR path, DWORD handle, DWORD size, LPVOID data)
{
    return ::GetFileVersionInfoW(path, handle, size, data);
}

BOOL Win32FileSystem::VerQueryValueA(LPCVOID block, LPCSTR subBlock, LPVOID* buffer, PUINT length)
{
    return ::VerQueryValueA(block, subBlock, buffer, length);
}

}  // namespace platform
