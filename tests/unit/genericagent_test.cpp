#include "agent/GenericAgent.h"

#include <gtest/gtest.h>

#include "agent_test_support.h"
#include "update/UpdateRecord.h"

using namespace agent_test;

namespace {

Launched launch(AgentPlatform& env, const wchar_t* file, const wchar_t* options = L"", std::uint32_t rebootMode = 0)
{
    GenericAgent agent{corestring(file)};
    return launchAgent(env, agent, rebootMode, options);
}

std::uint32_t resultForExitCode(AgentPlatform& env, DWORD code)
{
    env.processes.exitCode = code;
    Launched l = launch(env, L"C:\\pkgs\\app.msi");
    EXPECT_EQ(code, l.exitCode);
    return l.result;
}

}  // namespace

TEST(GenericAgent, ConstructorJoinsABareNameToTheWorkspace)
{
    AgentPlatform env;
    GenericAgent bare{corestring(L"app.msi")};
    EXPECT_EQ(kWorkspace + L"\\app.msi", bare.updateFilename.c_str());
    GenericAgent full{corestring(L"D:\\drop\\app.msi")};
    EXPECT_STREQ(L"D:\\drop\\app.msi", full.updateFilename.c_str());
    EXPECT_TRUE(full.updateVersion.empty());
    EXPECT_EQ(2u, env.linesOf(L"Agent::Agent").size());
    EXPECT_TRUE(env.logHas(L"Agent::Agent: override filename: app.msi"));
}

TEST(GenericAgent, GetVersionLooksAtNothingAndCompVersionAlwaysAsksForTheUpgrade)
{
    AgentPlatform env;
    env.addInstaller(L"app-9.9.9.msi");
    env.p.installer.addProduct(L"{11111111-2222-3333-4444-555555555555}", L"{AAAAAAAA-0000-0000-0000-000000000001}",
                               L"8.0.0");
    GenericAgent agent{corestring(L"app-1.0.0.msi")};
    EXPECT_TRUE(agent.GetVersion());
    EXPECT_TRUE(env.files.patterns.empty());
    EXPECT_TRUE(env.p.installer.enumCalls.empty());
    EXPECT_TRUE(agent.installedVersion.empty());
    EXPECT_TRUE(agent.updateVersion.empty());
    EXPECT_EQ(kWorkspace + L"\\app-1.0.0.msi", agent.updateFilename.c_str());

    EXPECT_TRUE(agent.CompVersion());
    EXPECT_TRUE(agent.upgradeNeeded);
    EXPECT_TRUE(env.logHas(L"Agent::CompVersion: installed version not found"));
    EXPECT_TRUE(agent.UpdateAvailable(false));
}

TEST(GenericAgent, MsiWithoutABlankIsNotQuoted)
{
    AgentPlatform env;
    EXPECT_EQ(L"msiexec /i C:\\pkgs\\app.msi /qn", launch(env, L"C:\\pkgs\\app.msi").commandLine);
}

TEST(GenericAgent, MsiWithABlankIsQuoted)
{
    AgentPlatform env;
    EXPECT_EQ(L"msiexec /i \"C:\\my pkgs\\app.msi\" /qn", launch(env, L"C:\\my pkgs\\app.msi").commandLine);
}

TEST(GenericAgent, ExeWithoutABlankIsNotQuoted)
{
    AgentPlatform env;
    EXPECT_EQ(L"C:\\pkgs\\setup.exe /s /v /qn", launch(env, L"C:\\pkgs\\setup.exe").commandLine);
}

TEST(GenericAgent, ExeWithABlankIsQuoted)
{
    AgentPlatform env;
    EXPECT_EQ(L"\"C:\\my pkgs\\setup.exe\" /s /v /qn", launch(env, L"C:\\my pkgs\\setup.exe").commandLine);
}

TEST(GenericAgent, ExtensionCaseIsIgnored)
{
    AgentPlatform env;
    EXPECT_EQ(L"C:\\pkgs\\SETUP.EXE /s /v /qn", launch(env, L"C:\\pkgs\\SETUP.EXE").commandLine);
    EXPECT_EQ(L"msiexec /i C:\\pkgs\\package.MSI /qn", launch(env, L"C:\\pkgs\\package.MSI").commandLine);
}

TEST(GenericAgent, OptionsFollowAfterOneBlank)
{
    AgentPlatform env;
    EXPECT_EQ(L"msiexec /i C:\\pkgs\\app.msi /qn ADDLOCAL=ALL  X=1",
              launch(env, L"C:\\pkgs\\app.msi", L"ADDLOCAL=ALL  X=1").commandLine);
    EXPECT_EQ(L"C:\\pkgs\\setup.exe /s /v /qn /norestart", launch(env, L"C:\\pkgs\\setup.exe", L"/norestart").commandLine);
}

