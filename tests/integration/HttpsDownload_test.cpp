// Jobs under DOWNLOAD that fetch the installer over HTTPS through the
// delivery client, from the lab's nginx: each way of checking the server's
// certificate, the certificates it must refuse, the size and checksum, several
// URLs, the retries, and the refusals that fetch nothing at all.
#include "HttpsLab.h"

namespace it {
namespace {

const std::string kAgent = PayloadBytes(1000000);

class HttpsDownload : public HttpsTest {
protected:
    const std::wstring key_ = JobKey(kNewRoot, L"job");

    // agent.msi on the servers, and a job for it from `port`.
    void JobFor(int port, const std::wstring& certType, std::vector<std::pair<std::wstring, std::wstring>> extra = {})
    {
        PutPayload(L"agent.msi", kAgent);
        WriteHttpsJob({Url(port, L"agent.msi")}, certType, std::to_wstring(kAgent.size()), Sha256Hex(kAgent),
                      std::move(extra));
    }

    std::string LocalLine(const std::wstring& name, const char* type = "MirelClientPayloadType::EXE") const
    {
        const std::string workspace = Narrow(Workspace());
        return "Util_DoDownload: localPath: " + workspace + " workspace: " + workspace +
               " localFile: " + Narrow(Local(name)) + " payloadType: " + type;
    }

    // The one request of this test at the good server: a whole GET.
    void ExpectOneWholeGet(const std::wstring& log, const std::wstring& name)
    {
        std::vector<Request> requests = Requests(log);
        ASSERT_EQ(1u, requests.size());
        EXPECT_EQ("GET", requests[0].method);
        EXPECT_EQ(UrlPath(name), requests[0].path);
        EXPECT_EQ(200, requests[0].status);
        EXPECT_EQ(kAgent.size(), requests[0].bytes);
    }

    // A server whose certificate the check refuses: a certificate error and
    // nothing of its payload kept. The client learns the certificate only
    // once its request went out, so the server may have seen the request for
    // the job's URL (a GET, or the HEAD the client sends to name the reason
    // in its log), and nothing else.
    void ExpectRefusedServer(const JobRun& job, const std::wstring& log)
    {
        ExpectFailed(job, kCertificateError, L"agent.msi");
        EXPECT_TRUE(WorkspaceFiles().empty()) << Narrow(WorkspaceFiles().front());
        for (const Request& r : Requests(log)) {
            EXPECT_TRUE(r.method == "GET" || r.method == "HEAD") << r.method;
            EXPECT_NE(std::string::npos, r.path.find(UrlPath(L"agent.msi"))) << r.path;
        }
    }

    // A new PEM file as folder\cert\cacert.pem, holding the bytes of `pem`.
    std::wstring InstallFolderWithCa(const std::wstring& pem)
    {
        std::wstring folder = NewFolder(L"agent-install");
        std::optional<std::string> ca = ReadFileBytes(pem);
        if (!ca)
            throw std::runtime_error("can't read " + Narrow(pem));
        MakeDirectories(JoinPath(folder, L"cert"));
        WriteFileBytes(JoinPath(folder, L"cert\\cacert.pem"), *ca);
        return folder;
    }

    // A refusal of the certificate step with no retry left: the job stays in
    // DOWNLOAD with "INVALID", nothing is fetched and no error is named.
    void ExpectInvalid(const JobRun& job, const std::string& line)
    {
        EXPECT_TRUE(HasWrittenValues(key_, {"DOWNLOAD", "INVALID", "", "", "", "1"}));
        EXPECT_TRUE(HasLinesInOrder(Messages(job), {
            "Util_DoDownload: Update key: job state: DOWNLOAD",
            line,
            "UtilTryAgain: exceeded retry attempts: 1, max attempt allowed: 0",
            "UtilManageUpdateState: Update key: job current state: DOWNLOAD result:INVALID",
            "UtilManageUpdateState: Update key: job new state: DOWNLOAD result: INVALID",
        }));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Util_DoDownload: localPath:"));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Util_DoDownload: download"));
        EXPECT_TRUE(AllRequests().empty()) << "a refused job reached a server";
        EXPECT_FALSE(PathExists(Local(L"agent.msi")));
        ExpectOneEntry(job, {"job", "OTHER", "", "1.1.0", "DOWNLOAD", 1, "INVALID"});
    }
};

