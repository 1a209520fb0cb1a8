// Jobs under DOWNLOAD over HTTPS whose input is malformed, and servers that
// misbehave: each ends with its named failure and its log line, nothing
// crashes, nothing is written outside the workspace, and the job's state is
// saved (a failed fetch with retries left goes back to READY with
// "PROGRESS").
#include "HttpsLab.h"

namespace it {
namespace {

const std::string kAgent = PayloadBytes(1000000, 7);

class BadHttpsInput : public HttpsTest {
protected:
    const std::wstring key_ = JobKey(kNewRoot, L"job");

    void SetUp() override
    {
        HttpsTest::SetUp();
        PutPayload(L"agent.msi", kAgent);
    }

    std::wstring Size() const { return std::to_wstring(kAgent.size()); }
    std::wstring Sum() const { return Sha256Hex(kAgent); }

    // The failure, the job saved for a retry, no file outside the workspace.
    void ExpectRefused(const JobRun& job, const ClientFailure& failure, const std::wstring& name)
    {
        ExpectFailed(job, failure, name);
        EXPECT_TRUE(StrayFiles().empty()) << Narrow(StrayFiles().front());
    }

    // Refused before any connection: no server saw a request.
    void ExpectNoRequest()
    {
        std::vector<Request> requests = AllRequests();
        EXPECT_TRUE(requests.empty()) << requests.front().path;
    }

    // A job whose "URL" the tool's read never takes: the mandatory check
    // fails, "RESULT" and "RETRY" are never read, and the run takes the
    // retry path of a fetch that didn't end "OK".
    void ExpectNoUrlRead(const JobRun& job)
    {
        EXPECT_TRUE(HasWrittenValues(key_, {"READY", "PROGRESS", "", "", "", "1"}));
        EXPECT_TRUE(HasLinesInOrder(Messages(job), {
            "UtilGetRegistry: required parameter empty, sAgent: OTHER, sUNC: , sURLs: ",
            "Util_GetUpdateState: Update key: job Registry failure",
            "UtilTryAgain: updating retry: 1, max attempt allowed: 2",
            "UtilManageUpdateState: Update key: job new state: READY result: PROGRESS",
        }));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Util_DoDownload:"));
        ExpectNoRequest();
        EXPECT_TRUE(StrayFiles().empty());
    }

