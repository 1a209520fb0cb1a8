// Reading a failed install's verbose log: the window of the failing action,
// the custom action's name and its error text.
#include "diagnostics/InstallerLog.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fakes/FakePlatform.h"
#include "fakes/VerboseMsiLog.h"

using CORE::corestring;
using fakes::FakePlatform;
using fakes::whole;
using msilog::VerboseLog;

namespace {

const wchar_t* kLog = L"C:\\logs\\install.log";

class InstallerLogTest : public ::testing::Test {
protected:
    // The log file from lines joined by CR LF, behind a byte order mark.
    void putLog(const std::vector<std::wstring>& lines)
    {
        std::wstring text;
        for (const std::wstring& line : lines)
            text += line + L"\r\n";
        putText(text);
    }
    void putText(const std::wstring& text) { p.files.addFile(kLog, msilog::Utf16File(text)); }
    void putLog(const VerboseLog& log) { p.files.addFile(kLog, log.fileBytes()); }

    std::vector<std::wstring> window() const
    {
        std::vector<std::wstring> texts;
        for (const corestring& line : FetchErrorLines(corestring(kLog)))
            texts.push_back(whole(line));
        return texts;
    }
    static std::vector<corestring> lines(const std::vector<std::wstring>& texts)
    {
        std::vector<corestring> result;
        for (const std::wstring& text : texts)
            result.emplace_back(text.c_str(), text.size());
        return result;
    }

    FakePlatform p;
};

// Each line as the file holds it: with the CR in front of its LF.
std::vector<std::wstring> withCr(const std::vector<std::wstring>& lines)
{
    std::vector<std::wstring> result;
    for (const std::wstring& line : lines)
        result.push_back(line + L"\r");
    return result;
}

}  // namespace

// ---------------------------------------------------------------- reading

TEST_F(InstallerLogTest, ReadsUtf16AndDropsTheMark)
{
    putText(L"one\r\ntwo");
    EXPECT_EQ(L"one\r\ntwo", whole(ReadUnicodeFile(corestring(kLog))));
    p.files.addFile(kLog, msilog::Utf16File(L"no mark", false));
    EXPECT_EQ(L"no mark", whole(ReadUnicodeFile(corestring(kLog))));
}

TEST_F(InstallerLogTest, OddByteCountDropsTheLastByte)
{
    std::string bytes = msilog::Utf16File(L"ab") + "c";
    p.files.addFile(kLog, bytes);
    EXPECT_EQ(L"ab", whole(ReadUnicodeFile(corestring(kLog))));
}

TEST_F(InstallerLogTest, EmptyZeroByteMissingAndOneByteFilesGiveNoText)
{
    EXPECT_EQ(nullptr, ReadUnicodeFile(corestring(kLog)).handle());
    p.files.addFile(kLog, std::string());
    EXPECT_EQ(nullptr, ReadUnicodeFile(corestring(kLog)).handle());
    p.files.addFile(kLog, std::string("x"));
    EXPECT_EQ(nullptr, ReadUnicodeFile(corestring(kLog)).handle());
    p.files.addFile(kLog, msilog::Utf16File(L""));
    EXPECT_EQ(nullptr, ReadUnicodeFile(corestring(kLog)).handle());
}

TEST_F(InstallerLogTest, LogStillOpenForWritingCannotBeRead)
{
    putText(L"Action ended 12:00:00: X. Return value 3.\r\n");
    // As the installer holds its log while it runs: writing, others may read.
    HANDLE writer = p.files.CreateFileW(kLog, GENERIC_WRITE, FILE_SHARE_READ, OPEN_EXISTING, 0);
    ASSERT_NE(INVALID_HANDLE_VALUE, writer);
    EXPECT_TRUE(FetchErrorLines(corestring(kLog)).empty());
    EXPECT_EQ(1u, p.countOf(std::wstring(L"FetchErrorLines: ERROR: Failed to open and read MSI log file - ") + kLog +
                            L" "));
    p.files.CloseHandle(writer);
    EXPECT_EQ(1u, FetchErrorLines(corestring(kLog)).size());
}

