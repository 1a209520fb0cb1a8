// The analyser's reading of verbose logs made by the engine's format
// generator and by hand.
#include "Reading.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "LogText.h"
#include "fakes/VerboseMsiLog.h"

using namespace ztmsilog;
using msilog::VerboseLog;

namespace {

// The 1-based number of the first line that is exactly `text`; 0 if none.
std::size_t lineOf(const std::vector<std::wstring>& lines, const std::wstring& text)
{
    auto it = std::find(lines.begin(), lines.end(), text);
    return it == lines.end() ? 0 : static_cast<std::size_t>(it - lines.begin()) + 1;
}

std::size_t lineStartingWith(const std::vector<std::wstring>& lines, const std::wstring& start)
{
    for (std::size_t i = 0; i < lines.size(); ++i)
        if (lines[i].rfind(start, 0) == 0)
            return i + 1;
    return 0;
}

const std::wstring kSandbox = L" (note this may not be 100% accurate if translation happened inside sandbox)";

}  // namespace

TEST(ReadingTest, ImmediateFailureIsNamedByItsOwnEnd)
{
    VerboseLog log;
    log.engineLines(30).succeeds(L"CostInitialize").succeeds(L"InstallInitialize");
    log.customActionFails(L"CA_Configure", {L"CA_Configure: could not open C:\\cfg.xml: access denied"});
    log.rollbackAndEnd();
    const std::vector<std::wstring>& lines = log.lines();
    const Reading r = ReadLog(lines);

    const std::size_t ended = lineOf(lines, L"Action ended 12:00:03: CA_Configure. Return value 3.");
    const std::size_t install = lineOf(lines, L"Action ended 12:00:03: INSTALL. Return value 3.");
    ASSERT_NE(0u, ended);
    ASSERT_EQ(2u, r.failedActions.size());
    EXPECT_EQ(L"CA_Configure", r.failedActions[0].name);
    EXPECT_EQ(ended, r.failedActions[0].line);
    EXPECT_EQ(L"INSTALL", r.failedActions[1].name);
    EXPECT_EQ(install, r.failedActions[1].line);

    EXPECT_EQ(L"CA_Configure", r.verdict.action);
    EXPECT_EQ(ended, r.verdict.line);
    EXPECT_EQ(L"Action ended 12:00:03: CA_Configure. Return value 3.", r.verdict.evidence);

    ASSERT_EQ(1u, r.customActionReturns.size());
    EXPECT_EQ(L"CA_Configure", r.customActionReturns[0].name);
    EXPECT_EQ(1603, r.customActionReturns[0].code);
    EXPECT_FALSE(r.customActionReturns[0].translatedToSuccess);
    // An immediate action runs no script.
    EXPECT_FALSE(r.scriptActionAtFailure.has_value());
}

TEST(ReadingTest, DeferredFailureIsNamedByTheReturnOfItsCustomAction)
{
    VerboseLog log;
    log.engineLines(10).succeeds(L"InstallFiles");
    log.customActionFails(L"CA_Service", {L"CA_Service: service Agent did not start"}, true);
    log.rollbackAndEnd();
    const std::vector<std::wstring>& lines = log.lines();
    const Reading r = ReadLog(lines);

    ASSERT_EQ(2u, r.failedActions.size());
    EXPECT_EQ(L"InstallExecute", r.failedActions[0].name);
    EXPECT_EQ(L"INSTALL", r.failedActions[1].name);

    const std::size_t returned = lineOf(lines, L"CustomAction CA_Service returned actual error code 1603" + kSandbox);
    ASSERT_NE(0u, returned);
    EXPECT_EQ(L"CA_Service", r.verdict.action);
    EXPECT_EQ(returned, r.verdict.line);

    ASSERT_TRUE(r.scriptActionAtFailure.has_value());
    EXPECT_EQ(L"CA_Service", r.scriptActionAtFailure->name);
    EXPECT_EQ(lineStartingWith(lines, VerboseLog::engine(L"Executing op: CustomActionSchedule(Action=CA_Service,")),
              r.scriptActionAtFailure->line);

    ASSERT_TRUE(r.rollbackStart.has_value());
    EXPECT_EQ(lineStartingWith(lines, VerboseLog::engine(L"Executing op: Header(")), r.rollbackStart->line);
}

