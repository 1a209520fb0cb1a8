// The command line of a run: switches, usage text and version override file,
// on their own and as a whole run sees them.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "agent/Agent.h"
#include "app/App.h"
#include "app/RunSequence.h"
#include "diagnostics/ToolLog.h"
#include "fakes/FakePlatform.h"
#include "fetch/Workspace.h"

using CORE::corestring;
using fakes::FakePlatform;

namespace {

const std::wstring kWorkspace = L"C:\\Windows\\Temp\\updatetool-data";
const std::wstring kUsageBody =
    L" [-help] [-force] [-test] [<version filename>]\n"
    L"-help              : usage help\n"
    L"-force             : force updates\n"
    L"-test              : don't do updates\n"
    L"<version filename> : version override configuration file\n";

using fakes::whole;

struct CmdlineTest : ::testing::Test {
    FakePlatform p;
    App app;

    void SetUp() override { app.workspace = Util_GetWorkspace(); }

    bool parse(const wchar_t* commandLine) { return app.ParseCmdline(corestring(commandLine)); }

    void overrideFile(const std::wstring& name, const std::string& bytes)
    {
        p.files.addFile(kWorkspace + L"\\" + name, bytes);
    }

    std::vector<std::wstring> linesOf(const wchar_t* tag) const { return p.linesOf(tag); }
};

}  // namespace

// ---------------------------------------------------------------- switches

TEST_F(CmdlineTest, ProgramAloneIsTrueAndOnlyLogsTheLine)
{
    EXPECT_TRUE(parse(L"zenthra-updatetool.exe"));
    std::vector<std::wstring> lines = p.logLines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ(L"App::ParseCmdline: cmdLine: [zenthra-updatetool.exe]", lines[0]);
    EXPECT_FALSE(app.forceUpdate);
    EXPECT_FALSE(app.testMode);
    EXPECT_TRUE(app.versionFile.empty());
}

TEST_F(CmdlineTest, TheWholeLineIsLoggedAsItStands)
{
    EXPECT_TRUE(parse(L"\"C:\\Program Files\\zt.exe\"  -force\t-test"));
    EXPECT_EQ(L"App::ParseCmdline: cmdLine: [\"C:\\Program Files\\zt.exe\"  -force\t-test]", p.logLines().at(0));
}

class ForceSpelling : public CmdlineTest, public ::testing::WithParamInterface<const wchar_t*> {};

TEST_P(ForceSpelling, SetsForceUpdate)
{
    std::wstring line = std::wstring(L"zt.exe ") + GetParam();
    EXPECT_TRUE(parse(line.c_str()));
    EXPECT_TRUE(app.forceUpdate);
    EXPECT_FALSE(app.testMode);
    EXPECT_TRUE(p.logHas(L"App::ParseCmdline: force launch enabled"));
}

INSTANTIATE_TEST_SUITE_P(Spellings, ForceSpelling, ::testing::Values(L"-force", L"/force", L"/FORCE", L"-Force"));

class TestSpelling : public CmdlineTest, public ::testing::WithParamInterface<const wchar_t*> {};

TEST_P(TestSpelling, SetsTestMode)
{
    std::wstring line = std::wstring(L"zt.exe ") + GetParam();
    EXPECT_TRUE(parse(line.c_str()));
    EXPECT_TRUE(app.testMode);
    EXPECT_FALSE(app.forceUpdate);
    EXPECT_TRUE(p.logHas(L"App::ParseCmdline: test mode enabled"));
}

INSTANTIATE_TEST_SUITE_P(Spellings, TestSpelling, ::testing::Values(L"-test", L"/test", L"/TEST", L"-Test"));

TEST_F(CmdlineTest, BothSwitchesTogether)
{
    EXPECT_TRUE(parse(L"zt.exe -test /force"));
    EXPECT_TRUE(app.testMode);
    EXPECT_TRUE(app.forceUpdate);
}

TEST_F(CmdlineTest, TabsAndLineEndsSeparateTokens)
{
    EXPECT_TRUE(parse(L"zt.exe\t-force\r\n-test  "));
    EXPECT_TRUE(app.forceUpdate);
    EXPECT_TRUE(app.testMode);
}

TEST_F(CmdlineTest, EmptyQuotedTokenEndsTheTokens)
{
    // The splitter stops at the first empty token, a quoted one included.
    EXPECT_TRUE(parse(L"zt.exe -test \"\" -force"));
    EXPECT_TRUE(app.testMode);
    EXPECT_FALSE(app.forceUpdate);
}

