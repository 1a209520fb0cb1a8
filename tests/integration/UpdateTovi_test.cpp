// Jobs under UPDATING for the product's own agent ("AGENT" "TOVI"), end to
// end: which version the tool finds installed (current upgrade code, legacy
// upgrade code, "ProductVersion", nothing), which installer it takes from the
// workspace by the file name rules, whether it launches it, with which
// command line, and what the installer's exit code makes of the job.
//
// Installed versions come from the lab's Windows Installer packages; the
// installer is the lab's stand-in under the agent's file names, which exits
// with a chosen code or installs a package through msiexec.
//
// Whatever the agent's installer does, the run result stays -1 for this kind
// of agent, so no run here asks for a restart. Every test still runs with
// "MAXDOWNLOADANDUPGRADERETRY" 0: should a run end in a reboot request all
// the same, it fails instead of restarting the prefix with this harness in
// it. The default retry settings are covered from outside Wine by
// tests/lab/tovi_no_restart_test.sh.
#include <algorithm>

#include "JobFixture.h"
#include "MsiLab.h"
#include "StandInInstaller.h"

namespace it {
namespace {

const wchar_t* const kNamePrefix = L"Kesmarc-Zenthra-Agent";
const wchar_t* const kInstaller8_12 = L"Kesmarc-Zenthra-Agent-x86_64-8.12.0-9876543.exe";
// MsiEnumRelatedProductsW when no product of the upgrade code is installed.
const char* const kNoMoreItems = "259";

// File names the platform lists for a pattern, in its order.
std::vector<std::wstring> Listed(const std::wstring& pattern)
{
    std::vector<std::wstring> names;
    WIN32_FIND_DATAW data;
    HANDLE find = ::FindFirstFileW(pattern.c_str(), &data);
    if (find == INVALID_HANDLE_VALUE)
        return names;
    do {
        names.emplace_back(data.cFileName);
    } while (::FindNextFileW(find, &data));
    ::FindClose(find);
    return names;
}

class UpdateTovi : public WithoutLabProducts<NoRestartJobTest> {
protected:
    const std::wstring key_ = JobKey(kNewRoot, L"job");

    // A job whose installer a fetch has brought into the workspace, now set
    // to UPDATING by the management side.
    void WriteToviJob(const std::wstring& version, std::vector<std::pair<std::wstring, std::wstring>> extra = {})
    {
        std::vector<std::pair<std::wstring, std::wstring>> values = {
            {L"AGENT", L"TOVI"},      {L"VERSION", version},  {L"ARCH", L"64-BitAgent"},
            {L"UNC_PATH", std::wstring(L"\\\\fileserver\\share\\") + kInstaller8_12},
            {L"STATE", L"UPDATING"}, {L"RESULT", L"OK"},     {L"RETRY", L"0"}};
        values.insert(values.end(), extra.begin(), extra.end());
        WriteJob(key_, values);
    }

    // The stand-in in the workspace under `name`, exiting with `exitCode`.
    std::wstring PlaceInstaller(const std::wstring& name, DWORD exitCode)
    {
        std::wstring path = PlaceStandIn(Workspace(), name);
        SetStandInExitCode(path, exitCode);
        return path;
    }

    // The installed version as a management side would have left it in
    // the registry, for tests about everything but Windows Installer.
    static void RegisterProductVersion(const std::wstring& version)
    {
        WriteString(kNewRoot, L"ProductVersion", version);
    }

    // Installers that run msiexec take their time; none of them may lead
    // to a restart.
    JobRun RunExpecting(int32_t exitCode, const std::vector<std::wstring>& args = {})
    {
        JobRun job = JobTest::RunExpecting(exitCode, args, 120000);
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Util_CheckReboot:"));
        EXPECT_TRUE(LacksLine(Messages(job), "Util_UpdateDone: FORCE REBOOT"));
        return job;
    }

    // The command line the tool starts the agent's installer with in a run
    // with one agent: no REBOOT property, the job's options last.
    static std::string LaunchLine(const std::wstring& installer, const std::string& options = "")
    {
        std::string path = Narrow(installer);
        std::string line = installer.find(L' ') == std::wstring::npos ? path : "\"" + path + "\"";
        line += " /s /v /qn TQM_SKIP_ADD_LDAP_MACHINE_ENTRY=1";
        if (!options.empty())
            line += " " + options;
        return line;
    }

    // The tool's line for an upgrade code with no product installed.
    static std::string NotFoundLine(const wchar_t* upgradeCode)
    {
        return "Agent::FindInstalledVersion: MsiEnumRelatedProducts failed: " + std::string(kNoMoreItems) +
               " code: " + Narrow(upgradeCode);
    }

