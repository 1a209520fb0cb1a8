// One job from start to end, as the management side drives it: DOWNLOAD
// fetches a real Windows Installer package from the lab's share, the
// management side then sets UPDATING, and the next run installs it.
#include "MsiLab.h"
#include "ShareLab.h"

namespace it {
namespace {

class FullJob : public WithoutLabProducts<NoRestart<ShareTest>> {
protected:
    const std::wstring key_ = JobKey(kNewRoot, L"job");
};

TEST_F(FullJob, DownloadThenUpdatingInstallsThePackageFromTheShareAndEndsDoneOk)
{
    // The machine has the older version; the share offers the newer one.
    ASSERT_EQ(0u, InstallPackage(kGenericTool1_0_0));
    std::optional<std::string> package = ReadFileBytes(PackagePath(kGenericTool1_1_0));
    ASSERT_TRUE(package.has_value());
    const std::wstring unc = PutOnShare(L"generic-tool-1.1.0.msi", *package);
    WriteJob(key_, {{L"AGENT", L"OTHER"},
                    {L"VERSION", L"1.1.0"},
                    {L"ARCH", L"64-BitAgent"},
                    {L"UNC_PATH", unc},
                    {L"FILESIZE", std::to_wstring(package->size())},
                    {L"CHECKSUM", Sha256Hex(*package)},
                    {L"STATE", L"DOWNLOAD"},
                    {L"RESULT", L""},
                    {L"RETRY", L"0"}});
    const std::wstring payload = JoinPath(Workspace(), L"generic-tool-1.1.0.msi");

    // Run 1: the fetch, which ends every run with -1 and leaves WAIT/OK.
    JobRun fetch = RunShareJob(120000);
    ASSERT_TRUE(fetch.log.has_value()) << fetch.run.out;
    EXPECT_TRUE(IsCompletedRun(fetch.run, fetch.log));
    EXPECT_EQ(-1, fetch.run.exitCode);
    EXPECT_TRUE(HasWrittenValues(key_, {"WAIT", "OK", Narrow(payload), "", "", "0"}));
    EXPECT_EQ(package, ReadFileBytes(payload));
    EXPECT_TRUE(HasLinesInOrder(Messages(fetch), {
        "Util_UNCDownload: Update key: job state: DOWNLOAD",
        "Util_CopyFileFromUNC: Copying file from source " + Narrow(unc),
        "Util_CopyFileFromUNC: File copy done at destination " + Narrow(payload),
        "UtilManageUpdateState: Update key: job current state: DOWNLOAD result:OK",
        "UtilManageUpdateState: Update key: job new state: WAIT result: OK",
    }));
    EXPECT_TRUE(LacksLine(Messages(fetch), "=== Update ==="));
    EXPECT_TRUE(LacksLineStartingWith(Messages(fetch), "Agent::LaunchHelper:"));
    EXPECT_EQ((std::vector<std::string>{ConnectCall(shareFolder_, 0), DisconnectCall(shareFolder_, 0)}),
              ProviderCalls());
    // Nothing is installed by a fetch.
    EXPECT_EQ(L"1.0.0", InstalledVersion(kGenericToolUpgradeCode).value_or(L"(none)"));
    EXPECT_TRUE(NoRebootMarker());

    // The management side moves the job on.
    WriteString(key_, L"STATE", L"UPDATING");

    // Run 2: the install from the fetched file; the share isn't touched again.
    JobRun install = RunShareJob(120000);
    ASSERT_TRUE(install.log.has_value()) << install.run.out;
    EXPECT_TRUE(IsCompletedRun(install.run, install.log));
    EXPECT_EQ(-4, install.run.exitCode);
    EXPECT_TRUE(HasWrittenValues(key_, {"DONE", "OK", Narrow(payload), "", "", "0"}));
    EXPECT_EQ(std::vector<std::wstring>{kGenericTool1_1_0.productCode}, RelatedProducts(kGenericToolUpgradeCode));
    EXPECT_EQ(L"1.1.0", InstalledVersion(kGenericToolUpgradeCode).value_or(L"(none)"));
    EXPECT_FALSE(PathExists(payload));
    EXPECT_TRUE(HasLinesInOrder(Messages(install), {
        "Util_UNCDownload: Update key: job state: UPDATING",
        "Agent::LaunchHelper: launching: msiexec /i " + Narrow(payload) + " /qn",
        "App::Update: agent update succeeded",
        "Util_UpdateDone: agent update result: ERR_NOAGENT",
        "UtilManageUpdateState: Update key: job current state: UPDATING result:OK",
        "UtilManageUpdateState: Update key: job new state: DONE result: OK",
    }));
    EXPECT_TRUE(LacksLineStartingWith(Messages(install), "Util_CopyFileFromUNC:"));
    EXPECT_EQ(2u, ProviderCalls().size()) << "the install run connected to the share";
    EXPECT_TRUE(NoRebootMarker());

    // One telemetry entry per run, oldest first.
    std::optional<std::vector<JsonValue>> entries = TelemetryEntries();
    ASSERT_TRUE(entries.has_value());
    ASSERT_EQ(2u, entries->size());
    EXPECT_TRUE(IsEntry((*entries)[0], {"job", "OTHER", Narrow(payload), "1.1.0", "WAIT", 0, "OK"}, fetch.startedAt,
                        fetch.endedAt));
    EXPECT_TRUE(IsEntry((*entries)[1], {"job", "OTHER", Narrow(payload), "1.1.0", "DONE", 0, "OK"},
                        install.startedAt, install.endedAt));
}

}  // namespace
}  // namespace it
