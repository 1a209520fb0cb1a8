// Preflight-only runs end to end in the lab: the options that ask for them,
// the checks in their order (the system's update activity, disk space, the
// share path, the rules, the reboot-pending keys), the state each outcome
// leaves, the completion marker, and the two halves of the legacy workflow.
//
// Not here, since the lab can't produce them in-Wine: too little disk space
// (tests/lab/preflight_disk_test.sh, on a small file system), updates of the
// system still running (Wine's update agent is never busy; the unit tests
// cover it with a fake), and a pending reboot with retries left, which
// restarts the prefix (tests/lab/preflight_reboot_test.sh).
#include <algorithm>
#include <stdexcept>

#include "MsiLab.h"
#include "PreflightLab.h"

namespace it {
namespace {

const char* const kChecksBegin = "App::performPreflightChecks: begin..";
const char* const kNotBusyLine = "App::isWindowsUpdateInProgress: Windows updates are not running at this time";
const char* const kDiskTotalsPrefix = "App::isDiskspaceSufficientForUpdate: Total Disk space= [";
const char* const kRebootKeysLine = "App::isRebootPending: checking registry keys for reboot pending";
const char* const kAutoUpdateLine = "App::isRebootPending: Windows Auto Update Reboot is pending";
const char* const kServicingLine = "App::isRebootPending: Windows Component Based Servicing (CBS) Reboot is pending";
const char* const kLegacyReadyLine =
    "Util_UpdateDone: preflightcheck check is done, legacy workflow is in use so updating state to READY";
const char* const kSkipLine =
    "wmain: legacy workflow in use and preflight check is already completed, skipping it for relaunch";
const char* const kShareFailurePrefix =
    "App::isValidUNCPath: No required permission on the SMB share or the provided UNC path is not a complete "
    "installer file path, (error): ";
const char* const kShareInvalidLine = "App::performPreflightChecks: UNC path is not valid";

std::string validatingLine(const std::wstring& unc)
{
    return "App::isValidUNCPath: validating UNC path format and required permissions, UNC: " + Narrow(unc);
}

std::string stateLines(const std::string& state, const std::string& result)
{
    return "UtilManageUpdateState: Update key: job new state: " + state + " result: " + result;
}

class Preflight : public PreflightTest {
protected:
    // A run that stopped at the share test with the table's description of
    // the platform's error; the job's retry count is left alone.
    void ExpectInvalidSharePath(const JobRun& job, const std::wstring& unc,
                                const std::vector<std::string>& descriptions, int64_t retry)
    {
        EXPECT_TRUE(HasWrittenValues(jobKey_, {"DONE", "PREFLIGHTCHECK_FAILURE", "", "PREFLIGHT_ERR_INVALID_UNC_PATH",
                                               "", std::to_string(retry)}));
        EXPECT_TRUE(LacksCompletionMarker());
        std::string failure;
        for (const std::string& message : Messages(job))
            if (message.rfind(kShareFailurePrefix, 0) == 0)
                failure = message.substr(std::string(kShareFailurePrefix).size());
        EXPECT_TRUE(std::find(descriptions.begin(), descriptions.end(), failure) != descriptions.end())
            << "the failure's description: \"" << failure << "\"";
        std::vector<std::string> lines = OpeningLines();
        lines.insert(lines.end(), {validatingLine(unc), kShareFailurePrefix + failure, kShareInvalidLine,
                                   UpdateDoneLine(-14), stateLines("DONE", "PREFLIGHTCHECK_FAILURE"),
                                   ClosingLine(-14)});
        EXPECT_TRUE(HasLinesInOrder(Messages(job), lines));
        // The first failing check decides; nothing behind it runs.
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::performRegistryBasedChecks:"));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::performPreflightChecks: preflight final actions"));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::isRebootPending:"));
        ExpectOneEntry(job, {"job", "NONE", "", "4.2.0", "DONE", retry, "PREFLIGHTCHECK_FAILURE",
                             "PREFLIGHT_ERR_INVALID_UNC_PATH"});
    }

