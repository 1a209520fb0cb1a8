#pragma once
// What became of an attempt, a download and a run, in the boundary's
// result codes.
#include <cstdint>
#include <string>

#include "mirel_types.h"

namespace mirel {

// The code's name as the boundary header spells it ("MIRELCLIENT_...").
const char* resultName(std::int32_t code);

// How telling a failure is when several attempts failed: the run reports
// the most telling one. Content failures (checksum, size) say most, then a
// certificate refused, then an unpackable archive, then a plain transfer
// failure.
int failureRank(std::int32_t code);

// Gathers the failures of a download's attempts.
class FailureTally {
public:
    void record(std::int32_t code, const std::string& why);
    bool empty() const { return m_code == MIRELCLIENT_SUCCESS; }
    std::int32_t code() const { return m_code; }
    const std::string& why() const { return m_why; }

private:
    std::int32_t m_code = MIRELCLIENT_SUCCESS;
    std::string m_why;
};

// After a failed attempt: whether the remaining proxies of the same URL are
// left out. A wrong size or checksum is the server's content, which no
// other route to that URL changes.
bool skipsOtherRoutesOfUrl(std::int32_t code);

// A WinHTTP error's meaning for the client: 9 for the errors of the secure
// channel and the server's certificate (Wine reports an untrusted CA or a
// wrong host as 12157), 7 for every other.
std::int32_t codeForWinHttpError(std::uint32_t error);
// A short text for the log: "12029 (cannot connect)".
std::string winHttpErrorText(std::uint32_t error);

}  // namespace mirel
