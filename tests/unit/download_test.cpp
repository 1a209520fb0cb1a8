// The download over HTTPS as the tool drives it: the certificate check it
// chooses, the local name and payload type, what it hands the delivery
// client (a fake here), and how the client's code becomes the job's result.
#include "fetch/Download.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fakes/FakePlatform.h"
#include "fetch/CertPaths.h"
#include "fetch/MirelClientErrors.h"
#include "update/UpdateRecord.h"
#include "update/UpdateState.h"

using CORE::corestring;
using fakes::FakePlatform;
using fakes::whole;
using View = fakes::FakeKeyStore::View;

namespace {

const wchar_t* kWorkspace = L"C:\\Windows\\Temp\\updatetool-data";
const wchar_t* kNewRoot = L"Software\\Tarvelle\\Zenthra";
const wchar_t* kLegacyRoot = L"Software\\Kesmarc, Inc.\\Kesmarc TQM";
const wchar_t* kDaasKey = L"Software\\Tarvelle\\DaaS Agent";
const wchar_t* kLegacyDaasKey = L"Software\\Kesmarc, Inc.\\Kesmarc DaaS Agent";

// A job under DOWNLOAD with one URL, checked against the system's CAs.
class DownloadTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        UpdateRecord& r = g_updateRecord;
        r.sUpdateKey = L"Job1";
        r.nState = STATE_DOWNLOAD;
        r.sURLs = {corestring(L"https://cdn.example/pkg/agent.msi")};
        r.sCertType = L"CERT_SYSTEM_CA";
        r.sCheckSum = L"ab12";
        r.sFileSize = L"1000";
    }

    // The run's lines of the download step.
    std::vector<std::wstring> lines() const { return p.linesOf(L"Util_DoDownload"); }
    bool refusedAsInvalid() const
    {
        return whole(g_updateRecord.sResult) == L"INVALID" && p.delivery.created.empty() &&
               p.delivery.runLists.empty() && g_updateRecord.sErrorCode.empty() && g_updateRecord.sErrorDesc.empty();
    }
    const fakes::FakeDelivery::Download& created() const { return p.delivery.created.at(0); }

    FakePlatform p;
};

}  // namespace

// ---------------------------------------------------------------- the gate

TEST_F(DownloadTest, UnderUpdatingTheRunGoesOnWithoutTheClient)
{
    g_updateRecord.nState = STATE_UPDATING;
    EXPECT_TRUE(Util_DoDownload());
    EXPECT_TRUE(p.delivery.calls.empty());
    EXPECT_EQ(std::vector<std::wstring>{L"Util_DoDownload: Update key: Job1 state: UPDATING"}, lines());
}

// ---------------------------------------------------------------- a whole download

TEST_F(DownloadTest, GoodDownloadIsOkAndEveryStepIsLoggedInOrder)
{
    EXPECT_FALSE(Util_DoDownload());
    EXPECT_EQ(L"OK", whole(g_updateRecord.sResult));
    std::vector<std::wstring> expected = {
        L"Util_DoDownload: Update key: Job1 state: DOWNLOAD",
        L"Util_DoDownload: Using system CA for certificate type",
        std::wstring(L"Util_DoDownload: localPath: ") + kWorkspace + L" workspace: " + kWorkspace +
            L" localFile: " + kWorkspace + L"\\agent.msi payloadType: MirelClientPayloadType::EXE",
        L"Util_DoDownload: download done",
    };
    EXPECT_EQ(expected, lines());
    EXPECT_EQ(std::wstring(kWorkspace) + L"\\agent.msi", whole(g_updateRecord.sFileName));
    EXPECT_EQ(std::wstring(kWorkspace), whole(g_updateRecord.sWorkspace));
    EXPECT_TRUE(g_updateRecord.sErrorCode.empty());
}

