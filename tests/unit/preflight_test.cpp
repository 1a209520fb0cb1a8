// The preflight check with every service faked: the order of the checks,
// the wait for the system's updates, the disk, the share path and the
// reboot keys, and the names of the failures.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/App.h"
#include "fakes/FakePlatform.h"
#include "update/PreflightNames.h"
#include "update/UpdateRecord.h"

using CORE::corestring;
using fakes::FakePlatform;
using fakes::FakeUpdateAgent;
using Failure = platform::UpdateAgent::Failure;

namespace {

const std::wstring kRules = L"Software\\Tarvelle\\Zenthra\\Agent\\PreflightChecks";
const std::wstring kLegacyRules = L"Software\\Kesmarc, Inc.\\Kesmarc TQM\\Agent\\PreflightChecks";
const std::wstring kAutoUpdateReboot =
    L"Software\\Microsoft\\Windows\\CurrentVersion\\WindowsUpdate\\Auto Update\\RebootRequired";
const std::wstring kCbsReboot = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Component Based Servicing\\RebootPending";
const std::wstring kTarvelleNeedReboot = L"SOFTWARE\\Tarvelle\\NeedReboot";
const std::wstring kKesmarcNeedReboot = L"SOFTWARE\\Kesmarc, Inc.\\NeedReboot";

const std::wstring kWaitLine =
    L"App::waitForWindowsUpdateToComplete: Waiting for wait timeout= 10 mins, waitInterval= 60000 ms, maxAttempts=10";
const std::wstring kRebootCheckLine = L"App::isRebootPending: checking registry keys for reboot pending";

std::wstring stillRunning(unsigned attempt)
{
    return L"App::waitForWindowsUpdateToComplete: Windows update installation is still in progress - will wait for "
           L"(60000) milliseconds for next check, attempt (" +
           std::to_wstring(attempt) + L")";
}

class PreflightTest : public ::testing::Test {
protected:
    // A process's current directory is a folder that is there.
    PreflightTest()
    {
        p.files.currentDirectory = L"C:\\ProgramData\\Agent";
        p.files.addDirectory(p.files.currentDirectory);
    }

    // A rule under both roots, so a job of either root sees it.
    void rule(const std::wstring& name, const std::vector<std::pair<std::wstring, std::wstring>>& values)
    {
        p.keys.createKey(HKEY_LOCAL_MACHINE, kLegacyRules + L"\\" + name);
        for (const auto& [n, v] : values)
            p.keys.putString(HKEY_LOCAL_MACHINE, kRules + L"\\" + name, n, v);
    }

    size_t countOf(const std::wstring& line) const { return p.countOf(line); }

