#include "diagnostics/Telemetry.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "core/log/LogLine.h"
#include "diagnostics/ToolLog.h"
#include "fakes/FakePlatform.h"
#include "update/UpdateRecord.h"
#include "update/UpdateState.h"

using CORE::corestring;
using fakes::FakePlatform;

namespace {

const wchar_t* kNewRoot = L"Software\\Tarvelle\\Zenthra";
const wchar_t* kLegacyRoot = L"Software\\Kesmarc, Inc.\\Kesmarc TQM";
const std::wstring kFile = L"D:\\Logs\\updatetool\\UpdateToolTelemetryData.json";
const std::wstring kSavedLine = L"Util_UpdateDataForTelemetry: Saving to json file - " + kFile + L" completed";
const std::wstring kLoadedLine = L"Util_UpdateDataForTelemetry: Loading from json file " + kFile + L" completed";
const std::wstring kMissingLine = L"Util_UpdateDataForTelemetry: Json file - " + kFile + L" , doesn't exist";
const std::wstring kFailedLine = L"Util_UpdateDataForTelemetry: Failed to save to json file - " + kFile;

// The document of the first run with the record of fillRecord(), written out
// by hand: keys sorted, tab indentation, every array on its own lines, and a
// line end after the closing brace.
const std::string kFirstRunDocument =
    "{\n"
    "\t\"updateTool\" : \n"
    "\t[\n"
    "\t\t{\n"
    "\t\t\t\"attempt\" : 1,\n"
    "\t\t\t\"fileName\" : \"C:\\\\Windows\\\\Temp\\\\updatetool-data\\\\agent.msi\",\n"
    "\t\t\t\"result\" : \"SUCCESS\",\n"
    "\t\t\t\"status\" : \"DONE\",\n"
    "\t\t\t\"timestamp\" : 1794612914,\n"
    "\t\t\t\"type\" : \"GenericAgent\",\n"
    "\t\t\t\"updatedGUID\" : \"{5A1C0E2B-7D4F-4C39-9B6E-2F8A1D3C4B5E}\",\n"
    "\t\t\t\"version\" : \"8.2.0.14\"\n"
    "\t\t}\n"
    "\t]\n"
    "}\n";

void fillRecord()
{
    g_updateRecord.sUpdateKey = L"{5A1C0E2B-7D4F-4C39-9B6E-2F8A1D3C4B5E}";
    g_updateRecord.sAgent = L"GenericAgent";
    g_updateRecord.sFileName = L"C:\\Windows\\Temp\\updatetool-data\\agent.msi";
    g_updateRecord.sVersion = L"8.2.0.14";
    g_updateRecord.nState = STATE_DONE;
    g_updateRecord.nRetry = 1;
    g_updateRecord.sResult = L"SUCCESS";
}

std::string fileText(const FakePlatform& p, const std::wstring& path = kFile)
{
    std::vector<unsigned char> bytes = p.files.bytesOf(path);
    return std::string(bytes.begin(), bytes.end());
}

Json::Value parsed(const std::string& text)
{
    Json::Value root;
    Json::Reader reader;
    EXPECT_TRUE(reader.parse(text.data(), text.data() + text.size(), root, true)) << text.substr(0, 200);
    return root;
}

int indexOf(const std::vector<std::wstring>& lines, const std::wstring& line)
{
    for (size_t i = 0; i < lines.size(); ++i)
        if (lines[i] == line)
            return static_cast<int>(i);
    return -1;
}

struct TelemetryTest : ::testing::Test {
    FakePlatform p;

    void SetUp() override
    {
        p.files.addDirectory(L"D:\\Logs");
        p.keys.putString(HKEY_LOCAL_MACHINE, kNewRoot, L"InstallLogsDir", L"D:\\Logs");
        fillRecord();
    }
};

// A file service whose size, read or write calls can be made to fail.
struct FaultyFiles : fakes::FakeFileSystem {
    DWORD sizeError = 0;   // GetFileSize returns INVALID_FILE_SIZE with this error
    bool failSize = false;
    DWORD readError = 0;   // ReadFile fails with this error
    DWORD writeError = 0;  // WriteFile fails with this error

    DWORD GetFileSize(HANDLE file, LPDWORD high) override
    {
        if (!failSize)
            return FakeFileSystem::GetFileSize(file, high);
        ::SetLastError(sizeError);
        return INVALID_FILE_SIZE;
    }
    BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read) override
    {
        if (!readError)
            return FakeFileSystem::ReadFile(file, buffer, toRead, read);
        ::SetLastError(readError);
        return FALSE;
    }
    BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD toWrite, LPDWORD written) override
    {
        if (!writeError)
            return FakeFileSystem::WriteFile(file, buffer, toWrite, written);
        ::SetLastError(writeError);
        return FALSE;
    }
};

platform::Services withFiles(platform::FileSystem& files)
{
    platform::Services s = platform::services();
    s.files = &files;
    return s;
}

}  // namespace

// ---- Util_UpdateDataForTelemetry: update identity