    // A pending reboot on the job's third try: the job ends, the count
    // starts afresh, and the machine is not restarted.
    void ExpectRebootLimitExceeded(const JobRun& job, int retryBefore, const std::string& reasonLine)
    {
        const std::string tried = std::to_string(retryBefore + 1);
        EXPECT_TRUE(HasWrittenValues(jobKey_, {"DONE", "PREFLIGHTCHECK_FAILURE", "", "PREFLIGHT_ERR_REBOOT_PENDING", "",
                                               "0"}));
        EXPECT_TRUE(LacksCompletionMarker());
        EXPECT_TRUE(HasLinesInOrder(Messages(job), {
            kRebootKeysLine,
            reasonLine,
            UpdateDoneLine(-11),
            "UtilTryAgain: exceeded retry attempts: " + tried + ", max attempt allowed: 2",
            "UtilTryAgain: updating retry: " + tried + ", max attempt allowed: 2",
            "UtilManageUpdateState: Update key: job current state: DONE result:PREFLIGHTCHECK_FAILURE",
            stateLines("DONE", "PREFLIGHTCHECK_FAILURE"),
            ClosingLine(-11),
        }));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Util_CheckReboot:"));
        ExpectOneEntry(job, {"job", "NONE", "", "4.2.0", "DONE", 0, "PREFLIGHTCHECK_FAILURE",
                             "PREFLIGHT_ERR_REBOOT_PENDING"});
    }
};

// --- A fit machine -----------------------------------------------------------------

TEST_F(Preflight, FitMachineWithAnIdleUpdateAgentPassesEveryCheckAndEndsDoneWithTheMarker)
{
    WritePreflightJob();
    JobRun job = RunPreflight(-9);
    EXPECT_TRUE(HasWrittenValues(jobKey_, {"DONE", "PREFLIGHTCHECK_OK", "", "", "", "0"}));
    EXPECT_TRUE(HasCompletionMarker());
    std::vector<std::string> lines = OpeningLines();
    lines.insert(lines.end(), {
        kRebootKeysLine,
        UpdateDoneLine(-9),
        "UtilManageUpdateState: Update key: job current state: DONE result:PREFLIGHTCHECK_OK",
        stateLines("DONE", "PREFLIGHTCHECK_OK"),
        ClosingLine(-9),
    });
    EXPECT_TRUE(HasLinesInOrder(Messages(job), lines));
    // Wine's update agent answers, and answers "not busy": no wait.
    EXPECT_TRUE(ContainsMessage(Messages(job), kNotBusyLine));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::waitForWindowsUpdateToComplete:"));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::isWindowsUpdateInProgress: Failed"));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::isWindowsUpdateInProgress: Unable"));
    EXPECT_TRUE(HasLineStartingWith(Messages(job), kDiskTotalsPrefix));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::isDiskspaceSufficientForUpdate: Insufficient"));
    // A job fetched over HTTPS has no share path to test; there are no rules.
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::isValidUNCPath:"));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::performRegistryBasedChecks:"));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::performPreflightChecks: preflight final actions"));
    EXPECT_EQ(1u, CountLinesStartingWith(Messages(job), "App::isRebootPending:"));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "UtilTryAgain:"));
    EXPECT_TRUE(LacksLine(Messages(job), kLegacyReadyLine));
    EXPECT_TRUE(LacksLine(Messages(job), kSkipLine));
    ExpectOneEntry(job, {"job", "NONE", "", "4.2.0", "DONE", 0, "PREFLIGHTCHECK_OK"});
}

TEST_F(Preflight, PreflightOnlyRunEndsDoneWhateverStateTheJobWasIn)
{
    for (const wchar_t* state : {L"DOWNLOAD", L"UPDATING", L"READY", L"WAIT", L"NOLOGON", L"DONE", L"BOGUS"}) {
        SCOPED_TRACE(Narrow(state));
        NextCase();
        WritePreflightJob(PreflightJob().State(state).Retry(L"5"));
        JobRun job = RunPreflight(-9);
        EXPECT_TRUE(HasWrittenValues(jobKey_, {"DONE", "PREFLIGHTCHECK_OK", "", "", "", "0"}));
        EXPECT_TRUE(HasCompletionMarker());
        EXPECT_TRUE(ContainsMessage(Messages(job), kChecksBegin));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Util_UpdateDone: agent update result"));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::CheckPlatform:"));
    }
}

// --- Options -----------------------------------------------------------------------

