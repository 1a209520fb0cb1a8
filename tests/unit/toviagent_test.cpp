#include "agent/ToviAgent.h"

#include <gtest/gtest.h>

#include "agent_test_support.h"
#include "update/UpdateRecord.h"

using namespace agent_test;

namespace {

const wchar_t kNewCode[] = L"{6E1F3A90-52D7-4B1C-9C3E-7A40D2B1F6E8}";
const wchar_t kLegacyCode[] = L"{C04B7D21-8E36-47FA-A15D-3F9E26C8B074}";
const wchar_t kNewProduct[] = L"{10000000-0000-0000-0000-00000000000A}";
const wchar_t kLegacyProduct[] = L"{20000000-0000-0000-0000-00000000000B}";

void putProductVersion(AgentPlatform& env, const wchar_t* text)
{
    env.p.keys.putString(HKEY_LOCAL_MACHINE, L"Software\\Tarvelle\\Zenthra", L"ProductVersion", text);
}

Launched launch(AgentPlatform& env, const wchar_t* file, std::uint32_t rebootMode = 0, const wchar_t* options = L"")
{
    ToviAgent agent{corestring(), corestring(file)};
    return launchAgent(env, agent, rebootMode, options);
}

std::uint32_t resultForExitCode(AgentPlatform& env, DWORD code)
{
    env.processes.exitCode = code;
    Launched l = launch(env, L"C:\\pkgs\\agent.exe");
    EXPECT_EQ(code, l.exitCode);
    return l.result;
}

}  // namespace

// ---- GetVersion ----

TEST(ToviAgentGetVersion, ProductUnderTheNewUpgradeCodeIsTheInstalledVersion)
{
    AgentPlatform env;
    HostArch host(true);
    env.p.installer.addProduct(kNewCode, kNewProduct, L"8.10.0.5");
    env.p.installer.addProduct(kLegacyCode, kLegacyProduct, L"7.0.0.1");
    putProductVersion(env, L"6.0.0");
    env.addInstaller(L"Kesmarc-Zenthra-Agent-x86_64-8.12.0-9876543.exe");
    ToviAgent agent{corestring(), corestring()};
    EXPECT_TRUE(agent.GetVersion());
    EXPECT_STREQ(L"8.10.0.5", agent.installedVersion.c_str());
    ASSERT_EQ(1u, env.p.installer.enumCalls.size());
    EXPECT_EQ(kNewCode, env.p.installer.enumCalls[0].upgradeCode);
    EXPECT_TRUE(env.linesOf(L"Agent::FindInstalledVersion").empty());
    EXPECT_EQ((std::vector<std::wstring>{
                  L"ToviAgent::GetVersion: installedVersion: 8.10.0.5",
                  L"ToviAgent::GetVersion: updateVersion: 8.12.0-9876543 updateFileName: " + kWorkspace +
                      L"\\Kesmarc-Zenthra-Agent-x86_64-8.12.0-9876543.exe"}),
              env.linesOf(L"ToviAgent::GetVersion"));
}

TEST(ToviAgentGetVersion, ProductUnderTheLegacyCodeOnlyIsFoundAfterOneLoggedFailure)
{
    AgentPlatform env;
    HostArch host(true);
    env.p.installer.addProduct(kLegacyCode, kLegacyProduct, L"7.5.0.3");
    putProductVersion(env, L"6.0.0");
    ToviAgent agent{corestring(), corestring()};
    agent.GetVersion();
    EXPECT_STREQ(L"7.5.0.3", agent.installedVersion.c_str());
    ASSERT_EQ(2u, env.p.installer.enumCalls.size());
    EXPECT_EQ(kNewCode, env.p.installer.enumCalls[0].upgradeCode);
    EXPECT_EQ(kLegacyCode, env.p.installer.enumCalls[1].upgradeCode);
    EXPECT_EQ(std::vector<std::wstring>{std::wstring(L"Agent::FindInstalledVersion: MsiEnumRelatedProducts failed: "
                                                     L"259 code: ") + kNewCode},
              env.linesOf(L"Agent::FindInstalledVersion"));
    EXPECT_TRUE(env.logHas(L"ToviAgent::GetVersion: installedVersion: 7.5.0.3"));
}

TEST(ToviAgentGetVersion, NoProductFallsBackToProductVersionUnderTheNewRoot)
{
    AgentPlatform env;
    HostArch host(true);
    putProductVersion(env, L"8.9.1-44");
    ToviAgent agent{corestring(), corestring()};
    agent.GetVersion();
    EXPECT_STREQ(L"8.9.1-44", agent.installedVersion.c_str());
    EXPECT_EQ(2u, env.linesOf(L"Agent::FindInstalledVersion").size());
    EXPECT_TRUE(env.logHas(L"ToviAgent::GetVersion: installedVersion: 8.9.1-44"));
}

