#include "Digest.h"

#include <windows.h>
// After windows.h, which it needs.
#include <bcrypt.h>

#include "TextUtil.h"

namespace mirel {

namespace {

bool ok(NTSTATUS status) { return status >= 0; }

}  // namespace

Sha256::Sha256() { reset(); }

Sha256::~Sha256() { close(); }

void Sha256::close()
{
    if (m_hash)
        ::BCryptDestroyHash(static_cast<BCRYPT_HASH_HANDLE>(m_hash));
    if (m_algorithm)
        ::BCryptCloseAlgorithmProvider(static_cast<BCRYPT_ALG_HANDLE>(m_algorithm), 0);
    m_hash = nullptr;
    m_algorithm = nullptr;
}

bool Sha256::reset()
{
    close();
    BCRYPT_ALG_HANDLE algorithm = nullptr;
    if (!ok(::BCryptOpenAlgorithmProvider(&algorithm, BCRYPT_SHA256_ALGORITHM, nullptr, 0)))
        return false;
    m_algorithm = algorithm;
    BCRYPT_HASH_HANDLE hash = nullptr;
    if (!ok(::BCryptCreateHash(algorithm, &hash, nullptr, 0, nullptr, 0, 0))) {
        close();
        return false;
    }
    m_hash = hash;
    return true;
}

bool Sha256::update(const void* data, std::size_t size)
{
    if (!m_hash)
        return false;
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    while (size > 0) {
        const ULONG chunk = size > 0x40000000 ? 0x40000000 : static_cast<ULONG>(size);
        if (!ok(::BCryptHashData(static_cast<BCRYPT_HASH_HANDLE>(m_hash), const_cast<PUCHAR>(bytes), chunk, 0)))
            return false;
        bytes += chunk;
        size -= chunk;
    }
    return true;
}

std::vector<std::uint8_t> Sha256::finish()
{
    std::vector<std::uint8_t> digest(32);
    if (!m_hash || !ok(::BCryptFinishHash(static_cast<BCRYPT_HASH_HANDLE>(m_hash), digest.data(), 32, 0)))
        digest.clear();
    close();
    return digest;
}

std::vector<std::uint8_t> digestOf(DigestKind kind, const void* data, std::size_t size)
{
    BCRYPT_ALG_HANDLE algorithm = nullptr;
    const wchar_t* name = kind == DigestKind::Sha1 ? BCRYPT_SHA1_ALGORITHM : BCRYPT_SHA256_ALGORITHM;
    std::vector<std::uint8_t> digest(kind == DigestKind::Sha1 ? 20 : 32);
    if (!ok(::BCryptOpenAlgorithmProvider(&algorithm, name, nullptr, 0)))
        return {};
    BCRYPT_HASH_HANDLE hash = nullptr;
    bool done = ok(::BCryptCreateHash(algorithm, &hash, nullptr, 0, nullptr, 0, 0)) &&
                ok(::BCryptHashData(hash, static_cast<PUCHAR>(const_cast<void*>(data)), static_cast<ULONG>(size), 0)) &&
                ok(::BCryptFinishHash(hash, digest.data(), static_cast<ULONG>(digest.size()), 0));
    if (hash)
        ::BCryptDestroyHash(hash);
    ::BCryptCloseAlgorithmProvider(algorithm, 0);
    if (!done)
        digest.clear();
    return digest;
}

bool parseChecksum(const std::string& text, std::string& lowerHex, std::string& why)
{
    std::size_t begin = 0;
    std::size_t end = text.size();
    while (begin < end && (text[begin] == ' ' || text[begin] == '\t'))
        ++begin;
    while (end > begin && (text[end - 1] == ' ' || text[end - 1] == '\t'))
        --end;
    const std::string core = text.substr(begin, end - begin);
    if (core.size() != 64) {
        why = "it has " + std::to_string(core.size()) + " characters; a SHA-256 checksum is 64 hex digits";
        return false;
    }
    for (std::size_t i = 0; i < core.size(); ++i)
        if (hexValue(core[i]) < 0) {
            why = "character " + std::to_string(i + 1) + " is no hex digit";
            return false;
        }
    lowerHex = asciiLower(core);
    return true;
}

}  // namespace mirel