    static std::vector<std::string> LaunchedLines(const std::string& line, DWORD exitCode)
    {
        return {
            "=== Update ===",
            "Agent::LaunchHelper: launching: " + line,
            "Agent::LaunchHelper: " + line + " returned: " + ExitCodeText(exitCode),
        };
    }

    // The closing lines of a run whose result stayed -1 under UPDATING.
    static std::vector<std::string> FailureLines()
    {
        return {
            "Util_UpdateDone: Updating state for result 'ERR_FAILURE', legacy workflow:'0' ",
            "Util_UpdateDone: agent update result: ERR_FAILURE",
            "UtilManageUpdateState: Update key: job current state: UPDATING result:FAILURE",
            "UtilManageUpdateState: Update key: job new state: UPDATING result: FAILURE",
        };
    }

    // The closing lines of a run that found nothing to update (-4).
    static std::vector<std::string> DoneOkLines()
    {
        return {
            "App::CheckVersion: Update not available",
            "Util_UpdateDone: Updating state for result 'ERR_NOAGENT', legacy workflow:'0' ",
            "Util_UpdateDone: agent update result: ERR_NOAGENT",
            "UtilManageUpdateState: Update key: job current state: UPDATING result:OK",
            "UtilManageUpdateState: Update key: job new state: DONE result: OK",
        };
    }

    static std::vector<std::string> Concat(std::vector<std::string> a, const std::vector<std::string>& b)
    {
        a.insert(a.end(), b.begin(), b.end());
        return a;
    }

    // The last of `count` telemetry entries. "fromVersion" stands only when
    // the run launched an installer over a version it found installed.
    void ExpectLastEntry(const JobRun& job, size_t count, const ExpectedEntry& expected,
                         const std::string& fromVersion = "")
    {
        std::optional<std::vector<JsonValue>> entries = TelemetryEntries();
        ASSERT_TRUE(entries.has_value());
        ASSERT_EQ(count, entries->size());
        JsonValue entry = entries->back();
        const JsonValue* from = entry.Find("fromVersion");
        if (fromVersion.empty()) {
            EXPECT_EQ(nullptr, from) << "unexpected \"fromVersion\": " << (from ? from->text : "");
        } else {
            ASSERT_NE(nullptr, from) << "no \"fromVersion\"";
            EXPECT_EQ(JsonValue::Kind::String, from->kind);
            EXPECT_EQ(fromVersion, from->text);
        }
        std::erase_if(entry.members, [](const auto& member) { return member.first == "fromVersion"; });
        EXPECT_TRUE(IsEntry(entry, expected, job.startedAt, job.endedAt));
    }
};

// --- The installed version ---------------------------------------------------------

TEST_F(UpdateTovi, InstalledVersionComesFromTheCurrentUpgradeCodeFirst)
{
    ASSERT_TRUE(IsHost64Bit()) << "the lab is a 64-bit host";
    ASSERT_EQ(0u, InstallPackage(kAgent8_10_0));
    // Read only when Windows Installer knows no product: it would say
    // that nothing needs doing.
    RegisterProductVersion(L"8.13.0");
    const std::wstring installer = PlaceInstaller(kInstaller8_12, 0);
    WriteToviJob(L"8.12.0");

    JobRun job = RunExpecting(-1);

    const std::string line = LaunchLine(installer);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), Concat({
        "Agent::Agent: override version: 8.12.0",
        "Util_UNCDownload: Update key: job state: UPDATING",
        "=== Check Version ===",
        "ToviAgent::GetVersion: installedVersion: 8.10.0",
        "Agent::FindUpdateVersion: updateFilename: " + Narrow(installer),
        "ToviAgent::GetVersion: updateVersion: 8.12.0-9876543 updateFileName: " + Narrow(installer),
    }, Concat(LaunchedLines(line, 0), FailureLines()))));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Agent::FindInstalledVersion:"));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Agent::CompVersion:"));
    EXPECT_TRUE(LacksLine(Messages(job), "App::Update: no Launch"));
    EXPECT_EQ(line, StandInCommandLine(installer).value_or("(not run)"));
    // The stand-in only exited: what is installed stays.
    EXPECT_EQ(L"8.10.0", InstalledVersion(kAgentUpgradeCode).value_or(L"(none)"));
    EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "FAILURE", "", "", "", "0"}));
    // The file came from the search, not from the job: nothing to clean up.
    EXPECT_TRUE(PathExists(installer));
    ExpectLastEntry(job, 1, {"job", "TOVI", "", "8.12.0", "UPDATING", 0, "FAILURE"}, "8.10.0");
}

