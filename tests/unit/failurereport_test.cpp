// The report of a failed install: the summary file beside the tool log, and
// "ERRORSUMMARYFILE" and "ERRORDETAILS" in the job's key.
#include "diagnostics/FailureReport.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fakes/FakePlatform.h"
#include "fakes/ScopedServices.h"
#include "fakes/VerboseMsiLog.h"
#include "update_test_support.h"
#include "update/UpdateRecord.h"

using CORE::corestring;
using fakes::FakePlatform;
using fakes::whole;
using msilog::VerboseLog;

namespace {

const wchar_t* kJobKey = L"Software\\Tarvelle\\Zenthra\\Agent\\Update\\Job1";
const wchar_t* kAgentKey = L"Software\\Tarvelle\\Zenthra\\Agent";
const wchar_t* kInstallerLog = L"C:\\logs\\agent-install.log";
// The fake clock's moment: 2026-11-13 23:35:14.
const wchar_t* kSummary = L"D:\\Logs\\updatetool\\MSIErrorSummary_20261113233514.log";
const wchar_t* kDescription = L"1603 (Fatal error during installation.)";

class FailureReportTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        g_updateRecord.sUpdateKey = L"Job1";
        g_updateRecord.sErrorDesc = kDescription;
        p.keys.putString(HKEY_LOCAL_MACHINE, kJobKey, L"STATE", L"UPDATING");
        p.keys.putString(HKEY_LOCAL_MACHINE, L"Software\\Tarvelle\\Zenthra", L"InstallLogsDir", L"D:\\Logs");
        p.files.addDirectory(L"D:\\Logs\\updatetool");
    }
    void useLog(const std::wstring& text)
    {
        p.keys.putString(HKEY_LOCAL_MACHINE, kJobKey, L"AGENTLOGFILENAME", kInstallerLog);
        p.files.addFile(kInstallerLog, msilog::Utf16File(text));
    }
    // The window of a deferred custom action failing, and its message.
    void useDeferredFailure()
    {
        VerboseLog log;
        log.engineLines(200).succeeds(L"InstallFiles");
        log.customActionFails(L"CA_Service", {L"CA_Service: service Agent did not start."}, true);
        log.rollbackAndEnd();
        p.keys.putString(HKEY_LOCAL_MACHINE, kJobKey, L"AGENTLOGFILENAME", kInstallerLog);
        p.files.addFile(kInstallerLog, log.fileBytes());
    }
    std::optional<fakes::FakeKeyStore::Value> value(const wchar_t* name) const
    {
        return p.keys.value(HKEY_LOCAL_MACHINE, kJobKey, name);
    }
    std::wstring details() const
    {
        std::optional<fakes::FakeKeyStore::Value> v = value(L"ERRORDETAILS");
        if (!v)
            return L"<none>";
        EXPECT_EQ(static_cast<DWORD>(REG_MULTI_SZ), v->type);
        return std::wstring(reinterpret_cast<const wchar_t*>(v->bytes.data()), v->bytes.size() / 2);
    }
    std::string summaryBytes() const
    {
        std::vector<unsigned char> bytes = p.files.bytesOf(kSummary);
        return std::string(bytes.begin(), bytes.end());
    }

    FakePlatform p;
};

const std::wstring kDeferredMessage =
    L"CA_Service: service Agent did not startCustomAction CA_Service returned actual error code 1603 ";

}  // namespace

// ---------------------------------------------------------------- the whole report

TEST_F(FailureReportTest, WithoutAnInstallerLogThereIsNothingToReport)
{
    EXPECT_TRUE(WriteFailedCustomActionDetailsToRegistry());
    EXPECT_EQ((std::vector<std::wstring>{L"WriteFailedCustomActionDetailsToRegistry:",
                                         L"WriteFailedCustomActionDetailsToRegistry: INFO: MSI error log file name not "
                                         L"set"}),
              p.logLines());
    EXPECT_FALSE(p.files.exists(kSummary));
    EXPECT_FALSE(value(L"ERRORSUMMARYFILE").has_value());
    EXPECT_FALSE(value(L"ERRORDETAILS").has_value());
    EXPECT_EQ(kDescription, whole(g_updateRecord.sErrorDesc));
}