TEST_F(InstallerLogTest, UnreadableLogIsLoggedAndGivesNoLines)
{
    EXPECT_TRUE(FetchErrorLines(corestring(kLog)).empty());
    EXPECT_EQ(std::vector<std::wstring>{std::wstring(L"FetchErrorLines: ERROR: Failed to open and read MSI log file - ") +
                                        kLog + L" "},
              p.logLines());
}

TEST_F(InstallerLogTest, ReadableLogIsAnnounced)
{
    putLog({L"x"});
    FetchErrorLines(corestring(kLog));
    EXPECT_EQ(std::vector<std::wstring>{std::wstring(L"FetchErrorLines: Opened MSI log file - ") + kLog + L" "},
              p.logLines());
}

// ---------------------------------------------------------------- the window

TEST_F(InstallerLogTest, LogWithoutMarkersOrFailureComesBackWhole)
{
    putLog({L"first line", L"second", L"", L"last"});
    EXPECT_EQ((std::vector<std::wstring>{L"first line\r", L"second\r", L"\r", L"last\r"}), window());
}

TEST_F(InstallerLogTest, LinesSplitAtLfOnlyAndALastLineNeedsNone)
{
    putText(L"a\r\nb\n\nc");
    std::vector<corestring> result = FetchErrorLines(corestring(kLog));
    ASSERT_EQ(4u, result.size());
    EXPECT_EQ(L"a\r", whole(result[0]));
    EXPECT_EQ(L"b", whole(result[1]));
    // Two LFs in a row: an empty line, kept as a null string.
    EXPECT_EQ(nullptr, result[2].handle());
    EXPECT_EQ(L"c", whole(result[3]));
}

TEST_F(InstallerLogTest, NothingCountsBehindAFinalLf)
{
    putText(L"a\nb\n");
    EXPECT_EQ((std::vector<std::wstring>{L"a", L"b"}), window());
}

TEST_F(InstallerLogTest, FailingImmediateCustomActionGivesItsWindow)
{
    VerboseLog log;
    log.engineLines(50).succeeds(L"CostInitialize").succeeds(L"InstallInitialize");
    log.customActionFails(L"CA_Configure", {L"CA_Configure: could not open C:\\cfg.xml: access denied"});
    log.rollbackAndEnd();
    putLog(log);
    // "Action start" follows "Doing action:" and starts the window again.
    std::vector<std::wstring> expected = withCr({
        L"Action start 12:00:03: CA_Configure.",
        VerboseLog::engine(L"Invoking remote custom action. DLL: C:\\Windows\\Installer\\MSI4F2A.tmp, Entrypoint: "
                           L"CA_ConfigureEntry"),
        L"CA_Configure: could not open C:\\cfg.xml: access denied",
        L"CustomAction CA_Configure returned actual error code 1603 (note this may not be 100% accurate if "
        L"translation happened inside sandbox)",
        L"Action ended 12:00:03: CA_Configure. Return value 3.",
    });
    EXPECT_EQ(expected, window());
}

TEST_F(InstallerLogTest, FailureInTheMiddleOfAThousandsOfLinesLog)
{
    VerboseLog log;
    log.engineLines(2000);
    for (int i = 0; i < 40; ++i)
        log.succeeds(L"Action" + std::to_wstring(i)).engineLines(30);
    log.customActionFails(L"CA_Middle", {L"CA_Middle: disk full"});
    log.rollbackAndEnd().engineLines(2000);
    putLog(log);
    std::vector<std::wstring> result = window();
    ASSERT_FALSE(result.empty());
    EXPECT_EQ(L"Action start 12:00:41: CA_Middle.\r", result.front());
    EXPECT_EQ(L"Action ended 12:00:41: CA_Middle. Return value 3.\r", result.back());
    EXPECT_EQ(5u, result.size());
}

