// SHA-256 and SHA-1 through CNG, checked against the published test vectors,
// and the expected checksum's form.
#include <gtest/gtest.h>

#include <string>

#include "Digest.h"
#include "TextUtil.h"

namespace {

// FIPS 180-2 examples.
const char kAbc256[] = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
const char kAbc1[] = "a9993e364706816aba3e25717850c26c9cd0d89d";
const char kEmpty256[] = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
const char kTwoBlocks256[] = "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1";

TEST(Sha256Stream, HashesAbc)
{
    mirel::Sha256 hash;
    ASSERT_TRUE(hash.ready());
    ASSERT_TRUE(hash.update("abc", 3));
    EXPECT_EQ(mirel::toHex(hash.finish()), kAbc256);
}

TEST(Sha256Stream, HashesNothing)
{
    mirel::Sha256 hash;
    EXPECT_EQ(mirel::toHex(hash.finish()), kEmpty256);
}

TEST(Sha256Stream, GivesTheSameDigestInPieces)
{
    const std::string text = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
    mirel::Sha256 hash;
    for (char c : text)
        ASSERT_TRUE(hash.update(&c, 1));
    EXPECT_EQ(mirel::toHex(hash.finish()), kTwoBlocks256);
}

TEST(Sha256Stream, StartsOverOnReset)
{
    mirel::Sha256 hash;
    hash.update("xyz", 3);
    ASSERT_TRUE(hash.reset());
    hash.update("abc", 3);
    EXPECT_EQ(mirel::toHex(hash.finish()), kAbc256);
}

TEST(OneShotDigest, GivesSha1AndSha256)
{
    EXPECT_EQ(mirel::toHex(mirel::digestOf(mirel::DigestKind::Sha1, "abc", 3)), kAbc1);
    EXPECT_EQ(mirel::toHex(mirel::digestOf(mirel::DigestKind::Sha256, "abc", 3)), kAbc256);
}

TEST(ExpectedChecksum, TakesHexInAnyCaseWithBlanksAround)
{
    std::string lower, why;
    ASSERT_TRUE(
        mirel::parseChecksum("  BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD\t", lower, why))
        << why;
    EXPECT_EQ(lower, kAbc256);
}

TEST(ExpectedChecksum, RefusesAWrongLength)
{
    std::string lower, why;
    EXPECT_FALSE(mirel::parseChecksum(std::string(63, 'a'), lower, why));
    EXPECT_EQ(why, "it has 63 characters; a SHA-256 checksum is 64 hex digits");
    EXPECT_FALSE(mirel::parseChecksum(kAbc1, lower, why));
}

TEST(ExpectedChecksum, RefusesNonHex)
{
    std::string lower, why;
    EXPECT_FALSE(mirel::parseChecksum(std::string(63, 'a') + "z", lower, why));
    EXPECT_EQ(why, "character 64 is no hex digit");
    EXPECT_FALSE(mirel::parseChecksum(std::string(32, 'a') + " " + std::string(31, 'a'), lower, why));
    EXPECT_EQ(why, "character 33 is no hex digit");
}

}  // namespace