TEST_F(FailureReportTest, FailedDeferredActionIsReportedEverywhere)
{
    useDeferredFailure();
    EXPECT_TRUE(WriteFailedCustomActionDetailsToRegistry());

    const std::wstring schedule = VerboseLog::engine(
        L"Executing op: CustomActionSchedule(Action=CA_Service,ActionType=3073,Source=BinaryData,Target=Install,"
        L"CustomActionData=INSTALLDIR=C:\\Program Files\\Agent\\)");
    const std::vector<std::wstring> window = {
        schedule + L"\r",
        VerboseLog::engine(L"Invoking remote custom action. DLL: C:\\Windows\\Installer\\MSI4F2A.tmp, Entrypoint: "
                           L"CA_ServiceEntry\r"),
        L"CA_Service: service Agent did not start.\r",
        L"CustomAction CA_Service returned actual error code 1603 (note this may not be 100% accurate if "
        L"translation happened inside sandbox)\r",
        L"Action ended 12:00:02: InstallExecute. Return value 3.\r",
    };

    // The summary: the window's lines in the default code page, each behind its own CR.
    std::string expectedSummary;
    for (const std::wstring& line : window)
        expectedSummary += std::string(line.begin(), line.end()) + "\r\n";
    EXPECT_EQ(expectedSummary, summaryBytes());

    // The registry: the file's path, and the lines with their CRs.
    EXPECT_EQ(std::optional<std::wstring>(kSummary),
              p.keys.stringValue(HKEY_LOCAL_MACHINE, kJobKey, L"ERRORSUMMARYFILE"));
    std::wstring expectedDetails;
    for (const std::wstring& line : window)
        expectedDetails += line + L'\0';
    expectedDetails += L'\0';
    EXPECT_EQ(expectedDetails, details());

    EXPECT_EQ(std::wstring(kDescription) + L" - " + kDeferredMessage, whole(g_updateRecord.sErrorDesc));

    const std::wstring tag = L"WriteFailedCustomActionDetailsToRegistry: ";
    std::vector<std::wstring> expectedLines = {
        L"WriteFailedCustomActionDetailsToRegistry:",
        tag + L"INFO: MSI error log file name : " + kInstallerLog + L" ",
        std::wstring(L"FetchErrorLines: Opened MSI log file - ") + kInstallerLog + L" ",
        L"GetFailedCustomActionName: INFO: GetFailedCustomActionName name - CA_Service ",
        tag + L"INFO: MSI - Failed custom action name : CA_Service ",
        L"GetFailedCAErrorMessage: INFO: GetFailedCAErrorMessage name - " + kDeferredMessage + L" ",
        tag + L"INFO: MSI - Failed custom action error : " + kDeferredMessage + L" ",
        tag + L"INFO: MSI error summary log file name : " + kSummary + L" ",
        L"WriteFailedCAToErrorSummary: Successfully wrote 5 error entries to summary file",
        std::wstring(L"WriteCADetailsToRegistry: INFO: WriteCADetailsToRegistry errorSummaryFile details written - ") +
            kSummary + L" ",
        L"WriteMultiStringToRegistry: INFO: Opened registry key - " + std::wstring(kJobKey),
        L"WriteMultiStringToRegistry: INFO: WriteMultiStringToRegistry succeeded  - " + window[0] + L" ",
        L"WriteCADetailsToRegistry: INFO: WriteCADetailsToRegistry error details written",
    };
    EXPECT_EQ(expectedLines, p.logLines());
}

TEST_F(FailureReportTest, UnreadableLogGivesAnEmptySummaryAndASingleZero)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kJobKey, L"AGENTLOGFILENAME", L"C:\\logs\\gone.log");
    EXPECT_TRUE(WriteFailedCustomActionDetailsToRegistry());
    EXPECT_TRUE(p.files.exists(kSummary));
    EXPECT_EQ("", summaryBytes());
    EXPECT_EQ(std::optional<std::wstring>(kSummary),
              p.keys.stringValue(HKEY_LOCAL_MACHINE, kJobKey, L"ERRORSUMMARYFILE"));
    EXPECT_EQ(std::wstring(1, L'\0'), details());
    EXPECT_EQ(std::wstring(kDescription) + L" - (null)", whole(g_updateRecord.sErrorDesc));
    EXPECT_TRUE(p.logHas(L"WriteFailedCustomActionDetailsToRegistry: INFO: MSI - Failed custom action name : (null) "));
    EXPECT_TRUE(p.logHas(L"WriteFailedCustomActionDetailsToRegistry: INFO: MSI - Failed custom action error : (null) "));
    EXPECT_TRUE(p.logHas(L"WriteFailedCAToErrorSummary: WARNING: Error summary is empty, creating empty log file"));
}

