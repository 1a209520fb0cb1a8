// Reading a text file whole, and the key=value lines of the override file.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "app/TextFile.h"
#include "fakes/FakePlatform.h"
#include "fakes/ForwardingFileSystem.h"
#include "fakes/ScopedServices.h"

using CORE::corestring;
using fakes::FakePlatform;

namespace {

const std::wstring kFile = L"C:\\data\\text.txt";

using fakes::whole;

using Bytes = std::vector<unsigned char>;

// Forwards to the fake file system, records how files are opened, and can
// make sizing or reading fail.
class ProbingFiles final : public fakes::ForwardingFileSystem {
public:
    using ForwardingFileSystem::ForwardingFileSystem;

    DWORD openAccess = 0, openShare = 0, openDisposition = 0;
    bool failSize = false;
    bool failRead = false;
    DWORD readChunk = 0;  // when non-zero, ReadFile hands over at most this many bytes per call
    int reads = 0;

    HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD share, DWORD disposition, DWORD attributes) override
    {
        openAccess = access;
        openShare = share;
        openDisposition = disposition;
        return m_inner.CreateFileW(path, access, share, disposition, attributes);
    }
    BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read) override
    {
        ++reads;
        if (failRead) {
            ::SetLastError(ERROR_READ_FAULT);
            return FALSE;
        }
        if (readChunk && toRead > readChunk)
            toRead = readChunk;
        return m_inner.ReadFile(file, buffer, toRead, read);
    }
    DWORD GetFileSize(HANDLE file, LPDWORD sizeHigh) override
    {
        if (failSize) {
            ::SetLastError(ERROR_INVALID_HANDLE);
            return INVALID_FILE_SIZE;
        }
        return m_inner.GetFileSize(file, sizeHigh);
    }
};

struct TextFileTest : ::testing::Test {
    FakePlatform p;
    corestring text;
    bool wasMultiByte = false;

    bool read(const Bytes& bytes, std::uint32_t codePage = 65001)
    {
        p.files.addFile(kFile, bytes);
        return ReadTextFile(kFile.c_str(), codePage, wasMultiByte, false, text);
    }
};

}  // namespace

// ---------------------------------------------------------------- ReadTextFile

TEST_F(TextFileTest, Utf16WithMarkStartsBehindTheMark)
{
    ASSERT_TRUE(read({0xFF, 0xFE, 'T', 0, 'o', 0, 0xE9, 0, 0x3B, 0x04}));
    EXPECT_EQ(L"To\u00E9\u043B", whole(text));
    EXPECT_FALSE(wasMultiByte);
}

TEST_F(TextFileTest, Utf16EndsAtTheFirstZeroCharacter)
{
    ASSERT_TRUE(read({0xFF, 0xFE, 'a', 0, 0, 0, 'b', 0}));
    EXPECT_EQ(L"a", whole(text));
}

TEST_F(TextFileTest, Utf16WithoutMarkIsRecognisedByAZeroSecondByte)
{
    ASSERT_TRUE(read({'k', 0, '=', 0, 'v', 0, '\n', 0}));
    EXPECT_EQ(L"k=v\n", whole(text));
    EXPECT_FALSE(wasMultiByte);
}

TEST_F(TextFileTest, Utf16WithAnOddLastByteKeepsItAsACharacter)
{
    ASSERT_TRUE(read({0xFF, 0xFE, 'a', 0, 'b'}));
    EXPECT_EQ(L"ab", whole(text));
}

TEST_F(TextFileTest, MarkAloneIsAnEmptyText)
{
    ASSERT_TRUE(read({0xFF, 0xFE}));
    EXPECT_TRUE(text.empty());
    EXPECT_FALSE(wasMultiByte);
}

TEST_F(TextFileTest, Utf8MultiByteTextIsDecodedAndFlagged)
{
    // "Tovi.version=8.1.0 é€"
    std::string utf8 = "Tovi.version=8.1.0 \xC3\xA9\xE2\x82\xAC";
    ASSERT_TRUE(read(Bytes(utf8.begin(), utf8.end())));
    EXPECT_EQ(L"Tovi.version=8.1.0 \u00E9\u20AC", whole(text));
    EXPECT_TRUE(wasMultiByte);
}

TEST_F(TextFileTest, MultiByteTextFollowsTheCodePage)
{
    ASSERT_TRUE(read({'c', 'a', 'f', 0xE9}, 1252));
    EXPECT_EQ(L"caf\u00E9", whole(text));
    EXPECT_TRUE(wasMultiByte);
}

TEST_F(TextFileTest, SingleByteFileIsMultiByteText)
{
    ASSERT_TRUE(read({'x'}));
    EXPECT_EQ(L"x", whole(text));
    EXPECT_TRUE(wasMultiByte);
}

