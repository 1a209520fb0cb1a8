#pragma once
// The HTTPS lab (tests/lab/https, started around these tests by the CTest
// fixture https_lab) as the harness sees it through lab.ini, and a job
// fixture for downloads over HTTPS: payloads on the lab's servers, the job's
// URL values, the servers' logs, the places the PEM mode reads its CA file.
//
// Under Wine, WinHTTP matches the host name against the certificate's DNS
// names only, so every URL names "localhost".
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "JobFixture.h"

namespace it {

// A failure code of the delivery client with the name and description the
// tool reports for it ("ERRORCODE", "ERRORDESC").
struct ClientFailure {
    int code;
    const char* name;
    const char* description;
};
inline constexpr ClientFailure kPemFileFailed = {1, "MIRELCLIENT_PEM_FILE_FAILED",
                                                 "Failed to load or read PEM certificate file"};
inline constexpr ClientFailure kInvalidThumbprint = {5, "MIRELCLIENT_INVALID_THUMBPRINT",
                                                     "Invalid certificate thumbprint provided"};
inline constexpr ClientFailure kDownloadFailed = {7, "MIRELCLIENT_DOWNLOAD_FAILED", "Download operation failed"};
inline constexpr ClientFailure kVerifyFailed = {8, "MIRELCLIENT_VERIFY_FAILED", "Failed to verify downloaded file"};
inline constexpr ClientFailure kCertificateError = {9, "MIRELCLIENT_HTTP_CERTIFICATE_ERROR",
                                                    "HTTPS certificate validation error"};
inline constexpr ClientFailure kWrongSize = {10, "MIRELCLIENT_WRONG_SIZE_ERROR", "Downloaded file size mismatch"};
inline constexpr ClientFailure kWrongChecksum = {11, "MIRELCLIENT_WRONG_CHECKSUM_ERROR",
                                                 "Downloaded file checksum mismatch"};
inline constexpr ClientFailure kInvalidUri = {12, "MIRELCLIENT_INVALID_URI_ERROR",
                                              "Invalid URI specified for download"};

// "Util_DoDownload: download failed: <code> [<name>] - <description>"
std::string DownloadFailedLine(const ClientFailure& failure);

// Bytes that compress badly and differ from offset to offset, so that a
// piece in the wrong place shows.
std::string PayloadBytes(size_t size, unsigned seed = 1);

struct HttpsLab {
    std::wstring www;          // payload folder, served by every server
    std::wstring unthrottled;  // while this file exists, the slow locations aren't
    std::wstring caPem;        // the lab CA, trusted by the prefix
    std::wstring otherCaPem;   // a CA nobody trusts
    std::string thumbprint;    // SHA-1 of the localhost certificate of the lab CA's server, hex
    std::string otherCaThumbprint;  // SHA-1 of the untrusted CA's server certificate
    // nginx with a localhost certificate of the lab CA; of the untrusted CA;
    // expired (lab CA); for another host name (lab CA); plain HTTP (PAC files,
    // and the payload folder below /www/).
    int good = 0, otherCa = 0, expired = 0, wrongHost = 0, plain = 0;
    int proxy = 0;  // tinyproxy
    int fault = 0;  // tests/lab/https/fault_server.py, lab CA's certificate
    int dead = 0;   // a port nothing listens on
    std::wstring goodLog, otherCaLog, expiredLog, wrongHostLog, plainLog, proxyLog, faultLog;
};

// The lab, from lab.ini in ..\lab\https beside the harness; throws when the
// lab isn't up.
const HttpsLab& Lab();

// One request of an access log (nginx's and the fault server's share one
// format): "<port> "<request line>" "<Range>" <status> <body bytes>".
struct Request {
    int port = 0;
    std::string method;
    std::string path;   // as sent, escapes and all
    std::string range;  // "-" when the request had none
    int status = 0;
    uint64_t bytes = 0;
};

// A log read from a given offset on, whole lines only.
std::string ReadLogTail(const std::wstring& path, uint64_t from);
uint64_t FileSize(const std::wstring& path);
std::vector<Request> ParseRequests(const std::string& text);

// Some message starts with `start` and holds `part` behind it.
::testing::AssertionResult HasLineContaining(const std::vector<std::string>& messages, const std::string& start,
                                             const std::string& part);

// A ustar archive, made here, of the entries in order: a name ending in '/'
// is a folder, anything else a file with the given bytes.
std::string TarArchive(const std::vector<std::pair<std::string, std::string>>& entries);

// %-escapes for the characters a URL path can't carry as they are.
std::string UrlEscape(const std::string& text);

class HttpsTest : public JobTest {
protected:
    void SetUp() override;
    void TearDown() override;

