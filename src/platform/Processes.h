#pragma once
#include "core/win.h"

namespace platform {

// This process, other processes and machine-wide named objects.
class Processes {
public:
    virtual ~Processes() = default;
    virtual BOOL CreateProcessW(LPCWSTR application, LPWSTR commandLine, BOOL inheritHandles, DWORD flags,
                                LPCWSTR currentDirectory, LPSTARTUPINFOW startup,
                                LPPROCESS_INFORMATION info) = 0;
    virtual DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds) = 0;
    virtual BOOL GetExitCodeProcess(HANDLE process, LPDWORD exitCode) = 0;
    virtual BOOL CloseHandle(HANDLE object) = 0;
    // No security attributes. GetLastError() is 183 afterwards when the
    // object existed already.
    virtual HANDLE CreateMutexW(BOOL initialOwner, LPCWSTR name) = 0;
    virtual LPWSTR GetCommandLineW() = 0;
    virtual DWORD GetModuleFileNameW(HMODULE module, LPWSTR buffer, DWORD size) = 0;
    virtual void GetNativeSystemInfo(LPSYSTEM_INFO info) = 0;
};

}  // namespace platform
