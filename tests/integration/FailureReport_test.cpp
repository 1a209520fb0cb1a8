// A failed install reported from the installer's verbose log: the summary
// file beside the tool log, "ERRORSUMMARYFILE" and "ERRORDETAILS" in the
// job's key, the failed custom action in the tool log and its words in
// "ERRORDESC". The installer is the lab's stand-in: it leaves a log in the
// Windows Installer's format where "/l*v" asks (Wine's msiexec writes its
// own format) and exits with the code of a real failure.
#include "JobFixture.h"
#include "MsiLab.h"
#include "StandInInstaller.h"
#include "fakes/VerboseMsiLog.h"

namespace it {
namespace {

using msilog::VerboseLog;

const wchar_t* kToviInstaller = L"Kesmarc-Zenthra-Agent-x86_64-8.14.0-1.exe";

// The window the report takes from the failed deferred action below.
const std::vector<std::wstring> kWindow = {
    VerboseLog::engine(L"Executing op: CustomActionSchedule(Action=CA_StartService,ActionType=3073,Source="
                       L"BinaryData,Target=Install,CustomActionData=INSTALLDIR=C:\\Program Files\\Agent\\)\r"),
    VerboseLog::engine(L"Invoking remote custom action. DLL: C:\\Windows\\Installer\\MSI4F2A.tmp, Entrypoint: "
                       L"CA_StartServiceEntry\r"),
    L"CA_StartService: the Agent service did not start: access denied.\r",
    L"CustomAction CA_StartService returned actual error code 1603 (note this may not be 100% accurate if "
    L"translation happened inside sandbox)\r",
    L"Action ended 12:01:01: InstallExecute. Return value 3.\r",
};
const std::string kMessage =
    "CA_StartService: the Agent service did not start: access deniedCustomAction CA_StartService returned actual "
    "error code 1603 ";

class FailureReport : public WithoutLabProducts<NoRestartJobTest> {
protected:
    const std::wstring key_ = JobKey(kNewRoot, L"job");

    // A verbose log of thousands of lines whose deferred service action fails.
    static std::string FailedInstallLog()
    {
        VerboseLog log;
        log.engineLines(1500);
        for (int i = 0; i < 60; ++i)
            log.succeeds(L"Action" + std::to_wstring(i)).engineLines(20);
        log.customActionFails(L"CA_StartService", {L"CA_StartService: the Agent service did not start: access denied."},
                              true);
        log.rollbackAndEnd();
        return log.fileBytes();
    }

    // The stand-in under `name` in the workspace, exiting with `code` and
    // leaving `log` where its command line's /l*v says.
    std::wstring PlaceFailingInstaller(const std::wstring& name, DWORD code, const std::optional<std::string>& log)
    {
        std::wstring installer = PlaceStandIn(Workspace(), name);
        SetStandInExitCode(installer, code);
        if (log)
            WriteFileBytes(installer + L".verboselog", *log);
        return installer;
    }

    std::wstring InstallerLogPath() { return JoinPath(NewFolder(L"installer-logs"), L"agent install.log"); }

    // A GenericAgent job for the installer, with its verbose log asked for.
    void WriteGenericJob(const std::wstring& installer, const std::wstring& logPath, bool withLogName = true)
    {
        std::vector<std::pair<std::wstring, std::wstring>> values = {
            {L"AGENT", L"OTHER"},       {L"VERSION", L"2.0.0"},       {L"ARCH", L"64-BitAgent"},
            {L"UNC_PATH", L"\\\\fileserver\\share\\setup.exe"},    {L"STATE", L"UPDATING"},
            {L"RESULT", L"OK"},         {L"FILENAME", installer},    {L"RETRY", L"0"},
            {L"OPTIONS", L"/l*v \"" + logPath + L"\""}};
        if (withLogName)
            values.emplace_back(L"AGENTLOGFILENAME", logPath);
        WriteJob(key_, values);
    }

    // The summary file a run named in ERRORSUMMARYFILE, which must lie in
    // the tool log's folder.
    std::wstring SummaryFile()
    {
        std::optional<std::string> path = ReadText(key_, L"ERRORSUMMARYFILE");
        if (!path)
            return std::wstring();
        return Wide(*path);
    }

    // ERRORDETAILS as the text of its data, terminators included.
    std::optional<std::wstring> Details()
    {
        std::optional<RegValue> value = ReadValue(key_, L"ERRORDETAILS");
        if (!value || value->type != REG_MULTI_SZ)
            return std::nullopt;
        return std::wstring(reinterpret_cast<const wchar_t*>(value->data.data()), value->data.size() / 2);
    }

    static std::wstring MultiString(const std::vector<std::wstring>& lines)
    {
        std::wstring data;
        for (const std::wstring& line : lines)
            data += line + L'\0';
        return data + L'\0';
    }

