#pragma once
// The CA file of the PEM mode: the certificates it holds, in a memory store
// of their own, and a chain engine that trusts those and nothing else.
#include <windows.h>
// After windows.h, which it needs.
#include <wincrypt.h>

#include <string>

namespace mirel {

// Largest CA file read; a bundle of every public CA is about 250 KB.
constexpr std::size_t kMaxCaFileBytes = 4 * 1024 * 1024;

class CaFile {
public:
    CaFile() = default;
    ~CaFile();
    CaFile(const CaFile&) = delete;
    CaFile& operator=(const CaFile&) = delete;

    // Reads the PEM file at `path`. False with `why` when the file can't be
    // read, is empty or too large, isn't text (a NUL byte or a line of
    // binary), holds no "BEGIN CERTIFICATE" block, or holds a block that
    // doesn't decode to a certificate. Other PEM blocks are left out.
    bool load(const std::wstring& path, std::string& why);
    // The same from the file's bytes.
    bool loadText(const std::string& text, std::string& why);

    HCERTSTORE store() const { return m_store; }
    unsigned count() const { return m_count; }
    // A chain engine whose only trusted roots are this file's (made on first
    // use); null with `why` when Windows refuses to make it.
    HCERTCHAINENGINE engine(std::string& why);
    // Whether `cert` is one of this file's certificates.
    bool holds(PCCERT_CONTEXT cert) const;

private:
    void reset();
    HCERTSTORE m_store = nullptr;
    HCERTCHAINENGINE m_engine = nullptr;
    unsigned m_count = 0;
};

}  // namespace mirel