TEST_F(UpdateTovi, InstalledVersionComesFromTheLegacyUpgradeCodeAfterOneLoggedFailure)
{
    ASSERT_EQ(0u, InstallPackage(kLegacyAgent8_9_0));
    ASSERT_TRUE(RelatedProducts(kAgentUpgradeCode).empty());
    // Read only after both upgrade codes: it would say that nothing needs doing.
    RegisterProductVersion(L"8.13.0");
    const std::wstring installer = PlaceInstaller(kInstaller8_12, 0);
    WriteToviJob(L"8.12.0");

    JobRun job = RunExpecting(-1);

    EXPECT_TRUE(HasLinesInOrder(Messages(job), Concat({
        NotFoundLine(kAgentUpgradeCode),
        "ToviAgent::GetVersion: installedVersion: 8.9.0",
    }, LaunchedLines(LaunchLine(installer), 0))));
    size_t failures = std::count_if(Messages(job).begin(), Messages(job).end(), [](const std::string& m) {
        return m.rfind("Agent::FindInstalledVersion:", 0) == 0;
    });
    EXPECT_EQ(1u, failures);
    EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "FAILURE", "", "", "", "0"}));
    ExpectLastEntry(job, 1, {"job", "TOVI", "", "8.12.0", "UPDATING", 0, "FAILURE"}, "8.9.0");
}

TEST_F(UpdateTovi, ProductVersionUnderTheNewRootIsTheInstalledVersionWhenNoProductIsFound)
{
    // Newer than the installer: the value is read, or the tool would launch.
    RegisterProductVersion(L"8.13.0");
    const std::wstring installer = PlaceInstaller(kInstaller8_12, 0);
    WriteToviJob(L"8.12.0");

    JobRun job = RunExpecting(-4);

    EXPECT_TRUE(HasLinesInOrder(Messages(job), Concat({
        NotFoundLine(kAgentUpgradeCode),
        NotFoundLine(kLegacyAgentUpgradeCode),
        "ToviAgent::GetVersion: installedVersion: 8.13.0",
        "ToviAgent::GetVersion: updateVersion: 8.12.0-9876543 updateFileName: " + Narrow(installer),
        "App::CheckVersion: CompVersion does not require to upgrade",
        "Agent::UpdateAvailable: no need to upgrade",
    }, DoneOkLines())));
    EXPECT_TRUE(LacksLine(Messages(job), "=== Update ==="));
    EXPECT_FALSE(StandInCommandLine(installer).has_value()) << "the installer was started";
    EXPECT_TRUE(HasWrittenValues(key_, {"DONE", "OK", "", "", "", "0"}));
    ExpectLastEntry(job, 1, {"job", "TOVI", "", "8.12.0", "DONE", 0, "OK"});
}

TEST_F(UpdateTovi, ProductVersionUnderTheLegacyRootIsNotRead)
{
    WriteString(kLegacyRoot, L"ProductVersion", L"8.13.0");
    const std::wstring installer = PlaceInstaller(kInstaller8_12, 0);
    WriteToviJob(L"8.12.0");

    JobRun job = RunExpecting(-1);

    EXPECT_TRUE(HasLinesInOrder(Messages(job), Concat({
        "ToviAgent::GetVersion: installed version not found",
        "Agent::CompVersion: installed version not found",
    }, LaunchedLines(LaunchLine(installer), 0))));
    EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "FAILURE", "", "", "", "0"}));
}

TEST_F(UpdateTovi, NothingInstalledAsksForTheUpgrade)
{
    const std::wstring installer = PlaceInstaller(kInstaller8_12, 0);
    WriteToviJob(L"8.12.0");

    JobRun job = RunExpecting(-1);

    EXPECT_TRUE(HasLinesInOrder(Messages(job), Concat({
        NotFoundLine(kAgentUpgradeCode),
        NotFoundLine(kLegacyAgentUpgradeCode),
        "ToviAgent::GetVersion: installed version not found",
        "ToviAgent::GetVersion: updateVersion: 8.12.0-9876543 updateFileName: " + Narrow(installer),
        "Agent::CompVersion: installed version not found",
    }, Concat(LaunchedLines(LaunchLine(installer), 0), FailureLines()))));
    EXPECT_TRUE(StandInCommandLine(installer).has_value());
    EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "FAILURE", "", "", "", "0"}));
    // Nothing was found installed: no "fromVersion".
    ExpectLastEntry(job, 1, {"job", "TOVI", "", "8.12.0", "UPDATING", 0, "FAILURE"});
}

// --- Which installer ---------------------------------------------------------------

