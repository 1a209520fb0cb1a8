#include "app/RunSequence.h"

#include <gtest/gtest.h>

#include "agent/Agent.h"
#include "fakes/FakePlatform.h"
#include "update/UpdateRecord.h"

using CORE::corestring;
using fakes::FakePlatform;

namespace {

const wchar_t* kNewUpdate = L"Software\\Tarvelle\\Zenthra\\Agent\\Update";
const wchar_t* kLegacyUpdate = L"Software\\Kesmarc, Inc.\\Kesmarc TQM\\Agent\\Update";
const wchar_t* kNewVolatile = L"Software\\Tarvelle\\Zenthra\\Agent\\UpdateStatusVolatile";
const wchar_t* kLegacyVolatile = L"Software\\Kesmarc, Inc.\\Kesmarc TQM\\Agent\\UpdateStatusVolatile";
const wchar_t* kMutex = L"Global\\3D7E0C14-6AB2-4F95-B0E1-92C5F7A3D168";
const std::wstring kWaitLine =
    L"wmain: Reboot action triggered by Update tool is still pending, waiting for (5) minutes before proceeeding..";

struct RunTest : ::testing::Test {
    FakePlatform p;
    bool savedHost = isHostX64;
    void SetUp() override { isHostX64 = true; }
    void TearDown() override { isHostX64 = savedHost; }
};

}  // namespace

class KillSwitch : public RunTest, public ::testing::WithParamInterface<const wchar_t*> {};

TEST_P(KillSwitch, FalseUnderTheNewRootEndsWithoutALine)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kNewUpdate, L"Enabled", GetParam());
    EXPECT_EQ(ERR_KILLSWITCH, RunUpdateTool());
    EXPECT_TRUE(p.logLines().empty());
    EXPECT_TRUE(p.processes.mutexCalls.empty());
    EXPECT_TRUE(p.clock.sleeps.empty());
}

INSTANTIATE_TEST_SUITE_P(Texts, KillSwitch, ::testing::Values(L"false", L"0", L"no", L"off", L"FALSE", L"0x0"));

TEST_F(RunTest, KillSwitchUnderTheLegacyRootAloneHasNoEffect)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kLegacyUpdate, L"Enabled", L"false");
    EXPECT_NE(ERR_KILLSWITCH, RunUpdateTool());
    EXPECT_EQ(1u, p.processes.mutexCalls.size());
}

TEST_F(RunTest, KillSwitchFromGroupPolicyWinsOverTheOrdinaryValue)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kNewUpdate, L"Enabled", L"1");
    p.keys.putString(HKEY_LOCAL_MACHINE, L"Software\\Policies\\Tarvelle\\Zenthra\\Agent\\Update", L"Enabled", L"0");
    EXPECT_EQ(ERR_KILLSWITCH, RunUpdateTool());
}

TEST_F(RunTest, EnabledIsReadTwiceFromTheNewRoot)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kNewUpdate, L"Enabled", L"true");
    p.keys.clearLog();
    EXPECT_TRUE(IsUpdateToolEnabled());
    int opens = 0;
    for (const std::wstring& path : p.keys.openedPaths())
        if (path == L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\Update")
            ++opens;
    EXPECT_EQ(2, opens);
}

TEST_F(RunTest, AbsentEnabledLeavesTheToolEnabled) { EXPECT_TRUE(IsUpdateToolEnabled()); }

TEST_F(RunTest, SecondInstanceLogsAndEndsWithDuplicate)
{
    p.processes.mutexes.insert(kMutex);
    p.keys.putString(HKEY_LOCAL_MACHINE, L"Software\\Tarvelle\\Zenthra\\Agent\\Update\\Job1", L"STATE", L"WAIT");
    EXPECT_EQ(ERR_DUPLICATE, RunUpdateTool());
    std::vector<std::wstring> lines = p.logLines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ(L"zenthra-updatetool.exe duplicate instance, exit now\n", lines[0]);
    EXPECT_EQ(L"WAIT", p.keys.stringValue(HKEY_LOCAL_MACHINE, L"Software\\Tarvelle\\Zenthra\\Agent\\Update\\Job1",
                                          L"STATE").value_or(L""));
    EXPECT_TRUE(p.clock.sleeps.empty());
}

