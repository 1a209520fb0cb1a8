// App::Init: workspace, command line, job, the kind of agent and the
// preflight flags, in this order.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "agent/GenericAgent.h"
#include "agent/ToviAgent.h"
#include "app/App.h"
#include "fakes/FakePlatform.h"

using CORE::corestring;
using fakes::FakePlatform;

namespace {

const std::wstring kWorkspace = L"C:\\Windows\\Temp\\updatetool-data";
const std::wstring kJob = L"Software\\Tarvelle\\Zenthra\\Agent\\Update\\Job1";

using fakes::whole;

struct AppInitTest : ::testing::Test {
    FakePlatform p;
    App app;

    void TearDown() override { app.Cleanup(); }

    void put(const wchar_t* name, const std::wstring& text) { p.keys.putString(HKEY_LOCAL_MACHINE, kJob, name, text); }
    void job(const std::wstring& agent)
    {
        put(L"AGENT", agent);
        put(L"UNC_PATH", L"\\\\srv\\share\\setup.exe");
    }
    template <class Kind> Kind* onlyAgent()
    {
        if (app.agents.size() != 1)
            return nullptr;
        return dynamic_cast<Kind*>(app.agents.front().get());
    }
    bool hasLineStartingWith(const std::wstring& prefix) const { return p.hasLineStartingWith(prefix); }
};

}  // namespace

TEST_F(AppInitTest, ToviJobMakesAToviAgentFromTheJobsVersionAndFile)
{
    job(L"TOVI");
    put(L"VERSION", L"8.12.0-9876543");
    put(L"FILENAME", L"Kesmarc-Zenthra-Agent-x86_64-8.12.0-9876543.exe");
    ASSERT_TRUE(app.Init());
    ToviAgent* agent = onlyAgent<ToviAgent>();
    ASSERT_NE(nullptr, agent);
    EXPECT_EQ(L"8.12.0-9876543", whole(agent->updateVersion));
    EXPECT_EQ(kWorkspace + L"\\Kesmarc-Zenthra-Agent-x86_64-8.12.0-9876543.exe", whole(agent->updateFilename));
    EXPECT_EQ(L"8.12.0-9876543", whole(app.overrideVersion));
    EXPECT_EQ(L"Kesmarc-Zenthra-Agent-x86_64-8.12.0-9876543.exe", whole(app.overrideFilename));
    EXPECT_TRUE(app.updates.empty());
}

TEST_F(AppInitTest, AgentWordIsComparedIgnoringCase)
{
    job(L"tovi");
    ASSERT_TRUE(app.Init());
    EXPECT_NE(nullptr, onlyAgent<ToviAgent>());
}

class NoAgentWord : public AppInitTest, public ::testing::WithParamInterface<const wchar_t*> {};

TEST_P(NoAgentWord, MakesNoAgentAndLogsNothingAboutIt)
{
    job(GetParam());
    ASSERT_TRUE(app.Init());
    EXPECT_TRUE(app.agents.empty());
    // The command line's own line is the only one of the App.
    int appLines = 0;
    for (const std::wstring& line : p.logLines())
        appLines += line.rfind(L"App::", 0) == 0;
    EXPECT_EQ(1, appLines);
    EXPECT_TRUE(hasLineStartingWith(L"App::ParseCmdline: cmdLine: "));
    EXPECT_FALSE(hasLineStartingWith(L"Agent::"));
}

INSTANTIATE_TEST_SUITE_P(Words, NoAgentWord, ::testing::Values(L"TOVIX", L"TOV", L"OTHERS", L"OTHE", L"generic"));

class OtherWord : public AppInitTest, public ::testing::WithParamInterface<const wchar_t*> {};

TEST_P(OtherWord, MakesAGenericAgentForTheJobsFile)
{
    job(GetParam());
    put(L"FILENAME", L"setup.exe");
    ASSERT_TRUE(app.Init());
    GenericAgent* agent = onlyAgent<GenericAgent>();
    ASSERT_NE(nullptr, agent);
    EXPECT_EQ(kWorkspace + L"\\setup.exe", whole(agent->updateFilename));
    EXPECT_TRUE(agent->updateVersion.empty());
}

