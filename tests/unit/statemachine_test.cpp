// The end of every run: the run result and the job's state decide the next
// state, the result text and the retry count, which are then saved.
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <tuple>
#include <vector>

#include "app/RunSequence.h"
#include "update/PreflightNames.h"
#include "update/RunResult.h"
#include "update/StateMachine.h"
#include "update_test_support.h"

using namespace update_test;

namespace {

const std::wstring kPayload = L"C:\\Windows\\Temp\\updatetool-data\\agent.msi";

std::wstring firstLine(const wchar_t* resultName, bool legacy)
{
    return std::wstring(L"Util_UpdateDone: Updating state for result '") + resultName + L"', legacy workflow:'" +
           (legacy ? L"1" : L"0") + L"' ";
}

const char* stateName(std::uint32_t state)
{
    static const char* const names[] = {"Unknown", "Ready", "Download", "Wait", "NoLogon", "Updating", "Done"};
    return state < 7 ? names[state] : "Other";
}

class StateMachine : public UpdateTest {
protected:
    void payload()
    {
        p.files.addDirectory(L"C:\\Windows\\Temp\\updatetool-data");
        p.files.addFile(kPayload, std::string("payload"));
        g_updateRecord.sFileName = kPayload.c_str();
    }
    std::wstring result() const { return g_updateRecord.sResult.c_str(); }
    std::vector<std::wstring> doneLines() const { return linesOf({L"Util_UpdateDone"}); }
    std::vector<std::wstring> retryLines() const { return linesOf({L"UtilTryAgain"}); }
    bool completeMarker() const
    {
        return p.keys.dwordValue(HKEY_LOCAL_MACHINE, jobKey(Root::New, L"Job1"), L"PreflightCheckComplete") == 1u;
    }
    bool needReboot() const
    {
        return p.keys.value(HKEY_LOCAL_MACHINE, kNewVolatile, L"NeedReboot").has_value();
    }
};

}  // namespace

// ---- UtilTryAgain

TEST_F(StateMachine, TryAgainWithinTheLimitCountsAndLogsOneLine)
{
    g_updateRecord.nRetry = 1;
    EXPECT_TRUE(UtilTryAgain(2));
    EXPECT_EQ(2, g_updateRecord.nRetry);
    EXPECT_EQ(std::vector<std::wstring>{L"UtilTryAgain: updating retry: 2, max attempt allowed: 2"}, retryLines());
}

TEST_F(StateMachine, TryAgainPastTheLimitLogsExceededThenUpdatingAndKeepsTheCount)
{
    g_updateRecord.nRetry = 2;
    EXPECT_FALSE(UtilTryAgain(2));
    EXPECT_EQ(3, g_updateRecord.nRetry);
    EXPECT_EQ((std::vector<std::wstring>{L"UtilTryAgain: exceeded retry attempts: 3, max attempt allowed: 2",
                                         L"UtilTryAgain: updating retry: 3, max attempt allowed: 2"}),
              retryLines());
}

TEST_F(StateMachine, TryAgainComparesSigned)
{
    g_updateRecord.nRetry = -5;
    EXPECT_TRUE(UtilTryAgain(0));
    EXPECT_EQ(-4, g_updateRecord.nRetry);
    g_updateRecord.nRetry = 0;
    EXPECT_FALSE(UtilTryAgain(-1));
    EXPECT_TRUE(linesOf({L"UtilTryAgain"}).back() == L"UtilTryAgain: updating retry: 1, max attempt allowed: -1");
}

TEST_F(StateMachine, TryAgainAtTheLargestCountWrapsInsteadOfFailing)
{
    g_updateRecord.nRetry = INT_MAX;
    EXPECT_TRUE(UtilTryAgain(2));
    EXPECT_EQ(INT_MIN, g_updateRecord.nRetry);
}

// ---- Row: any state, ERR_PREFLIGHTCHECK_OK, not legacy -> DONE, "PREFLIGHTCHECK_OK"

class PreflightOkFromAnyState : public StateMachine, public ::testing::WithParamInterface<std::uint32_t> {};

TEST_P(PreflightOkFromAnyState, EndsDoneWithRetryZeroAndTheCompletionMarker)
{
    job(Root::New, L"Job1", GetParam(), L"FAILURE", 2);
    g_updateRecord.sErrorCode = L"earlier";
    EXPECT_TRUE(Util_UpdateDone(ERR_PREFLIGHTCHECK_OK, false));
    EXPECT_EQ(STATE_DONE, g_updateRecord.nState);
    EXPECT_EQ(L"PREFLIGHTCHECK_OK", result());
    EXPECT_EQ(0, g_updateRecord.nRetry);
    EXPECT_TRUE(completeMarker());
    EXPECT_FALSE(g_updateRecord.rebootRequired);
    EXPECT_STREQ(L"earlier", g_updateRecord.sErrorCode.c_str());
    EXPECT_EQ(L"DONE", stored(Root::New, L"Job1", L"STATE"));
    EXPECT_EQ(L"PREFLIGHTCHECK_OK", stored(Root::New, L"Job1", L"RESULT"));
    EXPECT_EQ(L"0", stored(Root::New, L"Job1", L"RETRY"));
    EXPECT_EQ(std::vector<std::wstring>{firstLine(L"ERR_PREFLIGHTCHECK_OK", false)}, doneLines());
    EXPECT_TRUE(retryLines().empty());
    EXPECT_TRUE(p.clock.sleeps.empty());
}

