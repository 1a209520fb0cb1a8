// Downloads over HTTPS through a proxy: one named by the job, and one that a
// PAC file names. The lab's tinyproxy logs each CONNECT it tunnels.
//
// The proxy is named by address (127.0.0.1): Wine's WinHTTP sends no
// CONNECT when the proxy's host name is the server's ("localhost" both) and
// talks TLS to the proxy instead. The server itself is still "localhost".
#include "HttpsLab.h"

namespace it {
namespace {

const std::string kAgent = PayloadBytes(1000000, 11);

class HttpsProxy : public HttpsTest {
protected:
    void JobThrough(std::vector<std::pair<std::wstring, std::wstring>> extra)
    {
        PutPayload(L"agent.msi", kAgent);
        WriteHttpsJob({Url(Lab().good, L"agent.msi")}, L"CERT_SYSTEM_CA", std::to_wstring(kAgent.size()),
                      Sha256Hex(kAgent), std::move(extra));
    }

    std::wstring ProxyAddress(int port) const { return L"127.0.0.1:" + std::to_wstring(port); }

    // The proxy tunnelled to the good server.
    ::testing::AssertionResult TunnelledToTheServer() const
    {
        const std::string connect = "CONNECT localhost:" + std::to_string(Lab().good) + " HTTP/1.1";
        for (const std::string& line : ProxyLines())
            if (line.find(connect) != std::string::npos)
                return ::testing::AssertionSuccess();
        std::string all;
        for (const std::string& line : ProxyLines())
            all += "  " + line + "\n";
        return ::testing::AssertionFailure() << "no \"" << connect << "\" in the proxy's log:\n" << all;
    }

    void ExpectServedOnce()
    {
        std::vector<Request> requests = Requests(Lab().goodLog);
        ASSERT_EQ(1u, requests.size());
        EXPECT_EQ(200, requests[0].status);
        EXPECT_EQ(kAgent.size(), requests[0].bytes);
    }
};

TEST_F(HttpsProxy, ProxyOfTheJobTunnelsTheDownload)
{
    JobThrough({});
    WriteMultiString(JobKey(kNewRoot, L"job"), L"PROXY", {ProxyAddress(Lab().proxy)});
    JobRun job = RunFetch();
    ExpectFetched(job, L"agent.msi", kAgent);
    EXPECT_TRUE(ContainsMessage(Messages(job), "UtilGetRegistry: Proxy length: " +
                                                   std::to_string(ProxyAddress(Lab().proxy).size() + 2) + " [" +
                                                   Narrow(ProxyAddress(Lab().proxy)) + "]"));
    EXPECT_TRUE(TunnelledToTheServer());
    ExpectServedOnce();
}

TEST_F(HttpsProxy, ProxyThatDoesntAnswerMakesWayForTheNextOfTheList)
{
    JobThrough({});
    WriteMultiString(JobKey(kNewRoot, L"job"), L"PROXY",
                     {ProxyAddress(Lab().dead), L"http://" + ProxyAddress(Lab().proxy)});
    JobRun job = RunFetch();
    ExpectFetched(job, L"agent.msi", kAgent);
    EXPECT_TRUE(TunnelledToTheServer());
    ExpectServedOnce();
}

TEST_F(HttpsProxy, PacFileNamesTheProxy)
{
    JobThrough({{L"PACURL", L"http://localhost:" + std::to_wstring(Lab().plain) + L"/proxy.pac"}});
    JobRun job = RunFetch();
    ExpectFetched(job, L"agent.msi", kAgent);
    std::vector<Request> pac = Requests(Lab().plainLog, true);
    ASSERT_FALSE(pac.empty()) << "the PAC file was never fetched";
    EXPECT_EQ("/proxy.pac", pac.front().path);
    EXPECT_EQ(200, pac.front().status);
    EXPECT_TRUE(TunnelledToTheServer());
    ExpectServedOnce();
}

TEST_F(HttpsProxy, WithoutProxyOrPacTheDownloadGoesDirect)
{
    JobThrough({});
    JobRun job = RunFetch();
    ExpectFetched(job, L"agent.msi", kAgent);
    EXPECT_TRUE(ProxyLines().empty()) << ProxyLines().front();
    EXPECT_TRUE(Requests(Lab().plainLog, true).empty());
    ExpectServedOnce();
}

}  // namespace
}  // namespace it