INSTANTIATE_TEST_SUITE_P(Words, OtherWord, ::testing::Values(L"OTHER", L"other", L"Other"));

TEST_F(AppInitTest, GenericAgentTakesAFullPathAsItStands)
{
    job(L"OTHER");
    put(L"FILENAME", L"D:\\pkg\\tool.msi");
    ASSERT_TRUE(app.Init());
    GenericAgent* agent = onlyAgent<GenericAgent>();
    ASSERT_NE(nullptr, agent);
    EXPECT_EQ(L"D:\\pkg\\tool.msi", whole(agent->updateFilename));
}

TEST_F(AppInitTest, EmptyJobFieldsWipeWhatTheOverrideFileGave)
{
    job(L"TOVI");
    p.files.addFile(kWorkspace + L"\\ov.txt", std::string("Tovi.version=8.1.0\nTovi.filename=over.exe\n"));
    p.processes.commandLine = L"zt.exe ov.txt";
    ASSERT_TRUE(app.Init());
    EXPECT_TRUE(p.logHas(L"App::ParseOverrideFile: version for Tovi: [8.1.0]"));
    EXPECT_TRUE(app.overrideVersion.empty());
    EXPECT_TRUE(app.overrideFilename.empty());
    ToviAgent* agent = onlyAgent<ToviAgent>();
    ASSERT_NE(nullptr, agent);
    EXPECT_TRUE(agent->updateVersion.empty());
    EXPECT_TRUE(agent->updateFilename.empty());
}

TEST_F(AppInitTest, JobFieldsReplaceWhatTheOverrideFileGave)
{
    job(L"TOVI");
    put(L"VERSION", L"9.0.0");
    put(L"FILENAME", L"job.exe");
    p.files.addFile(kWorkspace + L"\\ov.txt", std::string("Tovi.version=8.1.0\nTovi.filename=over.exe\n"));
    p.processes.commandLine = L"zt.exe ov.txt";
    ASSERT_TRUE(app.Init());
    EXPECT_EQ(L"9.0.0", whole(app.overrideVersion));
    EXPECT_EQ(L"job.exe", whole(app.overrideFilename));
    ToviAgent* agent = onlyAgent<ToviAgent>();
    ASSERT_NE(nullptr, agent);
    EXPECT_EQ(kWorkspace + L"\\job.exe", whole(agent->updateFilename));
}

TEST_F(AppInitTest, OverrideValuesStayForAGenericJob)
{
    job(L"OTHER");
    put(L"FILENAME", L"setup.exe");
    p.files.addFile(kWorkspace + L"\\ov.txt", std::string("Tovi.version=8.1.0\n"));
    p.processes.commandLine = L"zt.exe ov.txt";
    ASSERT_TRUE(app.Init());
    EXPECT_EQ(L"8.1.0", whole(app.overrideVersion));
    GenericAgent* agent = onlyAgent<GenericAgent>();
    ASSERT_NE(nullptr, agent);
    EXPECT_TRUE(agent->updateVersion.empty());
}

TEST_F(AppInitTest, SwitchesFromTheCommandLineAreKept)
{
    job(L"TOVI");
    p.processes.commandLine = L"\"C:\\Program Files\\Tarvelle\\zenthra-updatetool.exe\" -test /FORCE";
    ASSERT_TRUE(app.Init());
    EXPECT_TRUE(app.testMode);
    EXPECT_TRUE(app.forceUpdate);
    EXPECT_TRUE(p.logHas(L"App::ParseCmdline: cmdLine: [\"C:\\Program Files\\Tarvelle\\zenthra-updatetool.exe\" "
                         L"-test /FORCE]"));
}