TEST(ReadingTest, ErrorBlockNamesItsActionAndKeepsItsText)
{
    VerboseLog log;
    log.engineLines(5).succeeds(L"InstallFiles");
    log.customActionFails(L"CA_Service",
                          {L"Error 1722. There is a problem with this Windows Installer package. A program run as part of "
                           L"the setup did not finish as expected. Contact your support personnel or package vendor.  "
                           L"Action CA_Service, location: C:\\agent.exe, command: --install"},
                          true);
    const std::vector<std::wstring>& lines = log.lines();
    const Reading r = ReadLog(lines);
    ASSERT_EQ(1u, r.errors.size());
    EXPECT_EQ(1722, r.errors[0].number);
    EXPECT_EQ(L"CA_Service", r.errors[0].action);
    EXPECT_EQ(lineStartingWith(lines, L"Error 1722."), r.errors[0].line);
    EXPECT_EQ(0u, r.errors[0].text.find(L"There is a problem with this Windows Installer package."));
    EXPECT_NE(std::wstring::npos, r.errors[0].text.find(L"command: --install"));
    EXPECT_EQ(L"CA_Service", r.verdict.action);
}

TEST(ReadingTest, Error1722WithoutAnyDoingActionNamesTheAction)
{
    const std::vector<std::wstring> lines = {
        L"Error 1722. There is a problem with this Windows Installer package. A program run as part of the setup "
        L"did not finish as expected. Contact your support personnel or package vendor.  Action "
        L"Run.Agent.exe_Setup, location: C:\\Windows\\Installer\\MSI1.tmp, command: /silent",
        L"Action ended 13:47:08: InstallFinalize. Return value 3.",
        L"Action ended 13:47:08: INSTALL. Return value 3.",
    };
    const Reading r = ReadLog(lines);
    EXPECT_EQ(L"Run.Agent.exe_Setup", r.verdict.action);
    EXPECT_EQ(1u, r.verdict.line);
    ASSERT_EQ(2u, r.failedActions.size());
    EXPECT_EQ(L"InstallFinalize", r.failedActions[0].name);
}

TEST(ReadingTest, GermanEndedLinesAreRead)
{
    VerboseLog log(msilog::Language::German);
    log.engineLines(10).succeeds(L"CostInitialize");
    log.customActionFails(L"CA_Konfig", {L"CA_Konfig: Zugriff verweigert"});
    log.rollbackAndEnd();
    const std::vector<std::wstring>& lines = log.lines();
    const Reading r = ReadLog(lines);
    ASSERT_FALSE(r.failedActions.empty());
    EXPECT_EQ(L"CA_Konfig", r.failedActions[0].name);
    EXPECT_EQ(3, r.failedActions[0].value);
    EXPECT_EQ(L"CA_Konfig", r.verdict.action);
    EXPECT_EQ(lineOf(lines, L"Aktion beendet um 12:00:02: CA_Konfig. R\u00fcckgabewert 3."), r.verdict.line);
}

TEST(ReadingTest, FrenchAndOtherEndedLinesAreRead)
{
    const std::vector<std::wstring> lines = {
        L"Action d\u00e9marr\u00e9e \u00e0 14:20:19 : CA_Fr.",
        L"Action termin\u00e9e \u00e0 14:20:19 : CA_Fr. Valeur renvoy\u00e9e 3.",
        L"Acci\u00f3n finalizada 14:20:19: CA_Es. Valor devuelto 1.",
    };
    const Reading r = ReadLog(lines);
    ASSERT_EQ(1u, r.failedActions.size());
    EXPECT_EQ(L"CA_Fr", r.failedActions[0].name);
    EXPECT_EQ(2u, r.failedActions[0].line);
    EXPECT_EQ(L"CA_Fr", r.verdict.action);
    const std::optional<EndedAction> spanish = ParseEndedAction(lines[2]);
    ASSERT_TRUE(spanish.has_value());
    EXPECT_EQ(L"CA_Es", spanish->name);
    EXPECT_EQ(1, spanish->value);
}

TEST(ReadingTest, StartAndProgressLinesAreNoEnds)
{
    EXPECT_FALSE(ParseEndedAction(L"Action start 12:00:00: InstallFiles.").has_value());
    EXPECT_FALSE(ParseEndedAction(L"Action 12:00:00: InstallFiles. Copying new files 3.").has_value());
    EXPECT_FALSE(ParseEndedAction(L"Property(S): Time = 11:19:34").has_value());
    EXPECT_FALSE(ParseEndedAction(L"MSI (s) (7C:44) [12:53:48:973]: Note: 1: 1722 2: X 3.").has_value());
    EXPECT_FALSE(ParseEndedAction(L"Action ended 12:00:00: X. Return value three.").has_value());
    const std::optional<EndedAction> dotted = ParseEndedAction(L"\tAction ended 9:05:06: Host.exe_Install. Return value 3.\r");
    ASSERT_TRUE(dotted.has_value());
    EXPECT_EQ(L"Host.exe_Install", dotted->name);
    EXPECT_EQ(3, dotted->value);
}