    // A PEM file at folder\cert\cacert.pem with these bytes, named by the
    // new root's "AgentInstallPath".
    void UsePemFile(const std::string& bytes)
    {
        std::wstring folder = NewFolder(L"agent-install");
        MakeDirectories(JoinPath(folder, L"cert"));
        WriteFileBytes(JoinPath(folder, L"cert\\cacert.pem"), bytes);
        SetAgentInstallPath(kNewRoot, folder);
    }
};

// --- URLs ---------------------------------------------------------------------------

TEST_F(BadHttpsInput, UrlOfEmptyItemsOnlyIsNoUrlAtAll)
{
    WriteHttpsJob({L"", L""}, L"CERT_SYSTEM_CA", Size(), Sum());
    ExpectNoUrlRead(RunFetch());
}

TEST_F(BadHttpsInput, UrlLongerThanTheRegistryReadTakesIsNoUrlAtAll)
{
    // 8 KiB of text is 16 KiB of data: above the 8191 bytes the tool's read
    // of the job takes, so the listing ends at "URL".
    std::wstring url = Url(Lab().good, L"agent.msi");
    url.insert(url.find(L"/agent.msi"), L"/" + std::wstring(8191 - url.size(), L'x'));
    ASSERT_EQ(8192u, url.size());
    WriteHttpsJob({url}, L"CERT_SYSTEM_CA", Size(), Sum());
    ExpectNoUrlRead(RunFetch());
}

TEST_F(BadHttpsInput, LongUrlWithinTheLimitsIsFetchedAndNotFound)
{
    // About 4000 characters in folders of 200: within the registry's limit
    // and the client's, so the server is asked, and has no such file.
    std::wstring folders;
    while (folders.size() < 3800)
        folders += std::wstring(199, L'd') + L"\\";
    const std::wstring url = Url(Lab().good, folders + L"agent.msi");
    ASSERT_LT(url.size() * 2 + 4, 8191u);
    WriteHttpsJob({url}, L"CERT_SYSTEM_CA", Size(), Sum());
    JobRun job = RunFetch();
    ExpectRefused(job, kDownloadFailed, L"agent.msi");
    std::vector<Request> requests = Requests(Lab().goodLog);
    ASSERT_FALSE(requests.empty());
    EXPECT_EQ(404, requests.back().status);
}

TEST_F(BadHttpsInput, RelativeUrlIsInvalid)
{
    WriteHttpsJob({L"agent.msi"}, L"CERT_SYSTEM_CA", Size(), Sum());
    JobRun job = RunFetch();
    ExpectRefused(job, kInvalidUri, L"agent.msi");
    ExpectNoRequest();
}

TEST_F(BadHttpsInput, PlainHttpUrlIsInvalid)
{
    // The plain server would serve the file; the client must not ask it.
    const std::wstring url =
        L"http://localhost:" + std::to_wstring(Lab().plain) + Wide(UrlPath(L"agent.msi", L"/www"));
    WriteHttpsJob({url}, L"CERT_SYSTEM_CA", Size(), Sum());
    JobRun job = RunFetch();
    ExpectRefused(job, kInvalidUri, L"agent.msi");
    ExpectNoRequest();
}

TEST_F(BadHttpsInput, UrlWithBlanksIsInvalid)
{
    PutPayload(L"my agent.msi", kAgent);
    WriteHttpsJob({Url(Lab().good, L"my agent.msi", L"", false)}, L"CERT_SYSTEM_CA", Size(), Sum());
    JobRun job = RunFetch();
    ExpectRefused(job, kInvalidUri, L"my agent.msi");
    ExpectNoRequest();
}

TEST_F(BadHttpsInput, UrlWithALeadingBlankIsInvalid)
{
    WriteHttpsJob({L" " + Url(Lab().good, L"agent.msi")}, L"CERT_SYSTEM_CA", Size(), Sum());
    JobRun job = RunFetch();
    ExpectRefused(job, kInvalidUri, L"agent.msi");
    ExpectNoRequest();
}

TEST_F(BadHttpsInput, UrlWithAQueryNamesNoFileWindowsCanHold)
{
    // The query stays in the local name, and '?' can't be in a file name.
    const std::wstring url = Url(Lab().good, L"agent.msi") + L"?build=7";
    WriteHttpsJob({url}, L"CERT_SYSTEM_CA", Size(), Sum());
    JobRun job = RunFetch();
    ExpectRefused(job, kInvalidUri, L"agent.msi?build=7");
    EXPECT_TRUE(ContainsMessage(Messages(job), "Util_DoDownload: localPath: " + Narrow(Workspace()) + " workspace: " +
                                                   Narrow(Workspace()) + " localFile: " +
                                                   Narrow(Local(L"agent.msi?build=7")) +
                                                   " payloadType: MirelClientPayloadType::EXE"));
    ExpectNoRequest();
    EXPECT_TRUE(WorkspaceFiles().empty());
}

// --- Thumbprints --------------------------------------------------------------------

TEST_F(BadHttpsInput, ThumbprintOfTheWrongLengthIsInvalid)
{
    WriteHttpsJob({Url(Lab().good, L"agent.msi")}, L"THUMBPRINT", Size(), Sum(),
                  {{L"METADATA", ThumbprintBag({Lab().thumbprint.substr(0, 38)})}});
    JobRun job = RunFetch();
    ExpectRefused(job, kInvalidThumbprint, L"agent.msi");
    ExpectNoRequest();
}

TEST_F(BadHttpsInput, ThumbprintThatIsNoHexIsInvalid)
{
    WriteHttpsJob({Url(Lab().good, L"agent.msi")}, L"THUMBPRINT", Size(), Sum(),
                  {{L"METADATA", ThumbprintBag({std::string(40, 'Z')})}});
    JobRun job = RunFetch();
    ExpectRefused(job, kInvalidThumbprint, L"agent.msi");
    ExpectNoRequest();
}

// --- PEM files ----------------------------------------------------------------------

TEST_F(BadHttpsInput, EmptyPemFileFails)
{
    UsePemFile("");
    WriteHttpsJob({Url(Lab().good, L"agent.msi")}, L"CERT_PEM", Size(), Sum());
    JobRun job = RunFetch();
    ExpectRefused(job, kPemFileFailed, L"agent.msi");
    ExpectNoRequest();
}

TEST_F(BadHttpsInput, BinaryPemFileFails)
{
    UsePemFile(PayloadBytes(4096, 3));
    WriteHttpsJob({Url(Lab().good, L"agent.msi")}, L"CERT_PEM", Size(), Sum());
    JobRun job = RunFetch();
    ExpectRefused(job, kPemFileFailed, L"agent.msi");
    ExpectNoRequest();
}

TEST_F(BadHttpsInput, PemFileWithoutACertificateFails)
{
    UsePemFile("-----BEGIN PUBLIC KEY-----\r\n"
               "MFkwEwYHKoZIzj0CAQYIKoZIzj0DAQcDQgAEq8nPoNyoOOLwIbGJt0WYtT0bF1bB\r\n"
               "-----END PUBLIC KEY-----\r\nnothing else here\r\n");
    WriteHttpsJob({Url(Lab().good, L"agent.msi")}, L"CERT_PEM", Size(), Sum());
    JobRun job = RunFetch();
    ExpectRefused(job, kPemFileFailed, L"agent.msi");
    ExpectNoRequest();
}

// --- PAC files ----------------------------------------------------------------------
// A PAC file that can't be had or gives no answer leaves the route to the
// client's default, the direct connection, and says so in the log.

TEST_F(BadHttpsInput, PacUrlThatDoesntAnswerLeavesTheDownloadDirect)
{
    const std::wstring pac = L"http://localhost:" + std::to_wstring(Lab().dead) + L"/proxy.pac";
    WriteHttpsJob({Url(Lab().good, L"agent.msi")}, L"CERT_SYSTEM_CA", Size(), Sum(), {{L"PACURL", pac}});
    JobRun job = RunFetch();
    ExpectFetched(job, L"agent.msi", kAgent);
    EXPECT_TRUE(HasLineContaining(Messages(job), "[WARNING] mirelclient: ", "the PAC file " + Narrow(pac)));
    EXPECT_TRUE(ProxyLines().empty());
    EXPECT_EQ(1u, Requests(Lab().goodLog).size());
    EXPECT_TRUE(StrayFiles().empty());
}

TEST_F(BadHttpsInput, PacFileThatIsGarbageLeavesTheDownloadDirect)
{
    const std::wstring pac = L"http://localhost:" + std::to_wstring(Lab().plain) + L"/garbage.pac";
    WriteHttpsJob({Url(Lab().good, L"agent.msi")}, L"CERT_SYSTEM_CA", Size(), Sum(), {{L"PACURL", pac}});
    JobRun job = RunFetch();
    ExpectFetched(job, L"agent.msi", kAgent);
    EXPECT_TRUE(HasLineContaining(Messages(job), "[WARNING] mirelclient: ", "the PAC file " + Narrow(pac)));
    std::vector<Request> fetched = Requests(Lab().plainLog, true);
    ASSERT_FALSE(fetched.empty()) << "the PAC file was never fetched";
    EXPECT_EQ("/garbage.pac", fetched.front().path);
    EXPECT_TRUE(ProxyLines().empty());
    EXPECT_EQ(1u, Requests(Lab().goodLog).size());
    EXPECT_TRUE(StrayFiles().empty());
}

// --- "FILESIZE" -----------------------------------------------------------------------

TEST_F(BadHttpsInput, NegativeSizeIsNoSizeToCheckAndSaysSo)
{
    // No size can be negative: the client checks the checksum alone and
    // warns.
    WriteHttpsJob({Url(Lab().good, L"agent.msi")}, L"CERT_SYSTEM_CA", L"-1000000", Sum());
    JobRun job = RunFetch();
    ExpectFetched(job, L"agent.msi", kAgent);
    EXPECT_TRUE(HasLineContaining(Messages(job), "[WARNING] mirelclient: ", "-1000000"));
    EXPECT_TRUE(StrayFiles().empty());
}

TEST_F(BadHttpsInput, SizeAboveTwoToTheThirtyFirstIsAWrongSize)
{
    // The tool's conversion stops at 2147483647; the payload is 1000000.
    WriteHttpsJob({Url(Lab().good, L"agent.msi")}, L"CERT_SYSTEM_CA", L"4295967296", Sum());
    JobRun job = RunFetch();
    ExpectRefused(job, kWrongSize, L"agent.msi");
}

TEST_F(BadHttpsInput, SizeInHexIsTheNumberItSpells)
{
    // Base 0: "0xF4240" is 1000000, the payload's true size.
    WriteHttpsJob({Url(Lab().good, L"agent.msi")}, L"CERT_SYSTEM_CA", L"0xF4240", Sum());
    JobRun job = RunFetch();
    ExpectFetched(job, L"agent.msi", kAgent);
    EXPECT_TRUE(StrayFiles().empty());
}

// --- Servers that misbehave (the lab's fault server: nginx can't be asked to
// break a response on purpose) ------------------------------------------------------

TEST_F(BadHttpsInput, ServerSendingMoreBytesThanItAnnouncedIsAWrongSize)
{
    // Content-Length says 10 bytes fewer than the file has; the body is whole.
    WriteHttpsJob({Url(Lab().fault, L"agent.msi", L"/short/10")}, L"CERT_SYSTEM_CA", Size(), Sum());
    JobRun job = RunFetch();
    ExpectRefused(job, kWrongSize, L"agent.msi");
    EXPECT_FALSE(Requests(Lab().faultLog).empty());
}

TEST_F(BadHttpsInput, ContentLengthPromisingMoreThanComesFailsTheDownload)
{
    // Content-Length (and the job's size) promise 10 bytes more than the
    // server sends before it closes: an incomplete transfer.
    WriteHttpsJob({Url(Lab().fault, L"agent.msi", L"/long/10")}, L"CERT_SYSTEM_CA",
                  std::to_wstring(kAgent.size() + 10), Sum());
    JobRun job = RunFetch();
    ExpectRefused(job, kDownloadFailed, L"agent.msi");
    EXPECT_FALSE(Requests(Lab().faultLog).empty());
}

TEST_F(BadHttpsInput, ConnectionCutHalfwayFailsTheDownload)
{
    // A connection that goes away after 300000 bytes, without TLS's closing
    // message: WinHTTP reads that as an ordinary end of data.
    WriteHttpsJob({Url(Lab().fault, L"agent.msi", L"/cut/300000")}, L"CERT_SYSTEM_CA", Size(), Sum());
    JobRun job = RunFetch();
    ExpectRefused(job, kDownloadFailed, L"agent.msi");
    std::vector<Request> requests = Requests(Lab().faultLog);
    ASSERT_FALSE(requests.empty());
    EXPECT_EQ(300000u, requests.front().bytes);
}

TEST_F(BadHttpsInput, ServerThatStallsFailsTheDownloadAfterTheStallTimeout)
{
    // The server sends part of the body and then nothing; the client's
    // stall limit, shortened here, ends the attempt.
    SetClientSetting(L"StallTimeoutSeconds", 2);
    WriteHttpsJob({Url(Lab().fault, L"agent.msi", L"/stall/100000")}, L"CERT_SYSTEM_CA", Size(), Sum());
    JobRun job = RunFetch();
    ExpectRefused(job, kDownloadFailed, L"agent.msi");
    EXPECT_FALSE(Requests(Lab().faultLog).empty());
}

}  // namespace
}  // namespace it
