#include "platform/win32/Win32Services.h"

namespace platform {

BOOL Win32Processes::CreateProcessW(LPCWSTR application, LPWSTR commandLine, BOOL inheritHandles, DWORD flags,
                                    LPCWSTR currentDirectory, LPSTARTUPINFOW startup, LPPROCESS_INFORMATION info)
{
    return ::CreateProcessW(application, commandLine, nullptr, nullptr, inheritHandles, flags, nullptr,
                            currentDirectory, startup, info);
}

DWORD Win32Processes::WaitForSingleObject(HANDLE object, DWORD milliseconds)
{
    return ::WaitForSingleObject(object, milliseconds);
}

BOOL Win32Processes::GetExitCodeProcess(HANDLE process, LPDWORD exitCode) { return ::GetExitCodeProcess(process, exitCode); }

BOOL Win32Processes::CloseHandle(HANDLE object) { return ::CloseHandle(object); }

HANDLE Win32Processes::CreateMutexW(BOOL initialOwner, LPCWSTR name) { return ::CreateMutexW(nullptr, initialOwner, name); }

LPWSTR Win32Processes::GetCommandLineW() { return ::GetCommandLineW(); }

DWORD Win32Processes::GetModuleFileNameW(HMODULE module, LPWSTR buffer, DWORD size)
{
    return ::GetModuleFileNameW(module, buffer, size);
}

void Win32Processes::GetNativeSystemInfo(LPSYSTEM_INFO info) { ::GetNativeSystemInfo(info); }

}  // namespace platform
