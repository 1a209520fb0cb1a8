// The restart at the very end of a run: the wait that grows with the
// retries, the shutdown privilege and the forced restart itself.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/RunSequence.h"
#include "update/Reboot.h"
#include "update/StateMachine.h"
#include "update_test_support.h"

using namespace update_test;

namespace {

const std::vector<std::wstring> kFullSequence = {L"OpenProcessToken", L"LookupPrivilegeValueW",
                                                 L"AdjustTokenPrivileges", L"CloseHandle", L"ExitWindowsEx"};

class Reboot : public UpdateTest {
protected:
    void required(std::int32_t retry, const wchar_t* result = L"PROGRESS")
    {
        g_updateRecord.rebootRequired = true;
        g_updateRecord.nRetry = retry;
        g_updateRecord.sResult = result;
    }
};

}  // namespace

TEST_F(Reboot, NotRequiredDoesNothing)
{
    g_updateRecord.nRetry = 2;
    Util_CheckReboot();
    EXPECT_TRUE(p.clock.sleeps.empty());
    EXPECT_TRUE(p.logLines().empty());
    EXPECT_TRUE(p.power.calls.empty());
}

TEST_F(Reboot, SecondRetryWaitsTwoPeriodsThenRestarts)
{
    required(2);
    Util_CheckReboot();
    EXPECT_EQ(std::vector<DWORD>{600000}, p.clock.sleeps);
    EXPECT_EQ((std::vector<std::wstring>{L"Util_CheckReboot: wait for a while", L"Util_CheckReboot: done waiting",
                                         L"Initiated system reboot successfully."}),
              p.logLines());
    EXPECT_EQ(kFullSequence, p.power.calls);
}

TEST_F(Reboot, WaitIsRetryTimesThePeriod)
{
    required(1);
    retryWaitMs = 1000;
    Util_CheckReboot();
    EXPECT_EQ(std::vector<DWORD>{1000}, p.clock.sleeps);
}

TEST_F(Reboot, NoRetryYetMeansAWaitOfZero)
{
    required(0);
    Util_CheckReboot();
    EXPECT_EQ(std::vector<DWORD>{0}, p.clock.sleeps);
    EXPECT_TRUE(p.logHas(L"Util_CheckReboot: wait for a while"));
    EXPECT_EQ(kFullSequence, p.power.calls);
}

TEST_F(Reboot, WaitWrapsIn32Bits)
{
    required(3);
    retryWaitMs = 0x60000000u;
    Util_CheckReboot();
    EXPECT_EQ(std::vector<DWORD>{0x20000000u}, p.clock.sleeps);
}

TEST_F(Reboot, NegativeRetryWrapsToo)
{
    required(-1);
    Util_CheckReboot();
    EXPECT_EQ(std::vector<DWORD>{0xFFFFFFFFu - 300000u + 1u}, p.clock.sleeps);
}

TEST_F(Reboot, PreflightRestartDoesNotWait)
{
    required(2, L"PREFLIGHTCHECK_INPROGRESS");
    Util_CheckReboot();
    EXPECT_TRUE(p.clock.sleeps.empty());
    EXPECT_EQ(std::vector<std::wstring>{L"Initiated system reboot successfully."}, p.logLines());
    EXPECT_EQ(kFullSequence, p.power.calls);
}

TEST_F(Reboot, PreflightResultIsComparedExactly)
{
    required(1, L"preflightcheck_inprogress");
    Util_CheckReboot();
    EXPECT_EQ(std::vector<DWORD>{300000}, p.clock.sleeps);
}

TEST_F(Reboot, RestartAsksForTheShutdownPrivilegeAndForcesTheRestart)
{
    EXPECT_TRUE(Util_Reboot());
    EXPECT_EQ(kFullSequence, p.power.calls);
    EXPECT_EQ(::GetCurrentProcess(), p.power.openedProcess);
    EXPECT_EQ(32u, p.power.openedAccess);
    EXPECT_TRUE(p.power.lookupSystemWasNull);
    EXPECT_EQ(L"SeShutdownPrivilege", p.power.lookedUpName);
    EXPECT_EQ(p.power.token, p.power.adjustedToken);
    EXPECT_EQ(FALSE, p.power.adjustDisableAll);
    EXPECT_EQ(1u, p.power.adjustCount);
    EXPECT_EQ(p.power.shutdownLuid.LowPart, p.power.adjustLuid.LowPart);
    EXPECT_EQ(p.power.shutdownLuid.HighPart, p.power.adjustLuid.HighPart);
    EXPECT_EQ(2u, p.power.adjustAttributes);
    EXPECT_EQ(16u, p.power.adjustBufferLength);
    EXPECT_TRUE(p.power.adjustPreviousWasNull);
    EXPECT_TRUE(p.power.adjustReturnLengthWasNull);
    EXPECT_EQ(std::vector<HANDLE>{p.power.token}, p.power.closed);
    EXPECT_EQ(22u, p.power.exitFlags);
    EXPECT_EQ(0u, p.power.exitReason);
    EXPECT_TRUE(p.logLines().empty());
}

