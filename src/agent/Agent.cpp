#include "agent/Agent.h"

#include <cstring>
#include <cwchar>

#include "core/log/LogLine.h"
#include "fetch/Workspace.h"
#include "platform/Handles.h"

using CORE::corestring;

bool isHostX64 = false;

namespace {

// Lower-cased substring test, as the installer file rules want it.
bool containsNoCase(const wchar_t* text, const wchar_t* needle)
{
    return corestring::findNoCase(text, needle) != corestring::npos;
}

// Every "x86_64" out of a version text, in one pass from the left.
void removeArchTag(corestring& text)
{
    static const wchar_t kTag[] = L"x86_64";
    const std::uint64_t tagLength = std::wcslen(kTag);
    std::uint64_t from = 0;
    while (from <= text.length()) {
        std::uint64_t hit = corestring::findNoCase(text.c_str() + from, kTag);
        if (hit == corestring::npos)
            break;
        text.replaceRange(from + hit, tagLength, nullptr, 0);
        from += hit;
    }
}

}  // namespace

bool Agent::IsHostX64()
{
    SYSTEM_INFO info{};
    platform::processes().GetNativeSystemInfo(&info);
    // Arm hosts count as 32-bit: only AMD64 runs the 64-bit agent.
    bool x64 = info.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_AMD64;
    LogLine(L"%s: host system: %s", L"Agent::IsHostX64", x64 ? L"64-bit" : L"32-bit");
    return x64;
}

Agent::Agent(const corestring& overrideVersion, const corestring& overrideFilename)
{
    static const wchar_t kTag[] = L"Agent::Agent";
    if (!overrideVersion.empty()) {
        LogLine(L"%s: override version: %s", kTag, overrideVersion.c_str());
        updateVersion = overrideVersion;
    }
    if (overrideFilename.empty())
        return;
    LogLine(L"%s: override filename: %s", kTag, overrideFilename.c_str());
    // A bare name is a file the fetch step left in the workspace.
    if (overrideFilename.findChar(L'\\') != corestring::npos) {
        updateFilename = overrideFilename;
    } else {
        updateFilename = Util_GetWorkspace();
        updateFilename.appendPath(overrideFilename.c_str());
    }
}

bool Agent::FindInstalledVersion(const corestring& upgradeCode)
{
    static const wchar_t kTag[] = L"Agent::FindInstalledVersion";
    // A braced GUID and its terminator. Only the first related product counts.
    wchar_t productCode[39] = {};
    UINT rc = platform::installer().MsiEnumRelatedProductsW(upgradeCode.c_str(), 0, 0, productCode);
    if (rc != 0) {
        LogLine(L"%s: MsiEnumRelatedProducts failed: %u code: %s", kTag, rc, upgradeCode.c_str());
        return false;
    }
    wchar_t version[256] = {};
    DWORD size = 256;
    rc = platform::installer().MsiGetProductInfoW(productCode, L"VersionString", version, &size);
    if (rc != 0) {
        LogLine(L"%s: MsiGetProductInfo failed: %u code: %s", kTag, rc, productCode);
        return false;
    }
    version[255] = L'\0';
    installedVersion = version;
    return true;
}

bool Agent::FindUpdateVersion(const corestring& namePrefix, bool archAware, const corestring& excludedText)
{
    static const wchar_t kTag[] = L"Agent::FindUpdateVersion";
    // A file named by an override or by the job is taken as it is.
    if (updateFilename.empty()) {
        const bool want64 = archAware && isHostX64;
        corestring workspace = Util_GetWorkspace();
        corestring pattern = workspace;
        pattern.appendPath(namePrefix.c_str());
        if (want64)
            pattern.append(L"-x86_64");
        pattern.append(L"*");

        WIN32_FIND_DATAW data{};
        platform::FindHandle find(platform::files().FindFirstFileW(pattern.c_str(), &data));
        if (!find) {
            DWORD error = ::GetLastError();
            LogLine(L"%s: FindFirstFile error: %s %s", kTag, pattern.c_str(), CORE::errorText(error).c_str());
            return false;
        }
        bool found = false;
        do {
            data.cFileName[MAX_PATH - 1] = L'\0';
            const wchar_t* name = data.cFileName;
            if (!excludedText.empty() && containsNoCase(name, excludedText.c_str()))
                continue;
            // A 32-bit host, or a search that doesn't care, never takes a 64-bit installer.
            if (containsNoCase(name, L"x86_64") != want64)
                continue;
            found = true;
            break;
        } while (platform::files().FindNextFileW(find.get(), &data));
        if (!found)
            return false;

        updateFilename = workspace;
        updateFilename.appendPath(data.cFileName);

        // The installer's name is the only place its version is written.
        corestring version = corestring::stripExtension(data.cFileName);
        std::uint64_t drop = namePrefix.length() < version.length() ? namePrefix.length() : version.length();
        version = version.mid(drop, version.length() - drop);
        if (isHostX64)
            removeArchTag(version);
        version.trim(L"-_");
        updateVersion = version;
    }
    LogLine(L"%s: updateFilename: %s", kTag, updateFilename.c_str());
    isMsi = CORE::keywordEquals(updateFilename.right(4).c_str(), L".msi", true);
    return true;
}

