#include "app/RunSequence.h"

#include "agent/Agent.h"
#include "app/App.h"
#include "core/log/LogLine.h"
#include "diagnostics/Telemetry.h"
#include "fetch/Download.h"
#include "fetch/ShareCopy.h"
#include "platform/Services.h"
#include "registry/Policy.h"
#include "registry/Registry.h"
#include "update/Reboot.h"
#include "update/StateMachine.h"
#include "update/UpdateRecord.h"

using CORE::corestring;

namespace {

constexpr DWORD kRebootPendingWaitMinutes = 5;

bool readEnabled()
{
    corestring path = GetNewRootKeyPath();
    path.append(L"\\Agent\\Update\\");
    path.append(L"Enabled");
    return ParseBool(PolicyReadOrDefault(path, L"1"));
}

// Only existence counts: type and data are ignored.
bool needRebootPending()
{
    corestring value;
    corestring path = GetNewRootKeyPath();
    path.append(L"\\Agent\\UpdateStatusVolatile\\NeedReboot");
    bool underNew = RegistryRead(value, path, kRegAnyType, false) != kRegReadFailed;
    path = GetLegacyRootKeyPath();
    path.append(L"\\Agent\\UpdateStatusVolatile\\NeedReboot");
    bool underLegacy = RegistryRead(value, path, kRegAnyType, false) != kRegReadFailed;
    return underNew || underLegacy;
}

}  // namespace

corestring ProgramFileName()
{
    wchar_t buffer[2047] = {};
    platform::processes().GetModuleFileNameW(nullptr, buffer, 2047);
    buffer[2046] = L'\0';
    const wchar_t* slash = wcsrchr(buffer, L'\\');
    return corestring(slash ? slash + 1 : buffer);
}

bool IsUpdateToolEnabled()
{
    // The second reading is the same place again, not the legacy root.
    bool first = readEnabled();
    bool second = readEnabled();
    return first && second;
}

bool IsPreflightCheckComplete()
{
    corestring path = JobKeyPath(GetNewRootKeyPath());
    path.append(L"\\PreflightCheckComplete");
    return ParseBool(RegistryReadOrDefault(path, L"0"));
}

RunResult CheckPlatform(const corestring& arch, bool hostX64)
{
    const wchar_t* tag = L"App::CheckPlatform";
    if (arch.empty()) {
        LogLine(L"%s: arch type empty", tag);
        return ERR_INCOMPATIBLE;
    }
    if (CORE::keywordEquals(arch, L"64-BitAgent", true) && hostX64)
        return ERR_SUCCESS;
    if (CORE::keywordEquals(arch, L"32-BitAgent", true) && !hostX64)
        return ERR_SUCCESS;
    // Accepted on any host, a 32-bit one included.
    if (CORE::keywordEquals(arch, L"Use32-BitAgentOn64", true))
        return ERR_SUCCESS;
    LogLine(L"%s: arch type mismatch: %s on %s host", tag, arch.c_str(), hostX64 ? L"64-bit" : L"32-bit");
    return ERR_INCOMPATIBLE;
}

RunResult RunUpdateTool()
{
    if (!IsUpdateToolEnabled())
        return ERR_KILLSWITCH;

    // Held until the process exits; never closed.
    platform::processes().CreateMutexW(TRUE, L"Global\\3D7E0C14-6AB2-4F95-B0E1-92C5F7A3D168");
    if (::GetLastError() == ERROR_ALREADY_EXISTS) {
        LogLine(L"%s duplicate instance, exit now\n", ProgramFileName().c_str());
        return ERR_DUPLICATE;
    }

    RunResult result = ERR_FAILURE;

    if (needRebootPending()) {
        LogLine(L"%s: Reboot action triggered by Update tool is still pending, waiting for (%u) minutes before "
                L"proceeeding..",
                L"wmain", kRebootPendingWaitMinutes);
        platform::clock().Sleep(kRebootPendingWaitMinutes * 60 * 1000);
    }

    App app;
    if (app.Init()) {
        bool work = true;
        if (app.preflightEnabled) {
            if (!app.legacyWorkflow || !IsPreflightCheckComplete()) {
                result = app.performPreflightChecks();
                work = false;
            } else {
                LogLine(L"%s: legacy workflow in use and preflight check is already completed, skipping it for "
                        L"relaunch",
                        L"wmain");
            }
        }
        if (work && !g_updateRecord.sUNC.empty() && !Util_UNCDownload())
            work = false;
        if (work && !g_updateRecord.sURLs.empty() && !Util_DoDownload())
            work = false;
        if (work) {
            RunResult platformCheck = CheckPlatform(app.arch, isHostX64);
            if (platformCheck != ERR_SUCCESS)
                result = platformCheck;
            else if (!app.CheckVersion())
                result = ERR_NOAGENT;
            else
                result = app.Update();
        }
    }

    if (!Util_UpdateDone(result, app.legacyWorkflow))
        LogLine(L"%s: failed to save the update state", L"wmain");
    if (!Util_UpdateDataForTelemetry())
        LogLine(L"%s: failed to save the telemetry data", L"wmain");
    app.Cleanup();
    Util_CheckReboot();
    LogLine(L"%s: Updatetool rc = %s", L"wmain", GetRunResultName(result).c_str());
    return result;
}
