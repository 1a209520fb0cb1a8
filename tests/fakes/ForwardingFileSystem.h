#pragma once
#include "platform/FileSystem.h"

namespace fakes {

// Hands every operation to another file system. Tests derive from it to
// watch or change the few operations they care about.
class ForwardingFileSystem : public platform::FileSystem {
public:
    explicit ForwardingFileSystem(platform::FileSystem& inner) : m_inner(inner) {}

    HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD share, DWORD disposition, DWORD attributes) override
    {
        return m_inner.CreateFileW(path, access, share, disposition, attributes);
    }
    BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read) override
    {
        return m_inner.ReadFile(file, buffer, toRead, read);
    }
    BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD toWrite, LPDWORD written) override
    {
        return m_inner.WriteFile(file, buffer, toWrite, written);
    }
    DWORD GetFileSize(HANDLE file, LPDWORD sizeHigh) override { return m_inner.GetFileSize(file, sizeHigh); }
    BOOL CloseHandle(HANDLE file) override { return m_inner.CloseHandle(file); }
    BOOL CopyFileW(LPCWSTR from, LPCWSTR to, BOOL failIfExists) override
    {
        return m_inner.CopyFileW(from, to, failIfExists);
    }
    BOOL DeleteFileW(LPCWSTR path) override { return m_inner.DeleteFileW(path); }
    HANDLE FindFirstFileW(LPCWSTR pattern, LPWIN32_FIND_DATAW data) override
    {
        return m_inner.FindFirstFileW(pattern, data);
    }
    BOOL FindNextFileW(HANDLE find, LPWIN32_FIND_DATAW data) override { return m_inner.FindNextFileW(find, data); }
    BOOL FindClose(HANDLE find) override { return m_inner.FindClose(find); }
    DWORD GetFileAttributesW(LPCWSTR path) override { return m_inner.GetFileAttributesW(path); }
    BOOL CreateDirectoryW(LPCWSTR path) override { return m_inner.CreateDirectoryW(path); }
    DWORD GetTempPathW(DWORD size, LPWSTR buffer) override { return m_inner.GetTempPathW(size, buffer); }
    BOOL GetDiskFreeSpaceExW(LPCWSTR directory, PULARGE_INTEGER freeToCaller, PULARGE_INTEGER total,
                             PULARGE_INTEGER totalFree) override
    {
        return m_inner.GetDiskFreeSpaceExW(directory, freeToCaller, total, totalFree);
    }
    DWORD GetCurrentDirectoryW(DWORD size, LPWSTR buffer) override
    {
        return m_inner.GetCurrentDirectoryW(size, buffer);
    }
    BOOL PathFileExistsW(LPCWSTR path) override { return m_inner.PathFileExistsW(path); }
    DWORD GetFileVersionInfoSizeW(LPCWSTR path, LPDWORD handle) override
    {
        return m_inner.GetFileVersionInfoSizeW(path, handle);
    }
    BOOL GetFileVersionInfoW(LPCWSTR path, DWORD handle, DWORD size, LPVOID data) override
    {
        return m_inner.GetFileVersionInfoW(path, handle, size, data);
    }
    BOOL VerQueryValueA(LPCVOID block, LPCSTR subBlock, LPVOID* buffer, PUINT length) override
    {
        return m_inner.VerQueryValueA(block, subBlock, buffer, length);
    }

protected:
    platform::FileSystem& m_inner;
};

}  // namespace fakes