TEST_F(TelemetryTest, EmptyUpdateKeyLogsAndTouchesNoFile)
{
    g_updateRecord.sUpdateKey = corestring();
    // Writing a log line costs file calls of its own; the step may make
    // those of its one line and no more.
    int before = p.files.calls;
    LogLine(L"%s: probe", L"Test");
    int perLine = p.files.calls - before;
    before = p.files.calls;
    EXPECT_FALSE(Util_UpdateDataForTelemetry());
    EXPECT_TRUE(p.logHas(L"Util_UpdateDataForTelemetry: UpdateID empty"));
    EXPECT_EQ(before + perLine, p.files.calls);
    EXPECT_FALSE(p.files.exists(L"D:\\Logs\\updatetool"));
    EXPECT_FALSE(p.files.exists(kFile));
}

// ---- First run and later runs

TEST_F(TelemetryTest, FirstRunCreatesTheFileReportsItMissingAndWritesOneEntry)
{
    EXPECT_TRUE(Util_UpdateDataForTelemetry());
    EXPECT_TRUE(p.files.isDirectory(L"D:\\Logs\\updatetool"));
    EXPECT_EQ(kFirstRunDocument, fileText(p));

    std::vector<std::wstring> lines = p.logLines();
    int missing = indexOf(lines, kMissingLine);
    int saved = indexOf(lines, kSavedLine);
    EXPECT_GE(missing, 0);
    EXPECT_GT(saved, missing);
    EXPECT_EQ(-1, indexOf(lines, kLoadedLine));
    EXPECT_EQ(0, p.files.openHandles());
}

TEST_F(TelemetryTest, LaterRunAppendsAfterTheOldEntries)
{
    ASSERT_TRUE(Util_UpdateDataForTelemetry());
    g_updateRecord.nRetry = 2;
    g_updateRecord.nState = STATE_WAIT;
    g_updateRecord.sResult = L"DOWNLOAD_FAILED";
    p.clock.now += 300;
    EXPECT_TRUE(Util_UpdateDataForTelemetry());

    EXPECT_TRUE(p.logHas(kLoadedLine));
    Json::Value root = parsed(fileText(p));
    ASSERT_TRUE(root["updateTool"].isArray());
    ASSERT_EQ(2u, root["updateTool"].size());
    EXPECT_EQ(1, root["updateTool"][0]["attempt"].asInt());
    EXPECT_EQ("DONE", root["updateTool"][0]["status"].asString());
    EXPECT_EQ(2, root["updateTool"][1]["attempt"].asInt());
    EXPECT_EQ("WAIT", root["updateTool"][1]["status"].asString());
    EXPECT_EQ("DOWNLOAD_FAILED", root["updateTool"][1]["result"].asString());
    EXPECT_EQ(1794612914 + 300, root["updateTool"][1]["timestamp"].asInt64());
    // The second document starts with the first one's entry, unchanged.
    std::string text = fileText(p);
    EXPECT_EQ(kFirstRunDocument.substr(0, kFirstRunDocument.find("\t\t}")), text.substr(0, kFirstRunDocument.find("\t\t}")));
}

TEST_F(TelemetryTest, SecondDocumentIsTheStyledTextOfBothEntries)
{
    ASSERT_TRUE(Util_UpdateDataForTelemetry());
    ASSERT_TRUE(Util_UpdateDataForTelemetry());
    std::string entry = kFirstRunDocument.substr(kFirstRunDocument.find("\t\t{"),
                                                 kFirstRunDocument.find("\t]") - kFirstRunDocument.find("\t\t{"));
    // entry ends in "\t\t}\n"; between two entries the comma follows the brace.
    std::string expected = "{\n\t\"updateTool\" : \n\t[\n" + entry.substr(0, entry.size() - 1) + ",\n" + entry + "\t]\n}\n";
    EXPECT_EQ(expected, fileText(p));
}

TEST_F(TelemetryTest, OtherTopLevelKeysAreKept)
{
    p.files.addFile(kFile, std::string("{ \"machine\" : { \"id\" : 42 }, \"zeta\" : [ \"a\", \"b\" ], "
                                       "\"updateTool\" : [ { \"updatedGUID\" : \"old\" } ] }"));
    EXPECT_TRUE(Util_UpdateDataForTelemetry());
    EXPECT_TRUE(p.logHas(kLoadedLine));

    Json::Value root = parsed(fileText(p));
    EXPECT_EQ(42, root["machine"]["id"].asInt());
    ASSERT_TRUE(root["zeta"].isArray());
    EXPECT_EQ("b", root["zeta"][1].asString());
    ASSERT_EQ(2u, root["updateTool"].size());
    EXPECT_EQ("old", root["updateTool"][0]["updatedGUID"].asString());
    EXPECT_EQ("{5A1C0E2B-7D4F-4C39-9B6E-2F8A1D3C4B5E}", root["updateTool"][1]["updatedGUID"].asString());
    EXPECT_EQ(3u, root.size());
}

TEST_F(TelemetryTest, FileWithoutTheArrayGainsIt)
{
    p.files.addFile(kFile, std::string("{ \"other\" : true }"));
    EXPECT_TRUE(Util_UpdateDataForTelemetry());
    Json::Value root = parsed(fileText(p));
    EXPECT_TRUE(root["other"].asBool());
    ASSERT_TRUE(root["updateTool"].isArray());
    EXPECT_EQ(1u, root["updateTool"].size());
}

