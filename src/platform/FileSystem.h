#pragma once
#include "core/win.h"

namespace platform {

// Files, folders and volumes. Failures set the thread's last error as the
// Windows calls do.
class FileSystem {
public:
    virtual ~FileSystem() = default;
    virtual HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD share, DWORD disposition, DWORD attributes) = 0;
    virtual BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read) = 0;
    virtual BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD toWrite, LPDWORD written) = 0;
    virtual DWORD GetFileSize(HANDLE file, LPDWORD sizeHigh) = 0;
    virtual BOOL CloseHandle(HANDLE file) = 0;
    virtual BOOL CopyFileW(LPCWSTR from, LPCWSTR to, BOOL failIfExists) = 0;
    virtual BOOL DeleteFileW(LPCWSTR path) = 0;
    virtual HANDLE FindFirstFileW(LPCWSTR pattern, LPWIN32_FIND_DATAW data) = 0;
    virtual BOOL FindNextFileW(HANDLE find, LPWIN32_FIND_DATAW data) = 0;
    virtual BOOL FindClose(HANDLE find) = 0;
    virtual DWORD GetFileAttributesW(LPCWSTR path) = 0;
    virtual BOOL CreateDirectoryW(LPCWSTR path) = 0;  // default security
    virtual DWORD GetTempPathW(DWORD size, LPWSTR buffer) = 0;
    virtual BOOL GetDiskFreeSpaceExW(LPCWSTR directory, PULARGE_INTEGER freeToCaller,
                                     PULARGE_INTEGER total, PULARGE_INTEGER totalFree) = 0;
    virtual DWORD GetCurrentDirectoryW(DWORD size, LPWSTR buffer) = 0;
    virtual BOOL PathFileExistsW(LPCWSTR path) = 0;
    // A file's version resource: its size, the block itself, and a value
    // inside the block (VerQueryValueA works on the block alone).
    virtual DWORD GetFileVersionInfoSizeW(LPCWSTR path, LPDWORD handle) = 0;
    virtual BOOL GetFileVersionInfoW(LPCWSTR path, DWORD handle, DWORD size, LPVOID data) = 0;
    virtual BOOL VerQueryValueA(LPCVOID block, LPCSTR subBlock, LPVOID* buffer, PUINT length) = 0;
};

}  // namespace platform
