#pragma once
#include "core/win.h"

namespace platform {

// What a forced restart needs: the shutdown privilege on the process's
// token, then the request itself. Each call keeps the Windows shape and
// return convention (non-zero on success, the reason in GetLastError), so
// that the restart logic decides every step and every report itself.
class Power {
public:
    virtual ~Power() = default;
    virtual BOOL OpenProcessToken(HANDLE process, DWORD access, PHANDLE token) = 0;
    virtual BOOL LookupPrivilegeValueW(LPCWSTR systemName, LPCWSTR name, PLUID luid) = 0;
    virtual BOOL AdjustTokenPrivileges(HANDLE token, BOOL disableAll, PTOKEN_PRIVILEGES newState, DWORD bufferLength,
                                       PTOKEN_PRIVILEGES previousState, PDWORD returnLength) = 0;
    virtual BOOL CloseHandle(HANDLE object) = 0;
    virtual BOOL ExitWindowsEx(UINT flags, DWORD reason) = 0;
};

}  // namespace platform
