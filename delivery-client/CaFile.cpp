#include "CaFile.h"

#include <cstddef>
#include <cstring>
#include <vector>

namespace mirel {

namespace {

const char kBegin[] = "-----BEGIN ";
const char kEnd[] = "-----END ";
const char kCertificateLabel[] = "CERTIFICATE-----";

}  // namespace

CaFile::~CaFile() { reset(); }

void CaFile::reset()
{
    if (m_engine)
        ::CertFreeCertificateChainEngine(m_engine);
    if (m_store)
        ::CertCloseStore(m_store, 0);
    m_engine = nullptr;
    m_store = nullptr;
    m_count = 0;
}

bool CaFile::load(const std::wstring& path, std::string& why)
{
    reset();
    HANDLE file = ::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        why = "it can't be opened (error " + std::to_string(::GetLastError()) + ")";
        return false;
    }
    LARGE_INTEGER size{};
    if (!::GetFileSizeEx(file, &size)) {
        why = "its size can't be read (error " + std::to_string(::GetLastError()) + ")";
        ::CloseHandle(file);
        return false;
    }
    if (size.QuadPart > static_cast<LONGLONG>(kMaxCaFileBytes)) {
        why = "it is larger than " + std::to_string(kMaxCaFileBytes) + " bytes";
        ::CloseHandle(file);
        return false;
    }
    std::string text(static_cast<std::size_t>(size.QuadPart), '\0');
    DWORD read = 0;
    const bool ok = text.empty() || ::ReadFile(file, text.data(), static_cast<DWORD>(text.size()), &read, nullptr);
    const DWORD error = ::GetLastError();
    ::CloseHandle(file);
    if (!ok) {
        why = "it can't be read (error " + std::to_string(error) + ")";
        return false;
    }
    text.resize(read);
    return loadText(text, why);
}

bool CaFile::loadText(const std::string& text, std::string& why)
{
    reset();
    if (text.empty()) {
        why = "it is empty";
        return false;
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c == 0 || (c < 0x20 && c != '\r' && c != '\n' && c != '\t')) {
            why = "it is not a text file (byte " + std::to_string(c) + " at offset " + std::to_string(i) + ")";
            return false;
        }
    }
    m_store = ::CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, CERT_STORE_CREATE_NEW_FLAG, nullptr);
    if (!m_store) {
        why = "a memory store can't be made (error " + std::to_string(::GetLastError()) + ")";
        return false;
    }
    std::size_t at = 0;
    unsigned blocks = 0;
    while ((at = text.find(kBegin, at)) != std::string::npos) {
        const std::size_t labelStart = at + sizeof(kBegin) - 1;
        const std::size_t lineEnd = text.find('\n', labelStart);
        const std::string label =
            text.substr(labelStart, lineEnd == std::string::npos ? std::string::npos : lineEnd - labelStart);
        const bool certificate = label.compare(0, sizeof(kCertificateLabel) - 1, kCertificateLabel) == 0;
        const std::size_t endMarker = text.find(kEnd, labelStart);
        if (endMarker == std::string::npos) {
            why = "a \"-----BEGIN\" block at offset " + std::to_string(at) + " has no END line";
            reset();
            return false;
        }
        std::size_t blockEnd = text.find("-----", endMarker + sizeof(kEnd) - 1);
        blockEnd = blockEnd == std::string::npos ? text.size() : blockEnd + 5;
        if (certificate) {
            ++blocks;
            const std::string block = text.substr(at, blockEnd - at);
            DWORD bytes = 0;
            if (!::CryptStringToBinaryA(block.c_str(), static_cast<DWORD>(block.size()), CRYPT_STRING_BASE64HEADER,
                                        nullptr, &bytes, nullptr, nullptr) ||
                bytes == 0) {
                why = "certificate " + std::to_string(blocks) + " is not valid base64";
                reset();
                return false;
            }
            std::vector<BYTE> der(bytes);
            if (!::CryptStringToBinaryA(block.c_str(), static_cast<DWORD>(block.size()), CRYPT_STRING_BASE64HEADER,
                                        der.data(), &bytes, nullptr, nullptr)) {
                why = "certificate " + std::to_string(blocks) + " is not valid base64";
                reset();
                return false;
            }
            PCCERT_CONTEXT cert =
                ::CertCreateCertificateContext(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, der.data(), bytes);
            if (!cert) {
                why = "certificate " + std::to_string(blocks) + " does not decode (error " +
                      std::to_string(::GetLastError()) + ")";
                reset();
                return false;
            }
            const BOOL added = ::CertAddCertificateContextToStore(m_store, cert, CERT_STORE_ADD_USE_EXISTING, nullptr);
            ::CertFreeCertificateContext(cert);
            if (!added) {
                why = "certificate " + std::to_string(blocks) + " can't be kept (error " +
                      std::to_string(::GetLastError()) + ")";
                reset();
                return false;
            }
            ++m_count;
        }
        at = blockEnd;
    }
    if (m_count == 0) {
        why = "it holds no \"-----BEGIN CERTIFICATE-----\" block";
        reset();
        return false;
    }
    return true;
}

HCERTCHAINENGINE CaFile::engine(std::string& why)
{
    if (m_engine || !m_store)
        return m_engine;
    CERT_CHAIN_ENGINE_CONFIG config{};
    // The Windows 7 layout, which ends before dwExclusiveFlags: Wine 8 takes
    // an exclusive root store only with that size, and Windows takes it too.
    config.cbSize = offsetof(CERT_CHAIN_ENGINE_CONFIG, dwExclusiveFlags);
    config.hExclusiveRoot = m_store;
    if (!::CertCreateCertificateChainEngine(&config, &m_engine)) {
        why = "the chain engine can't be made (error " + std::to_string(::GetLastError()) + ")";
        m_engine = nullptr;
    }
    return m_engine;
}

bool CaFile::holds(PCCERT_CONTEXT cert) const
{
    if (!m_store || !cert)
        return false;
    // Byte for byte: issuer and serial alone could be copied by anyone.
    PCCERT_CONTEXT each = nullptr;
    while ((each = ::CertEnumCertificatesInStore(m_store, each)) != nullptr) {
        if (each->cbCertEncoded == cert->cbCertEncoded &&
            std::memcmp(each->pbCertEncoded, cert->pbCertEncoded, cert->cbCertEncoded) == 0) {
            ::CertFreeCertificateContext(each);
            return true;
        }
    }
    return false;
}

}  // namespace mirel
