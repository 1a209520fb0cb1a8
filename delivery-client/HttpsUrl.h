#pragma once
// The download URLs the client accepts: absolute https URLs, checked before
// any connection, and split into what WinHTTP needs.
#include <cstdint>
#include <string>

namespace mirel {

// Longest URL taken, in bytes.
constexpr std::size_t kMaxUrlLength = 4096;

struct HttpsUrl {
    std::string text;            // as given
    std::wstring host;           // lower case; an IPv6 address without brackets
    bool hostIsAddress = false;  // an IPv4 or IPv6 literal
    std::uint16_t port = 443;
    std::wstring pathAndQuery;  // what goes on the request line: ASCII, escaped
    std::string hostForLog;     // host[:port] as text
};

// False with `why` (for the log) when `text` is not a URL the client fetches:
// not https, relative, with user information, blanks, control characters,
// characters a URL can't hold, a bad percent escape, a bad host or port, or
// longer than kMaxUrlLength. Bytes above 0x7F in the path and query are
// percent-escaped for the request; the fragment is dropped.
bool parseHttpsUrl(const std::string& text, HttpsUrl& url, std::string& why);

// A PAC file's URL: http or https, otherwise the same rules.
bool parsePacUrl(const std::string& text, std::wstring& wide, std::string& why);

}  // namespace mirel