    // The window in the machine's code page, each line behind its CR.
    static std::string SummaryBytes(const std::vector<std::wstring>& lines)
    {
        std::string bytes;
        for (const std::wstring& line : lines)
            bytes += std::string(line.begin(), line.end()) + "\r\n";
        return bytes;
    }
};

}  // namespace

TEST_F(FailureReport, FailedDeferredActionOfAGenericInstallIsReportedEverywhere)
{
    const std::wstring logPath = InstallerLogPath();
    const std::wstring installer = PlaceFailingInstaller(L"setup.exe", 1603, FailedInstallLog());
    WriteGenericJob(installer, logPath);

    JobRun job = RunExpecting(-7);

    const std::string desc = ExitCodeText(1603) + " - " + kMessage;
    EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "FAILURE", Narrow(installer), "ERROR_INSTALL_FAILURE", desc, "1"}));

    // The summary lies beside the tool log and holds the window.
    const std::wstring summary = SummaryFile();
    ASSERT_FALSE(summary.empty());
    ASSERT_TRUE(job.log.has_value());
    const std::wstring logFolder = job.log->path.substr(0, job.log->path.find_last_of(L'\\'));
    EXPECT_EQ(logFolder, summary.substr(0, summary.find_last_of(L'\\')));
    EXPECT_EQ(0u, summary.find(logFolder + L"\\MSIErrorSummary_")) << Narrow(summary);
    EXPECT_EQ(std::optional<std::string>(SummaryBytes(kWindow)), ReadFileBytes(summary));
    EXPECT_EQ(std::optional<std::wstring>(MultiString(kWindow)), Details());

    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "App::Update: no Launch",
        "WriteFailedCustomActionDetailsToRegistry:",
        "WriteFailedCustomActionDetailsToRegistry: INFO: MSI error log file name : " + Narrow(logPath) + " ",
        "FetchErrorLines: Opened MSI log file - " + Narrow(logPath) + " ",
        "WriteFailedCustomActionDetailsToRegistry: INFO: MSI - Failed custom action name : CA_StartService ",
        "WriteFailedCustomActionDetailsToRegistry: INFO: MSI - Failed custom action error : " + kMessage + " ",
        "WriteFailedCustomActionDetailsToRegistry: INFO: MSI error summary log file name : " + Narrow(summary) + " ",
        "WriteFailedCAToErrorSummary: Successfully wrote 5 error entries to summary file",
        "App::Update: Error code and description: ERROR_INSTALL_FAILURE, " + desc,
    }));
    EXPECT_TRUE(LacksLine(Messages(job), "App::Update: ERROR: Failed to write MSI error details to registry"));
    ExpectOneEntry(job, {"job", "OTHER", Narrow(installer), "2.0.0", "UPDATING", 1, "FAILURE",
                         "ERROR_INSTALL_FAILURE", desc});
}

TEST_F(FailureReport, InstallersOwnErrorKeepsTheDescriptionAndIsRemovedAtTheEnd)
{
    const std::wstring logPath = InstallerLogPath();
    const std::wstring installer = PlaceFailingInstaller(L"setup.exe", 1603, FailedInstallLog());
    WriteGenericJob(installer, logPath);
    WriteString(std::wstring(kNewRoot) + L"\\Agent", L"LastInstallError", L"service start refused");

    RunExpecting(-7);

    const std::string desc = ExitCodeText(1603) + " - service start refused";
    EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "FAILURE", Narrow(installer), "ERROR_INSTALL_FAILURE", desc, "1"}));
    EXPECT_FALSE(SummaryFile().empty());
    EXPECT_TRUE(Details().has_value());
    EXPECT_FALSE(ReadValue(std::wstring(kNewRoot) + L"\\Agent", L"LastInstallError").has_value());
}

TEST_F(FailureReport, WithoutTheLogsNameThereIsNoReport)
{
    const std::wstring logPath = InstallerLogPath();
    const std::wstring installer = PlaceFailingInstaller(L"setup.exe", 1603, FailedInstallLog());
    WriteGenericJob(installer, logPath, false);

    JobRun job = RunExpecting(-7);

    EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "FAILURE", Narrow(installer), "ERROR_INSTALL_FAILURE",
                                        ExitCodeText(1603), "1"}));
    EXPECT_FALSE(ReadValue(key_, L"ERRORSUMMARYFILE").has_value());
    EXPECT_FALSE(ReadValue(key_, L"ERRORDETAILS").has_value());
    EXPECT_TRUE(FindFilesRecursive(logsDir_, L"MSIErrorSummary_*").empty());
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {"WriteFailedCustomActionDetailsToRegistry:",
                                                "WriteFailedCustomActionDetailsToRegistry: INFO: MSI error log file "
                                                "name not set"}));
}

