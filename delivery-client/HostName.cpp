#include "HostName.h"

#include "TextUtil.h"

namespace mirel {

namespace {

std::string withoutTrailingDot(std::string text)
{
    if (!text.empty() && text.back() == '.')
        text.pop_back();
    return text;
}

bool parseIpv4Bytes(const std::string& text, std::vector<std::uint8_t>& bytes)
{
    std::vector<std::uint8_t> out;
    std::size_t i = 0;
    while (true) {
        std::size_t start = i;
        unsigned value = 0;
        while (i < text.size() && text[i] >= '0' && text[i] <= '9' && i - start < 3) {
            value = value * 10 + static_cast<unsigned>(text[i] - '0');
            ++i;
        }
        if (i == start || value > 255)
            return false;
        out.push_back(static_cast<std::uint8_t>(value));
        if (i == text.size())
            break;
        if (text[i] != '.' || out.size() == 4)
            return false;
        ++i;
    }
    if (out.size() != 4)
        return false;
    bytes.insert(bytes.end(), out.begin(), out.end());
    return true;
}

bool parseIpv6Bytes(const std::string& text, std::vector<std::uint8_t>& bytes)
{
    std::vector<std::uint16_t> head, tail;
    std::vector<std::uint8_t> v4;
    bool gap = false;
    std::size_t i = 0;
    if (text.compare(0, 2, "::") == 0) {
        gap = true;
        i = 2;
    }
    while (i < text.size()) {
        const std::size_t start = i;
        unsigned value = 0;
        while (i < text.size() && hexValue(text[i]) >= 0 && i - start < 4) {
            value = value * 16 + static_cast<unsigned>(hexValue(text[i]));
            ++i;
        }
        if (i < text.size() && text[i] == '.') {
            if (!parseIpv4Bytes(text.substr(start), v4))
                return false;
            i = text.size();
            break;
        }
        if (i == start)
            return false;
        (gap ? tail : head).push_back(static_cast<std::uint16_t>(value));
        if (i == text.size())
            break;
        if (text[i] != ':')
            return false;
        ++i;
        if (i < text.size() && text[i] == ':') {
            if (gap)
                return false;
            gap = true;
            ++i;
        } else if (i == text.size()) {
            return false;
        }
    }
    const std::size_t groups = head.size() + tail.size() + v4.size() / 2;
    if (groups > 8 || (!gap && groups != 8) || (gap && groups == 8))
        return false;
    std::vector<std::uint16_t> all = head;
    all.resize(head.size() + (8 - groups), 0);
    all.insert(all.end(), tail.begin(), tail.end());
    for (std::uint16_t group : all) {
        bytes.push_back(static_cast<std::uint8_t>(group >> 8));
        bytes.push_back(static_cast<std::uint8_t>(group & 0xff));
    }
    bytes.insert(bytes.end(), v4.begin(), v4.end());
    return bytes.size() == 16;
}

}  // namespace

bool dnsNameMatches(const std::string& patternText, const std::string& hostText)
{
    const std::string pattern = withoutTrailingDot(asciiLower(patternText));
    const std::string host = withoutTrailingDot(asciiLower(hostText));
    if (pattern.empty() || host.empty())
        return false;
    if (pattern.find('*') == std::string::npos)
        return pattern == host;
    if (pattern.compare(0, 2, "*.") != 0 || pattern.find('*', 1) != std::string::npos)
        return false;
    const std::string suffix = pattern.substr(1);  // ".example.com"
    if (suffix.find('.', 1) == std::string::npos)
        return false;  // "*.com": too wide
    if (host.size() <= suffix.size() || host.compare(host.size() - suffix.size(), suffix.size(), suffix) != 0)
        return false;
    const std::string label = host.substr(0, host.size() - suffix.size());
    return !label.empty() && label.find('.') == std::string::npos;
}

std::vector<std::uint8_t> addressBytes(const std::string& text)
{
    std::vector<std::uint8_t> bytes;
    if (text.find(':') != std::string::npos) {
        if (!parseIpv6Bytes(asciiLower(text), bytes))
            bytes.clear();
    } else if (!parseIpv4Bytes(text, bytes)) {
        bytes.clear();
    }
    return bytes;
}

bool certificateNamesHost(const CertificateNames& names, const std::string& host, bool hostIsAddress)
{
    if (hostIsAddress) {
        const std::vector<std::uint8_t> wanted = addressBytes(host);
        if (wanted.empty())
            return false;
        for (const std::vector<std::uint8_t>& address : names.addresses)
            if (address == wanted)
                return true;
        return false;
    }
    if (!names.dnsNames.empty()) {
        for (const std::string& name : names.dnsNames)
            if (dnsNameMatches(name, host))
                return true;
        return false;
    }
    // The common name counts only for certificates without DNS names, and
    // never as a wildcard.
    return !names.commonName.empty() && names.commonName.find('*') == std::string::npos &&
           dnsNameMatches(names.commonName, host);
}

}  // namespace mirel