TEST_F(TextFileTest, SingleNonAsciiByteIsDecodedInTheCodePage)
{
    ASSERT_TRUE(read({0xE9}, 1252));
    EXPECT_EQ(L"\u00E9", whole(text));
    EXPECT_TRUE(wasMultiByte);
}

TEST_F(TextFileTest, EmptyFileIsAnEmptyTextAndTrue)
{
    text = L"left over";
    ASSERT_TRUE(read({}));
    EXPECT_TRUE(text.empty());
    EXPECT_FALSE(wasMultiByte);
}

TEST_F(TextFileTest, MissingFileIsFalse)
{
    EXPECT_FALSE(ReadTextFile(L"C:\\data\\absent.txt", 65001, wasMultiByte, false, text));
    EXPECT_TRUE(text.empty());
}

TEST_F(TextFileTest, FileHeldWithoutSharingIsFalse)
{
    p.files.addFile(kFile, std::string("a=b"));
    HANDLE other = p.files.holdOpen(kFile);
    EXPECT_FALSE(ReadTextFile(kFile.c_str(), 65001, wasMultiByte, false, text));
    p.files.release(other);
    EXPECT_TRUE(ReadTextFile(kFile.c_str(), 65001, wasMultiByte, false, text));
    EXPECT_EQ(L"a=b", whole(text));
}

TEST_F(TextFileTest, OpensForReadingSharedForReadingAndExistingOnly)
{
    ProbingFiles probe(p.files);
    platform::Services s = platform::services();
    s.files = &probe;
    fakes::ScopedServices scope(s);
    p.files.addFile(kFile, std::string("abc"));
    ASSERT_TRUE(ReadTextFile(kFile.c_str(), 65001, wasMultiByte, false, text));
    EXPECT_EQ(0x80000000u, probe.openAccess);
    EXPECT_EQ(1u, probe.openShare);
    EXPECT_EQ(3u, probe.openDisposition);
    EXPECT_EQ(0, p.files.openHandles());
}

TEST_F(TextFileTest, FailureToSizeIsFalseAndClosesTheFile)
{
    ProbingFiles probe(p.files);
    platform::Services s = platform::services();
    s.files = &probe;
    fakes::ScopedServices scope(s);
    p.files.addFile(kFile, std::string("abc"));
    probe.failSize = true;
    EXPECT_FALSE(ReadTextFile(kFile.c_str(), 65001, wasMultiByte, false, text));
    EXPECT_EQ(0, p.files.openHandles());
}

TEST_F(TextFileTest, FailureToReadIsFalseAndClosesTheFile)
{
    ProbingFiles probe(p.files);
    platform::Services s = platform::services();
    s.files = &probe;
    fakes::ScopedServices scope(s);
    p.files.addFile(kFile, std::string("abc"));
    probe.failRead = true;
    EXPECT_FALSE(ReadTextFile(kFile.c_str(), 65001, wasMultiByte, false, text));
    EXPECT_EQ(0, p.files.openHandles());
}

TEST_F(TextFileTest, ShortReadsAreJoinedIntoTheWholeFile)
{
    ProbingFiles probe(p.files);
    platform::Services s = platform::services();
    s.files = &probe;
    fakes::ScopedServices scope(s);
    p.files.addFile(kFile, std::string("Tovi.filename=x.exe"));
    probe.readChunk = 4;
    ASSERT_TRUE(ReadTextFile(kFile.c_str(), 65001, wasMultiByte, false, text));
    EXPECT_EQ(L"Tovi.filename=x.exe", whole(text));
    EXPECT_GT(probe.reads, 1);
}

TEST_F(TextFileTest, RawModeHandsTheBytesOverUndecoded)
{
    Bytes bytes = {0xFF, 0xFE, 'a', 0, 0xC3, 0xA9, 0, 'z'};
    p.files.addFile(kFile, bytes);
    ASSERT_TRUE(ReadTextFile(kFile.c_str(), 65001, wasMultiByte, true, text));
    EXPECT_TRUE(text.isBinary());
    EXPECT_EQ(bytes.size(), text.byteLength() & ~CORE::kBinaryBit);
    EXPECT_EQ(0, std::memcmp(text.c_str(), bytes.data(), bytes.size()));
    EXPECT_FALSE(wasMultiByte);
}

TEST_F(TextFileTest, RawModeOfAnEmptyFileIsEmpty)
{
    p.files.addFile(kFile, Bytes{});
    ASSERT_TRUE(ReadTextFile(kFile.c_str(), 65001, wasMultiByte, true, text));
    EXPECT_TRUE(text.empty());
}

// ---------------------------------------------------------------- ParseKeyValueText