bool Agent::ParseVersion(const corestring& text, VersionParts& parts)
{
    corestring copy(text);
    std::vector<corestring> tokens = corestring::split(copy.c_str(), L".-_", L"'\"");
    if (tokens.size() < 3)
        return false;
    parts.major = static_cast<std::int32_t>(tokens[0].toInt(true));
    parts.minor = static_cast<std::int32_t>(tokens[1].toInt(true));
    parts.patch = static_cast<std::int32_t>(tokens[2].toInt(true));
    if (tokens.size() > 3)
        parts.build = static_cast<std::uint32_t>(tokens[3].toUInt(true));
    return true;
}

bool Agent::CompVersion()
{
    static const wchar_t kTag[] = L"Agent::CompVersion";
    if (installedVersion.empty()) {
        upgradeNeeded = true;
        LogLine(L"%s: installed version not found", kTag);
        return true;
    }
    VersionParts installed{};
    if (!ParseVersion(installedVersion, installed)) {
        // What is installed can't be told: installing is the safe side.
        upgradeNeeded = true;
        LogLine(L"%s: cannot determine installed version: %s", kTag, installedVersion.c_str());
    }
    VersionParts update{};
    if (!ParseVersion(updateVersion, update))
        LogLine(L"%s: cannot determine update version: %s", kTag, updateVersion.c_str());

    if (update.major >= 1 || update.minor >= 1 || update.patch >= 1) {
        const std::int32_t mine[3] = {installed.major, installed.minor, installed.patch};
        const std::int32_t offered[3] = {update.major, update.minor, update.patch};
        for (int i = 0; i < 3; ++i) {
            if (offered[i] > mine[i]) {
                upgradeNeeded = true;
                return upgradeNeeded;
            }
            if (offered[i] < mine[i])
                return upgradeNeeded;  // never a downgrade
        }
    }
    // The build decides only when both sides have one.
    if (update.build != 0 && installed.build != 0 && update.build > installed.build)
        upgradeNeeded = true;
    return upgradeNeeded;
}

LaunchVerdict Agent::Judge(std::uint32_t /*launchResult*/) const { return LaunchVerdict::None; }

bool Agent::UpdateAvailable(bool force)
{
    static const wchar_t kTag[] = L"Agent::UpdateAvailable";
    if (force || upgradeNeeded) {
        if (!updateFilename.empty())
            return true;
        LogLine(L"%s: update installer empty", kTag);
        return false;
    }
    LogLine(L"%s: no need to upgrade", kTag);
    return false;
}

std::uint32_t Agent::LaunchHelper(bool testMode, const corestring& commandLine, std::uint32_t* exitCode)
{
    static const wchar_t kTag[] = L"Agent::LaunchHelper";
    if (commandLine.empty()) {
        LogLine(L"%s: ERROR: update command line empty", kTag);
        return kLaunchNothing;
    }
    if (updateFilename.empty()) {
        LogLine(L"%s: ERROR: update installer empty", kTag);
        return kLaunchNothing;
    }
    LogLine(L"%s: launching: %s", kTag, commandLine.c_str());
    if (testMode) {
        if (exitCode)
            *exitCode = 0;
        return kLaunchOk;
    }

    // CreateProcessW may write into the command line: hand it a copy.
    corestring line(commandLine);
    STARTUPINFOW startup;
    std::memset(&startup, 0, sizeof startup);  // padding too: the installer sees no stray fields
    startup.cb = sizeof startup;
    PROCESS_INFORMATION info{};
    constexpr DWORD kNormalPriorityClass = 32;
    if (!platform::processes().CreateProcessW(nullptr, line.handle(), FALSE, kNormalPriorityClass, nullptr, &startup,
                                              &info)) {
        DWORD error = ::GetLastError();
        LogLine(L"%s: ERROR: CreateProcess failed: %s", kTag, CORE::errorText(error).c_str());
        return kLaunchFailed;
    }
    platform::ProcessHandle process(info.hProcess);
    platform::ProcessHandle thread(info.hThread);
    // An installer has no time limit: it may legitimately take very long.
    platform::processes().WaitForSingleObject(process.get(), INFINITE);
    DWORD code = 0;
    BOOL gotCode = platform::processes().GetExitCodeProcess(process.get(), &code);
    if (!gotCode) {
        DWORD error = ::GetLastError();
        LogLine(L"%s: ERROR: GetExitCodeProcess failed: %s", kTag, CORE::errorText(error).c_str());
        return kLaunchFailed;
    }
    if (exitCode)
        *exitCode = code;
    LogLine(L"%s: %s returned: %s", kTag, commandLine.c_str(), CORE::errorText(code).c_str());
    return kLaunchOk;
}

corestring Agent::QuotedUpdateFilename() const
{
    if (updateFilename.findChar(L' ') == corestring::npos)
        return updateFilename;
    corestring quoted(L"\"");
    quoted.append(updateFilename).append(L"\"");
    return quoted;
}
