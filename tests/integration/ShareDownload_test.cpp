// Jobs under DOWNLOAD that fetch the installer from \\fileserver\share, end
// to end: what the management side sees after each run (exit code, the six
// values, the log, the telemetry entry) and what the tool asked of the
// network provider.
#include "ShareLab.h"

namespace it {
namespace {

// Test vectors of the published standard (the digest of kMillionA is the lab's).
const std::string kMillionA(1000000, 'a');
const wchar_t* const kDigestOfNothing = L"e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

std::wstring upper(std::wstring text)
{
    for (wchar_t& c : text)
        if (c >= L'a' && c <= L'z')
            c = static_cast<wchar_t>(c - L'a' + L'A');
    return text;
}

std::wstring slashed(std::wstring text)
{
    for (wchar_t& c : text)
        if (c == L'\\')
            c = L'/';
    return text;
}

class ShareDownload : public ShareTest {
protected:
    const std::wstring key_ = JobKey(kNewRoot, L"job");

    // A job under DOWNLOAD for the installer at `unc`, expecting one
    // million "a" unless told otherwise.
    void WriteShareJob(const std::wstring& unc, const std::wstring& size = L"1000000",
                       const std::wstring& checksum = kDigestOfMillionA,
                       std::vector<std::pair<std::wstring, std::wstring>> extra = {})
    {
        std::vector<std::pair<std::wstring, std::wstring>> values = {
            {L"AGENT", L"OTHER"},  {L"VERSION", L"2.5.0.7"}, {L"ARCH", L"64-BitAgent"},
            {L"UNC_PATH", unc},    {L"FILESIZE", size},      {L"CHECKSUM", checksum},
            {L"STATE", L"DOWNLOAD"}, {L"RESULT", L""},        {L"RETRY", L"0"}};
        values.insert(values.end(), extra.begin(), extra.end());
        WriteJob(key_, values);
    }

    std::wstring Payload(const std::wstring& name) const { return JoinPath(Workspace(), name); }

    JobRun RunExpectingFetchEnd()
    {
        JobRun job = RunShareJob();
        ExpectCompleted(job);
        // A fetch run always ends with -1; the registry tells the outcome.
        EXPECT_EQ(-1, job.run.exitCode);
        return job;
    }

    // The run's one telemetry entry; a failed run's also carries the
    // failure's name and description.
    void ExpectEntry(const JobRun& job, ExpectedEntry expected, const std::string& errorCode = "",
                     const std::string& errorDescription = "")
    {
        expected.errorCode = errorCode;
        expected.errorDescription = errorDescription;
        ExpectOneEntry(job, expected);
    }

    // A failed fetch with retries left: READY, "PROGRESS", the wait logged.
    void ExpectRetried(const JobRun& job, const std::string& retry)
    {
        EXPECT_TRUE(HasLinesInOrder(Messages(job), {
            "UtilTryAgain: updating retry: " + retry + ", max attempt allowed: 2",
            "Util_UpdateDone: wait for 0 mins",
            "Util_UpdateDone: done waiting",
            "UtilManageUpdateState: Update key: job current state: READY result:PROGRESS",
            "UtilManageUpdateState: Update key: job new state: READY result: PROGRESS",
        }));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "UtilTryAgain: exceeded retry attempts"));
    }
};

TEST_F(ShareDownload, CopiesAndVerifiesTheInstallerAndWaits)
{
    std::wstring unc = PutOnShare(L"agent-2.5.0.7.msi", kMillionA);
    WriteShareJob(unc);
    JobRun job = RunExpectingFetchEnd();

    std::wstring payload = Payload(L"agent-2.5.0.7.msi");
    EXPECT_TRUE(HasWrittenValues(key_, {"WAIT", "OK", Narrow(payload), "", "", "0"}));
    std::optional<std::string> copied = ReadFileBytes(payload);
    ASSERT_TRUE(copied.has_value());
    EXPECT_TRUE(*copied == kMillionA) << "the copy differs from the share's file";
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "Util_UNCDownload: Update key: job state: DOWNLOAD",
        "Util_CopyFileFromUNC: Copying file from source " + Narrow(unc),
        "Util_CopyFileFromUNC: File copy done at destination " + Narrow(payload),
        "Util_UpdateDone: Updating state for result 'ERR_FAILURE', legacy workflow:'0' ",
        "UtilManageUpdateState: Update key: job current state: DOWNLOAD result:OK",
        "UtilManageUpdateState: Update key: job new state: WAIT result: OK",
    }));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "CopyFromSMBshare:"));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Util_CompareFileSize:"));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Util_ComputeCheckSum:"));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Util_CompareCheckSum:"));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "UtilTryAgain:"));
    // Connected to the file's folder, without credentials, and disconnected.
    EXPECT_EQ((std::vector<std::string>{ConnectCall(shareFolder_, 0), DisconnectCall(shareFolder_, 0)}),
              ProviderCalls());
    ExpectEntry(job, {"job", "OTHER", Narrow(payload), "2.5.0.7", "WAIT", 0, "OK"});
}