TEST(ParseKeyValueText, TwoPiecesAreKeyAndValue)
{
    NoCaseMap map = ParseKeyValueText(corestring(L"Tovi.version=8.12.0-9876543\nTovi.filename=installer.exe"), 10, 61);
    ASSERT_EQ(2u, map.size());
    EXPECT_STREQ(L"Tovi.version", map.entries()[0].first.c_str());
    EXPECT_STREQ(L"8.12.0-9876543", map.entries()[0].second.c_str());
    EXPECT_STREQ(L"Tovi.filename", map.entries()[1].first.c_str());
    EXPECT_STREQ(L"installer.exe", map.entries()[1].second.c_str());
}

TEST(ParseKeyValueText, MoreThanTwoPiecesGiveTheFirstAsKeyWithAnEmptyValue)
{
    NoCaseMap map = ParseKeyValueText(corestring(L"a=b=c"), 10, 61);
    ASSERT_EQ(1u, map.size());
    ASSERT_NE(nullptr, map.find(L"a"));
    EXPECT_TRUE(map.find(L"a")->empty());
}

TEST(ParseKeyValueText, OnePieceIsAKeyWithAnEmptyValue)
{
    NoCaseMap map = ParseKeyValueText(corestring(L"lonely"), 10, 61);
    ASSERT_EQ(1u, map.size());
    ASSERT_NE(nullptr, map.find(L"lonely"));
    EXPECT_TRUE(map.find(L"lonely")->empty());
}

TEST(ParseKeyValueText, EmptyPiecesAreKept)
{
    NoCaseMap map = ParseKeyValueText(corestring(L"=v\nk="), 10, 61);
    ASSERT_EQ(2u, map.size());
    ASSERT_NE(nullptr, map.find(L""));
    EXPECT_STREQ(L"v", map.find(L"")->c_str());
    ASSERT_NE(nullptr, map.find(L"k"));
    EXPECT_TRUE(map.find(L"k")->empty());
}

TEST(ParseKeyValueText, RepeatedKeyTakesTheLaterValueIgnoringCase)
{
    NoCaseMap map = ParseKeyValueText(corestring(L"Tovi.version=1\nTOVI.VERSION=2"), 10, 61);
    ASSERT_EQ(1u, map.size());
    EXPECT_STREQ(L"2", map.find(L"tovi.version")->c_str());
}

TEST(ParseKeyValueText, CarriageReturnStaysBehindTheValue)
{
    NoCaseMap map = ParseKeyValueText(corestring(L"Tovi.version=8.1.0\r\nTovi.filename=a.exe\r\n"), 10, 61);
    ASSERT_EQ(2u, map.size());
    ASSERT_NE(nullptr, map.find(L"Tovi.version"));
    EXPECT_STREQ(L"8.1.0\r", map.find(L"Tovi.version")->c_str());
    EXPECT_STREQ(L"a.exe\r", map.find(L"Tovi.filename")->c_str());
}

TEST(ParseKeyValueText, CarriageReturnOnAKeyOnlyLineStaysInTheKey)
{
    NoCaseMap map = ParseKeyValueText(corestring(L"flag\r\n"), 10, 61);
    ASSERT_EQ(1u, map.size());
    EXPECT_STREQ(L"flag\r", map.entries()[0].first.c_str());
    EXPECT_EQ(nullptr, map.find(L"flag"));
}

TEST(ParseKeyValueText, EmptyLinesAreDropped)
{
    NoCaseMap map = ParseKeyValueText(corestring(L"\n\na=1\n\n\nb=2\n\n"), 10, 61);
    ASSERT_EQ(2u, map.size());
    EXPECT_STREQ(L"1", map.find(L"a")->c_str());
    EXPECT_STREQ(L"2", map.find(L"b")->c_str());
}

TEST(ParseKeyValueText, BlanksBesideTheKeyStayInIt)
{
    NoCaseMap map = ParseKeyValueText(corestring(L"Tovi.version = 8.1.0"), 10, 61);
    ASSERT_EQ(1u, map.size());
    EXPECT_EQ(nullptr, map.find(L"Tovi.version"));
    ASSERT_NE(nullptr, map.find(L"Tovi.version "));
    EXPECT_STREQ(L" 8.1.0", map.find(L"Tovi.version ")->c_str());
}

TEST(ParseKeyValueText, EmptyTextGivesAnEmptyMap)
{
    EXPECT_TRUE(ParseKeyValueText(corestring(), 10, 61).empty());
    EXPECT_TRUE(ParseKeyValueText(corestring(L"\n\n\n"), 10, 61).empty());
}

TEST(ParseKeyValueText, SeparatorsAreTheCallersChoice)
{
    NoCaseMap map = ParseKeyValueText(corestring(L"a:1;b:2=3;c"), L';', L':');
    ASSERT_EQ(3u, map.size());
    EXPECT_STREQ(L"1", map.find(L"a")->c_str());
    EXPECT_STREQ(L"2=3", map.find(L"b")->c_str());
    EXPECT_TRUE(map.find(L"c")->empty());
}
