#include "LogText.h"

#include <algorithm>
#include <cstdint>

namespace ztmsilog {

namespace {

// The characters Windows-1252 puts at 0x80..0x9F; its holes stay as they are.
constexpr char16_t kCp1252High[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};

unsigned char byteAt(std::string_view bytes, std::size_t i) { return static_cast<unsigned char>(bytes[i]); }

std::wstring utf16(std::string_view bytes, bool bigEndian)
{
    std::wstring text;
    text.reserve(bytes.size() / 2);
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        const unsigned lo = byteAt(bytes, bigEndian ? i + 1 : i);
        const unsigned hi = byteAt(bytes, bigEndian ? i : i + 1);
        text.push_back(static_cast<wchar_t>(lo | (hi << 8)));
    }
    return text;
}

void appendCodePoint(std::wstring& text, std::uint32_t cp)
{
    if (cp >= 0x10000) {
        cp -= 0x10000;
        text.push_back(static_cast<wchar_t>(0xD800 + (cp >> 10)));
        text.push_back(static_cast<wchar_t>(0xDC00 + (cp & 0x3FF)));
    } else {
        text.push_back(static_cast<wchar_t>(cp));
    }
}

// Strict UTF-8: no overlong forms, no surrogates, nothing past U+10FFFF.
bool decodeUtf8(std::string_view bytes, std::wstring& text)
{
    text.clear();
    text.reserve(bytes.size());
    for (std::size_t i = 0; i < bytes.size();) {
        const unsigned char lead = byteAt(bytes, i);
        if (lead < 0x80) {
            text.push_back(static_cast<wchar_t>(lead));
            ++i;
            continue;
        }
        std::size_t extra;
        std::uint32_t cp;
        std::uint32_t least;
        if ((lead & 0xE0) == 0xC0) {
            extra = 1, cp = lead & 0x1F, least = 0x80;
        } else if ((lead & 0xF0) == 0xE0) {
            extra = 2, cp = lead & 0x0F, least = 0x800;
        } else if ((lead & 0xF8) == 0xF0) {
            extra = 3, cp = lead & 0x07, least = 0x10000;
        } else {
            return false;
        }
        if (i + extra >= bytes.size())
            return false;
        for (std::size_t k = 1; k <= extra; ++k) {
            const unsigned char next = byteAt(bytes, i + k);
            if ((next & 0xC0) != 0x80)
                return false;
            cp = (cp << 6) | (next & 0x3F);
        }
        if (cp < least || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))
            return false;
        appendCodePoint(text, cp);
        i += extra + 1;
    }
    return true;
}

std::wstring ansi(std::string_view bytes)
{
    std::wstring text;
    text.reserve(bytes.size());
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const unsigned char c = byteAt(bytes, i);
        text.push_back(c >= 0x80 && c < 0xA0 ? static_cast<wchar_t>(kCp1252High[c - 0x80]) : static_cast<wchar_t>(c));
    }
    return text;
}

// Text in UTF-16 has zero high bytes for most of its characters; text in a
// narrow encoding has almost no zero bytes at all. The first 64 KiB decide.
enum class ZeroBytes { None, Odd, Even };
ZeroBytes zeroBytePattern(std::string_view bytes)
{
    const std::size_t n = std::min<std::size_t>(bytes.size() & ~std::size_t(1), 65536);
    std::size_t odd = 0, even = 0;
    for (std::size_t i = 0; i < n; ++i)
        if (bytes[i] == 0)
            ++((i & 1) ? odd : even);
    const std::size_t pairs = n / 2;
    if (pairs == 0)
        return ZeroBytes::None;
    if (odd * 4 >= pairs && odd > even * 4)
        return ZeroBytes::Odd;
    if (even * 4 >= pairs && even > odd * 4)
        return ZeroBytes::Even;
    return ZeroBytes::None;
}

}  // namespace

