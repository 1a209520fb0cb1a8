// Thumbprints as administrators give them, and matching them to a chain.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Thumbprints.h"

namespace {

std::vector<std::uint8_t> bytes(std::initializer_list<int> values)
{
    std::vector<std::uint8_t> out;
    for (int v : values)
        out.push_back(static_cast<std::uint8_t>(v));
    return out;
}

std::vector<std::uint8_t> repeated(std::uint8_t value, std::size_t count)
{
    return std::vector<std::uint8_t>(count, value);
}

TEST(Thumbprints, ParsesSha1Hex)
{
    mirel::Thumbprint t;
    std::string why;
    ASSERT_TRUE(mirel::parseThumbprint("535643D3734B2C8C7FA9750B62C743CF63EA0B7B", t, why)) << why;
    ASSERT_EQ(t.digest.size(), 20u);
    EXPECT_EQ(t.digest[0], 0x53);
    EXPECT_EQ(t.digest[19], 0x7B);
}

TEST(Thumbprints, ParsesSha256Hex)
{
    mirel::Thumbprint t;
    std::string why;
    ASSERT_TRUE(mirel::parseThumbprint(std::string(64, 'a'), t, why)) << why;
    EXPECT_EQ(t.digest, repeated(0xaa, 32));
}

TEST(Thumbprints, IgnoresCaseAndBlanks)
{
    mirel::Thumbprint upper, mixed;
    std::string why;
    ASSERT_TRUE(mirel::parseThumbprint("535643D3734B2C8C7FA9750B62C743CF63EA0B7B", upper, why)) << why;
    ASSERT_TRUE(mirel::parseThumbprint(" 53 56 43 d3 73 4b 2c 8c 7f a9\t75 0b 62 c7 43 cf 63 ea 0b 7b ", mixed, why))
        << why;
    EXPECT_EQ(upper.digest, mixed.digest);
}

TEST(Thumbprints, RefusesAWrongLength)
{
    mirel::Thumbprint t;
    std::string why;
    EXPECT_FALSE(mirel::parseThumbprint(std::string(39, 'a'), t, why));
    EXPECT_EQ(why, "it has 39 hex digits; a SHA-1 thumbprint has 40, a SHA-256 one 64");
    EXPECT_FALSE(mirel::parseThumbprint(std::string(41, 'a'), t, why));
    EXPECT_FALSE(mirel::parseThumbprint(std::string(128, 'a'), t, why));
    EXPECT_FALSE(mirel::parseThumbprint("", t, why));
    EXPECT_EQ(why, "it has 0 hex digits; a SHA-1 thumbprint has 40, a SHA-256 one 64");
    EXPECT_FALSE(mirel::parseThumbprint("   ", t, why));
}

TEST(Thumbprints, RefusesNonHex)
{
    mirel::Thumbprint t;
    std::string why;
    EXPECT_FALSE(mirel::parseThumbprint("53:56:43:D3:73:4B:2C:8C:7F:A9:75:0B:62:C7:43:CF:63:EA:0B:7B", t, why));
    EXPECT_EQ(why, "it holds a character that is no hex digit (byte 0x3a at position 3)");
    EXPECT_FALSE(mirel::parseThumbprint(std::string(39, 'a') + "g", t, why));
    EXPECT_EQ(why, "it holds a character that is no hex digit (byte 0x67 at position 40)");
}

TEST(Thumbprints, RefusesAnInvisibleMarkCopiedWithIt)
{
    // U+200E, which certificate dialogs put before a copied thumbprint.
    mirel::Thumbprint t;
    std::string why;
    EXPECT_FALSE(mirel::parseThumbprint("\xE2\x80\x8E" + std::string(40, 'a'), t, why));
    EXPECT_EQ(why, "it holds a character that is no hex digit (byte 0xe2 at position 1)");
}

mirel::CertificateDigests cert(std::uint8_t sha1Byte, std::uint8_t sha256Byte)
{
    mirel::CertificateDigests d;
    d.sha1 = repeated(sha1Byte, 20);
    d.sha256 = repeated(sha256Byte, 32);
    return d;
}

TEST(Thumbprints, FindsASha1PinAnywhereInTheChain)
{
    std::vector<mirel::CertificateDigests> chain = {cert(1, 2), cert(3, 4), cert(5, 6)};
    std::vector<mirel::Thumbprint> pins = {mirel::Thumbprint{repeated(5, 20)}};
    EXPECT_EQ(mirel::findPinned(pins, chain), 2);
}

TEST(Thumbprints, FindsASha256Pin)
{
    std::vector<mirel::CertificateDigests> chain = {cert(1, 2), cert(3, 4)};
    std::vector<mirel::Thumbprint> pins = {mirel::Thumbprint{repeated(9, 20)}, mirel::Thumbprint{repeated(4, 32)}};
    EXPECT_EQ(mirel::findPinned(pins, chain), 1);
}

TEST(Thumbprints, DoesNotMatchASha1PinAgainstASha256Digest)
{
    // The first 20 bytes of a SHA-256 digest are no SHA-1 thumbprint.
    std::vector<mirel::CertificateDigests> chain = {cert(1, 7)};
    std::vector<mirel::Thumbprint> pins = {mirel::Thumbprint{repeated(7, 20)}};
    EXPECT_EQ(mirel::findPinned(pins, chain), -1);
}

TEST(Thumbprints, FindsNothingWithoutPinsOrChain)
{
    std::vector<mirel::CertificateDigests> chain = {cert(1, 2)};
    EXPECT_EQ(mirel::findPinned({}, chain), -1);
    EXPECT_EQ(mirel::findPinned({mirel::Thumbprint{repeated(1, 20)}}, {}), -1);
}

TEST(Thumbprints, TakesTheFirstCertificateThatMatches)
{
    std::vector<mirel::CertificateDigests> chain = {cert(1, 2), cert(1, 3)};
    EXPECT_EQ(mirel::findPinned(
                  {mirel::Thumbprint{bytes({1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1})}}, chain),
              0);
}

}  // namespace
