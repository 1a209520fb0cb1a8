// The payload's files in the workspace: partial file, record, the final
// name only once complete.
#include <gtest/gtest.h>

#include <string>

#include "Digest.h"
#include "PayloadFiles.h"
#include "TextUtil.h"
#include "temp_folder.h"

namespace {

using testing_support::TempFolder;

TEST(PayloadFilesTest, NamesThePartialFileAndRecordBesideTheTarget)
{
    mirel::PayloadFiles files(L"C:\\work", L"agent.msi");
    EXPECT_EQ(files.plainFinalPath(), L"C:\\work\\agent.msi");
    EXPECT_EQ(files.plainPartialPath(), L"C:\\work\\agent.msi.partial");
    EXPECT_EQ(files.finalPath(), L"\\\\?\\C:\\work\\agent.msi");
    EXPECT_EQ(files.partialPath(), L"\\\\?\\C:\\work\\agent.msi.partial");
    EXPECT_EQ(files.recordPath(), L"\\\\?\\C:\\work\\agent.msi.partial.info");
}

TEST(PayloadFilesTest, TakesAWorkspaceWithATrailingBackslash)
{
    mirel::PayloadFiles files(L"C:\\work\\", L"agent.msi");
    EXPECT_EQ(files.plainFinalPath(), L"C:\\work\\agent.msi");
}

TEST(LongPathForm, PrefixesDriveAndUncPaths)
{
    EXPECT_EQ(mirel::longPath(L"C:\\a\\b"), L"\\\\?\\C:\\a\\b");
    EXPECT_EQ(mirel::longPath(L"C:/a/b"), L"\\\\?\\C:\\a\\b");
    EXPECT_EQ(mirel::longPath(L"\\\\server\\share\\a"), L"\\\\?\\UNC\\server\\share\\a");
    EXPECT_EQ(mirel::longPath(L"\\\\?\\C:\\a"), L"\\\\?\\C:\\a");
    EXPECT_EQ(mirel::longPath(L"relative\\a"), L"relative\\a");
}

TEST(PayloadFilesTest, PublishesOnlyWhenAskedAndRemovesTheRecord)
{
    TempFolder folder;
    mirel::PayloadFiles files(folder.path(), L"agent.msi");
    std::string why;
    ASSERT_TRUE(files.startOver(why)) << why;
    ASSERT_TRUE(files.write("hello ", 6, why)) << why;
    ASSERT_TRUE(files.write("world", 5, why)) << why;
    mirel::PartialRecord record;
    record.url = "https://localhost/agent.msi";
    ASSERT_TRUE(files.writeRecord(record, why)) << why;
    EXPECT_EQ(files.written(), 11u);
    EXPECT_FALSE(TempFolder::exists(folder.file(L"agent.msi")));
    EXPECT_TRUE(TempFolder::exists(folder.file(L"agent.msi.partial")));

    ASSERT_TRUE(files.publish(why)) << why;
    EXPECT_EQ(TempFolder::read(folder.file(L"agent.msi")), "hello world");
    EXPECT_FALSE(TempFolder::exists(folder.file(L"agent.msi.partial")));
    EXPECT_FALSE(TempFolder::exists(folder.file(L"agent.msi.partial.info")));
}

TEST(PayloadFilesTest, ReplacesAnOldFinalFile)
{
    TempFolder folder;
    ASSERT_TRUE(TempFolder::write(folder.file(L"agent.msi"), "old version"));
    mirel::PayloadFiles files(folder.path(), L"agent.msi");
    std::string why;
    ASSERT_TRUE(files.startOver(why)) << why;
    ASSERT_TRUE(files.write("new", 3, why)) << why;
    ASSERT_TRUE(files.publish(why)) << why;
    EXPECT_EQ(TempFolder::read(folder.file(L"agent.msi")), "new");
}

TEST(PayloadFilesTest, StartsOverWithAnEmptyFileAndNoRecord)
{
    TempFolder folder;
    ASSERT_TRUE(TempFolder::write(folder.file(L"agent.msi.partial"), "stale bytes"));
    ASSERT_TRUE(TempFolder::write(folder.file(L"agent.msi.partial.info"), "stale record"));
    mirel::PayloadFiles files(folder.path(), L"agent.msi");
    std::string why;
    ASSERT_TRUE(files.startOver(why)) << why;
    ASSERT_TRUE(files.close(why)) << why;
    EXPECT_EQ(TempFolder::read(folder.file(L"agent.msi.partial")), "");
    EXPECT_FALSE(TempFolder::exists(folder.file(L"agent.msi.partial.info")));
}

TEST(PayloadFilesTest, ContinuesAfterHashingWhatIsThere)
{
    TempFolder folder;
    ASSERT_TRUE(TempFolder::write(folder.file(L"p.bin.partial"), "abcXYZ"));
    mirel::PayloadFiles files(folder.path(), L"p.bin");
    std::uint64_t size = 0;
    ASSERT_TRUE(files.partialExists(size));
    EXPECT_EQ(size, 6u);
    mirel::Sha256 hash;
    std::string why;
    // Bytes behind the offset are cut off.
    ASSERT_TRUE(files.continueAt(3, hash, why)) << why;
    EXPECT_EQ(files.written(), 3u);
    ASSERT_TRUE(files.write("def", 3, why)) << why;
    hash.update("def", 3);
    ASSERT_TRUE(files.close(why)) << why;
    EXPECT_EQ(TempFolder::read(folder.file(L"p.bin.partial")), "abcdef");
    // SHA-256("abcdef"), from sha256sum.
    EXPECT_EQ(mirel::toHex(hash.finish()), "bef57ec7f53a6d40beb640a780a639c83bc29ac8a9816f1fc6c5c6dcd93c4721");
}

TEST(PayloadFilesTest, RefusesToContinueAFileShorterThanTheOffset)
{
    TempFolder folder;
    ASSERT_TRUE(TempFolder::write(folder.file(L"p.bin.partial"), "ab"));
    mirel::PayloadFiles files(folder.path(), L"p.bin");
    mirel::Sha256 hash;
    std::string why;
    EXPECT_FALSE(files.continueAt(5, hash, why));
    EXPECT_EQ(why.rfind("the partial file can't be read back", 0), 0u) << why;
}

TEST(PayloadFilesTest, KeepsAndReadsTheRecord)
{
    TempFolder folder;
    mirel::PayloadFiles files(folder.path(), L"p.bin");
    mirel::PartialRecord record;
    record.url = "https://localhost/p.bin";
    record.etag = "\"1\"";
    record.bytes = 10;
    record.total = 20;
    record.acceptRanges = true;
    std::string why;
    ASSERT_TRUE(files.writeRecord(record, why)) << why;
    mirel::PartialRecord read;
    ASSERT_TRUE(files.readRecord(read, why)) << why;
    EXPECT_EQ(read.url, "https://localhost/p.bin");
    EXPECT_EQ(read.etag, "\"1\"");
    EXPECT_EQ(read.bytes, 10u);
    EXPECT_EQ(read.total, 20u);
    EXPECT_TRUE(read.acceptRanges);
}

TEST(PayloadFilesTest, SaysWhenThereIsNoRecord)
{
    TempFolder folder;
    mirel::PayloadFiles files(folder.path(), L"p.bin");
    mirel::PartialRecord read;
    std::string why;
    EXPECT_FALSE(files.readRecord(read, why));
    EXPECT_EQ(why, "there is none");
    ASSERT_TRUE(TempFolder::write(folder.file(L"p.bin.partial.info"), "garbage"));
    EXPECT_FALSE(files.readRecord(read, why));
    EXPECT_EQ(why, "its last line is cut off");
}

TEST(PayloadFilesTest, DiscardsPartialFileAndRecord)
{
    TempFolder folder;
    mirel::PayloadFiles files(folder.path(), L"p.bin");
    std::string why;
    ASSERT_TRUE(files.startOver(why)) << why;
    ASSERT_TRUE(files.writeRecord(mirel::PartialRecord{}, why)) << why;
    files.discard();
    std::uint64_t size = 0;
    EXPECT_FALSE(files.partialExists(size));
    EXPECT_FALSE(TempFolder::exists(folder.file(L"p.bin.partial.info")));
}

TEST(PayloadFilesTest, ReportsAWorkspaceThatCantBeWritten)
{
    TempFolder folder;
    mirel::PayloadFiles files(folder.file(L"no-such-folder"), L"p.bin");
    std::string why;
    EXPECT_FALSE(files.startOver(why));
    EXPECT_EQ(why, "the partial file can't be made (error 3)");
}

TEST(WorkspaceFolders, AreMadeWithTheirParents)
{
    TempFolder folder;
    std::string why;
    const std::wstring deep = folder.file(L"a\\b\\c");
    ASSERT_TRUE(mirel::makeFolders(deep, why)) << why;
    EXPECT_TRUE(TempFolder::exists(deep));
    EXPECT_TRUE(mirel::makeFolders(deep, why)) << why;
}

TEST(WorkspaceFolders, RefuseAFileInTheWay)
{
    TempFolder folder;
    ASSERT_TRUE(TempFolder::write(folder.file(L"plain"), "x"));
    std::string why;
    EXPECT_FALSE(mirel::makeFolders(folder.file(L"plain"), why));
    EXPECT_NE(why.find("is a file, not a folder"), std::string::npos) << why;
}

}  // namespace
