// The tool's command line, end to end: the usage text, the two switches in
// their spellings, unknown arguments, and version override files in the
// encodings the tool reads. Each run is checked by what the management side
// sees: exit code, the log, the job's values and the telemetry entry.
//
// No run here can restart the machine: the jobs either name no kind of agent,
// or a desktop agent ("TOVI") whose result never asks for a restart, run in
// test mode or with the lab's stand-in installer that exits with 0.
#include "JobFixture.h"
#include "MsiLab.h"
#include "StandInInstaller.h"

namespace it {
namespace {

// A share the lab doesn't have; under UPDATING the fetch gate never looks at it.
const wchar_t* const kShare = L"\\\\fileserver\\deploy\\agent.msi";
// No kind of agent has this name: the run finds nothing to install (-4).
const wchar_t* const kNoAgent = L"NONE";

// The usage text exactly as the tool prints it; its console copy ends every
// line in CR LF.
std::string UsageText()
{
    std::string text = "zenthra-updatetool.exe [-help] [-force] [-test] [<version filename>]\n"
                       "-help              : usage help\n"
                       "-force             : force updates\n"
                       "-test              : don't do updates\n"
                       "<version filename> : version override configuration file\n";
    std::string out;
    for (char c : text) {
        if (c == '\n')
            out += '\r';
        out += c;
    }
    return out;
}

// How the tool quotes an installer path with a blank in it.
std::wstring Quoted(const std::wstring& path)
{
    return path.find(L' ') == std::wstring::npos ? path : L"\"" + path + L"\"";
}

std::string Utf16Le(const std::wstring& text, bool withMark)
{
    std::string bytes = withMark ? std::string("\xFF\xFE", 2) : std::string();
    for (BYTE b : Utf16Bytes(text, false))
        bytes.push_back(static_cast<char>(b));
    return bytes;
}

size_t CountOf(const std::string& text, const std::string& needle)
{
    size_t count = 0;
    for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1))
        ++count;
    return count;
}

// The TOVI cases read the installed version from "ProductVersion", which
// only counts when no agent product is installed (the demo leaves one).
class CommandLine : public WithoutLabProducts<NoRestartJobTest> {
protected:
    const std::wstring key_ = JobKey(kNewRoot, L"job");

    // A job of no known kind at the install step: it ends -4, DONE, OK.
    std::vector<std::pair<std::wstring, std::wstring>> WriteNoAgentJob(const std::wstring& payload)
    {
        std::vector<std::pair<std::wstring, std::wstring>> values = {
            {L"AGENT", kNoAgent},      {L"VERSION", L"2.5.0.7"}, {L"ARCH", L"64-BitAgent"},
            {L"UNC_PATH", kShare},     {L"STATE", L"UPDATING"},  {L"RESULT", L"PROGRESS"},
            {L"FILENAME", payload},    {L"RETRY", L"1"},         {L"ERRORCODE", L"E_OLD"},
            {L"ERRORDESC", L"an old failure"}};
        WriteJob(key_, values);
        return values;
    }

    // A desktop agent job at the install step; "VERSION" and "FILENAME" only
    // when given.
    std::vector<std::pair<std::wstring, std::wstring>> WriteToviJob(const std::wstring& version,
                                                                    const std::wstring& fileName)
    {
        std::vector<std::pair<std::wstring, std::wstring>> values = {
            {L"AGENT", L"TOVI"},     {L"ARCH", L"64-BitAgent"}, {L"UNC_PATH", kShare},
            {L"STATE", L"UPDATING"}, {L"RESULT", L"PROGRESS"},  {L"RETRY", L"0"}};
        if (!version.empty())
            values.emplace_back(L"VERSION", version);
        if (!fileName.empty())
            values.emplace_back(L"FILENAME", fileName);
        WriteJob(key_, values);
        return values;
    }

    // The installed version as the product's own registry value gives it.
    void SetInstalledVersion(const std::wstring& version) { WriteString(kNewRoot, L"ProductVersion", version); }

    struct ToviJob {
        std::wstring installer;
        std::vector<std::pair<std::wstring, std::wstring>> written;
    };