TEST_F(AppInitTest, HelpEndsInitBeforeTheJobIsRead)
{
    job(L"TOVI");
    put(L"ARCH", L"64-BitAgent");
    p.processes.commandLine = L"zt.exe -help";
    EXPECT_FALSE(app.Init());
    EXPECT_TRUE(app.properties.empty());
    EXPECT_TRUE(app.agents.empty());
    EXPECT_TRUE(app.arch.empty());
    EXPECT_EQ(kWorkspace, whole(app.workspace));
    EXPECT_FALSE(hasLineStartingWith(L"UtilGetActiveUpdate"));
}

TEST_F(AppInitTest, UnknownOptionEndsInit)
{
    job(L"TOVI");
    p.processes.commandLine = L"zt.exe -verbose";
    EXPECT_FALSE(app.Init());
    EXPECT_TRUE(app.agents.empty());
    EXPECT_TRUE(p.logHas(L"App::ParseCmdline: unknown argument 1: [-verbose]"));
}

TEST_F(AppInitTest, EmptyWorkspaceEndsInitWithoutALine)
{
    job(L"TOVI");
    // A temporary directory without any backslash and no way to make the
    // workspace below it leave no directory at all.
    p.files.tempPath = L"Temp";
    p.files.failCreateDirectory(ERROR_ACCESS_DENIED);
    EXPECT_FALSE(app.Init());
    EXPECT_TRUE(app.workspace.empty());
    EXPECT_TRUE(p.logLines().empty());
    EXPECT_TRUE(app.properties.empty());
}

TEST_F(AppInitTest, UnreadableJobEndsInit)
{
    EXPECT_FALSE(app.Init());
    EXPECT_TRUE(app.agents.empty());
}

TEST_F(AppInitTest, ArchAndOptionsComeFromTheJob)
{
    job(L"OTHER");
    put(L"ARCH", L"Use32-BitAgentOn64");
    put(L"OPTIONS", L"ADDLOCAL=Core");
    ASSERT_TRUE(app.Init());
    EXPECT_EQ(L"Use32-BitAgentOn64", whole(app.arch));
    EXPECT_EQ(L"ADDLOCAL=Core", whole(app.options));
    EXPECT_FALSE(app.preflightEnabled);
    EXPECT_FALSE(app.legacyWorkflow);
}

struct OptionsRow {
    const wchar_t* options;
    bool preflight;
    bool legacy;
};

class PreflightOptions : public AppInitTest, public ::testing::WithParamInterface<OptionsRow> {};

TEST_P(PreflightOptions, SetTheFlagsBySubstringIgnoringCase)
{
    job(L"TOVI");
    if (*GetParam().options)
        put(L"OPTIONS", GetParam().options);
    ASSERT_TRUE(app.Init());
    EXPECT_EQ(GetParam().preflight, app.preflightEnabled) << GetParam().options;
    EXPECT_EQ(GetParam().legacy, app.legacyWorkflow) << GetParam().options;
}

INSTANTIATE_TEST_SUITE_P(
    Texts, PreflightOptions,
    ::testing::Values(OptionsRow{L"", false, false}, OptionsRow{L"PREFLIGHTCHECK_ENABLED=1", true, false},
                      OptionsRow{L"preflightcheck_enabled=2", true, true},
                      OptionsRow{L"PREFLIGHTCHECK_ENABLED=1 PREFLIGHTCHECK_ENABLED=2", true, true},
                      OptionsRow{L"PREFLIGHTCHECK_ENABLED=10", true, false},
                      OptionsRow{L"ADDLOCAL=Core Preflightcheck_Enabled=1 X=2", true, false},
                      OptionsRow{L"XPREFLIGHTCHECK_ENABLED=2Y", true, true},
                      OptionsRow{L"PREFLIGHTCHECK_ENABLED=3", false, false},
                      OptionsRow{L"PREFLIGHTCHECK_ENABLED = 1", false, false},
                      OptionsRow{L"PREFLIGHTCHECK_ENABLED", false, false}));
