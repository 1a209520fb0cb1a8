#pragma once
// SHA-256 (and SHA-1 for thumbprints) with the system's CNG (bcrypt.dll).
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace mirel {

// Streaming SHA-256 of a payload as its bytes arrive.
class Sha256 {
public:
    Sha256();
    ~Sha256();
    Sha256(const Sha256&) = delete;
    Sha256& operator=(const Sha256&) = delete;

    // False when CNG refused to make the hash (logged by the caller).
    bool ready() const { return m_hash != nullptr; }
    bool update(const void* data, std::size_t size);
    // The digest; the object can't be updated afterwards.
    std::vector<std::uint8_t> finish();
    // Starts over with no bytes hashed.
    bool reset();

private:
    void close();
    void* m_algorithm = nullptr;
    void* m_hash = nullptr;
};

enum class DigestKind { Sha1, Sha256 };
// One-shot digest; empty when CNG fails.
std::vector<std::uint8_t> digestOf(DigestKind kind, const void* data, std::size_t size);

// An expected checksum as the caller gives it: 64 hex digits, any case,
// blanks around it allowed. False with `why` otherwise.
bool parseChecksum(const std::string& text, std::string& lowerHex, std::string& why);

}  // namespace mirel
