#pragma once
// A download as MirelCreateDownload describes it, and its run: the checks
// made before any connection, the attempts in their order, and the payload
// put in place (or unpacked) once verified.
#include <cstdint>
#include <string>
#include <vector>

#include "AttemptPlan.h"
#include "BoundaryText.h"
#include "HttpsUrl.h"
#include "ServerCheck.h"
#include "Thumbprints.h"
#include "TrustChoice.h"

namespace mirel {

enum PayloadType : std::int32_t { kPayloadExe = 0, kPayloadTar = 1, kPayloadZip = 2 };

// The arguments of MirelCreateDownload, copied.
struct DownloadRequest {
    std::string identity;
    std::int32_t expectedSize = 0;
    bool flag = true;
    TakenList urls;
    TakenList thumbprints;
    TakenList proxies;
    std::string pacUrl;
    std::string workspace;
    std::string checksum;
    std::int32_t reserved = 0;
    std::int32_t payloadType = kPayloadExe;
    TrustChoice trust;
    // Texts lent by reference whose layout was refused ("pacUrl: ...").
    std::vector<std::string> refusedTexts;
};

// A request that passed the checks, in the forms the run uses.
struct CheckedRequest {
    std::vector<HttpsUrl> urls;
    std::vector<ProxyAddress> proxies;
    bool hasPac = false;
    std::wstring pacUrl;
    std::vector<Thumbprint> pins;
    std::string checksum;  // lower-case hex, or empty
    std::wstring workspace;
    std::wstring name;  // the payload's file name (the archive's for a tar)
    TrustMode mode = TrustMode::SystemCa;
};

struct Preflight {
    std::int32_t code = 0;  // MIRELCLIENT_SUCCESS when the request may run
    std::string why;
};

// The checks made before any connection, in this order, the first problem
// giving the code: the arguments' layout (6), the payload type (6), the
// workspace (6), the URLs and the local name (12), the proxies and the PAC
// URL (12), the thumbprints (5), the checksum (11). No network, no files.
Preflight checkRequest(const DownloadRequest& request, CheckedRequest& checked);

// The trust mode a request gets: the CA file or the system CA when one was
// chosen, otherwise thumbprints when there are any, otherwise the system CA.
TrustMode trustModeFor(const TrustChoice& choice, bool hasThumbprints);

class Download {
public:
    explicit Download(DownloadRequest request) : m_request(std::move(request)) {}
    Download(const Download&) = delete;
    Download& operator=(const Download&) = delete;

    const std::string& identity() const { return m_request.identity; }
    const std::string& workspace() const { return m_request.workspace; }
    // Runs the download to its end: MIRELCLIENT_SUCCESS or the failure's code.
    std::int32_t run();

private:
    std::int32_t fail(std::int32_t code, const std::string& why) const;
    DownloadRequest m_request;
};

}  // namespace mirel