TEST_F(TelemetryTest, NullUpdateToolBecomesAnArray)
{
    p.files.addFile(kFile, std::string("{ \"updateTool\" : null }"));
    EXPECT_TRUE(Util_UpdateDataForTelemetry());
    Json::Value root = parsed(fileText(p));
    ASSERT_TRUE(root["updateTool"].isArray());
    EXPECT_EQ(1u, root["updateTool"].size());
}

TEST_F(TelemetryTest, UpdateToolThatIsNotAnArrayThrowsFromAppend)
{
    const std::string original = "{ \"updateTool\" : { \"entry\" : 1 } }";
    p.files.addFile(kFile, original);
    try {
        Util_UpdateDataForTelemetry();
        ADD_FAILURE() << "append on an object didn't throw";
    } catch (const Json::LogicError& e) {
        EXPECT_NE(std::string::npos, std::string(e.what()).find("Json::Value::append: requires arrayValue")) << e.what();
    }
    // The throw comes before the write: the file is as it was.
    EXPECT_EQ(original, fileText(p));
    EXPECT_TRUE(p.logHas(kLoadedLine));
    EXPECT_FALSE(p.logHas(kSavedLine));
    EXPECT_EQ(0, p.files.openHandles());
}

TEST_F(TelemetryTest, UpdateToolThatIsAStringThrowsFromAppend)
{
    p.files.addFile(kFile, std::string("{ \"updateTool\" : \"none\" }"));
    EXPECT_THROW(Util_UpdateDataForTelemetry(), Json::LogicError);
}

TEST_F(TelemetryTest, DocumentThatIsAnArrayThrowsFromTheKeyLookup)
{
    p.files.addFile(kFile, std::string("[ 1, 2 ]"));
    try {
        Util_UpdateDataForTelemetry();
        ADD_FAILURE() << "key lookup on an array didn't throw";
    } catch (const Json::LogicError& e) {
        EXPECT_NE(std::string::npos, std::string(e.what()).find("requires objectValue")) << e.what();
    }
    EXPECT_EQ("[ 1, 2 ]", fileText(p));
}

// ---- Files that don't parse

TEST_F(TelemetryTest, GarbageIsOverwrittenFromOffsetZeroAndItsTailStays)
{
    std::string garbage;
    while (garbage.size() < kFirstRunDocument.size() + 500)
        garbage += "this is not json at all; ";
    p.files.addFile(kFile, garbage);

    EXPECT_TRUE(Util_UpdateDataForTelemetry());
    EXPECT_TRUE(p.logHas(kMissingLine));
    EXPECT_TRUE(p.logHas(kSavedLine));

    std::string text = fileText(p);
    ASSERT_EQ(garbage.size(), text.size());
    EXPECT_EQ(kFirstRunDocument, text.substr(0, kFirstRunDocument.size()));
    EXPECT_EQ(garbage.substr(kFirstRunDocument.size()), text.substr(kFirstRunDocument.size()));
}

TEST_F(TelemetryTest, LeftoverTailAfterACompleteDocumentIsIgnoredByTheReader)
{
    std::string garbage;
    while (garbage.size() < kFirstRunDocument.size() + 500)
        garbage += "this is not json at all; ";
    p.files.addFile(kFile, garbage);
    ASSERT_TRUE(Util_UpdateDataForTelemetry());

    // The reader stops after the first complete value, so the next run
    // loads the rewritten document and adds to it.
    g_updateRecord.nRetry = 2;
    EXPECT_TRUE(Util_UpdateDataForTelemetry());
    EXPECT_TRUE(p.logHas(kLoadedLine));
    Json::Value root = parsed(fileText(p));
    ASSERT_EQ(2u, root["updateTool"].size());
    EXPECT_EQ(2, root["updateTool"][1]["attempt"].asInt());
}

TEST_F(TelemetryTest, TruncatedFileGoesOnWithWhatTheParserRead)
{
    p.files.addFile(kFile, std::string("{ \"keep\" : \"yes\", \"updateTool\" : [ { \"a\" : 1 }, "));
    EXPECT_TRUE(Util_UpdateDataForTelemetry());
    EXPECT_TRUE(p.logHas(kMissingLine));

    Json::Value root = parsed(fileText(p));
    EXPECT_EQ("yes", root["keep"].asString());
    ASSERT_TRUE(root["updateTool"].isArray());
    // The element the parser had started on stays as a null.
    ASSERT_EQ(3u, root["updateTool"].size());
    EXPECT_EQ(1, root["updateTool"][0]["a"].asInt());
    EXPECT_TRUE(root["updateTool"][1].isNull());
    EXPECT_EQ("DONE", root["updateTool"][2]["status"].asString());
}

TEST_F(TelemetryTest, CommentsInTheFileAreCarriedOver)
{
    p.files.addFile(kFile, std::string("// collected by the inventory agent\n{ \"updateTool\" : [] }"));
    EXPECT_TRUE(Util_UpdateDataForTelemetry());
    std::string text = fileText(p);
    EXPECT_NE(std::string::npos, text.find("// collected by the inventory agent"));
    EXPECT_EQ(1u, parsed(text)["updateTool"].size());
}

