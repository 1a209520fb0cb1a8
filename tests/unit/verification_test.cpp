// The two checks of a copied payload: its size against "FILESIZE" as text,
// and its SHA-256 through the platform's hash service against "CHECKSUM".
#include "fetch/Verification.h"

#include <gtest/gtest.h>

#include "fetch_test_support.h"

using namespace fetch_test;
using Op = fakes::FakeHashing::Op;

namespace {

const wchar_t* const kFile = L"C:\\Windows\\Temp\\payload.bin";

std::wstring hexOf(const std::vector<unsigned char>& digest)
{
    static const wchar_t kHex[] = L"0123456789abcdef";
    std::wstring text;
    for (unsigned char b : digest) {
        text.push_back(kHex[b >> 4]);
        text.push_back(kHex[b & 15]);
    }
    return text;
}

class Verification : public FetchTest {
protected:
    const UpdateRecord& r = g_updateRecord;

    void payload(const std::string& bytes) { p.files.addFile(kFile, bytes); }

    // The digest of the file, or nothing when the computation failed.
    std::optional<std::wstring> digestOf(const wchar_t* file)
    {
        std::vector<unsigned char> digest;
        if (!Util_ComputeCheckSum(file, digest))
            return std::nullopt;
        return hexOf(digest);
    }
};

// --- Util_CompareFileSize ---------------------------------------------------------

TEST_F(Verification, SizeEqualToTheTextPasses)
{
    payload("0123456789abcdef");
    g_updateRecord.sFileSize = L"16";
    EXPECT_TRUE(Util_CompareFileSize(kFile));
    EXPECT_TRUE(r.sErrorCode.empty());
    EXPECT_TRUE(linesOf({L"Util_CompareFileSize"}).empty());
    EXPECT_EQ(0, p.files.openHandles());
}

TEST_F(Verification, SizeCheckOpensForSharedReading)
{
    payload("abc");
    Util_CompareFileSize(kFile);
    std::vector<RecordingFiles::Open> opens = files.opensFor(kFile);
    ASSERT_EQ(1u, opens.size());
    EXPECT_EQ(static_cast<DWORD>(GENERIC_READ), opens[0].access);
    EXPECT_EQ(static_cast<DWORD>(FILE_SHARE_READ), opens[0].share);
    EXPECT_EQ(static_cast<DWORD>(OPEN_EXISTING), opens[0].disposition);
    EXPECT_EQ(static_cast<DWORD>(FILE_ATTRIBUTE_NORMAL), opens[0].attributes);
    EXPECT_FALSE(files.sizeHighAsked);
}

TEST_F(Verification, ZeroLengthFilePassesWithSizeZero)
{
    payload("");
    g_updateRecord.sFileSize = L"0";
    EXPECT_TRUE(Util_CompareFileSize(kFile));
}

TEST_F(Verification, DifferentSizeFailsWithBothTextsInTheLog)
{
    payload("abc");
    g_updateRecord.sFileSize = L"4";
    EXPECT_FALSE(Util_CompareFileSize(kFile));
    EXPECT_STREQ(L"UNC_COPIED_FILE_SIZE_MISMATCH_ERROR", r.sErrorCode.c_str());
    EXPECT_STREQ(L"Filesize mismatch error", r.sErrorDesc.c_str());
    EXPECT_EQ(std::vector<std::wstring>{L"Util_CompareFileSize: Copied file size do not match with source file, "
                                        L"expected filesize:4 , computed filesize: 3"},
              linesOf({L"Util_CompareFileSize"}));
    EXPECT_EQ(0, p.files.openHandles());
}

TEST_F(Verification, SizeIsComparedAsText)
{
    payload(std::string(16, 'x'));
    for (const wchar_t* text : {L"0x10", L"016", L" 16", L"16 ", L"+16", L"16.0", L"1e1", L""}) {
        SCOPED_TRACE(std::wstring(L"[") + text + L"]");
        g_updateRecord.sErrorCode = L"";
        g_updateRecord.sFileSize = text;
        EXPECT_FALSE(Util_CompareFileSize(kFile));
        EXPECT_STREQ(L"UNC_COPIED_FILE_SIZE_MISMATCH_ERROR", r.sErrorCode.c_str());
    }
    EXPECT_TRUE(p.logHas(L"Util_CompareFileSize: Copied file size do not match with source file, expected "
                         L"filesize:0x10 , computed filesize: 16"));
}

TEST_F(Verification, EmptyFileSizeAlwaysFails)
{
    payload("");
    g_updateRecord.sFileSize = corestring();
    EXPECT_FALSE(Util_CompareFileSize(kFile));
    EXPECT_STREQ(L"UNC_COPIED_FILE_SIZE_MISMATCH_ERROR", r.sErrorCode.c_str());
    EXPECT_TRUE(p.logHas(L"Util_CompareFileSize: Copied file size do not match with source file, expected "
                         L"filesize: , computed filesize: 0"));
}

TEST_F(Verification, OnlyTheLow32BitsOfTheSizeCount)
{
    // A file of 4 GiB + 100 bytes: the high part is never asked for.
    payload("abc");
    files.sizeOverride = 100;
    g_updateRecord.sFileSize = L"100";
    EXPECT_TRUE(Util_CompareFileSize(kFile));
    EXPECT_FALSE(files.sizeHighAsked);
    g_updateRecord.sFileSize = L"4294967396";
    EXPECT_FALSE(Util_CompareFileSize(kFile));
}

TEST_F(Verification, MissingFileFailsGettingTheSize)
{
    g_updateRecord.sFileSize = L"3";
    EXPECT_FALSE(Util_CompareFileSize(kFile));
    EXPECT_STREQ(L"UNC_FAILED_GETTING_FILE_SIZE_ERROR", r.sErrorCode.c_str());
    EXPECT_STREQ(L"Internal file size computation error", r.sErrorDesc.c_str());
    EXPECT_EQ(std::vector<std::wstring>{L"Util_CompareFileSize: Failed to get copied file size."},
              linesOf({L"Util_CompareFileSize"}));
    // The failed open isn't looked at: the size call is still made.
    EXPECT_EQ(1, files.sizeCalls);
}

TEST_F(Verification, SizeOfAllOnesCountsAsUnreadable)
{
    payload("abc");
    files.sizeOverride = INVALID_FILE_SIZE;
    g_updateRecord.sFileSize = L"4294967295";
    EXPECT_FALSE(Util_CompareFileSize(kFile));
    EXPECT_STREQ(L"UNC_FAILED_GETTING_FILE_SIZE_ERROR", r.sErrorCode.c_str());
    EXPECT_EQ(0, p.files.openHandles());
}

// --- Util_ComputeCheckSum ------------------------------------------------------------

TEST_F(Verification, DigestOfAbc)
{
    payload("abc");
    EXPECT_EQ(std::optional<std::wstring>(kDigestOfAbc), digestOf(kFile));
    EXPECT_TRUE(r.sErrorCode.empty());
    EXPECT_TRUE(linesOf({L"Util_ComputeCheckSum"}).empty());
}

TEST_F(Verification, DigestOfTheLongerStandardVector)
{
    payload(k448Bits);
    EXPECT_EQ(std::optional<std::wstring>(kDigestOf448Bits), digestOf(kFile));
}

TEST_F(Verification, ZeroLengthFileIsOneEmptyReadAndTheDigestOfNothing)
{
    payload("");
    EXPECT_EQ(std::optional<std::wstring>(kDigestOfNothing), digestOf(kFile));
    EXPECT_EQ(std::vector<DWORD>{4096}, files.readSizes);
    EXPECT_TRUE(p.hashing.hashSizes.empty());
}

TEST_F(Verification, FileIsStreamedInPiecesOf4096Bytes)
{
    // One million "a": 244 full pieces and 576 bytes.
    payload(std::string(1000000, 'a'));
    EXPECT_EQ(std::optional<std::wstring>(kDigestOfMillionA), digestOf(kFile));
    std::vector<ULONG> expected(244, 4096);
    expected.push_back(576);
    EXPECT_EQ(expected, p.hashing.hashSizes);
    // Every read asks for 4096 bytes; the last one finds the end.
    EXPECT_EQ(std::vector<DWORD>(246, 4096), files.readSizes);
}

TEST_F(Verification, HashServiceIsAskedForSha256AsDocumented)
{
    payload("abc");
    ASSERT_TRUE(digestOf(kFile).has_value());
    EXPECT_EQ(std::vector<std::wstring>{L"SHA256"}, p.hashing.algorithmIds);
    EXPECT_EQ(std::vector<bool>{false}, p.hashing.implementationGiven);
    EXPECT_EQ(std::vector<ULONG>{0}, p.hashing.openFlags);
    EXPECT_EQ(std::vector<std::wstring>{L"HashDigestLength"}, p.hashing.properties);
    ASSERT_EQ(1u, p.hashing.creates.size());
    EXPECT_FALSE(p.hashing.creates[0].objectGiven);
    EXPECT_EQ(0u, p.hashing.creates[0].objectSize);
    EXPECT_FALSE(p.hashing.creates[0].secretGiven);
    EXPECT_EQ(0u, p.hashing.creates[0].secretSize);
    EXPECT_EQ(0u, p.hashing.creates[0].flags);
    EXPECT_EQ(std::vector<ULONG>{32}, p.hashing.finishSizes);
    EXPECT_EQ(std::vector<ULONG>{0}, p.hashing.closeFlags);
    EXPECT_EQ(0, p.hashing.openHashes);
    EXPECT_EQ(0, p.hashing.openProviders);
    EXPECT_EQ(0, p.files.openHandles());
    std::vector<RecordingFiles::Open> opens = files.opensFor(kFile);
    ASSERT_EQ(1u, opens.size());
    EXPECT_EQ(static_cast<DWORD>(GENERIC_READ), opens[0].access);
    EXPECT_EQ(static_cast<DWORD>(FILE_SHARE_READ), opens[0].share);
    EXPECT_EQ(static_cast<DWORD>(OPEN_EXISTING), opens[0].disposition);
    EXPECT_EQ(static_cast<DWORD>(FILE_ATTRIBUTE_NORMAL), opens[0].attributes);
}

TEST_F(Verification, DigestIsSizedByTheProvidersLength)
{
    payload("abc");
    p.hashing.digestLengthOverride = 20;
    std::vector<unsigned char> digest;
    Util_ComputeCheckSum(kFile, digest);
    EXPECT_EQ(std::vector<ULONG>{20}, p.hashing.finishSizes);
    EXPECT_EQ(20u, digest.size());
}

TEST_F(Verification, UnreadableFileFailsByTheSystemsCode)
{
    EXPECT_FALSE(digestOf(kFile).has_value());
    EXPECT_STREQ(L"UNC_FILE_NOT_FOUND", r.sErrorCode.c_str());
    EXPECT_STREQ(L"The specified file was not found on the network path.", r.sErrorDesc.c_str());
    EXPECT_EQ(std::vector<std::wstring>{L"Util_ComputeCheckSum: Failed checksum computation,cannot read the file "
                                        L":C:\\Windows\\Temp\\payload.bin, error: The specified file was not found "
                                        L"on the network path."},
              linesOf({L"Util_ComputeCheckSum"}));
    EXPECT_TRUE(p.hashing.calls.empty());
}

TEST_F(Verification, FileHeldOpenByAnotherFailsWithSharingViolation)
{
    payload("abc");
    HANDLE held = p.files.holdOpen(kFile);
    EXPECT_FALSE(digestOf(kFile).has_value());
    p.files.release(held);
    EXPECT_STREQ(L"UNC_SHARING_VIOLATION", r.sErrorCode.c_str());
}

TEST_F(Verification, UnreadableFileWithACodeOutsideTheTable)
{
    payload("abc");
    files.failOpenPath = kFile;
    files.failOpenNumber = 1;
    files.failOpenError = ERROR_NOT_READY;  // 21
    EXPECT_FALSE(digestOf(kFile).has_value());
    EXPECT_STREQ(L"21", r.sErrorCode.c_str());
    EXPECT_EQ(systemText(ERROR_NOT_READY).value_or(L"Unknown error"), std::wstring(r.sErrorDesc.c_str()));
}

struct HashFailure {
    Op op;
    const wchar_t* line;
    bool hashExists;      // BCryptDestroyHash is due
    bool providerExists;  // BCryptCloseAlgorithmProvider is due
};

std::string nameOfStep(const ::testing::TestParamInfo<HashFailure>& info)
{
    static const char* const names[] = {"Open", "GetProperty", "CreateHash", "HashData", "FinishHash"};
    return names[static_cast<int>(info.param.op)];
}

class ChecksumHashFailure : public Verification, public ::testing::WithParamInterface<HashFailure> {};

TEST_P(ChecksumHashFailure, LogsTheStepNamesTheInternalErrorAndReleasesWhatExists)
{
    const HashFailure& failure = GetParam();
    payload("abc");
    p.hashing.fail(failure.op, static_cast<NTSTATUS>(0xC0000001));
    EXPECT_FALSE(digestOf(kFile).has_value());
    EXPECT_STREQ(L"UNC_INTERNAL_CHECKSUM_ERROR", r.sErrorCode.c_str());
    EXPECT_STREQ(L"Internal checksum computation error", r.sErrorDesc.c_str());
    EXPECT_EQ(std::vector<std::wstring>{failure.line}, linesOf({L"Util_ComputeCheckSum"}));
    EXPECT_EQ(failure.hashExists ? 1 : 0, p.hashing.count(Op::DestroyHash));
    EXPECT_EQ(failure.providerExists ? 1 : 0, p.hashing.count(Op::CloseProvider));
    EXPECT_EQ(0, p.hashing.openHashes);
    EXPECT_EQ(0, p.hashing.openProviders);
    EXPECT_EQ(0, p.files.openHandles());
}

INSTANTIATE_TEST_SUITE_P(
    Steps, ChecksumHashFailure,
    ::testing::Values(
        HashFailure{Op::Open, L"Util_ComputeCheckSum: BCryptOpenAlgorithmProvider failed.", false, false},
        HashFailure{Op::GetProperty, L"Util_ComputeCheckSum: BCryptGetProperty failed.", false, true},
        HashFailure{Op::CreateHash, L"Util_ComputeCheckSum: BCryptCreateHash failed.", false, true},
        HashFailure{Op::HashData, L"Util_ComputeCheckSum: BCryptHashData failed.", true, true},
        HashFailure{Op::FinishHash, L"Util_ComputeCheckSum: BCryptFinishHash failed.", true, true}),
    nameOfStep);

TEST_F(Verification, HashDataFailingLaterStopsTheStream)
{
    payload(std::string(10000, 'z'));
    p.hashing.fail(Op::HashData, static_cast<NTSTATUS>(0xC0000001), 2);
    EXPECT_FALSE(digestOf(kFile).has_value());
    EXPECT_EQ(2u, p.hashing.hashSizes.size());
    EXPECT_EQ(0, p.hashing.count(Op::FinishHash));
    EXPECT_STREQ(L"UNC_INTERNAL_CHECKSUM_ERROR", r.sErrorCode.c_str());
}

TEST_F(Verification, FailedReadEndsTheStreamLikeTheEndOfTheFile)
{
    // The first piece is hashed, the second read fails: the digest is that
    // of the first 4096 bytes, and the computation itself succeeds.
    std::string bytes(10000, 'q');
    payload(bytes);
    files.failReadNumber = 2;
    std::optional<std::wstring> partial = digestOf(kFile);
    ASSERT_TRUE(partial.has_value());
    EXPECT_EQ(std::vector<ULONG>{4096}, p.hashing.hashSizes);
    EXPECT_TRUE(r.sErrorCode.empty());

    p.files.addFile(L"C:\\Windows\\Temp\\first.bin", bytes.substr(0, 4096));
    files.failReadNumber = 0;
    EXPECT_EQ(digestOf(L"C:\\Windows\\Temp\\first.bin"), partial);
}

// --- Util_CompareCheckSum ---------------------------------------------------------

std::vector<unsigned char> bytesOfHex(const std::wstring& hex)
{
    std::vector<unsigned char> out;
    for (size_t i = 0; i + 1 < hex.size(); i += 2)
        out.push_back(
            static_cast<unsigned char>(std::stoi(std::string(hex.begin() + i, hex.begin() + i + 2), nullptr, 16)));
    return out;
}

TEST_F(Verification, MatchingChecksumLeavesTheResult)
{
    g_updateRecord.sResult = L"OK";
    EXPECT_TRUE(Util_CompareCheckSum(bytesOfHex(kDigestOfAbc)));
    EXPECT_STREQ(L"OK", r.sResult.c_str());
    EXPECT_TRUE(r.sErrorCode.empty());
    EXPECT_TRUE(linesOf({L"Util_CompareCheckSum"}).empty());
}

TEST_F(Verification, ChecksumInCapitalsOrMixedCaseMatches)
{
    g_updateRecord.sResult = L"OK";
    std::wstring capitals = upper(kDigestOfAbc);
    g_updateRecord.sCheckSum = capitals.c_str();
    EXPECT_TRUE(Util_CompareCheckSum(bytesOfHex(kDigestOfAbc)));
    std::wstring mixed = kDigestOfAbc;
    for (size_t i = 0; i < mixed.size(); i += 2)
        mixed[i] = upper(mixed.substr(i, 1))[0];
    g_updateRecord.sCheckSum = mixed.c_str();
    EXPECT_TRUE(Util_CompareCheckSum(bytesOfHex(kDigestOfAbc)));
    EXPECT_STREQ(L"OK", r.sResult.c_str());
}

TEST_F(Verification, DifferentChecksumFailsWithBothTextsInTheLog)
{
    g_updateRecord.sResult = L"OK";
    g_updateRecord.sCheckSum = kDigestOfNothing;
    EXPECT_FALSE(Util_CompareCheckSum(bytesOfHex(kDigestOfAbc)));
    EXPECT_STREQ(L"FAILURE", r.sResult.c_str());
    EXPECT_STREQ(L"UNC_CHECKSUM_MISMATCH_ERROR", r.sErrorCode.c_str());
    EXPECT_STREQ(L"Checksum mismatch error", r.sErrorDesc.c_str());
    EXPECT_EQ(std::vector<std::wstring>{std::wstring(L"Util_CompareCheckSum: Checksum validation failed for the "
                                                     L"copied file, expected checksum: ") +
                                        kDigestOfNothing + L", computed checksum: " + kDigestOfAbc},
              linesOf({L"Util_CompareCheckSum"}));
}

TEST_F(Verification, ComputedTextIsLowerCaseHexWithTwoCharactersPerByte)
{
    g_updateRecord.sCheckSum = L"expected";
    EXPECT_FALSE(Util_CompareCheckSum({0x00, 0x0A, 0xF0, 0xFF, 0x7B}));
    EXPECT_TRUE(p.logHas(L"Util_CompareCheckSum: Checksum validation failed for the copied file, expected checksum: "
                         L"expected, computed checksum: 000af0ff7b"));
}

TEST_F(Verification, EmptyChecksumNeverMatches)
{
    g_updateRecord.sCheckSum = corestring();
    EXPECT_FALSE(Util_CompareCheckSum(bytesOfHex(kDigestOfAbc)));
    EXPECT_FALSE(Util_CompareCheckSum({}));
    EXPECT_STREQ(L"FAILURE", r.sResult.c_str());
    EXPECT_STREQ(L"UNC_CHECKSUM_MISMATCH_ERROR", r.sErrorCode.c_str());
}

TEST_F(Verification, ChecksumWithExtraOrMissingCharactersFails)
{
    std::wstring longer = std::wstring(kDigestOfAbc) + L"0";
    std::wstring shorter = std::wstring(kDigestOfAbc).substr(0, 63);
    std::wstring spaced = std::wstring(kDigestOfAbc) + L" ";
    for (const std::wstring& text : {longer, shorter, spaced}) {
        g_updateRecord.sCheckSum = text.c_str();
        EXPECT_FALSE(Util_CompareCheckSum(bytesOfHex(kDigestOfAbc))) << std::string(text.begin(), text.end());
    }
}

}  // namespace