TEST_F(InstallerLogTest, FailingDeferredActionStartsTheWindowAtItsSchedule)
{
    VerboseLog log;
    log.engineLines(10).succeeds(L"InstallFiles");
    log.customActionFails(L"CA_Service", {L"CA_Service: service Agent did not start", L"Error 1722. There is a "
                                          L"problem with this Windows Installer package. Action CA_Service, location: "
                                          L"C:\\agent.exe, command: --install"},
                          true);
    log.rollbackAndEnd();
    putLog(log);
    std::vector<std::wstring> result = window();
    ASSERT_GE(result.size(), 2u);
    EXPECT_EQ(0u, result.front().find(VerboseLog::engine(L"Executing op: CustomActionSchedule(Action=CA_Service,")));
    EXPECT_EQ(L"Action ended 12:00:02: InstallExecute. Return value 3.\r", result.back());
}

TEST_F(InstallerLogTest, InstallFinalizeFailingStopsByItsTail)
{
    putLog({L"MSI (s): Doing action: InstallFinalize", L"some line",
            L"Action ended 12:00:00: InstallFinalize. R\u00fcckgabewert 3.", L"after"});
    EXPECT_EQ(withCr({L"MSI (s): Doing action: InstallFinalize", L"some line",
                      L"Action ended 12:00:00: InstallFinalize. R\u00fcckgabewert 3."}),
              window());
}

TEST_F(InstallerLogTest, InstallFinalizeWithReturnValue3IsTheLastLine)
{
    putLog({L"x: Doing action: InstallFinalize", L"Action ended 12:00:00: InstallFinalize. Return value 3.",
            L"x: Doing action: SetupCompleteError"});
    EXPECT_EQ(L"Action ended 12:00:00: InstallFinalize. Return value 3.\r", window().back());
}

TEST_F(InstallerLogTest, InstallFinalizeWithReturnValue1RunsToTheEnd)
{
    putLog({L"x: Doing action: InstallFinalize", L"Action ended 12:00:00: InstallFinalize. Return value 1.",
            L"x: Doing action: Last", L"tail line"});
    EXPECT_EQ(withCr({L"x: Doing action: Last", L"tail line"}), window());
}

TEST_F(InstallerLogTest, LineWithTheActionsNameAndTheTailStopsWhateverItsWords)
{
    // A log in another language: only the engine's own lines are English.
    VerboseLog log(msilog::Language::German);
    log.engineLines(20).succeeds(L"CostInitialize");
    log.customActionFails(L"CA_Konfig", {L"CA_Konfig: Zugriff verweigert"});
    log.rollbackAndEnd();
    putLog(log);
    std::vector<std::wstring> result = window();
    EXPECT_EQ(VerboseLog::engine(L"Doing action: CA_Konfig") + L"\r", result.front());
    EXPECT_EQ(L"Aktion beendet um 12:00:02: CA_Konfig. R\u00fcckgabewert 3.\r", result.back());
}

TEST_F(InstallerLogTest, TailOnTheLastLineWithoutCrDoesNotStop)
{
    putText(L"x: Doing action: Foo\r\nline\r\nFoo ended 3.");
    EXPECT_EQ((std::vector<std::wstring>{L"x: Doing action: Foo\r", L"line\r", L"Foo ended 3."}), window());
    putText(L"x: Doing action: Foo\r\nline\r\nFoo ended 3.\r\nafter\r\n");
    EXPECT_EQ((std::vector<std::wstring>{L"x: Doing action: Foo\r", L"line\r", L"Foo ended 3.\r"}), window());
}

TEST_F(InstallerLogTest, ThreeCharacterLineStopsWhileNoActionIsKnown)
{
    putLog({L"one", L"ab", L"three"});
    // "ab" and its CR: three characters, no " 3." in them.
    EXPECT_EQ(withCr({L"one", L"ab"}), window());
}

TEST_F(InstallerLogTest, ThreeCharacterLineStopsOnlyWithTheActionInIt)
{
    putLog({L"x: Doing action: Q", L"ab", L"Qc", L"z"});
    EXPECT_EQ(withCr({L"x: Doing action: Q", L"ab", L"Qc"}), window());
}

