// One instance at a time: a second one started while the first holds the
// global mutex says so and ends with -3, touching nothing.
#include "Harness.h"

namespace it {
namespace {

constexpr DWORD kStartTimeoutMs = 30000;

class SingleInstance : public ToolTest {
protected:
    // Starts an instance that holds the mutex and sleeps in the wait for a
    // pending reboot, so the test has all the time it needs.
    void StartBlockedFirst(ToolProcess& first)
    {
        WriteString(VolatileStatusKey(kNewRoot), L"NeedReboot", L"1");
        first.Start(Options());
        ASSERT_TRUE(first.WaitForOutput(kRebootWaitLine, kStartTimeoutMs))
            << "the first instance never reached its wait; output:\n"
            << first.Output();
        ASSERT_TRUE(first.Alive());
    }

    void WriteJob(const std::wstring& job)
    {
        WriteString(job, L"AGENT", L"OTHER");
        WriteString(job, L"STATE", L"UPDATING");
        WriteString(job, L"RESULT", L"");
        WriteString(job, L"RETRY", L"1");
        WriteString(job, L"FILENAME", L"C:\\payload\\agent.msi");
        WriteString(job, L"UNC_PATH", L"\\\\fileserver\\share\\agent.msi");
        WriteString(job, L"OPTIONS", L"");
    }
};

TEST_F(SingleInstance, SecondInstanceExitsWithMinusThreeAndLeavesTheFirstAndTheJobAlone)
{
    const std::wstring job = UpdateKey(kNewRoot) + L"\\DuplicateJob";
    WriteJob(job);
    const std::map<std::wstring, RegValue> jobBefore = ReadAllValues(job);
    ASSERT_EQ(jobBefore.size(), 7u);

    ToolProcess first;
    ASSERT_NO_FATAL_FAILURE(StartBlockedFirst(first));

    // The first run has its log name already; the second gets a folder of
    // its own so that two runs in one second can't share a file.
    const std::wstring firstLogs = logsDir_;
    const std::wstring secondLogs = UseFreshLogsDir();
    ToolRun second = Run();

    EXPECT_EQ(second.exitCode, kDuplicate) << second.out;
    const std::string line = "zenthra-updatetool.exe duplicate instance, exit now";
    EXPECT_NE(second.out.find(line), std::string::npos) << second.out;
    std::optional<LogFile> log = ReadNewestLog(secondLogs);
    ASSERT_TRUE(log.has_value()) << "the second instance left no log";
    EXPECT_TRUE(log->hasBom);
    // The format carries a line feed of its own, which the log keeps.
    std::vector<std::string> expected = {kBeginLine, VersionLine(), line + "\n", kEndLine};
    EXPECT_EQ(log->messages, expected) << log->text;
    // None of the closing steps ran.
    EXPECT_EQ(second.out.find("Updatetool rc ="), std::string::npos) << second.out;

    EXPECT_TRUE(first.Alive()) << "the first instance ended";
    EXPECT_TRUE(ReadAllValues(job) == jobBefore) << "the job's values changed";

    std::optional<LogFile> firstLog = ReadNewestLog(firstLogs);
    ASSERT_TRUE(firstLog.has_value());
    EXPECT_EQ(CountMessages(firstLog->messages, line + "\n"), 0u) << firstLog->text;

    first.Terminate();
    EXPECT_FALSE(first.Alive());
    EXPECT_TRUE(ReadAllValues(job) == jobBefore) << "the job's values changed";
}

TEST_F(SingleInstance, MutexIsFreeAgainOnceTheFirstInstanceHasEnded)
{
    ToolProcess first;
    ASSERT_NO_FATAL_FAILURE(StartBlockedFirst(first));
    first.Terminate();
    ASSERT_FALSE(first.Alive());

    DeleteProductKeys();
    logsDir_ = UseFreshLogsDir();
    ToolRun next = Run();
    EXPECT_TRUE(IsCompletedRun(next, ReadNewestLog(logsDir_)));
}

TEST_F(SingleInstance, KillSwitchIsCheckedBeforeTheMutex)
{
    ToolProcess first;
    ASSERT_NO_FATAL_FAILURE(StartBlockedFirst(first));

    std::wstring secondLogs = UseFreshLogsDir();
    WriteString(UpdateKey(kNewRoot), L"Enabled", L"no");
    ToolRun second = Run();
    EXPECT_TRUE(IsKillSwitchRun(second, ReadNewestLog(secondLogs)));
    EXPECT_EQ(second.out.find("duplicate instance"), std::string::npos) << second.out;
    EXPECT_TRUE(first.Alive());
    first.Terminate();
}

}  // namespace
}  // namespace it