TEST_F(DownloadTest, ClientGetsTheJobInUtf8AndTheCallsComeInTheirOrder)
{
    UpdateRecord& r = g_updateRecord;
    r.sUpdateKey = L"Job-\u00e9";
    r.sURLs = {corestring(L"https://a.example/x/agent.msi"), corestring(), corestring(L"https://b.example/agent.msi")};
    r.sProxies = {corestring(), corestring(L"proxy.example:3128"), corestring(L"http://other:8080")};
    r.sPacUrl = L"http://wpad.example/proxy.pac";
    r.sCheckSum = L"ABCDEF";
    r.sFileSize = L"4096";
    Util_DoDownload();

    ASSERT_EQ((std::vector<std::string>{"UseSystemCA", "Create", "Run", "Destroy"}), p.delivery.calls);
    EXPECT_EQ(std::vector<bool>{true}, p.delivery.systemCa);
    const auto& d = created();
    EXPECT_EQ("Job-\xC3\xA9", d.identity);
    EXPECT_EQ(4096, d.expectedSize);
    EXPECT_TRUE(d.flag);
    EXPECT_EQ((std::vector<std::string>{"https://a.example/x/agent.msi", "https://b.example/agent.msi"}), d.urls);
    EXPECT_TRUE(d.thumbprints.empty());
    EXPECT_EQ((std::vector<std::string>{"proxy.example:3128", "http://other:8080"}), d.proxies);
    EXPECT_EQ("http://wpad.example/proxy.pac", d.pacUrl);
    EXPECT_EQ("C:\\Windows\\Temp\\updatetool-data", d.workspace);
    EXPECT_EQ("ABCDEF", d.checksum);
    EXPECT_EQ(0, d.reserved);
    EXPECT_EQ(0, d.payloadType);
    // One run of exactly the download made, in the workspace, then released.
    ASSERT_EQ(1u, p.delivery.runLists.size());
    EXPECT_EQ(std::vector<void*>{p.delivery.handleOf(0)}, p.delivery.runLists[0]);
    EXPECT_EQ(std::vector<std::string>{"C:\\Windows\\Temp\\updatetool-data"}, p.delivery.runWorkspaces);
    EXPECT_EQ(std::vector<void*>{p.delivery.handleOf(0)}, p.delivery.destroyed);
}

// ---------------------------------------------------------------- the client's codes

struct CodeRow {
    std::int32_t code;
    const wchar_t* name;
    const wchar_t* description;
};

class DownloadFailure : public DownloadTest, public ::testing::WithParamInterface<CodeRow> {};

TEST_P(DownloadFailure, IsAFailureNamedByTheTable)
{
    const CodeRow& row = GetParam();
    p.delivery.runResult = row.code;
    EXPECT_FALSE(Util_DoDownload());
    EXPECT_EQ(L"FAILURE", whole(g_updateRecord.sResult));
    EXPECT_EQ(row.name, whole(g_updateRecord.sErrorCode));
    EXPECT_EQ(row.description, whole(g_updateRecord.sErrorDesc));
    EXPECT_EQ(L"Util_DoDownload: download failed: " + std::to_wstring(row.code) + L" [" + row.name + L"] - " +
                  row.description,
              lines().back());
    EXPECT_EQ(1u, p.delivery.destroyed.size());
}

INSTANTIATE_TEST_SUITE_P(
    Codes, DownloadFailure,
    ::testing::Values(
        CodeRow{1, L"MIRELCLIENT_PEM_FILE_FAILED", L"Failed to load or read PEM certificate file"},
        CodeRow{2, L"MIRELCLIENT_CREATE_CLIENT_FAILED", L"Failed to create client instance"},
        CodeRow{3, L"MIRELCLIENT_INIT_FAILED", L"Failed to initialize client"},
        // Still running is no success: the call is the whole transfer.
        CodeRow{4, L"MIRELCLIENT_DOWNLOAD_PENDING", L"Download is still in progress"},
        CodeRow{5, L"MIRELCLIENT_INVALID_THUMBPRINT", L"Invalid certificate thumbprint provided"},
        CodeRow{6, L"MIRELCLIENT_QUEUE_DOWNLOAD_FAILED", L"Failed to queue download operation"},
        CodeRow{7, L"MIRELCLIENT_DOWNLOAD_FAILED", L"Download operation failed"},
        CodeRow{8, L"MIRELCLIENT_VERIFY_FAILED", L"Failed to verify downloaded file"},
        CodeRow{9, L"MIRELCLIENT_HTTP_CERTIFICATE_ERROR", L"HTTPS certificate validation error"},
        CodeRow{10, L"MIRELCLIENT_WRONG_SIZE_ERROR", L"Downloaded file size mismatch"},
        CodeRow{11, L"MIRELCLIENT_WRONG_CHECKSUM_ERROR", L"Downloaded file checksum mismatch"},
        CodeRow{12, L"MIRELCLIENT_INVALID_URI_ERROR", L"Invalid URI specified for download"},
        CodeRow{42, L"MIRELCLIENT_MAXCOUNT", L"Unknown MIREL client error"},
        CodeRow{13, L"MIRELCLIENT_MAXCOUNT", L"Unknown MIREL client error"},
        CodeRow{-1, L"MIRELCLIENT_MAXCOUNT", L"Unknown MIREL client error"}));

