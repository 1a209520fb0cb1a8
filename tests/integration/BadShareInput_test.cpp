// Jobs under DOWNLOAD whose share path, size or checksum is malformed: each
// gets a named failure, the run ends cleanly, and the job's state is saved
// (a failed fetch with retries left goes back to READY with "PROGRESS").
#include <map>

#include "ShareLab.h"

namespace it {
namespace {

const wchar_t* const kDigestOfAbc = L"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

struct BadInput {
    const char* name;
    std::wstring unc;            // "%SHARE%" stands for the test's share folder
    std::wstring size;
    std::wstring checksum;
    std::string errorCode;       // "ERRORCODE" the run must leave
    std::string fileNameEnd;     // how "FILENAME" must end ("" for empty)
};

void PrintTo(const BadInput& input, std::ostream* os) { *os << input.name; }

std::wstring Expand(const std::wstring& text, const std::wstring& share)
{
    std::wstring out = text;
    const std::wstring mark = L"%SHARE%";
    for (size_t at = out.find(mark); at != std::wstring::npos; at = out.find(mark, at + share.size()))
        out.replace(at, mark.size(), share);
    return out;
}

// The error table's description of each name these cases can end with.
std::string DescriptionOf(const std::string& name)
{
    static const std::map<std::string, std::string> descriptions = {
        {"UNC_BAD_NET_NAME", "The network name could not be found."},
        {"UNC_ACCESS_DENIED", "Access to the network path was denied."},
        {"UNC_FILE_NOT_FOUND", "The specified file was not found on the network path."},
        {"UNC_COPIED_FILE_SIZE_MISMATCH_ERROR", "Filesize mismatch error"},
        {"UNC_CHECKSUM_MISMATCH_ERROR", "Checksum mismatch error"},
    };
    auto it = descriptions.find(name);
    return it == descriptions.end() ? "<no description for " + name + ">" : it->second;
}

class BadShareInput : public ShareTest, public ::testing::WithParamInterface<BadInput> {};

TEST_P(BadShareInput, FailsByNameAndSavesTheJob)
{
    const BadInput& input = GetParam();
    PutOnShare(L"abc.msi", "abc");
    MakeDirectories(JoinPath(shareFolder_, L"folder.msi"));
    const std::wstring key = JobKey(kNewRoot, L"job");
    WriteJob(key, {{L"AGENT", L"OTHER"}, {L"VERSION", L"1.0.0"}, {L"ARCH", L"64-BitAgent"},
                   {L"UNC_PATH", Expand(input.unc, shareFolder_)}, {L"FILESIZE", input.size},
                   {L"CHECKSUM", input.checksum}, {L"STATE", L"DOWNLOAD"}, {L"RESULT", L""}, {L"RETRY", L"0"}});
    JobRun job = RunShareJob();
    EXPECT_TRUE(IsCompletedRun(job.run, job.log));
    EXPECT_EQ(-1, job.run.exitCode);
    EXPECT_TRUE(NoRebootMarker());
    EXPECT_EQ("READY", ReadText(key, L"STATE").value_or("<absent>"));
    EXPECT_EQ("PROGRESS", ReadText(key, L"RESULT").value_or("<absent>"));
    EXPECT_EQ("1", ReadText(key, L"RETRY").value_or("<absent>"));
    EXPECT_EQ(input.errorCode, ReadText(key, L"ERRORCODE").value_or("<absent>"));
    std::string fileName = ReadText(key, L"FILENAME").value_or("<absent>");
    if (input.fileNameEnd.empty())
        EXPECT_EQ("", fileName);
    else
        EXPECT_TRUE(fileName.size() >= input.fileNameEnd.size() &&
                    fileName.compare(fileName.size() - input.fileNameEnd.size(), std::string::npos,
                                     input.fileNameEnd) == 0)
            << fileName;
    EXPECT_EQ(DescriptionOf(input.errorCode), ReadText(key, L"ERRORDESC").value_or("<absent>"));
    std::optional<std::vector<JsonValue>> entries = TelemetryEntries();
    ASSERT_TRUE(entries.has_value());
    EXPECT_EQ(1u, entries->size());
}

const std::wstring kLong = L"%SHARE%\\" + std::wstring(300, L'n') + L".msi";

INSTANTIATE_TEST_SUITE_P(
    Inputs, BadShareInput,
    ::testing::Values(
        // Without a backslash the folder to connect to is the empty name.
        BadInput{"RelativePath", L"abc.msi", L"3", kDigestOfAbc, "UNC_BAD_NET_NAME", ""},
        BadInput{"PathOfSlashesOnly", L"//fileserver/share/nothing/abc.msi", L"3", kDigestOfAbc,
                 "UNC_BAD_NET_NAME", ""},
        BadInput{"FolderInsteadOfAFile", L"%SHARE%\\folder.msi", L"3", kDigestOfAbc, "UNC_ACCESS_DENIED",
                 "folder.msi"},
        BadInput{"LongerThanMaxPath", kLong, L"3", kDigestOfAbc, "UNC_FILE_NOT_FOUND", ".msi"},
        BadInput{"SizeWithBlanks", L"%SHARE%\\abc.msi", L" 3 ", kDigestOfAbc, "UNC_COPIED_FILE_SIZE_MISMATCH_ERROR", "abc.msi"},
        BadInput{"SizeWithLeadingZeros", L"%SHARE%\\abc.msi", L"003", kDigestOfAbc, "UNC_COPIED_FILE_SIZE_MISMATCH_ERROR",
                 "abc.msi"},
        BadInput{"SizeInHex", L"%SHARE%\\abc.msi", L"0x3", kDigestOfAbc, "UNC_COPIED_FILE_SIZE_MISMATCH_ERROR", "abc.msi"},
        BadInput{"SizeAboveFourGiB", L"%SHARE%\\abc.msi", L"4294967299", kDigestOfAbc, "UNC_COPIED_FILE_SIZE_MISMATCH_ERROR",
                 "abc.msi"},
        BadInput{"ChecksumTooShort", L"%SHARE%\\abc.msi", L"3", L"ba7816bf", "UNC_CHECKSUM_MISMATCH_ERROR", "abc.msi"},
        BadInput{"ChecksumNotHex", L"%SHARE%\\abc.msi", L"3", std::wstring(64, L'z'), "UNC_CHECKSUM_MISMATCH_ERROR",
                 "abc.msi"},
        BadInput{"ChecksumWithBlank", L"%SHARE%\\abc.msi", L"3", std::wstring(kDigestOfAbc) + L" ",
                 "UNC_CHECKSUM_MISMATCH_ERROR", "abc.msi"}),
    [](const ::testing::TestParamInfo<BadInput>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace it
