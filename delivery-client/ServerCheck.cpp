#include "ServerCheck.h"

#include "CaFile.h"
#include "Digest.h"
#include "TextUtil.h"

namespace mirel {

namespace {

struct ChainOwner {
    PCCERT_CHAIN_CONTEXT chain = nullptr;
    ~ChainOwner()
    {
        if (chain)
            ::CertFreeCertificateChain(chain);
    }
};

std::string subjectOf(PCCERT_CONTEXT cert)
{
    wchar_t name[256] = {};
    ::CertGetNameStringW(cert, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0, nullptr, name, 256);
    return forLog(std::wstring(name), 120);
}

// Revocation bits count only when revocation is checked; "not time nested"
// is no longer reported by Windows and says nothing about trust.
DWORD countedErrors(DWORD errors, bool checkRevocation)
{
    errors &= ~static_cast<DWORD>(CERT_TRUST_IS_NOT_TIME_NESTED);
    if (!checkRevocation)
        errors &= ~static_cast<DWORD>(CERT_TRUST_REVOCATION_STATUS_UNKNOWN | CERT_TRUST_IS_OFFLINE_REVOCATION);
    return errors;
}

bool buildChain(PCCERT_CONTEXT leaf, HCERTCHAINENGINE engine, bool checkRevocation, ChainOwner& owner, std::string& why)
{
    char serverAuth[] = szOID_PKIX_KP_SERVER_AUTH;
    char* usages[] = {serverAuth};
    CERT_CHAIN_PARA para{};
    para.cbSize = sizeof(para);
    para.RequestedUsage.dwType = USAGE_MATCH_TYPE_AND;
    para.RequestedUsage.Usage.cUsageIdentifier = 1;
    para.RequestedUsage.Usage.rgpszUsageIdentifier = usages;
    const DWORD flags = checkRevocation ? CERT_CHAIN_REVOCATION_CHECK_CHAIN_EXCLUDE_ROOT : 0;
    if (!::CertGetCertificateChain(engine, leaf, nullptr, leaf->hCertStore, &para, flags, nullptr, &owner.chain) ||
        !owner.chain || owner.chain->cChain == 0) {
        why = "the server's certificate chain can't be built (error " + std::to_string(::GetLastError()) + ")";
        return false;
    }
    return true;
}

bool datesValid(PCCERT_CHAIN_CONTEXT chain, std::string& why)
{
    const CERT_SIMPLE_CHAIN* simple = chain->rgpChain[0];
    for (DWORD i = 0; i < simple->cElement; ++i) {
        PCCERT_CONTEXT cert = simple->rgpElement[i]->pCertContext;
        const LONG when = ::CertVerifyTimeValidity(nullptr, cert->pCertInfo);
        if (when != 0) {
            why = std::string(i == 0 ? "the server's certificate" : "the chain's certificate") + " \"" +
                  subjectOf(cert) + "\" " + (when < 0 ? "is not valid yet" : "has expired");
            return false;
        }
    }
    return true;
}

void addDigests(PCCERT_CONTEXT cert, std::vector<CertificateDigests>& out)
{
    CertificateDigests digests;
    digests.sha1 = digestOf(DigestKind::Sha1, cert->pbCertEncoded, cert->cbCertEncoded);
    digests.sha256 = digestOf(DigestKind::Sha256, cert->pbCertEncoded, cert->cbCertEncoded);
    digests.subject = subjectOf(cert);
    out.push_back(std::move(digests));
}

bool policyAccepts(PCCERT_CHAIN_CONTEXT chain, const std::string& host, std::string& why)
{
    std::wstring wideHost;
    utf8ToWide(host, wideHost);
    SSL_EXTRA_CERT_CHAIN_POLICY_PARA ssl{};
    ssl.cbSize = sizeof(ssl);
    ssl.dwAuthType = AUTHTYPE_SERVER;
    ssl.pwszServerName = wideHost.data();
    CERT_CHAIN_POLICY_PARA para{};
    para.cbSize = sizeof(para);
    para.pvExtraPolicyPara = &ssl;
    CERT_CHAIN_POLICY_STATUS status{};
    status.cbSize = sizeof(status);
    if (!::CertVerifyCertificateChainPolicy(CERT_CHAIN_POLICY_SSL, chain, &para, &status)) {
        why = "the SSL policy check could not run (error " + std::to_string(::GetLastError()) + ")";
        return false;
    }
    if (status.dwError != 0) {
        char code[16];
        wsprintfA(code, "0x%08lX", status.dwError);
        why = std::string("the SSL policy refused the chain (") + code + ")";
        return false;
    }
    return true;
}

}  // namespace

const char* trustModeName(TrustMode mode)
{
    switch (mode) {
    case TrustMode::SystemCa:
        return "system CA";
    case TrustMode::PemFile:
        return "PEM file";
    case TrustMode::Thumbprint:
        return "thumbprint";
    }
    return "?";
}

CertificateNames namesOf(PCCERT_CONTEXT cert)
{
    CertificateNames names;
    PCERT_EXTENSION extension =
        ::CertFindExtension(szOID_SUBJECT_ALT_NAME2, cert->pCertInfo->cExtension, cert->pCertInfo->rgExtension);
    if (extension) {
        CERT_ALT_NAME_INFO* info = nullptr;
        DWORD size = 0;
        if (::CryptDecodeObjectEx(X509_ASN_ENCODING, X509_ALTERNATE_NAME, extension->Value.pbData,
                                  extension->Value.cbData, CRYPT_DECODE_ALLOC_FLAG, nullptr, &info, &size) &&
            info) {
            for (DWORD i = 0; i < info->cAltEntry; ++i) {
                const CERT_ALT_NAME_ENTRY& entry = info->rgAltEntry[i];
                if (entry.dwAltNameChoice == CERT_ALT_NAME_DNS_NAME && entry.pwszDNSName)
                    names.dnsNames.push_back(wideToUtf8(entry.pwszDNSName));
                else if (entry.dwAltNameChoice == CERT_ALT_NAME_IP_ADDRESS)
                    names.addresses.emplace_back(entry.IPAddress.pbData,
                                                 entry.IPAddress.pbData + entry.IPAddress.cbData);
            }
            ::LocalFree(info);
        }
    }
    wchar_t common[256] = {};
    if (::CertGetNameStringW(cert, CERT_NAME_ATTR_TYPE, 0, const_cast<char*>(szOID_COMMON_NAME), common, 256) > 1)
        names.commonName = wideToUtf8(common);
    return names;
}

std::string chainErrorText(DWORD errors)
{
    struct Bit {
        DWORD bit;
        const char* text;
    };
    static const Bit bits[] = {
        {CERT_TRUST_IS_NOT_TIME_VALID, "a certificate is outside its dates"},
        {CERT_TRUST_IS_REVOKED, "revoked"},
        {CERT_TRUST_IS_NOT_SIGNATURE_VALID, "bad signature"},
        {CERT_TRUST_IS_NOT_VALID_FOR_USAGE, "not valid for server authentication"},
        {CERT_TRUST_IS_UNTRUSTED_ROOT, "untrusted root"},
        {CERT_TRUST_REVOCATION_STATUS_UNKNOWN, "revocation status unknown"},
        {CERT_TRUST_IS_CYCLIC, "cyclic chain"},
        {CERT_TRUST_INVALID_EXTENSION, "invalid extension"},
        {CERT_TRUST_INVALID_POLICY_CONSTRAINTS, "invalid policy constraints"},
        {CERT_TRUST_INVALID_BASIC_CONSTRAINTS, "invalid basic constraints"},
        {CERT_TRUST_INVALID_NAME_CONSTRAINTS, "invalid name constraints"},
        {CERT_TRUST_IS_OFFLINE_REVOCATION, "revocation server offline"},
        {CERT_TRUST_NO_ISSUANCE_CHAIN_POLICY, "no issuance policy"},
        {CERT_TRUST_IS_PARTIAL_CHAIN, "partial chain (no trusted root reached)"},
        {CERT_TRUST_CTL_IS_NOT_TIME_VALID, "CTL outside its dates"},
        {CERT_TRUST_CTL_IS_NOT_SIGNATURE_VALID, "CTL bad signature"},
        {CERT_TRUST_CTL_IS_NOT_VALID_FOR_USAGE, "CTL wrong usage"},
    };
    std::string text;
    DWORD known = 0;
    for (const Bit& bit : bits) {
        known |= bit.bit;
        if (errors & bit.bit) {
            if (!text.empty())
                text += ", ";
            text += bit.text;
        }
    }
    if (errors & ~known) {
        char rest[16];
        wsprintfA(rest, "0x%08lX", errors & ~known);
        text += text.empty() ? std::string("status ") + rest : std::string(", status ") + rest;
    }
    return text;
}

ServerCheckResult checkServer(PCCERT_CONTEXT leaf, const TrustConfig& config, const std::string& host,
                              bool hostIsAddress)
{
    ServerCheckResult result;
    if (!leaf) {
        result.why = "the server presented no certificate";
        return result;
    }
    HCERTCHAINENGINE engine = nullptr;  // the default engine: the machine's trust, as WinHTTP's
    if (config.mode == TrustMode::PemFile) {
        if (!config.caFile) {
            result.why = "no CA file is loaded";
            return result;
        }
        engine = config.caFile->engine(result.why);
        if (!engine)
            return result;
    }
    ChainOwner owner;
    if (!buildChain(leaf, engine, config.checkRevocation, owner, result.why))
        return result;
    PCCERT_CHAIN_CONTEXT chain = owner.chain;
    const CERT_SIMPLE_CHAIN* simple = chain->rgpChain[0];

    if (config.mode != TrustMode::Thumbprint) {
        // Wine's SSL policy passes a partial chain, so the chain's own status
        // decides first.
        const DWORD errors = countedErrors(chain->TrustStatus.dwErrorStatus, config.checkRevocation);
        if (errors != 0) {
            result.why = std::string("the chain is not trusted") +
                         (config.mode == TrustMode::PemFile ? " by the CA file" : "") + ": " + chainErrorText(errors);
            return result;
        }
        if (config.mode == TrustMode::PemFile) {
            PCCERT_CONTEXT root = simple->rgpElement[simple->cElement - 1]->pCertContext;
            if (!config.caFile->holds(root)) {
                result.why = "the chain ends in \"" + subjectOf(root) + "\", which is not in the CA file";
                return result;
            }
        }
    }
    if (!datesValid(chain, result.why))
        return result;
    if (!certificateNamesHost(namesOf(leaf), host, hostIsAddress)) {
        result.why = "the server's certificate \"" + subjectOf(leaf) + "\" does not name the host " + forLog(host, 100);
        return result;
    }
    // Windows' own SSL rules on top, for the machine's trust.
    if (config.mode == TrustMode::SystemCa && !policyAccepts(chain, host, result.why))
        return result;
    if (config.mode == TrustMode::Thumbprint || !config.pins.empty()) {
        std::vector<CertificateDigests> digests;
        for (DWORD i = 0; i < simple->cElement; ++i)
            addDigests(simple->rgpElement[i]->pCertContext, digests);
        // What the server sent may hold more than the chain used.
        if (leaf->hCertStore) {
            PCCERT_CONTEXT each = nullptr;
            while ((each = ::CertEnumCertificatesInStore(leaf->hCertStore, each)) != nullptr)
                addDigests(each, digests);
        }
        const int pinned = findPinned(config.pins, digests);
        if (pinned < 0) {
            result.why = "no certificate of the server's chain matches a thumbprint (the server's is SHA-1 " +
                         toHex(digests[0].sha1) + ")";
            return result;
        }
    }
    result.trusted = true;
    return result;
}

}  // namespace mirel