TEST_F(Preflight, OptionsThatAskForTheCheckAndWhetherItIsTheLegacyWorkflow)
{
    struct Case {
        const wchar_t* options;
        bool legacy;
    };
    const Case cases[] = {
        {L"PREFLIGHTCHECK_ENABLED=1", false},
        {L"preflightcheck_enabled=1", false},
        // A search for the text: "=10" holds "=1".
        {L"PREFLIGHTCHECK_ENABLED=10", false},
        {L"/l*v install.log PREFLIGHTCHECK_ENABLED=1 REBOOT=ReallySuppress", false},
        {L"PREFLIGHTCHECK_ENABLED=2", true},
        {L"preflightcheck_enabled=2", true},
        {L"PREFLIGHTCHECK_ENABLED=1 PREFLIGHTCHECK_ENABLED=2", true},
        {L"PREFLIGHTCHECK_ENABLED=2;preflightcheck_enabled=1", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(Narrow(c.options));
        NextCase();
        WritePreflightJob(PreflightJob().Options(c.options));
        JobRun job = RunPreflight(-9);
        EXPECT_TRUE(HasCompletionMarker());
        EXPECT_TRUE(ContainsMessage(Messages(job), kChecksBegin));
        EXPECT_TRUE(ContainsMessage(Messages(job), UpdateDoneLine(-9, c.legacy)));
        if (c.legacy) {
            EXPECT_TRUE(HasWrittenValues(jobKey_, {"READY", "OK", "", "", "", "0"}));
            EXPECT_TRUE(HasLinesInOrder(Messages(job), {UpdateDoneLine(-9, true), kLegacyReadyLine,
                                                        stateLines("READY", "OK")}));
            ExpectOneEntry(job, {"job", "NONE", "", "4.2.0", "READY", 0, "OK"});
        } else {
            EXPECT_TRUE(HasWrittenValues(jobKey_, {"DONE", "PREFLIGHTCHECK_OK", "", "", "", "0"}));
            EXPECT_TRUE(LacksLine(Messages(job), kLegacyReadyLine));
            ExpectOneEntry(job, {"job", "NONE", "", "4.2.0", "DONE", 0, "PREFLIGHTCHECK_OK"});
        }
    }
}

TEST_F(Preflight, OptionsWithoutTheSwitchMakeAnOrdinaryRun)
{
    for (const wchar_t* options : {L"", L"PREFLIGHTCHECK_ENABLED=0", L"PREFLIGHTCHECK_ENABLED",
                                   L"PREFLIGHTCHECK_ENABLED=3", L"PREFLIGHTCHECK_ENABLED = 1",
                                   L"PREFLIGHTCHECK-ENABLED=1"}) {
        SCOPED_TRACE(Narrow(options));
        NextCase();
        // READY does no work, so the ordinary run ends at the fetch step.
        WritePreflightJob(PreflightJob().Options(options).State(L"READY"));
        JobRun job = RunShareJob();
        EXPECT_TRUE(IsCompletedRun(job.run, job.log));
        EXPECT_EQ(-1, job.run.exitCode);
        EXPECT_TRUE(HasWrittenValues(jobKey_, {"READY", "", "", "", "", "2"}));
        EXPECT_TRUE(LacksCompletionMarker());
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::performPreflightChecks:"));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::isWindowsUpdateInProgress:"));
        EXPECT_TRUE(ContainsMessage(Messages(job), UpdateDoneLine(-1)));
    }
}

// --- The share path ------------------------------------------------------------------

TEST_F(Preflight, SharePathThatOpensPassesWithoutAConnectionOrACopy)
{
    const std::string bytes = "the installer on the share";
    const std::wstring unc = PutOnShare(L"agent-4.2.0.msi", bytes);
    WritePreflightJob(PreflightJob().Unc(unc));
    // RunPreflight also finds no provider call and an empty workspace.
    JobRun job = RunPreflight(-9);
    EXPECT_TRUE(HasWrittenValues(jobKey_, {"DONE", "PREFLIGHTCHECK_OK", "", "", "", "0"}));
    std::vector<std::string> lines = OpeningLines();
    lines.insert(lines.end(), {validatingLine(unc), kRebootKeysLine, UpdateDoneLine(-9), ClosingLine(-9)});
    EXPECT_TRUE(HasLinesInOrder(Messages(job), lines));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), kShareFailurePrefix));
    EXPECT_TRUE(LacksLine(Messages(job), kShareInvalidLine));
    EXPECT_EQ(std::optional<std::string>(bytes), ReadFileBytes(unc));
    ExpectOneEntry(job, {"job", "NONE", "", "4.2.0", "DONE", 0, "PREFLIGHTCHECK_OK"});
}

