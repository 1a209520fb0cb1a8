// Jobs under UPDATING for a product the tool knows nothing about ("AGENT"
// "OTHER"): the installer named by "FILENAME" is run silently, an .msi
// through the prefix's msiexec, an .exe directly, and its exit code decides
// the job. Windows Installer packages are really installed here; exit codes
// that Wine's msiexec can't give come from the lab's stand-in installer.
//
// Runs that end in a restart of the machine (exit code 3010, and a failed
// install with retries left) would end this harness with the prefix; they
// are checked from outside Wine by tests/lab/generic_restart_test.sh.
#include "JobFixture.h"
#include "MsiLab.h"
#include "StandInInstaller.h"

namespace it {
namespace {

// A failed install with retries left restarts the machine, which would end
// this harness: no retries unless a test says otherwise.
class UpdateGeneric : public WithoutLabProducts<NoRestartJobTest> {
protected:
    const std::wstring key_ = JobKey(kNewRoot, L"job");

    // A job that a fetch has brought to the point of installing: the file is
    // in place, and the management side has set UPDATING.
    void WriteUpdatingJob(const std::wstring& fileName, const std::wstring& version,
                          std::vector<std::pair<std::wstring, std::wstring>> extra = {})
    {
        std::vector<std::pair<std::wstring, std::wstring>> values = {
            {L"AGENT", L"OTHER"},   {L"VERSION", version}, {L"ARCH", L"64-BitAgent"},
            {L"UNC_PATH", L"\\\\fileserver\\share\\" + fileName.substr(fileName.find_last_of(L'\\') + 1)},
            {L"STATE", L"UPDATING"}, {L"RESULT", L"OK"},   {L"FILENAME", fileName},
            {L"RETRY", L"0"}};
        values.insert(values.end(), extra.begin(), extra.end());
        WriteJob(key_, values);
    }

    // Real installs through msiexec take their time.
    JobRun RunExpecting(int32_t exitCode) { return JobTest::RunExpecting(exitCode, {}, 120000); }

    // The lines of an install that ended well, from the gate to the new state.
    static std::vector<std::string> SucceededLines(const std::string& commandLine, DWORD exitCode)
    {
        return {
            "Util_UNCDownload: Update key: job state: UPDATING",
            "=== Check Version ===",
            "Agent::CompVersion: installed version not found",
            "=== Update ===",
            "Agent::LaunchHelper: launching: " + commandLine,
            "Agent::LaunchHelper: " + commandLine + " returned: " + ExitCodeText(exitCode),
            "App::Update: agent update succeeded",
            "Util_UpdateDone: Updating state for result 'ERR_NOAGENT', legacy workflow:'0' ",
            "Util_UpdateDone: agent update result: ERR_NOAGENT",
            "UtilManageUpdateState: Update key: job current state: UPDATING result:OK",
            "UtilManageUpdateState: Update key: job new state: DONE result: OK",
        };
    }