TEST_F(CmdlineTest, LongerWordIsAnUnknownArgument)
{
    EXPECT_FALSE(parse(L"zt.exe -forcefully"));
    EXPECT_FALSE(app.forceUpdate);
    EXPECT_TRUE(p.logHas(L"App::ParseCmdline: unknown argument 1: [-forcefully]"));
    EXPECT_FALSE(p.logHas(L"App::ParseCmdline: force launch enabled"));
}

TEST_F(CmdlineTest, ShorterWordIsAnUnknownArgument)
{
    EXPECT_FALSE(parse(L"zt.exe /forc"));
    EXPECT_FALSE(app.forceUpdate);
    EXPECT_TRUE(p.logHas(L"App::ParseCmdline: unknown argument 1: [/forc]"));
}

TEST_F(CmdlineTest, UnknownArgumentStopsTheParsingAtItsPlace)
{
    EXPECT_FALSE(parse(L"zt.exe -test -bad -force"));
    EXPECT_TRUE(app.testMode);
    EXPECT_FALSE(app.forceUpdate);
    std::vector<std::wstring> lines = linesOf(L"App::ParseCmdline");
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ(L"App::ParseCmdline: test mode enabled", lines[1]);
    EXPECT_EQ(L"App::ParseCmdline: unknown argument 2: [-bad]", lines[2]);
}

TEST_F(CmdlineTest, LoneDashOrSlashIsUnknown)
{
    EXPECT_FALSE(parse(L"zt.exe -"));
    EXPECT_TRUE(p.logHas(L"App::ParseCmdline: unknown argument 1: [-]"));
    App other;
    EXPECT_FALSE(other.ParseCmdline(corestring(L"zt.exe /")));
    EXPECT_TRUE(p.logHas(L"App::ParseCmdline: unknown argument 1: [/]"));
}

TEST_F(CmdlineTest, UnknownArgumentDoesNotTouchTheConsole)
{
    p.console.output.clear();
    std::size_t logged = TheToolLog().text().length();
    EXPECT_FALSE(parse(L"zt.exe -x"));
    EXPECT_GT(TheToolLog().text().length(), logged);
    EXPECT_EQ(std::wstring::npos, p.console.output.find(L"[-help]"));
}

// ---------------------------------------------------------------- help

class HelpSpelling : public CmdlineTest, public ::testing::WithParamInterface<const wchar_t*> {};

TEST_P(HelpSpelling, PrintsTheUsageAndIsFalse)
{
    std::wstring line = std::wstring(L"zt.exe ") + GetParam();
    EXPECT_FALSE(parse(line.c_str()));
    EXPECT_TRUE(p.logHas(L"App::ParseCmdline: invoking help"));
    const std::wstring usage = L"zenthra-updatetool.exe" + kUsageBody;
    std::size_t at = p.console.output.find(L"zenthra-updatetool.exe [-help]");
    ASSERT_NE(std::wstring::npos, at) << p.console.output;
    // Nothing is written after the usage, and the usage is exactly this.
    EXPECT_EQ(usage, p.console.output.substr(at));
}

INSTANTIATE_TEST_SUITE_P(Spellings, HelpSpelling, ::testing::Values(L"-help", L"/help", L"-HELP", L"/Help"));

TEST_F(CmdlineTest, UsageNamesTheProgramWithoutItsDirectory)
{
    p.processes.moduleFileName = L"D:\\tools\\deep\\dir\\renamed-tool.exe";
    EXPECT_FALSE(parse(L"zt.exe -help"));
    std::size_t at = p.console.output.find(L"renamed-tool.exe [-help]");
    ASSERT_NE(std::wstring::npos, at) << p.console.output;
    EXPECT_EQ(L"renamed-tool.exe" + kUsageBody, p.console.output.substr(at));
    EXPECT_EQ(std::wstring::npos, p.console.output.find(L"D:\\tools"));
}

TEST_F(CmdlineTest, UsageWithoutAModuleNameStillPrintsTheLines)
{
    p.processes.moduleFileNameError = ERROR_NOT_ENOUGH_MEMORY;
    EXPECT_FALSE(parse(L"zt.exe -help"));
    std::size_t at = p.console.output.rfind(kUsageBody);
    ASSERT_NE(std::wstring::npos, at) << p.console.output;
    EXPECT_EQ(kUsageBody, p.console.output.substr(at));
}