    // Installed 8.2.0, offered 8.1.0: a desktop agent job whose installer
    // (the stand-in, exiting 0) is older than the product and runs only
    // when forced.
    ToviJob WriteOlderInstallerJob()
    {
        SetInstalledVersion(L"8.2.0");
        const std::wstring installer = PlaceStandIn(Workspace(), L"setup-0.exe");
        return {installer, WriteToviJob(L"8.1.0", installer)};
    }

    // An override file in the workspace, where the tool looks for it.
    void PutOverrideFile(const std::wstring& name, const std::string& bytes)
    {
        MakeDirectories(Workspace());
        WriteFileBytes(JoinPath(Workspace(), name), bytes);
    }

    // The line the tool logs first, with the command line as Windows hands it over.
    static std::string CommandLineLine(const std::vector<std::wstring>& args)
    {
        std::wstring line = L"\"" + ToolPath() + L"\"";
        if (ToolPath().find(L' ') == std::wstring::npos)
            line = ToolPath();
        for (const std::wstring& arg : args)
            line += L" " + (arg.find(L' ') == std::wstring::npos && !arg.empty() ? arg : L"\"" + arg + L"\"");
        return "App::ParseCmdline: cmdLine: [" + Narrow(line) + "]";
    }

    // The run stopped in start-up: the job was never read, so nothing of it
    // is written back and no telemetry entry is made.
    void ExpectStoppedBeforeTheJob(const JobRun& job,
                                   const std::vector<std::pair<std::wstring, std::wstring>>& written)
    {
        EXPECT_EQ(-1, job.run.exitCode);
        EXPECT_TRUE(HasLinesInOrder(Messages(job), {
            "Util_UpdateDone: Updating state for result 'ERR_FAILURE', legacy workflow:'0' ",
            "UtilManageUpdateState: Update key:  current state: READY result:",
            "UtilManageUpdateState: Update key:  new state: READY result: ",
            "Util_UpdateDataForTelemetry: UpdateID empty",
            "wmain: failed to save the telemetry data",
            ClosingLine(-1),
        }));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "UtilGetActiveUpdate:"));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Update key: job "));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Util_UNCDownload:"));
        for (const auto& [name, text] : written)
            EXPECT_EQ(ReadText(key_, name), Narrow(text)) << Narrow(name);
        EXPECT_EQ(ValueNames(key_).size(), written.size());
        EXPECT_FALSE(PathExists(TelemetryPath()));
    }

    // The override file's only effect on a job of no known kind: its lines.
    // The run itself goes on to its good end.
    void ExpectNoAgentRunDone(const JobRun& job, const std::wstring& payload)
    {
        EXPECT_EQ(-4, job.run.exitCode);
        EXPECT_TRUE(HasWrittenValues(key_, {"DONE", "OK", Narrow(payload), "", "", "0"}));
        EXPECT_FALSE(PathExists(payload));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Agent::"));
        ExpectOneEntry(job, {"job", "NONE", Narrow(payload), "2.5.0.7", "DONE", 0, "OK"});
    }
};

// --- -help ------------------------------------------------------------------------

TEST_F(CommandLine, HelpPrintsTheUsageRunsTheClosingStepsAndLeavesTheJobAlone)
{
    for (const wchar_t* help : {L"-help", L"/help", L"-HELP", L"/Help"}) {
        SCOPED_TRACE(Narrow(help));
        NextCase();
        const std::wstring payload = MakePayload(L"agent.msi");
        auto written = WriteNoAgentJob(payload);
        JobRun job = RunCompleted({help});

        // Behind the line that announces it, the usage text and nothing else.
        const std::string announce = "App::ParseCmdline: invoking help\r\n";
        size_t at = job.run.out.find(announce);
        ASSERT_NE(at, std::string::npos) << job.run.out;
        EXPECT_EQ(job.run.out.substr(at + announce.size(), UsageText().size()), UsageText()) << job.run.out;
        EXPECT_EQ(CountOf(job.run.out, "[-help] [-force]"), 1u) << job.run.out;
        // The tool log never holds it.
        ASSERT_TRUE(job.log.has_value());
        EXPECT_EQ(job.log->text.find("[-help] [-force]"), std::string::npos) << job.log->text;
        EXPECT_EQ(job.log->text.find("usage help"), std::string::npos) << job.log->text;

        EXPECT_TRUE(HasLinesInOrder(Messages(job), {CommandLineLine({help}), "App::ParseCmdline: invoking help"}));
        ExpectStoppedBeforeTheJob(job, written);
        EXPECT_TRUE(PathExists(payload));
    }
}