// ---- Size

TEST_F(TelemetryTest, TenThousandEntriesAreAllKeptAndOneIsAdded)
{
    Json::Value old;
    for (int i = 0; i < 10000; ++i) {
        Json::Value e;
        e["updatedGUID"] = "job-" + std::to_string(i);
        e["attempt"] = i;
        e["timestamp"] = Json::Int64(1700000000) + i;
        old["updateTool"].append(e);
    }
    p.files.addFile(kFile, old.toStyledString());

    EXPECT_TRUE(Util_UpdateDataForTelemetry());
    EXPECT_TRUE(p.logHas(kLoadedLine));
    Json::Value root = parsed(fileText(p));
    ASSERT_EQ(10001u, root["updateTool"].size());
    for (Json::ArrayIndex i = 0; i < 10000; ++i)
        ASSERT_EQ(old["updateTool"][i], root["updateTool"][i]) << i;
    EXPECT_EQ("{5A1C0E2B-7D4F-4C39-9B6E-2F8A1D3C4B5E}", root["updateTool"][10000]["updatedGUID"].asString());
}

// ---- Fields

TEST_F(TelemetryTest, OptionalFieldsAreLeftOutWhenEmpty)
{
    ASSERT_TRUE(Util_UpdateDataForTelemetry());
    Json::Value entry = parsed(fileText(p))["updateTool"][0];
    EXPECT_FALSE(entry.isMember("fromVersion"));
    EXPECT_FALSE(entry.isMember("errorCode"));
    EXPECT_FALSE(entry.isMember("errorDescription"));
    EXPECT_EQ(8u, entry.size());
}

TEST_F(TelemetryTest, OptionalFieldsAreWrittenWhenSetAndSortedWithTheOthers)
{
    g_updateRecord.sFromVersion = L"8.1.9.3";
    g_updateRecord.sErrorCode = L"1603";
    g_updateRecord.sErrorDesc = L"Fatal error during installation.";
    ASSERT_TRUE(Util_UpdateDataForTelemetry());
    std::string text = fileText(p);
    const std::string expected =
        "{\n"
        "\t\"updateTool\" : \n"
        "\t[\n"
        "\t\t{\n"
        "\t\t\t\"attempt\" : 1,\n"
        "\t\t\t\"errorCode\" : \"1603\",\n"
        "\t\t\t\"errorDescription\" : \"Fatal error during installation.\",\n"
        "\t\t\t\"fileName\" : \"C:\\\\Windows\\\\Temp\\\\updatetool-data\\\\agent.msi\",\n"
        "\t\t\t\"fromVersion\" : \"8.1.9.3\",\n"
        "\t\t\t\"result\" : \"SUCCESS\",\n"
        "\t\t\t\"status\" : \"DONE\",\n"
        "\t\t\t\"timestamp\" : 1794612914,\n"
        "\t\t\t\"type\" : \"GenericAgent\",\n"
        "\t\t\t\"updatedGUID\" : \"{5A1C0E2B-7D4F-4C39-9B6E-2F8A1D3C4B5E}\",\n"
        "\t\t\t\"version\" : \"8.2.0.14\"\n"
        "\t\t}\n"
        "\t]\n"
        "}\n";
    EXPECT_EQ(expected, text);
}

TEST_F(TelemetryTest, OnlyFromVersionWhenOnlyItIsSet)
{
    g_updateRecord.sFromVersion = L"8.1.9.3";
    ASSERT_TRUE(Util_UpdateDataForTelemetry());
    Json::Value entry = parsed(fileText(p))["updateTool"][0];
    EXPECT_EQ("8.1.9.3", entry["fromVersion"].asString());
    EXPECT_FALSE(entry.isMember("errorCode"));
    EXPECT_FALSE(entry.isMember("errorDescription"));
}

TEST_F(TelemetryTest, EmptyAlwaysFieldsAreEmptyStrings)
{
    g_updateRecord.sAgent = corestring();
    g_updateRecord.sFileName = corestring();
    g_updateRecord.sVersion = corestring();
    g_updateRecord.sResult = corestring();
    ASSERT_TRUE(Util_UpdateDataForTelemetry());
    std::string text = fileText(p);
    EXPECT_NE(std::string::npos, text.find("\t\t\t\"type\" : \"\",\n"));
    EXPECT_NE(std::string::npos, text.find("\t\t\t\"fileName\" : \"\",\n"));
    EXPECT_NE(std::string::npos, text.find("\t\t\t\"version\" : \"\"\n"));
    EXPECT_NE(std::string::npos, text.find("\t\t\t\"result\" : \"\",\n"));
    EXPECT_EQ(8u, parsed(text)["updateTool"][0].size());
}