TEST_F(RunTest, MutexIsGlobalAndAskedForOnce)
{
    RunUpdateTool();
    ASSERT_EQ(1u, p.processes.mutexCalls.size());
    EXPECT_EQ(kMutex, p.processes.mutexCalls[0]);
}

TEST_F(RunTest, NeedRebootUnderTheLegacyRootOnlyWaitsFiveMinutes)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kLegacyVolatile, L"NeedReboot", L"1");
    RunUpdateTool();
    EXPECT_TRUE(p.logHas(kWaitLine));
    ASSERT_EQ(1u, p.clock.sleeps.size());
    EXPECT_EQ(300000u, p.clock.sleeps[0]);
}

TEST_F(RunTest, NeedRebootUnderBothRootsWaitsOnce)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kNewVolatile, L"NeedReboot", L"1");
    p.keys.putString(HKEY_LOCAL_MACHINE, kLegacyVolatile, L"NeedReboot", L"1");
    RunUpdateTool();
    EXPECT_EQ(1u, p.clock.sleeps.size());
    int waits = 0;
    for (const std::wstring& line : p.logLines())
        waits += line == kWaitLine;
    EXPECT_EQ(1, waits);
}

TEST_F(RunTest, NeedRebootOfAnyTypeEvenEmptyCounts)
{
    p.keys.putBytes(HKEY_LOCAL_MACHINE, kNewVolatile, L"NeedReboot", REG_BINARY, {});
    RunUpdateTool();
    EXPECT_EQ(1u, p.clock.sleeps.size());
}

TEST_F(RunTest, NoNeedRebootNoWait)
{
    RunUpdateTool();
    EXPECT_TRUE(p.clock.sleeps.empty());
    EXPECT_FALSE(p.logHas(kWaitLine));
}

TEST_F(RunTest, RunWithoutJobReachesTheClosingLineWithItsResultName)
{
    RunResult result = RunUpdateTool();
    EXPECT_EQ(ERR_FAILURE, result);
    std::vector<std::wstring> lines = p.logLines();
    ASSERT_GE(lines.size(), 5u);
    EXPECT_EQ(L"App::ParseCmdline: cmdLine: [zenthra-updatetool.exe]", lines[0]);
    EXPECT_EQ(L"UtilGetActiveUpdate: No Kesmarc active updates", lines[1]);
    EXPECT_EQ(L"UtilGetActiveUpdate: Check for Tarvelle active updates", lines[2]);
    EXPECT_EQ(L"UtilGetActiveUpdate: No Tarvelle active updates", lines[3]);
    EXPECT_EQ(L"wmain: Updatetool rc = ERR_FAILURE", lines.back());
    for (const std::wstring& line : lines)
        EXPECT_EQ(std::wstring::npos, line.find(L"App::CheckPlatform")) << line;
}

TEST(GetRunResultName, NamesEveryCodeOfTheTable)
{
    const std::pair<RunResult, const wchar_t*> table[] = {
        {0, L"ERR_SUCCESS"},
        {-1, L"ERR_FAILURE"},
        {-2, L"ERR_KILLSWITCH"},
        {-3, L"ERR_DUPLICATE"},
        {-4, L"ERR_NOAGENT"},
        {-5, L"ERR_LAUNCH"},
        {-6, L"ERR_INCOMPATIBLE"},
        {-7, L"ERR_REBOOT"},
        {-9, L"ERR_PREFLIGHTCHECK_OK"},
        {-10, L"ERR_PREFLIGHTCHECK_FAILED"},
        {-11, L"ERR_PREFLIGHTCHECK_REBOOT"},
        {-12, L"ERR_PREFLIGHTCHECK_INSUFFICIENT_DISK"},
        {-13, L"ERR_PREFLIGHTCHECK_UPDATE_INPROGRESS"},
        {-14, L"ERR_PREFLIGHTCHECK_INVALID_UNC_PATH"},
    };
    for (const auto& [code, name] : table)
        EXPECT_STREQ(name, GetRunResultName(code).c_str()) << code;
}