INSTANTIATE_TEST_SUITE_P(States, PreflightOkFromAnyState, ::testing::Values(0u, 1u, 2u, 3u, 4u, 5u, 6u),
                         [](const auto& info) { return std::string(stateName(info.param)); });

// ---- Row: any state, ERR_PREFLIGHTCHECK_OK, legacy -> READY, "OK"

class PreflightOkLegacyFromAnyState : public StateMachine, public ::testing::WithParamInterface<std::uint32_t> {};

TEST_P(PreflightOkLegacyFromAnyState, GoesToReadyWithOkForTheRelaunch)
{
    job(Root::New, L"Job1", GetParam(), L"FAILURE", 1);
    EXPECT_TRUE(Util_UpdateDone(ERR_PREFLIGHTCHECK_OK, true));
    EXPECT_EQ(STATE_READY, g_updateRecord.nState);
    EXPECT_EQ(L"OK", result());
    EXPECT_EQ(0, g_updateRecord.nRetry);
    EXPECT_TRUE(completeMarker());
    EXPECT_EQ(L"READY", stored(Root::New, L"Job1", L"STATE"));
    EXPECT_EQ(L"OK", stored(Root::New, L"Job1", L"RESULT"));
    EXPECT_EQ((std::vector<std::wstring>{firstLine(L"ERR_PREFLIGHTCHECK_OK", true),
                                         L"Util_UpdateDone: preflightcheck check is done, legacy workflow is in use "
                                         L"so updating state to READY"}),
              doneLines());
}

INSTANTIATE_TEST_SUITE_P(States, PreflightOkLegacyFromAnyState, ::testing::Values(0u, 1u, 2u, 3u, 4u, 5u, 6u),
                         [](const auto& info) { return std::string(stateName(info.param)); });

TEST_F(StateMachine, PreflightOkOfALegacyJobSetsTheMarkerUnderTheNewRootOnly)
{
    job(Root::Legacy, L"Job1", STATE_READY);
    EXPECT_TRUE(Util_UpdateDone(ERR_PREFLIGHTCHECK_OK, true));
    EXPECT_EQ(1u, p.keys.dwordValue(HKEY_LOCAL_MACHINE, jobKey(Root::New, L"Job1"), L"PreflightCheckComplete"));
    EXPECT_FALSE(p.keys.value(HKEY_LOCAL_MACHINE, jobKey(Root::Legacy, L"Job1"), L"PreflightCheckComplete"));
}

TEST_F(StateMachine, PreflightOkSavesEvenWhenTheCompletionMarkerFails)
{
    job(Root::New, L"Job1", STATE_READY);
    RecordingKeys keys(p.keys);
    keys.failValue = L"PreflightCheckComplete";
    fakes::ScopedServices scope{fakes::withKeys(keys)};
    EXPECT_TRUE(Util_UpdateDone(ERR_PREFLIGHTCHECK_OK, false));
    EXPECT_TRUE(p.logHas(L"Util_UpdatePreflightCheckCompleteReg: Update key: Job1 failed to update "
                         L"preflightcheckcomplete flag for value: 1"));
    EXPECT_EQ(L"DONE", stored(Root::New, L"Job1", L"STATE"));
}

// ---- Row: any state, -10/-12/-13/-14 -> DONE, "PREFLIGHTCHECK_FAILURE"

struct FailureCode {
    RunResult code;
    const wchar_t* runName;
    const wchar_t* errorName;
};

class PreflightFailureFromAnyState
    : public StateMachine,
      public ::testing::WithParamInterface<std::tuple<FailureCode, std::uint32_t>> {};

