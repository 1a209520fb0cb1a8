// One job from start to end over HTTPS, as the management side drives it:
// DOWNLOAD fetches a real Windows Installer package from the lab's nginx,
// the management side then sets UPDATING, and the next run installs it.
#include "HttpsLab.h"
#include "MsiLab.h"

namespace it {
namespace {

class HttpsFullJob : public WithoutLabProducts<NoRestart<HttpsTest>> {
protected:
    const std::wstring key_ = JobKey(kNewRoot, L"job");
};

TEST_F(HttpsFullJob, DownloadOverHttpsThenUpdatingInstallsThePackageAndEndsDoneOk)
{
    // The machine has the older version; the server offers the newer one.
    ASSERT_EQ(0u, InstallPackage(kGenericTool1_0_0));
    std::optional<std::string> package = ReadFileBytes(PackagePath(kGenericTool1_1_0));
    ASSERT_TRUE(package.has_value());
    PutPayload(L"generic-tool-1.1.0.msi", *package);
    WriteHttpsJob({Url(Lab().good, L"generic-tool-1.1.0.msi")}, L"CERT_SYSTEM_CA",
                  std::to_wstring(package->size()), Sha256Hex(*package));
    const std::wstring payload = Local(L"generic-tool-1.1.0.msi");

    // Run 1: the fetch.
    JobRun fetch = RunFetch();
    // The install below needs the fetch.
    ASSERT_TRUE(HasWrittenValues(key_, {"WAIT", "OK", Narrow(payload), "", "", "0"}));
    EXPECT_TRUE(package == ReadFileBytes(payload)) << "the fetched package differs from the server's";
    EXPECT_TRUE(HasLinesInOrder(Messages(fetch), {
        "Util_DoDownload: Update key: job state: DOWNLOAD",
        "Util_DoDownload: download done",
        "UtilManageUpdateState: Update key: job current state: DOWNLOAD result:OK",
        "UtilManageUpdateState: Update key: job new state: WAIT result: OK",
    }));
    EXPECT_TRUE(LacksLine(Messages(fetch), "=== Update ==="));
    EXPECT_EQ(L"1.0.0", InstalledVersion(kGenericToolUpgradeCode).value_or(L"(none)"));

    WriteString(key_, L"STATE", L"UPDATING");

    // Run 2: the install from the fetched file; the server isn't asked again.
    JobRun install = RunJob(180000);
    ExpectCompleted(install);
    EXPECT_EQ(-4, install.run.exitCode) << RunResultName(install.run.exitCode);
    EXPECT_TRUE(HasWrittenValues(key_, {"DONE", "OK", Narrow(payload), "", "", "0"}));
    EXPECT_EQ(std::vector<std::wstring>{kGenericTool1_1_0.productCode}, RelatedProducts(kGenericToolUpgradeCode));
    EXPECT_EQ(L"1.1.0", InstalledVersion(kGenericToolUpgradeCode).value_or(L"(none)"));
    EXPECT_FALSE(PathExists(payload));
    EXPECT_TRUE(HasLinesInOrder(Messages(install), {
        "Util_DoDownload: Update key: job state: UPDATING",
        "Agent::LaunchHelper: launching: msiexec /i " + Narrow(payload) + " /qn",
        "App::Update: agent update succeeded",
        "Util_UpdateDone: agent update result: ERR_NOAGENT",
        "UtilManageUpdateState: Update key: job current state: UPDATING result:OK",
        "UtilManageUpdateState: Update key: job new state: DONE result: OK",
    }));
    std::vector<Request> requests = Requests(Lab().goodLog);
    ASSERT_EQ(1u, requests.size());
    EXPECT_EQ(200, requests[0].status);

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