    // An install that failed with `exitCode` and no retry left: the job
    // stays in UPDATING with "FAILURE" and the installer's error, and
    // nothing restarts the machine.
    void ExpectFailedWithoutRetry(const JobRun& job, const std::string& commandLine, DWORD exitCode,
                                  const std::string& errorCode, const std::string& errorDesc)
    {
        EXPECT_TRUE(HasLinesInOrder(Messages(job), {
            "=== Update ===",
            "Agent::LaunchHelper: launching: " + commandLine,
            "Agent::LaunchHelper: " + commandLine + " returned: " + ExitCodeText(exitCode),
            "App::Update: agent reboot required",
            "App::Update: no Launch",
            "App::Update: Error code and description: " + errorCode + ", " + errorDesc,
            "Util_UpdateDone: Updating state for result 'ERR_REBOOT', legacy workflow:'0' ",
            "Util_UpdateDone: agent update result: ERR_REBOOT",
            "UtilTryAgain: exceeded retry attempts: 1, max attempt allowed: 0",
            "UtilTryAgain: updating retry: 1, max attempt allowed: 0",
            "UtilManageUpdateState: Update key: job current state: UPDATING result:FAILURE",
            "UtilManageUpdateState: Update key: job new state: UPDATING result: FAILURE",
        }));
        EXPECT_TRUE(LacksLine(Messages(job), "App::Update: agent update succeeded"));
        EXPECT_TRUE(LacksLine(Messages(job), "Util_UpdateDone: FORCE REBOOT"));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Util_CheckReboot:"));
        EXPECT_TRUE(LacksLine(Messages(job), "Initiated system reboot successfully."));
    }
};

// --- Windows Installer packages ------------------------------------------------

TEST_F(UpdateGeneric, MsiIsInstalledThroughMsiexecAndTheJobEndsDoneOk)
{
    ASSERT_FALSE(InstalledVersion(kGenericToolUpgradeCode).has_value());
    const std::wstring msi = CopyPackage(kGenericTool1_1_0, Workspace(), L"generic-tool-1.1.0.msi");
    WriteUpdatingJob(msi, L"1.1.0");

    JobRun job = RunExpecting(-4);

    EXPECT_EQ(std::vector<std::wstring>{kGenericTool1_1_0.productCode}, RelatedProducts(kGenericToolUpgradeCode));
    EXPECT_EQ(L"1.1.0", InstalledVersion(kGenericToolUpgradeCode).value_or(L"(none)"));
    // The payload goes after a good install; the record still names it.
    EXPECT_FALSE(PathExists(msi));
    EXPECT_TRUE(HasWrittenValues(key_, {"DONE", "OK", Narrow(msi), "", "", "0"}));
    const std::string line = "msiexec /i " + Narrow(msi) + " /qn";
    EXPECT_TRUE(HasLinesInOrder(Messages(job), SucceededLines(line, 0)));
    EXPECT_TRUE(ContainsMessage(Messages(job), "Agent::Agent: override filename: " + Narrow(msi)));
    EXPECT_TRUE(LacksLine(Messages(job), "App::Update: no Launch"));
    EXPECT_TRUE(LacksLine(Messages(job), "Util_UpdateDone: cleanup failed"));
    // The tool doesn't look for an installed version of such a product, so
    // the entry has no "fromVersion".
    ExpectOneEntry(job, {"job", "OTHER", Narrow(msi), "1.1.0", "DONE", 0, "OK"});
}

TEST_F(UpdateGeneric, MsiReplacesTheInstalledOlderVersion)
{
    ASSERT_EQ(0u, InstallPackage(kGenericTool1_0_0));
    ASSERT_EQ(L"1.0.0", InstalledVersion(kGenericToolUpgradeCode).value_or(L"(none)"));
    const std::wstring msi = CopyPackage(kGenericTool1_1_0, Workspace(), L"generic-tool-1.1.0.msi");
    WriteUpdatingJob(msi, L"1.1.0");

    JobRun job = RunExpecting(-4);

    EXPECT_EQ(std::vector<std::wstring>{kGenericTool1_1_0.productCode}, RelatedProducts(kGenericToolUpgradeCode));
    EXPECT_FALSE(ProductVersion(kGenericTool1_0_0.productCode).has_value());
    EXPECT_EQ(L"1.1.0", InstalledVersion(kGenericToolUpgradeCode).value_or(L"(none)"));
    EXPECT_TRUE(HasWrittenValues(key_, {"DONE", "OK", Narrow(msi), "", "", "0"}));
    EXPECT_TRUE(HasLinesInOrder(Messages(job), SucceededLines("msiexec /i " + Narrow(msi) + " /qn", 0)));
    ExpectOneEntry(job, {"job", "OTHER", Narrow(msi), "1.1.0", "DONE", 0, "OK"});
}

TEST_F(UpdateGeneric, MsiPathWithABlankIsQuotedAndOptionsFollowTheSwitches)
{
    const std::wstring msi =
        CopyPackage(kGenericTool1_1_0, JoinPath(Workspace(), L"lab packages"), L"generic tool 1.1.0.msi");
    WriteUpdatingJob(msi, L"1.1.0", {{L"OPTIONS", L"REBOOT=ReallySuppress"}});

    JobRun job = RunExpecting(-4);

    EXPECT_EQ(L"1.1.0", InstalledVersion(kGenericToolUpgradeCode).value_or(L"(none)"));
    EXPECT_FALSE(PathExists(msi));
    EXPECT_TRUE(HasWrittenValues(key_, {"DONE", "OK", Narrow(msi), "", "", "0"}));
    EXPECT_TRUE(HasLinesInOrder(Messages(job),
                                SucceededLines("msiexec /i \"" + Narrow(msi) + "\" /qn REBOOT=ReallySuppress", 0)));
    ExpectOneEntry(job, {"job", "OTHER", Narrow(msi), "1.1.0", "DONE", 0, "OK"});
}

TEST_F(UpdateGeneric, MsiThatWindowsInstallerRefusesFailsTheJobWithTheInstallersError)
{
    // The package refuses to replace a newer version: msiexec ends with 1603.
    ASSERT_EQ(0u, InstallPackage(kGenericTool1_1_0));
    const std::wstring msi = CopyPackage(kGenericTool1_0_0, Workspace(), L"generic-tool-1.0.0.msi");
    WriteUpdatingJob(msi, L"1.0.0");

    JobRun job = RunExpecting(-7);

    EXPECT_EQ(std::vector<std::wstring>{kGenericTool1_1_0.productCode}, RelatedProducts(kGenericToolUpgradeCode));
    const std::string desc = ExitCodeText(1603);
    // No clean-up after a failed install: the payload stays for a later try.
    EXPECT_TRUE(PathExists(msi));
    EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "FAILURE", Narrow(msi), "ERROR_INSTALL_FAILURE", desc, "1"}));
    ExpectFailedWithoutRetry(job, "msiexec /i " + Narrow(msi) + " /qn", 1603, "ERROR_INSTALL_FAILURE", desc);
    ExpectOneEntry(job, {"job", "OTHER", Narrow(msi), "1.0.0", "UPDATING", 1, "FAILURE", "ERROR_INSTALL_FAILURE",
                         desc});
}

