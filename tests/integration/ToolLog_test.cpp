// The tool log as the management side finds it: where it lands, its name,
// encoding and line format, the banner, the closing line and the end line.
#include <regex>

#include "Harness.h"

namespace it {
namespace {

// Local time as the number yyyymmddhhmmss, for comparing with file names.
unsigned long long localStamp()
{
    SYSTEMTIME now;
    ::GetLocalTime(&now);
    return ((((now.wYear * 100ull + now.wMonth) * 100 + now.wDay) * 100 + now.wHour) * 100 + now.wMinute) * 100 +
           now.wSecond;
}

std::wstring fileName(const std::wstring& path) { return path.substr(path.find_last_of(L'\\') + 1); }

class ToolLogFile : public ToolTest {};

TEST_F(ToolLogFile, LandsInInstallLogsDirUnderAFolderOfItsOwnNamedByTheLocalStartTime)
{
    unsigned long long before = localStamp();
    ToolRun run = Run();
    unsigned long long after = localStamp();

    std::vector<std::wstring> files = FindLogFiles(logsDir_);
    ASSERT_EQ(files.size(), 1u) << run.out;
    EXPECT_EQ(files[0].substr(0, logsDir_.size() + 12), logsDir_ + L"\\updatetool\\");
    EXPECT_EQ(FindFilesRecursive(logsDir_, L"*.log").size(), 1u);

    std::string name = Narrow(fileName(files[0]));
    std::smatch match;
    ASSERT_TRUE(std::regex_match(name, match, std::regex(R"(Tarvelle_Agent_Update_(\d{14})\.log)"))) << name;
    unsigned long long stamp = std::stoull(match[1].str());
    EXPECT_GE(stamp, before);
    EXPECT_LE(stamp, after);
}

TEST_F(ToolLogFile, IsUtf16WithByteOrderMarkAndEveryLineIsTimeStamped)
{
    ToolRun run = Run();
    std::optional<LogFile> log = ReadNewestLog(logsDir_);
    ASSERT_TRUE(log.has_value()) << run.out;
    ASSERT_GE(log->bytes.size(), 2u);
    EXPECT_EQ(log->bytes[0], 0xFF);
    EXPECT_EQ(log->bytes[1], 0xFE);
    EXPECT_EQ(log->bytes.size() % 2, 0u);
    EXPECT_TRUE(log->endsWithCrLf);
    ASSERT_GE(log->lines.size(), 4u);
    std::regex stamp(R"(\d{4}-(0[1-9]|1[0-2])-(0[1-9]|[12]\d|3[01]) ([01]\d|2[0-3])\.[0-5]\d\.[0-5]\d: .*)");
    for (const std::string& line : log->lines) {
        EXPECT_TRUE(std::regex_match(line, stamp)) << "line: " << line;
        // No bare line feeds: every line ends in CR LF.
        EXPECT_EQ(line.find('\n'), std::string::npos) << "line: " << line;
        EXPECT_EQ(line.find('\r'), std::string::npos) << "line: " << line;
    }
}

TEST_F(ToolLogFile, StartsWithTheBannerAndTheExecutablesFileVersion)
{
    std::string version = FileVersionOf(ToolPath());
    ASSERT_TRUE(std::regex_match(version, std::regex(R"(\d+\.\d+\.\d+\.\d+)"))) << "version resource: " << version;

    ToolRun run = Run();
    std::optional<LogFile> log = ReadNewestLog(logsDir_);
    ASSERT_TRUE(log.has_value()) << run.out;
    ASSERT_GE(log->messages.size(), 2u) << log->text;
    EXPECT_EQ(log->messages[0], "=== Begin === ");
    EXPECT_EQ(log->messages[1], "Updatetool Version: " + version);
}

TEST_F(ToolLogFile, EndsWithTheClosingLineNamingTheExitCodeAndTheEndLine)
{
    ToolRun run = Run();
    std::optional<LogFile> log = ReadNewestLog(logsDir_);
    ASSERT_TRUE(log.has_value()) << run.out;
    ASSERT_TRUE(IsKnownRunResult(run.exitCode)) << run.exitCode;
    ASSERT_GE(log->messages.size(), 2u) << log->text;
    EXPECT_EQ(log->messages.back(), "=== End ===");
    EXPECT_EQ(log->messages[log->messages.size() - 2], "wmain: Updatetool rc = " + RunResultName(run.exitCode))
        << log->text;
    EXPECT_TRUE(IsCompletedRun(run, log));
}

TEST_F(ToolLogFile, ConsoleCarriesTheSameLinesAsUtf8)
{
    ToolRun run = Run();
    std::optional<LogFile> log = ReadNewestLog(logsDir_);
    ASSERT_TRUE(log.has_value()) << run.out;

    std::vector<std::string> lines = OutputLines(run.out);
    for (const std::string& line : lines)
        EXPECT_TRUE(HasTimeStamp(line)) << "console line: " << line;
    ASSERT_FALSE(run.out.empty());
    EXPECT_EQ(run.out.back(), '\n');

    // The host line is written before the log has a file.
    std::vector<std::string> console;
    for (const std::string& message : MessagesOf(lines))
        if (message.rfind("Agent::IsHostX64: ", 0) != 0)
            console.push_back(message);
    EXPECT_EQ(console, log->messages);
}

TEST_F(ToolLogFile, GoesUnderTheLegacyRootsInstallLogsDirWhenTheNewRootHasNone)
{
    ::RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kNewRoot, L"InstallLogsDir");
    ASSERT_FALSE(ReadValue(kNewRoot, L"InstallLogsDir").has_value());
    std::wstring legacyLogs = NewFolder(L"legacy-logs");
    WriteString(kLegacyRoot, L"InstallLogsDir", legacyLogs);