TEST_F(TelemetryTest, NonAsciiTextIsEscapedInTheFile)
{
    g_updateRecord.sAgent = L"Ag\u00E9nt";
    g_updateRecord.sFileName = L"C:\\\u65E5\u672C\\\xD83D\xDE00.msi";
    g_updateRecord.sErrorDesc = L"\u00DCberpr\u00FCfung fehlgeschlagen";
    ASSERT_TRUE(Util_UpdateDataForTelemetry());
    std::string text = fileText(p);
    EXPECT_NE(std::string::npos, text.find("\"type\" : \"Ag\\u00e9nt\""));
    EXPECT_NE(std::string::npos, text.find("\"fileName\" : \"C:\\\\\\u65e5\\u672c\\\\\\ud83d\\ude00.msi\""));
    EXPECT_NE(std::string::npos, text.find("\"errorDescription\" : \"\\u00dcberpr\\u00fcfung fehlgeschlagen\""));
    for (unsigned char c : text)
        ASSERT_LT(c, 0x80) << "only ASCII in the file";

    // Read back, the strings are the UTF-8 of the wide text.
    Json::Value entry = parsed(text)["updateTool"][0];
    EXPECT_EQ("Ag\xC3\xA9nt", entry["type"].asString());
    EXPECT_EQ("C:\\\xE6\x97\xA5\xE6\x9C\xAC\\\xF0\x9F\x98\x80.msi", entry["fileName"].asString());
}

TEST_F(TelemetryTest, TimestampIsTheClockAs64BitInteger)
{
    p.clock.now = 5000000000LL;  // past 2038
    ASSERT_TRUE(Util_UpdateDataForTelemetry());
    std::string text = fileText(p);
    EXPECT_NE(std::string::npos, text.find("\"timestamp\" : 5000000000,"));
    Json::Value entry = parsed(text)["updateTool"][0];
    EXPECT_TRUE(entry["timestamp"].isInt64());
    EXPECT_EQ(5000000000LL, entry["timestamp"].asInt64());
}

TEST_F(TelemetryTest, StatusIsTheStateNameAndAttemptTheRetryCount)
{
    g_updateRecord.nState = STATE_UPDATING;
    g_updateRecord.nRetry = 7;
    ASSERT_TRUE(Util_UpdateDataForTelemetry());
    std::string text = fileText(p);
    EXPECT_NE(std::string::npos, text.find("\"status\" : \"UPDATING\","));
    EXPECT_NE(std::string::npos, text.find("\"attempt\" : 7,"));
}

TEST_F(TelemetryTest, UnknownStateIsAnEmptyStatus)
{
    g_updateRecord.nState = 9;
    ASSERT_TRUE(Util_UpdateDataForTelemetry());
    Json::Value entry = parsed(fileText(p))["updateTool"][0];
    ASSERT_TRUE(entry.isMember("status"));
    EXPECT_EQ("", entry["status"].asString());
}

// ---- Where the file goes

TEST(TelemetryDirectory, LegacyRootIsUsedWhenTheNewOneHasNoValue)
{
    FakePlatform p;
    fillRecord();
    p.files.addDirectory(L"E:\\OldLogs");
    p.keys.putString(HKEY_LOCAL_MACHINE, kLegacyRoot, L"InstallLogsDir", L"E:\\OldLogs");
    EXPECT_TRUE(Util_UpdateDataForTelemetry());
    EXPECT_EQ(kFirstRunDocument, fileText(p, L"E:\\OldLogs\\updatetool\\UpdateToolTelemetryData.json"));
    EXPECT_TRUE(p.logHas(L"Util_UpdateDataForTelemetry: Saving to json file - "
                         L"E:\\OldLogs\\updatetool\\UpdateToolTelemetryData.json completed"));
}

TEST(TelemetryDirectory, EmptyNewRootValueFallsBackToTheLegacyRoot)
{
    FakePlatform p;
    fillRecord();
    p.files.addDirectory(L"E:\\OldLogs");
    p.keys.putString(HKEY_LOCAL_MACHINE, kNewRoot, L"InstallLogsDir", L"");
    p.keys.putString(HKEY_LOCAL_MACHINE, kLegacyRoot, L"InstallLogsDir", L"E:\\OldLogs");
    EXPECT_TRUE(Util_UpdateDataForTelemetry());
    EXPECT_TRUE(p.files.exists(L"E:\\OldLogs\\updatetool\\UpdateToolTelemetryData.json"));
}

TEST(TelemetryDirectory, NewRootWinsOverTheLegacyRoot)
{
    FakePlatform p;
    fillRecord();
    p.files.addDirectory(L"D:\\Logs");
    p.files.addDirectory(L"E:\\OldLogs");
    p.keys.putString(HKEY_LOCAL_MACHINE, kNewRoot, L"InstallLogsDir", L"D:\\Logs");
    p.keys.putString(HKEY_LOCAL_MACHINE, kLegacyRoot, L"InstallLogsDir", L"E:\\OldLogs");
    EXPECT_TRUE(Util_UpdateDataForTelemetry());
    EXPECT_TRUE(p.files.exists(kFile));
    EXPECT_FALSE(p.files.exists(L"E:\\OldLogs\\updatetool"));
}