TEST_F(UpdateTovi, FirstInstallerThePlatformListsWins)
{
    const std::wstring a = PlaceInstaller(L"Kesmarc-Zenthra-Agent-x86_64-8.12.0-1.exe", 0);
    const std::wstring b = PlaceInstaller(L"Kesmarc-Zenthra-Agent-x86_64-8.14.0-1.exe", 0);
    std::vector<std::wstring> listed = Listed(JoinPath(Workspace(), L"Kesmarc-Zenthra-Agent-x86_64*.exe"));
    ASSERT_EQ(2u, listed.size());
    const std::wstring first = JoinPath(Workspace(), listed[0]);
    const std::wstring second = first == a ? b : a;
    const std::string firstVersion = first == a ? "8.12.0-1" : "8.14.0-1";
    WriteToviJob(L"8.12.0");

    JobRun job = RunExpecting(-1);

    EXPECT_TRUE(ContainsMessage(Messages(job), "ToviAgent::GetVersion: updateVersion: " + firstVersion +
                                                   " updateFileName: " + Narrow(first)));
    EXPECT_TRUE(StandInCommandLine(first).has_value());
    EXPECT_FALSE(StandInCommandLine(second).has_value());
}

TEST_F(UpdateTovi, FilenameInTheJobIsLaunchedWithoutASearch)
{
    RegisterProductVersion(L"8.10.0");
    // What a search would find, and must not.
    const std::wstring searchable = PlaceInstaller(L"Kesmarc-Zenthra-Agent-x86_64-8.14.0-1.exe", 0);
    const std::wstring named = PlaceStandIn(NewFolder(L"setup files"), L"agent setup.exe");
    SetStandInExitCode(named, 0);
    WriteToviJob(L"8.12.0", {{L"FILENAME", named}, {L"OPTIONS", L"ADDLOCAL=Core"}});

    JobRun job = RunExpecting(-1);

    const std::string line = LaunchLine(named, "ADDLOCAL=Core");
    ASSERT_EQ('"', line.front()) << "the path has a blank and is quoted";
    EXPECT_TRUE(HasLinesInOrder(Messages(job), Concat({
        "Agent::Agent: override version: 8.12.0",
        "Agent::Agent: override filename: " + Narrow(named),
        "ToviAgent::GetVersion: installedVersion: 8.10.0",
        "Agent::FindUpdateVersion: updateFilename: " + Narrow(named),
        "ToviAgent::GetVersion: updateVersion: 8.12.0 updateFileName: " + Narrow(named),
    }, Concat(LaunchedLines(line, 0), FailureLines()))));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Agent::FindUpdateVersion: FindFirstFile"));
    EXPECT_EQ(line, StandInCommandLine(named).value_or("(not run)"));
    EXPECT_FALSE(StandInCommandLine(searchable).has_value());
    // A failed update deletes the job's payload; the record keeps its name.
    EXPECT_FALSE(PathExists(named));
    EXPECT_TRUE(PathExists(searchable));
    EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "FAILURE", Narrow(named), "", "", "0"}));
    ExpectLastEntry(job, 1, {"job", "TOVI", Narrow(named), "8.12.0", "UPDATING", 0, "FAILURE"}, "8.10.0");
}

TEST_F(UpdateTovi, BareFilenameInTheJobIsTakenFromTheWorkspace)
{
    const std::wstring named = PlaceInstaller(L"agent-setup.exe", 0);
    WriteToviJob(L"8.12.0", {{L"FILENAME", L"agent-setup.exe"}});

    JobRun job = RunExpecting(-1);

    EXPECT_TRUE(HasLinesInOrder(Messages(job), Concat({
        "Agent::Agent: override filename: agent-setup.exe",
        "Agent::FindUpdateVersion: updateFilename: " + Narrow(named),
    }, LaunchedLines(LaunchLine(named), 0))));
    EXPECT_TRUE(StandInCommandLine(named).has_value());
    EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "FAILURE", "agent-setup.exe", "", "", "0"}));
}

TEST_F(UpdateTovi, FilenameWithoutVersionComparesAsZerosAndLaunchesNothing)
{
    RegisterProductVersion(L"8.10.0");
    const std::wstring named = PlaceInstaller(kInstaller8_12, 0);
    WriteToviJob(L"", {{L"FILENAME", named}});

    JobRun job = RunExpecting(-4);

    EXPECT_TRUE(HasLinesInOrder(Messages(job), Concat({
        "ToviAgent::GetVersion: updateVersion:  updateFileName: " + Narrow(named),
        "Agent::CompVersion: cannot determine update version: ",
        "App::CheckVersion: CompVersion does not require to upgrade",
        "Agent::UpdateAvailable: no need to upgrade",
    }, DoneOkLines())));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Agent::Agent: override version"));
    EXPECT_FALSE(StandInCommandLine(named).has_value());
    // The good end of an update deletes the job's payload.
    EXPECT_FALSE(PathExists(named));
    EXPECT_TRUE(HasWrittenValues(key_, {"DONE", "OK", Narrow(named), "", "", "0"}));
    ExpectLastEntry(job, 1, {"job", "TOVI", Narrow(named), "", "DONE", 0, "OK"});
}