TEST(MirelClientError, SuccessHasARowOfItsOwn)
{
    ErrorInfo info = MirelClientError(0);
    EXPECT_EQ(L"MIRELCLIENT_SUCCESS", whole(info.name));
    EXPECT_EQ(L"Operation completed successfully", whole(info.description));
}

// ---------------------------------------------------------------- the certificate check

TEST_F(DownloadTest, NoCertificateTypeIsInvalidAndFetchesNothing)
{
    g_updateRecord.sCertType = corestring();
    EXPECT_FALSE(Util_DoDownload());
    EXPECT_TRUE(refusedAsInvalid());
    EXPECT_TRUE(p.delivery.calls.empty());
    EXPECT_EQ(L"Util_DoDownload: certificate type not specified", lines().back());
}

TEST_F(DownloadTest, UnknownCertificateTypeIsInvalid)
{
    for (const wchar_t* type : {L"CERT", L"CERT_PEMX", L"THUMBPRINTS", L" CERT_PEM", L"SYSTEM_CA"}) {
        SCOPED_TRACE(std::wstring(type));
        g_updateRecord.sResult = corestring();
        g_updateRecord.sCertType = type;
        EXPECT_FALSE(Util_DoDownload());
        EXPECT_TRUE(refusedAsInvalid());
        EXPECT_EQ(L"Util_DoDownload: Invalid certificate type specified", lines().back());
    }
    EXPECT_TRUE(p.delivery.calls.empty());
}

TEST_F(DownloadTest, CertificateTypesIgnoreCase)
{
    g_updateRecord.sCertType = L"cert_system_ca";
    Util_DoDownload();
    EXPECT_EQ(L"OK", whole(g_updateRecord.sResult));
    EXPECT_EQ(std::vector<bool>{true}, p.delivery.systemCa);
}

TEST_F(DownloadTest, PemInLowerCaseTakesTheCaFileBelowTheAgentsFolder)
{
    g_updateRecord.sCertType = L"cert_pem";
    p.keys.putString(HKEY_LOCAL_MACHINE, kNewRoot, L"AgentInstallPath", L"C:\\Program Files\\Agent");
    p.files.addFile(L"C:\\Program Files\\Agent\\cert\\cacert.pem", std::string("-----BEGIN"));
    EXPECT_FALSE(Util_DoDownload());
    EXPECT_EQ(L"OK", whole(g_updateRecord.sResult));
    EXPECT_EQ(std::vector<std::string>{"C:\\Program Files\\Agent\\cert\\cacert.pem"}, p.delivery.pemFiles);
    EXPECT_EQ((std::vector<std::string>{"SetPemFile", "Create", "Run", "Destroy"}), p.delivery.calls);
    EXPECT_TRUE(p.logHas(L"Util_DoDownload: certificate PEM filePath: C:\\Program Files\\Agent\\cert\\cacert.pem"));
}

TEST_F(DownloadTest, PemWithoutAnyCaFileIsInvalid)
{
    g_updateRecord.sCertType = L"CERT_PEM";
    EXPECT_FALSE(Util_DoDownload());
    EXPECT_TRUE(refusedAsInvalid());
    EXPECT_TRUE(p.delivery.pemFiles.empty());
    EXPECT_TRUE(p.logHas(L"UtilGetPEMFilePath: cert file '' does not exist, returning legacy agent cert path "));
    EXPECT_EQ(L"Util_DoDownload: CertType is specified as CERT_PEM, but certificate PEM filePath is empty",
              lines().back());
}

TEST_F(DownloadTest, ThumbprintsWithoutAnyAreInvalid)
{
    g_updateRecord.sCertType = L"THUMBPRINT";
    EXPECT_FALSE(Util_DoDownload());
    EXPECT_TRUE(refusedAsInvalid());
    EXPECT_EQ(L"Util_DoDownload: CertType is specified as THUMBPRINT, but thumbprints are not provided for server "
              L"cert validation. ",
              lines().back());
}

