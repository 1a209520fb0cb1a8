#include "AttemptPlan.h"

#include "TextUtil.h"

namespace mirel {

bool parseProxy(const std::string& input, ProxyAddress& proxy, std::string& why)
{
    std::string text = input;
    const std::size_t scheme = text.find("://");
    if (scheme != std::string::npos) {
        const std::string name = asciiLower(text.substr(0, scheme));
        if (name != "http") {
            why = "only http:// proxies are taken (WinHTTP tunnels TLS through them)";
            return false;
        }
        text = text.substr(scheme + 3);
        if (!text.empty() && text.back() == '/')
            text.pop_back();
    }
    if (text.empty()) {
        why = "it is empty";
        return false;
    }
    for (char c : text) {
        const unsigned char u = static_cast<unsigned char>(c);
        if (u <= 0x20 || u >= 0x7f || c == '/' || c == '@' || c == '\\' || c == '?' || c == '#' || c == ';') {
            why = "it holds a character a proxy address can't have";
            return false;
        }
    }
    std::string host;
    std::string port;
    if (text[0] == '[') {
        const std::size_t close = text.find(']');
        if (close == std::string::npos || close + 1 >= text.size() || text[close + 1] != ':') {
            why = "it is not [address]:port";
            return false;
        }
        host = text.substr(1, close - 1);
        port = text.substr(close + 2);
    } else {
        const std::size_t colon = text.rfind(':');
        if (colon == std::string::npos) {
            why = "it names no port (host:port)";
            return false;
        }
        host = text.substr(0, colon);
        port = text.substr(colon + 1);
        if (host.find(':') != std::string::npos) {
            why = "an IPv6 proxy address needs brackets ([address]:port)";
            return false;
        }
    }
    std::uint64_t value = 0;
    if (host.empty()) {
        why = "it names no host";
        return false;
    }
    if (!parseDecimal(port, value) || value == 0 || value > 65535) {
        why = "its port is not a number from 1 to 65535";
        return false;
    }
    proxy.host = asciiLower(host);
    proxy.port = static_cast<std::uint16_t>(value);
    proxy.text = (text[0] == '[' ? "[" + proxy.host + "]" : proxy.host) + ":" + std::to_string(value);
    return true;
}

std::vector<Attempt> planAttempts(std::size_t urlCount, std::size_t proxyCount, bool hasPac)
{
    std::vector<Attempt> attempts;
    for (std::size_t url = 0; url < urlCount; ++url) {
        if (proxyCount > 0) {
            for (std::size_t proxy = 0; proxy < proxyCount; ++proxy)
                attempts.push_back(Attempt{url, Route{RouteKind::Explicit, proxy}});
        } else if (hasPac) {
            attempts.push_back(Attempt{url, Route{RouteKind::Pac, 0}});
        } else {
            attempts.push_back(Attempt{url, Route{RouteKind::MachineDefault, 0}});
        }
    }
    return attempts;
}

std::vector<std::string> proxiesFromPacAnswer(const std::string& answer)
{
    std::vector<std::string> proxies;
    std::string item;
    auto flush = [&]() {
        const std::string lower = asciiLower(item);
        if (!item.empty() && lower != "proxy" && lower != "http" && lower != "direct")
            proxies.push_back(item);
        item.clear();
    };
    for (char c : answer) {
        if (c == ';' || c == ' ' || c == '\t')
            flush();
        else
            item.push_back(c);
    }
    flush();
    return proxies;
}

}  // namespace mirel