TEST_P(PreflightFailureFromAnyState, EndsDoneWithTheErrorNameAndTheCountLeftAlone)
{
    const auto& [failure, state] = GetParam();
    job(Root::New, L"Job1", state, L"OK", 1);
    g_updateRecord.sErrorDesc = L"from before";
    EXPECT_TRUE(Util_UpdateDone(failure.code, false));
    EXPECT_EQ(STATE_DONE, g_updateRecord.nState);
    EXPECT_EQ(L"PREFLIGHTCHECK_FAILURE", result());
    EXPECT_STREQ(failure.errorName, g_updateRecord.sErrorCode.c_str());
    EXPECT_STREQ(L"from before", g_updateRecord.sErrorDesc.c_str());
    EXPECT_EQ(1, g_updateRecord.nRetry);
    EXPECT_FALSE(g_updateRecord.rebootRequired);
    EXPECT_FALSE(completeMarker());
    EXPECT_EQ(L"DONE", stored(Root::New, L"Job1", L"STATE"));
    EXPECT_EQ(L"PREFLIGHTCHECK_FAILURE", stored(Root::New, L"Job1", L"RESULT"));
    EXPECT_EQ(std::wstring(failure.errorName), stored(Root::New, L"Job1", L"ERRORCODE"));
    EXPECT_EQ(L"1", stored(Root::New, L"Job1", L"RETRY"));
    EXPECT_EQ(std::vector<std::wstring>{firstLine(failure.runName, false)}, doneLines());
    EXPECT_TRUE(retryLines().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Codes, PreflightFailureFromAnyState,
    ::testing::Combine(
        ::testing::Values(FailureCode{-10, L"ERR_PREFLIGHTCHECK_FAILED", L""},
                          FailureCode{-12, L"ERR_PREFLIGHTCHECK_INSUFFICIENT_DISK", L"PREFLIGHT_ERR_INSUFFICIENT_DISKSPACE"},
                          FailureCode{-13, L"ERR_PREFLIGHTCHECK_UPDATE_INPROGRESS", L"PREFLIGHT_ERR_WIN_UPDATE_INPROGRESS"},
                          FailureCode{-14, L"ERR_PREFLIGHTCHECK_INVALID_UNC_PATH", L"PREFLIGHT_ERR_INVALID_UNC_PATH"}),
        ::testing::Values(0u, 1u, 2u, 5u, 6u)),
    [](const auto& info) {
        return "Code" + std::to_string(-std::get<0>(info.param).code) + "From" + stateName(std::get<1>(info.param));
    });

// ---- Rows: any state, ERR_PREFLIGHTCHECK_REBOOT, within and past the fixed limit 2

class PreflightRebootWithinTwo
    : public StateMachine,
      public ::testing::WithParamInterface<std::tuple<std::int32_t, std::uint32_t>> {};

TEST_P(PreflightRebootWithinTwo, GoesToReadyInProgressAndAsksForTheRestart)
{
    const auto& [retry, state] = GetParam();
    // The limit is 2 whatever the setting says.
    maxRetry = 0;
    job(Root::New, L"Job1", state, L"OK", retry);
    EXPECT_TRUE(Util_UpdateDone(ERR_PREFLIGHTCHECK_REBOOT, false));
    EXPECT_EQ(STATE_READY, g_updateRecord.nState);
    EXPECT_EQ(L"PREFLIGHTCHECK_INPROGRESS", result());
    EXPECT_EQ(retry + 1, g_updateRecord.nRetry);
    EXPECT_TRUE(g_updateRecord.rebootRequired);
    EXPECT_TRUE(needReboot());
    EXPECT_EQ(L"READY", stored(Root::New, L"Job1", L"STATE"));
    EXPECT_EQ(L"PREFLIGHTCHECK_INPROGRESS", stored(Root::New, L"Job1", L"RESULT"));
    EXPECT_EQ(std::to_wstring(retry + 1), stored(Root::New, L"Job1", L"RETRY"));
    EXPECT_EQ(std::vector<std::wstring>{L"UtilTryAgain: updating retry: " + std::to_wstring(retry + 1) +
                                        L", max attempt allowed: 2"},
              retryLines());
    EXPECT_EQ(std::vector<std::wstring>{firstLine(L"ERR_PREFLIGHTCHECK_REBOOT", false)}, doneLines());
    EXPECT_TRUE(g_updateRecord.sErrorCode.empty());
}

INSTANTIATE_TEST_SUITE_P(Tries, PreflightRebootWithinTwo,
                         ::testing::Combine(::testing::Values(0, 1), ::testing::Values(0u, 1u, 2u, 5u, 6u)),
                         [](const auto& info) {
                             return "Retry" + std::to_string(std::get<0>(info.param)) + "From" +
                                    stateName(std::get<1>(info.param));
                         });

class PreflightRebootPastTwo
    : public StateMachine,
      public ::testing::WithParamInterface<std::tuple<std::int32_t, std::uint32_t>> {};

TEST_P(PreflightRebootPastTwo, FailsWithTheRebootNameAndStartsTheCountAfresh)
{
    const auto& [retry, state] = GetParam();
    maxRetry = 10;
    job(Root::New, L"Job1", state, L"OK", retry);
    EXPECT_TRUE(Util_UpdateDone(ERR_PREFLIGHTCHECK_REBOOT, false));
    EXPECT_EQ(STATE_DONE, g_updateRecord.nState);
    EXPECT_EQ(L"PREFLIGHTCHECK_FAILURE", result());
    EXPECT_STREQ(L"PREFLIGHT_ERR_REBOOT_PENDING", g_updateRecord.sErrorCode.c_str());
    EXPECT_EQ(0, g_updateRecord.nRetry);
    EXPECT_FALSE(g_updateRecord.rebootRequired);
    EXPECT_FALSE(needReboot());
    EXPECT_EQ(L"DONE", stored(Root::New, L"Job1", L"STATE"));
    EXPECT_EQ(L"PREFLIGHT_ERR_REBOOT_PENDING", stored(Root::New, L"Job1", L"ERRORCODE"));
    EXPECT_EQ(L"0", stored(Root::New, L"Job1", L"RETRY"));
    std::wstring n = std::to_wstring(retry + 1);
    EXPECT_EQ((std::vector<std::wstring>{L"UtilTryAgain: exceeded retry attempts: " + n + L", max attempt allowed: 2",
                                         L"UtilTryAgain: updating retry: " + n + L", max attempt allowed: 2"}),
              retryLines());
}

INSTANTIATE_TEST_SUITE_P(Tries, PreflightRebootPastTwo,
                         ::testing::Combine(::testing::Values(2, 7), ::testing::Values(0u, 1u, 2u, 5u, 6u)),
                         [](const auto& info) {
                             return "Retry" + std::to_string(std::get<0>(info.param)) + "From" +
                                    stateName(std::get<1>(info.param));
                         });

TEST_F(StateMachine, PreflightRebootAThirdTimeFailsAndTheCountIsBackAtZero)
{
    job(Root::New, L"Job1", STATE_READY);
    for (int run = 1; run <= 2; ++run) {
        g_updateRecord.rebootRequired = false;
        EXPECT_TRUE(Util_UpdateDone(ERR_PREFLIGHTCHECK_REBOOT, false));
        EXPECT_EQ(run, g_updateRecord.nRetry);
        EXPECT_TRUE(g_updateRecord.rebootRequired);
    }
    g_updateRecord.rebootRequired = false;
    EXPECT_TRUE(Util_UpdateDone(ERR_PREFLIGHTCHECK_REBOOT, false));
    EXPECT_EQ(0, g_updateRecord.nRetry);
    EXPECT_FALSE(g_updateRecord.rebootRequired);
    EXPECT_EQ(L"PREFLIGHTCHECK_FAILURE", result());
    EXPECT_EQ(L"0", stored(Root::New, L"Job1", L"RETRY"));
}

// ---- Row: UPDATING, ERR_NOAGENT -> DONE, "OK"

TEST_F(StateMachine, UpdatingWithNoAgentLeftEndsDoneOkAndDeletesThePayload)
{
    job(Root::New, L"Job1", STATE_UPDATING, L"", 1);
    payload();
    EXPECT_TRUE(Util_UpdateDone(ERR_NOAGENT, false));
    EXPECT_EQ(STATE_DONE, g_updateRecord.nState);
    EXPECT_EQ(L"OK", result());
    EXPECT_EQ(0, g_updateRecord.nRetry);
    EXPECT_FALSE(p.files.exists(kPayload));
    EXPECT_FALSE(g_updateRecord.rebootRequired);
    EXPECT_EQ(L"DONE", stored(Root::New, L"Job1", L"STATE"));
    EXPECT_EQ(L"OK", stored(Root::New, L"Job1", L"RESULT"));
    EXPECT_EQ(L"0", stored(Root::New, L"Job1", L"RETRY"));
    EXPECT_EQ((std::vector<std::wstring>{firstLine(L"ERR_NOAGENT", false),
                                         L"Util_UpdateDone: agent update result: ERR_NOAGENT"}),
              doneLines());
    EXPECT_TRUE(retryLines().empty());
}

// ---- Row: UPDATING, -1 or -5 -> UPDATING, "FAILURE"

class UpdatingFailure : public StateMachine,
                        public ::testing::WithParamInterface<std::pair<RunResult, const wchar_t*>> {};

TEST_P(UpdatingFailure, StaysUpdatingWithFailureAndDeletesThePayload)
{
    job(Root::New, L"Job1", STATE_UPDATING, L"", 1);
    payload();
    EXPECT_TRUE(Util_UpdateDone(GetParam().first, false));
    EXPECT_EQ(STATE_UPDATING, g_updateRecord.nState);
    EXPECT_EQ(L"FAILURE", result());
    EXPECT_EQ(1, g_updateRecord.nRetry);
    EXPECT_FALSE(p.files.exists(kPayload));
    EXPECT_FALSE(g_updateRecord.rebootRequired);
    EXPECT_EQ(L"UPDATING", stored(Root::New, L"Job1", L"STATE"));
    EXPECT_EQ(L"FAILURE", stored(Root::New, L"Job1", L"RESULT"));
    EXPECT_EQ((std::vector<std::wstring>{firstLine(GetParam().second, false),
                                         std::wstring(L"Util_UpdateDone: agent update result: ") + GetParam().second}),
              doneLines());
}

INSTANTIATE_TEST_SUITE_P(Codes, UpdatingFailure,
                         ::testing::Values(std::make_pair(ERR_FAILURE, L"ERR_FAILURE"),
                                           std::make_pair(ERR_LAUNCH, L"ERR_LAUNCH")));

TEST_F(StateMachine, FailedCleanUpIsLoggedAndTheResultStands)
{
    job(Root::New, L"Job1", STATE_UPDATING);
    g_updateRecord.sFileName = L"C:\\Windows\\Temp\\updatetool-data\\gone.msi";
    EXPECT_TRUE(Util_UpdateDone(ERR_FAILURE, false));
    EXPECT_EQ(L"FAILURE", result());
    std::vector<std::wstring> lines = doneLines();
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ(L"Util_UpdateDone: cleanup failed", lines[2]);
}

// ---- Row: UPDATING, ERR_INCOMPATIBLE -> UPDATING, "INVALID"

TEST_F(StateMachine, UpdatingWithAnIncompatibleAgentIsInvalidAndKeepsThePayload)
{
    job(Root::New, L"Job1", STATE_UPDATING, L"", 1);
    payload();
    EXPECT_TRUE(Util_UpdateDone(ERR_INCOMPATIBLE, false));
    EXPECT_EQ(STATE_UPDATING, g_updateRecord.nState);
    EXPECT_EQ(L"INVALID", result());
    EXPECT_EQ(1, g_updateRecord.nRetry);
    EXPECT_TRUE(p.files.exists(kPayload));
    EXPECT_EQ(L"INVALID", stored(Root::New, L"Job1", L"RESULT"));
    EXPECT_EQ((std::vector<std::wstring>{firstLine(L"ERR_INCOMPATIBLE", false),
                                         L"Util_UpdateDone: agent update result: ERR_INCOMPATIBLE"}),
              doneLines());
}

// ---- Rows: UPDATING, any other code, within and past maxRetry

class UpdatingOtherCode : public StateMachine,
                          public ::testing::WithParamInterface<std::pair<RunResult, const wchar_t*>> {};

TEST_P(UpdatingOtherCode, WithinTheLimitGoesToWaitInProgressAndForcesARestart)
{
    job(Root::New, L"Job1", STATE_UPDATING, L"", 1);
    payload();
    EXPECT_TRUE(Util_UpdateDone(GetParam().first, false));
    EXPECT_EQ(STATE_WAIT, g_updateRecord.nState);
    EXPECT_EQ(L"PROGRESS", result());
    EXPECT_EQ(2, g_updateRecord.nRetry);
    EXPECT_TRUE(g_updateRecord.rebootRequired);
    EXPECT_TRUE(p.files.exists(kPayload));
    EXPECT_TRUE(needReboot());
    EXPECT_EQ(L"WAIT", stored(Root::New, L"Job1", L"STATE"));
    EXPECT_EQ(L"PROGRESS", stored(Root::New, L"Job1", L"RESULT"));
    EXPECT_EQ(L"2", stored(Root::New, L"Job1", L"RETRY"));
    EXPECT_EQ((std::vector<std::wstring>{firstLine(GetParam().second, false),
                                         std::wstring(L"Util_UpdateDone: agent update result: ") + GetParam().second,
                                         L"Util_UpdateDone: FORCE REBOOT"}),
              doneLines());
    EXPECT_EQ(std::vector<std::wstring>{L"UtilTryAgain: updating retry: 2, max attempt allowed: 2"}, retryLines());
    EXPECT_TRUE(p.clock.sleeps.empty());
}

TEST_P(UpdatingOtherCode, PastTheLimitFailsWithoutRestartOrCleanUp)
{
    job(Root::New, L"Job1", STATE_UPDATING, L"", 2);
    payload();
    EXPECT_TRUE(Util_UpdateDone(GetParam().first, false));
    EXPECT_EQ(STATE_UPDATING, g_updateRecord.nState);
    EXPECT_EQ(L"FAILURE", result());
    EXPECT_EQ(3, g_updateRecord.nRetry);
    EXPECT_FALSE(g_updateRecord.rebootRequired);
    EXPECT_FALSE(needReboot());
    EXPECT_TRUE(p.files.exists(kPayload));
    EXPECT_EQ(L"UPDATING", stored(Root::New, L"Job1", L"STATE"));
    EXPECT_EQ(L"FAILURE", stored(Root::New, L"Job1", L"RESULT"));
    EXPECT_EQ(L"3", stored(Root::New, L"Job1", L"RETRY"));
    EXPECT_EQ((std::vector<std::wstring>{firstLine(GetParam().second, false),
                                         std::wstring(L"Util_UpdateDone: agent update result: ") + GetParam().second}),
              doneLines());
    EXPECT_EQ((std::vector<std::wstring>{L"UtilTryAgain: exceeded retry attempts: 3, max attempt allowed: 2",
                                         L"UtilTryAgain: updating retry: 3, max attempt allowed: 2"}),
              retryLines());
}

// -8 has no name and goes the way of ERR_REBOOT.
INSTANTIATE_TEST_SUITE_P(Codes, UpdatingOtherCode,
                         ::testing::Values(std::make_pair(ERR_REBOOT, L"ERR_REBOOT"),
                                           std::make_pair(RunResult{-8}, L"Update ERR_-8"),
                                           std::make_pair(ERR_SUCCESS, L"ERR_SUCCESS"),
                                           std::make_pair(RunResult{3010}, L"Update ERR_3010"),
                                           std::make_pair(RunResult{-15}, L"Update ERR_-15")));

TEST_F(StateMachine, RebootResultWithMaxRetryZeroFailsAndStaysUpdating)
{
    maxRetry = 0;
    job(Root::New, L"Job1", STATE_UPDATING);
    EXPECT_TRUE(Util_UpdateDone(ERR_REBOOT, false));
    EXPECT_EQ(STATE_UPDATING, g_updateRecord.nState);
    EXPECT_EQ(L"FAILURE", result());
    EXPECT_EQ(1, g_updateRecord.nRetry);
    EXPECT_FALSE(g_updateRecord.rebootRequired);
    EXPECT_FALSE(p.logHas(L"Util_UpdateDone: FORCE REBOOT"));
}

// ---- Row: DOWNLOAD, "OK" -> WAIT, "OK"

class DownloadOk : public StateMachine, public ::testing::WithParamInterface<RunResult> {};

TEST_P(DownloadOk, GoesToWaitWithoutRetryOrWait)
{
    job(Root::New, L"Job1", STATE_DOWNLOAD, L"OK", 1);
    EXPECT_TRUE(Util_UpdateDone(GetParam(), false));
    EXPECT_EQ(STATE_WAIT, g_updateRecord.nState);
    EXPECT_EQ(L"OK", result());
    EXPECT_EQ(1, g_updateRecord.nRetry);
    EXPECT_FALSE(g_updateRecord.rebootRequired);
    EXPECT_TRUE(p.clock.sleeps.empty());
    EXPECT_TRUE(retryLines().empty());
    EXPECT_EQ(1u, doneLines().size());
    EXPECT_EQ(L"WAIT", stored(Root::New, L"Job1", L"STATE"));
    EXPECT_EQ(L"OK", stored(Root::New, L"Job1", L"RESULT"));
    EXPECT_EQ(L"1", stored(Root::New, L"Job1", L"RETRY"));
}

// The run result isn't looked at in DOWNLOAD.
INSTANTIATE_TEST_SUITE_P(Results, DownloadOk,
                         ::testing::Values(ERR_FAILURE, ERR_NOAGENT, ERR_INCOMPATIBLE, ERR_REBOOT, ERR_SUCCESS));

// ---- Row: DOWNLOAD, not "OK", within maxRetry -> READY, "PROGRESS" after a wait

class DownloadRetry : public StateMachine, public ::testing::WithParamInterface<const wchar_t*> {};

TEST_P(DownloadRetry, WaitsThenGoesToReadyInProgress)
{
    job(Root::New, L"Job1", STATE_DOWNLOAD, GetParam(), 0);
    EXPECT_TRUE(Util_UpdateDone(ERR_FAILURE, false));
    EXPECT_EQ(STATE_READY, g_updateRecord.nState);
    EXPECT_EQ(L"PROGRESS", result());
    EXPECT_EQ(1, g_updateRecord.nRetry);
    EXPECT_FALSE(g_updateRecord.rebootRequired);
    EXPECT_EQ(std::vector<DWORD>{300000}, p.clock.sleeps);
    EXPECT_EQ((std::vector<std::wstring>{firstLine(L"ERR_FAILURE", false), L"Util_UpdateDone: wait for 5 mins",
                                         L"Util_UpdateDone: done waiting"}),
              doneLines());
    EXPECT_EQ(std::vector<std::wstring>{L"UtilTryAgain: updating retry: 1, max attempt allowed: 2"}, retryLines());
    EXPECT_EQ(L"READY", stored(Root::New, L"Job1", L"STATE"));
    EXPECT_EQ(L"PROGRESS", stored(Root::New, L"Job1", L"RESULT"));
    EXPECT_EQ(L"1", stored(Root::New, L"Job1", L"RETRY"));
}

// "ok" in lower case is not "OK": a failed fetch like any other text.
INSTANTIATE_TEST_SUITE_P(Results, DownloadRetry,
                         ::testing::Values(L"FAILURE", L"INVALID", L"ok", L"", L"PROGRESS", L"OK ", L"OKAY"));

TEST_F(StateMachine, DownloadRetryWaitsBeforeTheSave)
{
    struct ProbeClock : fakes::FakeClock {
        fakes::FakeKeyStore* keys = nullptr;
        std::optional<std::wstring> stateDuringWait;
        void Sleep(DWORD ms) override
        {
            stateDuringWait = keys->stringValue(HKEY_LOCAL_MACHINE, jobKey(Root::New, L"Job1"), L"STATE");
            FakeClock::Sleep(ms);
        }
    } clock;
    clock.keys = &p.keys;
    platform::Services services = platform::services();
    services.clock = &clock;
    fakes::ScopedServices scope{services};

    job(Root::New, L"Job1", STATE_DOWNLOAD, L"FAILURE");
    EXPECT_TRUE(Util_UpdateDone(ERR_FAILURE, false));
    EXPECT_EQ(L"OLD", clock.stateDuringWait);
    EXPECT_EQ(L"READY", stored(Root::New, L"Job1", L"STATE"));
}

TEST_F(StateMachine, RetryWaitBelowAMinuteLogsZeroMinutesAndWaitsTheFullValue)
{
    retryWaitMs = 59999;
    job(Root::New, L"Job1", STATE_DOWNLOAD, L"FAILURE");
    EXPECT_TRUE(Util_UpdateDone(ERR_FAILURE, false));
    EXPECT_TRUE(p.logHas(L"Util_UpdateDone: wait for 0 mins"));
    EXPECT_EQ(std::vector<DWORD>{59999}, p.clock.sleeps);
}

// ---- Row: DOWNLOAD, "FAILURE", past maxRetry -> DONE, "FAILURE"

TEST_F(StateMachine, DownloadFailurePastTheLimitEndsDoneWithoutWaiting)
{
    job(Root::New, L"Job1", STATE_DOWNLOAD, L"FAILURE", 2);
    EXPECT_TRUE(Util_UpdateDone(ERR_FAILURE, false));
    EXPECT_EQ(STATE_DONE, g_updateRecord.nState);
    EXPECT_EQ(L"FAILURE", result());
    EXPECT_EQ(3, g_updateRecord.nRetry);
    EXPECT_TRUE(p.clock.sleeps.empty());
    EXPECT_EQ((std::vector<std::wstring>{firstLine(L"ERR_FAILURE", false),
                                         L"Util_UpdateDone: Download/Copy failure crossed download/Copy retry limit"}),
              doneLines());
    EXPECT_EQ((std::vector<std::wstring>{L"UtilTryAgain: exceeded retry attempts: 3, max attempt allowed: 2",
                                         L"UtilTryAgain: updating retry: 3, max attempt allowed: 2"}),
              retryLines());
    EXPECT_EQ(L"DONE", stored(Root::New, L"Job1", L"STATE"));
    EXPECT_EQ(L"FAILURE", stored(Root::New, L"Job1", L"RESULT"));
    EXPECT_EQ(L"3", stored(Root::New, L"Job1", L"RETRY"));
}

TEST_F(StateMachine, FetchFailingEveryTimeWaitsTwiceThenEndsDone)
{
    job(Root::New, L"Job1", STATE_DOWNLOAD);
    for (int run = 1; run <= 3; ++run) {
        // The management side starts the fetch again; the fetch fails again.
        g_updateRecord.nState = STATE_DOWNLOAD;
        g_updateRecord.sResult = L"FAILURE";
        EXPECT_TRUE(Util_UpdateDone(ERR_FAILURE, false));
        EXPECT_EQ(run, g_updateRecord.nRetry);
        EXPECT_EQ(run < 3 ? STATE_READY : STATE_DONE, g_updateRecord.nState) << run;
        EXPECT_EQ(run < 3 ? L"PROGRESS" : L"FAILURE", result()) << run;
    }
    EXPECT_EQ((std::vector<DWORD>{300000, 300000}), p.clock.sleeps);
}

// ---- Row: DOWNLOAD, "INVALID", past maxRetry -> DOWNLOAD, "INVALID"

class DownloadOtherPastLimit : public StateMachine, public ::testing::WithParamInterface<const wchar_t*> {};

TEST_P(DownloadOtherPastLimit, StaysInDownloadWithItsResult)
{
    job(Root::New, L"Job1", STATE_DOWNLOAD, GetParam(), 2);
    EXPECT_TRUE(Util_UpdateDone(ERR_FAILURE, false));
    EXPECT_EQ(STATE_DOWNLOAD, g_updateRecord.nState);
    EXPECT_EQ(GetParam(), result());
    EXPECT_EQ(3, g_updateRecord.nRetry);
    EXPECT_TRUE(p.clock.sleeps.empty());
    EXPECT_EQ(std::vector<std::wstring>{firstLine(L"ERR_FAILURE", false)}, doneLines());
    EXPECT_EQ((std::vector<std::wstring>{L"UtilTryAgain: exceeded retry attempts: 3, max attempt allowed: 2",
                                         L"UtilTryAgain: updating retry: 3, max attempt allowed: 2"}),
              retryLines());
    EXPECT_EQ(L"DOWNLOAD", stored(Root::New, L"Job1", L"STATE"));
    EXPECT_EQ(std::wstring(GetParam()), stored(Root::New, L"Job1", L"RESULT"));
    EXPECT_EQ(L"3", stored(Root::New, L"Job1", L"RETRY"));
}

// "failure" in lower case is not "FAILURE" either.
INSTANTIATE_TEST_SUITE_P(Results, DownloadOtherPastLimit, ::testing::Values(L"INVALID", L"failure", L"ok"));

TEST_F(StateMachine, InvalidFetchIsRetriedUpToTheLimitThenStaysInDownload)
{
    job(Root::New, L"Job1", STATE_DOWNLOAD);
    for (int run = 1; run <= 3; ++run) {
        g_updateRecord.nState = STATE_DOWNLOAD;
        g_updateRecord.sResult = L"INVALID";
        EXPECT_TRUE(Util_UpdateDone(ERR_FAILURE, false));
        EXPECT_EQ(run < 3 ? STATE_READY : STATE_DOWNLOAD, g_updateRecord.nState) << run;
        EXPECT_EQ(run < 3 ? L"PROGRESS" : L"INVALID", result()) << run;
    }
    EXPECT_EQ(2u, p.clock.sleeps.size());
}

// ---- Row: READY, WAIT, NOLOGON, DONE, 0 -> unchanged, values rewritten

class IdleState : public StateMachine,
                  public ::testing::WithParamInterface<std::tuple<std::uint32_t, RunResult>> {};

TEST_P(IdleState, ChangesNothingAndRewritesTheValues)
{
    const auto& [state, code] = GetParam();
    job(Root::New, L"Job1", state, L"SOMETHING", 1);
    g_updateRecord.sFileName = L"C:\\x\\agent.msi";
    EXPECT_TRUE(Util_UpdateDone(code, false));
    EXPECT_EQ(state, g_updateRecord.nState);
    EXPECT_EQ(L"SOMETHING", result());
    EXPECT_EQ(1, g_updateRecord.nRetry);
    EXPECT_FALSE(g_updateRecord.rebootRequired);
    EXPECT_EQ(1u, doneLines().size());
    EXPECT_TRUE(retryLines().empty());
    EXPECT_TRUE(p.clock.sleeps.empty());
    const wchar_t* names[] = {L"", L"READY", L"DOWNLOAD", L"WAIT", L"NOLOGON", L"UPDATING", L"DONE"};
    EXPECT_EQ(std::wstring(names[state]), stored(Root::New, L"Job1", L"STATE"));
    EXPECT_EQ(L"SOMETHING", stored(Root::New, L"Job1", L"RESULT"));
    EXPECT_EQ(L"C:\\x\\agent.msi", stored(Root::New, L"Job1", L"FILENAME"));
    EXPECT_EQ(L"1", stored(Root::New, L"Job1", L"RETRY"));
}

INSTANTIATE_TEST_SUITE_P(States, IdleState,
                         ::testing::Combine(::testing::Values(0u, 1u, 3u, 4u, 6u),
                                            ::testing::Values(ERR_FAILURE, ERR_NOAGENT, ERR_INCOMPATIBLE, ERR_REBOOT)),
                         [](const auto& info) {
                             return std::string(stateName(std::get<0>(info.param))) + "Code" +
                                    std::to_string(-std::get<1>(info.param));
                         });

// ---- UtilManageUpdateState

TEST_F(StateMachine, LogShowsStateAndResultBeforeAndAfterTheRules)
{
    job(Root::New, L"Job1", STATE_DOWNLOAD, L"OK");
    EXPECT_TRUE(Util_UpdateDone(ERR_FAILURE, false));
    EXPECT_EQ((std::vector<std::wstring>{L"UtilManageUpdateState: Update key: Job1 current state: DOWNLOAD result:OK",
                                         L"UtilManageUpdateState: Update key: Job1 new state: WAIT result: OK"}),
              linesOf({L"UtilManageUpdateState"}));
}

TEST_F(StateMachine, ManageMovesDownloadInProgressToWait)
{
    job(Root::New, L"Job1", STATE_DOWNLOAD, L"PROGRESS", 1);
    EXPECT_TRUE(UtilManageUpdateState());
    EXPECT_EQ(STATE_WAIT, g_updateRecord.nState);
    EXPECT_EQ(1, g_updateRecord.nRetry);
}

TEST_F(StateMachine, ManageMovesUpdatingOkToDoneWithRetryZero)
{
    job(Root::New, L"Job1", STATE_UPDATING, L"OK", 2);
    EXPECT_TRUE(UtilManageUpdateState());
    EXPECT_EQ(STATE_DONE, g_updateRecord.nState);
    EXPECT_EQ(0, g_updateRecord.nRetry);
    EXPECT_EQ(L"0", stored(Root::New, L"Job1", L"RETRY"));
}

TEST_F(StateMachine, ManageComparesResultsExactly)
{
    job(Root::New, L"Job1", STATE_UPDATING, L"ok", 2);
    EXPECT_TRUE(UtilManageUpdateState());
    EXPECT_EQ(STATE_UPDATING, g_updateRecord.nState);
    EXPECT_EQ(2, g_updateRecord.nRetry);
    g_updateRecord.sResult = L"PROGRESSING";
    EXPECT_TRUE(UtilManageUpdateState());
    EXPECT_EQ(STATE_UPDATING, g_updateRecord.nState);
    g_updateRecord.nState = STATE_DOWNLOAD;
    g_updateRecord.sResult = L"Progress";
    EXPECT_TRUE(UtilManageUpdateState());
    EXPECT_EQ(STATE_DOWNLOAD, g_updateRecord.nState);
}

TEST_F(StateMachine, SaveFailingUnderBothRootsIsReportedAsNotReady)
{
    job(Root::Legacy, L"Job1", STATE_DOWNLOAD, L"OK");
    p.keys.failOpen(HKEY_LOCAL_MACHINE, jobKey(Root::New, L"Job1"), ERROR_ACCESS_DENIED);
    p.keys.failOpen(HKEY_LOCAL_MACHINE, jobKey(Root::Legacy, L"Job1"), ERROR_ACCESS_DENIED);
    EXPECT_FALSE(Util_UpdateDone(ERR_FAILURE, false));
    std::vector<std::wstring> lines = linesOf({L"UtilManageUpdateState", L"Util_UpdateDone"});
    ASSERT_EQ(4u, lines.size());
    EXPECT_EQ(L"UtilManageUpdateState: registry update failed", lines[2]);
    EXPECT_EQ(L"Util_UpdateDone: not ready to run update", lines[3]);
}

TEST_F(StateMachine, SaveFailingUnderTheNewRootAloneStillCountsAsSaved)
{
    job(Root::New, L"Job1", STATE_DOWNLOAD, L"OK");
    p.keys.failOpen(HKEY_LOCAL_MACHINE, jobKey(Root::New, L"Job1"), ERROR_ACCESS_DENIED);
    EXPECT_TRUE(Util_UpdateDone(ERR_FAILURE, false));
    EXPECT_FALSE(p.logHas(L"UtilManageUpdateState: registry update failed"));
    EXPECT_TRUE(p.logHas(L"UtilManageUpdateState: Update key: Job1 new state: WAIT result: OK"));
    EXPECT_TRUE(p.logHas(L"UtilUpdateStateRegistry: Update key: Job1 failed to update Registry. state: WAIT"));
}

// ---- Through the whole run

TEST_F(StateMachine, KillSwitchRunNeverReachesTheStateMachine)
{
    job(Root::New, L"Job1", STATE_DOWNLOAD, L"FAILURE");
    p.keys.putString(HKEY_LOCAL_MACHINE, kNewUpdate, L"Enabled", L"0");
    EXPECT_EQ(ERR_KILLSWITCH, RunUpdateTool());
    EXPECT_TRUE(doneLines().empty());
    EXPECT_EQ(L"OLD", stored(Root::New, L"Job1", L"STATE"));
    EXPECT_EQ(0, g_updateRecord.nRetry);
}

TEST_F(StateMachine, DuplicateRunNeverReachesTheStateMachine)
{
    job(Root::New, L"Job1", STATE_DOWNLOAD, L"FAILURE");
    p.processes.mutexes.insert(L"Global\\3D7E0C14-6AB2-4F95-B0E1-92C5F7A3D168");
    EXPECT_EQ(ERR_DUPLICATE, RunUpdateTool());
    EXPECT_TRUE(doneLines().empty());
    EXPECT_EQ(L"OLD", stored(Root::New, L"Job1", L"STATE"));
}

TEST(PreflightErrorName, NamesTheFourPreflightFailures)
{
    EXPECT_STREQ(L"PREFLIGHT_ERR_INVALID_UNC_PATH", GetPreflightErrorName(-14).c_str());
    EXPECT_STREQ(L"PREFLIGHT_ERR_WIN_UPDATE_INPROGRESS", GetPreflightErrorName(-13).c_str());
    EXPECT_STREQ(L"PREFLIGHT_ERR_INSUFFICIENT_DISKSPACE", GetPreflightErrorName(-12).c_str());
    EXPECT_STREQ(L"PREFLIGHT_ERR_REBOOT_PENDING", GetPreflightErrorName(-11).c_str());
}

TEST(PreflightErrorName, AnyOtherCodeIsEmpty)
{
    for (RunResult code : {-10, -9, -15, -8, -4, -1, 0, 1, INT_MIN, INT_MAX})
        EXPECT_TRUE(GetPreflightErrorName(code).empty()) << code;
}