TEST_F(Preflight, LocalInstallerPathPasses)
{
    const std::wstring path = JoinPath(NewFolder(L"local"), L"agent-4.2.0.msi");
    WriteFileBytes(path, "a local installer");
    WritePreflightJob(PreflightJob().Unc(path));
    JobRun job = RunPreflight(-9);
    EXPECT_TRUE(HasWrittenValues(jobKey_, {"DONE", "PREFLIGHTCHECK_OK", "", "", "", "0"}));
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {validatingLine(path), kRebootKeysLine, ClosingLine(-9)}));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), kShareFailurePrefix));
}

TEST_F(Preflight, SharePathNamingAFolderIsInvalidAndStopsTheChecksBehindIt)
{
    PutOnShare(L"agent-4.2.0.msi", "the installer is in the folder");
    // Both would decide the run if the checks went on.
    AddRule(L"error-rule", {{L"KeyPath", L"HKLM\\" + RulesKey(kNewRoot)}, {L"KeyPresentAction", L"ERROR"}});
    CreateMachineKey(kAutoUpdateRebootKey);
    WritePreflightJob(PreflightJob().Retry(L"3").Unc(shareFolder_));
    JobRun job = RunPreflight(-14);
    // Opening a folder as a file is refused as access denied (5).
    ExpectInvalidSharePath(job, shareFolder_, {"Access to the network path was denied."}, 3);
}

TEST_F(Preflight, SharePathOfAMissingFileIsInvalid)
{
    const std::wstring unc = JoinPath(shareFolder_, L"agent-4.2.0.msi");
    WritePreflightJob(PreflightJob().Retry(L"2").Unc(unc));
    JobRun job = RunPreflight(-14);
    ExpectInvalidSharePath(job, unc, {"The specified file was not found on the network path."}, 2);
}

TEST_F(Preflight, SharePathOfAMissingShareIsInvalid)
{
    const std::wstring unc = L"\\\\fileserver\\no-such-share\\agent-4.2.0.msi";
    WritePreflightJob(PreflightJob().Retry(L"4").Unc(unc));
    JobRun job = RunPreflight(-14);
    // Windows answers 67 for a share the server doesn't have; Wine answers 3,
    // there being no such folder behind its share mapping.
    ExpectInvalidSharePath(job, unc, {"The specified network path was not found."}, 4);
}

// --- The reboot-pending keys, with the job on its last try -----------------------------

TEST_F(Preflight, AutoUpdateRebootKeyIsAPendingRebootAndTheThirdTryEndsTheJob)
{
    CreateMachineKey(kAutoUpdateRebootKey);
    // The preflight's limit is its own: the setting doesn't raise it.
    SetRetrySettings(L"200", L"10");
    WritePreflightJob(PreflightJob().Retry(L"2"));
    JobRun job = RunPreflight(-11);
    ExpectRebootLimitExceeded(job, 2, kAutoUpdateLine);
    EXPECT_TRUE(LacksLine(Messages(job), kServicingLine));
}

TEST_F(Preflight, ServicingRebootKeyIsAPendingRebootAndACountFarOverTheLimitStartsAfresh)
{
    CreateMachineKey(kServicingRebootKey);
    WritePreflightJob(PreflightJob().Retry(L"7"));
    JobRun job = RunPreflight(-11);
    ExpectRebootLimitExceeded(job, 7, kServicingLine);
    EXPECT_TRUE(LacksLine(Messages(job), kAutoUpdateLine));
}

TEST_F(Preflight, FirstRebootKeyFoundEndsTheSearch)
{
    CreateMachineKey(kAutoUpdateRebootKey);
    CreateMachineKey(kServicingRebootKey);
    WriteString(kTarvelleNeedRebootKey, L"Components", L"agent");
    WritePreflightJob();
    JobRun job = RunPreflight(-11);
    ExpectRebootLimitExceeded(job, 2, kAutoUpdateLine);
    EXPECT_EQ(2u, CountLinesStartingWith(Messages(job), "App::isRebootPending:"));
}

TEST_F(Preflight, ProductRebootKeysWithoutComponentsAskForNothing)
{
    CreateMachineKey(kTarvelleNeedRebootKey);
    WriteString(kKesmarcNeedRebootKey, L"Components", L"");
    WriteString(kKesmarcNeedRebootKey, L"Other", L"agent");
    WritePreflightJob();
    JobRun job = RunPreflight(-9);
    EXPECT_TRUE(HasWrittenValues(jobKey_, {"DONE", "PREFLIGHTCHECK_OK", "", "", "", "0"}));
    EXPECT_TRUE(ContainsMessage(Messages(job), kRebootKeysLine));
    EXPECT_EQ(1u, CountLinesStartingWith(Messages(job), "App::isRebootPending:"));
    // These keys are not the tool's own marker: no five-minute wait.
    EXPECT_TRUE(LacksLine(Messages(job), kRebootWaitLine));
}