TEST_F(CommandLine, HelpStopsTheParsingButTheSwitchesBeforeItAreTaken)
{
    const std::wstring payload = MakePayload(L"agent.msi");
    auto written = WriteNoAgentJob(payload);
    const std::vector<std::wstring> args = {L"-force", L"-help", L"-bogus", L"-test"};
    JobRun job = RunCompleted(args);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {CommandLineLine(args), "App::ParseCmdline: force launch enabled",
                                                "App::ParseCmdline: invoking help"}));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::ParseCmdline: unknown argument"));
    EXPECT_TRUE(LacksLine(Messages(job), "App::ParseCmdline: test mode enabled"));
    EXPECT_NE(job.run.out.find(UsageText()), std::string::npos) << job.run.out;
    ExpectStoppedBeforeTheJob(job, written);
}

// --- -force ---------------------------------------------------------------------

// Installed 8.2.0, offered 8.1.0: without force nothing is installed.
TEST_F(CommandLine, WithoutForceAnOlderInstallerIsNotRun)
{
    const std::wstring installer = WriteOlderInstallerJob().installer;
    JobRun job = RunCompleted({});
    EXPECT_EQ(-4, job.run.exitCode);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "ToviAgent::GetVersion: installedVersion: 8.2.0",
        "ToviAgent::GetVersion: updateVersion: 8.1.0 updateFileName: " + Narrow(installer),
        "App::CheckVersion: CompVersion does not require to upgrade",
        "Agent::UpdateAvailable: no need to upgrade",
        "App::CheckVersion: Update not available",
        "Util_UpdateDone: agent update result: ERR_NOAGENT",
    }));
    EXPECT_TRUE(LacksLine(Messages(job), "=== Update ==="));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Agent::LaunchHelper:"));
    EXPECT_FALSE(StandInCommandLine(installer).has_value());
    EXPECT_TRUE(HasWrittenValues(key_, {"DONE", "OK", Narrow(installer), "", "", "0"}));
    ExpectOneEntry(job, {"job", "TOVI", Narrow(installer), "8.1.0", "DONE", 0, "OK"});
}

// The same job with "/FORCE": the older installer is run.
TEST_F(CommandLine, UpperCaseSlashForceRunsAnOlderInstaller)
{
    const std::wstring installer = WriteOlderInstallerJob().installer;
    JobRun job = RunCompleted({L"/FORCE"});
    const std::string launched = Narrow(Quoted(installer)) + " /s /v /qn TQM_SKIP_ADD_LDAP_MACHINE_ENTRY=1";

    // The desktop agent's run ends -1 whatever its installer did.
    EXPECT_EQ(-1, job.run.exitCode);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        CommandLineLine({L"/FORCE"}),
        "App::ParseCmdline: force launch enabled",
        "ToviAgent::GetVersion: installedVersion: 8.2.0",
        "App::CheckVersion: CompVersion does not require to upgrade",
        "=== Update ===",
        "Agent::LaunchHelper: launching: " + launched,
        "Util_UpdateDone: agent update result: ERR_FAILURE",
    }));
    EXPECT_TRUE(LacksLine(Messages(job), "App::CheckVersion: Update not available"));
    EXPECT_TRUE(LacksLine(Messages(job), "App::ParseCmdline: test mode enabled"));
    EXPECT_EQ(StandInCommandLine(installer), launched);
    // A failed update keeps its state for the management side; the payload goes.
    EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "FAILURE", Narrow(installer), "", "", "0"}));
    EXPECT_FALSE(PathExists(installer));

    std::optional<std::vector<JsonValue>> entries = TelemetryEntries();
    ASSERT_TRUE(entries.has_value());
    ASSERT_EQ(entries->size(), 1u);
    JsonValue entry = (*entries)[0];
    // The version found on the machine travels with a run that launched.
    const JsonValue* from = entry.Find("fromVersion");
    ASSERT_NE(from, nullptr);
    EXPECT_EQ(from->text, "8.2.0");
    std::erase_if(entry.members, [](const auto& member) { return member.first == "fromVersion"; });
    EXPECT_TRUE(IsEntry(entry, {"job", "TOVI", Narrow(installer), "8.1.0", "UPDATING", 0, "FAILURE"}, job.startedAt,
                        job.endedAt));
}