TEST_F(FailureReportTest, LastInstallErrorLeavesTheDescriptionAlone)
{
    useDeferredFailure();
    p.keys.putString(HKEY_LOCAL_MACHINE, kAgentKey, L"LastInstallError", L"CA said why");
    EXPECT_TRUE(WriteFailedCustomActionDetailsToRegistry());
    EXPECT_EQ(kDescription, whole(g_updateRecord.sErrorDesc));
    EXPECT_TRUE(value(L"ERRORDETAILS").has_value());
}

TEST_F(FailureReportTest, NullFirstLineIsSkippedInTheSummaryAndHidesTheRestOfTheDetails)
{
    useLog(L"\nabc Return value 3.\r\n");
    EXPECT_TRUE(WriteFailedCustomActionDetailsToRegistry());
    EXPECT_EQ("abc Return value 3.\r\r\n", summaryBytes());
    EXPECT_EQ(std::wstring(L"\0abc Return value 3.\r\0\0", 23), details());
    EXPECT_TRUE(p.logHas(L"WriteFailedCAToErrorSummary: WARNING: Skipping empty error string in summary"));
    // Skipped lines count among those written.
    EXPECT_TRUE(p.logHas(L"WriteFailedCAToErrorSummary: Successfully wrote 2 error entries to summary file"));
    // What prints of the data ends at its first zero.
    EXPECT_TRUE(p.logHas(L"WriteMultiStringToRegistry: INFO: WriteMultiStringToRegistry succeeded  -  "));
}

TEST_F(FailureReportTest, LineOfOnlyACrIsWrittenToTheSummary)
{
    useLog(L"first\r\n\r\nlast Return value 3.\r\n");
    EXPECT_TRUE(WriteFailedCustomActionDetailsToRegistry());
    EXPECT_EQ("first\r\r\n\r\r\nlast Return value 3.\r\r\n", summaryBytes());
}

TEST_F(FailureReportTest, SummaryFolderThatCannotBeWrittenFailsTheReportBeforeTheRegistry)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, L"Software\\Tarvelle\\Zenthra", L"InstallLogsDir", L"D:\\NoSuchFolder");
    useDeferredFailure();
    EXPECT_FALSE(WriteFailedCustomActionDetailsToRegistry());
    const std::wstring path = L"D:\\NoSuchFolder\\updatetool\\MSIErrorSummary_20261113233514.log";
    EXPECT_TRUE(p.logHas(L"WriteFailedCAToErrorSummary: ERROR: Failed to open error summary file - " + path));
    EXPECT_EQ(L"WriteFailedCustomActionDetailsToRegistry: ERROR: Failed to write CA details to error summary file ",
              p.logLines().back());
    EXPECT_FALSE(value(L"ERRORSUMMARYFILE").has_value());
    EXPECT_FALSE(value(L"ERRORDETAILS").has_value());
    EXPECT_EQ(kDescription, whole(g_updateRecord.sErrorDesc));
}

TEST_F(FailureReportTest, JobKeyThatCannotBeWrittenFailsTheRegistryPartAndKeepsTheSummary)
{
    useDeferredFailure();
    update_test::RecordingKeys keys(p.keys);
    keys.refuseWriteAccess = true;
    platform::Services services = platform::services();
    services.keys = &keys;
    fakes::ScopedServices scope(services);
    EXPECT_FALSE(WriteFailedCustomActionDetailsToRegistry());
    EXPECT_TRUE(p.hasLineStartingWith(L"WriteMultiStringToRegistry: ERROR: Failed to open registry key - " +
                                      std::wstring(kJobKey) + L" (error: 5 ("));
    EXPECT_EQ(L"WriteFailedCustomActionDetailsToRegistry: ERROR:  Failed to write custom action details to registry ",
              p.logLines().back());
    EXPECT_TRUE(p.files.exists(kSummary));
    EXPECT_FALSE(value(L"ERRORSUMMARYFILE").has_value());
}

TEST_F(FailureReportTest, DetailsFailingAloneIsNoFailureOfTheReport)
{
    useDeferredFailure();
    update_test::RecordingKeys keys(p.keys);
    keys.failValue = L"ERRORDETAILS";
    platform::Services services = platform::services();
    services.keys = &keys;
    fakes::ScopedServices scope(services);
    EXPECT_TRUE(WriteFailedCustomActionDetailsToRegistry());
    EXPECT_TRUE(value(L"ERRORSUMMARYFILE").has_value());
    EXPECT_FALSE(value(L"ERRORDETAILS").has_value());
    EXPECT_FALSE(p.logHas(L"WriteCADetailsToRegistry: INFO: WriteCADetailsToRegistry error details written"));
}

