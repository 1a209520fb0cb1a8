// The platform check on the job's "ARCH", end to end on the lab's 64-bit
// host: which texts let an UPDATING job go on to its version check, which end
// it as INVALID (-6), and the runs in which the check isn't made at all.
//
// The 32-bit host's rows ("32-BitAgent" accepted, "64-BitAgent" refused) need
// a 32-bit Windows under the 64-bit tool, which the lab can't be; the unit
// tests cover them with a fake host.
#include "ShareLab.h"
#include "StandInInstaller.h"

namespace it {
namespace {

// A share the lab doesn't have: a fetch from it fails to connect.
const wchar_t* const kShare = L"\\\\fileserver\\deploy\\agent-2.5.0.7.msi";
// No kind of agent has this name: an accepted job finds nothing to install (-4).
const wchar_t* const kNoAgent = L"NONE";

class PlatformCheck : public NoRestartJobTest {
protected:
    const std::wstring key_ = JobKey(kNewRoot, L"job");

    // A job at the install step whose payload a fetch has left; "ARCH" only
    // when given.
    void WriteUpdatingJob(const std::optional<std::wstring>& arch, const std::wstring& payload,
                          const std::wstring& agent = kNoAgent,
                          std::vector<std::pair<std::wstring, std::wstring>> extra = {})
    {
        std::vector<std::pair<std::wstring, std::wstring>> values = {
            {L"AGENT", agent},       {L"VERSION", L"2.5.0.7"}, {L"UNC_PATH", kShare},
            {L"STATE", L"UPDATING"}, {L"RESULT", L"PROGRESS"}, {L"RETRY", L"1"},
            {L"FILENAME", payload}};
        if (arch)
            values.emplace_back(L"ARCH", *arch);
        values.insert(values.end(), extra.begin(), extra.end());
        WriteJob(key_, values);
    }

    JobRun RunExpecting(int32_t exitCode)
    {
        JobRun job = JobTest::RunExpecting(exitCode);
        // The tool's own view of the host, printed before its log has a file.
        EXPECT_TRUE(ContainsMessage(job.console, "Agent::IsHostX64: host system: 64-bit")) << job.run.out;
        return job;
    }

    // Accepted: no line of the check, the version check found nothing to do,
    // the job is done and its payload gone.
    void ExpectAccepted(const JobRun& job, const std::wstring& payload)
    {
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::CheckPlatform:"));
        EXPECT_TRUE(HasLinesInOrder(Messages(job), {
            "Util_UpdateDone: Updating state for result 'ERR_NOAGENT', legacy workflow:'0' ",
            "Util_UpdateDone: agent update result: ERR_NOAGENT",
            "UtilManageUpdateState: Update key: job new state: DONE result: OK",
        }));
        EXPECT_TRUE(HasWrittenValues(key_, {"DONE", "OK", Narrow(payload), "", "", "0"}));
        EXPECT_FALSE(PathExists(payload));
        ExpectOneEntry(job, {"job", "NONE", Narrow(payload), "2.5.0.7", "DONE", 0, "OK"});
    }

    // Refused: the job stays at UPDATING as INVALID with its retry count, and
    // the payload stays for the management side to decide.
    void ExpectRefused(const JobRun& job, const std::string& line, const std::wstring& payload,
                       const std::string& type = "NONE")
    {
        EXPECT_TRUE(HasLinesInOrder(Messages(job), {
            line,
            "Util_UpdateDone: Updating state for result 'ERR_INCOMPATIBLE', legacy workflow:'0' ",
            "Util_UpdateDone: agent update result: ERR_INCOMPATIBLE",
            "UtilManageUpdateState: Update key: job current state: UPDATING result:INVALID",
            "UtilManageUpdateState: Update key: job new state: UPDATING result: INVALID",
        }));
        EXPECT_EQ(CountMessages(Messages(job), line), 1u);
        // The check comes before the version check: no agent is looked at.
        EXPECT_TRUE(LacksLine(Messages(job), "=== Check Version ==="));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "UtilTryAgain:"));
        EXPECT_TRUE(LacksLine(Messages(job), "Util_UpdateDone: cleanup failed"));
        EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "INVALID", Narrow(payload), "", "", "1"}));
        EXPECT_TRUE(PathExists(payload));
        ExpectOneEntry(job, {"job", type, Narrow(payload), "2.5.0.7", "UPDATING", 1, "INVALID"});
    }

    static std::string Mismatch(const std::wstring& arch)
    {
        return "App::CheckPlatform: arch type mismatch: " + Narrow(arch) + " on 64-bit host";
    }
};

