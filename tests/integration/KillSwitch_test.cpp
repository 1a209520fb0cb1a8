// The "Enabled" switch under "Agent\Update": read through group policy under
// the new brand only; a false reading ends the run with -2 before anything else.
#include "Harness.h"

namespace it {
namespace {

class KillSwitch : public ToolTest {
protected:
    // A clean registry and a new log folder for the next case of a loop.
    void NextCase()
    {
        DeleteProductKeys();
        logsDir_ = UseFreshLogsDir();
    }
    std::optional<LogFile> Log() const { return ReadNewestLog(logsDir_); }
};

TEST_F(KillSwitch, FalseWordsUnderTheNewRootEndTheRunWithMinusTwoAndNoRunLines)
{
    for (const wchar_t* word : {L"false", L"0", L"no", L"off", L"FALSE", L"Off", L"NO"}) {
        SCOPED_TRACE(Narrow(word));
        NextCase();
        WriteString(UpdateKey(kNewRoot), L"Enabled", word);
        ToolRun run = Run();
        EXPECT_TRUE(IsKillSwitchRun(run, Log()));
    }
}

TEST_F(KillSwitch, TrueWordsAndNumbersKeepTheToolEnabled)
{
    for (const wchar_t* word : {L"1", L"true", L"TRUE", L"yes", L"Yes", L"on", L"ON", L"0x10", L"-1", L"2x"}) {
        SCOPED_TRACE(Narrow(word));
        NextCase();
        WriteString(UpdateKey(kNewRoot), L"Enabled", word);
        ToolRun run = Run();
        EXPECT_TRUE(IsCompletedRun(run, Log()));
    }
}

TEST_F(KillSwitch, AbsentValueLeavesTheToolEnabled)
{
    ToolRun run = Run();
    EXPECT_TRUE(IsCompletedRun(run, Log()));
}

TEST_F(KillSwitch, DisabledUnderTheNewRootWhateverTheLegacyRootSays)
{
    WriteString(UpdateKey(kNewRoot), L"Enabled", L"0");
    WriteString(UpdateKey(kLegacyRoot), L"Enabled", L"1");
    ToolRun run = Run();
    EXPECT_TRUE(IsKillSwitchRun(run, Log()));
}

TEST_F(KillSwitch, FalseValueUnderTheLegacyRootAloneHasNoEffect)
{
    for (const wchar_t* word : {L"0", L"false", L"no", L"off"}) {
        SCOPED_TRACE(Narrow(word));
        NextCase();
        WriteString(UpdateKey(kLegacyRoot), L"Enabled", word);
        ToolRun run = Run();
        EXPECT_TRUE(IsCompletedRun(run, Log()));
    }
}

TEST_F(KillSwitch, PolicyTreeOfTheNewBrandDisables)
{
    WriteString(UpdateKey(kNewPolicyRoot), L"Enabled", L"0");
    ToolRun run = Run();
    EXPECT_TRUE(IsKillSwitchRun(run, Log()));
}

TEST_F(KillSwitch, PolicyValueWinsOverTheOrdinaryValue)
{
    {
        SCOPED_TRACE("policy 1, ordinary 0");
        WriteString(UpdateKey(kNewPolicyRoot), L"Enabled", L"1");
        WriteString(UpdateKey(kNewRoot), L"Enabled", L"0");
        ToolRun run = Run();
        EXPECT_TRUE(IsCompletedRun(run, Log()));
    }
    {
        SCOPED_TRACE("policy 0, ordinary 1");
        NextCase();
        WriteString(UpdateKey(kNewPolicyRoot), L"Enabled", L"0");
        WriteString(UpdateKey(kNewRoot), L"Enabled", L"1");
        ToolRun run = Run();
        EXPECT_TRUE(IsKillSwitchRun(run, Log()));
    }
    {
        // A policy value that exists but is empty still wins, and reads false.
        SCOPED_TRACE("policy empty, ordinary 1");
        NextCase();
        WriteString(UpdateKey(kNewPolicyRoot), L"Enabled", L"");
        WriteString(UpdateKey(kNewRoot), L"Enabled", L"1");
        ToolRun run = Run();
        EXPECT_TRUE(IsKillSwitchRun(run, Log()));
    }
}

TEST_F(KillSwitch, LegacyPolicyTreeDisablesWhileFallbackToLegacyPolicyIsOn)
{
    WriteString(UpdateKey(kLegacyPolicyRoot), L"Enabled", L"0");
    ToolRun run = Run();
    EXPECT_TRUE(IsKillSwitchRun(run, Log()));
}

TEST_F(KillSwitch, LegacyPolicyTreeIsIgnoredWhenFallbackToLegacyPolicyIsOff)
{
    {
        SCOPED_TRACE("switch off by policy, on in the ordinary tree");
        WriteString(UpdateKey(kLegacyPolicyRoot), L"Enabled", L"0");
        WriteString(kNewPolicyRoot, L"FallbackToLegacyGPO", L"false");
        WriteString(kNewRoot, L"FallbackToLegacyGPO", L"true");
        ToolRun run = Run();
        EXPECT_TRUE(IsCompletedRun(run, Log()));
    }
    {
        SCOPED_TRACE("switch off in the ordinary tree");
        NextCase();
        WriteString(UpdateKey(kLegacyPolicyRoot), L"Enabled", L"0");
        WriteString(kNewRoot, L"FallbackToLegacyGPO", L"0");
        ToolRun run = Run();
        EXPECT_TRUE(IsCompletedRun(run, Log()));
    }
}

TEST_F(KillSwitch, NewBrandPolicyWinsOverLegacyPolicy)
{
    WriteString(UpdateKey(kNewPolicyRoot), L"Enabled", L"1");
    WriteString(UpdateKey(kLegacyPolicyRoot), L"Enabled", L"0");
    ToolRun run = Run();
    EXPECT_TRUE(IsCompletedRun(run, Log()));
}

TEST_F(KillSwitch, DisabledRunLeavesTheJobUntouched)
{
    const std::wstring job = UpdateKey(kNewRoot) + L"\\KillSwitchJob";
    WriteString(job, L"AGENT", L"OTHER");
    WriteString(job, L"STATE", L"DOWNLOAD");
    WriteString(job, L"RESULT", L"");
    WriteString(job, L"RETRY", L"0");
    WriteString(job, L"UNC_PATH", L"\\\\fileserver\\share\\agent.msi");
    WriteString(UpdateKey(kNewRoot), L"Enabled", L"off");
    const std::map<std::wstring, RegValue> before = ReadAllValues(job);
    ASSERT_EQ(before.size(), 5u);

    ToolRun run = Run();
    EXPECT_TRUE(IsKillSwitchRun(run, Log()));
    EXPECT_TRUE(ReadAllValues(job) == before) << "the job's values changed";
    EXPECT_FALSE(KeyExists(VolatileStatusKey(kNewRoot)));
}

}  // namespace
}  // namespace it
