#include "Thumbprints.h"

#include "TextUtil.h"

namespace mirel {

bool parseThumbprint(const std::string& text, Thumbprint& thumbprint, std::string& why)
{
    std::vector<std::uint8_t> digest;
    int high = -1;
    std::size_t digits = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == ' ' || c == '\t')
            continue;
        const int value = hexValue(c);
        if (value < 0) {
            const unsigned char byte = static_cast<unsigned char>(c);
            static const char hex[] = "0123456789abcdef";
            why = "it holds a character that is no hex digit (byte 0x";
            why.push_back(hex[byte >> 4]);
            why.push_back(hex[byte & 15]);
            why += " at position " + std::to_string(i + 1) + ")";
            return false;
        }
        ++digits;
        if (high < 0) {
            high = value;
        } else {
            digest.push_back(static_cast<std::uint8_t>(high * 16 + value));
            high = -1;
        }
    }
    if (digits != 40 && digits != 64) {
        why = "it has " + std::to_string(digits) + " hex digits; a SHA-1 thumbprint has 40, a SHA-256 one 64";
        return false;
    }
    thumbprint.digest = std::move(digest);
    return true;
}

int findPinned(const std::vector<Thumbprint>& pins, const std::vector<CertificateDigests>& chain)
{
    for (std::size_t i = 0; i < chain.size(); ++i)
        for (const Thumbprint& pin : pins) {
            const std::vector<std::uint8_t>& digest = pin.digest.size() == 20 ? chain[i].sha1 : chain[i].sha256;
            if (!digest.empty() && digest == pin.digest)
                return static_cast<int>(i);
        }
    return -1;
}

}  // namespace mirel