TEST_F(DownloadTest, ThumbprintsTravelWithTheDownloadWithoutTheEmptyOnes)
{
    g_updateRecord.sCertType = L"Thumbprint";
    g_updateRecord.sThumbprints = {corestring(L"AA BB"), corestring(), corestring(L"cc\u00e9")};
    EXPECT_FALSE(Util_DoDownload());
    EXPECT_EQ(L"OK", whole(g_updateRecord.sResult));
    // The count is of every item the metadata held.
    EXPECT_TRUE(p.logHas(L"Util_DoDownload: Using thumbprints for verifying server certificate. Thumbprint count: 3"));
    EXPECT_EQ((std::vector<std::string>{"AA BB", "cc\xC3\xA9"}), created().thumbprints);
    EXPECT_EQ((std::vector<std::string>{"Create", "Run", "Destroy"}), p.delivery.calls);
}

TEST_F(DownloadTest, ThumbprintsOfTheJobAreNotPassedInAnotherMode)
{
    g_updateRecord.sThumbprints = {corestring(L"AABB")};
    Util_DoDownload();
    EXPECT_TRUE(created().thumbprints.empty());
}

TEST_F(DownloadTest, RefusedCertificateCheckLeavesFileNameAndRetryAlone)
{
    g_updateRecord.sCertType = L"bogus";
    g_updateRecord.sFileName = L"C:\\old\\file.msi";
    g_updateRecord.nRetry = 2;
    Util_DoDownload();
    EXPECT_EQ(L"C:\\old\\file.msi", whole(g_updateRecord.sFileName));
    EXPECT_EQ(2, g_updateRecord.nRetry);
}

TEST_F(DownloadTest, NoUrlIsInvalid)
{
    g_updateRecord.sURLs.clear();
    EXPECT_FALSE(Util_DoDownload());
    EXPECT_TRUE(refusedAsInvalid());
    EXPECT_EQ(L"Util_DoDownload: download URL empty", lines().back());
    // The certificate step came first.
    EXPECT_EQ(std::vector<bool>{true}, p.delivery.systemCa);
}

// ---------------------------------------------------------------- the local name

struct NameRow {
    const wchar_t* url;
    const wchar_t* folder;   // RELATIVEFOLDERPATH
    const wchar_t* package;  // PACKAGEFILENAME
    const wchar_t* fileName;
    std::int32_t type;
};

void PrintTo(const NameRow& row, std::ostream* os) { *os << CORE::WideToUtf8(corestring(row.url)); }

class LocalName : public DownloadTest, public ::testing::WithParamInterface<NameRow> {};

TEST_P(LocalName, FollowsTheFirstUrl)
{
    const NameRow& row = GetParam();
    g_updateRecord.sURLs = {corestring(row.url), corestring(L"https://second.example/other.exe")};
    g_updateRecord.sRelativeFolderPath = row.folder;
    g_updateRecord.sPackageFileName = row.package;
    Util_DoDownload();
    EXPECT_EQ(std::wstring(kWorkspace) + row.fileName, whole(g_updateRecord.sFileName));
    EXPECT_EQ(row.type, created().payloadType);
    const wchar_t* typeText = row.type ? L"MirelClientPayloadType::TAR" : L"MirelClientPayloadType::EXE";
    EXPECT_TRUE(p.logHas(std::wstring(L"Util_DoDownload: localPath: ") + kWorkspace + L" workspace: " + kWorkspace +
                         L" localFile: " + kWorkspace + row.fileName + L" payloadType: " + typeText));
}

INSTANTIATE_TEST_SUITE_P(
    Urls, LocalName,
    ::testing::Values(
        NameRow{L"https://cdn.example/a/b/Setup.exe", L"", L"", L"\\Setup.exe", 0},
        // Folder and package name belong to archives only.
        NameRow{L"https://cdn.example/Setup.exe", L"sub", L"pkg.msi", L"\\Setup.exe", 0},
        NameRow{L"https://cdn.example/dl/My%20Agent+v2%2Emsi", L"", L"", L"\\My Agent v2.msi", 0},
        // '+' turns into a blank only when the name holds an escape.
        NameRow{L"https://cdn.example/a+b.msi", L"", L"", L"\\a+b.msi", 0},
        NameRow{L"https://cdn.example/pay.tar.gz", L"Agent\\8.1", L"agent.msi", L"\\Agent\\8.1\\agent.msi", 1},
        NameRow{L"https://cdn.example/bundle.tar", L"", L"agent.msi", L"\\agent.msi", 1},
        NameRow{L"https://cdn.example/bundle.tar", L"Agent", L"", L"\\Agent", 1},
        NameRow{L"https://cdn.example/bundle.tar", L"", L"", L"", 1},
        // Case-sensitive: ".TAR" is a plain file.
        NameRow{L"https://cdn.example/bundle.TAR", L"", L"", L"\\bundle.TAR", 0},
        // A trailing slash leaves no name: the workspace with a backslash.
        NameRow{L"https://cdn.example/dir/", L"", L"", L"\\", 0},
        // The query string stays part of the name.
        NameRow{L"https://cdn.example/agent.msi?token=abc", L"", L"", L"\\agent.msi?token=abc", 0},
        NameRow{L"https://cdn.example\\x\\y.msi", L"", L"", L"\\y.msi", 0}));