TEST(ReadingTest, ContinueMarkingIsNoFailure)
{
    const std::vector<std::wstring> lines = {
        VerboseLog::engine(L"Executing op: ActionStart(Name=Start_Service,,)"),
        VerboseLog::engine(L"Executing op: CustomActionSchedule(Action=Start_Service,ActionType=3138,Source=BinaryData,"
                           L"Target=net.exe start Agent,)"),
        L"CustomAction Start_Service returned actual error code 2 but will be translated to success due to continue "
        L"marking",
        VerboseLog::engine(L"Product: Zenthra Agent -- Installation completed successfully."),
    };
    const Reading r = ReadLog(lines);
    ASSERT_EQ(1u, r.customActionReturns.size());
    EXPECT_EQ(L"Start_Service", r.customActionReturns[0].name);
    EXPECT_EQ(2, r.customActionReturns[0].code);
    EXPECT_TRUE(r.customActionReturns[0].translatedToSuccess);
    EXPECT_TRUE(r.verdict.action.empty());
    EXPECT_EQ(0u, r.verdict.line);
    EXPECT_FALSE(r.firstFailureLine.has_value());
    ASSERT_EQ(1u, r.results.size());
    EXPECT_EQ(4u, r.results[0].line);
}

TEST(ReadingTest, TwoReturnsOnOneLineKeepTheirOwnRemarks)
{
    const std::vector<CustomActionReturn> found = ParseCustomActionReturns(
        L"CustomAction A returned actual error code 1603 (note) CustomAction B returned actual error code 5 but will "
        L"be translated to success due to continue marking");
    ASSERT_EQ(2u, found.size());
    EXPECT_EQ(L"A", found[0].name);
    EXPECT_EQ(1603, found[0].code);
    EXPECT_FALSE(found[0].translatedToSuccess);
    EXPECT_EQ(L"B", found[1].name);
    EXPECT_EQ(5, found[1].code);
    EXPECT_TRUE(found[1].translatedToSuccess);
    EXPECT_TRUE(ParseCustomActionReturns(L"CustomAction X returned actual error code").empty());
    EXPECT_TRUE(ParseCustomActionReturns(L"CustomAction ").empty());
}

TEST(ReadingTest, OnlyNumberedErrorBlocksCount)
{
    EXPECT_TRUE(ParseErrorBlocks(L"WixQuietExec:  Error 0x80070057: Failed in ExecCommon method").empty());
    EXPECT_TRUE(ParseErrorBlocks(L"Could not set file security. Error: 3.").empty());
    EXPECT_TRUE(ParseErrorBlocks(L"MSI (s): Note: 1: 2228 2:  3: Error 4: SELECT `Message` FROM `Error` WHERE `Error` = 1722")
                    .empty());
    EXPECT_TRUE(ParseErrorBlocks(L"MSI (s): Error in rollback skipped.\tReturn: 5").empty());
    EXPECT_TRUE(ParseErrorBlocks(L"Error 99999999999999999999999. big").empty());
    const std::vector<ErrorBlock> service =
        ParseErrorBlocks(L"MSI (s): Product: Agent -- Error 1920. Service 'Agent' (AgentSvc) failed to start.");
    ASSERT_EQ(1u, service.size());
    EXPECT_EQ(1920, service[0].number);
    EXPECT_TRUE(service[0].action.empty());
    EXPECT_EQ(L"Service 'Agent' (AgentSvc) failed to start.", service[0].text);
}

