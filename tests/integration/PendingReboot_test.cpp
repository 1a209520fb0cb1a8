// The tool's own reboot marker "Agent\UpdateStatusVolatile\NeedReboot": if it
// stands under either root, the run waits five minutes once before going on.
// The tests never sit out the wait: they catch the run inside it and end the
// process. How long the wait lasts is for wmain's unit tests to see, with a
// clock of their own.
#include "Harness.h"

namespace it {
namespace {

constexpr DWORD kLineTimeoutMs = 30000;

class PendingReboot : public ToolTest {
protected:
    // Starts the tool and catches it in the wait: the announcement is the last
    // line of its log, written whole to disk, the run has done nothing after
    // it, and the process is still there.
    void ExpectWait(ToolProcess& tool)
    {
        tool.Start(Options());
        ASSERT_TRUE(tool.WaitForOutput(kRebootWaitLine, kLineTimeoutMs))
            << "no wait line; output:\n"
            << tool.Output();
        // The console copy of a line comes before the file's.
        std::optional<LogFile> log = WaitForLogMessage(kRebootWaitLine);
        ASSERT_TRUE(log.has_value()) << "the log never got the wait line";
        std::vector<std::string> expected = {kBeginLine, VersionLine(), kRebootWaitLine};
        EXPECT_EQ(log->messages, expected) << log->text;
        EXPECT_TRUE(log->hasBom);
        EXPECT_TRUE(log->endsWithCrLf);
        EXPECT_TRUE(tool.Alive()) << "the tool stopped waiting; output:\n" << tool.Output();
    }

    // The newest log once it holds the message; nothing if it never does.
    std::optional<LogFile> WaitForLogMessage(const std::string& message)
    {
        for (DWORD look = 0; look < kLineTimeoutMs / 50; ++look) {
            std::optional<LogFile> log = ReadNewestLog(logsDir_);
            if (log && ContainsMessage(log->messages, message))
                return log;
            ::Sleep(50);
        }
        return std::nullopt;
    }

    void ExpectNoWait()
    {
        ToolRun run = Run();
        EXPECT_EQ(run.out.find(kRebootWaitLine), std::string::npos) << run.out;
        EXPECT_TRUE(IsCompletedRun(run, ReadNewestLog(logsDir_)));
    }
};

TEST_F(PendingReboot, MarkerInTheVolatileKeyOfTheNewRootMakesTheRunWait)
{
    WriteRaw(VolatileStatusKey(kNewRoot), L"NeedReboot", REG_SZ, Utf16Bytes(L"1", true), true);
    ToolProcess tool;
    ASSERT_NO_FATAL_FAILURE(ExpectWait(tool));
    EXPECT_EQ(CountMessages(MessagesOf(OutputLines(tool.Output())), kRebootWaitLine), 1u) << tool.Output();
    tool.Terminate();
}

TEST_F(PendingReboot, MarkerUnderTheLegacyRootOnlyMakesTheRunWait)
{
    WriteString(VolatileStatusKey(kLegacyRoot), L"NeedReboot", L"1");
    ASSERT_FALSE(KeyExists(VolatileStatusKey(kNewRoot)));
    ToolProcess tool;
    ASSERT_NO_FATAL_FAILURE(ExpectWait(tool));
    tool.Terminate();
}

TEST_F(PendingReboot, MarkerUnderBothRootsGivesOneWait)
{
    WriteRaw(VolatileStatusKey(kNewRoot), L"NeedReboot", REG_DWORD, {1, 0, 0, 0}, true);
    WriteString(VolatileStatusKey(kLegacyRoot), L"NeedReboot", L"1");
    ToolProcess tool;
    ASSERT_NO_FATAL_FAILURE(ExpectWait(tool));
    EXPECT_EQ(CountMessages(MessagesOf(OutputLines(tool.Output())), kRebootWaitLine), 1u) << tool.Output();
    std::optional<LogFile> log = ReadNewestLog(logsDir_);
    ASSERT_TRUE(log.has_value());
    EXPECT_EQ(CountMessages(log->messages, kRebootWaitLine), 1u) << log->text;
    tool.Terminate();
}

TEST_F(PendingReboot, MarkerOfAnyTypeEvenWithEmptyDataCounts)
{
    struct Marker {
        const char* label;
        DWORD type;
        std::vector<BYTE> data;
    };
    const std::vector<Marker> markers = {
        {"REG_SZ with no data at all", REG_SZ, {}},
        {"REG_SZ empty text", REG_SZ, {0, 0}},
        {"REG_SZ \"0\"", REG_SZ, Utf16Bytes(L"0", true)},
        {"REG_NONE empty", REG_NONE, {}},
        {"REG_BINARY empty", REG_BINARY, {}},
        {"REG_DWORD 0", REG_DWORD, {0, 0, 0, 0}},
        {"REG_QWORD 0", REG_QWORD, {0, 0, 0, 0, 0, 0, 0, 0}},
        {"REG_MULTI_SZ empty", REG_MULTI_SZ, {0, 0}},
        {"REG_EXPAND_SZ empty", REG_EXPAND_SZ, {0, 0}},
    };
    for (const Marker& marker : markers) {
        SCOPED_TRACE(marker.label);
        DeleteProductKeys();
        logsDir_ = UseFreshLogsDir();
        WriteRaw(VolatileStatusKey(kLegacyRoot), L"NeedReboot", marker.type, marker.data);
        ToolProcess tool;
        ExpectWait(tool);
        tool.Terminate();
    }
}

TEST_F(PendingReboot, LogOnDiskIsCompleteWhileTheRunWaitsAndAfterItIsKilled)
{
    WriteString(VolatileStatusKey(kNewRoot), L"NeedReboot", L"");
    ToolProcess tool;
    ASSERT_NO_FATAL_FAILURE(ExpectWait(tool));
    std::optional<LogFile> waiting = ReadNewestLog(logsDir_);
    ASSERT_TRUE(waiting.has_value());

    // A killed process runs no exit handlers: no end line, the file stays whole.
    tool.Terminate();
    std::optional<LogFile> killed = ReadNewestLog(logsDir_);
    ASSERT_TRUE(killed.has_value());
    EXPECT_EQ(killed->bytes, waiting->bytes);
}

TEST_F(PendingReboot, NoMarkerNoWait) { ExpectNoWait(); }

TEST_F(PendingReboot, MarkerElsewhereDoesNotCount)
{
    // Same value name in other places, and a key where the value belongs.
    WriteString(kNewRoot, L"NeedReboot", L"1");
    WriteString(L"Software\\Tarvelle", L"NeedReboot", L"1");
    WriteString(std::wstring(kNewRoot) + L"\\Agent\\UpdateStatus", L"NeedReboot", L"1");
    WriteString(UpdateKey(kNewRoot), L"NeedReboot", L"1");
    WriteString(VolatileStatusKey(kNewRoot) + L"\\NeedReboot", L"NeedReboot", L"1");
    WriteString(VolatileStatusKey(kLegacyRoot), L"NeedRebootX", L"1");
    ExpectNoWait();
}

}  // namespace
}  // namespace it