TEST_F(DownloadTest, EscapedPercentBecomesAPercent)
{
    g_updateRecord.sURLs = {corestring(L"https://cdn.example/100%25.msi")};
    Util_DoDownload();
    EXPECT_EQ(std::wstring(kWorkspace) + L"\\100%.msi", whole(g_updateRecord.sFileName));
}

// ---------------------------------------------------------------- size and retry

TEST_F(DownloadTest, SizeIsReadLikeEveryNumberOfTheJob)
{
    struct Case {
        const wchar_t* text;
        std::int32_t size;
    };
    const Case cases[] = {
        {L"1000", 1000},
        {L"007", 7},  // never octal
        {L" 42 ", 42},
        {L"0x10", 16},
        {L"-5", -5},
        {L"", 0},
        {L"abc", 0},
        {L"2147483647", 2147483647},
        // Beyond the range the conversion stops at its maximum.
        {L"2147483648", 2147483647},
        {L"99999999999", 2147483647},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::wstring(c.text));
        g_updateRecord.sFileSize = c.text;
        Util_DoDownload();
        EXPECT_EQ(c.size, p.delivery.created.back().expectedSize);
    }
}

TEST_F(DownloadTest, FirstAttemptStartsTheRetryCountAgain)
{
    g_updateRecord.sFileName = corestring();
    g_updateRecord.nRetry = 5;
    Util_DoDownload();
    EXPECT_EQ(0, g_updateRecord.nRetry);
}

TEST_F(DownloadTest, LaterAttemptKeepsTheCountAndRebuildsTheFileName)
{
    g_updateRecord.sFileName = L"C:\\elsewhere\\old.msi";
    g_updateRecord.nRetry = 1;
    Util_DoDownload();
    EXPECT_EQ(1, g_updateRecord.nRetry);
    EXPECT_EQ(std::wstring(kWorkspace) + L"\\agent.msi", whole(g_updateRecord.sFileName));
}

// ---------------------------------------------------------------- helpers

TEST(Util_UrlDecode, EscapesBecomeOneCharacterEach)
{
    EXPECT_EQ(L"A b", whole(Util_UrlDecode(corestring(L"%41+b"))));
    EXPECT_EQ(L"\u00c3\u00a9", whole(Util_UrlDecode(corestring(L"%C3%A9"))));  // not joined into one
    EXPECT_EQ(L"\u00ff", whole(Util_UrlDecode(corestring(L"%fF"))));
}

TEST(Util_UrlDecode, DigitsAreTakenAsFarAsTheyGo)
{
    EXPECT_EQ(std::wstring(L"\x04") + L"x", whole(Util_UrlDecode(corestring(L"%4Gx"))));
    EXPECT_EQ(std::wstring(L"a\0b", 3), whole(Util_UrlDecode(corestring(L"a%GGb"))));
}

TEST(Util_UrlDecode, PercentTooNearTheEndStays)
{
    EXPECT_EQ(L"abc%4", whole(Util_UrlDecode(corestring(L"abc%4"))));
    EXPECT_EQ(L"abc%", whole(Util_UrlDecode(corestring(L"abc%"))));
    EXPECT_EQ(L"", whole(Util_UrlDecode(corestring())));
}

TEST(PayloadTypeText, NamesTheThreeTypesAndNumbersTheRest)
{
    EXPECT_EQ(L"MirelClientPayloadType::EXE", whole(PayloadTypeText(0)));
    EXPECT_EQ(L"MirelClientPayloadType::TAR", whole(PayloadTypeText(1)));
    EXPECT_EQ(L"MirelClientPayloadType::ZIP", whole(PayloadTypeText(2)));
    EXPECT_EQ(L"PayloadType ERR_7", whole(PayloadTypeText(7)));
    EXPECT_EQ(L"PayloadType ERR_-1", whole(PayloadTypeText(-1)));
}

