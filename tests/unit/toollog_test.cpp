#include "diagnostics/ToolLog.h"

#include <gtest/gtest.h>

#include "fakes/FakePlatform.h"

using CORE::corestring;
using fakes::FakePlatform;

namespace {

const wchar_t* kNewRoot = L"Software\\Tarvelle\\Zenthra";
const wchar_t* kLegacyRoot = L"Software\\Kesmarc, Inc.\\Kesmarc TQM";
const wchar_t* kLogName = L"Tarvelle_Agent_Update_20261113233514.log";

std::wstring fileText(const FakePlatform& p, const std::wstring& path)
{
    std::vector<unsigned char> bytes = p.files.bytesOf(path);
    if (bytes.size() < 2 || bytes[0] != 0xFF || bytes[1] != 0xFE)
        return L"<no BOM>";
    return std::wstring(reinterpret_cast<const wchar_t*>(bytes.data() + 2), (bytes.size() - 2) / 2);
}

struct ToolLogTest : ::testing::Test {
    FakePlatform p;
    ToolLog log;

    void SetUp() override
    {
        p.files.addDirectory(L"D:\\Logs");
        p.keys.putString(HKEY_LOCAL_MACHINE, kNewRoot, L"InstallLogsDir", L"D:\\Logs");
    }
    void TearDown() override { ToolLog::Close(log); }
};

}  // namespace

TEST(FormatTimeStamp, DateAndTimeUseDashesAndDots)
{
    struct tm t {};
    t.tm_year = 126;
    t.tm_mon = 10;
    t.tm_mday = 13;
    t.tm_hour = 23;
    t.tm_min = 5;
    t.tm_sec = 4;
    EXPECT_STREQ(L"2026-11-13 23.05.04", FormatTimeStamp(t, L'-', L'.', 0, 0).c_str());
    EXPECT_STREQ(L"2026-11-13 23.05.04,007", FormatTimeStamp(t, L'-', L'.', L',', 7).c_str());
}

TEST(FormatTimeStamp, ZeroSeparatorLeavesThePartOut)
{
    struct tm t {};
    t.tm_year = 99;
    t.tm_mon = 0;
    t.tm_mday = 2;
    t.tm_hour = 3;
    t.tm_min = 4;
    t.tm_sec = 5;
    EXPECT_STREQ(L"1999/01/02", FormatTimeStamp(t, L'/', 0, 0, 0).c_str());
    EXPECT_STREQ(L"03:04:05", FormatTimeStamp(t, 0, L':', 0, 0).c_str());
    EXPECT_STREQ(L"03:04:05.999", FormatTimeStamp(t, 0, L':', L'.', 999).c_str());
    EXPECT_EQ(0u, FormatTimeStamp(t, 0, 0, 0, 0).length());
}

TEST(NowAsText, ReadsTheClockWithMilliseconds)
{
    FakePlatform p;
    p.clock.milliseconds = 42;
    EXPECT_STREQ(L"2026-11-13 23.35.14.042", NowAsText(L'-', L'.', L'.').c_str());
}

TEST_F(ToolLogTest, OpenNamesTheFileAfterTheStartTimeInTheUpdatetoolFolder)
{
    ToolLog::Open(log, false);
    EXPECT_STREQ((std::wstring(L"D:\\Logs\\updatetool\\") + kLogName).c_str(), log.path().c_str());
    EXPECT_TRUE(p.files.isDirectory(L"D:\\Logs\\updatetool"));
}

TEST_F(ToolLogTest, BannerIsBeginMarkerThenVersionOfTheRunningProgram)
{
    p.files.addFile(p.processes.moduleFileName, std::string("MZ"));
    p.files.setFileVersion(p.processes.moduleFileName, 8, 12, 305, 4);
    ToolLog::Open(log, false);
    std::vector<std::wstring> lines = fakes::messagesOf(log.text().c_str());
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ(L"=== Begin === ", lines[0]);
    EXPECT_EQ(L"Updatetool Version: 8.12.305.4", lines[1]);
}

TEST_F(ToolLogTest, VersionLineIsEmptyBehindTheColonWithoutAVersionResource)
{
    p.processes.moduleFileName = L"C:\\nowhere\\missing.exe";
    ToolLog::Open(log, false);
    EXPECT_EQ(L"Updatetool Version: ", fakes::messagesOf(log.text().c_str()).at(1));
}