TEST(TelemetryDirectory, WorkspaceIsUsedWhenNeitherRootHasAValue)
{
    FakePlatform p;
    fillRecord();
    EXPECT_TRUE(Util_UpdateDataForTelemetry());
    const std::wstring path = L"C:\\Windows\\Temp\\updatetool-data\\updatetool\\UpdateToolTelemetryData.json";
    EXPECT_EQ(kFirstRunDocument, fileText(p, path));
    EXPECT_TRUE(p.logHas(L"Util_UpdateDataForTelemetry: Saving to json file - " + path + L" completed"));
}

TEST(TelemetryDirectory, DirectoryEndingInABackslashGivesADoubledBackslashThatWorks)
{
    FakePlatform p;
    fillRecord();
    p.files.addDirectory(L"D:\\Logs");
    p.keys.putString(HKEY_LOCAL_MACHINE, kNewRoot, L"InstallLogsDir", L"D:\\Logs\\");
    EXPECT_TRUE(Util_UpdateDataForTelemetry());
    EXPECT_TRUE(p.logHas(L"Util_UpdateDataForTelemetry: Saving to json file - "
                         L"D:\\Logs\\\\updatetool\\UpdateToolTelemetryData.json completed"));
    EXPECT_EQ(kFirstRunDocument, fileText(p, kFile));
}

TEST_F(TelemetryTest, FailedCreateDirectoryIsIgnoredWhenTheFolderIsThere)
{
    p.files.addDirectory(L"D:\\Logs\\updatetool");
    p.files.failCreateDirectory(ERROR_ACCESS_DENIED);
    EXPECT_TRUE(Util_UpdateDataForTelemetry());
    EXPECT_EQ(kFirstRunDocument, fileText(p));
}

// ---- Write failures

TEST_F(TelemetryTest, FileHeldOpenByAnotherReaderFailsTheSave)
{
    const std::string original = "{ \"updateTool\" : [] }";
    p.files.addFile(kFile, original);
    HANDLE other = p.files.holdOpen(kFile);

    EXPECT_FALSE(Util_UpdateDataForTelemetry());
    EXPECT_EQ(static_cast<DWORD>(ERROR_SHARING_VIOLATION), ::GetLastError());
    EXPECT_TRUE(p.logHas(kMissingLine));
    EXPECT_TRUE(p.logHas(kFailedLine));
    EXPECT_FALSE(p.logHas(kSavedLine));
    EXPECT_EQ(original, fileText(p));
    EXPECT_EQ(1, p.files.openHandles());
    p.files.release(other);
}

TEST_F(TelemetryTest, FolderThatCannotBeMadeFailsTheSave)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kNewRoot, L"InstallLogsDir", L"Q:\\Missing\\Deeper");
    EXPECT_FALSE(Util_UpdateDataForTelemetry());
    EXPECT_EQ(static_cast<DWORD>(ERROR_PATH_NOT_FOUND), ::GetLastError());
    EXPECT_TRUE(p.logHas(L"Util_UpdateDataForTelemetry: Failed to save to json file - "
                         L"Q:\\Missing\\Deeper\\updatetool\\UpdateToolTelemetryData.json"));
    EXPECT_FALSE(p.files.exists(L"Q:\\Missing\\Deeper\\updatetool\\UpdateToolTelemetryData.json"));
}

TEST_F(TelemetryTest, WriteFileFailureFailsTheSaveWithItsError)
{
    FaultyFiles files;
    files.addDirectory(L"D:\\Logs");
    files.writeError = ERROR_DISK_FULL;
    fakes::ScopedServices scope(withFiles(files));

    EXPECT_FALSE(Util_UpdateDataForTelemetry());
    EXPECT_EQ(static_cast<DWORD>(ERROR_DISK_FULL), ::GetLastError());
    EXPECT_TRUE(p.logHas(kFailedLine));
    EXPECT_EQ(0, files.openHandles());
}

// ---- LoadJsonFile

TEST_F(TelemetryTest, LoadOfAMissingFileCreatesItEmptyAndFailsLikeAnEmptyMapping)
{
    p.files.addDirectory(L"D:\\Logs\\updatetool");
    Json::Value root;
    EXPECT_FALSE(LoadJsonFile(corestring(kFile.c_str()), root));
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_INVALID), ::GetLastError());
    EXPECT_TRUE(p.files.exists(kFile));
    EXPECT_TRUE(p.files.bytesOf(kFile).empty());
    EXPECT_TRUE(root.isNull());
    EXPECT_EQ(0, p.files.openHandles());
}

TEST_F(TelemetryTest, LoadOfAnEmptyFileFailsWith1006)
{
    p.files.addFile(kFile, std::string());
    Json::Value root;
    EXPECT_FALSE(LoadJsonFile(corestring(kFile.c_str()), root));
    EXPECT_EQ(1006u, ::GetLastError());
}

TEST_F(TelemetryTest, LoadOfAValidFileSucceedsWithLastErrorZero)
{
    p.files.addFile(kFile, std::string("{ \"updateTool\" : [ { \"attempt\" : 3 } ] }"));
    Json::Value root;
    ::SetLastError(ERROR_ACCESS_DENIED);
    EXPECT_TRUE(LoadJsonFile(corestring(kFile.c_str()), root));
    EXPECT_EQ(0u, ::GetLastError());
    EXPECT_EQ(3, root["updateTool"][0]["attempt"].asInt());
    EXPECT_EQ(0, p.files.openHandles());
}

