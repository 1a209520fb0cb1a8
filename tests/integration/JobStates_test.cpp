// One run per state of a job, end to end: the state and result written back,
// the retry count, the wait between fetch attempts, the platform check and
// the clean-up of the payload under UPDATING.
#include "JobFixture.h"

namespace it {
namespace {

// A share the lab doesn't have: every fetch fails to connect (67).
const std::wstring kShare = L"\\\\fileserver\\deploy\\agent-2.5.0.7.msi";
const char* const kNoShare = "UNC_BAD_NET_NAME";
const char* const kNoShareText = "The network name could not be found.";
// No kind of agent has this name: an UPDATING run finds nothing to install
// (-4) and no installer is started.
const wchar_t* const kNoAgent = L"NONE";

class JobStates : public JobTest {
protected:
    const std::wstring key_ = JobKey(kNewRoot, L"job");

    void WriteStateJob(const std::wstring& state, const std::wstring& result, const std::wstring& retry,
                       const std::wstring& fileName = L"", const std::wstring& arch = L"64-BitAgent")
    {
        std::vector<std::pair<std::wstring, std::wstring>> values = {
            {L"AGENT", kNoAgent}, {L"VERSION", L"2.5.0.7"}, {L"UNC_PATH", kShare}, {L"STATE", state},
            {L"RESULT", result},  {L"ERRORCODE", L"E_OLD"}, {L"ERRORDESC", L"an old failure"}};
        if (!retry.empty())
            values.emplace_back(L"RETRY", retry);
        if (!fileName.empty())
            values.emplace_back(L"FILENAME", fileName);
        if (!arch.empty())
            values.emplace_back(L"ARCH", arch);
        WriteJob(key_, values);
    }

};

// --- DOWNLOAD ----------------------------------------------------------------

// A successful copy (WAIT/OK) and the copy's own failures are the share
// tests' subject; here the fetch always fails to connect, whatever "RESULT"
// the job held, and the retry rules take over.

TEST_F(JobStates, FailedFetchWithRetriesLeftWaitsAndGoesBackToReadyWithProgress)
{
    // The result the job held plays no part: the fetch sets its own.
    for (const wchar_t* result : {L"FAILURE", L"INVALID", L"ok", L"", L"OK"}) {
        SCOPED_TRACE(Narrow(result));
        NextCase();
        WriteStateJob(L"DOWNLOAD", result, L"1");
        JobRun job = RunExpecting(-1);
        EXPECT_TRUE(HasWrittenValues(key_, {"READY", "PROGRESS", "", kNoShare, kNoShareText, "2"}));
        EXPECT_TRUE(HasLinesInOrder(Messages(job), {
            "UtilTryAgain: updating retry: 2, max attempt allowed: 2",
            "Util_UpdateDone: wait for 0 mins",
            "Util_UpdateDone: done waiting",
            "UtilManageUpdateState: Update key: job current state: READY result:PROGRESS",
            "UtilManageUpdateState: Update key: job new state: READY result: PROGRESS",
        }));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "UtilTryAgain: exceeded retry attempts"));
        ExpectOneEntry(job, {"job", "NONE", "", "2.5.0.7", "READY", 2, "PROGRESS", kNoShare, kNoShareText});
    }
}

// How long the wait lasts is for the state machine's unit tests to see, with
// a clock of their own; here the run announces it and ends it.
TEST_F(JobStates, DownloadRetryBelowOneMinuteIsAnnouncedAsZeroMinutes)
{
    SetRetrySettings(L"1500");
    WriteStateJob(L"DOWNLOAD", L"FAILURE", L"");
    JobRun job = RunExpecting(-1);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {"UtilTryAgain: updating retry: 1, max attempt allowed: 2",
                                                "Util_UpdateDone: wait for 0 mins", "Util_UpdateDone: done waiting"}));
    EXPECT_TRUE(HasWrittenValues(key_, {"READY", "PROGRESS", "", kNoShare, kNoShareText, "1"}));
}

TEST_F(JobStates, DownloadFailureOverTheLimitEndsInDoneWithoutWaiting)
{
    SetRetrySettings(L"8000");
    WriteStateJob(L"DOWNLOAD", L"FAILURE", L"2");
    JobRun job = RunExpecting(-1);
    EXPECT_TRUE(HasWrittenValues(key_, {"DONE", "FAILURE", "", kNoShare, kNoShareText, "3"}));
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "UtilTryAgain: exceeded retry attempts: 3, max attempt allowed: 2",
        "UtilTryAgain: updating retry: 3, max attempt allowed: 2",
        "Util_UpdateDone: Download/Copy failure crossed download/Copy retry limit",
        "UtilManageUpdateState: Update key: job current state: DONE result:FAILURE",
        "UtilManageUpdateState: Update key: job new state: DONE result: FAILURE",
    }));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Util_UpdateDone: wait for"));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Util_UpdateDone: done waiting"));
    ExpectOneEntry(job, {"job", "NONE", "", "2.5.0.7", "DONE", 3, "FAILURE", kNoShare, kNoShareText});
}

