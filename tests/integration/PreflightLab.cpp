#include "PreflightLab.h"

#include <windows.h>

#include <cwchar>
#include <stdexcept>

namespace it {

namespace {

const wchar_t* const kDownloadUrl = L"https://localhost:1/agent-4.2.0.msi";

void deleteTree(HKEY hive, const char* hiveName, const std::wstring& key)
{
    LSTATUS rc = ::RegDeleteTreeW(hive, key.c_str());
    if (rc != ERROR_SUCCESS && rc != ERROR_FILE_NOT_FOUND)
        throw std::runtime_error(std::string("RegDeleteTreeW ") + hiveName + "\\" + Narrow(key) + " (error " +
                                 std::to_string(rc) + ")");
    HKEY left = nullptr;
    if (::RegOpenKeyExW(hive, key.c_str(), 0, KEY_READ, &left) == ERROR_SUCCESS) {
        ::RegCloseKey(left);
        throw std::runtime_error(std::string(hiveName) + "\\" + Narrow(key) + " still exists after deletion");
    }
}

void removeMachineMarks()
{
    for (const wchar_t* key : {kAutoUpdateRebootKey, kServicingRebootKey, kTarvelleNeedRebootKey,
                               kKesmarcNeedRebootKey, kWatchedTree})
        DeleteMachineTree(key);
    DeleteUserTree(kWatchedTree);
}

}  // namespace

::testing::AssertionResult HasLineStartingWith(const std::vector<std::string>& messages, const std::string& prefix)
{
    if (CountLinesStartingWith(messages, prefix) > 0)
        return ::testing::AssertionSuccess();
    std::string all;
    for (const std::string& m : messages)
        all += "  " + m + "\n";
    return ::testing::AssertionFailure() << "no line begins with \"" << prefix << "\"\nmessages:\n" << all;
}

size_t CountLinesStartingWith(const std::vector<std::string>& messages, const std::string& prefix)
{
    size_t count = 0;
    for (const std::string& message : messages)
        if (message.rfind(prefix, 0) == 0)
            ++count;
    return count;
}

std::wstring RulesKey(const wchar_t* root) { return std::wstring(root) + L"\\Agent\\PreflightChecks"; }

std::wstring WatchedKey(const std::wstring& sub) { return std::wstring(kWatchedTree) + L"\\" + sub; }

std::wstring WatchedPath(const std::wstring& sub) { return L"HKLM\\" + WatchedKey(sub); }

void WriteUserString(const std::wstring& key, const std::wstring& name, const std::wstring& text)
{
    HKEY handle = nullptr;
    LSTATUS rc = ::RegCreateKeyExW(HKEY_CURRENT_USER, key.c_str(), 0, nullptr, 0, KEY_SET_VALUE, nullptr, &handle,
                                   nullptr);
    if (rc != ERROR_SUCCESS)
        throw std::runtime_error("RegCreateKeyExW HKCU\\" + Narrow(key) + " (error " + std::to_string(rc) + ")");
    rc = ::RegSetValueExW(handle, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                          static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
    ::RegCloseKey(handle);
    if (rc != ERROR_SUCCESS)
        throw std::runtime_error("RegSetValueExW HKCU\\" + Narrow(key) + "\\" + Narrow(name) + " (error " +
                                 std::to_string(rc) + ")");
}

void CreateMachineKey(const std::wstring& key)
{
    HKEY handle = nullptr;
    LSTATUS rc = ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, nullptr, 0, KEY_READ, nullptr, &handle,
                                   nullptr);
    if (rc != ERROR_SUCCESS)
        throw std::runtime_error("RegCreateKeyExW HKLM\\" + Narrow(key) + " (error " + std::to_string(rc) + ")");
    ::RegCloseKey(handle);
}

void DeleteUserTree(const std::wstring& key) { deleteTree(HKEY_CURRENT_USER, "HKCU", key); }

void DeleteMachineTree(const std::wstring& key) { deleteTree(HKEY_LOCAL_MACHINE, "HKLM", key); }

void PreflightTest::SetUp()
{
    ShareTest::SetUp();
    removeMachineMarks();
    jobKey_ = JobKey(kNewRoot, L"job");
}

void PreflightTest::TearDown()
{
    removeMachineMarks();
    ShareTest::TearDown();
}

void PreflightTest::NextCase()
{
    JobTest::NextCase();
    removeMachineMarks();
    ::DeleteFileW(traceFile_.c_str());
    legacyJob_ = false;
    jobKey_ = JobKey(kNewRoot, L"job");
}

void PreflightTest::UseLegacyJob()
{
    legacyJob_ = true;
    jobKey_ = JobKey(kLegacyRoot, L"job");
}

void PreflightTest::WritePreflightJob(const PreflightJob& job)
{
    std::vector<std::pair<std::wstring, std::wstring>> values = {
        {L"AGENT", L"NONE"},     {L"VERSION", L"4.2.0"}, {L"ARCH", L"64-BitAgent"},
        {L"OPTIONS", job.options}, {L"STATE", job.state}, {L"RESULT", L""},
        {L"RETRY", job.retry}};
    if (job.unc.empty())
        values.emplace_back(L"URL", kDownloadUrl);
    else
        values.emplace_back(L"UNC_PATH", job.unc);
    values.insert(values.end(), job.extra.begin(), job.extra.end());
    // A pending reboot with retries left would restart the prefix under the
    // harness's feet. The last "RETRY" written is the one that counts, also
    // when an extra value replaces it.
    std::wstring retryText;
    for (const auto& [name, text] : values)
        if (::CompareStringOrdinal(name.c_str(), -1, L"RETRY", -1, TRUE) == CSTR_EQUAL)
            retryText = text;
    wchar_t* end = nullptr;
    long retry = std::wcstol(retryText.c_str(), &end, 0);
    if (retryText.empty() || *end != L'\0' || retry < 2)
        throw std::runtime_error("a preflight job in this harness needs RETRY 2 or more, not \"" +
                                 Narrow(retryText) + "\"");
    WriteJob(jobKey_, values);
}

std::wstring PreflightTest::RuleNameKey(const std::wstring& name) const
{
    // Deliberately crossed: a job under the new root lists its rules under
    // the legacy root, and the other way round.
    return RulesKey(legacyJob_ ? kNewRoot : kLegacyRoot) + L"\\" + name;
}

std::wstring PreflightTest::RuleValuesKey(const std::wstring& name) { return RulesKey(kNewRoot) + L"\\" + name; }

void PreflightTest::AddRuleName(const std::wstring& name) { CreateMachineKey(RuleNameKey(name)); }

void PreflightTest::AddRule(const std::wstring& name, const std::vector<std::pair<std::wstring, std::wstring>>& values)
{
    AddRuleName(name);
    for (const auto& [value, text] : values)
        WriteString(RuleValuesKey(name), value, text);
}

JobRun PreflightTest::RunPreflight(int32_t exitCode)
{
    JobRun job = RunShareJob();
    ExpectCompleted(job);
    EXPECT_EQ(exitCode, job.run.exitCode) << RunResultName(job.run.exitCode);
    // A preflight-only run fetches nothing and connects to nothing.
    EXPECT_TRUE(FindFilesRecursive(Workspace(), L"*").empty());
    EXPECT_TRUE(ProviderCalls().empty());
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Util_UNCDownload:"));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Util_DoDownload:"));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Initiated system reboot"));
    return job;
}

