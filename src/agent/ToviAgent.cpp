#include "agent/ToviAgent.h"

#include "core/log/LogLine.h"
#include "registry/Registry.h"

using CORE::corestring;

ToviAgent::ToviAgent(const corestring& overrideVersion, const corestring& overrideFilename)
    : Agent(overrideVersion, overrideFilename)
{
}

bool ToviAgent::GetVersion()
{
    static const wchar_t kTag[] = L"ToviAgent::GetVersion";
    // The current product first, then what the legacy brand installed.
    if (!FindInstalledVersion(corestring(L"{6E1F3A90-52D7-4B1C-9C3E-7A40D2B1F6E8}")) &&
        !FindInstalledVersion(corestring(L"{C04B7D21-8E36-47FA-A15D-3F9E26C8B074}"))) {
        corestring path = GetNewRootKeyPath();
        path.append(L"\\ProductVersion");
        corestring registered = RegistryReadOrDefault(path.c_str(), L"");
        if (!registered.empty())
            installedVersion = registered;
    }
    if (installedVersion.empty()) {
        LogLine(L"%s: installed version not found", kTag);
    } else {
        LogLine(L"%s: installedVersion: %s", kTag, installedVersion.c_str());
    }
    if (FindUpdateVersion(corestring(L"Kesmarc-Zenthra-Agent"), true, corestring(L"direct-connection"))) {
        LogLine(L"%s: updateVersion: %s updateFileName: %s", kTag, updateVersion.c_str(), updateFilename.c_str());
        return true;
    }
    LogLine(L"%s: update version not found", kTag);
    return false;
}

std::uint32_t ToviAgent::Launch(bool testMode, std::uint32_t rebootMode, const corestring& options,
                                std::uint32_t* exitCode)
{
    corestring commandLine = QuotedUpdateFilename();
    commandLine.append(L" /s /v /qn");
    commandLine.append(L" TQM_SKIP_ADD_LDAP_MACHINE_ENTRY=1");
    if (rebootMode == 2) {
        commandLine.append(L" REBOOT=Force");
    } else if (rebootMode == 1) {
        commandLine.append(L" REBOOT=ReallySuppress");
    }
    if (!options.empty())
        commandLine.append(L" ").append(options);

    std::uint32_t code = 0;
    std::uint32_t result = LaunchHelper(testMode, commandLine, &code);
    if (result != kLaunchOk)
        return result;  // the exit code is left as the caller had it
    if (exitCode)
        *exitCode = code;
    if (code == 1638)  // another version of the product is installed
        return kLaunchFailed;
    if (code == 3010)
        return kLaunchExitCodeFailure;
    return kLaunchOk;
}
