// Whole runs of a job that asks for a preflight check, all services faked:
// what the run leaves in the job, that it fetches and installs nothing, and
// the legacy workflow's two halves.
#include <gtest/gtest.h>

#include <string>

#include "agent/Agent.h"
#include "app/RunSequence.h"
#include "fakes/FakePlatform.h"
#include "fetch/Workspace.h"
#include "update/UpdateRecord.h"

using fakes::FakePlatform;

namespace {

const std::wstring kNewJob = L"Software\\Tarvelle\\Zenthra\\Agent\\Update\\Job1";
const std::wstring kLegacyJob = L"Software\\Kesmarc, Inc.\\Kesmarc TQM\\Agent\\Update\\Job1";
const std::wstring kShareFile = L"\\\\server\\share\\agent.msi";
const std::wstring kBegin = L"App::performPreflightChecks: begin..";
const std::wstring kSkip =
    L"wmain: legacy workflow in use and preflight check is already completed, skipping it for relaunch";

class PreflightRunTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        savedHost_ = isHostX64;
        isHostX64 = true;
        p.files.addFile(kShareFile, std::string("installer bytes"));
    }
    void TearDown() override { isHostX64 = savedHost_; }

    void job(const std::wstring& key, const std::wstring& options, const std::wstring& retry = L"0")
    {
        p.keys.putString(HKEY_LOCAL_MACHINE, key, L"AGENT", L"OTHER");
        p.keys.putString(HKEY_LOCAL_MACHINE, key, L"ARCH", L"64-BitAgent");
        p.keys.putString(HKEY_LOCAL_MACHINE, key, L"UNC_PATH", kShareFile);
        p.keys.putString(HKEY_LOCAL_MACHINE, key, L"FILESIZE", L"15");
        p.keys.putString(HKEY_LOCAL_MACHINE, key, L"CHECKSUM", std::wstring(64, L'a'));
        p.keys.putString(HKEY_LOCAL_MACHINE, key, L"STATE", L"DOWNLOAD");
        p.keys.putString(HKEY_LOCAL_MACHINE, key, L"RETRY", retry);
        p.keys.putString(HKEY_LOCAL_MACHINE, key, L"OPTIONS", options);
    }
    // What a new process of the tool would start from.
    RunResult runAsNewProcess()
    {
        p.processes.mutexes.clear();
        g_updateRecord = UpdateRecord{};
        Util_ResetWorkspaceForTest();
        return RunUpdateTool();
    }
    std::wstring text(const std::wstring& key, const wchar_t* name) const
    {
        return p.keys.stringValue(HKEY_LOCAL_MACHINE, key, name).value_or(L"<absent>");
    }
    std::optional<std::uint32_t> marker() const
    {
        return p.keys.dwordValue(HKEY_LOCAL_MACHINE, kNewJob, L"PreflightCheckComplete");
    }
    bool exitWindowsCalled() const
    {
        for (const std::wstring& call : p.power.calls)
            if (call == L"ExitWindowsEx")
                return true;
        return false;
    }

    FakePlatform p;
    bool savedHost_ = false;
};

TEST_F(PreflightRunTest, PassingCheckEndsDoneWithTheMarkerAndFetchesNothing)
{
    job(kNewJob, L"PREFLIGHTCHECK_ENABLED=1");
    EXPECT_EQ(ERR_PREFLIGHTCHECK_OK, RunUpdateTool());
    EXPECT_EQ(L"DONE", text(kNewJob, L"STATE"));
    EXPECT_EQ(L"PREFLIGHTCHECK_OK", text(kNewJob, L"RESULT"));
    EXPECT_EQ(L"", text(kNewJob, L"ERRORCODE"));
    EXPECT_EQ(L"0", text(kNewJob, L"RETRY"));
    EXPECT_EQ(std::optional<std::uint32_t>(1), marker());
    EXPECT_TRUE(p.network.calls.empty());
    EXPECT_TRUE(p.processes.launched.empty());
    EXPECT_FALSE(exitWindowsCalled());
    EXPECT_TRUE(p.logHas(kBegin));
}