// --- Certificate checks that let the download through -------------------------

TEST_F(HttpsDownload, SystemCaTrustsTheLabCaAndFetchesIdenticalBytes)
{
    JobFor(Lab().good, L"CERT_SYSTEM_CA");
    JobRun job = RunFetch();
    ExpectFetched(job, L"agent.msi", kAgent);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "Util_DoDownload: Update key: job state: DOWNLOAD",
        "Util_DoDownload: Using system CA for certificate type",
        LocalLine(L"agent.msi"),
        "Util_DoDownload: download done",
    }));
    // The share step had nothing to do.
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Util_CopyFileFromUNC:"));
    ExpectOneWholeGet(Lab().goodLog, L"agent.msi");
}

TEST_F(HttpsDownload, CertificateTypeIsMatchedWhateverItsCase)
{
    JobFor(Lab().good, L"cert_System_Ca");
    JobRun job = RunFetch();
    ExpectFetched(job, L"agent.msi", kAgent);
    EXPECT_TRUE(ContainsMessage(Messages(job), "Util_DoDownload: Using system CA for certificate type"));
}

TEST_F(HttpsDownload, PemFileBelowTheAgentInstallPathOfTheNewRoot)
{
    std::wstring folder = InstallFolderWithCa(Lab().caPem);
    SetAgentInstallPath(kNewRoot, folder);
    JobFor(Lab().good, L"cert_pem");
    JobRun job = RunFetch();
    ExpectFetched(job, L"agent.msi", kAgent);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "Util_DoDownload: certificate PEM filePath: " + Narrow(JoinPath(folder, L"cert\\cacert.pem")),
        LocalLine(L"agent.msi"),
        "Util_DoDownload: download done",
    }));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "UtilGetPEMFilePath:"));
    ExpectOneWholeGet(Lab().goodLog, L"agent.msi");
}

TEST_F(HttpsDownload, PemFileBelowTheAgentInstallPathOfTheLegacyRoot)
{
    // The new root's folder has no CA file, so the legacy root's is taken.
    SetAgentInstallPath(kNewRoot, NewFolder(L"agent-install-empty"));
    std::wstring folder = InstallFolderWithCa(Lab().caPem);
    SetAgentInstallPath(kLegacyRoot, folder);
    JobFor(Lab().good, L"CERT_PEM");
    JobRun job = RunFetch();
    ExpectFetched(job, L"agent.msi", kAgent);
    EXPECT_TRUE(ContainsMessage(Messages(job), "Util_DoDownload: certificate PEM filePath: " +
                                                   Narrow(JoinPath(folder, L"cert\\cacert.pem"))));
}

TEST_F(HttpsDownload, PemFileOfTheDaasAgentWhenNoAgentFolderHasOne)
{
    std::wstring daas = NewFolder(L"daas");
    std::optional<std::string> ca = ReadFileBytes(Lab().caPem);
    ASSERT_TRUE(ca.has_value());
    WriteFileBytes(JoinPath(daas, L"daas-ca.pem"), *ca);
    SetDaasCertificate(daas, L"daas-ca.pem");
    JobFor(Lab().good, L"CERT_PEM");
    JobRun job = RunFetch();
    ExpectFetched(job, L"agent.msi", kAgent);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        // Neither root names a folder: the path last tried is empty.
        "UtilGetPEMFilePath: cert file '' does not exist, returning legacy agent cert path ",
        "Util_DoDownload: certificate PEM filePath: " + Narrow(JoinPath(daas, L"daas-ca.pem")),
        "Util_DoDownload: download done",
    }));
}