TEST_F(ToolLogTest, VersionLineIsEmptyForAFileWithoutAVersionResource)
{
    p.files.addFile(p.processes.moduleFileName, std::string("MZ"));
    ToolLog::Open(log, false);
    EXPECT_EQ(L"Updatetool Version: ", fakes::messagesOf(log.text().c_str()).at(1));
}

TEST_F(ToolLogTest, ProgramPathLongerThanTheBufferGivesAnEmptyVersion)
{
    // The name is cut to 259 characters: no file of that name has a version,
    // and a cut name is no failure of the call.
    std::wstring deep = L"C:\\" + std::wstring(300, L'd') + L"\\zenthra-updatetool.exe";
    p.processes.moduleFileName = deep;
    p.files.addFile(deep, std::string("MZ"));
    p.files.setFileVersion(deep, 1, 2, 3, 4);
    ToolLog::Open(log, false);
    EXPECT_EQ(L"Updatetool Version: ", fakes::messagesOf(log.text().c_str()).at(1));
}

TEST_F(ToolLogTest, WarningReplacesVersionLineWhenModuleNameFails)
{
    p.processes.moduleFileNameError = ERROR_NOT_ENOUGH_MEMORY;
    ToolLog::Open(log, false);
    EXPECT_EQ(L"WARNING: Unable to read this file version: (8)", fakes::messagesOf(log.text().c_str()).at(1));
}

TEST_F(ToolLogTest, FileIsUtf16WithBomAndStampedCrLfLines)
{
    ToolLog::Open(log, false);
    ToolLog::WriteLine(log, corestring(L"first"));
    std::wstring text = fileText(p, log.path().c_str());
    EXPECT_EQ(std::wstring(log.text().c_str()), text);
    EXPECT_NE(std::wstring::npos, text.find(L"2026-11-13 23.35.14: first\r\n"));
    EXPECT_EQ(0u, text.find(L"2026-11-13 23.35.14: === Begin === \r\n"));
}

TEST_F(ToolLogTest, EveryLineRewritesTheWholeFile)
{
    ToolLog::Open(log, false);
    for (int i = 0; i < 5; ++i) {
        corestring line;
        ToolLog::WriteLine(log, corestring::format(line, L"line %d", i));
        EXPECT_EQ(std::wstring(log.text().c_str()), fileText(p, log.path().c_str()));
    }
    EXPECT_EQ(0, p.files.openHandles());
}

TEST_F(ToolLogTest, ConsoleGetsStampColonMessageAndNewline)
{
    ToolLog::Open(log, false);
    p.console.output.clear();
    ToolLog::WriteLine(log, corestring(L"hello"));
    EXPECT_EQ(L"2026-11-13 23.35.14: hello\n", p.console.output);
}

TEST_F(ToolLogTest, NullMessageLeavesOnlyTheStamp)
{
    ToolLog::Open(log, false);
    ToolLog::WriteLine(log, corestring());
    std::wstring text = log.text().c_str();
    EXPECT_EQ(L"2026-11-13 23.35.14: \r\n", text.substr(text.size() - 23));
}

TEST_F(ToolLogTest, EmbeddedLineBreakIsKeptAndOneCrLfAdded)
{
    ToolLog::Open(log, false);
    ToolLog::WriteLine(log, corestring(L"a\nb"));
    std::wstring text = log.text().c_str();
    EXPECT_EQ(L": a\nb\r\n", text.substr(text.size() - 7));
}

TEST_F(ToolLogTest, AReaderHoldingTheFileDelaysLinesUntilTheNextWrite)
{
    ToolLog::Open(log, false);
    HANDLE reader = p.files.holdOpen(log.path().c_str());
    ToolLog::WriteLine(log, corestring(L"while held"));
    EXPECT_EQ(std::wstring::npos, fileText(p, log.path().c_str()).find(L"while held"));
    p.files.release(reader);
    ToolLog::WriteLine(log, corestring(L"after"));
    std::wstring text = fileText(p, log.path().c_str());
    EXPECT_NE(std::wstring::npos, text.find(L"while held\r\n"));
    EXPECT_NE(std::wstring::npos, text.find(L"after\r\n"));
}