// ---------------------------------------------------------------- where the CA file lies

class CertPathTest : public ::testing::Test {
protected:
    FakePlatform p;
};

TEST_F(CertPathTest, NewRootsFileWins)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kNewRoot, L"AgentInstallPath", L"C:\\New");
    p.keys.putString(HKEY_LOCAL_MACHINE, kLegacyRoot, L"AgentInstallPath", L"C:\\Old");
    p.files.addFile(L"C:\\New\\cert\\cacert.pem", std::string("x"));
    p.files.addFile(L"C:\\Old\\cert\\cacert.pem", std::string("x"));
    EXPECT_EQ(L"C:\\New\\cert\\cacert.pem", whole(UtilGetPEMFilePath()));
    EXPECT_TRUE(p.linesOf(L"UtilGetPEMFilePath").empty());
}

TEST_F(CertPathTest, LegacyRootsFileWhenTheNewOneIsMissing)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kNewRoot, L"AgentInstallPath", L"C:\\New\\");
    p.keys.putString(HKEY_LOCAL_MACHINE, kLegacyRoot, L"AgentInstallPath", L"C:\\Old");
    p.files.addFile(L"C:\\Old\\cert\\cacert.pem", std::string("x"));
    EXPECT_EQ(L"C:\\Old\\cert\\cacert.pem", whole(UtilGetPEMFilePath()));
}

TEST_F(CertPathTest, NeitherFileGivesTheDaasFolderAndNamesThePathLastTried)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kNewRoot, L"AgentInstallPath", L"C:\\New");
    p.keys.putString(HKEY_LOCAL_MACHINE, kLegacyRoot, L"AgentInstallPath", L"C:\\Old");
    p.files.addDirectory(L"C:\\Daas\\certs");
    p.keys.putString(HKEY_LOCAL_MACHINE, kDaasKey, L"CertFolder", L"C:\\Daas\\certs", REG_SZ, View::Wow32);
    p.keys.putString(HKEY_LOCAL_MACHINE, kDaasKey, L"CertFileName", L"ca.pem", REG_SZ, View::Wow32);
    EXPECT_EQ(L"C:\\Daas\\certs\\ca.pem", whole(UtilGetPEMFilePath()));
    EXPECT_EQ(std::vector<std::wstring>{L"UtilGetPEMFilePath: cert file 'C:\\Old\\cert\\cacert.pem' does not "
                                        L"exist, returning legacy agent cert path "},
              p.linesOf(L"UtilGetPEMFilePath"));
}

TEST_F(CertPathTest, DaasValuesOfTheNativeViewAreNotRead)
{
    p.files.addDirectory(L"C:\\Daas");
    p.keys.putString(HKEY_LOCAL_MACHINE, kDaasKey, L"CertFolder", L"C:\\Daas");
    EXPECT_EQ(L"", whole(Util_GetDaasCertPath()));
}

TEST_F(CertPathTest, MissingDaasFolderFallsBackToTheLegacyFolderUntested)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kDaasKey, L"CertFolder", L"C:\\Gone", REG_SZ, View::Wow32);
    p.keys.putString(HKEY_LOCAL_MACHINE, kLegacyDaasKey, L"CertFolder", L"C:\\AlsoGone", REG_SZ, View::Wow32);
    p.keys.putString(HKEY_LOCAL_MACHINE, kDaasKey, L"CertFileName", L"ca.pem", REG_SZ, View::Wow32);
    // The legacy key's own file name is never read.
    p.keys.putString(HKEY_LOCAL_MACHINE, kLegacyDaasKey, L"CertFileName", L"legacy.pem", REG_SZ, View::Wow32);
    EXPECT_EQ(L"C:\\AlsoGone\\ca.pem", whole(Util_GetDaasCertPath()));
}

TEST_F(CertPathTest, DaasFolderWithoutAFileNameKeepsATrailingBackslash)
{
    p.files.addDirectory(L"C:\\Daas");
    p.keys.putString(HKEY_LOCAL_MACHINE, kDaasKey, L"CertFolder", L"C:\\Daas", REG_SZ, View::Wow32);
    EXPECT_EQ(L"C:\\Daas\\", whole(Util_GetDaasCertPath()));
}

TEST_F(CertPathTest, NoDaasFolderAtAllIsEmpty)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kDaasKey, L"CertFileName", L"ca.pem", REG_SZ, View::Wow32);
    EXPECT_EQ(L"", whole(Util_GetDaasCertPath()));
}