TEST_F(HttpsDownload, ThumbprintOfTheServerCertificateAmongOthers)
{
    // The first item matches nothing; one match is enough.
    JobFor(Lab().good, L"THUMBPRINT",
           {{L"METADATA", ThumbprintBag({Lab().otherCaThumbprint, Lab().thumbprint})}});
    JobRun job = RunFetch();
    ExpectFetched(job, L"agent.msi", kAgent);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "UtilGetRegistry: matadata XML string loaded",
        "Util_DoDownload: Using thumbprints for verifying server certificate. Thumbprint count: 2",
        LocalLine(L"agent.msi"),
        "Util_DoDownload: download done",
    }));
    ExpectOneWholeGet(Lab().goodLog, L"agent.msi");
}

// --- Certificates that must be refused ---------------------------------------

TEST_F(HttpsDownload, ServerOfAnUntrustedCaIsACertificateError)
{
    JobFor(Lab().otherCa, L"CERT_SYSTEM_CA");
    JobRun job = RunFetch();
    ExpectRefusedServer(job, Lab().otherCaLog);
}

TEST_F(HttpsDownload, PemFileOfAnotherCaRefusesTheLabServerThatTheSystemTrusts)
{
    // The PEM file alone decides: the system store trusts the lab CA, yet the
    // file names only the other one.
    SetAgentInstallPath(kNewRoot, InstallFolderWithCa(Lab().otherCaPem));
    JobFor(Lab().good, L"CERT_PEM");
    JobRun job = RunFetch();
    ExpectRefusedServer(job, Lab().goodLog);
}

TEST_F(HttpsDownload, ThumbprintThatMatchesNothingIsACertificateError)
{
    JobFor(Lab().good, L"THUMBPRINT", {{L"METADATA", ThumbprintBag({Lab().otherCaThumbprint})}});
    JobRun job = RunFetch();
    ExpectRefusedServer(job, Lab().goodLog);
}

TEST_F(HttpsDownload, ExpiredCertificateIsACertificateError)
{
    JobFor(Lab().expired, L"CERT_SYSTEM_CA");
    JobRun job = RunFetch();
    ExpectRefusedServer(job, Lab().expiredLog);
}

TEST_F(HttpsDownload, CertificateForAnotherHostIsACertificateError)
{
    JobFor(Lab().wrongHost, L"CERT_SYSTEM_CA");
    JobRun job = RunFetch();
    ExpectRefusedServer(job, Lab().wrongHostLog);
}

// --- Size and checksum ----------------------------------------------------------

TEST_F(HttpsDownload, WrongSizeIsNamedAndRetried)
{
    PutPayload(L"agent.msi", kAgent);
    WriteHttpsJob({Url(Lab().good, L"agent.msi")}, L"CERT_SYSTEM_CA", std::to_wstring(kAgent.size() + 1),
                  Sha256Hex(kAgent));
    JobRun job = RunFetch();
    ExpectFailed(job, kWrongSize, L"agent.msi");
}

TEST_F(HttpsDownload, WrongChecksumIsNamedAndRetried)
{
    PutPayload(L"agent.msi", kAgent);
    WriteHttpsJob({Url(Lab().good, L"agent.msi")}, L"CERT_SYSTEM_CA", std::to_wstring(kAgent.size()),
                  Sha256Hex(kAgent + "x"));
    JobRun job = RunFetch();
    ExpectFailed(job, kWrongChecksum, L"agent.msi");
    ExpectOneWholeGet(Lab().goodLog, L"agent.msi");
}

// --- Several URLs and retries -----------------------------------------------------

