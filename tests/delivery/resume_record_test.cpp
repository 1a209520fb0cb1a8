// Resuming: the record beside a partial file, the decision to continue or
// start over, and the reading of the server's answer to a range request.
#include <gtest/gtest.h>

#include <cctype>
#include <string>

#include "ResumeRecord.h"

namespace {

const std::string kUrl = "https://localhost:8443/agent.msi";
const std::string kSum = "5c40920a628830206274ce7283398cba14c262c69f1e8ebb9b3b61d7b5286b9f";

mirel::PartialRecord record()
{
    mirel::PartialRecord r;
    r.url = kUrl;
    r.checksum = kSum;
    r.etag = "\"5f3a-1000\"";
    r.lastModified = "Mon, 23 Nov 2026 10:00:00 GMT";
    r.bytes = 4096;
    r.total = 10000;
    r.acceptRanges = true;
    return r;
}

TEST(PartialRecordText, IsKeyValueLines)
{
    std::string text;
    ASSERT_TRUE(mirel::serializeRecord(record(), text));
    EXPECT_EQ(text,
              "mirelclient partial record 1\r\n"
              "url=https://localhost:8443/agent.msi\r\n"
              "checksum=5c40920a628830206274ce7283398cba14c262c69f1e8ebb9b3b61d7b5286b9f\r\n"
              "etag=\"5f3a-1000\"\r\n"
              "last-modified=Mon, 23 Nov 2026 10:00:00 GMT\r\n"
              "bytes=4096\r\n"
              "total=10000\r\n"
              "accept-ranges=bytes\r\n");
}

TEST(PartialRecordText, ReadsWhatItWrote)
{
    const std::string text =
        "mirelclient partial record 1\r\nurl=https://h/a?x=1\r\nchecksum=\r\netag=W/\"x\"\r\nlast-modified=\r\n"
        "bytes=12\r\ntotal=0\r\naccept-ranges=none\r\n";
    mirel::PartialRecord r;
    std::string why;
    ASSERT_TRUE(mirel::parseRecord(text, r, why)) << why;
    EXPECT_EQ(r.url, "https://h/a?x=1");
    EXPECT_EQ(r.checksum, "");
    EXPECT_EQ(r.etag, "W/\"x\"");
    EXPECT_EQ(r.bytes, 12u);
    EXPECT_EQ(r.total, 0u);
    EXPECT_FALSE(r.acceptRanges);
}

TEST(PartialRecordText, RefusesToKeepALineBreak)
{
    mirel::PartialRecord r = record();
    r.etag = "\"a\r\nurl=https://elsewhere/\"";
    std::string text;
    EXPECT_FALSE(mirel::serializeRecord(r, text));
}

TEST(PartialRecordText, RefusesForeignOrDamagedText)
{
    mirel::PartialRecord r;
    std::string why;
    EXPECT_FALSE(mirel::parseRecord("", r, why));
    EXPECT_EQ(why, "it doesn't start with \"mirelclient partial record 1\"");
    EXPECT_FALSE(mirel::parseRecord("mirelclient partial record 1\r\nurl=x\r\nbytes=1", r, why));
    EXPECT_EQ(why, "its last line is cut off");
    EXPECT_FALSE(mirel::parseRecord("mirelclient partial record 1\r\nurl=x\r\n", r, why));
    EXPECT_EQ(why, "it lacks one of url, bytes, total and accept-ranges");
    EXPECT_FALSE(mirel::parseRecord("mirelclient partial record 1\r\nurl=x\r\nbytes=-1\r\n", r, why));
    EXPECT_EQ(why, "bytes is not a number");
    EXPECT_FALSE(mirel::parseRecord("mirelclient partial record 1\r\nnonsense\r\n", r, why));
    EXPECT_EQ(why, "line 2 has no '='");
    EXPECT_FALSE(mirel::parseRecord(
        "mirelclient partial record 1\r\nurl=x\r\nbytes=1\r\ntotal=2\r\naccept-ranges=maybe\r\n", r, why));
    EXPECT_EQ(why, "accept-ranges is neither bytes nor none");
}

TEST(ResumeDecision, ResumesTheSameUrlAndChecksumFromTheFileSize)
{
    mirel::ResumePlan plan = mirel::planResume(true, 5000, true, record(), kUrl, kSum);
    EXPECT_TRUE(plan.resume);
    EXPECT_EQ(plan.offset, 5000u);
    EXPECT_EQ(plan.ifRange, "\"5f3a-1000\"");
}

TEST(ResumeDecision, ComparesTheChecksumWithoutCase)
{
    std::string upper = kSum;
    for (char& c : upper)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    EXPECT_TRUE(mirel::planResume(true, 5000, true, record(), kUrl, upper).resume);
}

TEST(ResumeDecision, SendsLastModifiedWhenTheEtagIsWeakOrMissing)
{
    mirel::PartialRecord r = record();
    r.etag = "W/\"5f3a\"";
    mirel::ResumePlan plan = mirel::planResume(true, 5000, true, r, kUrl, kSum);
    EXPECT_TRUE(plan.resume);
    EXPECT_EQ(plan.ifRange, "Mon, 23 Nov 2026 10:00:00 GMT");
    r.etag.clear();
    EXPECT_EQ(mirel::planResume(true, 5000, true, r, kUrl, kSum).ifRange, "Mon, 23 Nov 2026 10:00:00 GMT");
}

TEST(ResumeDecision, StartsWithoutAPartialFile)
{
    mirel::ResumePlan plan = mirel::planResume(false, 0, false, mirel::PartialRecord{}, kUrl, kSum);
    EXPECT_FALSE(plan.resume);
    EXPECT_EQ(plan.why, "no partial file");
}

TEST(ResumeDecision, StartsOverWithoutARecord)
{
    mirel::ResumePlan plan = mirel::planResume(true, 5000, false, mirel::PartialRecord{}, kUrl, kSum);
    EXPECT_FALSE(plan.resume);
    EXPECT_EQ(plan.why, "the partial file has no readable record");
}

TEST(ResumeDecision, StartsOverForAnotherUrl)
{
    mirel::ResumePlan plan = mirel::planResume(true, 5000, true, record(), "https://mirror/agent.msi", kSum);
    EXPECT_FALSE(plan.resume);
    EXPECT_EQ(plan.why, "the partial file came from another URL (https://localhost:8443/agent.msi)");
}

TEST(ResumeDecision, StartsOverForAnotherChecksum)
{
    mirel::ResumePlan plan = mirel::planResume(true, 5000, true, record(), kUrl, std::string(64, '0'));
    EXPECT_FALSE(plan.resume);
    EXPECT_EQ(plan.why, "the partial file was fetched for another checksum");
}

TEST(ResumeDecision, StartsOverWhenTheServerTookNoRanges)
{
    mirel::PartialRecord r = record();
    r.acceptRanges = false;
    mirel::ResumePlan plan = mirel::planResume(true, 5000, true, r, kUrl, kSum);
    EXPECT_FALSE(plan.resume);
    EXPECT_EQ(plan.why, "the server did not offer byte ranges");
}

TEST(ResumeDecision, StartsOverWithoutAValidator)
{
    mirel::PartialRecord r = record();
    r.etag = "W/\"weak\"";
    r.lastModified.clear();
    mirel::ResumePlan plan = mirel::planResume(true, 5000, true, r, kUrl, kSum);
    EXPECT_FALSE(plan.resume);
    EXPECT_EQ(plan.why,
              "the server gave neither a strong ETag nor a Last-Modified date to check the partial file against");
}

TEST(ResumeDecision, StartsOverForAnEmptyFile)
{
    mirel::PartialRecord r = record();
    r.bytes = 0;
    EXPECT_EQ(mirel::planResume(true, 0, true, r, kUrl, kSum).why, "the partial file is empty");
}

TEST(ResumeDecision, StartsOverWhenTheFileShrank)
{
    mirel::ResumePlan plan = mirel::planResume(true, 4000, true, record(), kUrl, kSum);
    EXPECT_FALSE(plan.resume);
    EXPECT_EQ(plan.why, "the partial file holds 4000 bytes, fewer than the 4096 recorded");
}

TEST(ResumeDecision, StartsOverWhenTheFileHoldsMoreThanTheWhole)
{
    mirel::ResumePlan plan = mirel::planResume(true, 10001, true, record(), kUrl, kSum);
    EXPECT_FALSE(plan.resume);
    EXPECT_EQ(plan.why, "the partial file holds more bytes than the whole payload");
}

TEST(ResumeDecision, AsksForTheLastByteWhenTheFileIsComplete)
{
    mirel::ResumePlan plan = mirel::planResume(true, 10000, true, record(), kUrl, kSum);
    EXPECT_TRUE(plan.resume);
    EXPECT_EQ(plan.offset, 10000u);
}

TEST(ContentRangeHeader, ReadsARange)
{
    mirel::ContentRange r;
    ASSERT_TRUE(mirel::parseContentRange("bytes 5000-9999/10000", r));
    EXPECT_FALSE(r.unsatisfied);
    EXPECT_EQ(r.first, 5000u);
    EXPECT_EQ(r.last, 9999u);
    EXPECT_EQ(r.total, 10000u);
    EXPECT_TRUE(r.totalKnown);
}

TEST(ContentRangeHeader, ReadsAnUnknownTotal)
{
    mirel::ContentRange r;
    ASSERT_TRUE(mirel::parseContentRange("bytes 0-9/*", r));
    EXPECT_FALSE(r.totalKnown);
}

TEST(ContentRangeHeader, ReadsAnUnsatisfiedRange)
{
    mirel::ContentRange r;
    ASSERT_TRUE(mirel::parseContentRange("bytes */10000", r));
    EXPECT_TRUE(r.unsatisfied);
    EXPECT_EQ(r.total, 10000u);
}

TEST(ContentRangeHeader, RefusesMalformedValues)
{
    mirel::ContentRange r;
    EXPECT_FALSE(mirel::parseContentRange("", r));
    EXPECT_FALSE(mirel::parseContentRange("items 0-1/2", r));
    EXPECT_FALSE(mirel::parseContentRange("bytes 9-5/10", r));
    EXPECT_FALSE(mirel::parseContentRange("bytes 0-10/10", r));
    EXPECT_FALSE(mirel::parseContentRange("bytes */*", r));
    EXPECT_FALSE(mirel::parseContentRange("bytes -5/10", r));
    EXPECT_FALSE(mirel::parseContentRange("bytes 0-5", r));
}

mirel::Validators sameValidators() { return mirel::Validators{"\"5f3a-1000\"", "Mon, 23 Nov 2026 10:00:00 GMT"}; }

TEST(RangeAnswer, ContinuesA206FromTheOffset)
{
    mirel::RangeJudgement j = mirel::judgeRangeAnswer(206, "bytes 5000-9999/10000", sameValidators(), record(), 5000);
    EXPECT_EQ(j.verdict, mirel::RangeVerdict::Continue);
}

TEST(RangeAnswer, TakesA200AsTheWholePayload)
{
    mirel::RangeJudgement j = mirel::judgeRangeAnswer(200, "", sameValidators(), record(), 5000);
    EXPECT_EQ(j.verdict, mirel::RangeVerdict::UseAsWhole);
    EXPECT_EQ(j.why, "the server answered the range request with the whole payload (200)");
}

TEST(RangeAnswer, AsksAgainForAnotherStart)
{
    mirel::RangeJudgement j = mirel::judgeRangeAnswer(206, "bytes 0-9999/10000", sameValidators(), record(), 5000);
    EXPECT_EQ(j.verdict, mirel::RangeVerdict::AskAgainWhole);
    EXPECT_EQ(j.why, "the server sent a range from byte 0 instead of 5000");
}

TEST(RangeAnswer, AsksAgainWhenTheSizeChanged)
{
    mirel::RangeJudgement j = mirel::judgeRangeAnswer(206, "bytes 5000-10999/11000", sameValidators(), record(), 5000);
    EXPECT_EQ(j.verdict, mirel::RangeVerdict::AskAgainWhole);
    EXPECT_EQ(j.why, "the payload's size changed from 10000 to 11000 bytes");
}

TEST(RangeAnswer, AsksAgainWhenTheEtagChanged)
{
    mirel::Validators other{"\"other\"", ""};
    mirel::RangeJudgement j = mirel::judgeRangeAnswer(206, "bytes 5000-9999/10000", other, record(), 5000);
    EXPECT_EQ(j.verdict, mirel::RangeVerdict::AskAgainWhole);
    EXPECT_EQ(j.why, "the server's ETag changed");
}

TEST(RangeAnswer, AsksAgainWhenLastModifiedChangedWithoutStrongEtag)
{
    mirel::PartialRecord r = record();
    r.etag.clear();
    mirel::Validators other{"", "Tue, 24 Nov 2026 10:00:00 GMT"};
    mirel::RangeJudgement j = mirel::judgeRangeAnswer(206, "bytes 5000-9999/10000", other, r, 5000);
    EXPECT_EQ(j.verdict, mirel::RangeVerdict::AskAgainWhole);
    EXPECT_EQ(j.why, "the server's Last-Modified date changed");
}

TEST(RangeAnswer, AsksAgainForAnUnreadableRange)
{
    mirel::RangeJudgement j = mirel::judgeRangeAnswer(206, "garbage", sameValidators(), record(), 5000);
    EXPECT_EQ(j.verdict, mirel::RangeVerdict::AskAgainWhole);
    EXPECT_EQ(j.why, "the server's Content-Range \"garbage\" can't be read");
}

TEST(RangeAnswer, FindsTheFileCompleteOn416)
{
    mirel::RangeJudgement j = mirel::judgeRangeAnswer(416, "bytes */10000", sameValidators(), record(), 10000);
    EXPECT_EQ(j.verdict, mirel::RangeVerdict::AlreadyComplete);
}

TEST(RangeAnswer, AsksAgainOn416ForAnotherSize)
{
    EXPECT_EQ(mirel::judgeRangeAnswer(416, "bytes */9000", sameValidators(), record(), 10000).verdict,
              mirel::RangeVerdict::AskAgainWhole);
    EXPECT_EQ(mirel::judgeRangeAnswer(416, "", sameValidators(), record(), 10000).verdict,
              mirel::RangeVerdict::AskAgainWhole);
}

TEST(RangeAnswer, LeavesOtherStatusesToTheAttempt)
{
    EXPECT_EQ(mirel::judgeRangeAnswer(404, "", sameValidators(), record(), 5000).verdict,
              mirel::RangeVerdict::NotARangeAnswer);
    EXPECT_EQ(mirel::judgeRangeAnswer(500, "", sameValidators(), record(), 5000).verdict,
              mirel::RangeVerdict::NotARangeAnswer);
}

TEST(StrongEtag, IsQuotedWithoutWeakPrefix)
{
    EXPECT_TRUE(mirel::isStrongEtag("\"abc\""));
    EXPECT_FALSE(mirel::isStrongEtag("W/\"abc\""));
    EXPECT_FALSE(mirel::isStrongEtag("abc"));
    EXPECT_FALSE(mirel::isStrongEtag("\""));
    EXPECT_FALSE(mirel::isStrongEtag(""));
}

}  // namespace
