// What zt-msilog prints.
#include "Report.h"

#include "LogText.h"

#include <gtest/gtest.h>

#include "fakes/FakePlatform.h"
#include "fakes/VerboseMsiLog.h"

using namespace ztmsilog;
using msilog::VerboseLog;

namespace {

bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

std::size_t count(const std::string& text, const std::string& part)
{
    std::size_t n = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++n;
    return n;
}

}  // namespace

TEST(ReportTest, DeferredFailureInUtf16)
{
    fakes::FakePlatform p;
    VerboseLog log;
    log.engineLines(10).succeeds(L"InstallFiles");
    log.customActionFails(L"CA_Service", {L"CA_Service: service Agent did not start"}, true);
    log.rollbackAndEnd();
    const std::string report = FormatReport(L"C:\\logs\\a.log", log.fileBytes());
    EXPECT_TRUE(has(report, "log: C:\\logs\\a.log\n"));
    EXPECT_TRUE(has(report, "encoding: UTF-16 LE with byte order mark"));
    // One reading of the tool: the file is already as the engine writes it.
    EXPECT_EQ(1u, count(report, "  GetFailedCustomActionName: "));
    EXPECT_TRUE(has(report, "  GetFailedCustomActionName: \"CA_Service\"\n"));
    EXPECT_TRUE(has(report, "  | Action ended 12:00:02: InstallExecute. Return value 3.\\r\n"));
    EXPECT_TRUE(has(report, ": InstallExecute\n"));
    EXPECT_TRUE(has(report, ": CA_Service returned 1603\n"));
    EXPECT_TRUE(has(report, "failed action: CA_Service\n"));
    EXPECT_TRUE(has(report, "evidence: line "));
    EXPECT_TRUE(has(report, "MainEngineThread is returning 1603\n"));
}

TEST(ReportTest, Utf8FileIsReadTwiceByTheToolAndPrintedInUtf8)
{
    fakes::FakePlatform p;
    VerboseLog log(msilog::Language::German);
    log.engineLines(3).customActionFails(L"CA_Konfig", {L"CA_Konfig: Zugriff verweigert"});
    const std::string utf8 = ToUtf8(log.text());
    const std::string report = FormatReport(L"x.log", utf8);
    EXPECT_TRUE(has(report, "encoding: UTF-8 (or ASCII) without byte order mark"));
    EXPECT_EQ(2u, count(report, "  GetFailedCustomActionName: "));
    EXPECT_TRUE(has(report, "-- on the same lines as the engine writes them (UTF-16 LE with byte order mark, CR LF)\n"));
    EXPECT_TRUE(has(report, "  GetFailedCustomActionName: \" CA_Konfig\\r\"\n"));
    EXPECT_TRUE(has(report, "R\xC3\xBC" "ckgabewert 3."));
    EXPECT_TRUE(has(report, "failed action: CA_Konfig\n"));
}

TEST(ReportTest, LogWithoutFailureSaysUnknown)
{
    fakes::FakePlatform p;
    const std::string report = FormatReport(L"ok.log", "Action ended 12:00:00: InstallFiles. Return value 1.\r\n");
    EXPECT_TRUE(has(report, "failed action: unknown\nbecause: no failure in the log\n"));
    EXPECT_FALSE(has(report, "evidence:"));
}

TEST(ReportTest, EmptyAndBinaryFilesGiveAReport)
{
    fakes::FakePlatform p;
    EXPECT_TRUE(has(FormatReport(L"empty.log", ""), "failed action: unknown\n"));
    std::string bytes;
    for (int i = 0; i < 5000; ++i)
        bytes.push_back(static_cast<char>((i * 7919) & 0xFF));
    EXPECT_TRUE(has(FormatReport(L"binary.log", bytes), "\nfailed action: "));
}

TEST(ReportTest, VisibleShowsControlCharacters)
{
    EXPECT_EQ(L"a\\rb\\tc\\0d\\x01\\n", Visible(std::wstring(L"a\rb\tc\0d\x01\n", 9)));
    EXPECT_EQ(L"R\u00fcck", Visible(L"R\u00fcck"));
}