TEST_F(CmdlineTest, UsageStaysOutOfTheToolLog)
{
    EXPECT_FALSE(parse(L"zt.exe -help"));
    std::wstring log = whole(TheToolLog().text());
    EXPECT_NE(std::wstring::npos, log.find(L"invoking help"));
    EXPECT_EQ(std::wstring::npos, log.find(L"[-help]"));
    EXPECT_EQ(std::wstring::npos, log.find(L"usage help"));
}

TEST_F(CmdlineTest, HelpStopsTheParsingButEarlierSwitchesStand)
{
    EXPECT_FALSE(parse(L"zt.exe -force -help -test"));
    EXPECT_TRUE(app.forceUpdate);
    EXPECT_FALSE(app.testMode);
}

// ---------------------------------------------------------------- file names

TEST_F(CmdlineTest, QuotedFileNameWithBlanksIsOneToken)
{
    overrideFile(L"my versions.txt", "Tovi.version=8.1.0\n");
    EXPECT_TRUE(parse(L"zt.exe \"my versions.txt\" -force"));
    EXPECT_EQ(L"my versions.txt", whole(app.versionFile));
    EXPECT_TRUE(p.logHas(L"App::ParseCmdline: version override filename: [my versions.txt]"));
    EXPECT_EQ(L"8.1.0", whole(app.overrideVersion));
    EXPECT_TRUE(app.forceUpdate);
}

TEST_F(CmdlineTest, SingleQuotesGroupAsWell)
{
    EXPECT_TRUE(parse(L"zt.exe 'a b.txt'"));
    EXPECT_EQ(L"a b.txt", whole(app.versionFile));
}

TEST_F(CmdlineTest, LaterFileReplacesTheEarlierOnesValues)
{
    overrideFile(L"one.txt", "Tovi.version=1.0.0\nTovi.filename=one.exe\n");
    overrideFile(L"two.txt", "Tovi.version=2.0.0\n");
    EXPECT_TRUE(parse(L"zt.exe one.txt two.txt"));
    EXPECT_EQ(L"two.txt", whole(app.versionFile));
    EXPECT_EQ(L"2.0.0", whole(app.overrideVersion));
    EXPECT_EQ(L"one.exe", whole(app.overrideFilename));
    std::vector<std::wstring> lines = p.logLines();
    std::vector<std::wstring> expected = {
        L"App::ParseCmdline: version override filename: [one.txt]",
        L"App::ParseOverrideFile: version for Tovi: [1.0.0]",
        L"App::ParseOverrideFile: filename for Tovi: [one.exe]",
        L"App::ParseCmdline: version override filename: [two.txt]",
        L"App::ParseOverrideFile: version for Tovi: [2.0.0]",
    };
    ASSERT_EQ(expected.size() + 1, lines.size());
    EXPECT_EQ(expected, std::vector<std::wstring>(lines.begin() + 1, lines.end()));
}

// ---------------------------------------------------------------- override file

TEST_F(CmdlineTest, OverrideFileWithCrLfEndsGivesTrimmedValues)
{
    overrideFile(L"ov.txt", "Tovi.version=8.12.0-9876543\r\nTovi.filename=installer.exe\r\n");
    app.versionFile = L"ov.txt";
    app.ParseOverrideFile();
    EXPECT_EQ(L"8.12.0-9876543", whole(app.overrideVersion));
    EXPECT_EQ(L"installer.exe", whole(app.overrideFilename));
    EXPECT_TRUE(p.logHas(L"App::ParseOverrideFile: version for Tovi: [8.12.0-9876543]"));
    EXPECT_TRUE(p.logHas(L"App::ParseOverrideFile: filename for Tovi: [installer.exe]"));
}

TEST_F(CmdlineTest, KeyWithATrailingBlankDoesNotMatch)
{
    overrideFile(L"ov.txt", "Tovi.version = 8.1.0\nTovi.filename=a.exe\n");
    app.versionFile = L"ov.txt";
    app.ParseOverrideFile();
    EXPECT_TRUE(app.overrideVersion.empty());
    EXPECT_EQ(L"a.exe", whole(app.overrideFilename));
    for (const std::wstring& line : p.logLines())
        EXPECT_EQ(std::wstring::npos, line.find(L"version for")) << line;
}

