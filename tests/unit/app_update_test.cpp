// App::CheckVersion, App::Update and App::Cleanup: which agents are updated,
// what the run makes of their launch, and what is left behind.
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "agent/GenericAgent.h"
#include "agent/ToviAgent.h"
#include "app/App.h"
#include "fakes/FakePlatform.h"
#include "update/UpdateRecord.h"

using CORE::corestring;
using fakes::FakePlatform;

namespace {

const std::wstring kNewAgentKey = L"Software\\Tarvelle\\Zenthra\\Agent";
const std::wstring kLegacyAgentKey = L"Software\\Kesmarc, Inc.\\Kesmarc TQM\\Agent";
const wchar_t* kNewUpgradeCode = L"{6E1F3A90-52D7-4B1C-9C3E-7A40D2B1F6E8}";

using fakes::whole;

struct LaunchCall {
    std::wstring agent;
    bool testMode;
    std::uint32_t rebootMode;
    std::wstring options;
};

// What a test agent does when it is driven.
struct Script {
    std::wstring name = L"agent";
    std::uint32_t result = kLaunchOk;
    std::optional<std::uint32_t> exitCode;  // written only when set
    bool getVersion = true;
    bool compVersion = true;
    bool upgrade = false;
    std::vector<LaunchCall>* calls = nullptr;
    int* deletions = nullptr;
};

std::uint32_t play(const Script& s, bool testMode, std::uint32_t rebootMode, const corestring& options,
                   std::uint32_t* exitCode)
{
    if (s.calls)
        s.calls->push_back({s.name, testMode, rebootMode, whole(options)});
    if (s.exitCode && exitCode)
        *exitCode = *s.exitCode;
    return s.result;
}

class ScriptedGeneric : public GenericAgent {
public:
    explicit ScriptedGeneric(Script s) : GenericAgent(corestring(L"C:\\pkg\\setup.exe")), m_s(std::move(s))
    {
        installedVersion = L"1.0.0";
        updateVersion = L"2.0.0";
    }
    ~ScriptedGeneric() override
    {
        if (m_s.deletions)
            ++*m_s.deletions;
    }
    bool GetVersion() override { return m_s.getVersion; }
    bool CompVersion() override
    {
        if (m_s.upgrade)
            upgradeNeeded = true;
        return m_s.compVersion;
    }
    std::uint32_t Launch(bool testMode, std::uint32_t rebootMode, const corestring& options,
                         std::uint32_t* exitCode) override
    {
        return play(m_s, testMode, rebootMode, options, exitCode);
    }

private:
    Script m_s;
};

class ScriptedTovi : public ToviAgent {
public:
    explicit ScriptedTovi(Script s)
        : ToviAgent(corestring(L"8.1.0"), corestring(L"C:\\pkg\\agent.exe")), m_s(std::move(s))
    {
        installedVersion = L"8.0.0";
    }
    ~ScriptedTovi() override
    {
        if (m_s.deletions)
            ++*m_s.deletions;
    }
    bool GetVersion() override { return m_s.getVersion; }
    bool CompVersion() override
    {
        if (m_s.upgrade)
            upgradeNeeded = true;
        return m_s.compVersion;
    }
    std::uint32_t Launch(bool testMode, std::uint32_t rebootMode, const corestring& options,
                         std::uint32_t* exitCode) override
    {
        return play(m_s, testMode, rebootMode, options, exitCode);
    }

private:
    Script m_s;
};

// "<code> (<the system's text of it>)", the text taken straight from
// FormatMessageW and stripped of the blanks and line end around it.
std::wstring describedCode(std::uint32_t code)
{
    wchar_t buffer[4096] = {};
    DWORD n = ::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0, buffer,
                               4096, nullptr);
    std::wstring text(buffer, n);
    const wchar_t* blanks = L" \t\r\n";
    std::size_t first = text.find_first_not_of(blanks);
    text = first == std::wstring::npos ? std::wstring() : text.substr(first, text.find_last_not_of(blanks) - first + 1);
    return std::to_wstring(code) + L" (" + text + L")";
}