TEST(ToviAgentGetVersion, ProductVersionUnderTheLegacyRootIsNotRead)
{
    AgentPlatform env;
    HostArch host(true);
    env.p.keys.putString(HKEY_LOCAL_MACHINE, L"Software\\Kesmarc, Inc.\\Kesmarc TQM", L"ProductVersion", L"7.0.0");
    ToviAgent agent{corestring(), corestring()};
    agent.GetVersion();
    EXPECT_TRUE(agent.installedVersion.empty());
}

TEST(ToviAgentGetVersion, NothingFoundLeavesTheVersionEmptyAndCompVersionAsksForTheUpgrade)
{
    AgentPlatform env;
    HostArch host(true);
    putProductVersion(env, L"");
    env.addInstaller(L"Kesmarc-Zenthra-Agent-x86_64-8.12.0-1.exe");
    ToviAgent agent{corestring(), corestring()};
    EXPECT_TRUE(agent.GetVersion());
    EXPECT_TRUE(agent.installedVersion.empty());
    EXPECT_TRUE(env.logHas(L"ToviAgent::GetVersion: installed version not found"));
    EXPECT_TRUE(agent.CompVersion());
    EXPECT_TRUE(agent.upgradeNeeded);
    EXPECT_TRUE(env.logHas(L"Agent::CompVersion: installed version not found"));
}

TEST(ToviAgentGetVersion, DirectConnectionInstallerIsNeverTaken)
{
    AgentPlatform env;
    HostArch host(true);
    env.p.installer.addProduct(kNewCode, kNewProduct, L"8.10.0");
    env.addInstaller(L"Kesmarc-Zenthra-Agent-x86_64-direct-connection-8.12.0-1.exe");
    ToviAgent agent{corestring(), corestring()};
    EXPECT_FALSE(agent.GetVersion());
    EXPECT_TRUE(agent.updateFilename.empty());
    EXPECT_EQ(std::vector<std::wstring>{kWorkspace + L"\\Kesmarc-Zenthra-Agent-x86_64*"}, env.files.patterns);
    EXPECT_EQ((std::vector<std::wstring>{L"ToviAgent::GetVersion: installedVersion: 8.10.0",
                                         L"ToviAgent::GetVersion: update version not found"}),
              env.linesOf(L"ToviAgent::GetVersion"));
}

TEST(ToviAgentGetVersion, On32BitHostThe32BitInstallerIsTaken)
{
    AgentPlatform env;
    HostArch host(false);
    env.addInstaller(L"Kesmarc-Zenthra-Agent-x86_64-8.12.0-1.exe");
    env.addInstaller(L"Kesmarc-Zenthra-Agent-8.12.0-1.exe");
    ToviAgent agent{corestring(), corestring()};
    EXPECT_TRUE(agent.GetVersion());
    EXPECT_EQ(kWorkspace + L"\\Kesmarc-Zenthra-Agent-8.12.0-1.exe", agent.updateFilename.c_str());
    EXPECT_STREQ(L"8.12.0-1", agent.updateVersion.c_str());
    EXPECT_EQ(std::vector<std::wstring>{kWorkspace + L"\\Kesmarc-Zenthra-Agent*"}, env.files.patterns);
}

TEST(ToviAgentGetVersion, EmptyWorkspaceFindsNoUpdate)
{
    AgentPlatform env;
    HostArch host(true);
    ToviAgent agent{corestring(), corestring()};
    EXPECT_FALSE(agent.GetVersion());
    EXPECT_TRUE(env.logHas(L"ToviAgent::GetVersion: update version not found"));
    EXPECT_EQ(1u, env.linesOf(L"Agent::FindUpdateVersion").size());
}

TEST(ToviAgentGetVersion, FilenameFromTheRecordSkipsTheSearchAndKeepsItsVersion)
{
    AgentPlatform env;
    HostArch host(true);
    env.addInstaller(L"Kesmarc-Zenthra-Agent-x86_64-9.0.0-1.exe");
    ToviAgent agent{corestring(L"8.12.0-5"), corestring(L"agent.exe")};
    EXPECT_TRUE(agent.GetVersion());
    EXPECT_TRUE(env.files.patterns.empty());
    EXPECT_STREQ(L"8.12.0-5", agent.updateVersion.c_str());
    EXPECT_EQ(kWorkspace + L"\\agent.exe", agent.updateFilename.c_str());
    EXPECT_TRUE(env.logHas(L"ToviAgent::GetVersion: updateVersion: 8.12.0-5 updateFileName: " + kWorkspace +
                           L"\\agent.exe"));
}

TEST(ToviAgentGetVersion, EmptyRecordVersionIsLoggedByCompVersionAndComparesAsZeros)
{
    AgentPlatform env;
    HostArch host(true);
    env.p.installer.addProduct(kNewCode, kNewProduct, L"8.10.0-3");
    ToviAgent agent{corestring(), corestring(L"agent.exe")};
    EXPECT_TRUE(agent.GetVersion());
    EXPECT_TRUE(agent.updateVersion.empty());
    EXPECT_FALSE(agent.CompVersion());
    EXPECT_FALSE(agent.upgradeNeeded);
    EXPECT_TRUE(env.logHas(L"Agent::CompVersion: cannot determine update version: "));
}