::testing::AssertionResult PreflightTest::HasCompletionMarker() const
{
    std::optional<RegValue> value = ReadValue(JobKey(kNewRoot, L"job"), L"PreflightCheckComplete");
    if (!value)
        return ::testing::AssertionFailure() << "no PreflightCheckComplete under the new root";
    if (value->type != REG_DWORD || value->data != std::vector<BYTE>{1, 0, 0, 0})
        return ::testing::AssertionFailure() << "PreflightCheckComplete has type " << value->type << " and "
                                             << value->data.size() << " bytes, expected REG_DWORD 1";
    return ::testing::AssertionSuccess();
}

::testing::AssertionResult PreflightTest::LacksCompletionMarker() const
{
    for (const wchar_t* root : {kNewRoot, kLegacyRoot})
        if (ReadValue(JobKey(root, L"job"), L"PreflightCheckComplete"))
            return ::testing::AssertionFailure() << "PreflightCheckComplete stands under HKLM\\" << Narrow(root);
    return ::testing::AssertionSuccess();
}

std::vector<std::string> PreflightTest::OpeningLines() const
{
    return {
        "App::performPreflightChecks: begin..",
        "App::isWindowsUpdateInProgress: Windows updates are not running at this time",
        "App::isDiskspaceSufficientForUpdate: current directory =  [" + Narrow(sandbox_) + "]",
    };
}

std::string PreflightTest::UpdateDoneLine(int32_t code, bool legacyWorkflow)
{
    return "Util_UpdateDone: Updating state for result '" + RunResultName(code) + "', legacy workflow:'" +
           (legacyWorkflow ? "1" : "0") + "' ";
}

}  // namespace it
