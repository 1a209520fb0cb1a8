#pragma once
// A machine that never restarts: every call of the shutdown path is
// recorded in order, and each step can be made to fail.
#include <string>
#include <vector>

#include "platform/Power.h"

namespace fakes {

class FakePower : public platform::Power {
public:
    BOOL OpenProcessToken(HANDLE process, DWORD access, PHANDLE token) override;
    BOOL LookupPrivilegeValueW(LPCWSTR systemName, LPCWSTR name, PLUID luid) override;
    BOOL AdjustTokenPrivileges(HANDLE token, BOOL disableAll, PTOKEN_PRIVILEGES newState, DWORD bufferLength,
                               PTOKEN_PRIVILEGES previousState, PDWORD returnLength) override;
    BOOL CloseHandle(HANDLE object) override;
    BOOL ExitWindowsEx(UINT flags, DWORD reason) override;

    // The operations in call order: L"OpenProcessToken", L"LookupPrivilegeValueW",
    // L"AdjustTokenPrivileges", L"CloseHandle", L"ExitWindowsEx".
    std::vector<std::wstring> calls;

    // Faults: a step set to fail returns FALSE with ERROR_ACCESS_DENIED.
    bool openTokenFails = false;
    bool lookupFails = false;
    bool adjustFails = false;
    bool exitFails = false;

    // The token handed out, and the LUID the lookup answers with.
    HANDLE token = reinterpret_cast<HANDLE>(static_cast<ULONG_PTR>(0x4242));
    LUID shutdownLuid{19, 0};

    // What the calls were given.
    HANDLE openedProcess = nullptr;
    DWORD openedAccess = 0;
    bool lookupSystemWasNull = false;
    std::wstring lookedUpName;
    HANDLE adjustedToken = nullptr;
    BOOL adjustDisableAll = TRUE;
    DWORD adjustBufferLength = 0;
    DWORD adjustCount = 0;
    LUID adjustLuid{};
    DWORD adjustAttributes = 0;
    bool adjustPreviousWasNull = false;
    bool adjustReturnLengthWasNull = false;
    std::vector<HANDLE> closed;
    UINT exitFlags = 0;
    DWORD exitReason = 0xFFFFFFFFu;
};

}  // namespace fakes