TEST_F(CommandLine, MixedCaseForceAndTestLogTheLaunchAndRunNothing)
{
    const std::wstring installer = WriteOlderInstallerJob().installer;
    const std::vector<std::wstring> args = {L"-Force", L"/TEST"};
    JobRun job = RunCompleted(args);
    EXPECT_EQ(-1, job.run.exitCode);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        CommandLineLine(args),
        "App::ParseCmdline: force launch enabled",
        "App::ParseCmdline: test mode enabled",
        "=== Update ===",
        "Agent::LaunchHelper: launching: " + Narrow(Quoted(installer)) +
            " /s /v /qn TQM_SKIP_ADD_LDAP_MACHINE_ENTRY=1",
    }));
    // Test mode: the line is the only trace, no process starts.
    EXPECT_FALSE(StandInCommandLine(installer).has_value());
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::Update: no Launch"));
    EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "FAILURE", Narrow(installer), "", "", "0"}));
}

TEST_F(CommandLine, ForcefullyIsAnUnknownArgumentAndEndsTheRunBeforeTheJob)
{
    for (const wchar_t* arg : {L"-forcefully", L"/Forcefully", L"-forc", L"-", L"/"}) {
        SCOPED_TRACE(Narrow(arg));
        NextCase();
        const auto [installer, written] = WriteOlderInstallerJob();
        JobRun job = RunCompleted({arg});
        EXPECT_TRUE(HasLinesInOrder(Messages(job), {
            CommandLineLine({arg}),
            "App::ParseCmdline: unknown argument 1: [" + Narrow(arg) + "]",
        }));
        EXPECT_TRUE(LacksLine(Messages(job), "App::ParseCmdline: force launch enabled"));
        EXPECT_TRUE(LacksLine(Messages(job), "=== Check Version ==="));
        EXPECT_FALSE(StandInCommandLine(installer).has_value());
        EXPECT_TRUE(PathExists(installer));
        EXPECT_EQ(job.run.out.find("[-help] [-force]"), std::string::npos);
        ExpectStoppedBeforeTheJob(job, written);
    }
}

TEST_F(CommandLine, TestThenBadThenForceStopsAtTheBadToken)
{
    const auto [installer, written] = WriteOlderInstallerJob();
    const std::vector<std::wstring> args = {L"-test", L"-bad", L"-force"};
    JobRun job = RunCompleted(args);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        CommandLineLine(args),
        "App::ParseCmdline: test mode enabled",
        "App::ParseCmdline: unknown argument 2: [-bad]",
    }));
    EXPECT_TRUE(LacksLine(Messages(job), "App::ParseCmdline: force launch enabled"));
    EXPECT_FALSE(StandInCommandLine(installer).has_value());
    ExpectStoppedBeforeTheJob(job, written);
}

TEST_F(CommandLine, EmptyQuotedArgumentEndsTheArgumentsUnread)
{
    // The tokens end at the first empty one, so the unknown switch behind it
    // is never seen and the run goes on.
    const std::wstring payload = MakePayload(L"agent.msi");
    WriteNoAgentJob(payload);
    JobRun job = RunCompleted({L"", L"-bogus"});
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::ParseCmdline: unknown argument"));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::ParseCmdline: version override filename"));
    ExpectNoAgentRunDone(job, payload);
}

// --- Version override file --------------------------------------------------------

TEST_F(CommandLine, OverrideFileWithCrLfLineEndsGivesTrimmedValues)
{
    PutOverrideFile(L"override.txt",
                    "Tovi.version=8.1.0\r\nTovi.filename=Kesmarc-Zenthra-Agent-x86_64-8.1.0-1.exe\r\n");
    const std::wstring payload = MakePayload(L"agent.msi");
    WriteNoAgentJob(payload);
    JobRun job = RunCompleted({L"override.txt"});
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        CommandLineLine({L"override.txt"}),
        "App::ParseCmdline: version override filename: [override.txt]",
        "App::ParseOverrideFile: version for Tovi: [8.1.0]",
        "App::ParseOverrideFile: filename for Tovi: [Kesmarc-Zenthra-Agent-x86_64-8.1.0-1.exe]",
        "UtilGetActiveUpdate: Update key: job",
    }));
    ExpectNoAgentRunDone(job, payload);
}