TEST_F(CmdlineTest, KeysAreMatchedIgnoringCaseAndValuesTrimmedOfBlanksAndTabs)
{
    overrideFile(L"ov.txt", "TOVI.VERSION=  \t8.2.0 \t\ntovi.FileName=\tb.exe  \n");
    app.versionFile = L"ov.txt";
    app.ParseOverrideFile();
    EXPECT_EQ(L"8.2.0", whole(app.overrideVersion));
    EXPECT_EQ(L"b.exe", whole(app.overrideFilename));
}

TEST_F(CmdlineTest, BlankValuesSetNothingAndLogNothing)
{
    overrideFile(L"ov.txt", "Tovi.version=   \nTovi.filename=\r\n");
    app.overrideVersion = L"kept";
    app.versionFile = L"ov.txt";
    app.ParseOverrideFile();
    EXPECT_EQ(L"kept", whole(app.overrideVersion));
    EXPECT_TRUE(app.overrideFilename.empty());
    EXPECT_TRUE(linesOf(L"App::ParseOverrideFile").empty());
}

TEST_F(CmdlineTest, OtherKeysAreIgnored)
{
    overrideFile(L"ov.txt", "Other.version=1.2.3\nversion=4.5.6\n");
    app.versionFile = L"ov.txt";
    app.ParseOverrideFile();
    EXPECT_TRUE(app.overrideVersion.empty());
    EXPECT_TRUE(app.overrideFilename.empty());
    EXPECT_TRUE(linesOf(L"App::ParseOverrideFile").empty());
}

TEST_F(CmdlineTest, Utf16OverrideFileIsRead)
{
    std::wstring content = L"Tovi.version=8.3.0\r\n";
    std::string bytes = "\xFF\xFE";
    for (wchar_t c : content) {
        bytes.push_back(static_cast<char>(c & 0xFF));
        bytes.push_back(static_cast<char>(c >> 8));
    }
    overrideFile(L"ov.txt", bytes);
    app.versionFile = L"ov.txt";
    app.ParseOverrideFile();
    EXPECT_EQ(L"8.3.0", whole(app.overrideVersion));
}

TEST_F(CmdlineTest, UnreadableFileIsLoggedAndTheParsingGoesOn)
{
    EXPECT_TRUE(parse(L"zt.exe missing.txt -test"));
    EXPECT_TRUE(p.logHas(L"App::ParseOverrideFile: unable to read from: [missing.txt]"));
    EXPECT_TRUE(app.testMode);
    EXPECT_TRUE(app.overrideVersion.empty());
}

TEST_F(CmdlineTest, EmptyFileIsLoggedAsEmpty)
{
    overrideFile(L"empty.txt", "");
    app.versionFile = L"empty.txt";
    app.ParseOverrideFile();
    EXPECT_TRUE(p.logHas(L"App::ParseOverrideFile: version override file is empty"));
}

TEST_F(CmdlineTest, FileOfEmptyLinesIsEmpty)
{
    overrideFile(L"blank.txt", "\n\n\n");
    app.versionFile = L"blank.txt";
    app.ParseOverrideFile();
    EXPECT_TRUE(p.logHas(L"App::ParseOverrideFile: version override file is empty"));
}

TEST_F(CmdlineTest, FileIsLookedForUnderTheWorkspaceEvenForAFullPath)
{
    p.files.addFile(L"C:\\elsewhere\\ov.txt", std::string("Tovi.version=9.9.9\n"));
    EXPECT_TRUE(parse(L"zt.exe C:\\elsewhere\\ov.txt"));
    EXPECT_TRUE(app.overrideVersion.empty());
    EXPECT_TRUE(p.logHas(L"App::ParseOverrideFile: unable to read from: [C:\\elsewhere\\ov.txt]"));
}

TEST_F(CmdlineTest, NoFileNameNoFileAccess)
{
    int before = p.files.calls;
    app.ParseOverrideFile();
    EXPECT_EQ(before, p.files.calls);
    EXPECT_TRUE(p.logLines().empty());
}

// ---------------------------------------------------------------- whole runs

