#include "diagnostics/FailureReport.h"

#include <cstring>
#include <cwchar>
#include <string>

#include "core/log/LogLine.h"
#include "diagnostics/InstallerLog.h"
#include "diagnostics/ToolLog.h"
#include "platform/Handles.h"
#include "registry/Registry.h"
#include "update/UpdateRecord.h"

namespace {

bool writeAll(HANDLE file, const std::string& bytes)
{
    DWORD written = 0;
    return platform::files().WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written) &&
           written == bytes.size();
}

}  // namespace

corestring LastInstallErrorPath(corestring root)
{
    root.append(L"\\Agent\\");
    root.append(L"LastInstallError");
    return root;
}

bool WriteFailedCustomActionDetailsToRegistry()
{
    const wchar_t* tag = L"WriteFailedCustomActionDetailsToRegistry";
    LogLine(L"%s:", tag);
    corestring logPath = JobKeyPath(GetNewRootKeyPath());
    logPath.append(L"\\AGENTLOGFILENAME");
    const corestring installerLog = RegistryReadOrDefault(logPath.c_str(), L"");
    if (installerLog.empty()) {
        LogLine(L"%s: INFO: MSI error log file name not set", tag);
        return true;
    }
    LogLine(L"%s: INFO: MSI error log file name : %s ", tag, installerLog.c_str());

    const std::vector<corestring> lines = FetchErrorLines(installerLog);
    // The name goes no further than this line.
    const corestring name = GetFailedCustomActionName(lines);
    LogLine(L"%s: INFO: MSI - Failed custom action name : %s ", tag, name.handle());
    const corestring message = GetFailedCAErrorMessage(lines);
    LogLine(L"%s: INFO: MSI - Failed custom action error : %s ", tag, message.handle());

    corestring summary = GetInstallerLogsDirectory();
    if (summary.empty()) {
        LogLine(L"%s: INFO: Failed to fetch installer - log file path", tag);
        return false;
    }
    summary.appendPath(StampedFileName(L"MSIErrorSummary_%d%02d%02d%02d%02d%02d.log").c_str());
    LogLine(L"%s: INFO: MSI error summary log file name : %s ", tag, summary.c_str());

    if (!WriteFailedCAToErrorSummary(lines, summary)) {
        LogLine(L"%s: ERROR: Failed to write CA details to error summary file ", tag);
        return false;
    }
    if (!WriteCADetailsToRegistry(summary, message, lines)) {
        LogLine(L"%s: ERROR:  Failed to write custom action details to registry ", tag);
        return false;
    }
    return true;
}

bool WriteFailedCAToErrorSummary(const std::vector<corestring>& lines, corestring path)
{
    const wchar_t* tag = L"WriteFailedCAToErrorSummary";
    platform::FileSystem& files = platform::files();
    // Truncated, and open to everyone while it is written.
    platform::FileHandle file(files.CreateFileW(path.c_str(), GENERIC_WRITE,
                                                FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, CREATE_ALWAYS,
                                                FILE_ATTRIBUTE_NORMAL));
    if (!file) {
        LogLine(L"%s: ERROR: Failed to open error summary file - %s", tag, path.c_str());
        return false;
    }
    if (lines.empty()) {
        LogLine(L"%s: WARNING: Error summary is empty, creating empty log file", tag);
        return true;
    }
    for (const corestring& line : lines) {
        if (line.empty()) {
            LogLine(L"%s: WARNING: Skipping empty error string in summary", tag);
            continue;
        }
        // A text line ends in CR LF, behind the CR the line already has; the
        // line is text up to its first zero.
        std::string bytes;
        if (!CORE::ToDefaultCodePage(line.c_str(), std::wcslen(line.c_str()), bytes) ||
            !writeAll(file.get(), bytes + "\r\n")) {
            LogLine(L"%s: ERROR: Failed to write error line to summary file: %s", tag, line.c_str());
            return false;
        }
    }
    if (!files.CloseHandle(file.release())) {
        LogLine(L"%s: ERROR: Failed to close error summary file properly", tag);
        return false;
    }
    LogLine(L"%s: Successfully wrote %Iu error entries to summary file", tag, lines.size());
    return true;
}

bool WriteCADetailsToRegistry(corestring summaryFile, corestring errorMessage, const std::vector<corestring>& lines)
{
    const wchar_t* tag = L"WriteCADetailsToRegistry";
    // Only when nothing else has told the install's error.
    if (RegistryReadOrDefault(LastInstallErrorPath(GetNewRootKeyPath()).c_str(), L"").empty()) {
        corestring suffix;
        g_updateRecord.sErrorDesc.append(corestring::format(suffix, L" - %s", errorMessage.handle()));
    }

    const corestring jobKey = JobKeyPath(GetNewRootKeyPath());
    corestring summaryValue = jobKey;
    summaryValue.append(L"\\ERRORSUMMARYFILE");
    const bool written = RegistryWrite(summaryFile, summaryValue.c_str(), REG_SZ, false, false);
    if (written)
        LogLine(L"%s: INFO: WriteCADetailsToRegistry errorSummaryFile details written - %s ", tag, summaryFile.c_str());
    // Its failure has only its own lines.
    if (WriteMultiStringToRegistry(jobKey, corestring(L"ERRORDETAILS"), lines))
        LogLine(L"%s: INFO: WriteCADetailsToRegistry error details written", tag);
    return written;
}

bool WriteMultiStringToRegistry(corestring keyPath, corestring valueName, const std::vector<corestring>& lines)
{
    const wchar_t* tag = L"WriteMultiStringToRegistry";
    if (!keyPath.startsWith(L"HKLM\\") && !keyPath.startsWith(L"HKEY_LOCAL_MACHINE\\")) {
        LogLine(L"%s: ERROR: Unsupported hive in keyPath - %s", tag, keyPath.c_str());
        return false;
    }
    // The whole path is the key; the value's name comes apart.
    const corestring subkey = keyPath.mid(keyPath.findChar(L'\\') + 1, corestring::npos);

    platform::KeyStore& keys = platform::keys();
    platform::KeyHandle key;
    const LSTATUS opened = keys.RegOpenKeyExW(HKEY_LOCAL_MACHINE, subkey.c_str(), 0, KEY_WRITE, key.out());
    if (opened != ERROR_SUCCESS) {
        LogLine(L"WriteMultiStringToRegistry: ERROR: Failed to open registry key - %s (error: %s)", subkey.c_str(),
                CORE::errorText(static_cast<std::uint32_t>(opened)).c_str());
        return false;
    }
    LogLine(L"%s: INFO: Opened registry key - %s", tag, subkey.c_str());

    // Each line and its zero, then the list's own zero. An empty line is a
    // zero of its own, which ends the list early for whoever reads it.
    corestring data;
    for (const corestring& line : lines) {
        data.append(line);
        data.appendChar(L'\0', 1);
    }
    data.appendChar(L'\0', 1);
    const LSTATUS status = keys.RegSetValueExW(key.get(), valueName.c_str(), REG_MULTI_SZ,
                                               reinterpret_cast<const BYTE*>(data.c_str()),
                                               static_cast<DWORD>(data.length() * sizeof(wchar_t)));
    key.reset();
    // Whatever the write answered: the line prints only the first line.
    LogLine(L"%s: INFO: WriteMultiStringToRegistry succeeded  - %ws ", tag, data.c_str());
    return status == ERROR_SUCCESS;
}