// ---------------------------------------------------------------- the summary file

TEST_F(FailureReportTest, SummaryIsInTheDefaultCodePage)
{
    // The lab's machines use Windows' Western European code page.
    ASSERT_EQ(1252u, ::GetACP());
    std::vector<corestring> lines = {corestring(L"caf\u00e9 \u20ac\r")};
    EXPECT_TRUE(WriteFailedCAToErrorSummary(lines, corestring(kSummary)));
    EXPECT_EQ("caf\xE9 \x80\r\r\n", summaryBytes());
}

TEST_F(FailureReportTest, CharacterWithoutANarrowFormFailsTheWrite)
{
    ASSERT_EQ(1252u, ::GetACP());
    std::vector<corestring> lines = {corestring(L"kept\r"), corestring(L"\u4e2d\u6587\r"), corestring(L"never\r")};
    EXPECT_FALSE(WriteFailedCAToErrorSummary(lines, corestring(kSummary)));
    EXPECT_EQ("kept\r\r\n", summaryBytes());
    EXPECT_TRUE(p.logHas(L"WriteFailedCAToErrorSummary: ERROR: Failed to write error line to summary file: "
                         L"\u4e2d\u6587\r"));
}

TEST_F(FailureReportTest, SummaryReplacesAnEarlierFile)
{
    p.files.addFile(kSummary, std::string("older and longer content"));
    EXPECT_TRUE(WriteFailedCAToErrorSummary({corestring(L"new")}, corestring(kSummary)));
    EXPECT_EQ("new\r\n", summaryBytes());
}

TEST_F(FailureReportTest, SummaryLineStopsAtItsFirstZero)
{
    EXPECT_TRUE(WriteFailedCAToErrorSummary({corestring(L"ab\0cd", 5)}, corestring(kSummary)));
    EXPECT_EQ("ab\r\n", summaryBytes());
}

// ---------------------------------------------------------------- the multi-string

TEST_F(FailureReportTest, MultiStringNeedsAnHklmPathAsWritten)
{
    for (const wchar_t* path : {L"HKCU\\Software\\X", L"hklm\\Software\\X", L"HKEY_local_machine\\Software\\X",
                                L"Software\\X", L""}) {
        SCOPED_TRACE(std::wstring(path));
        EXPECT_FALSE(WriteMultiStringToRegistry(corestring(path), corestring(L"V"), {corestring(L"a")}));
        EXPECT_EQ(L"WriteMultiStringToRegistry: ERROR: Unsupported hive in keyPath - " + std::wstring(path),
                  p.logLines().back());
    }
    EXPECT_TRUE(p.keys.opens().empty());
}

TEST_F(FailureReportTest, MultiStringOpensTheExistingKeyForWriting)
{
    EXPECT_TRUE(WriteMultiStringToRegistry(corestring(L"HKEY_LOCAL_MACHINE\\Software\\Tarvelle\\Zenthra\\Agent\\"
                                                      L"Update\\Job1"),
                                           corestring(L"LIST"), {corestring(L"one"), corestring(L"two")}));
    ASSERT_EQ(1u, p.keys.opens().size());
    EXPECT_EQ(L"open", p.keys.opens()[0].operation);
    EXPECT_EQ(static_cast<REGSAM>(0x20006), p.keys.opens()[0].rights);
    std::optional<fakes::FakeKeyStore::Value> v = p.keys.value(HKEY_LOCAL_MACHINE, kJobKey, L"LIST");
    ASSERT_TRUE(v.has_value());
    EXPECT_EQ(static_cast<DWORD>(REG_MULTI_SZ), v->type);
    EXPECT_EQ(std::wstring(L"one\0two\0\0", 9),
              std::wstring(reinterpret_cast<const wchar_t*>(v->bytes.data()), v->bytes.size() / 2));
    EXPECT_EQ(0u, p.keys.openHandleCount());
}