namespace {

const std::wstring kJob = L"Software\\Tarvelle\\Zenthra\\Agent\\Update\\Job1";
const std::wstring kNewAgentKey = L"Software\\Tarvelle\\Zenthra\\Agent";
const std::wstring kLegacyAgentKey = L"Software\\Kesmarc, Inc.\\Kesmarc TQM\\Agent";
const wchar_t* kNewUpgradeCode = L"{6E1F3A90-52D7-4B1C-9C3E-7A40D2B1F6E8}";

struct CmdlineRun : ::testing::Test {
    FakePlatform p;
    bool savedHost = isHostX64;
    void SetUp() override { isHostX64 = true; }
    void TearDown() override { isHostX64 = savedHost; }

    void put(const wchar_t* name, const std::wstring& text) { p.keys.putString(HKEY_LOCAL_MACHINE, kJob, name, text); }
    // A job past its fetch, ready to install a Tovi agent from the workspace.
    void toviJob(const std::wstring& version, const std::wstring& filename)
    {
        put(L"AGENT", L"TOVI");
        put(L"STATE", L"UPDATING");
        put(L"UNC_PATH", L"\\\\srv\\share\\" + filename);
        put(L"ARCH", L"64-BitAgent");
        put(L"VERSION", version);
        put(L"FILENAME", filename);
    }
    bool hasLineStartingWith(const std::wstring& prefix) const { return p.hasLineStartingWith(prefix); }
};

}  // namespace

TEST_F(CmdlineRun, HelpPrintsTheUsageEndsWithFailureAndRunsTheClosingSteps)
{
    p.processes.commandLine = L"zenthra-updatetool.exe -help";
    p.keys.putString(HKEY_LOCAL_MACHINE, kNewAgentKey, L"LastInstallError", L"new");
    p.keys.putString(HKEY_LOCAL_MACHINE, kLegacyAgentKey, L"LastInstallError", L"old");

    EXPECT_EQ(ERR_FAILURE, RunUpdateTool());

    std::size_t at = p.console.output.find(L"zenthra-updatetool.exe [-help]");
    ASSERT_NE(std::wstring::npos, at);
    const std::wstring usage = L"zenthra-updatetool.exe" + kUsageBody;
    EXPECT_EQ(usage, p.console.output.substr(at, usage.size()));
    // The job is never read, but the closing steps all run.
    EXPECT_FALSE(hasLineStartingWith(L"UtilGetActiveUpdate"));
    EXPECT_TRUE(p.logHas(L"Util_UpdateDone: Updating state for result 'ERR_FAILURE', legacy workflow:'0' "));
    EXPECT_FALSE(p.keys.value(HKEY_LOCAL_MACHINE, kNewAgentKey, L"LastInstallError").has_value());
    EXPECT_FALSE(p.keys.value(HKEY_LOCAL_MACHINE, kLegacyAgentKey, L"LastInstallError").has_value());
    EXPECT_EQ(L"wmain: Updatetool rc = ERR_FAILURE", p.logLines().back());
}

TEST_F(CmdlineRun, UpperCaseSlashForceReinstallsAnOlderVersion)
{
    toviJob(L"8.0.0", L"agent.exe");
    p.installer.addProduct(kNewUpgradeCode, L"{11111111-2222-3333-4444-555555555555}", L"9.0.0");
    p.processes.commandLine = L"zenthra-updatetool.exe /FORCE";

    // A Tovi agent's launch never changes the run result.
    EXPECT_EQ(ERR_FAILURE, RunUpdateTool());
    EXPECT_TRUE(p.logHas(L"App::ParseCmdline: force launch enabled"));
    ASSERT_EQ(1u, p.processes.launched.size());
    EXPECT_EQ(kWorkspace + L"\\agent.exe /s /v /qn TQM_SKIP_ADD_LDAP_MACHINE_ENTRY=1", p.processes.launched[0]);
}

TEST_F(CmdlineRun, WithoutForceTheOlderVersionIsNotInstalled)
{
    toviJob(L"8.0.0", L"agent.exe");
    p.installer.addProduct(kNewUpgradeCode, L"{11111111-2222-3333-4444-555555555555}", L"9.0.0");

    EXPECT_EQ(ERR_NOAGENT, RunUpdateTool());
    EXPECT_TRUE(p.processes.launched.empty());
    EXPECT_TRUE(p.logHas(L"App::CheckVersion: Update not available"));
}