TEST_F(PreflightRunTest, OptionTenAndLowerCaseCountAsOne)
{
    for (const wchar_t* options : {L"PREFLIGHTCHECK_ENABLED=10", L"x preflightcheck_enabled=1 y"}) {
        job(kNewJob, options);
        EXPECT_EQ(ERR_PREFLIGHTCHECK_OK, runAsNewProcess()) << options;
        EXPECT_EQ(L"DONE", text(kNewJob, L"STATE")) << options;
        EXPECT_TRUE(p.network.calls.empty()) << options;
    }
}

TEST_F(PreflightRunTest, OptionOneRunsTheCheckAgainEvenWithTheMarkerSet)
{
    job(kNewJob, L"PREFLIGHTCHECK_ENABLED=1");
    p.keys.putDword(HKEY_LOCAL_MACHINE, kNewJob, L"PreflightCheckComplete", 1);
    EXPECT_EQ(ERR_PREFLIGHTCHECK_OK, RunUpdateTool());
    EXPECT_TRUE(p.logHas(kBegin));
    EXPECT_FALSE(p.logHas(kSkip));
}

TEST_F(PreflightRunTest, LegacyWorkflowFirstHalfEndsReadyAndTheRelaunchGoesOnToTheFetch)
{
    job(kLegacyJob, L"PREFLIGHTCHECK_ENABLED=2");
    EXPECT_EQ(ERR_PREFLIGHTCHECK_OK, RunUpdateTool());
    EXPECT_EQ(L"READY", text(kLegacyJob, L"STATE"));
    EXPECT_EQ(L"OK", text(kLegacyJob, L"RESULT"));
    EXPECT_TRUE(p.logHas(L"Util_UpdateDone: preflightcheck check is done, legacy workflow is in use so updating state "
                         L"to READY"));
    // The marker stands under the new root although the job is a legacy one.
    EXPECT_EQ(std::optional<std::uint32_t>(1), marker());
    EXPECT_FALSE(p.keys.dwordValue(HKEY_LOCAL_MACHINE, kLegacyJob, L"PreflightCheckComplete").has_value());
    EXPECT_TRUE(p.network.calls.empty());

    // The management side sets DOWNLOAD again and relaunches.
    p.keys.putString(HKEY_LOCAL_MACHINE, kLegacyJob, L"STATE", L"DOWNLOAD");
    RunResult second = runAsNewProcess();
    EXPECT_TRUE(p.logHas(kSkip));
    EXPECT_FALSE(p.network.calls.empty());  // the share copy ran
    // The job's checksum doesn't match the fake's bytes: a failed fetch to retry.
    EXPECT_EQ(ERR_FAILURE, second);
    EXPECT_EQ(L"READY", text(kLegacyJob, L"STATE"));
    EXPECT_EQ(L"PROGRESS", text(kLegacyJob, L"RESULT"));
    EXPECT_EQ(L"UNC_CHECKSUM_MISMATCH_ERROR", text(kLegacyJob, L"ERRORCODE"));
    EXPECT_EQ(L"1", text(kLegacyJob, L"RETRY"));
}

TEST_F(PreflightRunTest, BothOptionsMeanTheLegacyWorkflow)
{
    job(kNewJob, L"PREFLIGHTCHECK_ENABLED=1 PREFLIGHTCHECK_ENABLED=2");
    EXPECT_EQ(ERR_PREFLIGHTCHECK_OK, RunUpdateTool());
    EXPECT_EQ(L"READY", text(kNewJob, L"STATE"));
    EXPECT_EQ(L"OK", text(kNewJob, L"RESULT"));
}

