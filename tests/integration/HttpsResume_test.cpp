// A download cut short by the end of the tool's process, and the next run:
// from a server that takes ranges it goes on where the partial file ends
// (the server's log shows the Range request and a 206); from one that
// doesn't, it starts over. The first run is ended while the lab's nginx
// serves the payload slowly (limit_rate), once the partial file in the
// workspace has grown, never after a set time.
#include <cstdio>

#include "HttpsLab.h"

namespace it {
namespace {

// 4 MiB at the slow locations' 512 KiB/s: about eight seconds, of which the
// test lets the first run see one or two.
const std::string kBig = PayloadBytes(4u << 20, 5);
const uint64_t kCutWhenAbove = 256u << 10;

class HttpsResume : public HttpsTest {
protected:
    const std::wstring key_ = JobKey(kNewRoot, L"job");

    // Starts the job from `prefix`, ends the tool once a file in the
    // workspace has grown past kCutWhenAbove, and returns what the first
    // request had fetched by then: the size of the partial file.
    uint64_t RunAndCut(const std::wstring& prefix)
    {
        PutPayload(L"big.msi", kBig);
        WriteHttpsJob({Url(Lab().good, L"big.msi", prefix)}, L"CERT_SYSTEM_CA", std::to_wstring(kBig.size()),
                      Sha256Hex(kBig));
        ToolProcess tool;
        tool.Start(Options());
        std::optional<std::wstring> growing = WaitForFileInWorkspace(kCutWhenAbove);
        const bool stillRunning = tool.Alive();
        tool.Terminate();
        EXPECT_TRUE(growing.has_value()) << "no file in the workspace grew past " << kCutWhenAbove
                                         << " bytes; tool output:\n" << tool.Output();
        EXPECT_TRUE(stillRunning) << "the download ended before it could be cut; output:\n" << tool.Output();
        if (!growing)
            return 0;
        // The process is gone: what it wrote is all there is.
        const uint64_t partial = FileSize(*growing);
        EXPECT_LT(partial, kBig.size());
        // Not at the payload's own name: the tool must never find half a file there.
        EXPECT_NE(Local(L"big.msi"), *growing);
        EXPECT_FALSE(PathExists(Local(L"big.msi")));
        // The killed run saved nothing: the job is as the management side wrote it.
        EXPECT_EQ("DOWNLOAD", ReadText(key_, L"STATE").value_or("<absent>"));
        // The server logs the cut request once the connection has gone.
        EXPECT_FALSE(WaitForRequests(Lab().goodLog, 1).empty());
        return partial;
    }

    // The GET requests of this test at the good server.
    std::vector<Request> Gets() const
    {
        std::vector<Request> gets;
        for (const Request& r : Requests(Lab().goodLog))
            if (r.method == "GET")
                gets.push_back(r);
        return gets;
    }

    // The next run, with the slow locations at full speed: the resumption is
    // what is checked, not the rate.
    JobRun RunAgain()
    {
        WriteFileBytes(Lab().unthrottled, "");
        logsDir_ = UseFreshLogsDir();
        return RunFetch();
    }
};

TEST_F(HttpsResume, InterruptedDownloadGoesOnFromThePartialFileInTheNextRun)
{
    const uint64_t partial = RunAndCut(L"/slow");
    ASSERT_GT(partial, 0u);
    JobRun job = RunAgain();
    ExpectFetched(job, L"big.msi", kBig);

    std::vector<Request> requests = Gets();
    ASSERT_EQ(2u, requests.size());
    EXPECT_EQ("-", requests[0].range);
    EXPECT_EQ(200, requests[0].status);
    // The second asks for the rest, from where the partial file ends.
    const Request& second = requests[1];
    unsigned long long from = 0;
    ASSERT_EQ(1, std::sscanf(second.range.c_str(), "bytes=%llu-", &from)) << second.range;
    EXPECT_EQ(partial, from);
    EXPECT_EQ(206, second.status);
    EXPECT_EQ(kBig.size() - from, second.bytes);
    // Nothing of the partial download is left beside the payload.
    EXPECT_EQ(std::vector<std::wstring>{Local(L"big.msi")}, WorkspaceFiles());
}

TEST_F(HttpsResume, InterruptedDownloadFromAServerWithoutRangesStartsOver)
{
    const uint64_t partial = RunAndCut(L"/norange-slow");
    ASSERT_GT(partial, 0u);
    JobRun job = RunAgain();
    ExpectFetched(job, L"big.msi", kBig);

    std::vector<Request> requests = Gets();
    ASSERT_EQ(2u, requests.size());
    // Whether or not it asked for a range, the whole payload came, and that
    // is what the file holds.
    EXPECT_EQ(200, requests[1].status);
    EXPECT_EQ(kBig.size(), requests[1].bytes);
    EXPECT_EQ(std::vector<std::wstring>{Local(L"big.msi")}, WorkspaceFiles());
}

}  // namespace
}  // namespace it
