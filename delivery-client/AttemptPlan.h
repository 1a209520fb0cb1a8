#pragma once
// Which routes a download tries, and in what order: each URL in the order
// given, and for each URL its proxies.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace mirel {

// An explicit proxy, from "host:port" or "http://host:port".
struct ProxyAddress {
    std::string host;  // lower case; IPv6 without brackets
    std::uint16_t port = 0;
    std::string text;  // "host:port" as WinHTTP takes it
};

// False with `why` when `text` is neither form, the port is missing or out
// of range, or the scheme isn't http (WinHTTP talks to proxies in plain
// HTTP and tunnels TLS with CONNECT).
bool parseProxy(const std::string& text, ProxyAddress& proxy, std::string& why);

enum class RouteKind {
    Explicit,        // through one proxy of the download's list
    Pac,             // as the PAC file decides for the URL
    MachineDefault,  // the machine's WinHTTP proxy setting
};

struct Route {
    RouteKind kind = RouteKind::MachineDefault;
    std::size_t proxyIndex = 0;  // Explicit only
};

struct Attempt {
    std::size_t urlIndex = 0;
    Route route;
};

// Every URL in its order; for each, every proxy of the list in its order
// when there is a list, otherwise the PAC file when there is one, otherwise
// the machine's setting. A list given with a PAC URL wins over it.
std::vector<Attempt> planAttempts(std::size_t urlCount, std::size_t proxyCount, bool hasPac);

// The proxies WinHTTP's answer for a URL names, in order: "host:port" items
// separated by ';' or blanks, the words PROXY, HTTP and DIRECT left out.
// Empty means direct.
std::vector<std::string> proxiesFromPacAnswer(const std::string& answer);

}  // namespace mirel
