// The order of attempts (URLs, then the proxies of each), the proxies the
// client takes, and what a PAC file's answer names.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "AttemptPlan.h"

namespace {

using mirel::Attempt;
using mirel::RouteKind;

std::string describe(const std::vector<Attempt>& attempts)
{
    std::string text;
    for (const Attempt& a : attempts) {
        if (!text.empty())
            text += " ";
        text += "u" + std::to_string(a.urlIndex);
        switch (a.route.kind) {
        case RouteKind::Explicit:
            text += "p" + std::to_string(a.route.proxyIndex);
            break;
        case RouteKind::Pac:
            text += "pac";
            break;
        case RouteKind::MachineDefault:
            text += "default";
            break;
        }
    }
    return text;
}

TEST(AttemptOrder, TriesEachUrlThroughEachProxyInOrder)
{
    EXPECT_EQ(describe(mirel::planAttempts(2, 3, false)), "u0p0 u0p1 u0p2 u1p0 u1p1 u1p2");
}

TEST(AttemptOrder, LetsThePacFileDecideWithoutAList)
{
    EXPECT_EQ(describe(mirel::planAttempts(2, 0, true)), "u0pac u1pac");
}

TEST(AttemptOrder, PrefersTheListToThePacFile) { EXPECT_EQ(describe(mirel::planAttempts(1, 2, true)), "u0p0 u0p1"); }

TEST(AttemptOrder, UsesTheMachineSettingWithNeither)
{
    EXPECT_EQ(describe(mirel::planAttempts(3, 0, false)), "u0default u1default u2default");
}

TEST(AttemptOrder, PlansNothingWithoutUrls) { EXPECT_TRUE(mirel::planAttempts(0, 2, true).empty()); }

mirel::ProxyAddress proxy(const std::string& text)
{
    mirel::ProxyAddress p;
    std::string why;
    EXPECT_TRUE(mirel::parseProxy(text, p, why)) << text << ": " << why;
    return p;
}

std::string proxyRefusal(const std::string& text)
{
    mirel::ProxyAddress p;
    std::string why;
    EXPECT_FALSE(mirel::parseProxy(text, p, why)) << text;
    return why;
}

TEST(ProxyAddress, TakesHostAndPort)
{
    mirel::ProxyAddress p = proxy("Proxy.Example:3128");
    EXPECT_EQ(p.host, "proxy.example");
    EXPECT_EQ(p.port, 3128);
    EXPECT_EQ(p.text, "proxy.example:3128");
}

TEST(ProxyAddress, TakesTheHttpForm)
{
    EXPECT_EQ(proxy("http://127.0.0.1:8080").text, "127.0.0.1:8080");
    EXPECT_EQ(proxy("HTTP://127.0.0.1:8080/").text, "127.0.0.1:8080");
}

TEST(ProxyAddress, TakesABracketedIpv6Address)
{
    mirel::ProxyAddress p = proxy("[::1]:3128");
    EXPECT_EQ(p.host, "::1");
    EXPECT_EQ(p.text, "[::1]:3128");
}

TEST(ProxyAddress, RefusesAMissingPort)
{
    EXPECT_EQ(proxyRefusal("proxy.example"), "it names no port (host:port)");
    EXPECT_EQ(proxyRefusal("proxy.example:"), "its port is not a number from 1 to 65535");
}

TEST(ProxyAddress, RefusesABadPort)
{
    EXPECT_EQ(proxyRefusal("proxy:0"), "its port is not a number from 1 to 65535");
    EXPECT_EQ(proxyRefusal("proxy:70000"), "its port is not a number from 1 to 65535");
    EXPECT_EQ(proxyRefusal("proxy:80a"), "its port is not a number from 1 to 65535");
}

TEST(ProxyAddress, RefusesOtherSchemes)
{
    EXPECT_EQ(proxyRefusal("https://proxy:443"), "only http:// proxies are taken (WinHTTP tunnels TLS through them)");
    EXPECT_EQ(proxyRefusal("socks5://proxy:1080"), "only http:// proxies are taken (WinHTTP tunnels TLS through them)");
}

TEST(ProxyAddress, RefusesEmptyAndOddTexts)
{
    EXPECT_EQ(proxyRefusal(""), "it is empty");
    EXPECT_EQ(proxyRefusal(":3128"), "it names no host");
    EXPECT_EQ(proxyRefusal("user@proxy:3128"), "it holds a character a proxy address can't have");
    EXPECT_EQ(proxyRefusal("proxy :3128"), "it holds a character a proxy address can't have");
    EXPECT_EQ(proxyRefusal("a:1;b:2"), "it holds a character a proxy address can't have");
    EXPECT_EQ(proxyRefusal("::1:3128"), "an IPv6 proxy address needs brackets ([address]:port)");
}

TEST(PacAnswer, NamesTheProxiesInOrder)
{
    EXPECT_EQ(mirel::proxiesFromPacAnswer("a.example:3128;b.example:8080"),
              (std::vector<std::string>{"a.example:3128", "b.example:8080"}));
}

TEST(PacAnswer, LeavesOutTheKeywords)
{
    EXPECT_EQ(mirel::proxiesFromPacAnswer("PROXY a:1; PROXY b:2; DIRECT"), (std::vector<std::string>{"a:1", "b:2"}));
}

TEST(PacAnswer, IsEmptyForDirect)
{
    EXPECT_TRUE(mirel::proxiesFromPacAnswer("DIRECT").empty());
    EXPECT_TRUE(mirel::proxiesFromPacAnswer("").empty());
    EXPECT_TRUE(mirel::proxiesFromPacAnswer(" ; ").empty());
}

}  // namespace
