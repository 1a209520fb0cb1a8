// The tool's own reading, run on bytes from memory, is what the tool reads
// from a file.
#include "ContractReading.h"

#include <gtest/gtest.h>

#include "diagnostics/InstallerLog.h"
#include "fakes/FakePlatform.h"
#include "fakes/VerboseMsiLog.h"
#include "platform/Services.h"

using namespace ztmsilog;
using fakes::FakePlatform;
using msilog::VerboseLog;

namespace {

const wchar_t* kLog = L"C:\\logs\\install.log";

std::vector<std::wstring> withCr(const std::vector<std::wstring>& lines)
{
    std::vector<std::wstring> result;
    for (const std::wstring& line : lines)
        result.push_back(line + L"\r");
    return result;
}

// The tool's functions on the same bytes, read from the fake file system.
ContractReading fromTheFakeFile(FakePlatform& p, const std::string& bytes)
{
    p.files.addFile(kLog, bytes);
    ContractReading reading;
    const std::vector<CORE::corestring> lines = FetchErrorLines(CORE::corestring(kLog));
    for (const CORE::corestring& line : lines)
        reading.window.push_back(fakes::whole(line));
    const CORE::corestring name = GetFailedCustomActionName(lines);
    if (name.handle())
        reading.name = fakes::whole(name);
    const CORE::corestring message = GetFailedCAErrorMessage(lines);
    if (message.handle())
        reading.message = fakes::whole(message);
    return reading;
}

}  // namespace

TEST(ContractReadingTest, ImmediateFailureGivesItsWindowAndNoName)
{
    FakePlatform p;
    VerboseLog log;
    log.engineLines(50).succeeds(L"CostInitialize").succeeds(L"InstallInitialize");
    log.customActionFails(L"CA_Configure", {L"CA_Configure: could not open C:\\cfg.xml: access denied"});
    log.rollbackAndEnd();
    const ContractReading tool = ReadAsTheToolDoes(log.fileBytes());
    EXPECT_EQ(withCr({
                  L"Action start 12:00:03: CA_Configure.",
                  VerboseLog::engine(L"Invoking remote custom action. DLL: C:\\Windows\\Installer\\MSI4F2A.tmp, "
                                     L"Entrypoint: CA_ConfigureEntry"),
                  L"CA_Configure: could not open C:\\cfg.xml: access denied",
                  L"CustomAction CA_Configure returned actual error code 1603 (note this may not be 100% accurate if "
                  L"translation happened inside sandbox)",
                  L"Action ended 12:00:03: CA_Configure. Return value 3.",
              }),
              tool.window);
    EXPECT_FALSE(tool.name.has_value());
    EXPECT_EQ(L"CA_Configure: could not open C:\\cfg.xml: access deniedCustomAction CA_Configure returned actual "
              L"error code 1603 ",
              tool.message);
}

TEST(ContractReadingTest, DeferredFailureIsNamedByTheSchedule)
{
    FakePlatform p;
    VerboseLog log;
    log.engineLines(20).succeeds(L"InstallFiles");
    log.customActionFails(L"CA_Service", {L"CA_Service: service Agent did not start."}, true);
    log.rollbackAndEnd();
    const ContractReading tool = ReadAsTheToolDoes(log.fileBytes());
    EXPECT_EQ(L"CA_Service", tool.name);
    EXPECT_EQ(L"CA_Service", BareName(tool.name));
    EXPECT_EQ(L"Action ended 12:00:02: InstallExecute. Return value 3.\r", tool.window.back());
}

TEST(ContractReadingTest, SameAnswersAsTheToolOnAFile)
{
    FakePlatform p;
    VerboseLog log(msilog::Language::German);
    log.engineLines(10).succeeds(L"CostInitialize");
    log.customActionFails(L"CA_Konfig", {L"CA_Konfig: Zugriff verweigert", L"second line."});
    log.rollbackAndEnd();
    const ContractReading fromMemory = ReadAsTheToolDoes(log.fileBytes());
    const ContractReading fromFile = fromTheFakeFile(p, log.fileBytes());
    EXPECT_EQ(fromFile.window, fromMemory.window);
    EXPECT_EQ(fromFile.name, fromMemory.name);
    EXPECT_EQ(fromFile.message, fromMemory.message);
    // The German window starts at "Doing action:", whose last word is the name.
    EXPECT_EQ(L" CA_Konfig\r", fromMemory.name);
    EXPECT_EQ(L"CA_Konfig", BareName(fromMemory.name));
}

TEST(ContractReadingTest, Utf8BytesAreOneLineOfNoiseForTheTool)
{
    FakePlatform p;
    VerboseLog log;
    log.engineLines(10).customActionFails(L"CA_X", {L"CA_X: failed"});
    const std::wstring text = log.text();
    const std::string narrow(text.begin(), text.end());
    const ContractReading tool = ReadAsTheToolDoes(narrow);
    ASSERT_EQ(1u, tool.window.size());
    EXPECT_EQ(narrow.size() / 2, tool.window[0].size());
    EXPECT_FALSE(tool.name.has_value());
}

TEST(ContractReadingTest, EmptyBytesGiveNothing)
{
    FakePlatform p;
    const ContractReading tool = ReadAsTheToolDoes("");
    EXPECT_TRUE(tool.window.empty());
    EXPECT_FALSE(tool.name.has_value());
    EXPECT_FALSE(tool.message.has_value());
    EXPECT_TRUE(ReadAsTheToolDoes(std::string("x")).window.empty());
}

TEST(ContractReadingTest, ToolLogLinesGoNowhereAndTheServicesComeBack)
{
    FakePlatform p;
    VerboseLog log;
    log.engineLines(5).customActionFails(L"CA_X", {L"CA_X: failed"});
    ReadAsTheToolDoes(log.fileBytes());
    EXPECT_TRUE(p.logLines().empty());
    EXPECT_EQ(&p.files, platform::services().files);
    // The sink is back: the tool's own calls log again.
    GetFailedCustomActionName({});
    EXPECT_TRUE(p.logHas(L"GetFailedCustomActionName: INFO: GetFailedCustomActionName name - (null) "));
}

TEST(ContractReadingTest, BareNameLosesBlanksAndLineEnds)
{
    EXPECT_EQ(L"CA_Two", BareName(std::wstring(L" CA_Two\r")));
    EXPECT_EQ(L"", BareName(std::nullopt));
    EXPECT_EQ(L"", BareName(std::wstring(L" \r\n")));
}