TEST_F(InstallerLogTest, BlankThreeDotIsNoStopByItself)
{
    putText(L" 3.\n 3.\nend");
    EXPECT_EQ((std::vector<std::wstring>{L" 3.", L" 3.", L"end"}), window());
}

TEST_F(InstallerLogTest, ActionStartEmptiesTheWindowAndKeepsTheAction)
{
    putLog({L"x: Doing action: Foo", L"noise", L"Action start 12:00:00: Bar.", L"inner",
            L"Foo reports failure 3."});
    EXPECT_EQ(withCr({L"Action start 12:00:00: Bar.", L"inner", L"Foo reports failure 3."}), window());
}

TEST_F(InstallerLogTest, ScheduledActionWithACommaBehindIsTheNewAction)
{
    putLog({L"x: Doing action: Foo", L"op: CustomActionSchedule(Action=Bar,ActionType=1)", L"Foo line 3.",
            L"Bar line 3."});
    EXPECT_EQ(withCr({L"op: CustomActionSchedule(Action=Bar,ActionType=1)", L"Foo line 3.", L"Bar line 3."}),
              window());
}

TEST_F(InstallerLogTest, ScheduledActionAtTheLineEndKeepsItsCr)
{
    // "Bar" and the CR: found only where it ends a line, which " 3." never does.
    putLog({L"op: CustomActionSchedule(Action=Bar", L"Bar failed 3.", L"x Bar", L"end"});
    EXPECT_EQ(withCr({L"op: CustomActionSchedule(Action=Bar", L"Bar failed 3.", L"x Bar", L"end"}), window());
}

TEST_F(InstallerLogTest, ScheduleWithoutActionKeepsTheOldOne)
{
    putLog({L"x: Doing action: Foo", L"CustomActionSchedule(nothing here)", L"Foo said 3."});
    EXPECT_EQ(withCr({L"CustomActionSchedule(nothing here)", L"Foo said 3."}), window());
}

TEST_F(InstallerLogTest, DoingActionNameLosesDotsAndLineEndsAtBothEnds)
{
    putLog({L"x: Doing action: ..Foo..", L"Foo 3."});
    EXPECT_EQ(withCr({L"x: Doing action: ..Foo..", L"Foo 3."}), window());
}

TEST_F(InstallerLogTest, LineThatStartsAndFailsIsAFailure)
{
    putLog({L"x: Doing action: A", L"middle", L"x: Doing action: B Return value 3", L"after"});
    EXPECT_EQ(withCr({L"x: Doing action: A", L"middle", L"x: Doing action: B Return value 3"}), window());
}

TEST_F(InstallerLogTest, LogInANarrowCodePageMatchesNothing)
{
    std::string narrow = "x: Doing action: Foo\r\nAction ended 12:00:00: Foo. Return value 3.\r\ntail\r\n";
    p.files.addFile(kLog, narrow);
    std::vector<corestring> result = FetchErrorLines(corestring(kLog));
    // Read as UTF-16, the bytes pair into characters that hold no LF at all.
    ASSERT_EQ(1u, result.size());
    EXPECT_EQ(narrow.size() / 2, result[0].length());
}

TEST_F(InstallerLogTest, NulInsideALineHidesNothing)
{
    putText(std::wstring(L"a\0b Return value 3.\r\nafter\r\n", 28));
    EXPECT_EQ(std::vector<std::wstring>{std::wstring(L"a\0b Return value 3.\r", 20)}, window());
}

TEST_F(InstallerLogTest, OnlyCrsAreOneLine)
{
    putText(std::wstring(1000, L'\r'));
    std::vector<corestring> result = FetchErrorLines(corestring(kLog));
    ASSERT_EQ(1u, result.size());
    EXPECT_EQ(1000u, result[0].length());
}

TEST_F(InstallerLogTest, LineOfAMegabyteIsOneLine)
{
    putText(std::wstring(1 << 20, L'x') + L"\r\nAction ended 12:00:00: Y. Return value 3.\r\n");
    std::vector<std::wstring> result = window();
    ASSERT_EQ(2u, result.size());
    EXPECT_EQ(std::size_t(1 << 20) + 1, result[0].size());
}

