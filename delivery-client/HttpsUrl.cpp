#include "HttpsUrl.h"

#include "TextUtil.h"

namespace mirel {

namespace {

bool isAlpha(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Characters a path or query may carry as they are (RFC 3986: unreserved,
// sub-delims, ':', '@', '/', '?', and '%' for escapes).
bool isPathChar(char c)
{
    if (isAlpha(c) || isDigit(c))
        return true;
    switch (c) {
    case '-':
    case '.':
    case '_':
    case '~':
    case '!':
    case '$':
    case '&':
    case '\'':
    case '(':
    case ')':
    case '*':
    case '+':
    case ',':
    case ';':
    case '=':
    case ':':
    case '@':
    case '/':
    case '?':
    case '%':
        return true;
    default:
        return false;
    }
}

std::string describe(unsigned char c)
{
    static const char digits[] = "0123456789abcdef";
    std::string text = "0x";
    text.push_back(digits[c >> 4]);
    text.push_back(digits[c & 15]);
    if (c >= 0x21 && c < 0x7f)
        text += std::string(" '") + static_cast<char>(c) + "'";
    return text;
}

bool parseIpv4(const std::string& host)
{
    int parts = 0;
    std::size_t i = 0;
    while (i <= host.size()) {
        std::size_t start = i;
        unsigned value = 0;
        while (i < host.size() && isDigit(host[i])) {
            value = value * 10 + static_cast<unsigned>(host[i] - '0');
            if (i - start >= 3 || value > 255)
                return false;
            ++i;
        }
        if (i == start)
            return false;
        ++parts;
        if (i == host.size())
            break;
        if (host[i] != '.')
            return false;
        ++i;
    }
    return parts == 4;
}

bool parseIpv6(const std::string& host)
{
    // Hex groups and colons, "::" at most once, an IPv4 tail allowed.
    if (host.empty() || host.size() > 45)
        return false;
    int groups = 0;
    bool doubleColon = false;
    std::size_t i = 0;
    if (host.compare(0, 2, "::") == 0) {
        doubleColon = true;
        i = 2;
        if (i == host.size())
            return true;
    } else if (host[0] == ':') {
        return false;
    }
    while (i < host.size()) {
        std::size_t start = i;
        while (i < host.size() && hexValue(host[i]) >= 0 && i - start < 4)
            ++i;
        if (i < host.size() && host[i] == '.') {
            if (!parseIpv4(host.substr(start)))
                return false;
            groups += 2;
            i = host.size();
            break;
        }
        if (i == start)
            return false;
        ++groups;
        if (i == host.size())
            break;
        if (host[i] != ':')
            return false;
        ++i;
        if (i < host.size() && host[i] == ':') {
            if (doubleColon)
                return false;
            doubleColon = true;
            ++i;
            if (i == host.size())
                break;
        } else if (i == host.size()) {
            return false;
        }
    }
    return doubleColon ? groups < 8 : groups == 8;
}

bool validHostName(const std::string& host)
{
    if (host.empty() || host.size() > 253)
        return false;
    std::size_t labelStart = 0;
    for (std::size_t i = 0; i <= host.size(); ++i) {
        if (i == host.size() || host[i] == '.') {
            const std::size_t length = i - labelStart;
            if (length == 0 || length > 63)
                return false;
            if (host[labelStart] == '-' || host[i - 1] == '-')
                return false;
            labelStart = i + 1;
            continue;
        }
        const char c = host[i];
        if (!isAlpha(c) && !isDigit(c) && c != '-' && c != '_')
            return false;
    }
    return true;
}

struct Parts {
    std::string scheme;
    std::string host;
    bool bracketed = false;
    std::string port;
    bool hasPort = false;
    std::string rest;  // path and query, fragment removed
};

template <class SchemeCheck>
bool split(const std::string& text, Parts& parts, std::string& why, SchemeCheck schemeAllowed)
{
    if (text.empty()) {
        why = "the URL is empty";
        return false;
    }
    if (text.size() > kMaxUrlLength) {
        why = "the URL is longer than " + std::to_string(kMaxUrlLength) + " bytes";
        return false;
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c == ' ' || c == '\t') {
            why = "the URL contains a blank at position " + std::to_string(i + 1);
            return false;
        }
        if (c < 0x20 || c == 0x7f) {
            why = "the URL contains the control character " + describe(c) + " at position " + std::to_string(i + 1);
            return false;
        }
    }
    std::wstring wide;
    if (!utf8ToWide(text, wide)) {
        why = "the URL is not valid UTF-8";
        return false;
    }
    const std::size_t colon = text.find(':');
    if (colon == std::string::npos || colon == 0 || text.compare(colon, 3, "://") != 0) {
        why = "the URL is not absolute (no scheme://)";
        return false;
    }
    parts.scheme = asciiLower(text.substr(0, colon));
    for (char c : parts.scheme)
        if (!isAlpha(c) && !isDigit(c) && c != '+' && c != '-' && c != '.') {
            why = "the URL's scheme is malformed";
            return false;
        }
    if (!schemeAllowed(parts.scheme, why))
        return false;
    const std::size_t authorityStart = colon + 3;
    std::size_t authorityEnd = text.find_first_of("/?#", authorityStart);
    if (authorityEnd == std::string::npos)
        authorityEnd = text.size();
    const std::string authority = text.substr(authorityStart, authorityEnd - authorityStart);
    if (authority.find('@') != std::string::npos) {
        why = "the URL carries user information (user@host), which the client never sends";
        return false;
    }
    if (authority.find('\\') != std::string::npos) {
        why = "the URL's host part contains a backslash";
        return false;
    }
    std::string hostPort = authority;
    if (!hostPort.empty() && hostPort[0] == '[') {
        const std::size_t close = hostPort.find(']');
        if (close == std::string::npos) {
            why = "the URL's IPv6 address has no closing bracket";
            return false;
        }
        parts.host = hostPort.substr(1, close - 1);
        parts.bracketed = true;
        const std::string after = hostPort.substr(close + 1);
        if (!after.empty()) {
            if (after[0] != ':') {
                why = "the URL has text after its IPv6 address";
                return false;
            }
            parts.hasPort = true;
            parts.port = after.substr(1);
        }
    } else {
        const std::size_t portColon = hostPort.rfind(':');
        if (portColon != std::string::npos) {
            parts.host = hostPort.substr(0, portColon);
            parts.hasPort = true;
            parts.port = hostPort.substr(portColon + 1);
        } else {
            parts.host = hostPort;
        }
    }
    if (parts.host.empty()) {
        why = "the URL has no host";
        return false;
    }
    std::string rest = text.substr(authorityEnd);
    const std::size_t hash = rest.find('#');
    if (hash != std::string::npos)
        rest.erase(hash);
    parts.rest = rest;
    return true;
}

bool checkHostAndPort(Parts& parts, bool& isAddress, std::uint16_t& port, std::uint16_t defaultPort, std::string& why)
{
    parts.host = asciiLower(parts.host);
    if (parts.bracketed) {
        if (!parseIpv6(parts.host)) {
            why = "the URL's IPv6 address is malformed";
            return false;
        }
        isAddress = true;
    } else if (parseIpv4(parts.host)) {
        isAddress = true;
    } else {
        bool allDigitsAndDots = true;
        for (char c : parts.host)
            if (!isDigit(c) && c != '.')
                allDigitsAndDots = false;
        if (allDigitsAndDots || !validHostName(parts.host)) {
            why = "the URL's host \"" + forLog(parts.host, 80) + "\" is not a valid host name or address";
            return false;
        }
        isAddress = false;
    }
    port = defaultPort;
    if (parts.hasPort) {
        std::uint64_t value = 0;
        if (!parseDecimal(parts.port, value) || value == 0 || value > 65535) {
            why = "the URL's port \"" + forLog(parts.port, 20) + "\" is not a number from 1 to 65535";
            return false;
        }
        port = static_cast<std::uint16_t>(value);
    }
    return true;
}

bool escapePath(const std::string& rest, std::wstring& path, std::string& why)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string escaped;
    if (rest.empty() || rest[0] != '/')
        escaped = "/";
    for (std::size_t i = 0; i < rest.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(rest[i]);
        if (c >= 0x80) {
            escaped.push_back('%');
            escaped.push_back(digits[c >> 4]);
            escaped.push_back(digits[c & 15]);
            continue;
        }
        if (!isPathChar(static_cast<char>(c))) {
            why = "the URL contains the character " + describe(c) + ", which a URL can't hold unescaped";
            return false;
        }
        if (c == '%' && (i + 2 >= rest.size() || hexValue(rest[i + 1]) < 0 || hexValue(rest[i + 2]) < 0)) {
            why = "the URL has a '%' at position " + std::to_string(i + 1) + " of its path that starts no %XX escape";
            return false;
        }
        escaped.push_back(static_cast<char>(c));
    }
    path.assign(escaped.begin(), escaped.end());
    return true;
}

}  // namespace

bool parseHttpsUrl(const std::string& text, HttpsUrl& url, std::string& why)
{
    Parts parts;
    auto https = [](const std::string& scheme, std::string& reason) {
        if (scheme == "https")
            return true;
        reason = scheme == "http" ? "the URL is plain http; only https is fetched"
                                  : "the URL's scheme \"" + forLog(scheme, 20) + "\" is not https";
        return false;
    };
    if (!split(text, parts, why, https))
        return false;
    HttpsUrl result;
    if (!checkHostAndPort(parts, result.hostIsAddress, result.port, 443, why))
        return false;
    if (!escapePath(parts.rest, result.pathAndQuery, why))
        return false;
    result.text = text;
    result.host.assign(parts.host.begin(), parts.host.end());
    result.hostForLog = parts.bracketed ? "[" + parts.host + "]" : parts.host;
    if (result.port != 443)
        result.hostForLog += ":" + std::to_string(result.port);
    url = std::move(result);
    return true;
}

bool parsePacUrl(const std::string& text, std::wstring& wide, std::string& why)
{
    Parts parts;
    auto web = [](const std::string& scheme, std::string& reason) {
        if (scheme == "http" || scheme == "https")
            return true;
        reason = "the PAC URL's scheme \"" + forLog(scheme, 20) + "\" is neither http nor https";
        return false;
    };
    if (!split(text, parts, why, web))
        return false;
    bool isAddress = false;
    std::uint16_t port = 0;
    if (!checkHostAndPort(parts, isAddress, port, parts.scheme == "http" ? 80 : 443, why))
        return false;
    std::wstring path;
    if (!escapePath(parts.rest, path, why))
        return false;
    return utf8ToWide(text, wide);
}

}  // namespace mirel