TEST(ReadingTest, ServiceThatFailsToStartIsTheScriptActionRunningIt)
{
    VerboseLog log;
    log.engineLines(5);
    log.raw(VerboseLog::engine(L"Doing action: InstallFinalize"));
    log.raw(L"Action start 12:00:08: InstallFinalize.");
    log.raw(VerboseLog::engine(L"Executing op: ActionStart(Name=StartServices,Description=Starting services,"
                               L"Template=Service: [1])"));
    log.raw(VerboseLog::engine(L"Executing op: ServiceControl(,Name=AgentSvc,Action=1,,)"));
    log.raw(VerboseLog::engine(L"Product: Zenthra Agent -- Error 1920. Service 'Zenthra Agent' (AgentSvc) failed to "
                               L"start.  Verify that you have sufficient privileges to start system services."));
    log.raw(L"Error 1920. Service 'Zenthra Agent' (AgentSvc) failed to start.  Verify that you have sufficient "
            L"privileges to start system services.");
    log.raw(L"Action ended 12:00:09: InstallFinalize. Return value 3.");
    log.rollbackAndEnd();
    const std::vector<std::wstring>& lines = log.lines();
    const Reading r = ReadLog(lines);
    EXPECT_EQ(L"StartServices", r.verdict.action);
    ASSERT_TRUE(r.scriptActionAtFailure.has_value());
    EXPECT_EQ(lineStartingWith(lines, VerboseLog::engine(L"Executing op: ActionStart(Name=StartServices,")),
              r.scriptActionAtFailure->line);
    ASSERT_EQ(2u, r.errors.size());
    EXPECT_EQ(1920, r.errors[1].number);
    EXPECT_EQ(lineStartingWith(lines, L"Error 1920."), r.errors[1].line);
    ASSERT_TRUE(r.rollbackStart.has_value());
    EXPECT_EQ(lineStartingWith(lines, VerboseLog::engine(L"Executing op: Header(")), r.rollbackStart->line);
}

TEST(ReadingTest, RollbackLineWithoutTheEnginesPrefix)
{
    const std::vector<std::wstring> lines = {
        L"CustomAction CA_X returned actual error code 1603",
        L"Action ended 12:00:00: InstallExecute. Return value 3.",
        L"> Rollback: Removing files",
    };
    const Reading r = ReadLog(lines);
    ASSERT_TRUE(r.rollbackStart.has_value());
    EXPECT_EQ(3u, r.rollbackStart->line);
    EXPECT_EQ(L"CA_X", r.verdict.action);
}

TEST(ReadingTest, TheInstallersResultLinesAreCollected)
{
    VerboseLog log;
    log.engineLines(3).customActionFails(L"CA_X", {L"CA_X: failed"});
    log.rollbackAndEnd();
    log.raw(L"MSI (c) (10:08) [12:40:00:001]: Back from server. Return value: 1603");
    log.raw(VerboseLog::engine(L"Windows Installer installed the product. Product Name: Zenthra Agent. Installation "
                               L"success or error status: 1603."));
    const std::vector<std::wstring>& lines = log.lines();
    const Reading r = ReadLog(lines);
    std::vector<std::wstring> texts;
    for (const LineRef& ref : r.results)
        texts.push_back(ref.text);
    EXPECT_EQ((std::vector<std::wstring>{
                  L"Action ended 12:00:01: INSTALL. Return value 3.",
                  VerboseLog::engine(L"Product: Zenthra Agent -- Installation failed."),
                  VerboseLog::engine(L"MainEngineThread is returning 1603"),
                  L"MSI (c) (10:08) [12:40:00:001]: Back from server. Return value: 1603",
                  VerboseLog::engine(L"Windows Installer installed the product. Product Name: Zenthra Agent. "
                                     L"Installation success or error status: 1603."),
              }),
              texts);
}

TEST(ReadingTest, LogWithoutFailureHasNoFailedAction)
{
    VerboseLog log;
    log.engineLines(20).succeeds(L"CostInitialize").succeeds(L"InstallFiles");
    const Reading r = ReadLog(log.lines());
    EXPECT_TRUE(r.failedActions.empty());
    EXPECT_TRUE(r.verdict.action.empty());
    EXPECT_EQ(L"no failure in the log", r.verdict.why);
    EXPECT_FALSE(r.rollbackStart.has_value());
}

TEST(ReadingTest, FailureThatNamesNoActionIsUnknownWithItsLine)
{
    const std::vector<std::wstring> lines = {
        L"MSI (s) (84:34) [12:12:03:391]: Executing op: FileRemove(,FileName=a.txt,,)",
        L"Error 1926. Could not set file security for file 'F:\\Config.Msi\\'. Error: 3.",
        L"MSI (s) (84:34) [12:12:03:625]: MainEngineThread is returning 1603",
    };
    const Reading r = ReadLog(lines);
    EXPECT_TRUE(r.verdict.action.empty());
    EXPECT_EQ(2u, r.verdict.line);
    EXPECT_EQ(lines[1], r.verdict.evidence);
}