TEST(GenericAgent, RebootModeIsIgnored)
{
    AgentPlatform env;
    for (std::uint32_t mode : {0u, 1u, 2u})
        EXPECT_EQ(L"msiexec /i C:\\pkgs\\app.msi /qn", launch(env, L"C:\\pkgs\\app.msi", L"", mode).commandLine);
}

TEST(GenericAgent, OtherExtensionIsRefusedAndLogged)
{
    AgentPlatform env;
    Launched l = launch(env, L"C:\\pkgs\\a.msp");
    EXPECT_EQ(2u, l.result);
    EXPECT_EQ(12345u, l.exitCode);
    EXPECT_TRUE(env.processes.launched.empty());
    EXPECT_EQ(std::vector<std::wstring>{L"GenericAgent::Launch: invalid extension: .msp"},
              env.linesOf(L"GenericAgent::Launch"));
    EXPECT_TRUE(env.linesOf(L"Agent::LaunchHelper").empty());
}

TEST(GenericAgent, NameShorterThanFourCharactersIsComparedAsItStands)
{
    AgentPlatform env;
    GenericAgent agent{corestring()};
    agent.updateFilename = L"exe";
    std::uint32_t exitCode = 12345;
    EXPECT_EQ(2u, agent.Launch(false, 0, corestring(), &exitCode));
    EXPECT_EQ(12345u, exitCode);
    EXPECT_TRUE(env.logHas(L"GenericAgent::Launch: invalid extension: exe"));
}

TEST(GenericAgent, EmptyInstallerIsAnInvalidExtension)
{
    AgentPlatform env;
    GenericAgent agent{corestring()};
    std::uint32_t exitCode = 12345;
    EXPECT_EQ(2u, agent.Launch(false, 0, corestring(), &exitCode));
    EXPECT_TRUE(env.logHas(L"GenericAgent::Launch: invalid extension: "));
    EXPECT_TRUE(env.processes.launched.empty());
}

TEST(GenericAgent, ExitCodeZeroIsSuccess)
{
    AgentPlatform env;
    EXPECT_EQ(0u, resultForExitCode(env, 0));
    EXPECT_FALSE(g_updateRecord.rebootRequired);
}

TEST(GenericAgent, ExitCode1641IsSuccessAndLeavesTheRebootFlagAsItWas)
{
    AgentPlatform env;
    EXPECT_EQ(0u, resultForExitCode(env, 1641));
    EXPECT_FALSE(g_updateRecord.rebootRequired);
    g_updateRecord.rebootRequired = true;
    EXPECT_EQ(0u, resultForExitCode(env, 1641));
    EXPECT_TRUE(g_updateRecord.rebootRequired);
}

TEST(GenericAgent, ExitCode3010IsSuccessAndAsksForTheReboot)
{
    AgentPlatform env;
    ASSERT_FALSE(g_updateRecord.rebootRequired);
    EXPECT_EQ(0u, resultForExitCode(env, 3010));
    EXPECT_TRUE(g_updateRecord.rebootRequired);
}

TEST(GenericAgent, ExitCode1638IsAFailureLikeAnyOther)
{
    AgentPlatform env;
    EXPECT_EQ(4u, resultForExitCode(env, 1638));
    EXPECT_FALSE(g_updateRecord.rebootRequired);
}

TEST(GenericAgent, AnyOtherExitCodeGivesFour)
{
    AgentPlatform env;
    for (DWORD code : {1u, 1603u, 1618u, 1627u, 3011u, 0xC0000005u})
        EXPECT_EQ(4u, resultForExitCode(env, code)) << code;
    EXPECT_FALSE(g_updateRecord.rebootRequired);
}

TEST(GenericAgent, ProcessThatCannotStartPassesThree)
{
    AgentPlatform env;
    env.processes.createProcessResult = FALSE;
    Launched l = launch(env, L"C:\\pkgs\\app.msi");
    EXPECT_EQ(3u, l.result);
    EXPECT_EQ(12345u, l.exitCode);
}

TEST(GenericAgent, UnreadableExitCodePassesThree)
{
    AgentPlatform env;
    env.processes.exitCodeResult = FALSE;
    Launched l = launch(env, L"C:\\pkgs\\app.msi");
    EXPECT_EQ(3u, l.result);
    EXPECT_EQ(12345u, l.exitCode);
    EXPECT_FALSE(g_updateRecord.rebootRequired);
}

TEST(GenericAgent, TestModeStartsNothing)
{
    AgentPlatform env;
    env.processes.exitCode = 1603;
    GenericAgent agent{corestring(L"C:\\pkgs\\app.msi")};
    std::uint32_t exitCode = 12345;
    EXPECT_EQ(0u, agent.Launch(true, 0, corestring(L"X=1"), &exitCode));
    EXPECT_EQ(0u, exitCode);
    EXPECT_TRUE(env.processes.launched.empty());
    EXPECT_TRUE(env.logHas(L"Agent::LaunchHelper: launching: msiexec /i C:\\pkgs\\app.msi /qn X=1"));
}
