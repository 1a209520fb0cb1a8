// The copy from an SMB share: the gate by state and share type, the
// connection to the file's folder, the copy into the workspace, the
// verification that follows and the outcome left in the record.
#include "fetch/ShareCopy.h"

#include <gtest/gtest.h>

#include "diagnostics/ToolLog.h"
#include "fetch/Workspace.h"
#include "fetch_test_support.h"

using namespace fetch_test;
using Op = fakes::FakeHashing::Op;

namespace {

class ShareCopy : public FetchTest {
protected:
    const UpdateRecord& r = g_updateRecord;
};

// --- The gate ------------------------------------------------------------------

TEST_F(ShareCopy, DownloadWithSmbCopiesVerifiesAndReportsOk)
{
    EXPECT_FALSE(Util_UNCDownload());
    EXPECT_STREQ(L"OK", r.sResult.c_str());
    EXPECT_STREQ(kDestination, r.sFileName.c_str());
    EXPECT_EQ(p.files.bytesOf(kSource), p.files.bytesOf(kDestination));
    EXPECT_TRUE(r.sErrorCode.empty());
    EXPECT_TRUE(r.sErrorDesc.empty());
    EXPECT_EQ(STATE_DOWNLOAD, r.nState);
    EXPECT_EQ((std::vector<std::wstring>{L"add", L"cancel"}), p.network.calls);
    EXPECT_EQ(0, p.files.openHandles());
    EXPECT_EQ((std::vector<std::wstring>{
                  L"Util_UNCDownload: Update key: Job1 state: DOWNLOAD",
                  L"Util_CopyFileFromUNC: Copying file from source \\\\server\\share\\folder\\agent.msi",
                  L"Util_CopyFileFromUNC: File copy done at destination "
                  L"C:\\Windows\\Temp\\updatetool-data\\agent.msi",
              }),
              linesOf({L"Util_UNCDownload", L"CopyFromSMBshare", L"Util_CopyFileFromUNC", L"Util_CompareFileSize",
                       L"Util_ComputeCheckSum", L"Util_CompareCheckSum"}));
}

TEST_F(ShareCopy, UpdatingGoesOnWithoutTouchingTheShare)
{
    g_updateRecord.nState = STATE_UPDATING;
    g_updateRecord.sResult = L"EARLIER";
    EXPECT_TRUE(Util_UNCDownload());
    EXPECT_TRUE(p.network.calls.empty());
    EXPECT_TRUE(files.copies.empty());
    EXPECT_STREQ(L"EARLIER", r.sResult.c_str());
    EXPECT_EQ(std::vector<std::wstring>{L"Util_UNCDownload: Update key: Job1 state: UPDATING"},
              linesOf({L"Util_UNCDownload", L"CopyFromSMBshare", L"Util_CopyFileFromUNC"}));
}

TEST_F(ShareCopy, OtherStatesEndTheRunWithoutTouchingTheShare)
{
    const std::pair<std::uint32_t, const wchar_t*> states[] = {
        {STATE_UNKNOWN, L""}, {STATE_READY, L"READY"}, {STATE_WAIT, L"WAIT"},
        {STATE_NOLOGON, L"NOLOGON"}, {STATE_DONE, L"DONE"}};
    std::vector<std::wstring> expected;
    for (const auto& [state, name] : states) {
        SCOPED_TRACE(name);
        g_updateRecord.nState = state;
        g_updateRecord.sResult = L"EARLIER";
        EXPECT_FALSE(Util_UNCDownload());
        EXPECT_TRUE(p.network.calls.empty());
        EXPECT_TRUE(files.copies.empty());
        EXPECT_STREQ(L"EARLIER", r.sResult.c_str());
        EXPECT_TRUE(r.sErrorCode.empty());
        EXPECT_TRUE(r.sFileName.empty());
        expected.push_back(std::wstring(L"Util_UNCDownload: Update key: Job1 state: ") + name);
    }
    EXPECT_EQ(expected, linesOf({L"Util_UNCDownload", L"CopyFromSMBshare", L"Util_CopyFileFromUNC"}));
}

TEST_F(ShareCopy, ShareTypeInSmallLettersIsRefused)
{
    g_updateRecord.sShareType = L"smb";
    EXPECT_FALSE(Util_UNCDownload());
    EXPECT_STREQ(L"FAILURE", r.sResult.c_str());
    EXPECT_STREQ(L"UNC_INVALID_SHARE_TYPE_ERROR", r.sErrorCode.c_str());
    EXPECT_STREQ(L"Invalid share type specified", r.sErrorDesc.c_str());
    EXPECT_TRUE(p.network.calls.empty());
    EXPECT_TRUE(files.copies.empty());
    EXPECT_TRUE(r.sFileName.empty());
    EXPECT_EQ((std::vector<std::wstring>{L"Util_UNCDownload: Update key: Job1 state: DOWNLOAD",
                                         L"Util_UNCDownload: Invalid Share type: smb"}),
              linesOf({L"Util_UNCDownload", L"CopyFromSMBshare", L"Util_CopyFileFromUNC"}));
}

TEST_F(ShareCopy, OnlyTheExactTextSmbIsAccepted)
{
    for (const wchar_t* type : {L"Smb", L"SMB ", L" SMB", L"SMBX", L"SM", L"CIFS", L"NFS"}) {
        SCOPED_TRACE(std::wstring(L"[") + type + L"]");
        g_updateRecord.sShareType = type;
        g_updateRecord.sResult = L"";
        g_updateRecord.sErrorCode = L"";
        EXPECT_FALSE(Util_UNCDownload());
        EXPECT_STREQ(L"FAILURE", r.sResult.c_str());
        EXPECT_STREQ(L"UNC_INVALID_SHARE_TYPE_ERROR", r.sErrorCode.c_str());
        EXPECT_TRUE(p.logHas(std::wstring(L"Util_UNCDownload: Invalid Share type: ") + type));
    }
    EXPECT_TRUE(p.network.calls.empty());
}

TEST_F(ShareCopy, EmptyShareTypeIsRefused)
{
    g_updateRecord.sShareType = corestring();
    EXPECT_FALSE(Util_UNCDownload());
    EXPECT_STREQ(L"FAILURE", r.sResult.c_str());
    EXPECT_STREQ(L"UNC_INVALID_SHARE_TYPE_ERROR", r.sErrorCode.c_str());
    EXPECT_TRUE(p.logHas(L"Util_UNCDownload: Invalid Share type: "));
    EXPECT_TRUE(p.network.calls.empty());
}

TEST_F(ShareCopy, UrlsBesideTheShareChangeNothingHere)
{
    g_updateRecord.sURLs = {corestring(L"https://localhost/agent.msi")};
    EXPECT_FALSE(Util_UNCDownload());
    EXPECT_STREQ(L"OK", r.sResult.c_str());
    g_updateRecord.nState = STATE_UPDATING;
    EXPECT_TRUE(Util_UNCDownload());
}

// --- The connection ---------------------------------------------------------------

TEST_F(ShareCopy, ConnectsToTheFilesFolderWithoutCredentials)
{
    Util_UNCDownload();
    ASSERT_EQ(1u, p.network.adds.size());
    const fakes::FakeNetwork::Add& add = p.network.adds[0];
    EXPECT_EQ(0u, add.scope);
    EXPECT_EQ(static_cast<DWORD>(RESOURCETYPE_DISK), add.type);
    EXPECT_EQ(0u, add.displayType);
    EXPECT_EQ(0u, add.usage);
    EXPECT_FALSE(add.localName.has_value());
    EXPECT_EQ(std::optional<std::wstring>(kFolder), add.remoteName);
    EXPECT_FALSE(add.comment.has_value());
    EXPECT_FALSE(add.provider.has_value());
    EXPECT_FALSE(add.password.has_value());
    EXPECT_FALSE(add.user.has_value());
    EXPECT_EQ(0u, add.flags);
}

TEST_F(ShareCopy, DisconnectsTheSameFolderAfterTheCopyWithUpdateProfileAndForce)
{
    std::vector<std::wstring> atCopy;
    files.afterCopy = [&] { atCopy = p.network.calls; };
    Util_UNCDownload();
    EXPECT_EQ(std::vector<std::wstring>{L"add"}, atCopy);
    ASSERT_EQ(1u, p.network.cancels.size());
    EXPECT_EQ(std::optional<std::wstring>(kFolder), p.network.cancels[0].name);
    EXPECT_EQ(static_cast<DWORD>(CONNECT_UPDATE_PROFILE), p.network.cancels[0].flags);
    EXPECT_EQ(1u, p.network.cancels[0].flags);
    EXPECT_EQ(TRUE, p.network.cancels[0].force);
}

TEST_F(ShareCopy, ForwardSlashesConnectWithBackslashesAndCopyFromThePathAsGiven)
{
    const wchar_t* given = L"//server/share/folder/agent.msi";
    g_updateRecord.sUNC = given;
    EXPECT_FALSE(Util_UNCDownload());
    ASSERT_EQ(1u, p.network.adds.size());
    EXPECT_EQ(std::optional<std::wstring>(kFolder), p.network.adds[0].remoteName);
    ASSERT_EQ(1u, p.network.cancels.size());
    EXPECT_EQ(std::optional<std::wstring>(kFolder), p.network.cancels[0].name);
    ASSERT_EQ(1u, files.copies.size());
    EXPECT_EQ(given, files.copies[0].from);
    EXPECT_EQ(kDestination, files.copies[0].to);
    EXPECT_STREQ(kDestination, r.sFileName.c_str());
    EXPECT_STREQ(L"OK", r.sResult.c_str());
    EXPECT_TRUE(p.logHas(L"Util_CopyFileFromUNC: Copying file from source //server/share/folder/agent.msi"));
}

TEST_F(ShareCopy, MixedSlashesFindTheLastSeparatorOfEitherKind)
{
    g_updateRecord.sUNC = L"\\\\server\\share/folder\\sub/agent.msi";
    p.files.addFile(L"\\\\server\\share\\folder\\sub\\agent.msi", std::string("abc"));
    Util_UNCDownload();
    ASSERT_EQ(1u, p.network.adds.size());
    EXPECT_EQ(std::optional<std::wstring>(L"\\\\server\\share\\folder\\sub"), p.network.adds[0].remoteName);
    EXPECT_STREQ(kDestination, r.sFileName.c_str());
}

TEST_F(ShareCopy, PathWithoutBackslashConnectsToAnEmptyNameAndFails)
{
    g_updateRecord.sUNC = L"agent.msi";
    p.network.addResult = ERROR_BAD_NET_NAME;
    EXPECT_FALSE(Util_UNCDownload());
    ASSERT_EQ(1u, p.network.adds.size());
    EXPECT_EQ(std::optional<std::wstring>(L""), p.network.adds[0].remoteName);
    EXPECT_STREQ(L"FAILURE", r.sResult.c_str());
    EXPECT_STREQ(L"UNC_BAD_NET_NAME", r.sErrorCode.c_str());
    EXPECT_TRUE(files.copies.empty());
    EXPECT_TRUE(p.logHas(
        L"CopyFromSMBshare: Error Connecting to the SMB share: , Error: The network name could not be found."));
}

struct Refusal {
    DWORD code;
    const wchar_t* name;
    const wchar_t* description;
};

class ShareConnectionRefused : public ShareCopy, public ::testing::WithParamInterface<Refusal> {};

TEST_P(ShareConnectionRefused, FailsByTheTableWithoutCopyingOrDisconnecting)
{
    const Refusal& refusal = GetParam();
    p.network.addResult = refusal.code;
    g_updateRecord.sResult = L"EARLIER";
    EXPECT_FALSE(Util_UNCDownload());
    EXPECT_STREQ(L"FAILURE", r.sResult.c_str());
    EXPECT_STREQ(refusal.name, r.sErrorCode.c_str());
    EXPECT_STREQ(refusal.description, r.sErrorDesc.c_str());
    EXPECT_TRUE(files.copies.empty());
    EXPECT_TRUE(p.network.cancels.empty());
    EXPECT_TRUE(r.sFileName.empty());
    EXPECT_EQ((std::vector<std::wstring>{
                  L"Util_UNCDownload: Update key: Job1 state: DOWNLOAD",
                  std::wstring(L"CopyFromSMBshare: Error Connecting to the SMB share: \\\\server\\share\\folder, "
                               L"Error: ") +
                      refusal.description,
              }),
              linesOf({L"Util_UNCDownload", L"CopyFromSMBshare", L"Util_CopyFileFromUNC"}));
}

INSTANTIATE_TEST_SUITE_P(
    Codes, ShareConnectionRefused,
    ::testing::Values(Refusal{53, L"UNC_BAD_NETPATH", L"The network path could not be found."},
                      Refusal{67, L"UNC_BAD_NET_NAME", L"The network name could not be found."},
                      Refusal{5, L"UNC_ACCESS_DENIED", L"Access to the network path was denied."},
                      Refusal{65, L"UNC_NETWORK_ACCESS_DENIED", L"Access to the network was denied."},
                      Refusal{1222, L"UNC_NO_NETWORK", L"The network is not currently available."},
                      Refusal{2404, L"UNC_DEVICE_IN_USE", L"The UNC network resource is currently in use."}),
    [](const auto& info) { return std::to_string(info.param.code); });

TEST_F(ShareCopy, ConnectionCodeMissingFromTheTableIsNamedByItsNumberWithTheSystemsText)
{
    p.network.addResult = ERROR_LOGON_FAILURE;  // 1326
    std::optional<std::wstring> text = systemText(ERROR_LOGON_FAILURE);
    ASSERT_TRUE(text.has_value());
    EXPECT_FALSE(Util_UNCDownload());
    EXPECT_STREQ(L"FAILURE", r.sResult.c_str());
    EXPECT_STREQ(L"1326", r.sErrorCode.c_str());
    EXPECT_EQ(*text, std::wstring(r.sErrorDesc.c_str()));
    // The system's text keeps its line end, so the log line carries it too.
    std::wstring log = TheToolLog().text().c_str();
    EXPECT_NE(std::wstring::npos, log.find(L"CopyFromSMBshare: Error Connecting to the SMB share: "
                                           L"\\\\server\\share\\folder, Error: " +
                                           *text));
}

TEST_F(ShareCopy, FailedDisconnectIsOnlyLoggedWithItsNumber)
{
    p.network.cancelResult = ERROR_NOT_CONNECTED;  // 2250
    EXPECT_FALSE(Util_UNCDownload());
    EXPECT_STREQ(L"OK", r.sResult.c_str());
    EXPECT_TRUE(r.sErrorCode.empty());
    EXPECT_TRUE(r.sErrorDesc.empty());
    EXPECT_TRUE(p.logHas(L"CopyFromSMBshare: Error Disconnecting the device: \\\\server\\share\\folder Error, 2250"));
}

TEST_F(ShareCopy, FailedDisconnectLeavesAFailedCopysOutcomeAlone)
{
    p.network.cancelResult = 0xFFFFFFFFu;
    g_updateRecord.sFileSize = L"4";
    EXPECT_FALSE(Util_UNCDownload());
    EXPECT_STREQ(L"FAILURE", r.sResult.c_str());
    EXPECT_STREQ(L"UNC_COPIED_FILE_SIZE_MISMATCH_ERROR", r.sErrorCode.c_str());
    EXPECT_STREQ(L"Filesize mismatch error", r.sErrorDesc.c_str());
    // The code prints as an unsigned number.
    EXPECT_TRUE(
        p.logHas(L"CopyFromSMBshare: Error Disconnecting the device: \\\\server\\share\\folder Error, 4294967295"));
}

TEST_F(ShareCopy, SuccessfulDisconnectLogsNothing)
{
    Util_UNCDownload();
    EXPECT_TRUE(linesOf({L"CopyFromSMBshare"}).empty());
}

// --- The copy ----------------------------------------------------------------------

TEST_F(ShareCopy, CopiesIntoTheWorkspaceOverwritingAnEarlierAttempt)
{
    p.files.addFile(kDestination, std::string("an earlier, bad attempt"));
    EXPECT_FALSE(Util_UNCDownload());
    ASSERT_EQ(1u, files.copies.size());
    EXPECT_EQ(kSource, files.copies[0].from);
    EXPECT_EQ(kDestination, files.copies[0].to);
    EXPECT_EQ(FALSE, files.copies[0].failIfExists);
    EXPECT_EQ(p.files.bytesOf(kSource), p.files.bytesOf(kDestination));
    EXPECT_STREQ(L"OK", r.sResult.c_str());
}

TEST_F(ShareCopy, MissingFileFailsByTheTableAndStillNamesTheDestination)
{
    g_updateRecord.sUNC = L"\\\\server\\share\\folder\\missing.msi";
    EXPECT_FALSE(Util_UNCDownload());
    EXPECT_STREQ(L"FAILURE", r.sResult.c_str());
    EXPECT_STREQ(L"UNC_FILE_NOT_FOUND", r.sErrorCode.c_str());
    EXPECT_STREQ(L"The specified file was not found on the network path.", r.sErrorDesc.c_str());
    EXPECT_STREQ(L"C:\\Windows\\Temp\\updatetool-data\\missing.msi", r.sFileName.c_str());
    // The connection made is dropped again.
    EXPECT_EQ((std::vector<std::wstring>{L"add", L"cancel"}), p.network.calls);
    EXPECT_TRUE(p.hashing.calls.empty());
    EXPECT_EQ((std::vector<std::wstring>{
                  L"Util_CopyFileFromUNC: Copying file from source \\\\server\\share\\folder\\missing.msi",
                  L"Util_CopyFileFromUNC: File copy failed DestFile: C:\\Windows\\Temp\\updatetool-data\\missing.msi, "
                  L"Error:The specified file was not found on the network path.",
              }),
              linesOf({L"Util_CopyFileFromUNC", L"Util_CompareFileSize", L"Util_ComputeCheckSum"}));
}

TEST_F(ShareCopy, CopyIntoAMissingFolderFailsWithPathNotFound)
{
    // A workspace that couldn't be made falls back to the temp directory;
    // here even that is gone by the time of the copy.
    p.files.failCreateDirectory(ERROR_ACCESS_DENIED);
    p.files.tempPath = L"C:\\Gone\\";
    EXPECT_FALSE(Util_UNCDownload());
    EXPECT_STREQ(L"FAILURE", r.sResult.c_str());
    EXPECT_STREQ(L"UNC_PATH_NOT_FOUND", r.sErrorCode.c_str());
    EXPECT_STREQ(L"The specified network path was not found.", r.sErrorDesc.c_str());
    EXPECT_STREQ(L"C:\\Gone\\agent.msi", r.sFileName.c_str());
}

TEST_F(ShareCopy, SourceThatIsAFolderFailsWithAccessDenied)
{
    g_updateRecord.sUNC = kFolder;
    g_updateRecord.sUNC.append(L"\\sub");
    p.files.addDirectory(L"\\\\server\\share\\folder\\sub");
    EXPECT_FALSE(Util_UNCDownload());
    EXPECT_STREQ(L"FAILURE", r.sResult.c_str());
    EXPECT_STREQ(L"UNC_ACCESS_DENIED", r.sErrorCode.c_str());
    EXPECT_STREQ(L"C:\\Windows\\Temp\\updatetool-data\\sub", r.sFileName.c_str());
}

TEST_F(ShareCopy, CopyFileFromUncAlwaysReturnsFalse)
{
    EXPECT_FALSE(Util_CopyFileFromUNC(kSource));
    EXPECT_STREQ(L"OK", r.sResult.c_str());
    g_updateRecord.sCheckSum = L"00";
    EXPECT_FALSE(Util_CopyFileFromUNC(kSource));
    EXPECT_STREQ(L"FAILURE", r.sResult.c_str());
}

TEST_F(ShareCopy, CopyFileFromUncTakesTheNameFromTheRecordAndTheSourceAsGiven)
{
    // The name comes from sUNC, the bytes from the source argument.
    p.files.addFile(L"\\\\other\\place\\payload.bin", std::string("abc"));
    EXPECT_FALSE(Util_CopyFileFromUNC(L"\\\\other\\place\\payload.bin"));
    ASSERT_EQ(1u, files.copies.size());
    EXPECT_EQ(L"\\\\other\\place\\payload.bin", files.copies[0].from);
    EXPECT_EQ(kDestination, files.copies[0].to);
    EXPECT_STREQ(L"OK", r.sResult.c_str());
}

TEST_F(ShareCopy, OkIsSetBetweenTheCopyAndTheVerification)
{
    g_updateRecord.sResult = L"EARLIER";
    std::wstring seen;
    files.afterCopy = [&] { seen = r.sResult.c_str(); };
    Util_UNCDownload();
    // The copy itself doesn't touch the result; "OK" follows the copy.
    EXPECT_EQ(L"EARLIER", seen);
    EXPECT_STREQ(L"OK", r.sResult.c_str());
}

// --- Verification after the copy -------------------------------------------------

TEST_F(ShareCopy, SizeMismatchFailsAndLeavesTheBadFile)
{
    g_updateRecord.sFileSize = L"4";
    EXPECT_FALSE(Util_UNCDownload());
    EXPECT_STREQ(L"FAILURE", r.sResult.c_str());
    EXPECT_STREQ(L"UNC_COPIED_FILE_SIZE_MISMATCH_ERROR", r.sErrorCode.c_str());
    EXPECT_STREQ(L"Filesize mismatch error", r.sErrorDesc.c_str());
    EXPECT_TRUE(p.files.exists(kDestination));
    EXPECT_TRUE(p.hashing.calls.empty());
    EXPECT_TRUE(p.logHas(L"Util_CompareFileSize: Copied file size do not match with source file, expected "
                         L"filesize:4 , computed filesize: 3"));
}

TEST_F(ShareCopy, FileRemovedBeforeTheSizeCheckFailsGettingTheSize)
{
    files.afterCopy = [&] { p.files.DeleteFileW(kDestination); };
    EXPECT_FALSE(Util_UNCDownload());
    EXPECT_STREQ(L"FAILURE", r.sResult.c_str());
    EXPECT_STREQ(L"UNC_FAILED_GETTING_FILE_SIZE_ERROR", r.sErrorCode.c_str());
    EXPECT_STREQ(L"Internal file size computation error", r.sErrorDesc.c_str());
    EXPECT_TRUE(p.logHas(L"Util_CompareFileSize: Failed to get copied file size."));
    EXPECT_TRUE(p.hashing.calls.empty());
    EXPECT_EQ((std::vector<std::wstring>{L"add", L"cancel"}), p.network.calls);
}

TEST_F(ShareCopy, FileNotReadableForTheChecksumFailsByTheSystemsCode)
{
    // Open 1 is the size check, open 2 the checksum's.
    files.failOpenPath = kDestination;
    files.failOpenNumber = 2;
    files.failOpenError = ERROR_SHARING_VIOLATION;
    EXPECT_FALSE(Util_UNCDownload());
    EXPECT_EQ(2, files.opensOf(kDestination));
    EXPECT_STREQ(L"FAILURE", r.sResult.c_str());
    EXPECT_STREQ(L"UNC_SHARING_VIOLATION", r.sErrorCode.c_str());
    EXPECT_STREQ(L"Sharing violation, the file is being used by another process.", r.sErrorDesc.c_str());
    EXPECT_TRUE(p.logHas(L"Util_ComputeCheckSum: Failed checksum computation,cannot read the file "
                         L":C:\\Windows\\Temp\\updatetool-data\\agent.msi, error: Sharing violation, the file is "
                         L"being used by another process."));
    EXPECT_TRUE(p.hashing.calls.empty());
}

TEST_F(ShareCopy, HashServiceFailureIsTheInternalChecksumError)
{
    p.hashing.fail(Op::Open, static_cast<NTSTATUS>(0xC0000225));
    EXPECT_FALSE(Util_UNCDownload());
    EXPECT_STREQ(L"FAILURE", r.sResult.c_str());
    EXPECT_STREQ(L"UNC_INTERNAL_CHECKSUM_ERROR", r.sErrorCode.c_str());
    EXPECT_STREQ(L"Internal checksum computation error", r.sErrorDesc.c_str());
    EXPECT_TRUE(p.logHas(L"Util_ComputeCheckSum: BCryptOpenAlgorithmProvider failed."));
    EXPECT_TRUE(linesOf({L"Util_CompareCheckSum"}).empty());
}

TEST_F(ShareCopy, ChecksumMismatchFailsAndLeavesTheBadFile)
{
    g_updateRecord.sCheckSum = kDigestOfNothing;
    EXPECT_FALSE(Util_UNCDownload());
    EXPECT_STREQ(L"FAILURE", r.sResult.c_str());
    EXPECT_STREQ(L"UNC_CHECKSUM_MISMATCH_ERROR", r.sErrorCode.c_str());
    EXPECT_STREQ(L"Checksum mismatch error", r.sErrorDesc.c_str());
    EXPECT_TRUE(p.files.exists(kDestination));
    EXPECT_TRUE(p.logHas(std::wstring(L"Util_CompareCheckSum: Checksum validation failed for the copied file, "
                                      L"expected checksum: ") +
                         kDigestOfNothing + L", computed checksum: " + kDigestOfAbc));
    EXPECT_EQ((std::vector<std::wstring>{L"add", L"cancel"}), p.network.calls);
}

TEST_F(ShareCopy, ChecksumInCapitalsPasses)
{
    std::wstring upperDigest = upper(kDigestOfAbc);
    g_updateRecord.sCheckSum = upperDigest.c_str();
    EXPECT_FALSE(Util_UNCDownload());
    EXPECT_STREQ(L"OK", r.sResult.c_str());
    EXPECT_TRUE(r.sErrorCode.empty());
}

// --- Util_GetFileNamePart and Util_GetParentPath ----------------------------------

TEST(Util_GetFileNamePart, TextBehindTheLastBackslash)
{
    EXPECT_STREQ(L"agent.msi", Util_GetFileNamePart(L"\\\\server\\share\\agent.msi").c_str());
    EXPECT_STREQ(L"agent.msi", Util_GetFileNamePart(L"//server/share/agent.msi").c_str());
    EXPECT_STREQ(L"c", Util_GetFileNamePart(L"a/b\\c").c_str());
}

TEST(Util_GetFileNamePart, WholeTextWithoutBackslash)
{
    EXPECT_STREQ(L"agent.msi", Util_GetFileNamePart(L"agent.msi").c_str());
    EXPECT_STREQ(L"", Util_GetFileNamePart(corestring()).c_str());
}

TEST(Util_GetFileNamePart, EmptyBehindATrailingBackslash)
{
    EXPECT_STREQ(L"", Util_GetFileNamePart(L"\\\\server\\share\\").c_str());
    EXPECT_STREQ(L"", Util_GetFileNamePart(L"\\\\server\\share/").c_str());
}

}  // namespace
