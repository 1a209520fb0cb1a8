#pragma once
// What the preflight suites share: a preflight job of no agent, the rules
// kept in the registry, the machine's reboot-pending keys, and the checks
// every preflight-only run must pass: it ends with its code, fetches
// nothing and calls no network provider.
//
// A preflight run that ends with a pending reboot restarts the machine, and
// with it the whole prefix, this harness included, as long as the job has
// retries left for it. Every job these suites write therefore starts with
// "RETRY" 2 or more, where a pending reboot ends the job instead; the
// restart itself is tested from outside Wine (tests/lab).
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "ShareLab.h"

namespace it {

// Below HKEY_LOCAL_MACHINE: the operating system's marks of a pending
// restart, and the two products' component lists.
inline constexpr const wchar_t* kAutoUpdateRebootKey =
    L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\WindowsUpdate\\Auto Update\\RebootRequired";
inline constexpr const wchar_t* kServicingRebootKey =
    L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Component Based Servicing\\RebootPending";
inline constexpr const wchar_t* kTarvelleNeedRebootKey = L"SOFTWARE\\Tarvelle\\NeedReboot";
inline constexpr const wchar_t* kKesmarcNeedRebootKey = L"SOFTWARE\\Kesmarc, Inc.\\NeedReboot";

// Keys the rules look at, in HKLM and in HKCU; removed around every test.
inline constexpr const wchar_t* kWatchedTree = L"Software\\ZenthraPreflightLab";

inline constexpr const wchar_t* kPreflightOnly = L"PREFLIGHTCHECK_ENABLED=1";
inline constexpr const wchar_t* kLegacyWorkflow = L"PREFLIGHTCHECK_ENABLED=2";

// root\Agent\PreflightChecks
std::wstring RulesKey(const wchar_t* root);
// kWatchedTree\sub, and the same as a full path with the short hive name.
std::wstring WatchedKey(const std::wstring& sub);
std::wstring WatchedPath(const std::wstring& sub);

// Some message begins with the prefix.
::testing::AssertionResult HasLineStartingWith(const std::vector<std::string>& messages, const std::string& prefix);
// How many messages begin with the prefix.
size_t CountLinesStartingWith(const std::vector<std::string>& messages, const std::string& prefix);

// HKCU counterparts of the harness's HKLM writers.
void WriteUserString(const std::wstring& key, const std::wstring& name, const std::wstring& text);
void DeleteUserTree(const std::wstring& key);
// An HKLM key with no values (and the keys above it).
void CreateMachineKey(const std::wstring& key);
// Removes an HKLM tree; nothing when it isn't there.
void DeleteMachineTree(const std::wstring& key);

// A preflight job: what a test doesn't set keeps its default.
struct PreflightJob {
    std::wstring options = kPreflightOnly;
    std::wstring state = L"DOWNLOAD";
    std::wstring retry = L"2";
    // Empty: the job names a download URL instead, so there is no share
    // path to test.
    std::wstring unc;
    std::vector<std::pair<std::wstring, std::wstring>> extra;

    PreflightJob& Options(std::wstring text) { options = std::move(text); return *this; }
    PreflightJob& State(std::wstring text) { state = std::move(text); return *this; }
    PreflightJob& Retry(std::wstring text) { retry = std::move(text); return *this; }
    PreflightJob& Unc(std::wstring text) { unc = std::move(text); return *this; }
    // Written after the others, so it also replaces one of them.
    PreflightJob& With(std::wstring name, std::wstring text)
    {
        extra.emplace_back(std::move(name), std::move(text));
        return *this;
    }
};

class PreflightTest : public ShareTest {
protected:
    void SetUp() override;
    void TearDown() override;

    // A fresh start within one test: clean keys, a new log folder, an empty
    // workspace, the job under the new root again.
    void NextCase();
    // Puts the job under the legacy root instead of the new one.
    void UseLegacyJob();
    // Writes the job (AGENT "NONE", so that nothing could be installed).
    void WritePreflightJob(const PreflightJob& job = PreflightJob());

    // A rule: its name under the root that lists rules for this job (the
    // root the job is not under), its values, as REG_SZ, under the new root.
    void AddRule(const std::wstring& name, const std::vector<std::pair<std::wstring, std::wstring>>& values);
    // Only the name, under the listing root.
    void AddRuleName(const std::wstring& name);
    // Where AddRule puts the names and the values of a rule.
    std::wstring RuleNameKey(const std::wstring& name) const;
    static std::wstring RuleValuesKey(const std::wstring& name);

    // One run that must end with `exitCode` after its closing steps, with no
    // reboot marker, nothing in the workspace and no network provider call.
    JobRun RunPreflight(int32_t exitCode);

    // "PreflightCheckComplete" under the new root, REG_DWORD 1.
    ::testing::AssertionResult HasCompletionMarker() const;
    ::testing::AssertionResult LacksCompletionMarker() const;

    // The opening lines of a check on a fit machine, up to the share test.
    std::vector<std::string> OpeningLines() const;
    // "Util_UpdateDone: Updating state for result '<name>', legacy workflow:'<0|1>' "
    static std::string UpdateDoneLine(int32_t code, bool legacyWorkflow = false);

    bool legacyJob_ = false;
    std::wstring jobKey_;
};

}  // namespace it
