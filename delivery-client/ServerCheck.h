#pragma once
// The client's own check of a server's certificate, made after the request
// went out and before any byte of the body is read.
#include <windows.h>
// After windows.h, which it needs.
#include <wincrypt.h>

#include <string>
#include <vector>

#include "HostName.h"
#include "Thumbprints.h"

namespace mirel {

class CaFile;

enum class TrustMode {
    SystemCa,    // the machine's trusted roots (WinHTTP checks too)
    PemFile,     // only the CA file's certificates
    Thumbprint,  // a certificate of the chain must be one of the thumbprints
};
const char* trustModeName(TrustMode mode);

struct TrustConfig {
    TrustMode mode = TrustMode::SystemCa;
    CaFile* caFile = nullptr;      // PemFile
    std::vector<Thumbprint> pins;  // Thumbprint; in the other modes an extra condition when given
    bool checkRevocation = false;
};

struct ServerCheckResult {
    bool trusted = false;
    std::string why;  // the first reason found, for the log
};

// The names of a certificate (subjectAltName DNS and IP entries, subject CN).
CertificateNames namesOf(PCCERT_CONTEXT cert);

// The chain's own error bits as words for the log ("untrusted root, partial
// chain"); the bits that don't count are left out by the caller.
std::string chainErrorText(DWORD errors);

// Checks `leaf` (with the certificates the server sent beside it, in its
// store) for `host`: the chain by the mode's rules and its own error
// status, every certificate's dates, the host name, and the thumbprints.
ServerCheckResult checkServer(PCCERT_CONTEXT leaf, const TrustConfig& config, const std::string& host,
                              bool hostIsAddress);

}  // namespace mirel