    ToolRun run = Run();
    EXPECT_TRUE(IsCompletedRun(run, ReadNewestLog(legacyLogs)));
    EXPECT_EQ(FindLogFiles(legacyLogs).size(), 1u);
    EXPECT_TRUE(FindFilesRecursive(logsDir_, L"*").empty());
}

TEST_F(ToolLogFile, NewRootsInstallLogsDirWinsOverTheLegacyRoots)
{
    std::wstring legacyLogs = NewFolder(L"legacy-logs");
    WriteString(kLegacyRoot, L"InstallLogsDir", legacyLogs);

    ToolRun run = Run();
    EXPECT_TRUE(IsCompletedRun(run, ReadNewestLog(logsDir_)));
    EXPECT_TRUE(FindFilesRecursive(legacyLogs, L"*").empty());
}

TEST_F(ToolLogFile, EmptyInstallLogsDirUnderTheNewRootFallsBackToTheLegacyRoot)
{
    WriteString(kNewRoot, L"InstallLogsDir", L"");
    std::wstring legacyLogs = NewFolder(L"legacy-logs");
    WriteString(kLegacyRoot, L"InstallLogsDir", legacyLogs);

    ToolRun run = Run();
    EXPECT_TRUE(IsCompletedRun(run, ReadNewestLog(legacyLogs)));
}

TEST_F(ToolLogFile, GoesToTheWorkspaceUnderTempWithoutAnyInstallLogsDir)
{
    ::RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kNewRoot, L"InstallLogsDir");
    ASSERT_FALSE(ReadValue(kNewRoot, L"InstallLogsDir").has_value());

    ToolRun run = Run();
    std::wstring workspace = JoinPath(tempDir_, L"updatetool-data");
    std::optional<LogFile> log = ReadNewestLog(workspace);
    ASSERT_TRUE(log.has_value()) << "nothing in " << Narrow(workspace) << "\n" << run.out;
    EXPECT_TRUE(log->hasBom);
    EXPECT_TRUE(IsCompletedRun(run, log));
    EXPECT_TRUE(FindFilesRecursive(logsDir_, L"*").empty());
}

TEST_F(ToolLogFile, MissingInstallLogsDirLeavesNoFileButTheConsoleCopy)
{
    std::wstring parent = NewFolder(L"parent");
    std::wstring missing = JoinPath(JoinPath(parent, L"absent"), L"logs");
    WriteString(kNewRoot, L"InstallLogsDir", missing);

    ToolRun run = Run();
    EXPECT_TRUE(IsCompletedRun(run, std::nullopt));
    std::vector<std::string> console = MessagesOf(OutputLines(run.out));
    EXPECT_TRUE(ContainsMessage(console, kBeginLine)) << run.out;
    EXPECT_TRUE(ContainsMessage(console, VersionLine())) << run.out;
    EXPECT_TRUE(ContainsMessage(console, kEndLine)) << run.out;
    EXPECT_FALSE(PathExists(missing));
    EXPECT_TRUE(FindFilesRecursive(parent, L"*").empty());
}

TEST_F(ToolLogFile, ExistingLogFolderIsReused)
{
    MakeDirectories(JoinPath(logsDir_, L"updatetool"));
    std::wstring other = JoinPath(JoinPath(logsDir_, L"updatetool"), L"keep.txt");
    HANDLE file = ::CreateFileW(other.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    ::CloseHandle(file);

    ToolRun run = Run();
    EXPECT_TRUE(IsCompletedRun(run, ReadNewestLog(logsDir_)));
    EXPECT_TRUE(PathExists(other));
}

}  // namespace
}  // namespace it