TEST_F(HttpsDownload, FirstUrlNotFoundSecondFetched)
{
    PutPayload(L"agent.msi", kAgent);
    const std::wstring missing = Url(Lab().good, L"mirror-a\\agent.msi");
    WriteHttpsJob({missing, Url(Lab().good, L"agent.msi")}, L"CERT_SYSTEM_CA", std::to_wstring(kAgent.size()),
                  Sha256Hex(kAgent));
    JobRun job = RunFetch();
    // Both URLs name agent.msi, which is where the payload lands.
    ExpectFetched(job, L"agent.msi", kAgent);
    EXPECT_TRUE(ContainsMessage(Messages(job), "UtilGetRegistry: URL length: " +
                                                   std::to_string(missing.size() + Url(Lab().good, L"agent.msi").size() + 3) +
                                                   " [" + Narrow(missing) + "," + Narrow(Url(Lab().good, L"agent.msi")) +
                                                   "]"));
    std::vector<Request> requests = Requests(Lab().goodLog);
    ASSERT_GE(requests.size(), 2u);
    EXPECT_EQ(UrlPath(L"mirror-a/agent.msi"), requests.front().path);
    EXPECT_EQ(404, requests.front().status);
    EXPECT_EQ(UrlPath(L"agent.msi"), requests.back().path);
    EXPECT_EQ(200, requests.back().status);
    EXPECT_EQ(kAgent.size(), requests.back().bytes);
}

TEST_F(HttpsDownload, EveryUrlFailingIsRetriedUpToTheLimitThenTheJobIsDone)
{
    SetRetrySettings(L"200", L"2");
    // Nothing at either place, and nothing listening on the second.
    const std::vector<std::wstring> urls = {Url(Lab().good, L"agent.msi"),
                                            L"https://localhost:" + std::to_wstring(Lab().dead) + L"/agent.msi"};
    WriteHttpsJob(urls, L"CERT_SYSTEM_CA", std::to_wstring(kAgent.size()), Sha256Hex(kAgent));
    for (int attempt = 1; attempt <= 2; ++attempt) {
        SCOPED_TRACE(attempt);
        if (attempt > 1) {
            // The management side starts the job again.
            WriteString(key_, L"STATE", L"DOWNLOAD");
            logsDir_ = UseFreshLogsDir();
        }
        JobRun job = RunFetch();
        ExpectFailed(job, kDownloadFailed, L"agent.msi", std::to_string(attempt));
    }
    WriteString(key_, L"STATE", L"DOWNLOAD");
    logsDir_ = UseFreshLogsDir();
    JobRun last = RunFetch();
    const std::string payload = Narrow(Local(L"agent.msi"));
    EXPECT_TRUE(HasWrittenValues(key_, {"DONE", "FAILURE", payload, kDownloadFailed.name,
                                        kDownloadFailed.description, "3"}));
    EXPECT_TRUE(HasLinesInOrder(Messages(last), {
        DownloadFailedLine(kDownloadFailed),
        "UtilTryAgain: exceeded retry attempts: 3, max attempt allowed: 2",
        "Util_UpdateDone: Download/Copy failure crossed download/Copy retry limit",
        "UtilManageUpdateState: Update key: job current state: DONE result:FAILURE",
        "UtilManageUpdateState: Update key: job new state: DONE result: FAILURE",
    }));
    EXPECT_TRUE(LacksLine(Messages(last), "Util_UpdateDone: done waiting"));
    ExpectOneEntry(last, {"job", "OTHER", payload, "1.1.0", "DONE", 3, "FAILURE", kDownloadFailed.name,
                          kDownloadFailed.description});
    // Each run asked the first server for the file.
    std::vector<Request> requests = Requests(Lab().goodLog);
    ASSERT_GE(requests.size(), 3u);
    for (const Request& r : requests)
        EXPECT_EQ(404, r.status) << r.path;
}

// --- Refusals before anything is fetched ------------------------------------------

TEST_F(HttpsDownload, MissingCertificateTypeIsInvalidAndFetchesNothing)
{
    SetRetrySettings(L"200", L"0");
    JobFor(Lab().good, L"");
    JobRun job = RunFetch();
    ExpectInvalid(job, "Util_DoDownload: certificate type not specified");
}