// ---------------------------------------------------------------- the name

TEST_F(InstallerLogTest, NameOfTheLastDoingActionIsItsLastWordWithTheBlankAndCr)
{
    corestring name = GetFailedCustomActionName(lines(withCr({L"MSI (s) (A4:B8) [..]: Doing action: CA_One",
                                                              L"other", L"MSI (s) x: Doing action: CA_Two"})));
    EXPECT_EQ(L" CA_Two\r", whole(name));
    EXPECT_TRUE(p.logHas(L"GetFailedCustomActionName: INFO: GetFailedCustomActionName name -  CA_Two\r "));
}

TEST_F(InstallerLogTest, NameOfAScheduleIsTheRegexGroup)
{
    EXPECT_EQ(L"CA_Deferred",
              whole(GetFailedCustomActionName(lines({L"Executing op: CustomActionSchedule(Action=CA_Deferred,Type=1)"}))));
    EXPECT_EQ(L"CA_End\r", whole(GetFailedCustomActionName(lines({L"CustomActionSchedule(Action=CA_End\r"}))));
}

TEST_F(InstallerLogTest, LastNameWinsWhicheverKind)
{
    EXPECT_EQ(L"Second", whole(GetFailedCustomActionName(
                             lines({L"m: Doing action: First\r", L"CustomActionSchedule(Action=Second,x)"}))));
    EXPECT_EQ(L" Third\r", whole(GetFailedCustomActionName(
                               lines({L"CustomActionSchedule(Action=Second,x)", L"m: Doing action: Third\r"}))));
    // A schedule with no match leaves the name as it was.
    EXPECT_EQ(L" Third\r", whole(GetFailedCustomActionName(
                               lines({L"m: Doing action: Third\r", L"CustomActionSchedule(none)"}))));
}

TEST_F(InstallerLogTest, NoNameIsNullAndLoggedAsNull)
{
    EXPECT_EQ(nullptr, GetFailedCustomActionName({}).handle());
    EXPECT_TRUE(p.logHas(L"GetFailedCustomActionName: INFO: GetFailedCustomActionName name - (null) "));
}

// ---------------------------------------------------------------- the message

TEST_F(InstallerLogTest, MessageJoinsTheActionsOwnLinesWithoutTheEnginesOrDots)
{
    EXPECT_EQ(L"abcdef", whole(GetFailedCAErrorMessage(lines(withCr({L"abc", L"def."})))));
    EXPECT_TRUE(p.logHas(L"GetFailedCAErrorMessage: INFO: GetFailedCAErrorMessage name - abcdef "));
}

TEST_F(InstallerLogTest, EngineLinesAndEmptyLinesAreLeftOut)
{
    std::vector<std::wstring> texts = withCr({
        L"MSI (s) (A4:B8): Note", L"Action ended 12:00: X. Return value 3", L"Action start 12:00: X.",
        L"Invoking remote custom action. DLL: a, Entrypoint: b", L"op: CustomActionSchedule(Action=X)",
        L"m: Doing action: X", L"tqmInstUtil: step", L"driverInstUtil: step", L"instLog: step", L"DIFXAPP: step",
        L"...", L"", L"kept one", L"Action starts here",
    });
    texts.push_back(L"\r");  // a line of only a CR
    EXPECT_EQ(L"kept one", whole(GetFailedCAErrorMessage(lines(texts))));
}

TEST_F(InstallerLogTest, SandboxRemarkAtTheEndIsTakenOut)
{
    corestring message = GetFailedCAErrorMessage(lines(withCr(
        {L"CustomAction CA returned actual error code 1603 (note this may not be 100% accurate if translation "
         L"happened inside sandbox)"})));
    EXPECT_EQ(L"CustomAction CA returned actual error code 1603 ", whole(message));
}