TEST_F(CommandLine, KeyWithABlankBeforeTheEqualsSignIsNotTheVersion)
{
    PutOverrideFile(L"override.txt", "Tovi.version = 8.1.0\r\nTovi.filename=\t setup-8.1.0.exe \t\r\n");
    const std::wstring payload = MakePayload(L"agent.msi");
    WriteNoAgentJob(payload);
    JobRun job = RunCompleted({L"override.txt"});
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::ParseOverrideFile: version for"));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::ParseOverrideFile: version override file is empty"));
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {"App::ParseOverrideFile: filename for Tovi: [setup-8.1.0.exe]"}));
    ExpectNoAgentRunDone(job, payload);
}

TEST_F(CommandLine, Utf16OverrideFilesAreReadWithAndWithoutMark)
{
    const std::wstring text = L"tovi.VERSION=8.1.0-\u00e9\ntovi.FileName=Zenthra \u20ac.exe\n";
    for (bool withMark : {true, false}) {
        SCOPED_TRACE(withMark ? "with FF FE" : "without a mark");
        NextCase();
        PutOverrideFile(L"override.txt", Utf16Le(text, withMark));
        const std::wstring payload = MakePayload(L"agent.msi");
        WriteNoAgentJob(payload);
        JobRun job = RunCompleted({L"override.txt"});
        EXPECT_TRUE(HasLinesInOrder(Messages(job), {
            "App::ParseOverrideFile: version for Tovi: [" + Narrow(L"8.1.0-\u00e9") + "]",
            "App::ParseOverrideFile: filename for Tovi: [" + Narrow(L"Zenthra \u20ac.exe") + "]",
        }));
        ExpectNoAgentRunDone(job, payload);
    }
}

TEST_F(CommandLine, Utf8OverrideFileWithMultiByteCharactersIsRead)
{
    PutOverrideFile(L"override.txt",
                    Narrow(L"Tovi.version=8.1.0-\u00df\u00e4\nTovi.filename=Agent-\u20ac-\u00fc.exe\n"));
    const std::wstring payload = MakePayload(L"agent.msi");
    WriteNoAgentJob(payload);
    JobRun job = RunCompleted({L"override.txt"});
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "App::ParseOverrideFile: version for Tovi: [" + Narrow(L"8.1.0-\u00df\u00e4") + "]",
        "App::ParseOverrideFile: filename for Tovi: [" + Narrow(L"Agent-\u20ac-\u00fc.exe") + "]",
    }));
    ExpectNoAgentRunDone(job, payload);
}

TEST_F(CommandLine, Utf8FileWithAMarkIsRead)
{
    // Only the UTF-16 mark is taken off; the UTF-8 one stays in front of the
    // first key, where the key comparison gives it no weight.
    PutOverrideFile(L"override.txt", "\xEF\xBB\xBFTovi.version=8.1.0\nTovi.filename=setup.exe\n");
    const std::wstring payload = MakePayload(L"agent.msi");
    WriteNoAgentJob(payload);
    JobRun job = RunCompleted({L"override.txt"});
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "App::ParseOverrideFile: version for Tovi: [8.1.0]",
        "App::ParseOverrideFile: filename for Tovi: [setup.exe]",
    }));
    ExpectNoAgentRunDone(job, payload);
}

TEST_F(CommandLine, QuotedFileNameWithBlanksIsOneFile)
{
    PutOverrideFile(L"my override.txt", "Tovi.version=8.1.0\n");
    const std::wstring payload = MakePayload(L"agent.msi");
    WriteNoAgentJob(payload);
    JobRun job = RunCompleted({L"my override.txt"});
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        CommandLineLine({L"my override.txt"}),
        "App::ParseCmdline: version override filename: [my override.txt]",
        "App::ParseOverrideFile: version for Tovi: [8.1.0]",
    }));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::ParseOverrideFile: unable to read"));
    ExpectNoAgentRunDone(job, payload);
}

