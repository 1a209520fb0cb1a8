#pragma once
// Certificate thumbprints: the hex SHA-1 or SHA-256 of a certificate's
// encoding, as administrators copy them (any case, blanks anywhere).
#include <cstdint>
#include <string>
#include <vector>

namespace mirel {

struct Thumbprint {
    std::vector<std::uint8_t> digest;  // 20 bytes (SHA-1) or 32 (SHA-256)
};

// False with `why` when `text` is not 40 or 64 hex digits once blanks
// (space, tab) are left out.
bool parseThumbprint(const std::string& text, Thumbprint& thumbprint, std::string& why);

// Both digests of one certificate of the server's chain.
struct CertificateDigests {
    std::vector<std::uint8_t> sha1;
    std::vector<std::uint8_t> sha256;
    std::string subject;  // for the log
};

// The index of the first certificate that one of the thumbprints names, -1
// when none does.
int findPinned(const std::vector<Thumbprint>& pins, const std::vector<CertificateDigests>& chain);

}  // namespace mirel