TEST_F(UpdateTovi, InstallerForDirectConnectionIsSkipped)
{
    const std::wstring excluded = PlaceInstaller(L"Kesmarc-Zenthra-Agent-x86_64-8.14.0-1-Direct-Connection.exe", 0);
    const std::wstring taken = PlaceInstaller(L"Kesmarc-Zenthra-Agent-x86_64-8.14.0-2.exe", 0);
    // Listed first, so only the exclusion keeps it from being taken.
    std::vector<std::wstring> listed = Listed(JoinPath(Workspace(), L"Kesmarc-Zenthra-Agent-x86_64*.exe"));
    ASSERT_EQ(2u, listed.size());
    ASSERT_EQ(excluded, JoinPath(Workspace(), listed[0]));
    WriteToviJob(L"8.14.0");

    JobRun job = RunExpecting(-1);

    EXPECT_TRUE(HasLinesInOrder(Messages(job), Concat({
        "ToviAgent::GetVersion: updateVersion: 8.14.0-2 updateFileName: " + Narrow(taken),
    }, LaunchedLines(LaunchLine(taken), 0))));
    EXPECT_FALSE(StandInCommandLine(excluded).has_value());
    EXPECT_TRUE(StandInCommandLine(taken).has_value());
}

TEST_F(UpdateTovi, InstallerWithoutX86_64InItsNameIsNotTakenOnA64BitHost)
{
    ASSERT_TRUE(IsHost64Bit()) << "the lab is a 64-bit host";
    const std::wstring installer = PlaceInstaller(L"Kesmarc-Zenthra-Agent-8.14.0-1.exe", 0);
    WriteToviJob(L"8.14.0");

    JobRun job = RunExpecting(-4);

    const std::string pattern = Narrow(JoinPath(Workspace(), kNamePrefix)) + "-x86_64*";
    EXPECT_TRUE(HasLinesInOrder(Messages(job), Concat({
        "ToviAgent::GetVersion: installed version not found",
        "Agent::FindUpdateVersion: FindFirstFile error: " + pattern + " " + ExitCodeText(ERROR_FILE_NOT_FOUND),
        "ToviAgent::GetVersion: update version not found",
        "App::CheckVersion: GetVersion could not find the update file",
        "Agent::CompVersion: installed version not found",
        "Agent::UpdateAvailable: update installer empty",
    }, DoneOkLines())));
    // The tool's own view of the host, which the name rule follows; it
    // reaches the console only, ahead of the log.
    EXPECT_TRUE(ContainsMessage(job.console, "Agent::IsHostX64: host system: 64-bit"));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Agent::IsHostX64:"));
    EXPECT_FALSE(StandInCommandLine(installer).has_value());
    // Nothing was installed, and the job still ends as done.
    EXPECT_TRUE(HasWrittenValues(key_, {"DONE", "OK", "", "", "", "0"}));
    EXPECT_TRUE(PathExists(installer));
}

// --- Newer, equal, older -----------------------------------------------------------

TEST_F(UpdateTovi, OnlyANewerInstallerIsLaunched)
{
    ASSERT_EQ(0u, InstallPackage(kAgent8_12_0));
    struct Case {
        const wchar_t* name;
        const char* version;
        bool launched;
    };
    const Case cases[] = {
        {L"Kesmarc-Zenthra-Agent-x86_64-8.14.0-1.exe", "8.14.0-1", true},
        {L"Kesmarc-Zenthra-Agent-x86_64-8.12.1-1.exe", "8.12.1-1", true},
        // The installed version has no build: an equal one never upgrades.
        {L"Kesmarc-Zenthra-Agent-x86_64-8.12.0-5.exe", "8.12.0-5", false},
        {L"Kesmarc-Zenthra-Agent-x86_64-8.10.0-1.exe", "8.10.0-1", false},
        {L"Kesmarc-Zenthra-Agent-x86_64-7.99.99-99.exe", "7.99.99-99", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(Narrow(c.name));
        NextCase();
        const std::wstring installer = PlaceInstaller(c.name, 0);
        WriteToviJob(L"8.12.0");
        JobRun job = RunExpecting(c.launched ? -1 : -4);
        std::vector<std::string> found = {
            "ToviAgent::GetVersion: installedVersion: 8.12.0",
            "ToviAgent::GetVersion: updateVersion: " + std::string(c.version) + " updateFileName: " +
                Narrow(installer),
        };
        if (c.launched) {
            EXPECT_TRUE(HasLinesInOrder(Messages(job),
                                        Concat(found, Concat(LaunchedLines(LaunchLine(installer), 0), FailureLines()))));
            EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::CheckVersion:"));
            EXPECT_EQ(LaunchLine(installer), StandInCommandLine(installer).value_or("(not run)"));
            EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "FAILURE", "", "", "", "0"}));
        } else {
            EXPECT_TRUE(HasLinesInOrder(Messages(job),
                                        Concat(found, Concat({"App::CheckVersion: CompVersion does not require to "
                                                              "upgrade",
                                                              "Agent::UpdateAvailable: no need to upgrade"},
                                                             DoneOkLines()))));
            EXPECT_TRUE(LacksLine(Messages(job), "=== Update ==="));
            EXPECT_FALSE(StandInCommandLine(installer).has_value());
            EXPECT_TRUE(HasWrittenValues(key_, {"DONE", "OK", "", "", "", "0"}));
        }
        EXPECT_EQ(L"8.12.0", InstalledVersion(kAgentUpgradeCode).value_or(L"(none)"));
    }
}