TEST_F(FailureReport, LogThatNeverAppearedGivesAnEmptySummaryAndASingleZero)
{
    const std::wstring logPath = InstallerLogPath();
    const std::wstring installer = PlaceFailingInstaller(L"setup.exe", 1603, std::nullopt);
    WriteGenericJob(installer, logPath);

    JobRun job = RunExpecting(-7);

    const std::string desc = ExitCodeText(1603) + " - (null)";
    EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "FAILURE", Narrow(installer), "ERROR_INSTALL_FAILURE", desc, "1"}));
    const std::wstring summary = SummaryFile();
    ASSERT_FALSE(summary.empty());
    EXPECT_EQ(std::optional<std::string>(""), ReadFileBytes(summary));
    EXPECT_EQ(std::optional<std::wstring>(std::wstring(1, L'\0')), Details());
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "FetchErrorLines: ERROR: Failed to open and read MSI log file - " + Narrow(logPath) + " ",
        "WriteFailedCustomActionDetailsToRegistry: INFO: MSI - Failed custom action name : (null) ",
        "WriteFailedCAToErrorSummary: WARNING: Error summary is empty, creating empty log file",
    }));
}

TEST_F(FailureReport, LogFolderThatCannotBeMadeFailsTheReportButNotTheRun)
{
    // "InstallLogsDir" below a folder that doesn't exist: neither the tool
    // log nor the summary can be written, and only the console tells.
    WriteString(kNewRoot, L"InstallLogsDir", JoinPath(sandbox_, L"no\\such\\folder"));
    const std::wstring logPath = InstallerLogPath();
    const std::wstring installer = PlaceFailingInstaller(L"setup.exe", 1603, FailedInstallLog());
    WriteGenericJob(installer, logPath);

    JobRun job = RunJob(120000);

    EXPECT_EQ(-7, job.run.exitCode);
    // The report stopped before the description could take the message.
    const std::string desc = ExitCodeText(1603);
    EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "FAILURE", Narrow(installer), "ERROR_INSTALL_FAILURE", desc, "1"}));
    EXPECT_FALSE(ReadValue(key_, L"ERRORSUMMARYFILE").has_value());
    EXPECT_FALSE(ReadValue(key_, L"ERRORDETAILS").has_value());
    EXPECT_FALSE(LacksLineStartingWith(job.console, "WriteFailedCAToErrorSummary: ERROR: Failed to open error summary "
                                                    "file - "));
    EXPECT_TRUE(HasLinesInOrder(job.console, {
        "WriteFailedCustomActionDetailsToRegistry: ERROR: Failed to write CA details to error summary file ",
        "App::Update: ERROR: Failed to write MSI error details to registry",
        "App::Update: Error code and description: ERROR_INSTALL_FAILURE, " + desc,
        "UtilManageUpdateState: Update key: job new state: UPDATING result: FAILURE",
    }));
}

TEST_F(FailureReport, LogOfAQuarterGigabyteWithTheFailureNearTheEndIsReadWhole)
{
    // A megabyte of the engine's chatter, again and again, then the failure.
    VerboseLog chatter;
    chatter.engineLines(1);
    const std::string line = msilog::Utf16File(chatter.text(), false);
    std::string block;
    while (block.size() + line.size() <= (1u << 20))
        block += line;
    std::string log = "\xFF\xFE";
    log.reserve(std::size_t(257) << 20);
    while (log.size() < (std::size_t(255) << 20))
        log += block;
    std::string tail = FailedInstallLog();
    log += tail.substr(2);  // without its byte order mark
    ASSERT_GT(log.size(), std::size_t(255) << 20);

    const std::wstring logPath = InstallerLogPath();
    const std::wstring installer = PlaceFailingInstaller(L"setup.exe", 1603, log);
    WriteGenericJob(installer, logPath);

    RunExpecting(-7);

    EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "FAILURE", Narrow(installer), "ERROR_INSTALL_FAILURE",
                                        ExitCodeText(1603) + " - " + kMessage, "1"}));
    EXPECT_EQ(std::optional<std::wstring>(MultiString(kWindow)), Details());
}

TEST_F(FailureReport, AgentsOwnInstallerEndingIn1638IsReportedToo)
{
    const std::wstring logPath = InstallerLogPath();
    const std::wstring installer = PlaceFailingInstaller(kToviInstaller, 1638, FailedInstallLog());
    WriteJob(key_, {{L"AGENT", L"TOVI"},
                    {L"VERSION", L"8.14.0"},
                    {L"ARCH", L"64-BitAgent"},
                    {L"UNC_PATH", std::wstring(L"\\\\fileserver\\share\\") + kToviInstaller},
                    {L"STATE", L"UPDATING"},
                    {L"RESULT", L"OK"},
                    {L"RETRY", L"0"},
                    {L"OPTIONS", L"/l*v \"" + logPath + L"\""},
                    {L"AGENTLOGFILENAME", logPath}});

    JobRun job = RunExpecting(-1, {}, 120000);

    const std::string desc = ExitCodeText(1638) + " - " + kMessage;
    EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "FAILURE", "", "1638", desc, "0"}));
    EXPECT_EQ(std::optional<std::string>(SummaryBytes(kWindow)), ReadFileBytes(SummaryFile()));
    EXPECT_EQ(std::optional<std::wstring>(MultiString(kWindow)), Details());
    EXPECT_TRUE(ContainsMessage(Messages(job), "WriteFailedCustomActionDetailsToRegistry: INFO: MSI - Failed custom "
                                               "action name : CA_StartService "));
}

}  // namespace it