TEST_F(ShareDownload, ChecksumInCapitalsIsAccepted)
{
    std::wstring unc = PutOnShare(L"agent.msi", kMillionA);
    WriteShareJob(unc, L"1000000", upper(kDigestOfMillionA));
    JobRun job = RunExpectingFetchEnd();
    EXPECT_TRUE(HasWrittenValues(key_, {"WAIT", "OK", Narrow(Payload(L"agent.msi")), "", "", "0"}));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Util_CompareCheckSum:"));
    ExpectEntry(job, {"job", "OTHER", Narrow(Payload(L"agent.msi")), "2.5.0.7", "WAIT", 0, "OK"});
}

TEST_F(ShareDownload, WrongSizeFailsAndIsRetriedAfterTheWait)
{
    std::wstring unc = PutOnShare(L"agent.msi", kMillionA);
    WriteShareJob(unc, L"1000001");
    JobRun job = RunExpectingFetchEnd();
    std::wstring payload = Payload(L"agent.msi");
    EXPECT_TRUE(HasWrittenValues(key_, {"READY", "PROGRESS", Narrow(payload), "UNC_COPIED_FILE_SIZE_MISMATCH_ERROR",
                                        "Filesize mismatch error", "1"}));
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "Util_CopyFileFromUNC: File copy done at destination " + Narrow(payload),
        "Util_CompareFileSize: Copied file size do not match with source file, expected filesize:1000001 , "
        "computed filesize: 1000000",
        "UtilManageUpdateState: Update key: job current state: READY result:PROGRESS",
    }));
    ExpectRetried(job, "1");
    // The bad file stays for the next attempt to overwrite.
    EXPECT_TRUE(PathExists(payload));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Util_ComputeCheckSum:"));
    EXPECT_EQ((std::vector<std::string>{ConnectCall(shareFolder_, 0), DisconnectCall(shareFolder_, 0)}),
              ProviderCalls());
    ExpectEntry(job, {"job", "OTHER", Narrow(payload), "2.5.0.7", "READY", 1, "PROGRESS"},
                  "UNC_COPIED_FILE_SIZE_MISMATCH_ERROR", "Filesize mismatch error");
}

TEST_F(ShareDownload, SizeIsComparedAsText)
{
    // "0x10" is sixteen as a number, but not the text "16".
    std::wstring unc = PutOnShare(L"agent.msi", std::string(16, 'x'));
    WriteShareJob(unc, L"0x10");
    JobRun job = RunExpectingFetchEnd();
    EXPECT_TRUE(HasWrittenValues(key_, {"READY", "PROGRESS", Narrow(Payload(L"agent.msi")),
                                        "UNC_COPIED_FILE_SIZE_MISMATCH_ERROR", "Filesize mismatch error", "1"}));
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {"Util_CompareFileSize: Copied file size do not match with source "
                                                "file, expected filesize:0x10 , computed filesize: 16"}));
    ExpectEntry(job, {"job", "OTHER", Narrow(Payload(L"agent.msi")), "2.5.0.7", "READY", 1, "PROGRESS"},
                  "UNC_COPIED_FILE_SIZE_MISMATCH_ERROR", "Filesize mismatch error");
}

TEST_F(ShareDownload, WrongChecksumFailsAndIsRetried)
{
    std::wstring unc = PutOnShare(L"agent.msi", kMillionA);
    WriteShareJob(unc, L"1000000", kDigestOfNothing);
    JobRun job = RunExpectingFetchEnd();
    std::wstring payload = Payload(L"agent.msi");
    EXPECT_TRUE(HasWrittenValues(key_, {"READY", "PROGRESS", Narrow(payload), "UNC_CHECKSUM_MISMATCH_ERROR",
                                        "Checksum mismatch error", "1"}));
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "Util_CopyFileFromUNC: File copy done at destination " + Narrow(payload),
        "Util_CompareCheckSum: Checksum validation failed for the copied file, expected checksum: " +
            Narrow(kDigestOfNothing) + ", computed checksum: " + Narrow(kDigestOfMillionA),
    }));
    ExpectRetried(job, "1");
    EXPECT_TRUE(PathExists(payload));
    ExpectEntry(job, {"job", "OTHER", Narrow(payload), "2.5.0.7", "READY", 1, "PROGRESS"},
                  "UNC_CHECKSUM_MISMATCH_ERROR", "Checksum mismatch error");
}