TEST_F(TelemetryTest, LoadOfGarbageFailsWithInvalidData)
{
    p.files.addFile(kFile, std::string("not json"));
    Json::Value root;
    EXPECT_FALSE(LoadJsonFile(corestring(kFile.c_str()), root));
    EXPECT_EQ(static_cast<DWORD>(ERROR_INVALID_DATA), ::GetLastError());
    EXPECT_EQ(0, p.files.openHandles());
}

TEST_F(TelemetryTest, LoadOfNestingTooDeepForTheReaderFailsWithInvalidData)
{
    std::string deep;
    for (int i = 0; i < 1500; ++i)
        deep += "{\"a\":";
    deep += "1";
    for (int i = 0; i < 1500; ++i)
        deep += "}";
    p.files.addFile(kFile, deep);
    Json::Value root;
    EXPECT_FALSE(LoadJsonFile(corestring(kFile.c_str()), root));
    EXPECT_EQ(static_cast<DWORD>(ERROR_INVALID_DATA), ::GetLastError());
    EXPECT_EQ(0, p.files.openHandles());
}

TEST_F(TelemetryTest, LoadOfAFileHeldOpenFailsWithTheSharingViolation)
{
    p.files.addFile(kFile, std::string("{}"));
    HANDLE other = p.files.holdOpen(kFile);
    Json::Value root;
    EXPECT_FALSE(LoadJsonFile(corestring(kFile.c_str()), root));
    EXPECT_EQ(static_cast<DWORD>(ERROR_SHARING_VIOLATION), ::GetLastError());
    p.files.release(other);
}

TEST_F(TelemetryTest, LoadReadsWithoutSharing)
{
    // While the load holds the file nobody else may open it; seen from a
    // file service that tries to open it during the read.
    struct PeekingFiles : fakes::FakeFileSystem {
        HANDLE peek = nullptr;
        BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read) override
        {
            peek = CreateFileW(L"D:\\Logs\\updatetool\\UpdateToolTelemetryData.json", GENERIC_READ,
                               FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL);
            return FakeFileSystem::ReadFile(file, buffer, toRead, read);
        }
    } files;
    files.addFile(kFile, std::string("{}"));
    fakes::ScopedServices scope(withFiles(files));
    Json::Value root;
    EXPECT_TRUE(LoadJsonFile(corestring(kFile.c_str()), root));
    EXPECT_EQ(INVALID_HANDLE_VALUE, files.peek);
}

TEST_F(TelemetryTest, GetFileSizeFailureIsAnError)
{
    FaultyFiles files;
    files.addFile(kFile, std::string("{}"));
    files.failSize = true;
    files.sizeError = ERROR_ACCESS_DENIED;
    fakes::ScopedServices scope(withFiles(files));
    Json::Value root;
    EXPECT_FALSE(LoadJsonFile(corestring(kFile.c_str()), root));
    EXPECT_EQ(static_cast<DWORD>(ERROR_ACCESS_DENIED), ::GetLastError());
    EXPECT_EQ(0, files.openHandles());
}

TEST_F(TelemetryTest, GetFileSizeFailureValueWithoutAnErrorIsStillAnError)
{
    FaultyFiles files;
    files.addFile(kFile, std::string("{}"));
    files.failSize = true;
    files.sizeError = 0;
    fakes::ScopedServices scope(withFiles(files));
    Json::Value root;
    EXPECT_FALSE(LoadJsonFile(corestring(kFile.c_str()), root));
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_TOO_LARGE), ::GetLastError());
}

TEST_F(TelemetryTest, ReadFailureIsAnErrorAndTheRunStartsAFreshList)
{
    FaultyFiles files;
    files.addFile(kFile, std::string("{ \"updateTool\" : [ {}, {} ] }"));
    files.readError = ERROR_LOCK_VIOLATION;
    fakes::ScopedServices scope(withFiles(files));
    Json::Value root;
    EXPECT_FALSE(LoadJsonFile(corestring(kFile.c_str()), root));
    EXPECT_EQ(static_cast<DWORD>(ERROR_LOCK_VIOLATION), ::GetLastError());

    EXPECT_TRUE(Util_UpdateDataForTelemetry());
    EXPECT_TRUE(p.logHas(kMissingLine));
    std::vector<unsigned char> bytes = files.bytesOf(kFile);
    Json::Value written = parsed(std::string(bytes.begin(), bytes.end()));
    EXPECT_EQ(1u, written["updateTool"].size());
}

// ---- The same step against the real file system, in a folder of its own

namespace {

std::string readDiskFile(const std::wstring& path)
{
    HANDLE h = ::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                             FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return "<cannot open>";
    std::string text;
    char buffer[65536];
    DWORD read = 0;
    while (::ReadFile(h, buffer, sizeof buffer, &read, nullptr) && read)
        text.append(buffer, read);
    ::CloseHandle(h);
    return text;
}

void writeDiskFile(const std::wstring& path, const std::string& text)
{
    HANDLE h = ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, h);
    DWORD written = 0;
    ASSERT_TRUE(::WriteFile(h, text.data(), static_cast<DWORD>(text.size()), &written, nullptr));
    ::CloseHandle(h);
}

