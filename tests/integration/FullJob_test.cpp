// One job from start to end, as the management side drives it: DOWNLOAD
// fetches a real Windows Installer package from the lab's share, the
// management side then sets UPDATING, and the next run installs it.
#include <windows.h>
// after windows.h, which it needs
#include <wincrypt.h>

#include <cstdio>

#include "MsiLab.h"
#include "ShareLab.h"

namespace it {
namespace {

// SHA-256 of the bytes, in lower-case hexadecimal, through the base
// provider rather than the CNG calls the tool uses.
std::wstring Sha256Hex(const std::string& bytes)
{
    HCRYPTPROV provider = 0;
    if (!::CryptAcquireContextW(&provider, nullptr, nullptr, PROV_RSA_AES, CRYPT_VERIFYCONTEXT))
        throw std::runtime_error("CryptAcquireContextW failed (error " + std::to_string(::GetLastError()) + ")");
    HCRYPTHASH hash = 0;
    BYTE digest[32] = {};
    DWORD size = sizeof digest;
    bool ok = ::CryptCreateHash(provider, CALG_SHA_256, 0, 0, &hash) &&
              ::CryptHashData(hash, reinterpret_cast<const BYTE*>(bytes.data()), static_cast<DWORD>(bytes.size()),
                              0) &&
              ::CryptGetHashParam(hash, HP_HASHVAL, digest, &size, 0) && size == sizeof digest;
    if (hash)
        ::CryptDestroyHash(hash);
    ::CryptReleaseContext(provider, 0);
    if (!ok)
        throw std::runtime_error("SHA-256 of the package failed");
    std::wstring hex;
    for (BYTE b : digest) {
        wchar_t pair[3];
        std::swprintf(pair, 3, L"%02x", b);
        hex += pair;
    }
    return hex;
}

class FullJob : public ShareTest {
protected:
    const std::wstring key_ = JobKey(kNewRoot, L"job");

    void SetUp() override
    {
        ShareTest::SetUp();
        RemoveLabProducts();
        // A failed install with retries left would restart the prefix.
        SetRetrySettings(L"200", L"0");
    }

    void TearDown() override
    {
        RemoveLabProducts();
        ShareTest::TearDown();
    }

    static const std::vector<std::string>& Messages(const JobRun& job)
    {
        static const std::vector<std::string> none;
        return job.log ? job.log->messages : none;
    }
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