TEST_F(ShareDownload, MissingFileIsNamedByTheTable)
{
    std::wstring unc = JoinPath(shareFolder_, L"missing.msi");
    WriteShareJob(unc);
    JobRun job = RunExpectingFetchEnd();
    std::wstring payload = Payload(L"missing.msi");
    // The record names the destination even though nothing was copied.
    EXPECT_TRUE(HasWrittenValues(key_, {"READY", "PROGRESS", Narrow(payload), "UNC_FILE_NOT_FOUND",
                                        "The specified file was not found on the network path.", "1"}));
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "Util_CopyFileFromUNC: Copying file from source " + Narrow(unc),
        "Util_CopyFileFromUNC: File copy failed DestFile: " + Narrow(payload) +
            ", Error:The specified file was not found on the network path.",
    }));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Util_CopyFileFromUNC: File copy done"));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Util_CompareFileSize:"));
    ExpectRetried(job, "1");
    EXPECT_FALSE(PathExists(payload));
    // The connection that was made is dropped again.
    EXPECT_EQ((std::vector<std::string>{ConnectCall(shareFolder_, 0), DisconnectCall(shareFolder_, 0)}),
              ProviderCalls());
    ExpectEntry(job, {"job", "OTHER", Narrow(payload), "2.5.0.7", "READY", 1, "PROGRESS"},
                  "UNC_FILE_NOT_FOUND", "The specified file was not found on the network path.");
}

TEST_F(ShareDownload, MissingShareIsABadNetName)
{
    const std::wstring folder = L"\\\\fileserver\\no-such-share";
    WriteShareJob(folder + L"\\agent.msi");
    JobRun job = RunExpectingFetchEnd();
    EXPECT_TRUE(HasWrittenValues(key_, {"READY", "PROGRESS", "", "UNC_BAD_NET_NAME",
                                        "The network name could not be found.", "1"}));
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "Util_UNCDownload: Update key: job state: DOWNLOAD",
        "CopyFromSMBshare: Error Connecting to the SMB share: \\\\fileserver\\no-such-share, Error: The network "
        "name could not be found.",
    }));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Util_CopyFileFromUNC:"));
    ExpectRetried(job, "1");
    // Nothing to disconnect after a refused connection.
    EXPECT_EQ(std::vector<std::string>{ConnectCall(folder, 67)}, ProviderCalls());
    ExpectEntry(job, {"job", "OTHER", "", "2.5.0.7", "READY", 1, "PROGRESS"}, "UNC_BAD_NET_NAME",
                  "The network name could not be found.");
}

TEST_F(ShareDownload, MissingServerIsABadNetPath)
{
    const std::wstring folder = L"\\\\no-such-server\\share";
    WriteShareJob(folder + L"\\agent.msi");
    JobRun job = RunExpectingFetchEnd();
    EXPECT_TRUE(HasWrittenValues(key_, {"READY", "PROGRESS", "", "UNC_BAD_NETPATH",
                                        "The network path could not be found.", "1"}));
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {"CopyFromSMBshare: Error Connecting to the SMB share: "
                                                "\\\\no-such-server\\share, Error: The network path could not be "
                                                "found."}));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Util_CopyFileFromUNC:"));
    ExpectRetried(job, "1");
    EXPECT_EQ(std::vector<std::string>{ConnectCall(folder, 53)}, ProviderCalls());
    ExpectEntry(job, {"job", "OTHER", "", "2.5.0.7", "READY", 1, "PROGRESS"}, "UNC_BAD_NETPATH",
                  "The network path could not be found.");
}