TEST_F(JobStates, MaxRetryOfZeroOrTextMakesTheFirstFailedFetchExceedTheLimit)
{
    for (const wchar_t* maxRetry : {L"0", L"abc"}) {
        SCOPED_TRACE(Narrow(maxRetry));
        NextCase();
        SetRetrySettings(L"8000", maxRetry);
        WriteStateJob(L"DOWNLOAD", L"", L"");
        JobRun job = RunExpecting(-1);
        EXPECT_TRUE(HasWrittenValues(key_, {"DONE", "FAILURE", "", kNoShare, kNoShareText, "1"}));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Util_UpdateDone: wait for"));
        EXPECT_TRUE(HasLinesInOrder(Messages(job), {"UtilTryAgain: exceeded retry attempts: 1, max attempt allowed: 0",
                                                    "UtilTryAgain: updating retry: 1, max attempt allowed: 0",
                                                    "Util_UpdateDone: Download/Copy failure crossed download/Copy "
                                                    "retry limit"}));
    }
}

TEST_F(JobStates, MaxRetryInHexadecimalIsHonoured)
{
    SetRetrySettings(L"200", L"0x10");
    WriteStateJob(L"DOWNLOAD", L"FAILURE", L"15");
    JobRun job = RunExpecting(-1);
    EXPECT_TRUE(ContainsMessage(Messages(job), "UtilTryAgain: updating retry: 16, max attempt allowed: 16"));
    EXPECT_TRUE(HasWrittenValues(key_, {"READY", "PROGRESS", "", kNoShare, kNoShareText, "16"}));
}

// --- UPDATING ----------------------------------------------------------------

TEST_F(JobStates, UpdatingWithTheHostsArchitectureEndsDoneOkAndDeletesThePayload)
{
    ASSERT_TRUE(IsHost64Bit()) << "the lab is a 64-bit host";
    const std::wstring payload = MakePayload(L"agent-2.5.0.7.msi");
    WriteStateJob(L"UPDATING", L"PROGRESS", L"2", payload);

    JobRun job = RunExpecting(-4);
    EXPECT_FALSE(PathExists(payload));
    EXPECT_TRUE(PathExists(Workspace()));
    // The path stays in the record; the count starts afresh.
    EXPECT_TRUE(HasWrittenValues(key_, {"DONE", "OK", Narrow(payload), "", "", "0"}));
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "Util_UpdateDone: Updating state for result 'ERR_NOAGENT', legacy workflow:'0' ",
        "Util_UpdateDone: agent update result: ERR_NOAGENT",
        "UtilManageUpdateState: Update key: job current state: UPDATING result:OK",
        "UtilManageUpdateState: Update key: job new state: DONE result: OK",
    }));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::CheckPlatform:"));
    EXPECT_TRUE(LacksLine(Messages(job), "Util_UpdateDone: cleanup failed"));
    ExpectOneEntry(job, {"job", "NONE", Narrow(payload), "2.5.0.7", "DONE", 0, "OK"});
}

TEST_F(JobStates, UpdatingWithAPayloadThatIsGoneStillEndsDoneOkWithACleanupFailure)
{
    const std::wstring payload = JoinPath(Workspace(), L"never-fetched.msi");
    WriteStateJob(L"UPDATING", L"PROGRESS", L"1", payload);
    JobRun job = RunExpecting(-4);
    EXPECT_TRUE(HasWrittenValues(key_, {"DONE", "OK", Narrow(payload), "", "", "0"}));
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {"Util_UpdateDone: agent update result: ERR_NOAGENT",
                                                "Util_UpdateDone: cleanup failed"}));
}

TEST_F(JobStates, UpdatingWithEmptyArchIsInvalidAndKeepsThePayload)
{
    const std::wstring payload = MakePayload(L"agent.msi");
    WriteStateJob(L"UPDATING", L"PROGRESS", L"1", payload, L"");
    JobRun job = RunExpecting(-6);
    EXPECT_TRUE(PathExists(payload));
    EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "INVALID", Narrow(payload), "", "", "1"}));
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "App::CheckPlatform: arch type empty",
        "Util_UpdateDone: Updating state for result 'ERR_INCOMPATIBLE', legacy workflow:'0' ",
        "Util_UpdateDone: agent update result: ERR_INCOMPATIBLE",
        "UtilManageUpdateState: Update key: job new state: UPDATING result: INVALID",
    }));
    ExpectOneEntry(job, {"job", "NONE", Narrow(payload), "2.5.0.7", "UPDATING", 1, "INVALID"});
}