    FakePlatform p;
    App app;
};

// --- The order and the result ------------------------------------------------

TEST_F(PreflightTest, FitMachineGivesOkAfterEveryCheck)
{
    EXPECT_EQ(ERR_PREFLIGHTCHECK_OK, app.performPreflightChecks());
    const std::vector<std::wstring> lines = p.logLines();
    const std::vector<std::wstring> expected = {
        L"App::performPreflightChecks: begin..",
        L"App::isWindowsUpdateInProgress: Windows updates are not running at this time",
        L"App::isDiskspaceSufficientForUpdate: current directory =  [C:\\ProgramData\\Agent]",
        L"App::isDiskspaceSufficientForUpdate: Total Disk space= [20] GB, Free disk space = [10] GB",
        kRebootCheckLine,
    };
    EXPECT_EQ(expected, lines);
    EXPECT_EQ(1, p.updateAgent.looks);
    EXPECT_EQ(L"C:\\ProgramData\\Agent", p.files.diskSpaceAskedFor);
    EXPECT_TRUE(p.clock.sleeps.empty());
}

TEST_F(PreflightTest, ErrorNamesOfTheFailures)
{
    EXPECT_EQ(std::wstring(L"PREFLIGHT_ERR_INVALID_UNC_PATH"), GetPreflightErrorName(-14).c_str());
    EXPECT_EQ(std::wstring(L"PREFLIGHT_ERR_WIN_UPDATE_INPROGRESS"), GetPreflightErrorName(-13).c_str());
    EXPECT_EQ(std::wstring(L"PREFLIGHT_ERR_INSUFFICIENT_DISKSPACE"), GetPreflightErrorName(-12).c_str());
    EXPECT_EQ(std::wstring(L"PREFLIGHT_ERR_REBOOT_PENDING"), GetPreflightErrorName(-11).c_str());
    for (RunResult code : {-10, -9, -7, 0, 1, -15})
        EXPECT_TRUE(GetPreflightErrorName(code).empty()) << code;
}

// --- The system's update activity ----------------------------------------------

TEST_F(PreflightTest, UpdatesRunningAtFirstLookAndDoneAtTheNextNeedNoSleep)
{
    p.updateAgent.script = {FakeUpdateAgent::Busy(), FakeUpdateAgent::Idle()};
    EXPECT_EQ(ERR_PREFLIGHTCHECK_OK, app.performPreflightChecks());
    EXPECT_EQ(2, p.updateAgent.looks);
    EXPECT_TRUE(p.clock.sleeps.empty());
    const std::vector<std::wstring> lines = p.logLines();
    ASSERT_GE(lines.size(), 6u);
    EXPECT_EQ(L"App::isWindowsUpdateInProgress: Windows updates installation or uninstallation is in progress at this "
              L"time",
              lines[1]);
    EXPECT_EQ(L"App::performPreflightChecks: Windows updates are running, will wait for configured timeout for "
              L"windows updates to complete",
              lines[2]);
    EXPECT_EQ(kWaitLine, lines[3]);
    EXPECT_EQ(L"App::isWindowsUpdateInProgress: Windows updates are not running at this time", lines[4]);
    EXPECT_EQ(L"App::waitForWindowsUpdateToComplete: Windows update installation is completed, exiting..", lines[5]);
}

TEST_F(PreflightTest, UpdatesRunningThroughAllTenAttemptsGiveNineSleepsThenInProgress)
{
    p.updateAgent.answer = FakeUpdateAgent::Busy();
    EXPECT_EQ(ERR_PREFLIGHTCHECK_UPDATE_INPROGRESS, app.performPreflightChecks());
    EXPECT_EQ(11, p.updateAgent.looks);  // the first look and ten attempts
    ASSERT_EQ(9u, p.clock.sleeps.size());
    for (DWORD ms : p.clock.sleeps)
        EXPECT_EQ(60000u, ms);
    for (unsigned attempt = 1; attempt <= 10; ++attempt)
        EXPECT_EQ(1u, countOf(stillRunning(attempt))) << attempt;
    const std::vector<std::wstring> lines = p.logLines();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(L"App::waitForWindowsUpdateToComplete: Windows updates are still running, exiting", lines.back());
    EXPECT_EQ(stillRunning(10), lines[lines.size() - 2]);
    // The later checks don't run.
    EXPECT_EQ(0u, countOf(kRebootCheckLine));
    EXPECT_TRUE(p.files.diskSpaceAskedFor.empty());
}

TEST_F(PreflightTest, UpdatesEndingAtTheFifthAttemptSleepFourTimes)
{
    p.updateAgent.script = {FakeUpdateAgent::Busy(), FakeUpdateAgent::Busy(), FakeUpdateAgent::Busy(),
                            FakeUpdateAgent::Busy(), FakeUpdateAgent::Busy(), FakeUpdateAgent::Idle()};
    EXPECT_EQ(ERR_PREFLIGHTCHECK_OK, app.performPreflightChecks());
    EXPECT_EQ(4u, p.clock.sleeps.size());
    EXPECT_EQ(1u, countOf(stillRunning(4)));
    EXPECT_EQ(0u, countOf(stillRunning(5)));
}

TEST_F(PreflightTest, InstallerObjectThatCannotBeMadeFailsOpen)
{
    p.updateAgent.answer = FakeUpdateAgent::Failing(Failure::CreateInstaller, static_cast<HRESULT>(0x80040154));
    EXPECT_FALSE(app.isWindowsUpdateInProgress());
    EXPECT_TRUE(p.logHas(L"App::isWindowsUpdateInProgress: Failed to get IUpdateInstallerInterface, error = "
                         L"[-2147221164]"));
    EXPECT_EQ(ERR_PREFLIGHTCHECK_OK, app.performPreflightChecks());
}

TEST_F(PreflightTest, UnreadableIsBusyFailsOpen)
{
    p.updateAgent.answer = FakeUpdateAgent::Failing(Failure::ReadIsBusy, E_NOTIMPL);
    EXPECT_FALSE(app.isWindowsUpdateInProgress());
    EXPECT_TRUE(p.logHas(L"App::isWindowsUpdateInProgress: Unable to retrieve IsBusy property, error = [-2147467263]"));
    EXPECT_FALSE(p.logHas(L"App::isWindowsUpdateInProgress: Windows updates are not running at this time"));
}

TEST_F(PreflightTest, AFailingLookDuringTheWaitEndsTheWait)
{
    p.updateAgent.script = {FakeUpdateAgent::Busy(), FakeUpdateAgent::Busy(),
                            FakeUpdateAgent::Failing(Failure::ReadIsBusy, E_FAIL)};
    EXPECT_EQ(ERR_PREFLIGHTCHECK_OK, app.performPreflightChecks());
    EXPECT_EQ(1u, p.clock.sleeps.size());
    EXPECT_TRUE(p.logHas(L"App::waitForWindowsUpdateToComplete: Windows update installation is completed, exiting.."));
}

// --- Disk space -------------------------------------------------------------------

TEST_F(PreflightTest, ExactlyThreeHundredMebibytesFreeIsEnough)
{
    p.files.freeBytes = 314572800ull;
    EXPECT_TRUE(app.isDiskspaceSufficientForUpdate());
    EXPECT_EQ(ERR_PREFLIGHTCHECK_OK, app.performPreflightChecks());
}

TEST_F(PreflightTest, OneByteLessIsTooLittle)
{
    p.files.freeBytes = 314572799ull;
    p.files.totalBytes = 64ull << 30;
    EXPECT_EQ(ERR_PREFLIGHTCHECK_INSUFFICIENT_DISK, app.performPreflightChecks());
    EXPECT_TRUE(p.logHas(L"App::isDiskspaceSufficientForUpdate: Total Disk space= [64] GB, Free disk space = [0] GB"));
    EXPECT_TRUE(p.logHas(L"App::isDiskspaceSufficientForUpdate: Insufficient disk space, disk space = [299] MB"));
    EXPECT_TRUE(p.logHas(L"App::performPreflightChecks: Disk space is not suffcient"));
    EXPECT_EQ(0u, countOf(kRebootCheckLine));
}

TEST_F(PreflightTest, TheDrivesTotalFreeBytesCountNotTheCallersShare)
{
    p.files.freeBytes = 1ull << 30;
    p.files.freeToCallerBytes = 1ull << 20;  // a quota
    EXPECT_TRUE(app.isDiskspaceSufficientForUpdate());
    p.files.freeBytes = 1ull << 20;
    p.files.freeToCallerBytes = 1ull << 30;
    EXPECT_FALSE(app.isDiskspaceSufficientForUpdate());
}

TEST_F(PreflightTest, UnknownCurrentDirectoryCountsAsEnoughSpace)
{
    p.files.currentDirectoryError = ERROR_NOT_ENOUGH_MEMORY;
    p.files.freeBytes = 0;
    EXPECT_TRUE(app.isDiskspaceSufficientForUpdate());
    EXPECT_TRUE(p.logHas(L"App::isDiskspaceSufficientForUpdate: unable to fetch current directory path, error [8]"));
    EXPECT_TRUE(p.files.diskSpaceAskedFor.empty());
}

TEST_F(PreflightTest, UnknownFreeSpaceCountsAsEnough)
{
    p.files.diskSpaceResult = FALSE;
    EXPECT_TRUE(app.isDiskspaceSufficientForUpdate());
    EXPECT_TRUE(p.logHas(L"App::isDiskspaceSufficientForUpdate: Failed to check diskspace, error  [3]"));
    EXPECT_EQ(ERR_PREFLIGHTCHECK_OK, app.performPreflightChecks());
}

TEST_F(PreflightTest, CurrentDirectoryTooLongForItsBufferIsNotReadAsAPath)
{
    p.files.currentDirectory = L"C:\\" + std::wstring(300, L'd');
    EXPECT_TRUE(app.isDiskspaceSufficientForUpdate());
    EXPECT_TRUE(p.logHas(L"App::isDiskspaceSufficientForUpdate: current directory =  []"));
}

// --- The share path -----------------------------------------------------------------

TEST_F(PreflightTest, ShareFileThatOpensPasses)
{
    p.files.addFile(L"\\\\server\\share\\agent.msi", std::string("payload"));
    g_updateRecord.sUNC = L"\\\\server\\share\\agent.msi";
    EXPECT_EQ(ERR_PREFLIGHTCHECK_OK, app.performPreflightChecks());
    EXPECT_TRUE(p.logHas(L"App::isValidUNCPath: validating UNC path format and required permissions, UNC: "
                         L"\\\\server\\share\\agent.msi"));
    EXPECT_EQ(0, p.files.openHandles());
    EXPECT_TRUE(p.network.calls.empty());
}

TEST_F(PreflightTest, SharePathNamingAFolderIsInvalid)
{
    p.files.addDirectory(L"\\\\server\\share\\agents");
    g_updateRecord.sUNC = L"\\\\server\\share\\agents";
    EXPECT_EQ(ERR_PREFLIGHTCHECK_INVALID_UNC_PATH, app.performPreflightChecks());
    EXPECT_TRUE(p.logHas(L"App::isValidUNCPath: No required permission on the SMB share or the provided UNC path is "
                         L"not a complete installer file path, (error): Access to the network path was denied."));
    EXPECT_TRUE(p.logHas(L"App::performPreflightChecks: UNC path is not valid"));
    EXPECT_EQ(0u, countOf(kRebootCheckLine));
}

TEST_F(PreflightTest, MissingShareFileIsInvalid)
{
    p.files.addDirectory(L"\\\\server\\share");
    g_updateRecord.sUNC = L"\\\\server\\share\\missing.msi";
    EXPECT_EQ(ERR_PREFLIGHTCHECK_INVALID_UNC_PATH, app.performPreflightChecks());
    EXPECT_TRUE(p.logHas(L"App::isValidUNCPath: No required permission on the SMB share or the provided UNC path is "
                         L"not a complete installer file path, (error): The specified file was not found on the network path."));
}

TEST_F(PreflightTest, NoSharePathSkipsTheTest)
{
    g_updateRecord.sUNC = corestring();
    EXPECT_EQ(ERR_PREFLIGHTCHECK_OK, app.performPreflightChecks());
    for (const std::wstring& line : p.logLines())
        EXPECT_EQ(std::wstring::npos, line.find(L"App::isValidUNCPath")) << line;
}

TEST_F(PreflightTest, ShareFileHeldOpenWithoutSharingIsInvalid)
{
    p.files.addFile(L"\\\\server\\share\\agent.msi", std::string("payload"));
    HANDLE held = p.files.holdOpen(L"\\\\server\\share\\agent.msi");
    g_updateRecord.sUNC = L"\\\\server\\share\\agent.msi";
    EXPECT_EQ(ERR_PREFLIGHTCHECK_INVALID_UNC_PATH, app.performPreflightChecks());
    p.files.release(held);
}

TEST_F(PreflightTest, InsufficientDiskWinsOverABadSharePath)
{
    p.files.freeBytes = 1;
    g_updateRecord.sUNC = L"\\\\server\\share\\missing.msi";
    EXPECT_EQ(ERR_PREFLIGHTCHECK_INSUFFICIENT_DISK, app.performPreflightChecks());
    EXPECT_FALSE(p.logHas(L"App::performPreflightChecks: UNC path is not valid"));
}

TEST_F(PreflightTest, UpdatesStillRunningWinOverEverythingBehind)
{
    p.updateAgent.answer = FakeUpdateAgent::Busy();
    p.files.freeBytes = 1;
    EXPECT_EQ(ERR_PREFLIGHTCHECK_UPDATE_INPROGRESS, app.performPreflightChecks());
    EXPECT_FALSE(p.logHas(L"App::performPreflightChecks: Disk space is not suffcient"));
}

// --- Pending reboots -----------------------------------------------------------------

TEST_F(PreflightTest, NoRebootKeysNoReboot)
{
    EXPECT_FALSE(app.isRebootPending());
    EXPECT_EQ(std::vector<std::wstring>{kRebootCheckLine}, p.logLines());
}

TEST_F(PreflightTest, AutoUpdateKeyAloneMeansAPendingReboot)
{
    p.keys.createKey(HKEY_LOCAL_MACHINE, kAutoUpdateReboot);
    EXPECT_EQ(ERR_PREFLIGHTCHECK_REBOOT, app.performPreflightChecks());
    EXPECT_TRUE(p.logHas(L"App::isRebootPending: Windows Auto Update Reboot is pending"));
}

TEST_F(PreflightTest, ServicingKeyAloneMeansAPendingReboot)
{
    p.keys.createKey(HKEY_LOCAL_MACHINE, kCbsReboot);
    EXPECT_TRUE(app.isRebootPending());
    EXPECT_TRUE(p.logHas(L"App::isRebootPending: Windows Component Based Servicing (CBS) Reboot is pending"));
}

TEST_F(PreflightTest, FirstHitEndsTheSearch)
{
    p.keys.createKey(HKEY_LOCAL_MACHINE, kAutoUpdateReboot);
    p.keys.createKey(HKEY_LOCAL_MACHINE, kCbsReboot);
    EXPECT_TRUE(app.isRebootPending());
    EXPECT_FALSE(p.logHas(L"App::isRebootPending: Windows Component Based Servicing (CBS) Reboot is pending"));
}

TEST_F(PreflightTest, ProductKeyWithoutComponentsAsksForNothing)
{
    p.keys.createKey(HKEY_LOCAL_MACHINE, kTarvelleNeedReboot);
    p.keys.putString(HKEY_LOCAL_MACHINE, kKesmarcNeedReboot, L"Components", L"");
    EXPECT_FALSE(app.isRebootPending());
}

TEST_F(PreflightTest, TarvelleComponentsNeedAReboot)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kTarvelleNeedReboot, L"Components", L"Agent;Helper");
    EXPECT_TRUE(app.isRebootPending());
    EXPECT_TRUE(p.logHas(L"App::isRebootPending: Tarvelle components <Agent;Helper> need a reboot"));
}