TEST_F(Preflight, TarvelleComponentsNeedAReboot)
{
    WriteString(kTarvelleNeedRebootKey, L"Components", L"agent, telemetry");
    WritePreflightJob();
    JobRun job = RunPreflight(-11);
    ExpectRebootLimitExceeded(job, 2, "App::isRebootPending: Tarvelle components <agent, telemetry> need a reboot");
    EXPECT_TRUE(LacksLine(Messages(job), kRebootWaitLine));
}

TEST_F(Preflight, EmptyTarvelleListAndFilledKesmarcListGiveTheKesmarcReboot)
{
    WriteString(kTarvelleNeedRebootKey, L"Components", L"");
    WriteString(kKesmarcNeedRebootKey, L"Components", L"tqm");
    WritePreflightJob();
    JobRun job = RunPreflight(-11);
    ExpectRebootLimitExceeded(job, 2, "App::isRebootPending: Kesmarc components <tqm> need a reboot");
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::isRebootPending: Tarvelle"));
}

// --- The completion marker and the legacy workflow ---------------------------------------

TEST_F(Preflight, LegacyWorkflowWithAFailedCheckEndsDoneWithoutTheMarker)
{
    WritePreflightJob(PreflightJob().Options(kLegacyWorkflow).Unc(shareFolder_));
    JobRun job = RunPreflight(-14);
    EXPECT_TRUE(HasWrittenValues(jobKey_, {"DONE", "PREFLIGHTCHECK_FAILURE", "", "PREFLIGHT_ERR_INVALID_UNC_PATH", "",
                                           "2"}));
    EXPECT_TRUE(ContainsMessage(Messages(job), UpdateDoneLine(-14, true)));
    EXPECT_TRUE(LacksLine(Messages(job), kLegacyReadyLine));
    EXPECT_TRUE(LacksCompletionMarker());
}

TEST_F(Preflight, MarkerDoesNotSkipAPreflightOnlyRun)
{
    WritePreflightJob();
    WriteDword(jobKey_, L"PreflightCheckComplete", 1);
    JobRun job = RunPreflight(-9);
    EXPECT_TRUE(ContainsMessage(Messages(job), kChecksBegin));
    EXPECT_TRUE(LacksLine(Messages(job), kSkipLine));
    EXPECT_TRUE(HasWrittenValues(jobKey_, {"DONE", "PREFLIGHTCHECK_OK", "", "", "", "0"}));
    EXPECT_TRUE(HasCompletionMarker());
}

