// The preflight check: whether this machine could take an update now.
#include "app/App.h"
#include "core/log/LogLine.h"
#include "fetch/ErrorInfo.h"
#include "platform/Handles.h"
#include "platform/Services.h"
#include "registry/Registry.h"
#include "update/UpdateRecord.h"

namespace {

// Fixed in the program; the log line calls the timeout "configured" all the same.
constexpr unsigned kWaitTimeoutMinutes = 10;
constexpr unsigned kWaitIntervalMs = 60000;
constexpr unsigned kWaitAttempts = 10;
constexpr unsigned long long kDiskThresholdBytes = 314572800ull;  // 300 MiB
constexpr DWORD kCurrentDirectoryChars = 260;

bool componentsNeedReboot(const wchar_t* key, const wchar_t* brand)
{
    corestring keyPath(key);
    if (!RegistryKeyExists(keyPath))
        return false;
    corestring valuePath(key);
    valuePath.append(L"\\Components");
    corestring components = RegistryReadOrDefault(valuePath.c_str(), L"");
    // The key alone asks for nothing: a component must be listed.
    if (components.empty())
        return false;
    LogLine(L"%s: %s components <%s> need a reboot", L"App::isRebootPending", brand, components.c_str());
    return true;
}

}  // namespace

RunResult App::performPreflightChecks()
{
    const wchar_t* tag = L"App::performPreflightChecks";
    LogLine(L"%s: begin..", tag);

    if (isWindowsUpdateInProgress()) {
        LogLine(L"%s: Windows updates are running, will wait for configured timeout for windows updates to complete",
                tag);
        if (!waitForWindowsUpdateToComplete())
            return ERR_PREFLIGHTCHECK_UPDATE_INPROGRESS;
    }

    if (!isDiskspaceSufficientForUpdate()) {
        LogLine(L"%s: Disk space is not suffcient", tag);
        return ERR_PREFLIGHTCHECK_INSUFFICIENT_DISK;
    }

    // A job fetched over HTTPS has no share path to test.
    if (!g_updateRecord.sUNC.empty() && !isValidUNCPath(g_updateRecord.sUNC)) {
        LogLine(L"%s: UNC path is not valid", tag);
        return ERR_PREFLIGHTCHECK_INVALID_UNC_PATH;
    }

    PreflightActions actions;
    performRegistryBasedChecks(actions);
    for (const corestring& action : actions)
        LogLine(L"%s: preflight final actions: [%s]", tag, action.c_str());

    // A rule's ERROR wins over its REBOOT, and either spares the reboot keys.
    if (actions.count(corestring(L"ERROR")))
        return ERR_PREFLIGHTCHECK_FAILED;
    if (actions.count(corestring(L"REBOOT")))
        return ERR_PREFLIGHTCHECK_REBOOT;
    if (isRebootPending())
        return ERR_PREFLIGHTCHECK_REBOOT;
    return ERR_PREFLIGHTCHECK_OK;
}

bool App::waitForWindowsUpdateToComplete()
{
    const wchar_t* tag = L"App::waitForWindowsUpdateToComplete";
    LogLine(L"%s: Waiting for wait timeout= %u mins, waitInterval= %u ms, maxAttempts=%u", tag, kWaitTimeoutMinutes,
            kWaitIntervalMs, kWaitAttempts);
    for (unsigned attempt = 1; attempt <= kWaitAttempts; ++attempt) {
        if (!isWindowsUpdateInProgress()) {
            LogLine(L"%s: Windows update installation is completed, exiting..", tag);
            return true;
        }
        // The last attempt announces a wait it doesn't make.
        LogLine(L"%s: Windows update installation is still in progress - will wait for (%u) milliseconds for next "
                L"check, attempt (%u)",
                tag, kWaitIntervalMs, attempt);
        if (attempt < kWaitAttempts)
            platform::clock().Sleep(kWaitIntervalMs);
    }
    LogLine(L"%s: Windows updates are still running, exiting", tag);
    return false;
}