TEST_F(ToolLogTest, TwoRunsInOneSecondShareTheFileAndTheSecondReplacesIt)
{
    ToolLog::Open(log, false);
    ToolLog::WriteLine(log, corestring(L"first run's line"));
    ToolLog second;
    ToolLog::Open(second, false);
    EXPECT_STREQ(log.path().c_str(), second.path().c_str());
    std::wstring text = fileText(p, second.path().c_str());
    EXPECT_EQ(std::wstring::npos, text.find(L"first run's line"));
    EXPECT_EQ(std::wstring(second.text().c_str()), text);
    ToolLog::Close(second);
}

TEST_F(ToolLogTest, CloseWritesEndMarkerAndReleasesBothFields)
{
    ToolLog::Open(log, false);
    std::wstring path = log.path().c_str();
    ToolLog::Close(log);
    std::wstring text = fileText(p, path);
    EXPECT_EQ(L"=== End ===", fakes::messagesOf(text).back());
    EXPECT_EQ(nullptr, log.text().handle());
    EXPECT_EQ(nullptr, log.path().handle());
}

TEST_F(ToolLogTest, OpenStartsFromAnEmptyText)
{
    ToolLog::WriteLine(log, corestring(L"before open"));
    ToolLog::Open(log, false);
    EXPECT_EQ(std::wstring::npos, std::wstring(log.text().c_str()).find(L"before open"));
}

TEST(ToolLogDirectory, LegacyRootIsReadWhenTheNewRootHasNone)
{
    FakePlatform p;
    p.keys.putString(HKEY_LOCAL_MACHINE, kLegacyRoot, L"InstallLogsDir", L"E:\\Old");
    EXPECT_STREQ(L"E:\\Old\\updatetool", GetInstallerLogsDirectory().c_str());
}

TEST(ToolLogDirectory, NewRootWinsOverLegacyRoot)
{
    FakePlatform p;
    p.keys.putString(HKEY_LOCAL_MACHINE, kNewRoot, L"InstallLogsDir", L"D:\\New\\");
    p.keys.putString(HKEY_LOCAL_MACHINE, kLegacyRoot, L"InstallLogsDir", L"E:\\Old");
    EXPECT_STREQ(L"D:\\New\\updatetool", GetInstallerLogsDirectory().c_str());
}

TEST(ToolLogDirectory, EmptyNewRootValueFallsThroughToLegacy)
{
    FakePlatform p;
    p.keys.putString(HKEY_LOCAL_MACHINE, kNewRoot, L"InstallLogsDir", L"");
    p.keys.putString(HKEY_LOCAL_MACHINE, kLegacyRoot, L"InstallLogsDir", L"E:\\Old");
    EXPECT_STREQ(L"E:\\Old\\updatetool", GetInstallerLogsDirectory().c_str());
}

TEST(ToolLogDirectory, WorkspaceWhenNeitherRootNamesOne)
{
    FakePlatform p;
    EXPECT_STREQ(L"C:\\Windows\\Temp\\updatetool-data\\updatetool", GetInstallerLogsDirectory().c_str());
}

TEST(ToolLogDirectory, MissingParentMeansNoFileButConsoleLinesAllTheSame)
{
    FakePlatform p;
    p.keys.putString(HKEY_LOCAL_MACHINE, kNewRoot, L"InstallLogsDir", L"D:\\NoSuchParent\\Logs");
    ToolLog log;
    ToolLog::Open(log, false);
    ToolLog::WriteLine(log, corestring(L"still printed"));
    EXPECT_FALSE(p.files.exists(L"D:\\NoSuchParent\\Logs\\updatetool"));
    EXPECT_FALSE(p.files.exists(log.path().c_str()));
    EXPECT_NE(std::wstring::npos, p.console.output.find(L"still printed\n"));
    EXPECT_NE(std::wstring::npos, p.console.output.find(L"=== Begin === \n"));
    ToolLog::Close(log);
}

TEST(GetFileVersionString, FourPartsOfTheFileVersion)
{
    wchar_t self[MAX_PATH] = {};
    ::GetModuleFileNameW(nullptr, self, MAX_PATH);
    EXPECT_EQ(std::string(ZT_VERSION_TEXT), GetFileVersionString(self));
}

TEST(GetFileVersionString, EmptyForAFileWithoutVersion)
{
    EXPECT_EQ(std::string(), GetFileVersionString(L"C:\\no\\such\\file.exe"));
}