TEST_F(Preflight, MarkerThatReadsFalseDoesNotSkipTheLegacyCheck)
{
    struct Case {
        const char* label;
        DWORD type;
        std::vector<BYTE> data;
    };
    const Case cases[] = {
        {"REG_DWORD 0", REG_DWORD, {0, 0, 0, 0}},
        {"REG_SZ \"0\"", REG_SZ, Utf16Bytes(L"0", true)},
        {"REG_SZ \"no\"", REG_SZ, Utf16Bytes(L"no", true)},
        {"REG_SZ empty", REG_SZ, Utf16Bytes(L"", true)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        NextCase();
        WritePreflightJob(PreflightJob().Options(kLegacyWorkflow));
        WriteRaw(jobKey_, L"PreflightCheckComplete", c.type, c.data);
        JobRun job = RunPreflight(-9);
        EXPECT_TRUE(ContainsMessage(Messages(job), kChecksBegin));
        EXPECT_TRUE(LacksLine(Messages(job), kSkipLine));
        EXPECT_TRUE(HasWrittenValues(jobKey_, {"READY", "OK", "", "", "", "0"}));
        EXPECT_TRUE(HasCompletionMarker());
    }
}

TEST_F(Preflight, MarkerThatReadsTrueSkipsTheLegacyCheck)
{
    struct Case {
        const char* label;
        DWORD type;
        std::vector<BYTE> data;
    };
    const Case cases[] = {
        {"REG_DWORD 1", REG_DWORD, {1, 0, 0, 0}},
        {"REG_SZ \"1\"", REG_SZ, Utf16Bytes(L"1", true)},
        {"REG_SZ \"Yes\"", REG_SZ, Utf16Bytes(L"Yes", true)},
        {"REG_DWORD 7", REG_DWORD, {7, 0, 0, 0}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        NextCase();
        // READY does no work: the relaunch ends at the fetch step.
        WritePreflightJob(PreflightJob().Options(kLegacyWorkflow).State(L"READY"));
        WriteRaw(jobKey_, L"PreflightCheckComplete", c.type, c.data);
        JobRun job = RunShareJob();
        EXPECT_TRUE(IsCompletedRun(job.run, job.log));
        EXPECT_EQ(-1, job.run.exitCode);
        EXPECT_TRUE(ContainsMessage(Messages(job), kSkipLine));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::performPreflightChecks:"));
        EXPECT_TRUE(ContainsMessage(Messages(job), UpdateDoneLine(-1, true)));
        EXPECT_TRUE(HasWrittenValues(jobKey_, {"READY", "", "", "", "", "2"}));
        // The marker stays as it was.
        EXPECT_EQ((RegValue{c.type, c.data}), ReadValue(jobKey_, L"PreflightCheckComplete"));
    }
}

TEST_F(Preflight, LegacyRootJobGetsTheMarkerUnderTheNewRootOnly)
{
    UseLegacyJob();
    WritePreflightJob();
    ASSERT_FALSE(KeyExists(JobKey(kNewRoot, L"job")));
    JobRun job = RunPreflight(-9);
    EXPECT_TRUE(ContainsMessage(Messages(job), "UtilGetActiveUpdate: Kesmarc to Tarvelle agent upgrade detected"));
    EXPECT_TRUE(HasWrittenValues(jobKey_, {"DONE", "PREFLIGHTCHECK_OK", "", "", "", "0"}));
    EXPECT_TRUE(HasWrittenValues(JobKey(kNewRoot, L"job"), {"DONE", "PREFLIGHTCHECK_OK", "", "", "", "0"}));
    EXPECT_TRUE(HasCompletionMarker());
    EXPECT_FALSE(ReadValue(jobKey_, L"PreflightCheckComplete").has_value());
}

TEST_F(Preflight, LegacyRootJobLooksForTheMarkerUnderTheNewRootOnly)
{
    UseLegacyJob();
    WritePreflightJob(PreflightJob().Options(kLegacyWorkflow).State(L"READY"));
    // Under the job's own root the marker is not looked at.
    WriteDword(jobKey_, L"PreflightCheckComplete", 1);
    JobRun first = RunPreflight(-9);
    EXPECT_TRUE(ContainsMessage(Messages(first), kChecksBegin));
    EXPECT_TRUE(LacksLine(Messages(first), kSkipLine));
    EXPECT_TRUE(HasWrittenValues(jobKey_, {"READY", "OK", "", "", "", "0"}));
    EXPECT_TRUE(HasCompletionMarker());
    ExpectOneEntry(first, {"job", "NONE", "", "4.2.0", "READY", 0, "OK"});

    // The relaunch finds the marker the first half left under the new root.
    logsDir_ = UseFreshLogsDir();
    JobRun second = RunShareJob();
    EXPECT_TRUE(IsCompletedRun(second.run, second.log));
    EXPECT_EQ(-1, second.run.exitCode);
    EXPECT_TRUE(ContainsMessage(Messages(second), kSkipLine));
    EXPECT_TRUE(LacksLineStartingWith(Messages(second), "App::performPreflightChecks:"));
    EXPECT_TRUE(HasWrittenValues(jobKey_, {"READY", "OK", "", "", "", "0"}));
    ExpectOneEntry(second, {"job", "NONE", "", "4.2.0", "READY", 0, "OK"});
}

// The whole legacy workflow with a real package: the check, then the fetch
// from the share, then the install, each run started by the management side
// with the state it sets.
class PreflightWorkflow : public WithoutLabProducts<NoRestart<Preflight>> {};

TEST_F(PreflightWorkflow, FirstLaunchChecksThenTheRelaunchesFetchFromTheShareAndInstall)
{
    std::optional<std::string> package = ReadFileBytes(PackagePath(kGenericTool1_0_0));
    ASSERT_TRUE(package.has_value());
    const std::wstring unc = PutOnShare(L"generic-tool-1.0.0.msi", *package);
    WritePreflightJob(PreflightJob()
                          .Options(kLegacyWorkflow)
                          .Unc(unc)
                          .With(L"AGENT", L"OTHER")
                          .With(L"VERSION", L"1.0.0")
                          .With(L"FILESIZE", std::to_wstring(package->size()))
                          .With(L"CHECKSUM", Sha256Hex(*package)));

    // 1. The check: the job goes back to READY with the marker set.
    JobRun check = RunPreflight(-9);
    EXPECT_TRUE(HasWrittenValues(jobKey_, {"READY", "OK", "", "", "", "0"}));
    EXPECT_TRUE(HasCompletionMarker());
    std::vector<std::string> lines = OpeningLines();
    lines.insert(lines.end(), {validatingLine(unc), kRebootKeysLine, UpdateDoneLine(-9, true), kLegacyReadyLine,
                               "UtilManageUpdateState: Update key: job current state: READY result:OK",
                               stateLines("READY", "OK"), ClosingLine(-9)});
    EXPECT_TRUE(HasLinesInOrder(Messages(check), lines));
    EXPECT_FALSE(InstalledVersion(kGenericToolUpgradeCode).has_value());
    ExpectOneEntry(check, {"job", "OTHER", "", "1.0.0", "READY", 0, "OK"});

    // Each run below logs into a folder of its own, its telemetry file too.
    // 2. The management side asks for the fetch: the check is skipped.
    WriteString(jobKey_, L"STATE", L"DOWNLOAD");
    logsDir_ = UseFreshLogsDir();
    JobRun fetch = RunShareJob();
    EXPECT_TRUE(IsCompletedRun(fetch.run, fetch.log));
    EXPECT_EQ(-1, fetch.run.exitCode);
    const std::wstring payload = JoinPath(Workspace(), L"generic-tool-1.0.0.msi");
    EXPECT_TRUE(HasWrittenValues(jobKey_, {"WAIT", "OK", Narrow(payload), "", "", "0"}));
    EXPECT_TRUE(HasLinesInOrder(Messages(fetch), {
        kSkipLine,
        "Util_UNCDownload: Update key: job state: DOWNLOAD",
        "Util_CopyFileFromUNC: Copying file from source " + Narrow(unc),
        "Util_CopyFileFromUNC: File copy done at destination " + Narrow(payload),
        UpdateDoneLine(-1, true),
        stateLines("WAIT", "OK"),
    }));
    EXPECT_TRUE(LacksLineStartingWith(Messages(fetch), "App::performPreflightChecks:"));
    EXPECT_EQ(package, ReadFileBytes(payload));
    EXPECT_EQ((std::vector<std::string>{ConnectCall(shareFolder_, 0), DisconnectCall(shareFolder_, 0)}),
              ProviderCalls());
    EXPECT_FALSE(InstalledVersion(kGenericToolUpgradeCode).has_value());
    ExpectOneEntry(fetch, {"job", "OTHER", Narrow(payload), "1.0.0", "WAIT", 0, "OK"});

    // 3. The management side asks for the install.
    WriteString(jobKey_, L"STATE", L"UPDATING");
    logsDir_ = UseFreshLogsDir();
    JobRun install = RunShareJob(180000);
    EXPECT_TRUE(IsCompletedRun(install.run, install.log));
    EXPECT_EQ(-4, install.run.exitCode);
    EXPECT_TRUE(HasWrittenValues(jobKey_, {"DONE", "OK", Narrow(payload), "", "", "0"}));
    EXPECT_TRUE(HasLinesInOrder(Messages(install), {
        kSkipLine,
        "Agent::LaunchHelper: launching: msiexec /i " + Narrow(payload) + " /qn PREFLIGHTCHECK_ENABLED=2",
        "Util_UpdateDone: agent update result: ERR_NOAGENT",
        stateLines("DONE", "OK"),
        ClosingLine(-4),
    }));
    EXPECT_TRUE(LacksLineStartingWith(Messages(install), "App::performPreflightChecks:"));
    EXPECT_EQ(std::optional<std::wstring>(L"1.0.0"), InstalledVersion(kGenericToolUpgradeCode));
    EXPECT_FALSE(PathExists(payload));
    EXPECT_TRUE(NoRebootMarker());
    ExpectOneEntry(install, {"job", "OTHER", Narrow(payload), "1.0.0", "DONE", 0, "OK"});
}

}  // namespace
}  // namespace it