TEST_F(FailureReportTest, MultiStringOfAMissingKeyIsNotCreated)
{
    EXPECT_FALSE(WriteMultiStringToRegistry(corestring(L"HKLM\\Software\\Nope"), corestring(L"V"), {}));
    EXPECT_TRUE(p.hasLineStartingWith(
        L"WriteMultiStringToRegistry: ERROR: Failed to open registry key - Software\\Nope (error: 2 ("));
    EXPECT_FALSE(p.keys.keyExists(HKEY_LOCAL_MACHINE, L"Software\\Nope"));
}

TEST_F(FailureReportTest, MultiStringEmptyListIsASingleZeroAndEmptyLinesAreZerosOfTheirOwn)
{
    const corestring key(L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Update\\Job1");
    EXPECT_TRUE(WriteMultiStringToRegistry(key, corestring(L"EMPTY"), {}));
    EXPECT_EQ(2u, p.keys.value(HKEY_LOCAL_MACHINE, kJobKey, L"EMPTY")->bytes.size());
    EXPECT_TRUE(WriteMultiStringToRegistry(key, corestring(L"GAPS"), {corestring(L"a"), corestring(), corestring(L"b")}));
    std::vector<BYTE> bytes = p.keys.value(HKEY_LOCAL_MACHINE, kJobKey, L"GAPS")->bytes;
    EXPECT_EQ(std::wstring(L"a\0\0b\0\0", 6), std::wstring(reinterpret_cast<const wchar_t*>(bytes.data()), 6));
    EXPECT_EQ(12u, bytes.size());
}

TEST_F(FailureReportTest, MultiStringSaysSucceededEvenWhenTheWriteFails)
{
    p.keys.failSetValue(ERROR_ACCESS_DENIED);
    EXPECT_FALSE(WriteMultiStringToRegistry(corestring(L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Update\\Job1"),
                                            corestring(L"V"), {corestring(L"first"), corestring(L"second")}));
    EXPECT_EQ(L"WriteMultiStringToRegistry: INFO: WriteMultiStringToRegistry succeeded  - first ", p.logLines().back());
}

// ---------------------------------------------------------------- what "AGENTLOGFILENAME" may hold

TEST_F(FailureReportTest, LogNameOfAnyTypeIsTakenAsText)
{
    // A number names a file called "5" in the current folder: nothing there.
    p.keys.putDword(HKEY_LOCAL_MACHINE, kJobKey, L"AGENTLOGFILENAME", 5);
    EXPECT_TRUE(WriteFailedCustomActionDetailsToRegistry());
    EXPECT_TRUE(p.logHas(L"WriteFailedCustomActionDetailsToRegistry: INFO: MSI error log file name : 5 "));
    EXPECT_TRUE(p.logHas(L"FetchErrorLines: ERROR: Failed to open and read MSI log file - 5 "));
    EXPECT_EQ(std::wstring(1, L'\0'), details());
}

TEST_F(FailureReportTest, LogNameAsMultiStringIsReadUpToItsFirstTerminator)
{
    useDeferredFailure();
    p.keys.putMultiString(HKEY_LOCAL_MACHINE, kJobKey, L"AGENTLOGFILENAME", {kInstallerLog, L"second"});
    EXPECT_TRUE(WriteFailedCustomActionDetailsToRegistry());
    EXPECT_EQ(std::wstring(kDescription) + L" - " + kDeferredMessage, whole(g_updateRecord.sErrorDesc));
}

TEST_F(FailureReportTest, EmptyLogNameIsNoLogName)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kJobKey, L"AGENTLOGFILENAME", L"");
    EXPECT_TRUE(WriteFailedCustomActionDetailsToRegistry());
    EXPECT_TRUE(p.logHas(L"WriteFailedCustomActionDetailsToRegistry: INFO: MSI error log file name not set"));
    EXPECT_FALSE(value(L"ERRORDETAILS").has_value());
}

TEST_F(FailureReportTest, LogNameOfAFolderOrALongPathIsAnUnreadableLog)
{
    for (const std::wstring& name : {std::wstring(L"C:\\logs"), L"C:\\" + std::wstring(32768, L'x')}) {
        SCOPED_TRACE(name.size());
        p.files.addDirectory(L"C:\\logs");
        p.keys.putString(HKEY_LOCAL_MACHINE, kJobKey, L"AGENTLOGFILENAME", name);
        g_updateRecord.sErrorDesc = kDescription;
        EXPECT_TRUE(WriteFailedCustomActionDetailsToRegistry());
        EXPECT_EQ(std::wstring(kDescription) + L" - (null)", whole(g_updateRecord.sErrorDesc));
        EXPECT_EQ(std::wstring(1, L'\0'), details());
    }
}