// --- Setup programs and their exit codes ----------------------------------------

TEST_F(UpdateGeneric, SetupProgramEndingWithZeroOr1641EndsTheJobDoneOkWithoutRestart)
{
    for (const DWORD code : {0ul, 1641ul}) {
        SCOPED_TRACE(code);
        NextCase();
        const std::wstring setup = PlaceStandIn(Workspace(), L"setup-" + std::to_wstring(code) + L".exe");
        WriteUpdatingJob(setup, L"2.0.0");

        JobRun job = RunExpecting(-4);

        const std::string line = Narrow(setup) + " /s /v /qn";
        EXPECT_EQ(line, StandInCommandLine(setup).value_or("(the installer did not run)"));
        EXPECT_FALSE(PathExists(setup));
        EXPECT_TRUE(HasWrittenValues(key_, {"DONE", "OK", Narrow(setup), "", "", "0"}));
        EXPECT_TRUE(HasLinesInOrder(Messages(job), SucceededLines(line, code)));
        // 1641 means the installer restarts the machine itself: not the tool.
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Util_CheckReboot:"));
        ExpectOneEntry(job, {"job", "OTHER", Narrow(setup), "2.0.0", "DONE", 0, "OK"});
    }
}

TEST_F(UpdateGeneric, SetupPathWithABlankIsQuotedAndOptionsAreAppended)
{
    const std::wstring setup = PlaceStandIn(JoinPath(Workspace(), L"lab setup"), L"setup-0.exe");
    WriteUpdatingJob(setup, L"2.0.0", {{L"OPTIONS", L"INSTALLDIR=\"C:\\Lab Tool\" /norestart"}});

    JobRun job = RunExpecting(-4);

    const std::string line = "\"" + Narrow(setup) + "\" /s /v /qn INSTALLDIR=\"C:\\Lab Tool\" /norestart";
    EXPECT_EQ(line, StandInCommandLine(setup).value_or("(the installer did not run)"));
    EXPECT_TRUE(HasWrittenValues(key_, {"DONE", "OK", Narrow(setup), "", "", "0"}));
    EXPECT_TRUE(HasLinesInOrder(Messages(job), SucceededLines(line, 0)));
    ExpectOneEntry(job, {"job", "OTHER", Narrow(setup), "2.0.0", "DONE", 0, "OK"});
}

TEST_F(UpdateGeneric, SetupFailingWith1603AndNoRetryLeftStaysUpdatingWithFailureAndNoRestart)
{
    const std::wstring setup = PlaceStandIn(Workspace(), L"setup-1603.exe");
    WriteUpdatingJob(setup, L"2.0.0");

    JobRun job = RunExpecting(-7);

    const std::string line = Narrow(setup) + " /s /v /qn";
    EXPECT_EQ(line, StandInCommandLine(setup).value_or("(the installer did not run)"));
    EXPECT_TRUE(PathExists(setup));
    const std::string desc = ExitCodeText(1603);
    EXPECT_NE("1603 ()", desc) << "the prefix has no text for 1603";
    EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "FAILURE", Narrow(setup), "ERROR_INSTALL_FAILURE", desc, "1"}));
    ExpectFailedWithoutRetry(job, line, 1603, "ERROR_INSTALL_FAILURE", desc);
    ExpectOneEntry(job, {"job", "OTHER", Narrow(setup), "2.0.0", "UPDATING", 1, "FAILURE", "ERROR_INSTALL_FAILURE",
                         desc});
}