TEST_F(PreflightTest, EmptyTarvelleListAndFilledKesmarcListGiveTheKesmarcReboot)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kTarvelleNeedReboot, L"Components", L"");
    p.keys.putString(HKEY_LOCAL_MACHINE, kKesmarcNeedReboot, L"Components", L"TQM");
    EXPECT_EQ(ERR_PREFLIGHTCHECK_REBOOT, app.performPreflightChecks());
    EXPECT_TRUE(p.logHas(L"App::isRebootPending: Kesmarc components <TQM> need a reboot"));
    EXPECT_FALSE(p.logHas(L"App::isRebootPending: Tarvelle components <> need a reboot"));
}

TEST_F(PreflightTest, ComponentsOfOtherTypesArriveAsText)
{
    p.keys.putDword(HKEY_LOCAL_MACHINE, kKesmarcNeedReboot, L"Components", 7);
    EXPECT_TRUE(app.isRebootPending());
    EXPECT_TRUE(p.logHas(L"App::isRebootPending: Kesmarc components <7> need a reboot"));
}

// --- Rules and the reboot keys -----------------------------------------------------------

TEST_F(PreflightTest, RuleErrorWithAPendingRebootGivesFailedWithoutLookingAtRebootKeys)
{
    p.keys.createKey(HKEY_LOCAL_MACHINE, kAutoUpdateReboot);
    p.keys.createKey(HKEY_LOCAL_MACHINE, L"Software\\Watched");
    rule(L"stop", {{L"KeyPath", L"HKLM\\Software\\Watched"}, {L"KeyPresentAction", L"ERROR"}});
    EXPECT_EQ(ERR_PREFLIGHTCHECK_FAILED, app.performPreflightChecks());
    EXPECT_EQ(0u, countOf(kRebootCheckLine));
    EXPECT_TRUE(p.logHas(L"App::performPreflightChecks: preflight final actions: [ERROR]"));
    EXPECT_TRUE(GetPreflightErrorName(ERR_PREFLIGHTCHECK_FAILED).empty());
}

