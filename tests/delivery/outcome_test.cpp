// Which failure a download reports when several attempts failed, and what
// WinHTTP's errors mean for the result code.
#include <gtest/gtest.h>

#include "Outcome.h"

namespace {

TEST(FailureTally, IsEmptyAtFirst)
{
    mirel::FailureTally tally;
    EXPECT_TRUE(tally.empty());
    EXPECT_EQ(tally.code(), 0);
}

TEST(FailureTally, KeepsACertificateFailureOverAPlainOne)
{
    mirel::FailureTally tally;
    tally.record(MIRELCLIENT_HTTP_CERTIFICATE_ERROR, "untrusted");
    tally.record(MIRELCLIENT_DOWNLOAD_FAILED, "refused");
    EXPECT_EQ(tally.code(), MIRELCLIENT_HTTP_CERTIFICATE_ERROR);
    EXPECT_EQ(tally.why(), "untrusted");
}

TEST(FailureTally, TakesAMoreTellingLaterFailure)
{
    mirel::FailureTally tally;
    tally.record(MIRELCLIENT_DOWNLOAD_FAILED, "404");
    tally.record(MIRELCLIENT_HTTP_CERTIFICATE_ERROR, "expired");
    tally.record(MIRELCLIENT_WRONG_SIZE_ERROR, "short");
    EXPECT_EQ(tally.code(), MIRELCLIENT_WRONG_SIZE_ERROR);
    tally.record(MIRELCLIENT_WRONG_CHECKSUM_ERROR, "sum");
    EXPECT_EQ(tally.code(), MIRELCLIENT_WRONG_CHECKSUM_ERROR);
    EXPECT_EQ(tally.why(), "sum");
}

TEST(FailureTally, KeepsTheFirstOfEquals)
{
    mirel::FailureTally tally;
    tally.record(MIRELCLIENT_DOWNLOAD_FAILED, "first URL: 404");
    tally.record(MIRELCLIENT_DOWNLOAD_FAILED, "second URL: refused");
    EXPECT_EQ(tally.why(), "first URL: 404");
}

TEST(FailureTally, IgnoresSuccess)
{
    mirel::FailureTally tally;
    tally.record(MIRELCLIENT_SUCCESS, "");
    EXPECT_TRUE(tally.empty());
}

TEST(FailureTally, RanksContentOverCertificateOverArchiveOverTransfer)
{
    EXPECT_GT(mirel::failureRank(MIRELCLIENT_WRONG_CHECKSUM_ERROR), mirel::failureRank(MIRELCLIENT_WRONG_SIZE_ERROR));
    EXPECT_GT(mirel::failureRank(MIRELCLIENT_WRONG_SIZE_ERROR), mirel::failureRank(MIRELCLIENT_HTTP_CERTIFICATE_ERROR));
    EXPECT_GT(mirel::failureRank(MIRELCLIENT_HTTP_CERTIFICATE_ERROR), mirel::failureRank(MIRELCLIENT_VERIFY_FAILED));
    EXPECT_GT(mirel::failureRank(MIRELCLIENT_VERIFY_FAILED), mirel::failureRank(MIRELCLIENT_DOWNLOAD_FAILED));
}

TEST(FailureTally, SkipsOtherRoutesOnlyForContentFailures)
{
    EXPECT_TRUE(mirel::skipsOtherRoutesOfUrl(MIRELCLIENT_WRONG_SIZE_ERROR));
    EXPECT_TRUE(mirel::skipsOtherRoutesOfUrl(MIRELCLIENT_WRONG_CHECKSUM_ERROR));
    EXPECT_FALSE(mirel::skipsOtherRoutesOfUrl(MIRELCLIENT_DOWNLOAD_FAILED));
    EXPECT_FALSE(mirel::skipsOtherRoutesOfUrl(MIRELCLIENT_HTTP_CERTIFICATE_ERROR));
}

TEST(WinHttpErrors, MapsTheSecureChannelErrorsToCertificate)
{
    // 12157 is what Wine gives for an untrusted CA or a wrong host.
    for (std::uint32_t error : {12157u, 12175u, 12037u, 12038u, 12045u, 12169u, 12170u, 12179u, 12057u})
        EXPECT_EQ(mirel::codeForWinHttpError(error), MIRELCLIENT_HTTP_CERTIFICATE_ERROR) << error;
}

TEST(WinHttpErrors, MapsConnectionErrorsToDownloadFailed)
{
    for (std::uint32_t error : {12002u, 12007u, 12029u, 12030u, 12152u, 10060u, 5u, 0u})
        EXPECT_EQ(mirel::codeForWinHttpError(error), MIRELCLIENT_DOWNLOAD_FAILED) << error;
}

TEST(WinHttpErrors, NamesKnownErrors)
{
    EXPECT_EQ(mirel::winHttpErrorText(12029), "12029 (cannot connect)");
    EXPECT_EQ(mirel::winHttpErrorText(12157), "12157 (secure channel error)");
    EXPECT_EQ(mirel::winHttpErrorText(4242), "4242");
}

TEST(ResultNames, SpellTheBoundaryNames)
{
    EXPECT_STREQ(mirel::resultName(0), "MIRELCLIENT_SUCCESS");
    EXPECT_STREQ(mirel::resultName(9), "MIRELCLIENT_HTTP_CERTIFICATE_ERROR");
    EXPECT_STREQ(mirel::resultName(12), "MIRELCLIENT_INVALID_URI_ERROR");
    EXPECT_STREQ(mirel::resultName(13), "unknown");
}

}  // namespace