struct TelemetryOnDiskTest : ::testing::Test {
    FakePlatform p;
    std::unique_ptr<fakes::ScopedServices> disk;
    std::wstring dir;
    std::wstring folder;
    std::wstring file;

    void SetUp() override
    {
        static int serial = 0;
        wchar_t temp[MAX_PATH + 1] = {};
        ASSERT_NE(0u, ::GetTempPathW(MAX_PATH, temp));
        dir = std::wstring(temp) + L"zt-telemetry-" + std::to_wstring(::GetCurrentProcessId()) + L"-" +
              std::to_wstring(++serial);
        ASSERT_TRUE(::CreateDirectoryW(dir.c_str(), nullptr));
        folder = dir + L"\\updatetool";
        file = folder + L"\\UpdateToolTelemetryData.json";
        p.keys.putString(HKEY_LOCAL_MACHINE, kNewRoot, L"InstallLogsDir", dir);
        disk = std::make_unique<fakes::ScopedServices>(withFiles(*platform::win32Services().files));
        fillRecord();
    }
    void TearDown() override
    {
        disk.reset();
        ::DeleteFileW(file.c_str());
        ::RemoveDirectoryW(folder.c_str());
        ::RemoveDirectoryW(dir.c_str());
    }
};

}  // namespace

TEST_F(TelemetryOnDiskTest, FirstAndSecondRunWriteTheDocument)
{
    EXPECT_TRUE(Util_UpdateDataForTelemetry());
    EXPECT_EQ(kFirstRunDocument, readDiskFile(file));
    EXPECT_TRUE(p.logHas(L"Util_UpdateDataForTelemetry: Json file - " + file + L" , doesn't exist"));

    g_updateRecord.nRetry = 2;
    EXPECT_TRUE(Util_UpdateDataForTelemetry());
    EXPECT_TRUE(p.logHas(L"Util_UpdateDataForTelemetry: Loading from json file " + file + L" completed"));
    Json::Value root = parsed(readDiskFile(file));
    ASSERT_EQ(2u, root["updateTool"].size());
    EXPECT_EQ(2, root["updateTool"][1]["attempt"].asInt());
}

TEST_F(TelemetryOnDiskTest, LoadOfAMissingFileLeavesItEmptyAndFailsWith1006)
{
    ASSERT_TRUE(::CreateDirectoryW(folder.c_str(), nullptr));
    Json::Value root;
    EXPECT_FALSE(LoadJsonFile(corestring(file.c_str()), root));
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_INVALID), ::GetLastError());
    WIN32_FILE_ATTRIBUTE_DATA data{};
    ASSERT_TRUE(::GetFileAttributesExW(file.c_str(), GetFileExInfoStandard, &data));
    EXPECT_EQ(0u, data.nFileSizeLow);
    EXPECT_EQ(0u, data.nFileSizeHigh);
}

TEST_F(TelemetryOnDiskTest, LongerOldFileKeepsItsTailBehindTheNewText)
{
    ASSERT_TRUE(::CreateDirectoryW(folder.c_str(), nullptr));
    std::string garbage(kFirstRunDocument.size() + 4096, '#');
    for (size_t i = 0; i < garbage.size(); i += 64)
        garbage[i] = '\n';
    writeDiskFile(file, garbage);

    EXPECT_TRUE(Util_UpdateDataForTelemetry());
    std::string text = readDiskFile(file);
    ASSERT_EQ(garbage.size(), text.size());
    EXPECT_EQ(kFirstRunDocument, text.substr(0, kFirstRunDocument.size()));
    EXPECT_EQ(garbage.substr(kFirstRunDocument.size()), text.substr(kFirstRunDocument.size()));
}

TEST_F(TelemetryOnDiskTest, DirectoryEndingInABackslashWorks)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kNewRoot, L"InstallLogsDir", dir + L"\\");
    EXPECT_TRUE(Util_UpdateDataForTelemetry());
    EXPECT_TRUE(p.logHas(L"Util_UpdateDataForTelemetry: Saving to json file - " + dir +
                         L"\\\\updatetool\\UpdateToolTelemetryData.json completed"));
    EXPECT_EQ(kFirstRunDocument, readDiskFile(file));
}

TEST_F(TelemetryOnDiskTest, FileHeldOpenWithoutSharingFailsTheSave)
{
    ASSERT_TRUE(::CreateDirectoryW(folder.c_str(), nullptr));
    writeDiskFile(file, "{ \"updateTool\" : [] }");
    HANDLE other = ::CreateFileW(file.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, other);
    EXPECT_FALSE(Util_UpdateDataForTelemetry());
    EXPECT_EQ(static_cast<DWORD>(ERROR_SHARING_VIOLATION), ::GetLastError());
    EXPECT_TRUE(p.logHas(L"Util_UpdateDataForTelemetry: Failed to save to json file - " + file));
    ::CloseHandle(other);
    EXPECT_EQ("{ \"updateTool\" : [] }", readDiskFile(file));
}