TEST_F(UpdateTovi, BuildNumberDecidesOnlyWhenBothSidesHaveOne)
{
    struct Case {
        const wchar_t* installed;
        const wchar_t* name;
        const char* version;
        bool launched;
    };
    const Case cases[] = {
        {L"8.12.0-100", L"Kesmarc-Zenthra-Agent-x86_64-8.12.0-101.exe", "8.12.0-101", true},
        {L"8.12.0-101", L"Kesmarc-Zenthra-Agent-x86_64-8.12.0-100.exe", "8.12.0-100", false},
        {L"8.12.0", L"Kesmarc-Zenthra-Agent-x86_64-8.12.0-101.exe", "8.12.0-101", false},
        // Every "x86_64" goes from the version, whatever its case.
        {L"8.12.0-5", L"Kesmarc-Zenthra-Agent-x86_64-8.12.0-X86_64-7.exe", "8.12.0--7", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(Narrow(c.name));
        NextCase();
        RegisterProductVersion(c.installed);
        const std::wstring installer = PlaceInstaller(c.name, 0);
        WriteToviJob(L"8.12.0");

        JobRun job = RunExpecting(c.launched ? -1 : -4);

        EXPECT_TRUE(ContainsMessage(Messages(job), "ToviAgent::GetVersion: updateVersion: " + std::string(c.version) +
                                                       " updateFileName: " + Narrow(installer)));
        EXPECT_EQ(c.launched, StandInCommandLine(installer).has_value());
        EXPECT_EQ(!c.launched, ContainsMessage(Messages(job), "Agent::UpdateAvailable: no need to upgrade"));
    }
}

TEST_F(UpdateTovi, ForceLaunchesAnEqualOrOlderInstallerAnyway)
{
    struct Case {
        const wchar_t* arg;
        const wchar_t* name;
    };
    const Case cases[] = {
        {L"-force", L"Kesmarc-Zenthra-Agent-x86_64-8.10.0-1.exe"},
        {L"/FORCE", L"Kesmarc-Zenthra-Agent-x86_64-8.12.0-1.exe"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(Narrow(c.arg));
        NextCase();
        RegisterProductVersion(L"8.12.0");
        const std::wstring installer = PlaceInstaller(c.name, 0);
        WriteToviJob(L"8.12.0");

        JobRun job = RunExpecting(-1, {c.arg});

        EXPECT_TRUE(HasLinesInOrder(Messages(job), Concat({
            "App::ParseCmdline: force launch enabled",
            "ToviAgent::GetVersion: installedVersion: 8.12.0",
            // Only logged: the force decides.
            "App::CheckVersion: CompVersion does not require to upgrade",
        }, Concat(LaunchedLines(LaunchLine(installer), 0), FailureLines()))));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Agent::UpdateAvailable:"));
        EXPECT_TRUE(LacksLine(Messages(job), "App::CheckVersion: Update not available"));
        EXPECT_EQ(LaunchLine(installer), StandInCommandLine(installer).value_or("(not run)"));
        EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "FAILURE", "", "", "", "0"}));
        ExpectLastEntry(job, 1, {"job", "TOVI", "", "8.12.0", "UPDATING", 0, "FAILURE"}, "8.12.0");
    }
}

TEST_F(UpdateTovi, ForceWithoutAnInstallerLaunchesNothing)
{
    WriteToviJob(L"8.12.0");
    MakeDirectories(Workspace());

    JobRun job = RunExpecting(-4, {L"-force"});

    EXPECT_TRUE(HasLinesInOrder(Messages(job), Concat({
        "App::ParseCmdline: force launch enabled",
        "ToviAgent::GetVersion: update version not found",
        "Agent::UpdateAvailable: update installer empty",
    }, DoneOkLines())));
    EXPECT_TRUE(HasWrittenValues(key_, {"DONE", "OK", "", "", "", "0"}));
}