// ---- Launch ----

TEST(ToviAgentLaunch, PlainPathGetsTheSilentSwitchesAndTheTqmProperty)
{
    AgentPlatform env;
    EXPECT_EQ(L"C:\\pkgs\\agent.exe /s /v /qn TQM_SKIP_ADD_LDAP_MACHINE_ENTRY=1",
              launch(env, L"C:\\pkgs\\agent.exe").commandLine);
}

TEST(ToviAgentLaunch, PathWithABlankIsQuoted)
{
    AgentPlatform env;
    EXPECT_EQ(L"\"C:\\my pkgs\\agent.exe\" /s /v /qn TQM_SKIP_ADD_LDAP_MACHINE_ENTRY=1 ADDLOCAL=Core",
              launch(env, L"C:\\my pkgs\\agent.exe", 0, L"ADDLOCAL=Core").commandLine);
}

TEST(ToviAgentLaunch, RebootModeTwoForcesTheReboot)
{
    AgentPlatform env;
    EXPECT_EQ(L"C:\\pkgs\\agent.exe /s /v /qn TQM_SKIP_ADD_LDAP_MACHINE_ENTRY=1 REBOOT=Force",
              launch(env, L"C:\\pkgs\\agent.exe", 2).commandLine);
}

TEST(ToviAgentLaunch, RebootModeOneSuppressesItBehindTheTqmPropertyAndAheadOfTheOptions)
{
    AgentPlatform env;
    EXPECT_EQ(L"C:\\pkgs\\agent.exe /s /v /qn TQM_SKIP_ADD_LDAP_MACHINE_ENTRY=1 REBOOT=ReallySuppress "
              L"PREFLIGHTCHECK_ENABLED=1",
              launch(env, L"C:\\pkgs\\agent.exe", 1, L"PREFLIGHTCHECK_ENABLED=1").commandLine);
}

TEST(ToviAgentLaunch, OtherRebootModesAddNoProperty)
{
    AgentPlatform env;
    EXPECT_EQ(L"C:\\pkgs\\agent.exe /s /v /qn TQM_SKIP_ADD_LDAP_MACHINE_ENTRY=1",
              launch(env, L"C:\\pkgs\\agent.exe", 3).commandLine);
}

TEST(ToviAgentLaunch, ExitCodeZeroIsSuccess)
{
    AgentPlatform env;
    EXPECT_EQ(0u, resultForExitCode(env, 0));
}

TEST(ToviAgentLaunch, ExitCode1641IsSuccess)
{
    AgentPlatform env;
    EXPECT_EQ(0u, resultForExitCode(env, 1641));
}

TEST(ToviAgentLaunch, ExitCode3010GivesFourAndLeavesTheRebootFlagAlone)
{
    AgentPlatform env;
    EXPECT_EQ(4u, resultForExitCode(env, 3010));
    EXPECT_FALSE(g_updateRecord.rebootRequired);
}

TEST(ToviAgentLaunch, ExitCode1638GivesThree)
{
    AgentPlatform env;
    EXPECT_EQ(3u, resultForExitCode(env, 1638));
}

TEST(ToviAgentLaunch, AnyOtherExitCodeLeavesTheResultZero)
{
    AgentPlatform env;
    for (DWORD code : {1u, 1603u, 1618u, 1627u, 3011u, 0xC0000005u})
        EXPECT_EQ(0u, resultForExitCode(env, code)) << code;
}

TEST(ToviAgentLaunch, EmptyInstallerLaunchesNothing)
{
    AgentPlatform env;
    ToviAgent agent{corestring(), corestring()};
    std::uint32_t exitCode = 12345;
    EXPECT_EQ(1u, agent.Launch(false, 0, corestring(), &exitCode));
    EXPECT_EQ(12345u, exitCode);
    EXPECT_TRUE(env.processes.launched.empty());
    EXPECT_TRUE(env.logHas(L"Agent::LaunchHelper: ERROR: update installer empty"));
}

TEST(ToviAgentLaunch, ProcessThatCannotStartPassesThree)
{
    AgentPlatform env;
    env.processes.createProcessResult = FALSE;
    Launched l = launch(env, L"C:\\pkgs\\agent.exe");
    EXPECT_EQ(3u, l.result);
    EXPECT_EQ(12345u, l.exitCode);
}

TEST(ToviAgentLaunch, TestModeStartsNothing)
{
    AgentPlatform env;
    env.processes.exitCode = 1638;
    ToviAgent agent{corestring(), corestring(L"C:\\pkgs\\agent.exe")};
    std::uint32_t exitCode = 12345;
    EXPECT_EQ(0u, agent.Launch(true, 2, corestring(), &exitCode));
    EXPECT_EQ(0u, exitCode);
    EXPECT_TRUE(env.processes.launched.empty());
    EXPECT_TRUE(env.logHas(L"Agent::LaunchHelper: launching: C:\\pkgs\\agent.exe /s /v /qn "
                           L"TQM_SKIP_ADD_LDAP_MACHINE_ENTRY=1 REBOOT=Force"));
}