TEST_F(ShareDownload, ShareTypeInSmallLettersIsRefusedWithoutTouchingTheShare)
{
    std::wstring unc = PutOnShare(L"agent.msi", kMillionA);
    WriteShareJob(unc, L"1000000", kDigestOfMillionA, {{L"UNC_SHARETYPE", L"smb"}});
    JobRun job = RunExpectingFetchEnd();
    EXPECT_TRUE(HasWrittenValues(key_, {"READY", "PROGRESS", "", "UNC_INVALID_SHARE_TYPE_ERROR",
                                        "Invalid share type specified", "1"}));
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {"Util_UNCDownload: Update key: job state: DOWNLOAD",
                                                "Util_UNCDownload: Invalid Share type: smb"}));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Util_CopyFileFromUNC:"));
    ExpectRetried(job, "1");
    EXPECT_TRUE(ProviderCalls().empty());
    EXPECT_FALSE(PathExists(Payload(L"agent.msi")));
    ExpectEntry(job, {"job", "OTHER", "", "2.5.0.7", "READY", 1, "PROGRESS"}, "UNC_INVALID_SHARE_TYPE_ERROR",
                  "Invalid share type specified");
}

TEST_F(ShareDownload, ExplicitSmbShareTypeCopies)
{
    std::wstring unc = PutOnShare(L"agent.msi", kMillionA);
    WriteShareJob(unc, L"1000000", kDigestOfMillionA, {{L"UNC_SHARETYPE", L"SMB"}});
    JobRun job = RunExpectingFetchEnd();
    EXPECT_TRUE(HasWrittenValues(key_, {"WAIT", "OK", Narrow(Payload(L"agent.msi")), "", "", "0"}));
    ExpectEntry(job, {"job", "OTHER", Narrow(Payload(L"agent.msi")), "2.5.0.7", "WAIT", 0, "OK"});
}

TEST_F(ShareDownload, ForwardSlashesConnectWithBackslashesAndCopyFromThePathAsGiven)
{
    PutOnShare(L"agent.msi", kMillionA);
    std::wstring unc = slashed(JoinPath(shareFolder_, L"agent.msi"));
    WriteShareJob(unc);
    JobRun job = RunExpectingFetchEnd();
    std::wstring payload = Payload(L"agent.msi");
    EXPECT_TRUE(HasWrittenValues(key_, {"WAIT", "OK", Narrow(payload), "", "", "0"}));
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "Util_CopyFileFromUNC: Copying file from source " + Narrow(unc),
        "Util_CopyFileFromUNC: File copy done at destination " + Narrow(payload),
    }));
    EXPECT_EQ((std::vector<std::string>{ConnectCall(shareFolder_, 0), DisconnectCall(shareFolder_, 0)}),
              ProviderCalls());
    std::optional<std::string> copied = ReadFileBytes(payload);
    EXPECT_TRUE(copied && *copied == kMillionA);
    ExpectEntry(job, {"job", "OTHER", Narrow(payload), "2.5.0.7", "WAIT", 0, "OK"});
}

TEST_F(ShareDownload, FailuresAreRetriedUpToTheLimitAndThenTheJobIsDone)
{
    SetRetrySettings(L"200", L"2");
    std::wstring unc = JoinPath(shareFolder_, L"missing.msi");
    std::wstring payload = Payload(L"missing.msi");
    WriteShareJob(unc);
    for (int attempt = 1; attempt <= 2; ++attempt) {
        SCOPED_TRACE(attempt);
        if (attempt > 1) {
            // The management side starts the job again.
            WriteString(key_, L"STATE", L"DOWNLOAD");
            logsDir_ = UseFreshLogsDir();
        }
        JobRun job = RunExpectingFetchEnd();
        std::string retry = std::to_string(attempt);
        EXPECT_TRUE(HasWrittenValues(key_, {"READY", "PROGRESS", Narrow(payload), "UNC_FILE_NOT_FOUND",
                                            "The specified file was not found on the network path.", retry}));
        ExpectRetried(job, retry);
        ExpectEntry(job, {"job", "OTHER", Narrow(payload), "2.5.0.7", "READY", attempt, "PROGRESS"},
                      "UNC_FILE_NOT_FOUND", "The specified file was not found on the network path.");
    }

    WriteString(key_, L"STATE", L"DOWNLOAD");
    logsDir_ = UseFreshLogsDir();
    JobRun last = RunExpectingFetchEnd();
    EXPECT_TRUE(HasWrittenValues(key_, {"DONE", "FAILURE", Narrow(payload), "UNC_FILE_NOT_FOUND",
                                        "The specified file was not found on the network path.", "3"}));
    EXPECT_TRUE(HasLinesInOrder(Messages(last), {
        "Util_CopyFileFromUNC: File copy failed DestFile: " + Narrow(payload) +
            ", Error:The specified file was not found on the network path.",
        "UtilTryAgain: exceeded retry attempts: 3, max attempt allowed: 2",
        "UtilTryAgain: updating retry: 3, max attempt allowed: 2",
        "Util_UpdateDone: Download/Copy failure crossed download/Copy retry limit",
        "UtilManageUpdateState: Update key: job current state: DONE result:FAILURE",
        "UtilManageUpdateState: Update key: job new state: DONE result: FAILURE",
    }));
    // The last failure doesn't wait.
    EXPECT_TRUE(LacksLine(Messages(last), "Util_UpdateDone: done waiting"));
    ExpectEntry(last, {"job", "OTHER", Narrow(payload), "2.5.0.7", "DONE", 3, "FAILURE"}, "UNC_FILE_NOT_FOUND",
                  "The specified file was not found on the network path.");
}