bool App::isWindowsUpdateInProgress()
{
    const wchar_t* tag = L"App::isWindowsUpdateInProgress";
    using Failure = platform::UpdateAgent::Failure;
    platform::UpdateAgent::Answer answer = platform::updateAgent().QueryInstallerBusy();
    // When the agent can't tell, the check lets the update go ahead.
    switch (answer.failure) {
    case Failure::CreateInstaller:
        LogLine(L"%s: Failed to get IUpdateInstallerInterface, error = [%ld]", tag, static_cast<long>(answer.error));
        return false;
    case Failure::ReadIsBusy:
        LogLine(L"%s: Unable to retrieve IsBusy property, error = [%ld]", tag, static_cast<long>(answer.error));
        return false;
    case Failure::None:
        break;
    }
    if (answer.busy) {
        LogLine(L"%s: Windows updates installation or uninstallation is in progress at this time", tag);
        return true;
    }
    LogLine(L"%s: Windows updates are not running at this time", tag);
    return false;
}

bool App::isDiskspaceSufficientForUpdate()
{
    const wchar_t* tag = L"App::isDiskspaceSufficientForUpdate";
    platform::FileSystem& files = platform::files();
    // The drive of the current directory, not the workspace's. Unknowns let
    // the update go ahead.
    wchar_t directory[kCurrentDirectoryChars] = {};
    DWORD length = files.GetCurrentDirectoryW(kCurrentDirectoryChars, directory);
    if (length == 0) {
        LogLine(L"%s: unable to fetch current directory path, error [%lu]", tag,
                static_cast<unsigned long>(::GetLastError()));
        return true;
    }
    // A longer directory doesn't fit; the buffer then holds no path at all.
    if (length >= kCurrentDirectoryChars)
        directory[0] = L'\0';
    LogLine(L"%s: current directory =  [%s]", tag, directory);

    ULARGE_INTEGER freeToCaller{}, total{}, totalFree{};
    if (!files.GetDiskFreeSpaceExW(directory, &freeToCaller, &total, &totalFree)) {
        LogLine(L"%s: Failed to check diskspace, error  [%lu]", tag, static_cast<unsigned long>(::GetLastError()));
        return true;
    }
    LogLine(L"%s: Total Disk space= [%I64u] GB, Free disk space = [%I64u] GB", tag, total.QuadPart >> 30,
            totalFree.QuadPart >> 30);
    if (totalFree.QuadPart >= kDiskThresholdBytes)
        return true;
    LogLine(L"%s: Insufficient disk space, disk space = [%I64u] MB", tag, totalFree.QuadPart >> 20);
    return false;
}

bool App::isValidUNCPath(const corestring& path)
{
    const wchar_t* tag = L"App::isValidUNCPath";
    LogLine(L"%s: validating UNC path format and required permissions, UNC: %s", tag, path.c_str());
    // The tool's own rights, no connection made first: the path must name
    // the installer file itself.
    platform::FileHandle file(platform::files().CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ,
                                                            OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL));
    if (!file.valid()) {
        ErrorInfo info = Util_GetErrorInfo(::GetLastError());
        LogLine(L"%s: No required permission on the SMB share or the provided UNC path is not a complete installer file "
                L"path, (error): %s",
                tag, info.description.c_str());
        return false;
    }
    return true;
}

bool App::isRebootPending()
{
    const wchar_t* tag = L"App::isRebootPending";
    LogLine(L"%s: checking registry keys for reboot pending", tag);
    // For the system's keys the key alone counts.
    if (RegistryKeyExists(corestring(
            L"HKEY_LOCAL_MACHINE\\Software\\Microsoft\\Windows\\CurrentVersion\\WindowsUpdate\\Auto Update\\RebootRequired"))) {
        LogLine(L"%s: Windows Auto Update Reboot is pending", tag);
        return true;
    }
    if (RegistryKeyExists(corestring(
            L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Component Based Servicing\\RebootPending"))) {
        LogLine(L"%s: Windows Component Based Servicing (CBS) Reboot is pending", tag);
        return true;
    }
    if (componentsNeedReboot(L"HKLM\\SOFTWARE\\Tarvelle\\NeedReboot", L"Tarvelle"))
        return true;
    if (componentsNeedReboot(L"HKLM\\SOFTWARE\\Kesmarc, Inc.\\NeedReboot", L"Kesmarc"))
        return true;
    return false;
}