// --- Accepted on a 64-bit host ------------------------------------------------------

TEST_F(PlatformCheck, SixtyFourBitAgentIsAcceptedInAnyCase)
{
    for (const wchar_t* arch : {L"64-BitAgent", L"64-bitagent", L"64-BITAGENT", L"64-bITaGENT"}) {
        SCOPED_TRACE(Narrow(arch));
        NextCase();
        const std::wstring payload = MakePayload(L"agent.msi");
        WriteUpdatingJob(arch, payload);
        ExpectAccepted(RunExpecting(-4), payload);
    }
}

TEST_F(PlatformCheck, Use32BitAgentOn64IsAcceptedInAnyCase)
{
    for (const wchar_t* arch : {L"Use32-BitAgentOn64", L"USE32-BITAGENTON64", L"use32-bitagenton64"}) {
        SCOPED_TRACE(Narrow(arch));
        NextCase();
        const std::wstring payload = MakePayload(L"agent.msi");
        WriteUpdatingJob(arch, payload);
        ExpectAccepted(RunExpecting(-4), payload);
    }
}

TEST_F(PlatformCheck, AcceptedJobGoesOnToInstall)
{
    // A product of no known name with the stand-in installer: accepted, it is
    // installed, and the job ends done.
    const std::wstring installer = PlaceStandIn(Workspace(), L"setup-0.exe");
    WriteUpdatingJob(L"Use32-BitAgentOn64", installer, L"OTHER");
    JobRun job = RunExpecting(-4);
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::CheckPlatform:"));
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "=== Check Version ===",
        "=== Update ===",
        "Agent::LaunchHelper: launching: " + Narrow(installer) + " /s /v /qn",
        "App::Update: agent update succeeded",
    }));
    EXPECT_EQ(StandInCommandLine(installer), Narrow(installer) + " /s /v /qn");
    EXPECT_TRUE(HasWrittenValues(key_, {"DONE", "OK", Narrow(installer), "", "", "0"}));
}

// --- Refused on a 64-bit host ---------------------------------------------------------

TEST_F(PlatformCheck, ThirtyTwoBitAgentIsRefused)
{
    for (const wchar_t* arch : {L"32-BitAgent", L"32-bitagent", L"32-BITAGENT"}) {
        SCOPED_TRACE(Narrow(arch));
        NextCase();
        const std::wstring payload = MakePayload(L"agent.msi");
        WriteUpdatingJob(arch, payload);
        ExpectRefused(RunExpecting(-6), Mismatch(arch), payload);
    }
}

TEST_F(PlatformCheck, NearMissesAndUnknownTextsAreRefused)
{
    // The match is exact but for case: no blank, no extra or missing letter.
    for (const wchar_t* arch :
         {L"64-BitAgentX", L"64-BitAgent ", L" 64-BitAgent", L"64-BitAgent\t", L"64-BitAgen", L"64-Bit Agent",
          L"64BitAgent", L"Use32-BitAgentOn64 ", L"Use32-BitAgentOn6", L"Use32-BitAgentOn64x", L"Use64-BitAgentOn32",
          L"32-BitAgentOn64", L"x64", L"AMD64", L"64", L"   "}) {
        SCOPED_TRACE("[" + Narrow(arch) + "]");
        NextCase();
        const std::wstring payload = MakePayload(L"agent.msi");
        WriteUpdatingJob(arch, payload);
        ExpectRefused(RunExpecting(-6), Mismatch(arch), payload);
    }
}

