// The write-behind thread: every buffer lands in the partial file in order
// and goes through the hash.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "Digest.h"
#include "PayloadFiles.h"
#include "TextUtil.h"
#include "WriteBehind.h"
#include "temp_folder.h"

namespace {

using testing_support::TempFolder;

TEST(WriteBehindTest, WritesAndHashesBuffersInOrder)
{
    TempFolder folder;
    mirel::PayloadFiles files(folder.path(), L"p.bin");
    std::string why;
    ASSERT_TRUE(files.startOver(why)) << why;
    mirel::Sha256 hash;
    std::uint64_t lastSeen = 0;
    std::string expected;
    {
        mirel::WriteBehind writer(files, hash, [&](std::uint64_t written) { lastSeen = written; });
        for (int i = 0; i < 10; ++i) {
            std::uint8_t* buffer = writer.take();
            ASSERT_NE(buffer, nullptr);
            const std::string piece = "piece " + std::to_string(i) + ";";
            std::memcpy(buffer, piece.data(), piece.size());
            expected += piece;
            writer.give(piece.size());
        }
        ASSERT_TRUE(writer.finish(why)) << why;
    }
    ASSERT_TRUE(files.close(why)) << why;
    EXPECT_EQ(TempFolder::read(folder.file(L"p.bin.partial")), expected);
    EXPECT_EQ(lastSeen, expected.size());
    EXPECT_EQ(mirel::toHex(hash.finish()),
              mirel::toHex(mirel::digestOf(mirel::DigestKind::Sha256, expected.data(), expected.size())));
}

TEST(WriteBehindTest, WritesFullBuffers)
{
    TempFolder folder;
    mirel::PayloadFiles files(folder.path(), L"p.bin");
    std::string why;
    ASSERT_TRUE(files.startOver(why)) << why;
    mirel::Sha256 hash;
    {
        mirel::WriteBehind writer(files, hash, nullptr);
        for (int i = 0; i < 5; ++i) {
            std::uint8_t* buffer = writer.take();
            ASSERT_NE(buffer, nullptr);
            std::memset(buffer, 'a' + i, mirel::WriteBehind::kBufferBytes);
            writer.give(mirel::WriteBehind::kBufferBytes);
        }
        ASSERT_TRUE(writer.finish(why)) << why;
    }
    EXPECT_EQ(files.written(), 5 * mirel::WriteBehind::kBufferBytes);
    ASSERT_TRUE(files.close(why)) << why;
    const std::string bytes = TempFolder::read(folder.file(L"p.bin.partial"));
    ASSERT_EQ(bytes.size(), 5 * mirel::WriteBehind::kBufferBytes);
    EXPECT_EQ(bytes.front(), 'a');
    EXPECT_EQ(bytes[2 * mirel::WriteBehind::kBufferBytes], 'c');
    EXPECT_EQ(bytes.back(), 'e');
}

TEST(WriteBehindTest, ReportsAFailedWriteAndStopsTakingBuffers)
{
    TempFolder folder;
    mirel::PayloadFiles files(folder.path(), L"p.bin");
    // No partial file opened: every write fails.
    mirel::Sha256 hash;
    mirel::WriteBehind writer(files, hash, nullptr);
    std::uint8_t* buffer = writer.take();
    ASSERT_NE(buffer, nullptr);
    buffer[0] = 'x';
    writer.give(1);
    std::string why;
    EXPECT_FALSE(writer.finish(why));
    EXPECT_EQ(why, "the partial file can't be written (error 6)");
    EXPECT_EQ(writer.take(), nullptr);
}

}  // namespace