TEST(ReadingTest, QuotedLinesWithThePagesPrefixesAreRead)
{
    const std::vector<std::wstring> lines = {
        L"> 12:26:46 PM: CustomAction CheckAgent returned actual error code 1" + kSandbox,
        L"> 12:26:46 PM: Error 1722. There is a problem with this Windows Installer package.  Action CheckAgent, "
        L"location: C:\\x\\, command: check.exe",
    };
    const Reading r = ReadLog(lines);
    EXPECT_EQ(L"CheckAgent", r.verdict.action);
    EXPECT_EQ(1u, r.verdict.line);
    ASSERT_EQ(1u, r.errors.size());
    EXPECT_EQ(L"CheckAgent", r.errors[0].action);
}

TEST(ReadingTest, FirstRealFailureWinsOverRollbackFailures)
{
    const std::vector<std::wstring> lines = {
        L"CustomAction CA_First returned actual error code 1618" + kSandbox,
        L"Rollback: Undoing things",
        L"CustomAction CA_Rollback returned actual error code 1603" + kSandbox,
        L"Action ended 12:00:00: InstallFinalize. Return value 3.",
    };
    const Reading r = ReadLog(lines);
    EXPECT_EQ(L"CA_First", r.verdict.action);
    ASSERT_TRUE(r.rollbackStart.has_value());
    EXPECT_EQ(2u, r.rollbackStart->line);
}

TEST(ReadingTest, ScriptActionParsing)
{
    EXPECT_EQ(L"CA_A", ParseScriptAction(L"MSI (s): Executing op: ActionStart(Name=CA_A,Description=x,)"));
    EXPECT_EQ(L"CA_B", ParseScriptAction(L"Executing op: CustomActionSchedule(Action=CA_B,ActionType=3073)"));
    EXPECT_EQ(L"CA_C", ParseScriptAction(L"Executing op: ActionStart(Name=CA_C)"));
    EXPECT_FALSE(ParseScriptAction(L"Executing op: ActionStart(Name=,,)").has_value());
    EXPECT_FALSE(ParseScriptAction(L"Doing action: CA_D").has_value());
}

TEST(ReadingTest, BadInputNeverCrashes)
{
    std::vector<std::wstring> lines = {
        L"", L"1", L"1:2", L"12:00:00", L"Action ended 12:00:00", L"Action ended 12:00:00:", L"Action ended 12:00:00: ",
        L"Action ended 12:00:00: X.", L"Action ended 12:00:00: X. 3.", L"Action ended 99:99:99: . Return value .",
        L"CustomAction", L"CustomAction  returned actual error code -", L"Error ", L"Error 1", L"Error 1722",
        L"Error 1722.", L"Error 1722. Action", L"Error 1722. Action ,", L"ActionStart(Name=", L"CustomActionSchedule(Action=",
        std::wstring(L"\0\0\0", 3), std::wstring(100000, L'3'), L"Rollback: ", L"> ",
    };
    std::uint32_t state = 7;
    for (int n = 0; n < 300; ++n) {
        std::wstring line;
        for (int i = 0; i < 60; ++i) {
            state = state * 1103515245u + 12345u;
            static const wchar_t kPieces[] = L"AE 0123:.,()=rtunvalde3 \r\t\xD800";
            line.push_back(kPieces[(state >> 16) % (sizeof kPieces / sizeof kPieces[0] - 1)]);
        }
        lines.push_back(line);
    }
    const Reading r = ReadLog(lines);
    EXPECT_LE(r.verdict.line, lines.size());
    for (const EndedAction& e : r.failedActions)
        EXPECT_EQ(3, e.value);
}

TEST(ReadingTest, LongLinesFullOfPhrasesAreReadInFull)
{
    // Lines a page ran together: every phrase on them still counts.
    std::wstring errors;
    std::wstring returns;
    std::wstring times;
    const int count = 20000;
    for (int i = 0; i < count; ++i) {
        errors += L"Error 1722. Action CA_" + std::to_wstring(i) + L", location: x ";
        returns += L"CustomAction CA_" + std::to_wstring(i) + L" returned actual error code 1603 ";
        times += L"Action ended 12:00:00: ";
    }
    times += L"CA_Last. Return value 3.";
    const Reading r = ReadLog({errors, returns, times});
    ASSERT_EQ(std::size_t(count), r.errors.size());
    EXPECT_EQ(L"CA_19999", r.errors.back().action);
    ASSERT_EQ(std::size_t(count), r.customActionReturns.size());
    EXPECT_EQ(L"CA_19999", r.customActionReturns.back().name);
    EXPECT_FALSE(r.customActionReturns.back().translatedToSuccess);
    // The ended line's words in front of the time hold a colon: no end.
    EXPECT_TRUE(r.failedActions.empty());
    EXPECT_EQ(L"CA_0", r.verdict.action);
}
