// Whether a certificate's names cover the host the client asked for.
#include <gtest/gtest.h>

#include "HostName.h"

namespace {

TEST(DnsName, MatchesExactlyWithoutCase)
{
    EXPECT_TRUE(mirel::dnsNameMatches("LocalHost", "localhost"));
    EXPECT_TRUE(mirel::dnsNameMatches("download.example.com", "DOWNLOAD.example.com"));
    EXPECT_FALSE(mirel::dnsNameMatches("download.example.com", "example.com"));
    EXPECT_FALSE(mirel::dnsNameMatches("", "localhost"));
}

TEST(DnsName, IgnoresATrailingDot)
{
    EXPECT_TRUE(mirel::dnsNameMatches("localhost.", "localhost"));
    EXPECT_TRUE(mirel::dnsNameMatches("localhost", "localhost."));
}

TEST(DnsName, MatchesAWildcardForOneLabel)
{
    EXPECT_TRUE(mirel::dnsNameMatches("*.example.com", "a.example.com"));
    EXPECT_FALSE(mirel::dnsNameMatches("*.example.com", "example.com"));
    EXPECT_FALSE(mirel::dnsNameMatches("*.example.com", "a.b.example.com"));
    EXPECT_FALSE(mirel::dnsNameMatches("*.example.com", ".example.com"));
}

TEST(DnsName, RefusesWideAndPartialWildcards)
{
    EXPECT_FALSE(mirel::dnsNameMatches("*.com", "example.com"));
    EXPECT_FALSE(mirel::dnsNameMatches("*", "localhost"));
    EXPECT_FALSE(mirel::dnsNameMatches("f*.example.com", "foo.example.com"));
    EXPECT_FALSE(mirel::dnsNameMatches("a.*.example.com", "a.b.example.com"));
    EXPECT_FALSE(mirel::dnsNameMatches("*.*.example.com", "a.b.example.com"));
}

TEST(CertificateHost, UsesTheDnsNames)
{
    mirel::CertificateNames names;
    names.dnsNames = {"other.example", "localhost"};
    names.commonName = "nobody.example";
    EXPECT_TRUE(mirel::certificateNamesHost(names, "localhost", false));
    EXPECT_FALSE(mirel::certificateNamesHost(names, "nobody.example", false));
}

TEST(CertificateHost, FallsBackToTheCommonNameWithoutDnsNames)
{
    mirel::CertificateNames names;
    names.commonName = "localhost";
    EXPECT_TRUE(mirel::certificateNamesHost(names, "localhost", false));
    names.commonName = "*.example.com";
    EXPECT_FALSE(mirel::certificateNamesHost(names, "a.example.com", false));
}

TEST(CertificateHost, MatchesAnAddressOnlyAgainstAddressEntries)
{
    mirel::CertificateNames names;
    names.dnsNames = {"127.0.0.1"};
    EXPECT_FALSE(mirel::certificateNamesHost(names, "127.0.0.1", true));
    names.addresses = {{127, 0, 0, 1}};
    EXPECT_TRUE(mirel::certificateNamesHost(names, "127.0.0.1", true));
    EXPECT_FALSE(mirel::certificateNamesHost(names, "127.0.0.2", true));
}

TEST(CertificateHost, MatchesAnIpv6Address)
{
    mirel::CertificateNames names;
    std::vector<std::uint8_t> loopback(16, 0);
    loopback[15] = 1;
    names.addresses = {loopback};
    EXPECT_TRUE(mirel::certificateNamesHost(names, "::1", true));
    EXPECT_TRUE(mirel::certificateNamesHost(names, "0:0:0:0:0:0:0:1", true));
    EXPECT_FALSE(mirel::certificateNamesHost(names, "::2", true));
}

TEST(AddressBytes, ReadsIpv4AndIpv6)
{
    EXPECT_EQ(mirel::addressBytes("10.1.2.3"), (std::vector<std::uint8_t>{10, 1, 2, 3}));
    EXPECT_EQ(mirel::addressBytes("2001:db8::ff00:42:8329"),
              (std::vector<std::uint8_t>{0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0xff, 0, 0, 0x42, 0x83, 0x29}));
    EXPECT_EQ(mirel::addressBytes("::ffff:10.0.0.1"),
              (std::vector<std::uint8_t>{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 10, 0, 0, 1}));
}

TEST(AddressBytes, IsEmptyForNonAddresses)
{
    EXPECT_TRUE(mirel::addressBytes("localhost").empty());
    EXPECT_TRUE(mirel::addressBytes("1.2.3").empty());
    EXPECT_TRUE(mirel::addressBytes("1.2.3.256").empty());
    EXPECT_TRUE(mirel::addressBytes("1::2::3").empty());
    EXPECT_TRUE(mirel::addressBytes("1:2:3:4:5:6:7:8:9").empty());
}

}  // namespace
