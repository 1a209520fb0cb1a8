#include "update/Reboot.h"

#include "core/log/LogLine.h"
#include "platform/Handles.h"
#include "update/RetrySettings.h"
#include "update/UpdateRecord.h"

namespace {

// EWX_REBOOT | EWX_FORCE | EWX_FORCEIFHUNG: nobody is asked, a hung
// program doesn't hold the restart up.
constexpr UINT kRebootFlags = 22;
static_assert(sizeof(TOKEN_PRIVILEGES) == 16, "one privilege, as the adjustment's buffer length says");

}  // namespace

void Util_CheckReboot()
{
    const wchar_t* tag = L"Util_CheckReboot";
    if (!g_updateRecord.rebootRequired)
        return;

    // A restart for the preflight checks comes at once; an update's restart
    // waits longer with every retry. The product wraps in 32 bits.
    if (!CORE::keywordEquals(g_updateRecord.sResult.c_str(), L"PREFLIGHTCHECK_INPROGRESS", false)) {
        LogLine(L"%s: wait for a while", tag);
        DWORD wait = static_cast<DWORD>(static_cast<std::uint32_t>(g_updateRecord.nRetry) * retryWaitMs);
        platform::clock().Sleep(wait);
        LogLine(L"%s: done waiting", tag);
    }

    if (Util_Reboot())
        LogLine(L"Initiated system reboot successfully.");
    else
        LogLine(L"REBOOT FAILED");
}

bool Util_Reboot()
{
    platform::Power& power = platform::power();

    HANDLE opened = nullptr;
    if (!power.OpenProcessToken(::GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES, &opened)) {
        LogLine(L"Unable to open process token for self");
        return false;
    }
    platform::TokenHandle token(opened);

    TOKEN_PRIVILEGES privileges{};
    // Its result goes unchecked; the adjustment's return is the one test.
    power.LookupPrivilegeValueW(nullptr, SE_SHUTDOWN_NAME, &privileges.Privileges[0].Luid);
    privileges.PrivilegeCount = 1;
    privileges.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;

    if (!power.AdjustTokenPrivileges(token.get(), FALSE, &privileges, sizeof privileges, nullptr, nullptr)) {
        LogLine(L"Unable to adjust token privileges");
        return false;
    }
    // Closed before the restart is asked for, as the request may not return.
    token.reset();
    return power.ExitWindowsEx(kRebootFlags, 0) != FALSE;
}