TEST_F(HttpsDownload, UnknownCertificateTypeIsInvalidAndFetchesNothing)
{
    SetRetrySettings(L"200", L"0");
    // Exact but for case: a trailing blank makes it another type.
    JobFor(Lab().good, L"CERT_SYSTEM_CA ");
    JobRun job = RunFetch();
    ExpectInvalid(job, "Util_DoDownload: Invalid certificate type specified");
}

TEST_F(HttpsDownload, ThumbprintTypeWithoutThumbprintsIsInvalidAndFetchesNothing)
{
    SetRetrySettings(L"200", L"0");
    JobFor(Lab().good, L"THUMBPRINT", {{L"METADATA", L"<PROPERTYBAG></PROPERTYBAG>"}});
    JobRun job = RunFetch();
    ExpectInvalid(job, "Util_DoDownload: CertType is specified as THUMBPRINT, but thumbprints are not provided for "
                       "server cert validation. ");
}

TEST_F(HttpsDownload, PemTypeWithoutAnyCaFileIsInvalidAndFetchesNothing)
{
    SetRetrySettings(L"200", L"0");
    JobFor(Lab().good, L"CERT_PEM");
    JobRun job = RunFetch();
    ExpectInvalid(job, "Util_DoDownload: CertType is specified as CERT_PEM, but certificate PEM filePath is empty");
}

TEST_F(HttpsDownload, InvalidJobWithRetriesLeftGoesBackToReady)
{
    // The default limit: "INVALID" is retried like a failure.
    JobFor(Lab().good, L"");
    JobRun job = RunFetch();
    EXPECT_TRUE(HasWrittenValues(key_, {"READY", "PROGRESS", "", "", "", "1"}));
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "Util_DoDownload: certificate type not specified",
        "UtilTryAgain: updating retry: 1, max attempt allowed: 2",
        "UtilManageUpdateState: Update key: job new state: READY result: PROGRESS",
    }));
    EXPECT_TRUE(AllRequests().empty());
}

// --- The local name -----------------------------------------------------------------

TEST_F(HttpsDownload, PercentEscapesOfTheUrlAreDecodedInTheLocalName)
{
    // The server's file is "my agent+1.msi"; the tool decodes %20 to a blank
    // and, by its rule, the '+' too.
    PutPayload(L"my agent+1.msi", kAgent);
    const std::wstring url = L"https://localhost:" + std::to_wstring(Lab().good) + Wide(UrlPath(L"my%20agent+1.msi",
                                                                                                L"", false));
    WriteHttpsJob({url}, L"CERT_SYSTEM_CA", std::to_wstring(kAgent.size()), Sha256Hex(kAgent));
    JobRun job = RunFetch();
    ExpectFetched(job, L"my agent 1.msi", kAgent);
    EXPECT_TRUE(ContainsMessage(Messages(job), LocalLine(L"my agent 1.msi")));
    EXPECT_FALSE(PathExists(Local(L"my%20agent+1.msi")));
    EXPECT_TRUE(StrayFiles().empty());
}

TEST_F(HttpsDownload, RetryAfterAFailureFetchesAgainAndKeepsTheCount)
{
    PutPayload(L"agent.msi", std::string(kAgent.size(), 'b'));
    WriteHttpsJob({Url(Lab().good, L"agent.msi")}, L"CERT_SYSTEM_CA", std::to_wstring(kAgent.size()),
                  Sha256Hex(kAgent));
    JobRun first = RunFetch();
    ExpectFailed(first, kWrongChecksum, L"agent.msi");

    // The server now has the right file; the management side tries again.
    PutPayload(L"agent.msi", kAgent);
    WriteString(key_, L"STATE", L"DOWNLOAD");
    logsDir_ = UseFreshLogsDir();
    JobRun second = RunFetch();
    // "FILENAME" was filled by the first attempt, so the count goes on.
    ExpectFetched(second, L"agent.msi", kAgent, "1");
}

}  // namespace
}  // namespace it