DecodedLog DecodeLog(std::string_view bytes)
{
    DecodedLog log;
    if (bytes.empty())
        return log;
    auto starts = [&](std::string_view mark) { return bytes.substr(0, mark.size()) == mark; };
    if (starts("\xEF\xBB\xBF")) {
        log.encoding = Encoding::Utf8;
        if (!decodeUtf8(bytes.substr(3), log.text)) {
            log.encoding = Encoding::Ansi;
            log.text = ansi(bytes.substr(3));
        }
        return log;
    }
    if (starts("\xFF\xFE")) {
        log.encoding = Encoding::Utf16Le;
        log.text = utf16(bytes.substr(2), false);
        return log;
    }
    if (starts("\xFE\xFF")) {
        log.encoding = Encoding::Utf16Be;
        log.text = utf16(bytes.substr(2), true);
        return log;
    }
    switch (zeroBytePattern(bytes)) {
    case ZeroBytes::Odd:
        log.encoding = Encoding::Utf16LeNoMark;
        log.text = utf16(bytes, false);
        return log;
    case ZeroBytes::Even:
        log.encoding = Encoding::Utf16BeNoMark;
        log.text = utf16(bytes, true);
        return log;
    case ZeroBytes::None:
        break;
    }
    if (decodeUtf8(bytes, log.text)) {
        log.encoding = Encoding::Utf8NoMark;
        return log;
    }
    log.encoding = Encoding::Ansi;
    log.text = ansi(bytes);
    return log;
}

const char* EncodingName(Encoding encoding)
{
    switch (encoding) {
    case Encoding::Empty: return "empty";
    case Encoding::Utf16Le: return "UTF-16 LE with byte order mark";
    case Encoding::Utf16LeNoMark: return "UTF-16 LE without byte order mark";
    case Encoding::Utf16Be: return "UTF-16 BE with byte order mark";
    case Encoding::Utf16BeNoMark: return "UTF-16 BE without byte order mark";
    case Encoding::Utf8: return "UTF-8 with byte order mark";
    case Encoding::Utf8NoMark: return "UTF-8 (or ASCII) without byte order mark";
    case Encoding::Ansi: return "narrow code page, read as Windows-1252";
    }
    return "?";
}

bool IsUtf16LittleEndian(Encoding encoding)
{
    return encoding == Encoding::Utf16Le || encoding == Encoding::Utf16LeNoMark;
}

std::vector<std::wstring> SplitLines(std::wstring_view text)
{
    std::vector<std::wstring> lines;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t lf = text.find(L'\n', start);
        const std::size_t end = lf == std::wstring_view::npos ? text.size() : lf;
        std::size_t stop = end;
        if (lf != std::wstring_view::npos && stop > start && text[stop - 1] == L'\r')
            --stop;
        lines.emplace_back(text.substr(start, stop - start));
        if (lf == std::wstring_view::npos)
            break;
        start = lf + 1;
    }
    return lines;
}

std::string ToUtf8(std::wstring_view text)
{
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        std::uint32_t cp = static_cast<std::uint16_t>(text[i]);
        if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < text.size()) {
            const std::uint32_t low = static_cast<std::uint16_t>(text[i + 1]);
            if (low >= 0xDC00 && low <= 0xDFFF) {
                cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
                ++i;
            }
        }
        if (cp >= 0xD800 && cp <= 0xDFFF)
            cp = 0xFFFD;
        if (cp < 0x80) {
            out.push_back(static_cast<char>(cp));
        } else if (cp < 0x800) {
            out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        } else if (cp < 0x10000) {
            out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        } else {
            out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        }
    }
    return out;
}

std::wstring EngineText(const std::vector<std::wstring>& lines)
{
    std::wstring text;
    for (const std::wstring& line : lines) {
        text += line;
        text += L"\r\n";
    }
    return text;
}

std::string EngineBytes(std::wstring_view text)
{
    std::string bytes("\xFF\xFE", 2);
    bytes.reserve(2 + text.size() * 2);
    for (wchar_t c : text) {
        bytes.push_back(static_cast<char>(c & 0xFF));
        bytes.push_back(static_cast<char>((c >> 8) & 0xFF));
    }
    return bytes;
}

}  // namespace ztmsilog