TEST_F(CmdlineRun, ForcefullyIsUnknownAndEndsTheRunBeforeTheJobIsRead)
{
    toviJob(L"8.0.0", L"agent.exe");
    p.processes.commandLine = L"zenthra-updatetool.exe -forcefully";

    EXPECT_EQ(ERR_FAILURE, RunUpdateTool());
    EXPECT_TRUE(p.logHas(L"App::ParseCmdline: unknown argument 1: [-forcefully]"));
    EXPECT_FALSE(hasLineStartingWith(L"UtilGetActiveUpdate"));
    EXPECT_TRUE(p.processes.launched.empty());
    EXPECT_EQ(L"wmain: Updatetool rc = ERR_FAILURE", p.logLines().back());
}

TEST_F(CmdlineRun, TestThenBadThenForceStopsAtTheBadToken)
{
    toviJob(L"8.0.0", L"agent.exe");
    p.processes.commandLine = L"zenthra-updatetool.exe -test -bad -force";

    EXPECT_EQ(ERR_FAILURE, RunUpdateTool());
    EXPECT_TRUE(p.logHas(L"App::ParseCmdline: test mode enabled"));
    EXPECT_TRUE(p.logHas(L"App::ParseCmdline: unknown argument 2: [-bad]"));
    EXPECT_FALSE(p.logHas(L"App::ParseCmdline: force launch enabled"));
    EXPECT_TRUE(p.processes.launched.empty());
}

TEST_F(CmdlineRun, OverrideFileWithCrLfIsReadButTheJobsValuesBuildTheAgent)
{
    toviJob(L"9.9.9", L"job.exe");
    p.files.addFile(kWorkspace + L"\\ov.txt", std::string("Tovi.version=8.1.0\r\nTovi.filename=override.exe\r\n"));
    p.processes.commandLine = L"zenthra-updatetool.exe ov.txt";

    RunUpdateTool();
    EXPECT_TRUE(p.logHas(L"App::ParseOverrideFile: version for Tovi: [8.1.0]"));
    EXPECT_TRUE(p.logHas(L"App::ParseOverrideFile: filename for Tovi: [override.exe]"));
    EXPECT_TRUE(p.logHas(L"Agent::Agent: override version: 9.9.9"));
    ASSERT_EQ(1u, p.processes.launched.size());
    EXPECT_EQ(kWorkspace + L"\\job.exe /s /v /qn TQM_SKIP_ADD_LDAP_MACHINE_ENTRY=1", p.processes.launched[0]);
}

TEST_F(CmdlineRun, OverrideFileWithABlankBeforeTheEqualsSignGivesNoVersion)
{
    toviJob(L"9.9.9", L"job.exe");
    p.files.addFile(kWorkspace + L"\\ov.txt", std::string("Tovi.version = 8.1.0\r\n"));
    p.processes.commandLine = L"zenthra-updatetool.exe ov.txt";

    RunUpdateTool();
    EXPECT_TRUE(p.logHas(L"App::ParseCmdline: version override filename: [ov.txt]"));
    EXPECT_FALSE(hasLineStartingWith(L"App::ParseOverrideFile: version for"));
    EXPECT_FALSE(p.logHas(L"App::ParseOverrideFile: version override file is empty"));
}

TEST_F(CmdlineRun, BothPreflightOptionsMakeALegacyWorkflow)
{
    toviJob(L"9.9.9", L"job.exe");
    put(L"OPTIONS", L"PREFLIGHTCHECK_ENABLED=1 PREFLIGHTCHECK_ENABLED=2");
    p.keys.putDword(HKEY_LOCAL_MACHINE, kJob, L"PreflightCheckComplete", 1);

    RunUpdateTool();
    // Only a legacy workflow with its first half done goes on to the update.
    EXPECT_TRUE(p.logHas(L"wmain: legacy workflow in use and preflight check is already completed, skipping it for "
                         L"relaunch"));
    EXPECT_EQ(1u, p.processes.launched.size());
}

TEST_F(CmdlineRun, UnknownAgentEndsWithNothingToUpdate)
{
    toviJob(L"9.9.9", L"job.exe");
    put(L"AGENT", L"TOVIX");

    EXPECT_EQ(ERR_NOAGENT, RunUpdateTool());
    EXPECT_TRUE(p.processes.launched.empty());
    EXPECT_FALSE(p.logHas(L"=== Check Version ==="));
    EXPECT_EQ(L"wmain: Updatetool rc = ERR_NOAGENT", p.logLines().back());
}