TEST_F(PlatformCheck, EmptyOrMissingArchIsRefusedAsEmpty)
{
    for (const std::optional<std::wstring>& arch : {std::optional<std::wstring>(L""), std::optional<std::wstring>()}) {
        SCOPED_TRACE(arch ? "empty" : "absent");
        NextCase();
        const std::wstring payload = MakePayload(L"agent.msi");
        WriteUpdatingJob(arch, payload);
        JobRun job = RunExpecting(-6);
        ExpectRefused(job, "App::CheckPlatform: arch type empty", payload);
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::CheckPlatform: arch type mismatch"));
    }
}

TEST_F(PlatformCheck, RefusedJobLaunchesNothing)
{
    // Were the check passed by, the stand-in would run and leave its record.
    const std::wstring installer = PlaceStandIn(Workspace(), L"setup-0.exe");
    WriteUpdatingJob(L"32-BitAgent", installer, L"OTHER");
    JobRun job = RunExpecting(-6);
    ExpectRefused(job, Mismatch(L"32-BitAgent"), installer, "OTHER");
    EXPECT_TRUE(LacksLine(Messages(job), "=== Update ==="));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Agent::LaunchHelper:"));
    EXPECT_FALSE(StandInCommandLine(installer).has_value());
}

// --- Runs that make no check --------------------------------------------------------

TEST_F(PlatformCheck, OnlyTheInstallStepChecks)
{
    // Outside UPDATING the fetch gate ends the run first, however wrong the
    // job's "ARCH" is.
    for (const wchar_t* state : {L"DOWNLOAD", L"READY", L"WAIT", L"NOLOGON", L"DONE"}) {
        SCOPED_TRACE(Narrow(state));
        NextCase();
        WriteJob(key_, {{L"AGENT", kNoAgent}, {L"VERSION", L"2.5.0.7"}, {L"UNC_PATH", kShare},
                        {L"STATE", state}, {L"RESULT", L"OK"}, {L"RETRY", L"0"}, {L"ARCH", L"32-BitAgent"}});
        JobRun job = RunExpecting(-1);
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::CheckPlatform:"));
        EXPECT_TRUE(LacksLine(Messages(job), "Util_UpdateDone: agent update result: ERR_INCOMPATIBLE"));
        std::optional<std::string> result = ReadText(key_, L"RESULT");
        ASSERT_TRUE(result.has_value());
        EXPECT_NE(*result, "INVALID");
    }
}

TEST_F(PlatformCheck, RelaunchOfTheLegacyWorkflowChecks)
{
    // The preflight half is done: the relaunch skips it and goes on to the
    // install step, where the check is made as in any other run.
    const std::wstring payload = MakePayload(L"agent.msi");
    WriteUpdatingJob(L"32-BitAgent", payload, kNoAgent, {{L"OPTIONS", L"PREFLIGHTCHECK_ENABLED=2"}});
    WriteDword(key_, L"PreflightCheckComplete", 1);
    JobRun job = RunExpecting(-6);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "wmain: legacy workflow in use and preflight check is already completed, skipping it for relaunch",
        Mismatch(L"32-BitAgent"),
        "Util_UpdateDone: Updating state for result 'ERR_INCOMPATIBLE', legacy workflow:'1' ",
        "Util_UpdateDone: agent update result: ERR_INCOMPATIBLE",
        "UtilManageUpdateState: Update key: job new state: UPDATING result: INVALID",
    }));
    EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "INVALID", Narrow(payload), "", "", "1"}));
    EXPECT_TRUE(PathExists(payload));
}