TEST_F(Reboot, TokenThatCannotBeOpenedEndsTheRestart)
{
    p.power.openTokenFails = true;
    required(0, L"PREFLIGHTCHECK_INPROGRESS");
    Util_CheckReboot();
    EXPECT_EQ(std::vector<std::wstring>{L"OpenProcessToken"}, p.power.calls);
    EXPECT_EQ((std::vector<std::wstring>{L"Unable to open process token for self", L"REBOOT FAILED"}), p.logLines());
}

TEST_F(Reboot, PrivilegeThatCannotBeAdjustedClosesTheTokenAndEndsTheRestart)
{
    p.power.adjustFails = true;
    EXPECT_FALSE(Util_Reboot());
    EXPECT_EQ((std::vector<std::wstring>{L"OpenProcessToken", L"LookupPrivilegeValueW", L"AdjustTokenPrivileges",
                                         L"CloseHandle"}),
              p.power.calls);
    EXPECT_EQ(std::vector<HANDLE>{p.power.token}, p.power.closed);
    EXPECT_EQ(std::vector<std::wstring>{L"Unable to adjust token privileges"}, p.logLines());
}

TEST_F(Reboot, FailedLookupIsNotTested)
{
    p.power.lookupFails = true;
    EXPECT_TRUE(Util_Reboot());
    EXPECT_EQ(kFullSequence, p.power.calls);
}

TEST_F(Reboot, RefusedRestartIsReportedAsRebootFailed)
{
    p.power.exitFails = true;
    EXPECT_FALSE(Util_Reboot());
    required(0, L"PREFLIGHTCHECK_INPROGRESS");
    p.power.calls.clear();
    Util_CheckReboot();
    EXPECT_EQ(kFullSequence, p.power.calls);
    EXPECT_EQ(std::vector<std::wstring>{L"REBOOT FAILED"}, p.logLines());
}

TEST_F(Reboot, UpdateThatReachedOkRestartsAtOnce)
{
    // The agent asked for the restart; the good end put the count back to 0.
    job(Root::New, L"Job1", STATE_UPDATING, L"", 1);
    g_updateRecord.rebootRequired = true;
    EXPECT_TRUE(Util_UpdateDone(ERR_NOAGENT, false));
    EXPECT_EQ(STATE_DONE, g_updateRecord.nState);
    EXPECT_EQ(0, g_updateRecord.nRetry);
    Util_CheckReboot();
    EXPECT_EQ(std::vector<DWORD>{0}, p.clock.sleeps);
    EXPECT_EQ(kFullSequence, p.power.calls);
}

TEST_F(Reboot, UpdateAskingForARestartWaitsItsRetriesThenRestartsWithTheMarkerSet)
{
    job(Root::New, L"Job1", STATE_UPDATING, L"", 1);
    EXPECT_TRUE(Util_UpdateDone(ERR_REBOOT, false));
    Util_CheckReboot();
    EXPECT_EQ(std::vector<DWORD>{600000}, p.clock.sleeps);
    EXPECT_EQ(kFullSequence, p.power.calls);
    EXPECT_EQ(L"1", p.keys.stringValue(HKEY_LOCAL_MACHINE, kNewVolatile, L"NeedReboot"));
}

TEST_F(Reboot, RefusedRestartLeavesTheMarkerAndTheSavedState)
{
    p.power.exitFails = true;
    job(Root::New, L"Job1", STATE_UPDATING);
    EXPECT_TRUE(Util_UpdateDone(ERR_REBOOT, false));
    Util_CheckReboot();
    EXPECT_TRUE(p.logHas(L"REBOOT FAILED"));
    EXPECT_EQ(L"1", p.keys.stringValue(HKEY_LOCAL_MACHINE, kNewVolatile, L"NeedReboot"));
    EXPECT_EQ(L"WAIT", stored(Root::New, L"Job1", L"STATE"));
}

TEST_F(Reboot, RebootFailedDoesNotChangeTheExitCode)
{
    RunResult results[2];
    for (int refused = 0; refused < 2; ++refused) {
        fakes::FakePlatform run;
        run.power.exitFails = refused == 1;
        g_updateRecord.rebootRequired = true;
        g_updateRecord.sResult = L"PREFLIGHTCHECK_INPROGRESS";
        results[refused] = RunUpdateTool();
        EXPECT_EQ(kFullSequence, run.power.calls) << refused;
        EXPECT_EQ(refused == 1, run.logHas(L"REBOOT FAILED")) << refused;
        EXPECT_EQ(std::wstring(L"wmain: Updatetool rc = ") + GetRunResultName(results[refused]).c_str(),
                  run.logLines().back());
    }
    EXPECT_EQ(results[0], results[1]);
}