TEST_F(UpdateGeneric, InstallersOwnErrorTextUnderTheNewRootIsAddedToTheDescriptionAndRemoved)
{
    const std::wstring setup = PlaceStandIn(Workspace(), L"setup-1603.exe");
    WriteUpdatingJob(setup, L"2.0.0");
    const std::wstring agentKey = std::wstring(kNewRoot) + L"\\Agent";
    const std::wstring legacyAgentKey = std::wstring(kLegacyRoot) + L"\\Agent";
    WriteString(agentKey, L"LastInstallError", L"custom action SetupLab failed");
    WriteString(legacyAgentKey, L"LastInstallError", L"a legacy error nobody reads");

    JobRun job = RunExpecting(-7);

    const std::string desc = ExitCodeText(1603) + " - custom action SetupLab failed";
    EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "FAILURE", Narrow(setup), "ERROR_INSTALL_FAILURE", desc, "1"}));
    EXPECT_TRUE(ContainsMessage(Messages(job),
                                "App::Update: Error code and description: ERROR_INSTALL_FAILURE, " + desc));
    // Read under the new root only, removed under both at the end of the run.
    EXPECT_FALSE(ReadValue(agentKey, L"LastInstallError").has_value());
    EXPECT_FALSE(ReadValue(legacyAgentKey, L"LastInstallError").has_value());
    ExpectOneEntry(job, {"job", "OTHER", Narrow(setup), "2.0.0", "UPDATING", 1, "FAILURE", "ERROR_INSTALL_FAILURE",
                         desc});
}

TEST_F(UpdateGeneric, SetupFailingWithACodeOutsideTheTableNamesTheCodeItself)
{
    // 1638 is nothing special for this kind of agent: a failure like any other.
    const std::wstring setup = PlaceStandIn(Workspace(), L"setup-1638.exe");
    WriteUpdatingJob(setup, L"2.0.0");

    JobRun job = RunExpecting(-7);

    const std::string desc = ExitCodeText(1638);
    EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "FAILURE", Narrow(setup), "1638", desc, "1"}));
    ExpectFailedWithoutRetry(job, Narrow(setup) + " /s /v /qn", 1638, "1638", desc);
    ExpectOneEntry(job, {"job", "OTHER", Narrow(setup), "2.0.0", "UPDATING", 1, "FAILURE", "1638", desc});
}

// --- Nothing to launch ------------------------------------------------------------

TEST_F(UpdateGeneric, FileThatIsNeitherMsiNorExeIsNotLaunchedAndTheJobFails)
{
    // The stand-in under another extension: it would record a command line
    // if anything started it.
    const std::wstring patch = PlaceStandIn(Workspace(), L"setup-0.msp");
    WriteUpdatingJob(patch, L"2.0.0");

    JobRun job = RunExpecting(-1);

    EXPECT_FALSE(StandInCommandLine(patch).has_value());
    // Failure (-1) under UPDATING removes the payload; no installer ran, so
    // there is no exit code to report and the retry count stays.
    EXPECT_FALSE(PathExists(patch));
    EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "FAILURE", Narrow(patch), "", "", "0"}));
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "=== Update ===",
        "GenericAgent::Launch: invalid extension: .msp",
        "App::Update: no Launch",
        "Util_UpdateDone: Updating state for result 'ERR_FAILURE', legacy workflow:'0' ",
        "Util_UpdateDone: agent update result: ERR_FAILURE",
        "UtilManageUpdateState: Update key: job current state: UPDATING result:FAILURE",
        "UtilManageUpdateState: Update key: job new state: UPDATING result: FAILURE",
    }));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Agent::LaunchHelper:"));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::Update: Error code and description:"));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "UtilTryAgain:"));
    ExpectOneEntry(job, {"job", "OTHER", Narrow(patch), "2.0.0", "UPDATING", 0, "FAILURE"});
}

}  // namespace
}  // namespace it