struct AppUpdateTest : ::testing::Test {
    FakePlatform p;
    App app;
    std::vector<LaunchCall> calls;

    void TearDown() override { app.Cleanup(); }

    // Owned by the App and chosen for the update, as CheckVersion would.
    Agent* update(Agent* agent)
    {
        app.agents.emplace_back(agent);
        app.updates.push_back(agent);
        return agent;
    }
    Script script(const std::wstring& name, std::uint32_t result, std::optional<std::uint32_t> exitCode)
    {
        Script s;
        s.name = name;
        s.result = result;
        s.exitCode = exitCode;
        s.calls = &calls;
        return s;
    }
    // The lines logged after the agents of a test were made.
    std::size_t mark = 0;
    void markLog() { mark = p.logLines().size(); }
    std::vector<std::wstring> newLines() const
    {
        std::vector<std::wstring> lines = p.logLines();
        return std::vector<std::wstring>(lines.begin() + static_cast<std::ptrdiff_t>(std::min(mark, lines.size())),
                                         lines.end());
    }
    std::vector<std::wstring> linesOf(const wchar_t* tag) const { return p.linesOf(tag); }
    bool hasLineStartingWith(const std::wstring& prefix) const { return p.hasLineStartingWith(prefix); }
    void expectNoDetails() const
    {
        EXPECT_TRUE(g_updateRecord.sErrorCode.empty()) << whole(g_updateRecord.sErrorCode);
        EXPECT_TRUE(g_updateRecord.sErrorDesc.empty()) << whole(g_updateRecord.sErrorDesc);
        EXPECT_FALSE(hasLineStartingWith(L"App::Update: Error code and description:"));
    }
    void expectDetails(const wchar_t* name, std::uint32_t exitCode) const
    {
        std::wstring desc = describedCode(exitCode);
        EXPECT_EQ(name, whole(g_updateRecord.sErrorCode));
        EXPECT_EQ(desc, whole(g_updateRecord.sErrorDesc));
        EXPECT_TRUE(p.logHas(L"App::Update: Error code and description: " + std::wstring(name) + L", " + desc));
    }
};

enum class Kind { Generic, Tovi };

struct Row {
    Kind kind;
    std::uint32_t launchResult;
    std::optional<std::uint32_t> exitCode;
    RunResult expected;
    const wchar_t* line;       // the App::Update line of the outcome, or null
    bool leftEarly;            // "no Launch"
    const wchar_t* errorName;  // failure details, or null
};

void PrintTo(const Row& row, std::ostream* os)
{
    *os << (row.kind == Kind::Generic ? "GenericAgent" : "ToviAgent") << " launch " << row.launchResult << " exit ";
    if (row.exitCode)
        *os << *row.exitCode;
    else
        *os << "unwritten";
}

class SingleAgent : public AppUpdateTest, public ::testing::WithParamInterface<Row> {};

}  // namespace

// ---------------------------------------------------------------- App::Update, one agent