TEST(GetRunResultName, CodesOutsideTheTableAreNumbered)
{
    EXPECT_STREQ(L"Update ERR_-8", GetRunResultName(-8).c_str());
    EXPECT_STREQ(L"Update ERR_5", GetRunResultName(5).c_str());
    EXPECT_STREQ(L"Update ERR_-15", GetRunResultName(-15).c_str());
}

struct PlatformRow {
    const wchar_t* arch;
    bool hostX64;
    RunResult expected;
};

class PlatformCheck : public ::testing::TestWithParam<PlatformRow> {};

TEST_P(PlatformCheck, AcceptsOrRejectsTheJobsArch)
{
    FakePlatform p;
    const PlatformRow& row = GetParam();
    EXPECT_EQ(row.expected, CheckPlatform(corestring(row.arch), row.hostX64));
    if (row.expected == ERR_SUCCESS) {
        EXPECT_TRUE(p.logLines().empty());
    } else {
        std::wstring line = L"App::CheckPlatform: arch type mismatch: " + std::wstring(row.arch) + L" on " +
                            (row.hostX64 ? L"64-bit" : L"32-bit") + L" host";
        EXPECT_TRUE(p.logHas(line)) << line;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Rows, PlatformCheck,
    ::testing::Values(PlatformRow{L"64-BitAgent", true, ERR_SUCCESS}, PlatformRow{L"64-bitagent", true, ERR_SUCCESS},
                      PlatformRow{L"64-BitAgentX", true, ERR_INCOMPATIBLE},
                      PlatformRow{L"64-BitAgent", false, ERR_INCOMPATIBLE},
                      PlatformRow{L"32-BitAgent", true, ERR_INCOMPATIBLE},
                      PlatformRow{L"32-BitAgent", false, ERR_SUCCESS}, PlatformRow{L"32-bitAGENT", false, ERR_SUCCESS},
                      PlatformRow{L"Use32-BitAgentOn64", true, ERR_SUCCESS},
                      PlatformRow{L"Use32-BitAgentOn64", false, ERR_SUCCESS},
                      PlatformRow{L"use32-bitagenton64", true, ERR_SUCCESS},
                      PlatformRow{L"Use32-BitAgentOn64X", true, ERR_INCOMPATIBLE},
                      PlatformRow{L"64-Bit", true, ERR_INCOMPATIBLE}));

TEST(PlatformCheckEmpty, EmptyArchIsIncompatible)
{
    FakePlatform p;
    EXPECT_EQ(ERR_INCOMPATIBLE, CheckPlatform(corestring(), true));
    EXPECT_TRUE(p.logHas(L"App::CheckPlatform: arch type empty"));
}

TEST(IsPreflightCheckComplete, ReadsTheMarkerOfTheActiveJobUnderTheNewRoot)
{
    FakePlatform p;
    g_updateRecord.sUpdateKey = L"Job1";
    EXPECT_FALSE(IsPreflightCheckComplete());
    p.keys.putDword(HKEY_LOCAL_MACHINE, L"Software\\Tarvelle\\Zenthra\\Agent\\Update\\Job1", L"PreflightCheckComplete", 1);
    EXPECT_TRUE(IsPreflightCheckComplete());
}

TEST(IsPreflightCheckComplete, IgnoresTheLegacyRootEvenForALegacyJob)
{
    FakePlatform p;
    g_updateRecord.sUpdateKey = L"Job1";
    g_updateRecord.bLegacyUpgrade = true;
    p.keys.putDword(HKEY_LOCAL_MACHINE, L"Software\\Kesmarc, Inc.\\Kesmarc TQM\\Agent\\Update\\Job1",
                    L"PreflightCheckComplete", 1);
    EXPECT_FALSE(IsPreflightCheckComplete());
}

TEST(IsPreflightCheckComplete, IsNotPolicyAware)
{
    FakePlatform p;
    g_updateRecord.sUpdateKey = L"Job1";
    p.keys.putString(HKEY_LOCAL_MACHINE, L"Software\\Policies\\Tarvelle\\Zenthra\\Agent\\Update\\Job1",
                     L"PreflightCheckComplete", L"1");
    EXPECT_FALSE(IsPreflightCheckComplete());
}
