// Finding the job, reading it into the record and publishing it to the App.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "app/App.h"
#include "fakes/FakePlatform.h"
#include "update/UpdateRecord.h"
#include "update/UpdateRecordReader.h"
#include "update/UpdateState.h"

using CORE::corestring;
using fakes::FakeKeyStore;
using fakes::FakePlatform;

namespace {

const std::wstring kNewJobs = L"Software\\Tarvelle\\Zenthra\\Agent\\Update";
const std::wstring kLegacyJobs = L"Software\\Kesmarc, Inc.\\Kesmarc TQM\\Agent\\Update";

using fakes::whole;

std::vector<std::wstring> texts(const CORE::StringList& list)
{
    std::vector<std::wstring> out;
    for (const corestring& s : list)
        out.push_back(whole(s));
    return out;
}

struct RecordTest : ::testing::Test {
    FakePlatform p;
    UpdateRecord& rec = g_updateRecord;

    static std::wstring job(const std::wstring& root, const std::wstring& name) { return root + L"\\" + name; }

    void put(const std::wstring& key, const wchar_t* name, const std::wstring& text, DWORD type = REG_SZ)
    {
        p.keys.putString(HKEY_LOCAL_MACHINE, key, name, text, type);
    }
    // AGENT and a share path: the least a readable job holds.
    std::wstring minimalJob(const std::wstring& root = kNewJobs, const std::wstring& name = L"Job1")
    {
        std::wstring key = job(root, name);
        put(key, L"AGENT", L"TOVI");
        put(key, L"UNC_PATH", L"\\\\srv\\share\\agent.msi");
        return key;
    }
    // Reads a job of the new root directly.
    bool readNewJob(const wchar_t* name = L"Job1")
    {
        rec.sUpdateKey = name;
        rec.bLegacyUpgrade = false;
        return UtilGetRegistry();
    }
    bool opened(const std::wstring& path) const
    {
        std::vector<std::wstring> paths = p.keys.openedPaths();
        return std::find(paths.begin(), paths.end(), path) != paths.end();
    }
    bool openedBelow(const std::wstring& prefix) const
    {
        for (const std::wstring& path : p.keys.openedPaths())
            if (path.compare(0, prefix.size(), prefix) == 0)
                return true;
        return false;
    }
    std::vector<std::wstring> linesWith(const std::wstring& part) const
    {
        std::vector<std::wstring> out;
        for (const std::wstring& line : p.logLines())
            if (line.find(part) != std::wstring::npos)
                out.push_back(line);
        return out;
    }
};

// ================================================================ UtilGetActiveUpdate

TEST_F(RecordTest, NoJobUnderEitherRootClearsTheKeyAndLogsBothSearches)
{
    rec.sUpdateKey = L"stale";
    EXPECT_FALSE(UtilGetActiveUpdate());
    EXPECT_TRUE(rec.sUpdateKey.empty());
    EXPECT_FALSE(rec.bLegacyUpgrade);
    EXPECT_EQ((std::vector<std::wstring>{L"UtilGetActiveUpdate: No Kesmarc active updates",
                                         L"UtilGetActiveUpdate: Check for Tarvelle active updates",
                                         L"UtilGetActiveUpdate: No Tarvelle active updates"}),
              p.logLines());
}

TEST_F(RecordTest, JobUnderTheNewRootIsFoundAfterTheLegacyRoot)
{
    minimalJob(kNewJobs, L"Job1");
    p.keys.clearLog();
    EXPECT_TRUE(UtilGetActiveUpdate());
    EXPECT_EQ(L"Job1", whole(rec.sUpdateKey));
    EXPECT_FALSE(rec.bLegacyUpgrade);
    EXPECT_EQ((std::vector<std::wstring>{L"UtilGetActiveUpdate: No Kesmarc active updates",
                                         L"UtilGetActiveUpdate: Check for Tarvelle active updates",
                                         L"UtilGetActiveUpdate: Update key: Job1"}),
              p.logLines());
    std::vector<std::wstring> paths = p.keys.openedPaths();
    ASSERT_EQ(2u, paths.size());
    EXPECT_EQ(L"HKLM\\" + kLegacyJobs + L"\\", paths[0]);
    EXPECT_EQ(L"HKLM\\" + kNewJobs + L"\\", paths[1]);
}

TEST_F(RecordTest, JobUnderTheLegacyRootIsAnUpgrade)
{
    minimalJob(kLegacyJobs, L"OldJob");
    EXPECT_TRUE(UtilGetActiveUpdate());
    EXPECT_EQ(L"OldJob", whole(rec.sUpdateKey));
    EXPECT_TRUE(rec.bLegacyUpgrade);
    EXPECT_EQ((std::vector<std::wstring>{L"UtilGetActiveUpdate: Kesmarc to Tarvelle agent upgrade detected",
                                         L"UtilGetActiveUpdate: Update key: OldJob"}),
              p.logLines());
}

TEST_F(RecordTest, JobsUnderBothRootsUseTheLegacyOneAndNeverLookAtTheNewRoot)
{
    std::wstring newKey = minimalJob(kNewJobs, L"NewJob");
    put(newKey, L"VERSION", L"9.9");
    std::wstring oldKey = minimalJob(kLegacyJobs, L"OldJob");
    put(oldKey, L"VERSION", L"1.0");
    p.keys.clearLog();

    NoCaseMap map;
    EXPECT_TRUE(Util_GetUpdateState(map));
    EXPECT_TRUE(rec.bLegacyUpgrade);
    EXPECT_EQ(L"OldJob", whole(rec.sUpdateKey));
    EXPECT_EQ(L"1.0", whole(rec.sVersion));
    EXPECT_FALSE(openedBelow(L"HKLM\\Software\\Tarvelle"));
    EXPECT_TRUE(opened(L"HKLM\\" + oldKey));
    EXPECT_TRUE(opened(L"HKLM\\" + kLegacyJobs + L"\\"));
    EXPECT_TRUE(linesWith(L"No Kesmarc").empty());
}

TEST_F(RecordTest, OfTwoJobsOnlyTheFirstInEnumerationOrderIsSeen)
{
    minimalJob(kNewJobs, L"Zeta");
    minimalJob(kNewJobs, L"Alpha");
    EXPECT_TRUE(UtilGetActiveUpdate());
    EXPECT_EQ(L"Zeta", whole(rec.sUpdateKey));

    p.keys.setEnumerationOrder(FakeKeyStore::Order::Alphabetical, FakeKeyStore::Order::Insertion);
    EXPECT_TRUE(UtilGetActiveUpdate());
    EXPECT_EQ(L"Alpha", whole(rec.sUpdateKey));
}

TEST_F(RecordTest, VanishedJobLeavesAnEmptyKeyAndKeepsTheUpgradeFlag)
{
    minimalJob(kLegacyJobs, L"OldJob");
    ASSERT_TRUE(UtilGetActiveUpdate());
    ASSERT_TRUE(rec.bLegacyUpgrade);
    p.keys.failOpen(HKEY_LOCAL_MACHINE, kLegacyJobs, ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(UtilGetActiveUpdate());
    EXPECT_TRUE(rec.sUpdateKey.empty());
    EXPECT_TRUE(rec.bLegacyUpgrade);
}

TEST_F(RecordTest, JobNameWithTrailingBlanksIsTrimmedAndItsOpenFails)
{
    std::wstring key = minimalJob(kNewJobs, L"Job1  ");
    NoCaseMap map;
    EXPECT_FALSE(Util_GetUpdateState(map));
    EXPECT_EQ(L"Job1", whole(rec.sUpdateKey));
    EXPECT_TRUE(opened(L"HKLM\\" + kNewJobs + L"\\Job1"));
    EXPECT_FALSE(opened(L"HKLM\\" + key));
    std::vector<std::wstring> lines = p.logLines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(L"UtilGetRegistry: Tarvelle Update key: Job1 empty key", lines[lines.size() - 2]);
    EXPECT_EQ(L"Util_GetUpdateState: Update key: Job1 Registry failure", lines.back());
    EXPECT_TRUE(map.empty());
}

// ================================================================ UtilGetRegistry

TEST_F(RecordTest, EmptyUpdateKeyReturnsFalseAtOnce)
{
    minimalJob();
    p.keys.clearLog();
    rec.sUpdateKey = corestring();
    EXPECT_FALSE(UtilGetRegistry());
    EXPECT_TRUE(p.keys.opens().empty());
    EXPECT_TRUE(p.logLines().empty());
}

TEST_F(RecordTest, EmptyKeyUnderTheNewRoot)
{
    p.keys.createKey(HKEY_LOCAL_MACHINE, job(kNewJobs, L"Job1"));
    EXPECT_FALSE(readNewJob());
    EXPECT_EQ((std::vector<std::wstring>{L"UtilGetRegistry: Tarvelle Update key: Job1 empty key"}), p.logLines());
}

TEST_F(RecordTest, EmptyKeyUnderTheLegacyRoot)
{
    p.keys.createKey(HKEY_LOCAL_MACHINE, job(kLegacyJobs, L"Old"));
    minimalJob(kNewJobs, L"Old");
    rec.sUpdateKey = L"Old";
    rec.bLegacyUpgrade = true;
    EXPECT_FALSE(UtilGetRegistry());
    EXPECT_EQ((std::vector<std::wstring>{L"UtilGetRegistry: Kesmarc Update key: Old empty key"}), p.logLines());
}

TEST_F(RecordTest, KeyThatCannotBeOpenedLooksEmpty)
{
    std::wstring key = minimalJob();
    p.keys.failOpen(HKEY_LOCAL_MACHINE, key, ERROR_ACCESS_DENIED);
    EXPECT_FALSE(readNewJob());
    EXPECT_EQ((std::vector<std::wstring>{L"UtilGetRegistry: Tarvelle Update key: Job1 empty key"}), p.logLines());
}

TEST_F(RecordTest, KeyHoldingOnlyADefaultValueIsEmpty)
{
    put(job(kNewJobs, L"Job1"), L"", L"TOVI");
    EXPECT_FALSE(readNewJob());
    EXPECT_EQ((std::vector<std::wstring>{L"UtilGetRegistry: Tarvelle Update key: Job1 empty key"}), p.logLines());
}

TEST_F(RecordTest, AFullJobFillsEveryFieldAndLogsInOrder)
{
    std::wstring key = job(kNewJobs, L"Job1");
    const std::wstring metadata =
        L"<PROPERTYBAG><ITEM name=\"THUMBPRINT\">AB12</ITEM></PROPERTYBAG>";
    put(key, L"STATE", L"DOWNLOAD");
    put(key, L"AGENT", L"TOVI");
    put(key, L"VERSION", L"8.12.0");
    p.keys.putMultiString(HKEY_LOCAL_MACHINE, key, L"URL", {L"https://a/x.msi", L"https://b/x.msi"});
    put(key, L"UNC_PATH", L"\\\\srv\\share\\x.msi");
    put(key, L"UNC_SHARETYPE", L"DFS");
    p.keys.putMultiString(HKEY_LOCAL_MACHINE, key, L"PROXY", {L"p1:8080"});
    put(key, L"PACURL", L"http://pac/");
    put(key, L"ARCH", L"64-BitAgent");
    put(key, L"METADATA", metadata);
    put(key, L"CHECKSUM", L"ABCDEF");
    put(key, L"FILESIZE", L"1234");
    put(key, L"CERTTYPE", L"PINNED");
    put(key, L"OPTIONS", L"PREFLIGHTCHECK_ENABLED=1");
    put(key, L"RESULT", L"PROGRESS");
    put(key, L"FILENAME", L"C:\\t\\x.msi");
    put(key, L"PACKAGEFILENAME", L"x.tar");
    put(key, L"RELATIVEFOLDERPATH", L"sub\\dir");
    p.keys.putDword(HKEY_LOCAL_MACHINE, key, L"RETRY", 2);

    EXPECT_TRUE(readNewJob());
    EXPECT_EQ(STATE_DOWNLOAD, rec.nState);
    EXPECT_EQ(L"TOVI", whole(rec.sAgent));
    EXPECT_EQ(L"8.12.0", whole(rec.sVersion));
    EXPECT_EQ((std::vector<std::wstring>{L"https://a/x.msi", L"https://b/x.msi"}), texts(rec.sURLs));
    EXPECT_EQ(L"\\\\srv\\share\\x.msi", whole(rec.sUNC));
    EXPECT_EQ(L"DFS", whole(rec.sShareType));
    EXPECT_EQ((std::vector<std::wstring>{L"p1:8080"}), texts(rec.sProxies));
    EXPECT_EQ(L"http://pac/", whole(rec.sPacUrl));
    EXPECT_EQ(L"64-BitAgent", whole(rec.sArch));
    EXPECT_EQ(metadata, whole(rec.sMetadata));
    EXPECT_EQ(L"ABCDEF", whole(rec.sCheckSum));
    EXPECT_EQ(L"1234", whole(rec.sFileSize));
    EXPECT_EQ(L"PINNED", whole(rec.sCertType));
    EXPECT_EQ((std::vector<std::wstring>{L"AB12"}), texts(rec.sThumbprints));
    EXPECT_EQ(L"PREFLIGHTCHECK_ENABLED=1", whole(rec.sOptions));
    EXPECT_EQ(L"PROGRESS", whole(rec.sResult));
    EXPECT_EQ(L"C:\\t\\x.msi", whole(rec.sFileName));
    EXPECT_EQ(L"x.tar", whole(rec.sPackageFileName));
    EXPECT_EQ(L"sub\\dir", whole(rec.sRelativeFolderPath));
    EXPECT_EQ(2, rec.nRetry);

    const std::vector<std::wstring> expected = {
        L"Update key: Job1 STATE = DOWNLOAD",
        L"Update key: Job1 AGENT = TOVI",
        L"Update key: Job1 VERSION = 8.12.0",
        L"Update key: Job1 URL = https://a/x.msi",  // the text stops at its first NUL
        L"Update key: Job1 UNC_PATH = \\\\srv\\share\\x.msi",
        L"Update key: Job1 UNC_SHARETYPE = DFS",
        L"Update key: Job1 PROXY = p1:8080",
        L"Update key: Job1 PACURL = http://pac/",
        L"Update key: Job1 ARCH = 64-BitAgent",
        L"Update key: Job1 METADATA = " + metadata,
        L"Update key: Job1 CHECKSUM = ABCDEF",
        L"Update key: Job1 FILESIZE = 1234",
        L"Update key: Job1 CERTTYPE = PINNED",
        L"Update key: Job1 OPTIONS = PREFLIGHTCHECK_ENABLED=1",
        L"Update key: Job1 RESULT = PROGRESS",
        L"Update key: Job1 FILENAME = C:\\t\\x.msi",
        L"Update key: Job1 PACKAGEFILENAME = x.tar",
        L"Update key: Job1 RELATIVEFOLDERPATH = sub\\dir",
        L"Update key: Job1 RETRY = 2",
        L"UtilGetRegistry: URL length: 33 [https://a/x.msi,https://b/x.msi]",
        L"UtilGetRegistry: Proxy length: 9 [p1:8080]",
        L"UtilGetRegistry: matadata XML string loaded",
    };
    EXPECT_EQ(expected, p.logLines());
}

TEST_F(RecordTest, EntriesAreLoggedInThePlatformsOrderWithNothingMasked)
{
    p.keys.setEnumerationOrder(FakeKeyStore::Order::Insertion, FakeKeyStore::Order::Alphabetical);
    std::wstring key = job(kNewJobs, L"Job1");
    put(key, L"UNC_PATH", L"\\\\s\\x");
    put(key, L"CHECKSUM", L"secret-sum");
    put(key, L"AGENT", L"OTHER");
    p.keys.putBytes(HKEY_LOCAL_MACHINE, key, L"PACURL", REG_SZ, {});
    EXPECT_TRUE(readNewJob());
    const std::vector<std::wstring> expected = {
        L"Update key: Job1 AGENT = OTHER",
        L"Update key: Job1 CHECKSUM = secret-sum",
        L"Update key: Job1 PACURL = ",
        L"Update key: Job1 UNC_PATH = \\\\s\\x",
    };
    EXPECT_EQ(expected, p.logLines());
}

TEST_F(RecordTest, StateNamesAreReadIgnoringCase)
{
    std::wstring key = minimalJob();
    put(key, L"STATE", L"updating");
    EXPECT_TRUE(readNewJob());
    EXPECT_EQ(STATE_UPDATING, rec.nState);
}

TEST_F(RecordTest, UnknownStateGivesZeroAndIsLoggedButIsNoFailure)
{
    std::wstring key = minimalJob();
    put(key, L"STATE", L"BOGUS");
    EXPECT_TRUE(readNewJob());
    EXPECT_EQ(STATE_UNKNOWN, rec.nState);
    EXPECT_EQ(1u, linesWith(L"UtilStateId: invalid state: BOGUS").size());
}

TEST_F(RecordTest, AbsentStateAndRetryKeepTheirEarlierValues)
{
    minimalJob();
    rec.nState = STATE_UPDATING;
    rec.nRetry = 7;
    EXPECT_TRUE(readNewJob());
    EXPECT_EQ(STATE_UPDATING, rec.nState);
    EXPECT_EQ(7, rec.nRetry);
}

TEST_F(RecordTest, FreshRecordWithoutStateOrRetryIsReadyWithNoRetries)
{
    minimalJob();
    EXPECT_TRUE(readNewJob());
    EXPECT_EQ(STATE_READY, rec.nState);
    EXPECT_EQ(0, rec.nRetry);
}

TEST_F(RecordTest, EveryTextFieldIsClearedBeforeItIsRead)
{
    minimalJob();
    for (corestring* field :
         {&rec.sAgent, &rec.sVersion, &rec.sUNC, &rec.sShareType, &rec.sPacUrl, &rec.sArch, &rec.sMetadata,
          &rec.sOptions, &rec.sResult, &rec.sCheckSum, &rec.sFileSize, &rec.sCertType, &rec.sFileName,
          &rec.sPackageFileName, &rec.sRelativeFolderPath})
        *field = L"stale";
    rec.sURLs = {corestring(L"stale")};
    rec.sProxies = {corestring(L"stale")};
    rec.sThumbprints = {corestring(L"stale")};

    EXPECT_TRUE(readNewJob());
    EXPECT_EQ(L"TOVI", whole(rec.sAgent));
    EXPECT_EQ(L"\\\\srv\\share\\agent.msi", whole(rec.sUNC));
    EXPECT_EQ(L"SMB", whole(rec.sShareType));
    for (corestring* field : {&rec.sVersion, &rec.sPacUrl, &rec.sArch, &rec.sMetadata, &rec.sOptions, &rec.sResult,
                              &rec.sCheckSum, &rec.sFileSize, &rec.sCertType, &rec.sFileName, &rec.sPackageFileName,
                              &rec.sRelativeFolderPath})
        EXPECT_TRUE(field->empty()) << whole(*field);
    EXPECT_TRUE(rec.sURLs.empty());
    EXPECT_TRUE(rec.sProxies.empty());
    EXPECT_TRUE(rec.sThumbprints.empty());
}

TEST_F(RecordTest, ShareTypeDefaultsToSmbOnlyWithASharePath)
{
    minimalJob();
    EXPECT_TRUE(readNewJob());
    EXPECT_EQ(L"SMB", whole(rec.sShareType));

    std::wstring other = job(kNewJobs, L"Job2");
    put(other, L"AGENT", L"TOVI");
    put(other, L"URL", L"https://a/x.msi");
    EXPECT_TRUE(readNewJob(L"Job2"));
    EXPECT_TRUE(rec.sUNC.empty());
    EXPECT_TRUE(rec.sShareType.empty());
}

TEST_F(RecordTest, ExplicitShareTypeIsKept)
{
    std::wstring key = minimalJob();
    put(key, L"UNC_SHARETYPE", L"nfs");
    EXPECT_TRUE(readNewJob());
    EXPECT_EQ(L"nfs", whole(rec.sShareType));
}

TEST_F(RecordTest, LowerCaseAgentNameStillFillsTheAgent)
{
    std::wstring key = job(kNewJobs, L"Job1");
    put(key, L"agent", L"OTHER");
    put(key, L"unc_path", L"\\\\s\\x");
    EXPECT_TRUE(readNewJob());
    EXPECT_EQ(L"OTHER", whole(rec.sAgent));
    EXPECT_EQ(L"\\\\s\\x", whole(rec.sUNC));
}

TEST_F(RecordTest, ValueNamesWithSurroundingBlanksAreFound)
{
    std::wstring key = job(kNewJobs, L"Job1");
    put(key, L" \tAGENT ", L"TOVI");
    put(key, L"URL\r\n", L"https://a/x.msi");
    EXPECT_TRUE(readNewJob());
    EXPECT_EQ(L"TOVI", whole(rec.sAgent));
    EXPECT_EQ((std::vector<std::wstring>{L"https://a/x.msi"}), texts(rec.sURLs));
}

// ---------------------------------------------------------------- URL and PROXY

TEST_F(RecordTest, MultiStringUrlGivesTwoItems)
{
    std::wstring key = job(kNewJobs, L"Job1");
    put(key, L"AGENT", L"TOVI");
    p.keys.putMultiString(HKEY_LOCAL_MACHINE, key, L"URL", {L"https://a/1", L"https://b/2"});
    EXPECT_TRUE(readNewJob());
    EXPECT_EQ((std::vector<std::wstring>{L"https://a/1", L"https://b/2"}), texts(rec.sURLs));
    // 11 + 1 + 11 + 1 + 1 characters: the closing empty string is counted but adds no item.
    EXPECT_EQ(1u, linesWith(L"UtilGetRegistry: URL length: 25 [https://a/1,https://b/2]").size());
}

TEST_F(RecordTest, CommaInAPlainStringIsOneItem)
{
    std::wstring key = job(kNewJobs, L"Job1");
    put(key, L"AGENT", L"TOVI");
    put(key, L"URL", L"https://a/1,https://b/2");
    EXPECT_TRUE(readNewJob());
    EXPECT_EQ((std::vector<std::wstring>{L"https://a/1,https://b/2"}), texts(rec.sURLs));
    EXPECT_EQ(1u, linesWith(L"UtilGetRegistry: URL length: 23 [https://a/1,https://b/2]").size());
}

TEST_F(RecordTest, EmptyPiecesAreDroppedAndTheRemainderIsKept)
{
    std::wstring key = job(kNewJobs, L"Job1");
    put(key, L"AGENT", L"TOVI");
    // Stored without a terminator, as binary data: the last piece has no NUL behind it.
    const std::wstring url(L"\0\0a\0\0b\0c", 8);
    std::vector<BYTE> bytes(reinterpret_cast<const BYTE*>(url.data()),
                            reinterpret_cast<const BYTE*>(url.data()) + url.size() * 2);
    p.keys.putBytes(HKEY_LOCAL_MACHINE, key, L"URL", REG_BINARY, bytes);
    EXPECT_TRUE(readNewJob());
    EXPECT_EQ((std::vector<std::wstring>{L"a", L"b", L"c"}), texts(rec.sURLs));
    EXPECT_EQ(1u, linesWith(L"UtilGetRegistry: URL length: 8 [a,b,c]").size());
}

TEST_F(RecordTest, NulInsideAPlainStringSplitsIt)
{
    std::wstring key = job(kNewJobs, L"Job1");
    put(key, L"AGENT", L"TOVI");
    put(key, L"URL", std::wstring(L"one\0two", 7));
    EXPECT_TRUE(readNewJob());
    EXPECT_EQ((std::vector<std::wstring>{L"one", L"two"}), texts(rec.sURLs));
}

TEST_F(RecordTest, ItemsAreNeitherTrimmedNorDeduplicated)
{
    std::wstring key = job(kNewJobs, L"Job1");
    put(key, L"AGENT", L"TOVI");
    p.keys.putMultiString(HKEY_LOCAL_MACHINE, key, L"URL", {L" u ", L" u ", L"v"});
    EXPECT_TRUE(readNewJob());
    EXPECT_EQ((std::vector<std::wstring>{L" u ", L" u ", L"v"}), texts(rec.sURLs));
}

TEST_F(RecordTest, UrlOfNulsOnlyIsAnEmptyListAndFailsWithoutASharePath)
{
    std::wstring key = job(kNewJobs, L"Job1");
    put(key, L"AGENT", L"TOVI");
    p.keys.putMultiString(HKEY_LOCAL_MACHINE, key, L"URL", {L"", L""});
    EXPECT_FALSE(readNewJob());
    EXPECT_TRUE(rec.sURLs.empty());
    std::vector<std::wstring> lines = p.logLines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(L"UtilGetRegistry: URL length: 3 []", lines[lines.size() - 2]);
    EXPECT_EQ(L"UtilGetRegistry: required parameter empty, sAgent: TOVI, sUNC: , sURLs: ",
              lines.back());
}

TEST_F(RecordTest, ProxyListIsSplitAndLogged)
{
    std::wstring key = minimalJob();
    p.keys.putMultiString(HKEY_LOCAL_MACHINE, key, L"PROXY", {L"p1:80", L"", L"p2:81"});
    EXPECT_TRUE(readNewJob());
    EXPECT_EQ((std::vector<std::wstring>{L"p1:80", L"p2:81"}), texts(rec.sProxies));
    EXPECT_EQ((std::vector<std::wstring>{L"UtilGetRegistry: Proxy length: 14 [p1:80,p2:81]"}),
              linesWith(L"Proxy length"));
}

TEST_F(RecordTest, AbsentUrlAndProxyLogNoLengthLine)
{
    minimalJob();
    rec.sProxies = {corestring(L"stale")};
    EXPECT_TRUE(readNewJob());
    EXPECT_TRUE(linesWith(L"URL length").empty());
    EXPECT_TRUE(linesWith(L"Proxy length").empty());
    EXPECT_TRUE(rec.sProxies.empty());
}

TEST_F(RecordTest, UrlLengthLineForAPlainString)
{
    std::wstring key = minimalJob();
    put(key, L"URL", L"https://h/f");
    EXPECT_TRUE(readNewJob());
    EXPECT_EQ((std::vector<std::wstring>{L"UtilGetRegistry: URL length: 11 [https://h/f]"}), linesWith(L"URL length"));
}

// ---------------------------------------------------------------- mandatory values

TEST_F(RecordTest, MissingAgentFailsTheMandatoryCheck)
{
    std::wstring key = job(kNewJobs, L"Job1");
    put(key, L"UNC_PATH", L"\\\\srv\\x.msi");
    p.keys.putMultiString(HKEY_LOCAL_MACHINE, key, L"URL", {L"https://a/1", L"https://b/2"});
    EXPECT_FALSE(readNewJob());
    EXPECT_EQ(L"UtilGetRegistry: required parameter empty, sAgent: , sUNC: \\\\srv\\x.msi, sURLs: "
              L"https://a/1,https://b/2",
              p.logLines().back());
}

TEST_F(RecordTest, EmptyAgentFailsTheMandatoryCheck)
{
    std::wstring key = minimalJob();
    put(key, L"AGENT", L"");
    EXPECT_FALSE(readNewJob());
    EXPECT_EQ(L"UtilGetRegistry: required parameter empty, sAgent: , sUNC: \\\\srv\\share\\agent.msi, sURLs: "
              L"",
              p.logLines().back());
}

TEST_F(RecordTest, NeitherSharePathNorUrlFailsTheMandatoryCheck)
{
    std::wstring key = job(kNewJobs, L"Job1");
    put(key, L"AGENT", L"TOVI");
    put(key, L"UNC_PATH", L"");
    EXPECT_FALSE(readNewJob());
    EXPECT_EQ(L"UtilGetRegistry: required parameter empty, sAgent: TOVI, sUNC: , sURLs: ",
              p.logLines().back());
}

TEST_F(RecordTest, UrlAloneOrSharePathAloneIsEnough)
{
    std::wstring key = job(kNewJobs, L"Job1");
    put(key, L"AGENT", L"TOVI");
    put(key, L"URL", L"https://a/1");
    EXPECT_TRUE(readNewJob());
    EXPECT_TRUE(rec.sUNC.empty());

    minimalJob(kNewJobs, L"Job2");
    EXPECT_TRUE(readNewJob(L"Job2"));
    EXPECT_TRUE(rec.sURLs.empty());
    EXPECT_FALSE(rec.sUNC.empty());
}

TEST_F(RecordTest, AfterAFailedMandatoryCheckLaterValuesAreNotRead)
{
    std::wstring key = job(kNewJobs, L"Job1");
    put(key, L"STATE", L"DOWNLOAD");
    put(key, L"UNC_PATH", L"\\\\s\\x");
    put(key, L"ARCH", L"64-BitAgent");
    put(key, L"RESULT", L"OK");
    put(key, L"OPTIONS", L"x");
    p.keys.putDword(HKEY_LOCAL_MACHINE, key, L"RETRY", 2);
    rec.sResult = L"earlier";
    EXPECT_FALSE(readNewJob());
    // Read before the check.
    EXPECT_EQ(STATE_DOWNLOAD, rec.nState);
    EXPECT_EQ(L"64-BitAgent", whole(rec.sArch));
    // Not read after it.
    EXPECT_EQ(L"earlier", whole(rec.sResult));
    EXPECT_TRUE(rec.sOptions.empty());
    EXPECT_EQ(0, rec.nRetry);
}

// ---------------------------------------------------------------- METADATA

TEST_F(RecordTest, ThumbprintsComeFromMetadataInOrderIgnoringCaseAndSkippingSubBags)
{
    std::wstring key = minimalJob();
    put(key, L"METADATA",
        L"<PROPERTYBAG>"
        L"<ITEM name=\"THUMBPRINT\">AA11</ITEM>"
        L"<ITEM name=\"other\">zz</ITEM>"
        L"<ITEM name=\"thumbprint\">BB22</ITEM>"
        L"<ITEM name=\"ThumbPrint\" type=\"BAG\"><ITEM name=\"THUMBPRINT\">CC33</ITEM></ITEM>"
        L"<ITEM name=\"THUMBPRINTS\">DD44</ITEM>"
        L"<ITEM name=\"Thumbprint\">EE55</ITEM>"
        L"</PROPERTYBAG>");
    EXPECT_TRUE(readNewJob());
    EXPECT_EQ((std::vector<std::wstring>{L"AA11", L"BB22", L"EE55"}), texts(rec.sThumbprints));
    EXPECT_EQ(1u, linesWith(L"UtilGetRegistry: matadata XML string loaded").size());
}

TEST_F(RecordTest, MetadataWithoutThumbprintsLoadsAndGivesNone)
{
    std::wstring key = minimalJob();
    put(key, L"METADATA", L"<PROPERTYBAG><ITEM name=\"a\">b</ITEM></PROPERTYBAG>");
    rec.sThumbprints = {corestring(L"stale")};
    EXPECT_TRUE(readNewJob());
    EXPECT_TRUE(rec.sThumbprints.empty());
    EXPECT_EQ(1u, linesWith(L"matadata XML string loaded").size());
}

TEST_F(RecordTest, MetadataThatDoesNotParseIsSilentAndGivesNoThumbprints)
{
    std::wstring key = minimalJob();
    const std::wstring broken = L"<PROPERTYBAG><ITEM name=\"THUMBPRINT\">AA11</ITEM>";
    put(key, L"METADATA", broken);
    rec.sThumbprints = {corestring(L"stale")};
    EXPECT_TRUE(readNewJob());
    EXPECT_TRUE(rec.sThumbprints.empty());
    EXPECT_EQ(broken, whole(rec.sMetadata));
    EXPECT_TRUE(linesWith(L"matadata").empty());
    // Only the entry lines of the key.
    EXPECT_EQ(3u, p.logLines().size());
}

TEST_F(RecordTest, EmptyMetadataIsNotParsed)
{
    std::wstring key = minimalJob();
    put(key, L"METADATA", L"");
    EXPECT_TRUE(readNewJob());
    EXPECT_TRUE(linesWith(L"matadata").empty());
    EXPECT_TRUE(rec.sThumbprints.empty());
}

TEST_F(RecordTest, MetadataOf8192BytesEndsTheReadBeforeTheAgentInInsertionOrder)
{
    std::wstring key = job(kNewJobs, L"Job1");
    p.keys.putBytes(HKEY_LOCAL_MACHINE, key, L"METADATA", REG_SZ, std::vector<BYTE>(8192, 'a'));
    put(key, L"AGENT", L"TOVI");
    put(key, L"UNC_PATH", L"\\\\s\\x");
    EXPECT_FALSE(readNewJob());
    EXPECT_EQ(L"UtilGetRegistry: Tarvelle Update key: Job1 empty key", p.logLines().back());
}

TEST_F(RecordTest, MetadataOf8192BytesInAlphabeticalOrderDropsTheSharePath)
{
    p.keys.setEnumerationOrder(FakeKeyStore::Order::Insertion, FakeKeyStore::Order::Alphabetical);
    std::wstring key = job(kNewJobs, L"Job1");
    p.keys.putBytes(HKEY_LOCAL_MACHINE, key, L"METADATA", REG_SZ, std::vector<BYTE>(8192, 'a'));
    put(key, L"AGENT", L"TOVI");
    put(key, L"UNC_PATH", L"\\\\s\\x");
    EXPECT_FALSE(readNewJob());
    EXPECT_EQ(L"UtilGetRegistry: required parameter empty, sAgent: TOVI, sUNC: , sURLs: ",
              p.logLines().back());
}

TEST_F(RecordTest, MetadataOf8192BytesAfterTheMandatoryValuesLosesOnlyWhatFollows)
{
    std::wstring key = minimalJob();
    p.keys.putBytes(HKEY_LOCAL_MACHINE, key, L"METADATA", REG_SZ, std::vector<BYTE>(8192, 'a'));
    put(key, L"OPTIONS", L"o");
    EXPECT_TRUE(readNewJob());
    EXPECT_TRUE(rec.sMetadata.empty());
    EXPECT_TRUE(rec.sOptions.empty());
}

TEST_F(RecordTest, MetadataOf8191BytesIsKept)
{
    std::wstring key = minimalJob();
    // 8191 bytes of REG_SZ: 4095 characters once the terminator's place is dropped.
    std::vector<BYTE> bytes(8191, 0);
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2)
        bytes[i] = 'q';
    p.keys.putBytes(HKEY_LOCAL_MACHINE, key, L"METADATA", REG_SZ, bytes);
    put(key, L"OPTIONS", L"o");
    EXPECT_TRUE(readNewJob());
    EXPECT_EQ(4095u, rec.sMetadata.length());
    EXPECT_EQ(L"o", whole(rec.sOptions));
}

// ---------------------------------------------------------------- RETRY

struct RetryRow {
    DWORD type;
    std::wstring text;
    std::int32_t expected;
};

TEST_F(RecordTest, RetryTextsAndNumbers)
{
    const RetryRow rows[] = {
        {REG_SZ, L"3", 3},     {REG_SZ, L"0x10", 16}, {REG_SZ, L"010", 10},  {REG_SZ, L" 7 ", 7},
        {REG_SZ, L"-2", -2},   {REG_SZ, L"abc", 0},   {REG_SZ, L"", 0},      {REG_EXPAND_SZ, L"0X1f", 31},
        {REG_SZ, L"+04", 4},   {REG_SZ, L"5x", 5},
    };
    int n = 0;
    for (const RetryRow& row : rows) {
        std::wstring name = L"Job" + std::to_wstring(++n);
        std::wstring key = minimalJob(kNewJobs, name);
        put(key, L"RETRY", row.text, row.type);
        rec.nRetry = 99;
        EXPECT_TRUE(readNewJob(name.c_str()));
        EXPECT_EQ(row.expected, rec.nRetry) << row.text;
    }
}

TEST_F(RecordTest, RetryAsDwordAndAsTextGiveTheSameCount)
{
    std::wstring key = minimalJob();
    p.keys.putDword(HKEY_LOCAL_MACHINE, key, L"RETRY", 3);
    EXPECT_TRUE(readNewJob());
    EXPECT_EQ(3, rec.nRetry);

    key = minimalJob(kNewJobs, L"Job2");
    put(key, L"RETRY", L"3");
    rec.nRetry = 0;
    EXPECT_TRUE(readNewJob(L"Job2"));
    EXPECT_EQ(3, rec.nRetry);
}

// ================================================================ Util_GetUpdateState

TEST_F(RecordTest, GetUpdateStatePublishesFiveFields)
{
    std::wstring key = minimalJob();
    put(key, L"VERSION", L"1.2.3");
    put(key, L"ARCH", L"64-BitAgent");
    put(key, L"OPTIONS", L"PREFLIGHTCHECK_ENABLED=2");
    put(key, L"FILENAME", L"C:\\x.msi");
    put(key, L"CHECKSUM", L"ff");
    NoCaseMap map;
    map.set(L"agent", corestring(L"earlier"));
    EXPECT_TRUE(Util_GetUpdateState(map));
    ASSERT_EQ(5u, map.size());
    EXPECT_STREQ(L"TOVI", map[L"AGENT"].c_str());
    EXPECT_STREQ(L"1.2.3", map[L"VERSION"].c_str());
    EXPECT_STREQ(L"64-BitAgent", map[L"ARCH"].c_str());
    EXPECT_STREQ(L"PREFLIGHTCHECK_ENABLED=2", map[L"OPTIONS"].c_str());
    EXPECT_STREQ(L"C:\\x.msi", map[L"FILENAME"].c_str());
    EXPECT_EQ(nullptr, map.find(L"CHECKSUM"));
    EXPECT_TRUE(linesWith(L"Util_GetUpdateState").empty());
}

TEST_F(RecordTest, GetUpdateStateWithoutAJobHasNoLineOfItsOwn)
{
    NoCaseMap map;
    EXPECT_FALSE(Util_GetUpdateState(map));
    EXPECT_TRUE(map.empty());
    EXPECT_TRUE(linesWith(L"Util_GetUpdateState").empty());
    EXPECT_EQ(3u, p.logLines().size());
}

TEST_F(RecordTest, GetUpdateStateLogsARegistryFailure)
{
    put(job(kNewJobs, L"Job1"), L"UNC_PATH", L"\\\\s\\x");
    NoCaseMap map;
    EXPECT_FALSE(Util_GetUpdateState(map));
    EXPECT_TRUE(map.empty());
    EXPECT_EQ(L"Util_GetUpdateState: Update key: Job1 Registry failure", p.logLines().back());
}

TEST_F(RecordTest, GetUpdateStateLeavesNoKeyOpen)
{
    minimalJob(kLegacyJobs, L"Old");
    NoCaseMap map;
    EXPECT_TRUE(Util_GetUpdateState(map));
    EXPECT_EQ(0u, p.keys.openHandleCount());
}

// ================================================================ App::Init

TEST_F(RecordTest, AppInitTakesArchAndOptionsFromTheJob)
{
    std::wstring key = minimalJob();
    put(key, L"ARCH", L"32-BitAgent");
    put(key, L"OPTIONS", L"SOME=1");
    App app;
    EXPECT_TRUE(app.Init());
    EXPECT_STREQ(L"32-BitAgent", app.arch.c_str());
    EXPECT_STREQ(L"SOME=1", app.options.c_str());
    EXPECT_STREQ(L"TOVI", app.properties[L"AGENT"].c_str());
    EXPECT_FALSE(app.workspace.empty());
}

TEST_F(RecordTest, AppInitFailsWithoutAJob)
{
    App app;
    EXPECT_FALSE(app.Init());
    EXPECT_TRUE(app.arch.empty());
    EXPECT_TRUE(app.properties.empty());
}

TEST_F(RecordTest, AppInitFailsOnAJobWithoutAgent)
{
    put(job(kNewJobs, L"Job1"), L"URL", L"https://a/1");
    App app;
    EXPECT_FALSE(app.Init());
    EXPECT_TRUE(app.properties.empty());
}

}  // namespace
