#pragma once
// Whether a server certificate names the host the client asked for.
#include <cstdint>
#include <string>
#include <vector>

namespace mirel {

// The names a certificate gives for its server.
struct CertificateNames {
    std::vector<std::string> dnsNames;                 // subjectAltName dNSName entries
    std::vector<std::vector<std::uint8_t>> addresses;  // subjectAltName iPAddress entries (4 or 16 bytes)
    std::string commonName;                            // the subject's CN, used only without DNS names
};

// One DNS name against the host, case-insensitive; a "*" matches exactly
// one whole left-most label ("*.example.com" matches "a.example.com", not
// "example.com" nor "a.b.example.com"), and only when at least two labels
// follow it. Partial wildcards ("f*.example.com") match nothing.
bool dnsNameMatches(const std::string& pattern, const std::string& host);

// The host (lower case; an address as text) against the certificate: an
// address only against iPAddress entries, a name against the DNS names, or
// against the common name when the certificate has no DNS names.
bool certificateNamesHost(const CertificateNames& names, const std::string& host, bool hostIsAddress);

// An IPv4 or IPv6 address as the 4 or 16 bytes a certificate holds; empty
// when it isn't one.
std::vector<std::uint8_t> addressBytes(const std::string& text);

}  // namespace mirel
