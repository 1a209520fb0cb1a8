#include "agent/GenericAgent.h"

#include "core/log/LogLine.h"
#include "update/UpdateRecord.h"

using CORE::corestring;

GenericAgent::GenericAgent(const corestring& filename) : Agent(corestring(), filename) {}

bool GenericAgent::GetVersion()
{
    // Nothing is known about such a product: the job's file is the update.
    return true;
}

std::uint32_t GenericAgent::Launch(bool testMode, std::uint32_t /*rebootMode*/, const corestring& options,
                                   std::uint32_t* exitCode)
{
    static const wchar_t kTag[] = L"GenericAgent::Launch";
    corestring extension = updateFilename.right(4);
    corestring commandLine;
    if (CORE::keywordEquals(extension.c_str(), L".msi", true)) {
        commandLine = L"msiexec /i ";
        commandLine.append(QuotedUpdateFilename()).append(L" /qn");
    } else if (CORE::keywordEquals(extension.c_str(), L".exe", true)) {
        commandLine = QuotedUpdateFilename();
        commandLine.append(L" /s /v /qn");
    } else {
        LogLine(L"%s: invalid extension: %s", kTag, extension.c_str());
        return kLaunchBadExtension;
    }
    if (!options.empty())
        commandLine.append(L" ").append(options);

    std::uint32_t code = 0;
    std::uint32_t result = LaunchHelper(testMode, commandLine, &code);
    if (result != kLaunchOk)
        return result;  // the exit code is left as the caller had it
    if (exitCode)
        *exitCode = code;
    switch (code) {
    case 0:
    case 1641:  // the installer restarts the machine itself
        return kLaunchOk;
    case 3010:  // done, but the machine must restart: ours to do at the end of the run
        g_updateRecord.rebootRequired = true;
        return kLaunchOk;
    default:
        return kLaunchExitCodeFailure;
    }
}

LaunchVerdict GenericAgent::Judge(std::uint32_t launchResult) const
{
    if (launchResult == kLaunchExitCodeFailure)
        return LaunchVerdict::RebootRequired;
    if (launchResult == kLaunchOk)
        return LaunchVerdict::Succeeded;
    return LaunchVerdict::None;
}
