#include "fetch/Workspace.h"

#include <gtest/gtest.h>

#include "fakes/FakePlatform.h"
#include "fetch/DeliveryLog.h"
#include "update/UpdateRecord.h"

using CORE::corestring;
using fakes::FakePlatform;

TEST(Util_GetWorkspace, CreatesUpdatetoolDataBelowTheTempDirectory)
{
    FakePlatform p;
    EXPECT_STREQ(L"C:\\Windows\\Temp\\updatetool-data", Util_GetWorkspace().c_str());
    EXPECT_TRUE(p.files.isDirectory(L"C:\\Windows\\Temp\\updatetool-data"));
}

TEST(Util_GetWorkspace, RegistersTheDeliveryLogCallbackOnce)
{
    FakePlatform p;
    Util_GetWorkspace();
    EXPECT_EQ(1, p.delivery.logCallbackCalls);
    EXPECT_EQ(&DeliveryLogCallback, p.delivery.callback);
}

TEST(Util_GetWorkspace, SecondCallMakesNoPlatformCall)
{
    FakePlatform p;
    corestring first = Util_GetWorkspace();
    int calls = p.files.calls;
    corestring second = Util_GetWorkspace();
    EXPECT_EQ(calls, p.files.calls);
    EXPECT_EQ(1, p.delivery.logCallbackCalls);
    EXPECT_STREQ(first.c_str(), second.c_str());
}

TEST(Util_GetWorkspace, TempPathOfMoreThan260CharactersFallsBackToCTemp)
{
    FakePlatform p;
    p.files.addDirectory(L"C:\\Temp");
    p.files.tempPathResult = 261;
    EXPECT_STREQ(L"C:\\Temp\\updatetool-data", Util_GetWorkspace().c_str());
    EXPECT_TRUE(p.files.isDirectory(L"C:\\Temp\\updatetool-data"));
}

TEST(Util_GetWorkspace, FailedTempPathFallsBackToCTemp)
{
    FakePlatform p;
    p.files.addDirectory(L"C:\\Temp");
    p.files.tempPathResult = 0;
    p.files.tempPath = L"";
    EXPECT_STREQ(L"C:\\Temp\\updatetool-data", Util_GetWorkspace().c_str());
}

TEST(Util_GetWorkspace, DirectoryThatCannotBeMadeLeavesTheTempDirectoryItself)
{
    FakePlatform p;
    p.files.failCreateDirectory(ERROR_ACCESS_DENIED);
    EXPECT_STREQ(L"C:\\Windows\\Temp", Util_GetWorkspace().c_str());
    EXPECT_EQ(1, p.delivery.logCallbackCalls);
    EXPECT_TRUE(p.logLines().empty());
}

TEST(Util_GetWorkspace, CTempFallbackThatCannotBeMadeGivesTheDrive)
{
    FakePlatform p;
    p.files.tempPathResult = 261;
    p.files.failCreateDirectory(ERROR_ACCESS_DENIED);
    EXPECT_STREQ(L"C:", Util_GetWorkspace().c_str());
}

TEST(Util_GetWorkspace, APlainFileOfThatNameCountsAsTheWorkspace)
{
    FakePlatform p;
    p.files.addFile(L"C:\\Windows\\Temp\\updatetool-data", std::string("not a folder"));
    EXPECT_STREQ(L"C:\\Windows\\Temp\\updatetool-data", Util_GetWorkspace().c_str());
    EXPECT_FALSE(p.files.isDirectory(L"C:\\Windows\\Temp\\updatetool-data"));
}

TEST(Util_GetParentPath, CutsBeforeTheLastBackslashAfterTurningSlashes)
{
    EXPECT_STREQ(L"\\\\server\\share\\dir", Util_GetParentPath(corestring(L"//server/share/dir/file.msi")).c_str());
    EXPECT_STREQ(L"C:\\Temp", Util_GetParentPath(corestring(L"C:\\Temp\\")).c_str());
    EXPECT_STREQ(L"C:", Util_GetParentPath(corestring(L"C:\\Temp")).c_str());
    EXPECT_EQ(nullptr, Util_GetParentPath(corestring(L"file.msi")).handle());
    EXPECT_EQ(nullptr, Util_GetParentPath(corestring()).handle());
}

TEST(Util_GetParentPath, FolderOfAShareFile)
{
    EXPECT_STREQ(L"\\\\server\\share\\folder", Util_GetParentPath(L"//server/share/folder/agent.msi").c_str());
    EXPECT_STREQ(L"", Util_GetParentPath(L"agent.msi").c_str());
}

TEST(UtilCleanupWorkspace, NothingToDoWithoutAFileName)
{
    FakePlatform p;
    int calls = p.files.calls;
    EXPECT_TRUE(UtilCleanupWorkspace());
    EXPECT_EQ(calls, p.files.calls);
}

TEST(UtilCleanupWorkspace, DeletesThePayload)
{
    FakePlatform p;
    p.files.addFile(L"C:\\Windows\\Temp\\updatetool-data\\agent.msi", std::string("MSI"));
    p.files.addFile(L"C:\\Windows\\Temp\\updatetool-data\\other.txt", std::string("stays"));
    g_updateRecord.sFileName = L"C:\\Windows\\Temp\\updatetool-data\\agent.msi";
    EXPECT_TRUE(UtilCleanupWorkspace());
    EXPECT_FALSE(p.files.exists(L"C:\\Windows\\Temp\\updatetool-data\\agent.msi"));
    EXPECT_TRUE(p.files.exists(L"C:\\Windows\\Temp\\updatetool-data\\other.txt"));
    EXPECT_STREQ(L"C:\\Windows\\Temp\\updatetool-data\\agent.msi", g_updateRecord.sFileName.c_str());
}

TEST(UtilCleanupWorkspace, AFolderCannotBeDeletedAndIsReported)
{
    FakePlatform p;
    p.files.addDirectory(L"C:\\Windows\\Temp\\updatetool-data\\payload");
    g_updateRecord.sFileName = L"C:\\Windows\\Temp\\updatetool-data\\payload";
    EXPECT_FALSE(UtilCleanupWorkspace());
    std::wstring expected = L"UtilCleanupWorkspace: delete failed: C:\\Windows\\Temp\\updatetool-data\\payload error: " +
                            std::wstring(CORE::errorText(ERROR_ACCESS_DENIED).c_str());
    EXPECT_TRUE(p.logHas(expected)) << expected;
    EXPECT_TRUE(p.files.isDirectory(L"C:\\Windows\\Temp\\updatetool-data\\payload"));
}

TEST(UtilCleanupWorkspace, AFileThatHasGoneIsAFailure)
{
    FakePlatform p;
    g_updateRecord.sFileName = L"C:\\Windows\\Temp\\updatetool-data\\gone.msi";
    EXPECT_FALSE(UtilCleanupWorkspace());
    EXPECT_EQ(1u, p.logLines().size());
}