    // Puts bytes on the servers as <test folder>\<name> (sub-folders made);
    // what the tests fetch.
    void PutPayload(const std::wstring& name, const std::string& bytes);
    // https://localhost:<port><prefix>/<test folder>/<name>; the name is
    // escaped for the URL unless told otherwise.
    std::wstring Url(int port, const std::wstring& name, const std::wstring& prefix = L"", bool escape = true) const;
    // The path part of that URL.
    std::string UrlPath(const std::wstring& name, const std::wstring& prefix = L"", bool escape = true) const;

    // A DOWNLOAD job under the new root: "URL" as REG_MULTI_SZ of the items,
    // "CERTTYPE" unless empty, and the size and checksum.
    void WriteHttpsJob(const std::vector<std::wstring>& urls, const std::wstring& certType, const std::wstring& size,
                       const std::wstring& checksum, std::vector<std::pair<std::wstring, std::wstring>> extra = {});
    // "METADATA" holding these thumbprints.
    static std::wstring ThumbprintBag(const std::vector<std::string>& thumbprints);

    // A run that went through its closing steps, ended with -1 as every
    // fetch run does, and left no reboot marker.
    JobRun RunFetch(DWORD timeoutMs = 120000);

    // A fetch that ended well: WAIT/OK, "FILENAME" the payload in the
    // workspace holding exactly `bytes`, the client's success logged, one
    // telemetry entry.
    void ExpectFetched(const JobRun& job, const std::wstring& name, const std::string& bytes,
                       const std::string& retry = "0");
    // A fetch the client failed with retries left: READY/PROGRESS, the
    // failure's name and description, "FILENAME" the payload's place.
    void ExpectFailed(const JobRun& job, const ClientFailure& failure, const std::wstring& name,
                      const std::string& retry = "1");

    // Requests that reached a server since the test began; for the access
    // logs, only those for this test's folder unless `anyPath`.
    std::vector<Request> Requests(const std::wstring& log, bool anyPath = false) const;
    // Lines added to tinyproxy's log since the test began.
    std::vector<std::string> ProxyLines() const;
    // Waits (as a guard only: 30 s) until `log` has at least `count` of this
    // test's requests; they are returned either way.
    std::vector<Request> WaitForRequests(const std::wstring& log, size_t count) const;
    // Every request of this test, on every server of the lab.
    std::vector<Request> AllRequests() const;

    // Sets a value of the delivery client's settings key
    // (HKLM\Software\Tarvelle\Zenthra\DeliveryClient), as REG_DWORD.
    void SetClientSetting(const std::wstring& name, DWORD value);

    // Waits (as a guard only: 60 s) until a file in the workspace, at any
    // depth, holds at least `bytes`: a download under way. Its path, or
    // nothing when none grew that far.
    std::optional<std::wstring> WaitForFileInWorkspace(uint64_t bytes) const;
    // Files in the workspace at any depth.
    std::vector<std::wstring> WorkspaceFiles() const;

    // The job's payload in the workspace.
    std::wstring Local(const std::wstring& name) const { return JoinPath(Workspace(), name); }
    // Files below the sandbox, outside the workspace and the log folders: a
    // fetch must write none.
    std::vector<std::wstring> StrayFiles() const;

    // The folders the PEM mode reads: "AgentInstallPath" under a root, and
    // the DaaS agent's "CertFolder" + "CertFileName" in the 32-bit view.
    void SetAgentInstallPath(const wchar_t* root, const std::wstring& folder);
    void SetDaasCertificate(const std::wstring& folder, const std::wstring& fileName);

    std::wstring testFolder_;  // <www>\<test>
    std::string testName_;     // its name, the first component of its URLs

private:
    std::vector<std::pair<std::wstring, uint64_t>> logStarts_;
    uint64_t startOf(const std::wstring& log) const;
};

// Removes the DaaS agent's keys of the 32-bit view, which the harness's
// clean-up of the product keys doesn't reach.
void DeleteDaasKeys();

}  // namespace it
