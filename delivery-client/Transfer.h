#pragma once
// One attempt at one URL over one route: the request (continuing a partial
// file when that is sound), the certificate check, and the body written to
// the partial file and hashed as it arrives, then checked for size and
// checksum.
#include <cstdint>
#include <string>

#include "HttpsUrl.h"
#include "PayloadFiles.h"
#include "ServerCheck.h"
#include "Settings.h"
#include "WinHttp.h"

namespace mirel {

struct TransferJob {
    const HttpsUrl* url = nullptr;
    std::string checksum;           // lower-case hex; empty: not checked
    std::int64_t expectedSize = 0;  // checked when above 0
    PayloadFiles* files = nullptr;
    const TrustConfig* trust = nullptr;
    const Settings* settings = nullptr;
    std::string label;  // "attempt 2/3" for the log
};

struct TransferResult {
    std::int32_t code = 0;
    std::string why;
    bool localFailure = false;  // the workspace, not the server, failed: no other route will do better
    std::uint64_t bytes = 0;
    std::string sha256;
};

// Runs the attempt through `session`. On success the payload is complete and
// verified in the partial file, which is closed.
TransferResult transfer(HINTERNET session, const TransferJob& job);

}  // namespace mirel