TEST_F(UpdateTovi, TestModeLogsTheCommandLineAndStartsNoProcess)
{
    const std::wstring installer = PlaceInstaller(kInstaller8_12, 1603);
    WriteToviJob(L"8.12.0", {{L"OPTIONS", L"ADDLOCAL=Core"}});

    JobRun job = RunExpecting(-1, {L"-test"});

    const std::string line = LaunchLine(installer, "ADDLOCAL=Core");
    EXPECT_TRUE(HasLinesInOrder(Messages(job), Concat({
        "App::ParseCmdline: test mode enabled",
        "=== Update ===",
        "Agent::LaunchHelper: launching: " + line,
    }, FailureLines())));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Agent::LaunchHelper: " + line + " returned:"));
    EXPECT_TRUE(LacksLine(Messages(job), "App::Update: no Launch"));
    EXPECT_FALSE(StandInCommandLine(installer).has_value()) << "a process was started";
    EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "FAILURE", "", "", "", "0"}));
    ExpectLastEntry(job, 1, {"job", "TOVI", "", "8.12.0", "UPDATING", 0, "FAILURE"});
}

// --- The installer's exit code -----------------------------------------------------

TEST_F(UpdateTovi, Exit1638FailsTheJobWithTheInstallersErrorAndTheLastInstallError)
{
    RegisterProductVersion(L"8.10.0");
    const std::wstring installer = PlaceInstaller(kInstaller8_12, 1638);
    WriteString(std::wstring(kNewRoot) + L"\\Agent", L"LastInstallError", L"a newer version is present");
    WriteString(std::wstring(kLegacyRoot) + L"\\Agent", L"LastInstallError", L"from the former brand");
    WriteToviJob(L"8.12.0");

    JobRun job = RunExpecting(-1);

    // Not in the tool's table of names: the number stands for the name.
    const std::string desc = ExitCodeText(1638) + " - a newer version is present";
    EXPECT_TRUE(HasLinesInOrder(Messages(job), Concat(Concat(LaunchedLines(LaunchLine(installer), 1638), {
        "App::Update: no Launch",
        "App::Update: Error code and description: 1638, " + desc,
    }), FailureLines())));
    EXPECT_TRUE(LacksLine(Messages(job), "App::Update: agent reboot required"));
    EXPECT_TRUE(LacksLine(Messages(job), "App::Update: ERROR: Failed to write MSI error details to registry"));
    EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "FAILURE", "", "1638", desc, "0"}));
    // No installer log is named by the job: no report.
    EXPECT_FALSE(ReadValue(key_, L"ERRORSUMMARYFILE").has_value());
    EXPECT_FALSE(ReadValue(key_, L"ERRORDETAILS").has_value());
    // Gone at the end of the run, under both roots.
    EXPECT_FALSE(ReadValue(std::wstring(kNewRoot) + L"\\Agent", L"LastInstallError").has_value());
    EXPECT_FALSE(ReadValue(std::wstring(kLegacyRoot) + L"\\Agent", L"LastInstallError").has_value());
    ExpectLastEntry(job, 1, {"job", "TOVI", "", "8.12.0", "UPDATING", 0, "FAILURE", "1638", desc}, "8.10.0");
}

TEST_F(UpdateTovi, Exit3010EndsTheLoopWithoutDetailsAndWithoutARestart)
{
    RegisterProductVersion(L"8.10.0");
    const std::wstring installer = PlaceInstaller(kInstaller8_12, 3010);
    WriteToviJob(L"8.12.0");

    JobRun job = RunExpecting(-1);

    EXPECT_TRUE(HasLinesInOrder(Messages(job), Concat(Concat(LaunchedLines(LaunchLine(installer), 3010), {
        "App::Update: no Launch",
    }), FailureLines())));
    EXPECT_TRUE(LacksLine(Messages(job), "App::Update: agent reboot required"));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::Update: Error code and description"));
    EXPECT_TRUE(LacksLine(Messages(job), "Initiated system reboot successfully."));
    EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "FAILURE", "", "", "", "0"}));
    ExpectLastEntry(job, 1, {"job", "TOVI", "", "8.12.0", "UPDATING", 0, "FAILURE"}, "8.10.0");
}

TEST_F(UpdateTovi, AnyOtherExitCodeLeavesOnlyTheLaunchLines)
{
    for (DWORD code : {0u, 1u, 1603u, 1618u, 1641u}) {
        SCOPED_TRACE(code);
        NextCase();
        RegisterProductVersion(L"8.10.0");
        const std::wstring installer = PlaceInstaller(kInstaller8_12, code);
        WriteString(std::wstring(kNewRoot) + L"\\Agent", L"LastInstallError", L"left by the installer");
        WriteToviJob(L"8.12.0");

        JobRun job = RunExpecting(-1);

        EXPECT_TRUE(HasLinesInOrder(Messages(job), Concat(LaunchedLines(LaunchLine(installer), code), FailureLines())));
        EXPECT_TRUE(LacksLine(Messages(job), "App::Update: no Launch"));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::Update:"));
        EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "FAILURE", "", "", "", "0"}));
        EXPECT_FALSE(ReadValue(std::wstring(kNewRoot) + L"\\Agent", L"LastInstallError").has_value());
        ExpectLastEntry(job, 1, {"job", "TOVI", "", "8.12.0", "UPDATING", 0, "FAILURE"}, "8.10.0");
    }
}

