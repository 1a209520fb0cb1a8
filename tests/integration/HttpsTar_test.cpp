// Tar payloads over HTTPS: the archive is unpacked into the workspace, the
// job's "RELATIVEFOLDERPATH" and "PACKAGEFILENAME" name the installer inside
// it, and the next run under UPDATING installs that package. An archive
// whose entries climb out of the workspace is refused. The archives are
// made by the harness, so each test decides their entries.
#include "HttpsLab.h"
#include "MsiLab.h"

namespace it {
namespace {

class HttpsTar : public WithoutLabProducts<NoRestart<HttpsTest>> {
protected:
    const std::wstring key_ = JobKey(kNewRoot, L"job");

    void TarJob(const std::string& tar, const std::wstring& name = L"agent-1.1.0.tar")
    {
        PutPayload(name, tar);
        WriteHttpsJob({Url(Lab().good, name)}, L"CERT_SYSTEM_CA", std::to_wstring(tar.size()), Sha256Hex(tar),
                      {{L"RELATIVEFOLDERPATH", L"pkg"}, {L"PACKAGEFILENAME", L"generic-tool-1.1.0.msi"}});
    }
};

TEST_F(HttpsTar, ArchiveIsUnpackedAndThePackageItNamesIsInstalledUnderUpdating)
{
    std::optional<std::string> msi = ReadFileBytes(PackagePath(kGenericTool1_1_0));
    ASSERT_TRUE(msi.has_value());
    const std::string readme = "release notes of 1.1.0\r\n";
    const std::string tar = TarArchive({{"pkg/", ""}, {"pkg/generic-tool-1.1.0.msi", *msi},
                                        {"pkg/docs/", ""}, {"pkg/docs/readme.txt", readme}});
    TarJob(tar);
    const std::wstring package = Local(L"pkg\\generic-tool-1.1.0.msi");

    JobRun fetch = RunFetch();
    // The install below needs the fetch.
    ASSERT_TRUE(HasWrittenValues(key_, {"WAIT", "OK", Narrow(package), "", "", "0"}));
    EXPECT_TRUE(msi == ReadFileBytes(package)) << "the unpacked package differs from the one packed";
    EXPECT_EQ(readme, ReadFileBytes(Local(L"pkg\\docs\\readme.txt")).value_or("<missing>"));
    EXPECT_TRUE(HasLinesInOrder(Messages(fetch), {
        "Util_DoDownload: Update key: job state: DOWNLOAD",
        "Util_DoDownload: Using system CA for certificate type",
        "Util_DoDownload: localPath: " + Narrow(Workspace()) + " workspace: " + Narrow(Workspace()) +
            " localFile: " + Narrow(package) + " payloadType: MirelClientPayloadType::TAR",
        "Util_DoDownload: download done",
        "UtilManageUpdateState: Update key: job new state: WAIT result: OK",
    }));
    ExpectOneEntry(fetch, {"job", "OTHER", Narrow(package), "1.1.0", "WAIT", 0, "OK"});
    EXPECT_TRUE(StrayFiles().empty());
    EXPECT_FALSE(InstalledVersion(kGenericToolUpgradeCode).has_value()) << "a fetch installed something";

    // The management side moves the job on.
    WriteString(key_, L"STATE", L"UPDATING");
    logsDir_ = UseFreshLogsDir();
    JobRun install = RunJob(180000);
    ExpectCompleted(install);
    EXPECT_EQ(-4, install.run.exitCode) << RunResultName(install.run.exitCode);
    EXPECT_TRUE(HasWrittenValues(key_, {"DONE", "OK", Narrow(package), "", "", "0"}));
    EXPECT_EQ(L"1.1.0", InstalledVersion(kGenericToolUpgradeCode).value_or(L"(none)"));
    EXPECT_TRUE(HasLinesInOrder(Messages(install), {
        "Util_DoDownload: Update key: job state: UPDATING",
        "Agent::LaunchHelper: launching: msiexec /i " + Narrow(package) + " /qn",
        "App::Update: agent update succeeded",
        "UtilManageUpdateState: Update key: job new state: DONE result: OK",
    }));
    EXPECT_TRUE(LacksLine(Messages(install), "Util_DoDownload: download done"));
    // The package goes after a good install; what else the archive brought stays.
    EXPECT_FALSE(PathExists(package));
    EXPECT_TRUE(PathExists(Local(L"pkg\\docs\\readme.txt")));
    // The install run fetched nothing.
    EXPECT_EQ(1u, Requests(Lab().goodLog).size());
}

TEST_F(HttpsTar, ArchiveWithEntriesOutsideTheWorkspaceIsRefused)
{
    SetRetrySettings(L"200", L"2");
    const std::string tar = TarArchive({{"pkg/", ""},
                                        {"pkg/generic-tool-1.1.0.msi", "not really a package"},
                                        {"../escaped.txt", "out of the workspace"},
                                        {"pkg/../../../escaped-further.txt", "further out"}});
    TarJob(tar);
    JobRun job = RunFetch();
    ExpectFailed(job, kVerifyFailed, L"pkg\\generic-tool-1.1.0.msi");
    // The archive is checked whole before anything is written, and goes
    // when refused: nothing of it stays, inside the workspace or outside.
    EXPECT_TRUE(WorkspaceFiles().empty()) << Narrow(WorkspaceFiles().front());
    EXPECT_TRUE(StrayFiles().empty()) << Narrow(StrayFiles().front());
    EXPECT_FALSE(PathExists(JoinPath(tempDir_, L"escaped.txt")));
    EXPECT_FALSE(PathExists(JoinPath(sandbox_, L"escaped-further.txt")));
}

}  // namespace
}  // namespace it