TEST_F(ShareDownload, ARetryOverwritesTheBadFileOfTheAttemptBefore)
{
    PutOnShare(L"agent.msi", std::string(1000000, 'b'));
    std::wstring unc = JoinPath(shareFolder_, L"agent.msi");
    WriteShareJob(unc);
    JobRun first = RunExpectingFetchEnd();
    EXPECT_TRUE(HasWrittenValues(key_, {"READY", "PROGRESS", Narrow(Payload(L"agent.msi")),
                                        "UNC_CHECKSUM_MISMATCH_ERROR", "Checksum mismatch error", "1"}));
    ExpectEntry(first, {"job", "OTHER", Narrow(Payload(L"agent.msi")), "2.5.0.7", "READY", 1, "PROGRESS"},
                  "UNC_CHECKSUM_MISMATCH_ERROR", "Checksum mismatch error");

    // The share now holds the right file; the management side tries again.
    PutOnShare(L"agent.msi", kMillionA);
    WriteString(key_, L"STATE", L"DOWNLOAD");
    logsDir_ = UseFreshLogsDir();
    JobRun second = RunExpectingFetchEnd();
    // A finished download keeps the retry count; the failure's names are
    // never read back, so a good run writes them empty.
    EXPECT_TRUE(HasWrittenValues(key_, {"WAIT", "OK", Narrow(Payload(L"agent.msi")), "", "", "1"}));
    std::optional<std::string> copied = ReadFileBytes(Payload(L"agent.msi"));
    EXPECT_TRUE(copied && *copied == kMillionA);
    EXPECT_TRUE(LacksLineStartingWith(Messages(second), "Util_CompareCheckSum:"));
    ExpectEntry(second, {"job", "OTHER", Narrow(Payload(L"agent.msi")), "2.5.0.7", "WAIT", 1, "OK"});
}

TEST_F(ShareDownload, ShareCopyEndsTheRunBeforeAnyUrlIsUsed)
{
    std::wstring unc = PutOnShare(L"agent.msi", kMillionA);
    WriteShareJob(unc, L"1000000", kDigestOfMillionA, {{L"URL", L"https://localhost:1/agent.msi"}});
    JobRun job = RunExpectingFetchEnd();
    EXPECT_TRUE(HasWrittenValues(key_, {"WAIT", "OK", Narrow(Payload(L"agent.msi")), "", "", "0"}));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Util_DoDownload:"));
    ExpectEntry(job, {"job", "OTHER", Narrow(Payload(L"agent.msi")), "2.5.0.7", "WAIT", 0, "OK"});
}

TEST_F(ShareDownload, JobUnderWaitLeavesTheShareAlone)
{
    std::wstring unc = PutOnShare(L"agent.msi", kMillionA);
    WriteShareJob(unc);
    WriteString(key_, L"STATE", L"WAIT");
    WriteString(key_, L"RESULT", L"OK");
    JobRun job = RunExpectingFetchEnd();
    EXPECT_TRUE(HasWrittenValues(key_, {"WAIT", "OK", "", "", "", "0"}));
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {"Util_UNCDownload: Update key: job state: WAIT"}));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Util_CopyFileFromUNC:"));
    EXPECT_TRUE(ProviderCalls().empty());
    EXPECT_FALSE(PathExists(Payload(L"agent.msi")));
    ExpectEntry(job, {"job", "OTHER", "", "2.5.0.7", "WAIT", 0, "OK"});
}

}  // namespace
}  // namespace it