// --- A real install ------------------------------------------------------------------

TEST_F(UpdateTovi, InstallerInstallsTheNewVersionAndTheNextRunEndsDoneOk)
{
    ASSERT_EQ(0u, InstallPackage(kAgent8_10_0));
    const std::wstring installer = PlaceStandIn(Workspace(), L"Kesmarc-Zenthra-Agent-x86_64-8.12.0-4711.exe");
    const std::wstring package = PackagePath(kAgent8_12_0);
    SetStandInPackage(installer, package);
    WriteToviJob(L"8.12.0");

    // The install itself: for this kind of agent the run result stays -1
    // whatever the installer did, and the job is left in UPDATING.
    JobRun first = RunExpecting(-1);

    const std::string line = LaunchLine(installer);
    EXPECT_TRUE(HasLinesInOrder(Messages(first), Concat({
        "ToviAgent::GetVersion: installedVersion: 8.10.0",
        "ToviAgent::GetVersion: updateVersion: 8.12.0-4711 updateFileName: " + Narrow(installer),
    }, Concat(LaunchedLines(line, 0), FailureLines()))));
    EXPECT_EQ(line, StandInCommandLine(installer).value_or("(not run)"));
    std::optional<MsiexecRun> msiexec = StandInMsiexecRun(installer);
    ASSERT_TRUE(msiexec.has_value());
    EXPECT_EQ("msiexec /i \"" + Narrow(package) + "\" /qn TQM_SKIP_ADD_LDAP_MACHINE_ENTRY=1", msiexec->commandLine);
    EXPECT_EQ(0u, msiexec->exitCode);
    EXPECT_EQ(std::vector<std::wstring>{kAgent8_12_0.productCode}, RelatedProducts(kAgentUpgradeCode));
    EXPECT_EQ(L"8.12.0", InstalledVersion(kAgentUpgradeCode).value_or(L"(none)"));
    EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "FAILURE", "", "", "", "0"}));
    ExpectLastEntry(first, 1, {"job", "TOVI", "", "8.12.0", "UPDATING", 0, "FAILURE"}, "8.10.0");

    // The management side starts the tool again on the same job: the
    // version is in place, nothing is launched, and the job is done.
    ForgetStandInRuns(installer);
    JobRun second = RunExpecting(-4);

    EXPECT_TRUE(HasLinesInOrder(Messages(second), Concat({
        "ToviAgent::GetVersion: installedVersion: 8.12.0",
        "ToviAgent::GetVersion: updateVersion: 8.12.0-4711 updateFileName: " + Narrow(installer),
        "Agent::UpdateAvailable: no need to upgrade",
    }, DoneOkLines())));
    EXPECT_FALSE(StandInCommandLine(installer).has_value());
    EXPECT_EQ(L"8.12.0", InstalledVersion(kAgentUpgradeCode).value_or(L"(none)"));
    EXPECT_TRUE(HasWrittenValues(key_, {"DONE", "OK", "", "", "", "0"}));
    ExpectLastEntry(second, 2, {"job", "TOVI", "", "8.12.0", "DONE", 0, "OK"});
}

TEST_F(UpdateTovi, FailedInstallOfTheInstallerLeavesTheInstalledVersion)
{
    // Windows Installer refuses the older package over the newer one.
    ASSERT_EQ(0u, InstallPackage(kAgent8_12_0));
    const std::wstring installer = PlaceStandIn(Workspace(), L"Kesmarc-Zenthra-Agent-x86_64-8.14.0-1.exe");
    SetStandInPackage(installer, PackagePath(kAgent8_10_0));
    WriteToviJob(L"8.14.0");

    JobRun job = RunExpecting(-1);

    std::optional<MsiexecRun> msiexec = StandInMsiexecRun(installer);
    ASSERT_TRUE(msiexec.has_value());
    EXPECT_EQ(1603u, msiexec->exitCode);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), Concat(LaunchedLines(LaunchLine(installer), 1603), FailureLines())));
    // 1603 is no failure this kind of agent reports.
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::Update:"));
    EXPECT_EQ(L"8.12.0", InstalledVersion(kAgentUpgradeCode).value_or(L"(none)"));
    EXPECT_TRUE(HasWrittenValues(key_, {"UPDATING", "FAILURE", "", "", "", "0"}));
}

}  // namespace
}  // namespace it
