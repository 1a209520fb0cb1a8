#include "fakes/FakePower.h"

namespace fakes {

namespace {

BOOL refuse()
{
    ::SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
}

}  // namespace

BOOL FakePower::OpenProcessToken(HANDLE process, DWORD access, PHANDLE out)
{
    calls.push_back(L"OpenProcessToken");
    openedProcess = process;
    openedAccess = access;
    if (openTokenFails)
        return refuse();
    *out = token;
    return TRUE;
}

BOOL FakePower::LookupPrivilegeValueW(LPCWSTR systemName, LPCWSTR name, PLUID luid)
{
    calls.push_back(L"LookupPrivilegeValueW");
    lookupSystemWasNull = systemName == nullptr;
    lookedUpName = name ? name : L"";
    if (lookupFails)
        return refuse();
    *luid = shutdownLuid;
    return TRUE;
}

BOOL FakePower::AdjustTokenPrivileges(HANDLE handle, BOOL disableAll, PTOKEN_PRIVILEGES newState, DWORD bufferLength,
                                      PTOKEN_PRIVILEGES previousState, PDWORD returnLength)
{
    calls.push_back(L"AdjustTokenPrivileges");
    adjustedToken = handle;
    adjustDisableAll = disableAll;
    adjustBufferLength = bufferLength;
    adjustPreviousWasNull = previousState == nullptr;
    adjustReturnLengthWasNull = returnLength == nullptr;
    if (newState) {
        adjustCount = newState->PrivilegeCount;
        adjustLuid = newState->Privileges[0].Luid;
        adjustAttributes = newState->Privileges[0].Attributes;
    }
    if (adjustFails)
        return refuse();
    return TRUE;
}

BOOL FakePower::CloseHandle(HANDLE object)
{
    calls.push_back(L"CloseHandle");
    closed.push_back(object);
    return TRUE;
}

BOOL FakePower::ExitWindowsEx(UINT flags, DWORD reason)
{
    calls.push_back(L"ExitWindowsEx");
    exitFlags = flags;
    exitReason = reason;
    if (exitFails)
        return refuse();
    return TRUE;
}

}  // namespace fakes