TEST_F(JobStates, UpdatingWithAnArchitectureThatDoesNotFitTheHostIsInvalid)
{
    ASSERT_TRUE(IsHost64Bit()) << "the lab is a 64-bit host";
    struct Case {
        const wchar_t* arch;
        bool accepted;
    };
    const Case cases[] = {
        {L"32-BitAgent", false},
        {L"64-BitAgentX", false},
        {L" 64-BitAgent", false},
        {L"64-Bit", false},
        {L"64-bitagent", true},
        {L"Use32-BitAgentOn64", true},
        {L"use32-bitagenton64", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(Narrow(c.arch));
        NextCase();
        const std::wstring payload = MakePayload(L"agent.msi");
        WriteStateJob(L"UPDATING", L"PROGRESS", L"1", payload, c.arch);
        if (c.accepted) {
            JobRun job = RunExpecting(-4);
            EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::CheckPlatform:"));
            EXPECT_TRUE(HasWrittenValues(key_, {"DONE", "OK", Narrow(payload), "", "", "0"}));
            EXPECT_FALSE(PathExists(payload));
        } else {
            JobRun job = RunExpecting(-6);
            EXPECT_TRUE(ContainsMessage(Messages(job), "App::CheckPlatform: arch type mismatch: " + Narrow(c.arch) +
                                                           " on 64-bit host"));
            EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "INVALID", Narrow(payload), "", "", "1"}));
            EXPECT_TRUE(PathExists(payload));
        }
    }
}

// --- States that do no work --------------------------------------------------

TEST_F(JobStates, ReadyWaitNologonAndDoneAreWrittenBackUnchanged)
{
    for (const wchar_t* state : {L"READY", L"WAIT", L"NOLOGON", L"DONE"}) {
        SCOPED_TRACE(Narrow(state));
        NextCase();
        const std::wstring payload = MakePayload(L"agent.msi");
        WriteStateJob(state, L"FAILURE", L"7", payload);
        JobRun job = RunExpecting(-1);
        // The old failure details go: each run writes its own.
        EXPECT_TRUE(HasWrittenValues(key_, {Narrow(state), "FAILURE", Narrow(payload), "", "", "7"}));
        EXPECT_TRUE(PathExists(payload));
        EXPECT_TRUE(HasLinesInOrder(Messages(job), {
            "UtilManageUpdateState: Update key: job current state: " + Narrow(state) + " result:FAILURE",
            "UtilManageUpdateState: Update key: job new state: " + Narrow(state) + " result: FAILURE",
        }));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "UtilTryAgain:"));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Util_UpdateDone: agent update result"));
        ExpectOneEntry(job, {"job", "NONE", Narrow(payload), "2.5.0.7", Narrow(state), 7, "FAILURE"});
    }
}

TEST_F(JobStates, UnknownStateTextIsWrittenBackEmptyAndDoesNoWork)
{
    for (const wchar_t* state : {L"BOGUS", L"", L"DOWNLOADING", L"UPDATE"}) {
        SCOPED_TRACE(Narrow(state));
        NextCase();
        WriteStateJob(state, L"OK", L"3");
        JobRun job = RunExpecting(-1);
        EXPECT_TRUE(HasWrittenValues(key_, {"", "OK", "", "", "", "3"}));
        EXPECT_TRUE(HasLinesInOrder(Messages(job), {
            "UtilStateId: invalid state: " + Narrow(state),
            "stateStr: invalid state: 0",
            "UtilManageUpdateState: Update key: job new state:  result: OK",
        }));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "UtilTryAgain:"));
        ExpectOneEntry(job, {"job", "NONE", "", "2.5.0.7", "", 3, "OK"});
    }
}

TEST_F(JobStates, JobWithoutStateIsReady)
{
    WriteJob(key_, {{L"AGENT", kNoAgent}, {L"UNC_PATH", kShare}, {L"RESULT", L"OK"}});
    JobRun job = RunExpecting(-1);
    EXPECT_TRUE(HasWrittenValues(key_, {"READY", "OK", "", "", "", "0"}));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "UtilStateId:"));
}

}  // namespace
}  // namespace it