TEST_F(CommandLine, FileIsLookedForUnderTheWorkspaceEvenWhenGivenAsAFullPath)
{
    // The file exists at the full path given, but the tool looks below its
    // workspace and finds nothing there.
    const std::wstring elsewhere = JoinPath(NewFolder(L"elsewhere"), L"override.txt");
    WriteFileBytes(elsewhere, "Tovi.version=8.1.0\n");
    const std::wstring payload = MakePayload(L"agent.msi");
    WriteNoAgentJob(payload);
    JobRun job = RunCompleted({elsewhere});
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "App::ParseCmdline: version override filename: [" + Narrow(elsewhere) + "]",
        "App::ParseOverrideFile: unable to read from: [" + Narrow(elsewhere) + "]",
    }));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::ParseOverrideFile: version for"));
    ExpectNoAgentRunDone(job, payload);
}

TEST_F(CommandLine, MissingAndEmptyFilesAreLoggedAndTheRunGoesOn)
{
    PutOverrideFile(L"empty.txt", "");
    PutOverrideFile(L"blank-lines.txt", "\n\n\n");
    const std::wstring payload = MakePayload(L"agent.msi");
    WriteNoAgentJob(payload);
    const std::vector<std::wstring> args = {L"missing.txt", L"empty.txt", L"blank-lines.txt", L"-test"};
    JobRun job = RunCompleted(args);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "App::ParseCmdline: version override filename: [missing.txt]",
        "App::ParseOverrideFile: unable to read from: [missing.txt]",
        "App::ParseCmdline: version override filename: [empty.txt]",
        "App::ParseOverrideFile: version override file is empty",
        "App::ParseCmdline: version override filename: [blank-lines.txt]",
        "App::ParseOverrideFile: version override file is empty",
        "App::ParseCmdline: test mode enabled",
    }));
    ExpectNoAgentRunDone(job, payload);
}

TEST_F(CommandLine, EachFileIsReadAsItComesAndTheJobStillBuildsTheAgent)
{
    // Both files are read in turn, the later giving the last word; then the
    // desktop agent's job replaces both values with its own.
    PutOverrideFile(L"first.txt", "Tovi.version=7.0.0\nTovi.filename=first.exe\n");
    PutOverrideFile(L"second.txt", "Tovi.version=9.9.9\n");
    const std::wstring installer = JoinPath(Workspace(), L"setup-0.exe");
    WriteToviJob(L"8.3.0", installer);
    const std::vector<std::wstring> args = {L"first.txt", L"-test", L"second.txt"};
    JobRun job = RunCompleted(args);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "App::ParseOverrideFile: version for Tovi: [7.0.0]",
        "App::ParseOverrideFile: filename for Tovi: [first.exe]",
        "App::ParseCmdline: test mode enabled",
        "App::ParseOverrideFile: version for Tovi: [9.9.9]",
        "Agent::Agent: override version: 8.3.0",
        "Agent::Agent: override filename: " + Narrow(installer),
        "Agent::LaunchHelper: launching: " + Narrow(Quoted(installer)) +
            " /s /v /qn TQM_SKIP_ADD_LDAP_MACHINE_ENTRY=1",
    }));
    EXPECT_TRUE(LacksLine(Messages(job), "Agent::Agent: override version: 9.9.9"));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Agent::Agent: override filename: first.exe"));
    EXPECT_EQ(-1, job.run.exitCode);
}

TEST_F(CommandLine, EmptyJobValuesWipeWhatTheOverrideFileGave)
{
    // The override names an installer that is there; the job names none, and
    // its empty values win: no installer is found and nothing runs.
    PutOverrideFile(L"override.txt", "Tovi.version=9.0.0\nTovi.filename=setup-0.exe\n");
    const std::wstring installer = PlaceStandIn(Workspace(), L"setup-0.exe");
    WriteToviJob(L"", L"");
    JobRun job = RunCompleted({L"override.txt", L"-test"});
    EXPECT_EQ(-4, job.run.exitCode);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "App::ParseOverrideFile: version for Tovi: [9.0.0]",
        "App::ParseOverrideFile: filename for Tovi: [setup-0.exe]",
        "ToviAgent::GetVersion: update version not found",
        "Agent::UpdateAvailable: update installer empty",
        "App::CheckVersion: Update not available",
    }));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Agent::Agent:"));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Agent::LaunchHelper:"));
    EXPECT_TRUE(PathExists(installer));
    EXPECT_TRUE(HasWrittenValues(key_, {"DONE", "OK", "", "", "", "0"}));
}

}  // namespace
}  // namespace it