TEST_P(SingleAgent, GivesTheRunResultOfTheTable)
{
    const Row& row = GetParam();
    Script s = script(L"only", row.launchResult, row.exitCode);
    Agent* agent = update(row.kind == Kind::Generic ? static_cast<Agent*>(new ScriptedGeneric(s))
                                                    : static_cast<Agent*>(new ScriptedTovi(s)));

    EXPECT_EQ(row.expected, app.Update());

    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ(row.line != nullptr, p.logHas(row.line ? row.line : L""));
    if (row.line == nullptr) {
        EXPECT_FALSE(p.logHas(L"App::Update: agent update succeeded"));
        EXPECT_FALSE(p.logHas(L"App::Update: agent reboot required"));
    }
    EXPECT_EQ(row.leftEarly, p.logHas(L"App::Update: no Launch"));
    if (row.errorName)
        expectDetails(row.errorName, *row.exitCode);
    else
        expectNoDetails();
    // The versions reach the record on every path.
    EXPECT_EQ(whole(agent->installedVersion), whole(g_updateRecord.sFromVersion));
    EXPECT_EQ(whole(agent->updateVersion), whole(g_updateRecord.sToVersion));
    EXPECT_FALSE(g_updateRecord.sToVersion.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Table, SingleAgent,
    ::testing::Values(
        // GenericAgent: success, with or without the installer's reboot.
        Row{Kind::Generic, kLaunchOk, 0u, ERR_NOAGENT, L"App::Update: agent update succeeded", false, nullptr},
        Row{Kind::Generic, kLaunchOk, 1641u, ERR_NOAGENT, L"App::Update: agent update succeeded", false, nullptr},
        Row{Kind::Generic, kLaunchOk, 3010u, ERR_NOAGENT, L"App::Update: agent update succeeded", false, nullptr},
        // GenericAgent: any other exit code.
        Row{Kind::Generic, kLaunchExitCodeFailure, 1603u, ERR_REBOOT, L"App::Update: agent reboot required", true,
            L"ERROR_INSTALL_FAILURE"},
        Row{Kind::Generic, kLaunchExitCodeFailure, 1638u, ERR_REBOOT, L"App::Update: agent reboot required", true,
            L"1638"},
        Row{Kind::Generic, kLaunchExitCodeFailure, 2u, ERR_REBOOT, L"App::Update: agent reboot required", true,
            L"UNC_FILE_NOT_FOUND"},
        // GenericAgent: nothing ran to its end.
        Row{Kind::Generic, kLaunchBadExtension, std::nullopt, ERR_FAILURE, nullptr, true, nullptr},
        Row{Kind::Generic, kLaunchFailed, std::nullopt, ERR_FAILURE, nullptr, true, nullptr},
        Row{Kind::Generic, kLaunchNothing, std::nullopt, ERR_FAILURE, nullptr, true, nullptr},
        Row{Kind::Generic, kLaunchFailed, 1603u, ERR_FAILURE, nullptr, true, L"ERROR_INSTALL_FAILURE"},
        // ToviAgent: the run result stays -1 whatever the installer did.
        Row{Kind::Tovi, kLaunchOk, 0u, ERR_FAILURE, nullptr, false, nullptr},
        Row{Kind::Tovi, kLaunchOk, 1641u, ERR_FAILURE, nullptr, false, nullptr},
        Row{Kind::Tovi, kLaunchOk, 1603u, ERR_FAILURE, nullptr, false, nullptr},
        Row{Kind::Tovi, kLaunchExitCodeFailure, 3010u, ERR_FAILURE, nullptr, true, nullptr},
        Row{Kind::Tovi, kLaunchFailed, 1638u, ERR_FAILURE, nullptr, true, L"1638"},
        Row{Kind::Tovi, kLaunchFailed, std::nullopt, ERR_FAILURE, nullptr, true, nullptr},
        Row{Kind::Tovi, kLaunchNothing, std::nullopt, ERR_FAILURE, nullptr, true, nullptr},
        Row{Kind::Tovi, kLaunchFailed, 5u, ERR_FAILURE, nullptr, true, L"UNC_ACCESS_DENIED"}));

TEST_F(AppUpdateTest, NoUpdatesGivesFailureAndLaunchesNothing)
{
    int deletions = 0;
    Script s = script(L"unchosen", kLaunchOk, 0u);
    s.deletions = &deletions;
    app.agents.emplace_back(new ScriptedGeneric(s));
    markLog();
    EXPECT_EQ(ERR_FAILURE, app.Update());
    EXPECT_TRUE(calls.empty());
    std::vector<std::wstring> lines = newLines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ(L"=== Update ===", lines[0]);
}

TEST_F(AppUpdateTest, LaunchGetsTestModeAndOptions)
{
    app.testMode = true;
    app.options = L"ADDLOCAL=Core PREFLIGHTCHECK_ENABLED=2";
    update(new ScriptedTovi(script(L"t", kLaunchOk, 0u)));
    app.Update();
    ASSERT_EQ(1u, calls.size());
    EXPECT_TRUE(calls[0].testMode);
    EXPECT_EQ(L"ADDLOCAL=Core PREFLIGHTCHECK_ENABLED=2", calls[0].options);
}

// ---------------------------------------------------------------- reboot modes

TEST_F(AppUpdateTest, LastToviAgentGetsNoRebootMode)
{
    update(new ScriptedTovi(script(L"t", kLaunchOk, 0u)));
    app.Update();
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ(0u, calls[0].rebootMode);
}

TEST_F(AppUpdateTest, LastGenericAgentGetsForcedRebootMode)
{
    update(new ScriptedGeneric(script(L"g", kLaunchOk, 0u)));
    app.Update();
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ(2u, calls[0].rebootMode);
}

TEST_F(AppUpdateTest, AgentsBeforeTheLastGetSuppressedReboot)
{
    update(new ScriptedGeneric(script(L"g1", kLaunchOk, 0u)));
    update(new ScriptedTovi(script(L"t1", kLaunchOk, 0u)));
    update(new ScriptedTovi(script(L"t2", kLaunchOk, 0u)));
    update(new ScriptedGeneric(script(L"g2", kLaunchOk, 0u)));
    app.Update();
    ASSERT_EQ(4u, calls.size());
    EXPECT_EQ(1u, calls[0].rebootMode);
    EXPECT_EQ(1u, calls[1].rebootMode);
    EXPECT_EQ(1u, calls[2].rebootMode);
    EXPECT_EQ(2u, calls[3].rebootMode);
}

TEST_F(AppUpdateTest, ToviAgentAfterAGenericAgentIsTheLast)
{
    update(new ScriptedGeneric(script(L"g", kLaunchOk, 0u)));
    update(new ScriptedTovi(script(L"t", kLaunchOk, 0u)));
    app.Update();
    ASSERT_EQ(2u, calls.size());
    EXPECT_EQ(L"g", calls[0].agent);
    EXPECT_EQ(1u, calls[0].rebootMode);
    EXPECT_EQ(0u, calls[1].rebootMode);
}

TEST_F(AppUpdateTest, NullEntriesAreSkippedAndANullLastNodeMakesNobodyLast)
{
    update(new ScriptedTovi(script(L"t", kLaunchOk, 0u)));
    app.updates.push_back(nullptr);
    app.agents.push_back(nullptr);
    app.Update();
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ(1u, calls[0].rebootMode);
}

TEST_F(AppUpdateTest, RealToviAgentBeforeTheLastSuppressesTheReboot)
{
    update(new ToviAgent(corestring(L"8.1.0"), corestring(L"C:\\pkg\\agent.exe")));
    update(new ScriptedGeneric(script(L"g", kLaunchOk, 0u)));
    app.Update();
    ASSERT_EQ(1u, p.processes.launched.size());
    EXPECT_EQ(L"C:\\pkg\\agent.exe /s /v /qn TQM_SKIP_ADD_LDAP_MACHINE_ENTRY=1 REBOOT=ReallySuppress",
              p.processes.launched[0]);
}

// ---------------------------------------------------------------- several agents

TEST_F(AppUpdateTest, FailureStopsTheLoopAndLaterAgentsAreNotLaunched)
{
    update(new ScriptedTovi(script(L"t", kLaunchFailed, std::nullopt)));
    update(new ScriptedGeneric(script(L"g", kLaunchOk, 0u)));
    EXPECT_EQ(ERR_FAILURE, app.Update());
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ(L"t", calls[0].agent);
    EXPECT_TRUE(p.logHas(L"App::Update: no Launch"));
}

TEST_F(AppUpdateTest, RebootOfAGenericAgentStopsTheLoop)
{
    update(new ScriptedGeneric(script(L"g", kLaunchExitCodeFailure, 1603u)));
    update(new ScriptedTovi(script(L"t", kLaunchOk, 0u)));
    EXPECT_EQ(ERR_REBOOT, app.Update());
    ASSERT_EQ(1u, calls.size());
}

TEST_F(AppUpdateTest, EarlierSuccessStaysWhenALaterAgentFails)
{
    update(new ScriptedGeneric(script(L"g", kLaunchOk, 0u)));
    update(new ScriptedTovi(script(L"t", kLaunchFailed, 1638u)));
    EXPECT_EQ(ERR_NOAGENT, app.Update());
    EXPECT_TRUE(p.logHas(L"App::Update: agent update succeeded"));
    EXPECT_TRUE(p.logHas(L"App::Update: no Launch"));
    expectDetails(L"1638", 1638);
    // The record holds the versions of the agent launched last.
    EXPECT_EQ(L"8.0.0", whole(g_updateRecord.sFromVersion));
    EXPECT_EQ(L"8.1.0", whole(g_updateRecord.sToVersion));
}

TEST_F(AppUpdateTest, ExitCodeOfAnEarlierAgentDecidesWhenALaterOneWritesNone)
{
    update(new ScriptedTovi(script(L"t", kLaunchOk, 1603u)));
    update(new ScriptedGeneric(script(L"g", kLaunchBadExtension, std::nullopt)));
    EXPECT_EQ(ERR_FAILURE, app.Update());
    expectDetails(L"ERROR_INSTALL_FAILURE", 1603);
}

// ---------------------------------------------------------------- real agents

struct RealAgentTest : AppUpdateTest {
    GenericAgent* generic()
    {
        return static_cast<GenericAgent*>(update(new GenericAgent(corestring(L"C:\\pkg\\setup.exe"))));
    }
    ToviAgent* tovi()
    {
        return static_cast<ToviAgent*>(update(new ToviAgent(corestring(L"8.1.0"), corestring(L"C:\\pkg\\agent.exe"))));
    }
};

TEST_F(RealAgentTest, GenericInstallerFailingWith1603IsAReboot)
{
    generic();
    p.processes.exitCode = 1603;
    EXPECT_EQ(ERR_REBOOT, app.Update());
    ASSERT_EQ(1u, p.processes.launched.size());
    EXPECT_EQ(L"C:\\pkg\\setup.exe /s /v /qn", p.processes.launched[0]);
    std::vector<std::wstring> lines = linesOf(L"App::Update");
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ(L"App::Update: agent reboot required", lines[0]);
    EXPECT_EQ(L"App::Update: no Launch", lines[1]);
    expectDetails(L"ERROR_INSTALL_FAILURE", 1603);
}

TEST_F(RealAgentTest, GenericInstallerAskingForARestartSucceedsAndLeavesTheRebootToTheRun)
{
    generic();
    p.processes.exitCode = 3010;
    EXPECT_EQ(ERR_NOAGENT, app.Update());
    EXPECT_TRUE(p.logHas(L"App::Update: agent update succeeded"));
    EXPECT_FALSE(p.logHas(L"App::Update: no Launch"));
    EXPECT_TRUE(g_updateRecord.rebootRequired);
    expectNoDetails();
}

TEST_F(RealAgentTest, ToviInstallerAskingForARestartLeavesEarlyWithoutDetails)
{
    tovi();
    p.processes.exitCode = 3010;
    EXPECT_EQ(ERR_FAILURE, app.Update());
    ASSERT_EQ(1u, p.processes.launched.size());
    EXPECT_EQ(L"C:\\pkg\\agent.exe /s /v /qn TQM_SKIP_ADD_LDAP_MACHINE_ENTRY=1", p.processes.launched[0]);
    EXPECT_TRUE(p.logHas(L"App::Update: no Launch"));
    expectNoDetails();
}

TEST_F(RealAgentTest, ToviInstallerFailingWith1603LogsNothingBeyondTheLaunch)
{
    tovi();
    p.processes.exitCode = 1603;
    EXPECT_EQ(ERR_FAILURE, app.Update());
    EXPECT_EQ(1u, p.processes.launched.size());
    EXPECT_TRUE(linesOf(L"App::Update").empty());
    expectNoDetails();
}

TEST_F(RealAgentTest, ToviInstallerFindingAnotherVersionWritesDetails)
{
    tovi();
    p.processes.exitCode = 1638;
    EXPECT_EQ(ERR_FAILURE, app.Update());
    EXPECT_TRUE(p.logHas(L"App::Update: no Launch"));
    expectDetails(L"1638", 1638);
}

TEST_F(RealAgentTest, TestModeWithAGenericAgentSucceedsWithoutAProcess)
{
    generic();
    app.testMode = true;
    p.processes.exitCode = 1603;  // not asked for: nothing runs
    EXPECT_EQ(ERR_NOAGENT, app.Update());
    EXPECT_TRUE(p.processes.launched.empty());
    EXPECT_TRUE(p.logHas(L"App::Update: agent update succeeded"));
}

TEST_F(RealAgentTest, TestModeWithAToviAgentStaysFailure)
{
    tovi();
    app.testMode = true;
    EXPECT_EQ(ERR_FAILURE, app.Update());
    EXPECT_TRUE(p.processes.launched.empty());
    expectNoDetails();
}

TEST_F(RealAgentTest, ProcessThatCannotStartLeavesEarlyWithoutDetails)
{
    generic();
    p.processes.createProcessResult = FALSE;
    EXPECT_EQ(ERR_FAILURE, app.Update());
    EXPECT_TRUE(p.logHas(L"App::Update: no Launch"));
    expectNoDetails();
}

TEST_F(RealAgentTest, OptionsReachTheInstaller)
{
    tovi();
    app.options = L"ADDLOCAL=Core";
    app.Update();
    ASSERT_EQ(1u, p.processes.launched.size());
    EXPECT_EQ(L"C:\\pkg\\agent.exe /s /v /qn TQM_SKIP_ADD_LDAP_MACHINE_ENTRY=1 ADDLOCAL=Core", p.processes.launched[0]);
}

// ---------------------------------------------------------------- "LastInstallError"

TEST_F(RealAgentTest, InstallersOwnErrorUnderTheNewRootIsAppended)
{
    generic();
    p.processes.exitCode = 1603;
    p.keys.putString(HKEY_LOCAL_MACHINE, kNewAgentKey, L"LastInstallError", L"CA_Configure failed");
    EXPECT_EQ(ERR_REBOOT, app.Update());
    std::wstring desc = describedCode(1603) + L" - CA_Configure failed";
    EXPECT_EQ(desc, whole(g_updateRecord.sErrorDesc));
    EXPECT_TRUE(p.logHas(L"App::Update: Error code and description: ERROR_INSTALL_FAILURE, " + desc));
}

TEST_F(RealAgentTest, InstallersOwnErrorUnderTheLegacyRootOnlyIsNotReadButIsDeleted)
{
    generic();
    p.processes.exitCode = 1603;
    p.keys.putString(HKEY_LOCAL_MACHINE, kLegacyAgentKey, L"LastInstallError", L"legacy words");
    EXPECT_EQ(ERR_REBOOT, app.Update());
    EXPECT_EQ(describedCode(1603), whole(g_updateRecord.sErrorDesc));
    app.Cleanup();
    EXPECT_FALSE(p.keys.value(HKEY_LOCAL_MACHINE, kLegacyAgentKey, L"LastInstallError").has_value());
}

TEST_F(RealAgentTest, EmptyInstallersErrorAddsNothing)
{
    generic();
    p.processes.exitCode = 1603;
    p.keys.putString(HKEY_LOCAL_MACHINE, kNewAgentKey, L"LastInstallError", L"");
    app.Update();
    EXPECT_EQ(describedCode(1603), whole(g_updateRecord.sErrorDesc));
}

// ---------------------------------------------------------------- App::CheckVersion

TEST_F(AppUpdateTest, NoAgentsIsFalseWithoutALine)
{
    EXPECT_FALSE(app.CheckVersion());
    EXPECT_TRUE(p.logLines().empty());
}

TEST_F(AppUpdateTest, NoAgentsKeepsWhatWasChosenBefore)
{
    ScriptedTovi chosen(script(L"t", kLaunchOk, 0u));
    app.updates.push_back(&chosen);
    EXPECT_TRUE(app.CheckVersion());
    app.updates.clear();
}

TEST_F(AppUpdateTest, AgentWantingTheUpgradeIsChosen)
{
    Script s = script(L"t", kLaunchOk, 0u);
    s.upgrade = true;
    Agent* agent = new ScriptedTovi(s);
    app.agents.emplace_back(agent);
    markLog();
    EXPECT_TRUE(app.CheckVersion());
    ASSERT_EQ(1u, app.updates.size());
    EXPECT_EQ(agent, app.updates.front());
    std::vector<std::wstring> lines = newLines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ(L"=== Check Version ===", lines[0]);
}

TEST_F(AppUpdateTest, FailedVersionStepsAreOnlyLoggedAndForceStillChooses)
{
    Script s = script(L"t", kLaunchOk, 0u);
    s.getVersion = false;
    s.compVersion = false;
    app.agents.emplace_back(new ScriptedTovi(s));
    app.forceUpdate = true;
    markLog();
    EXPECT_TRUE(app.CheckVersion());
    EXPECT_EQ(1u, app.updates.size());
    std::vector<std::wstring> expected = {L"=== Check Version ===",
                                          L"App::CheckVersion: GetVersion could not find the update file",
                                          L"App::CheckVersion: CompVersion does not require to upgrade"};
    EXPECT_EQ(expected, newLines());
}

TEST_F(AppUpdateTest, AgentWithoutUpgradeIsNotChosen)
{
    app.agents.emplace_back(new ScriptedTovi(script(L"t", kLaunchOk, 0u)));
    EXPECT_FALSE(app.CheckVersion());
    EXPECT_TRUE(app.updates.empty());
    EXPECT_TRUE(p.logHas(L"Agent::UpdateAvailable: no need to upgrade"));
    EXPECT_EQ(L"App::CheckVersion: Update not available", p.logLines().back());
}

TEST_F(AppUpdateTest, ForceWithoutAnInstallerFileChoosesNothing)
{
    app.agents.emplace_back(new ToviAgent(corestring(L"8.1.0"), corestring()));
    app.forceUpdate = true;
    // No installer in the workspace and no file name from the job.
    EXPECT_FALSE(app.CheckVersion());
    EXPECT_TRUE(p.logHas(L"Agent::UpdateAvailable: update installer empty"));
    EXPECT_TRUE(p.logHas(L"App::CheckVersion: Update not available"));
}

TEST_F(AppUpdateTest, EveryAgentIsCheckedAndTheChosenKeepTheirOrder)
{
    Script no = script(L"no", kLaunchOk, 0u);
    Script yes1 = script(L"yes1", kLaunchOk, 0u);
    yes1.upgrade = true;
    Script yes2 = yes1;
    Agent* first = new ScriptedGeneric(yes1);
    Agent* second = new ScriptedTovi(no);
    Agent* third = new ScriptedTovi(yes2);
    app.agents.emplace_back(first);
    app.agents.emplace_back(nullptr);
    app.agents.emplace_back(second);
    app.agents.emplace_back(third);
    EXPECT_TRUE(app.CheckVersion());
    ASSERT_EQ(2u, app.updates.size());
    EXPECT_EQ(first, app.updates.front());
    EXPECT_EQ(third, app.updates.back());
    int checks = 0;
    for (const std::wstring& line : p.logLines())
        checks += line == L"=== Check Version ===";
    EXPECT_EQ(3, checks);
}

TEST_F(AppUpdateTest, ForceReinstallsAnOlderVersionWhenTheFileIsKnown)
{
    p.installer.addProduct(kNewUpgradeCode, L"{11111111-2222-3333-4444-555555555555}", L"9.0.0");
    app.agents.emplace_back(new ToviAgent(corestring(L"8.0.0"), corestring(L"C:\\pkg\\agent.exe")));
    app.forceUpdate = true;
    EXPECT_TRUE(app.CheckVersion());
    EXPECT_TRUE(p.logHas(L"App::CheckVersion: CompVersion does not require to upgrade"));
    ASSERT_EQ(1u, app.updates.size());
    EXPECT_EQ(L"9.0.0", whole(app.updates.front()->installedVersion));
}

TEST_F(AppUpdateTest, WithoutForceAnOlderVersionIsNotChosen)
{
    p.installer.addProduct(kNewUpgradeCode, L"{11111111-2222-3333-4444-555555555555}", L"9.0.0");
    app.agents.emplace_back(new ToviAgent(corestring(L"8.0.0"), corestring(L"C:\\pkg\\agent.exe")));
    EXPECT_FALSE(app.CheckVersion());
    EXPECT_TRUE(app.updates.empty());
}

// ---------------------------------------------------------------- App::Cleanup

TEST_F(AppUpdateTest, CleanupDeletesEveryAgentOnceAndEmptiesBothLists)
{
    int deletions = 0;
    Script s = script(L"a", kLaunchOk, 0u);
    s.deletions = &deletions;
    update(new ScriptedGeneric(s));
    update(new ScriptedTovi(s));
    app.agents.push_back(nullptr);
    app.Cleanup();
    EXPECT_EQ(2, deletions);
    EXPECT_TRUE(app.agents.empty());
    EXPECT_TRUE(app.updates.empty());
    app.Cleanup();
    EXPECT_EQ(2, deletions);
}

TEST_F(AppUpdateTest, CleanupDeletesTheInstallersErrorUnderTheNewRootThenTheLegacyRoot)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kNewAgentKey, L"LastInstallError", L"n");
    p.keys.putString(HKEY_LOCAL_MACHINE, kLegacyAgentKey, L"LastInstallError", L"l");
    p.keys.putString(HKEY_LOCAL_MACHINE, kNewAgentKey, L"Other", L"stays");
    app.Cleanup();
    EXPECT_FALSE(p.keys.value(HKEY_LOCAL_MACHINE, kNewAgentKey, L"LastInstallError").has_value());
    EXPECT_FALSE(p.keys.value(HKEY_LOCAL_MACHINE, kLegacyAgentKey, L"LastInstallError").has_value());
    EXPECT_TRUE(p.keys.value(HKEY_LOCAL_MACHINE, kNewAgentKey, L"Other").has_value());
    std::vector<std::wstring> expected = {
        L"Util_DeleteRegistryIfExists: Deleted registry key - HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\LastInstallError",
        L"Util_DeleteRegistryIfExists: Deleted registry key - HKLM\\Software\\Kesmarc, Inc.\\Kesmarc TQM\\Agent\\"
        L"LastInstallError"};
    EXPECT_EQ(expected, p.logLines());
}

TEST_F(AppUpdateTest, CleanupWithoutTheKeysLogsNoFailure)
{
    app.Cleanup();
    EXPECT_TRUE(linesOf(L"App::Cleanup").empty());
}

TEST_F(AppUpdateTest, CleanupLogsAValueThatCannotBeDeleted)
{
    // The keys exist but hold no such value: the deletion fails.
    p.keys.putString(HKEY_LOCAL_MACHINE, kNewAgentKey, L"Other", L"x");
    p.keys.putString(HKEY_LOCAL_MACHINE, kLegacyAgentKey, L"Other", L"x");
    app.Cleanup();
    std::vector<std::wstring> expected = {
        L"App::Cleanup: Failed to delete HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\LastInstallError registry key",
        L"App::Cleanup: Failed to delete HKLM\\Software\\Kesmarc, Inc.\\Kesmarc TQM\\Agent\\LastInstallError "
        L"registry key"};
    EXPECT_EQ(expected, linesOf(L"App::Cleanup"));
}