TEST_F(PreflightRunTest, InvalidSharePathEndsDoneWithItsNameAndKeepsTheRetryCount)
{
    job(kNewJob, L"PREFLIGHTCHECK_ENABLED=1", L"1");
    p.keys.putString(HKEY_LOCAL_MACHINE, kNewJob, L"UNC_PATH", L"\\\\server\\share\\missing.msi");
    EXPECT_EQ(ERR_PREFLIGHTCHECK_INVALID_UNC_PATH, RunUpdateTool());
    EXPECT_EQ(L"DONE", text(kNewJob, L"STATE"));
    EXPECT_EQ(L"PREFLIGHTCHECK_FAILURE", text(kNewJob, L"RESULT"));
    EXPECT_EQ(L"PREFLIGHT_ERR_INVALID_UNC_PATH", text(kNewJob, L"ERRORCODE"));
    EXPECT_EQ(L"", text(kNewJob, L"ERRORDESC"));
    EXPECT_EQ(L"1", text(kNewJob, L"RETRY"));
    EXPECT_FALSE(marker().has_value());
}

TEST_F(PreflightRunTest, InsufficientDiskAndUpdatesInProgressEndDoneWithTheirNames)
{
    job(kNewJob, L"PREFLIGHTCHECK_ENABLED=1");
    p.files.freeBytes = 1;
    EXPECT_EQ(ERR_PREFLIGHTCHECK_INSUFFICIENT_DISK, RunUpdateTool());
    EXPECT_EQ(L"PREFLIGHT_ERR_INSUFFICIENT_DISKSPACE", text(kNewJob, L"ERRORCODE"));

    p.files.freeBytes = 10ull << 30;
    p.updateAgent.answer = fakes::FakeUpdateAgent::Busy();
    EXPECT_EQ(ERR_PREFLIGHTCHECK_UPDATE_INPROGRESS, runAsNewProcess());
    EXPECT_EQ(L"DONE", text(kNewJob, L"STATE"));
    EXPECT_EQ(L"PREFLIGHTCHECK_FAILURE", text(kNewJob, L"RESULT"));
    EXPECT_EQ(L"PREFLIGHT_ERR_WIN_UPDATE_INPROGRESS", text(kNewJob, L"ERRORCODE"));
}

TEST_F(PreflightRunTest, PendingRebootWithinTheLimitOfTwoRestartsTheMachine)
{
    job(kNewJob, L"PREFLIGHTCHECK_ENABLED=1", L"1");
    p.keys.createKey(HKEY_LOCAL_MACHINE,
                     L"Software\\Microsoft\\Windows\\CurrentVersion\\WindowsUpdate\\Auto Update\\RebootRequired");
    EXPECT_EQ(ERR_PREFLIGHTCHECK_REBOOT, RunUpdateTool());
    EXPECT_EQ(L"READY", text(kNewJob, L"STATE"));
    EXPECT_EQ(L"PREFLIGHTCHECK_INPROGRESS", text(kNewJob, L"RESULT"));
    EXPECT_EQ(L"2", text(kNewJob, L"RETRY"));
    EXPECT_TRUE(exitWindowsCalled());
}

TEST_F(PreflightRunTest, PendingRebootBeyondTheLimitFailsWithoutARestart)
{
    job(kNewJob, L"PREFLIGHTCHECK_ENABLED=1", L"2");
    p.keys.putString(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Tarvelle\\NeedReboot", L"Components", L"Agent");
    EXPECT_EQ(ERR_PREFLIGHTCHECK_REBOOT, RunUpdateTool());
    EXPECT_EQ(L"DONE", text(kNewJob, L"STATE"));
    EXPECT_EQ(L"PREFLIGHTCHECK_FAILURE", text(kNewJob, L"RESULT"));
    EXPECT_EQ(L"PREFLIGHT_ERR_REBOOT_PENDING", text(kNewJob, L"ERRORCODE"));
    EXPECT_EQ(L"0", text(kNewJob, L"RETRY"));
    EXPECT_FALSE(exitWindowsCalled());
}

}  // namespace
