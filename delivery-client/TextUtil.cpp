#include "TextUtil.h"

#include <windows.h>

namespace mirel {

bool utf8ToWide(const std::string& text, std::wstring& wide)
{
    wide.clear();
    if (text.empty())
        return true;
    if (text.size() > 0x7fffffff)
        return false;
    const int n =
        ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), static_cast<int>(text.size()), nullptr, 0);
    if (n <= 0)
        return false;
    wide.resize(static_cast<std::size_t>(n));
    return ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), static_cast<int>(text.size()), wide.data(),
                                 n) == n;
}

std::string wideToUtf8(const std::wstring& text)
{
    if (text.empty() || text.size() > 0x7fffffff)
        return std::string();
    // Unpaired surrogates become U+FFFD: this is for logs and files we name.
    const int n =
        ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr);
    if (n <= 0)
        return std::string();
    std::string out(static_cast<std::size_t>(n), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(), n, nullptr, nullptr);
    return out;
}

std::string toHex(const std::uint8_t* bytes, std::size_t count)
{
    static const char digits[] = "0123456789abcdef";
    std::string out;
    out.reserve(count * 2);
    for (std::size_t i = 0; i < count; ++i) {
        out.push_back(digits[bytes[i] >> 4]);
        out.push_back(digits[bytes[i] & 15]);
    }
    return out;
}

std::string toHex(const std::vector<std::uint8_t>& bytes) { return toHex(bytes.data(), bytes.size()); }

int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

std::string asciiLower(std::string text)
{
    for (char& c : text)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return text;
}

bool equalsNoCase(const std::string& a, const std::string& b) { return asciiLower(a) == asciiLower(b); }

std::string forLog(const std::string& text, std::size_t limit)
{
    static const char digits[] = "0123456789abcdef";
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (out.size() >= limit) {
            out += "...";
            break;
        }
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c < 0x20 || c == 0x7f) {
            out += "\\x";
            out.push_back(digits[c >> 4]);
            out.push_back(digits[c & 15]);
        } else {
            out.push_back(static_cast<char>(c));
        }
    }
    return out;
}

std::string forLog(const std::wstring& text, std::size_t limit) { return forLog(wideToUtf8(text), limit); }

bool parseDecimal(const std::string& text, std::uint64_t& value)
{
    if (text.empty() || text.size() > 19)
        return false;
    std::uint64_t v = 0;
    for (char c : text) {
        if (c < '0' || c > '9')
            return false;
        v = v * 10 + static_cast<std::uint64_t>(c - '0');
    }
    value = v;
    return true;
}

}  // namespace mirel