TEST_F(PlatformCheck, PreflightOnlyRunDoesNotCheck)
{
    const std::wstring payload = MakePayload(L"agent.msi");
    // RETRY 2: a pending reboot, should the lab ever have one, can't restart it.
    WriteUpdatingJob(L"32-BitAgent", payload, kNoAgent,
                     {{L"OPTIONS", L"PREFLIGHTCHECK_ENABLED=1"}, {L"RETRY", L"2"}});
    // The job's share doesn't exist in the lab, so the check ends at the share path.
    JobRun job = RunExpecting(-14);
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::CheckPlatform:"));
    EXPECT_TRUE(LacksLine(Messages(job), "=== Check Version ==="));
    EXPECT_TRUE(HasWrittenValues(key_, {"DONE", "PREFLIGHTCHECK_FAILURE", Narrow(payload),
                                        "PREFLIGHT_ERR_INVALID_UNC_PATH", "", "2"}));
    EXPECT_TRUE(PathExists(payload));
}

// --- The check comes after the fetch --------------------------------------------------

class PlatformCheckAfterFetch : public NoRestart<ShareTest> {};

TEST_F(PlatformCheckAfterFetch, WrongArchCostsAFullCopyBeforeItIsRefused)
{
    const std::wstring key = JobKey(kNewRoot, L"job");
    const std::wstring unc = PutOnShare(L"agent.msi", std::string(1000000, 'a'));
    WriteJob(key, {{L"AGENT", kNoAgent}, {L"VERSION", L"2.5.0.7"}, {L"ARCH", L"32-BitAgent"}, {L"UNC_PATH", unc},
                   {L"FILESIZE", L"1000000"}, {L"CHECKSUM", kDigestOfMillionA}, {L"STATE", L"DOWNLOAD"},
                   {L"RESULT", L""}, {L"RETRY", L"0"}});
    const std::wstring payload = JoinPath(Workspace(), L"agent.msi");

    // The fetch run copies and verifies, and never looks at "ARCH".
    JobRun fetch = RunShareJob();
    EXPECT_TRUE(IsCompletedRun(fetch.run, fetch.log));
    EXPECT_EQ(fetch.run.exitCode, -1);
    ASSERT_TRUE(fetch.log.has_value());
    EXPECT_TRUE(ContainsMessage(fetch.log->messages,
                                "Util_CopyFileFromUNC: File copy done at destination " + Narrow(payload)));
    EXPECT_TRUE(LacksLineStartingWith(fetch.log->messages, "App::CheckPlatform:"));
    EXPECT_TRUE(HasWrittenValues(key, {"WAIT", "OK", Narrow(payload), "", "", "0"}));
    EXPECT_TRUE(PathExists(payload));

    // The management side moves the job on; only now is the job refused.
    WriteString(key, L"STATE", L"UPDATING");
    logsDir_ = UseFreshLogsDir();
    JobRun install = RunShareJob();
    EXPECT_TRUE(IsCompletedRun(install.run, install.log));
    EXPECT_EQ(install.run.exitCode, -6);
    ASSERT_TRUE(install.log.has_value());
    EXPECT_TRUE(HasLinesInOrder(install.log->messages, {
        "Util_UNCDownload: Update key: job state: UPDATING",
        "App::CheckPlatform: arch type mismatch: 32-BitAgent on 64-bit host",
        "UtilManageUpdateState: Update key: job new state: UPDATING result: INVALID",
    }));
    EXPECT_TRUE(HasWrittenValues(key, {"UPDATING", "INVALID", Narrow(payload), "", "", "0"}));
    EXPECT_TRUE(PathExists(payload));
    // The install run connects to nothing: one connection, the fetch's.
    EXPECT_EQ((std::vector<std::string>{ConnectCall(shareFolder_, 0), DisconnectCall(shareFolder_, 0)}),
              ProviderCalls());
}

}  // namespace
}  // namespace it
