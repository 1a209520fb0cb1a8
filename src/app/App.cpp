#include "app/App.h"

#include "agent/GenericAgent.h"
#include "agent/ToviAgent.h"
#include "core/log/LogLine.h"
#include "diagnostics/FailureReport.h"
#include "fetch/ErrorInfo.h"
#include "fetch/Workspace.h"
#include "platform/Services.h"
#include "registry/Registry.h"
#include "update/UpdateRecord.h"
#include "update/UpdateRecordReader.h"

using CORE::keywordEquals;

namespace {

void copyVersions(const Agent& agent)
{
    g_updateRecord.sFromVersion = agent.installedVersion;
    g_updateRecord.sToVersion = agent.updateVersion;
}

// Exit codes that are no failure of the installer, whatever the kind made of them.
bool isCleanExit(std::uint32_t exitCode) { return exitCode == 3010 || exitCode == 0 || exitCode == 1641; }

}  // namespace

bool App::Init()
{
    workspace = Util_GetWorkspace();
    if (workspace.empty())
        return false;

    corestring commandLine(platform::processes().GetCommandLineW());
    if (!ParseCmdline(commandLine))
        return false;

    if (!Util_GetUpdateState(properties))
        return false;

    corestring agent = properties.get(L"AGENT");
    if (keywordEquals(agent.c_str(), L"TOVI", true)) {
        // The job's values win over the override file, even when they are empty.
        overrideVersion = properties.get(L"VERSION");
        overrideFilename = properties.get(L"FILENAME");
        agents.push_back(std::make_unique<ToviAgent>(overrideVersion, overrideFilename));
    } else if (keywordEquals(agent.c_str(), L"OTHER", true)) {
        agents.push_back(std::make_unique<GenericAgent>(properties.get(L"FILENAME")));
    }
    // Any other kind: no agent, and the run ends as having nothing to update.

    arch = properties.get(L"ARCH");
    options = properties.get(L"OPTIONS");
    if (!options.empty()) {
        // Substring searches: "PREFLIGHTCHECK_ENABLED=10" counts as 1 as well.
        if (corestring::findNoCase(options.c_str(), L"PREFLIGHTCHECK_ENABLED=1") != corestring::npos)
            preflightEnabled = true;
        if (corestring::findNoCase(options.c_str(), L"PREFLIGHTCHECK_ENABLED=2") != corestring::npos) {
            preflightEnabled = true;
            legacyWorkflow = true;
        }
    }
    return true;
}

bool App::CheckVersion()
{
    const wchar_t* tag = L"App::CheckVersion";
    for (const std::unique_ptr<Agent>& agent : agents) {
        if (!agent)
            continue;
        LogLine(L"=== Check Version ===");
        // Only logged: UpdateAvailable alone decides, so that a forced run
        // reinstalls an equal or older version.
        if (!agent->GetVersion())
            LogLine(L"%s: GetVersion could not find the update file", tag);
        if (!agent->CompVersion())
            LogLine(L"%s: CompVersion does not require to upgrade", tag);
        if (agent->UpdateAvailable(forceUpdate))
            updates.push_back(agent.get());
        else
            LogLine(L"%s: Update not available", tag);
    }
    return !updates.empty();
}

RunResult App::Update()
{
    const wchar_t* tag = L"App::Update";
    RunResult result = ERR_FAILURE;
    LogLine(L"=== Update ===");
    if (updates.empty())
        return ERR_FAILURE;

    // Not written when Launch stops before an installer has ended.
    std::uint32_t exitCode = 0;
    bool launchFailed = false;
    Agent* last = updates.back();
    for (Agent* agent : updates) {
        if (!agent)
            continue;
        const std::uint32_t rebootMode = agent == last ? agent->RebootModeAsLast() : 1;
        std::uint32_t launchResult = agent->Launch(testMode, rebootMode, options, &exitCode);
        copyVersions(*agent);

        switch (agent->Judge(launchResult)) {
        case LaunchVerdict::RebootRequired:
            LogLine(L"%s: agent reboot required", tag);
            result = ERR_REBOOT;
            break;
        case LaunchVerdict::Succeeded:
            LogLine(L"%s: agent update succeeded", tag);
            result = ERR_NOAGENT;
            break;
        case LaunchVerdict::None:
            break;
        }
        if (launchResult != kLaunchOk) {
            launchFailed = true;
            break;
        }
    }
    if (!launchFailed)
        return result;

    // The remaining agents are not launched.
    LogLine(L"%s: no Launch", tag);
    if (isCleanExit(exitCode))
        return result;

    UpdateRecord& r = g_updateRecord;
    r.sErrorCode = Util_GetErrorInfo(exitCode).name;
    r.sErrorDesc = CORE::errorText(exitCode);
    // The installer leaves its own words here; only the new root is read.
    corestring installError = RegistryReadOrDefault(LastInstallErrorPath(GetNewRootKeyPath()).c_str(), L"");
    if (!installError.empty()) {
        corestring suffix;
        corestring::format(suffix, L" - %s", installError.c_str());
        r.sErrorDesc.append(suffix);
    }
    if (!WriteFailedCustomActionDetailsToRegistry())
        LogLine(L"%s: ERROR: Failed to write MSI error details to registry", tag);
    LogLine(L"%s: Error code and description: %s, %s", tag, r.sErrorCode.c_str(), r.sErrorDesc.c_str());
    return result;
}

void App::Cleanup()
{
    const wchar_t* tag = L"App::Cleanup";
    updates.clear();
    agents.clear();

    // Removed at the end of every run, the new root first.
    for (corestring root : {GetNewRootKeyPath(), GetLegacyRootKeyPath()}) {
        corestring path = LastInstallErrorPath(root);
        if (!Util_DeleteRegistryIfExists(path))
            LogLine(L"%s: Failed to delete %s registry key", tag, path.c_str());
    }
}