TEST_F(PreflightTest, RuleRebootGivesRebootWithoutLookingAtRebootKeys)
{
    p.keys.createKey(HKEY_LOCAL_MACHINE, L"Software\\Watched");
    rule(L"restart", {{L"KeyPath", L"HKLM\\Software\\Watched"}, {L"KeyPresentAction", L"reboot"}});
    EXPECT_EQ(ERR_PREFLIGHTCHECK_REBOOT, app.performPreflightChecks());
    EXPECT_EQ(0u, countOf(kRebootCheckLine));
}

TEST_F(PreflightTest, ErrorAndRebootRulesTogetherGiveFailedAndListBothActions)
{
    p.keys.createKey(HKEY_LOCAL_MACHINE, L"Software\\Watched");
    rule(L"a", {{L"KeyPath", L"HKLM\\Software\\Watched"}, {L"KeyPresentAction", L"REBOOT"}});
    rule(L"b", {{L"KeyPath", L"HKLM\\Software\\Watched"}, {L"KeyPresentAction", L"error"}});
    rule(L"c", {{L"KeyPath", L"HKLM\\Software\\Watched"}, {L"KeyPresentAction", L"NONE"}});
    EXPECT_EQ(ERR_PREFLIGHTCHECK_FAILED, app.performPreflightChecks());
    std::vector<std::wstring> finals;
    for (const std::wstring& line : p.logLines())
        if (line.rfind(L"App::performPreflightChecks: preflight final actions: ", 0) == 0)
            finals.push_back(line.substr(line.find(L'[')));
    // In the set's order, each once.
    EXPECT_EQ((std::vector<std::wstring>{L"[ERROR]", L"[NONE]", L"[REBOOT]"}), finals);
}

TEST_F(PreflightTest, NoneActionsAloneLeaveTheRebootKeysToDecide)
{
    p.keys.createKey(HKEY_LOCAL_MACHINE, L"Software\\Watched");
    rule(L"a", {{L"KeyPath", L"HKLM\\Software\\Watched"}, {L"KeyPresentAction", L"Stop"}});
    EXPECT_EQ(ERR_PREFLIGHTCHECK_OK, app.performPreflightChecks());
    EXPECT_EQ(1u, countOf(kRebootCheckLine));
}

}  // namespace