TEST_F(InstallerLogTest, SandboxRemarkWithTextBehindLosesOneCharacterAndLeavesAZero)
{
    corestring message = GetFailedCAErrorMessage(lines(
        {L"A (note this may not be 100% accurate if translation happened inside sandbox)XYZ", L"next"}));
    EXPECT_EQ(std::wstring(L"A YZ\0next", 9), whole(message));
    // The log line stops at the zero.
    EXPECT_TRUE(p.logHas(L"GetFailedCAErrorMessage: INFO: GetFailedCAErrorMessage name - A YZ "));
}

TEST_F(InstallerLogTest, NoMessageIsNullAndLoggedAsNull)
{
    EXPECT_EQ(nullptr, GetFailedCAErrorMessage(lines(withCr({L"MSI (s) only"}))).handle());
    EXPECT_TRUE(p.logHas(L"GetFailedCAErrorMessage: INFO: GetFailedCAErrorMessage name - (null) "));
}

// The window of an immediate action starts at its "Action start" line, behind
// the "Doing action:" line that names it: no name comes out of it.
TEST_F(InstallerLogTest, WindowOfAGeneratedImmediateFailureGivesItsWordsButNoName)
{
    VerboseLog log;
    log.engineLines(100).succeeds(L"InstallInitialize");
    log.customActionFails(L"CA_Configure", {L"CA_Configure: could not open C:\\cfg.xml: access denied."});
    log.rollbackAndEnd();
    putLog(log);
    std::vector<corestring> result = FetchErrorLines(corestring(kLog));
    EXPECT_EQ(nullptr, GetFailedCustomActionName(result).handle());
    EXPECT_EQ(L"CA_Configure: could not open C:\\cfg.xml: access deniedCustomAction CA_Configure returned actual "
              L"error code 1603 ",
              whole(GetFailedCAErrorMessage(result)));
}

TEST_F(InstallerLogTest, WindowOfAGeneratedDeferredFailureNamesTheScheduledAction)
{
    VerboseLog log;
    log.engineLines(100).succeeds(L"InstallFiles");
    log.customActionFails(L"CA_Service", {L"CA_Service: service Agent did not start."}, true);
    log.rollbackAndEnd();
    putLog(log);
    std::vector<corestring> result = FetchErrorLines(corestring(kLog));
    EXPECT_EQ(L"CA_Service", whole(GetFailedCustomActionName(result)));
    EXPECT_EQ(L"CA_Service: service Agent did not startCustomAction CA_Service returned actual error code 1603 ",
              whole(GetFailedCAErrorMessage(result)));
}

TEST_F(InstallerLogTest, BinaryLogIsReadAsTextWithoutHarm)
{
    std::string bytes;
    std::uint32_t state = 12345;
    for (int i = 0; i < 200000; ++i) {
        state = state * 1103515245u + 12345u;
        bytes.push_back(static_cast<char>(state >> 24));
    }
    p.files.addFile(kLog, bytes);
    std::vector<corestring> result = FetchErrorLines(corestring(kLog));
    // Whatever lines the bytes make, the window never holds more than the file.
    std::uint64_t characters = 0;
    for (const corestring& line : result)
        characters += line.length();
    EXPECT_LE(characters, bytes.size() / 2);
    GetFailedCustomActionName(result);
    GetFailedCAErrorMessage(result);
    EXPECT_TRUE(p.logHas(std::wstring(L"FetchErrorLines: Opened MSI log file - ") + kLog + L" "));
}

TEST_F(InstallerLogTest, Utf8LogFindsNoMarkerAndComesBackAsOneLine)
{
    VerboseLog log;
    log.engineLines(10).customActionFails(L"CA_X", {L"CA_X: failed"});
    std::wstring text = log.text();
    p.files.addFile(kLog, std::string(text.begin(), text.end()));  // ASCII is its own UTF-8
    std::vector<corestring> result = FetchErrorLines(corestring(kLog));
    ASSERT_EQ(1u, result.size());
    EXPECT_EQ(nullptr, GetFailedCustomActionName(result).handle());
}
