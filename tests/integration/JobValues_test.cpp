// How the values of a job key are read: mandatory values, the spelling and
// type of "STATE", "RETRY" and "URL", "METADATA" and the data limit of the
// listing. Each case looks at what the closing steps write back.
#include <functional>

#include "JobFixture.h"

namespace it {
namespace {

const std::wstring kShare = L"\\\\fileserver\\deploy\\agent-2.5.0.7.msi";

class JobValues : public JobTest {
protected:
    const std::wstring key_ = JobKey(kNewRoot, L"job");
};

TEST_F(JobValues, MissingAgentFailsTheReadAndOnlyWhatWasReadBeforeTheCheckIsWrittenBack)
{
    WriteJob(key_, {{L"UNC_PATH", kShare}, {L"URL", L"https://dl.example/agent.msi"}, {L"STATE", L"WAIT"},
                    {L"RESULT", L"OK"}, {L"FILENAME", L"C:\\dl\\agent.msi"}, {L"RETRY", L"4"},
                    {L"VERSION", L"2.5.0.7"}});
    JobRun job = RunExpecting(-1);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "UtilGetRegistry: URL length: 28 [https://dl.example/agent.msi]",
        "UtilGetRegistry: required parameter empty, sAgent: , sUNC: " + Narrow(kShare) +
            ", sURLs: https://dl.example/agent.msi",
        "Util_GetUpdateState: Update key: job Registry failure",
        "UtilManageUpdateState: Update key: job current state: WAIT result:",
    }));
    // STATE comes before the check; RESULT, FILENAME and RETRY after it.
    EXPECT_TRUE(HasWrittenValues(key_, {"WAIT", "", "", "", "", "0"}));
    EXPECT_EQ(ReadText(key_, L"UNC_PATH"), Narrow(kShare));

    std::optional<std::vector<JsonValue>> entries = TelemetryEntries();
    ASSERT_TRUE(entries.has_value());
    ASSERT_EQ(entries->size(), 1u);
    // VERSION is read before the check.
    EXPECT_TRUE(IsEntry((*entries)[0], {"job", "", "", "2.5.0.7", "WAIT", 0, ""}, job.startedAt, job.endedAt));
}

TEST_F(JobValues, NeitherShareNorUrlFailsTheRead)
{
    WriteJob(key_, {{L"AGENT", L"OTHER"}, {L"STATE", L"READY"}, {L"RESULT", L"OK"}, {L"RETRY", L"2"}});
    JobRun job = RunExpecting(-1);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "UtilGetRegistry: required parameter empty, sAgent: OTHER, sUNC: , sURLs: ",
        "Util_GetUpdateState: Update key: job Registry failure",
    }));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "UtilGetRegistry: URL length: "));
    EXPECT_TRUE(HasWrittenValues(key_, {"READY", "", "", "", "", "0"}));
}

TEST_F(JobValues, MissingAgentUnderDownloadTakesTheRetryPathWithTheUnreadResult)
{
    // RESULT "OK" is never read, so the fetch counts as failed; RETRY "5"
    // isn't read either, so the count starts from 0.
    SetRetrySettings(L"200", L"2");
    WriteJob(key_, {{L"UNC_PATH", kShare}, {L"STATE", L"DOWNLOAD"}, {L"RESULT", L"OK"}, {L"RETRY", L"5"}});
    JobRun job = RunExpecting(-1);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "Util_GetUpdateState: Update key: job Registry failure",
        "UtilTryAgain: updating retry: 1, max attempt allowed: 2",
        "Util_UpdateDone: wait for 0 mins",
        "Util_UpdateDone: done waiting",
        "UtilManageUpdateState: Update key: job current state: READY result:PROGRESS",
    }));
    EXPECT_TRUE(HasWrittenValues(key_, {"READY", "PROGRESS", "", "", "", "1"}));
}

TEST_F(JobValues, ValueNamesAndStateTextsMatchWhateverTheirCase)
{
    for (const wchar_t* text : {L"ready", L"Ready", L"rEaDy", L"READY"}) {
        SCOPED_TRACE(Narrow(text));
        NextCase();
        WriteJob(key_, {{L"agent", L"OTHER"}, {L"unc_path", kShare}, {L"state", text}, {L"Result", L"FAILURE"},
                        {L"retry", L"1"}});
        JobRun job = RunExpecting(-1);
        EXPECT_TRUE(HasWrittenValues(key_, {"READY", "FAILURE", "", "", "", "1"}));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "UtilStateId: invalid state"));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "UtilGetRegistry: required parameter empty"));
    }
}

TEST_F(JobValues, StateWithATrailingBlankIsUnknownAndWrittenBackEmpty)
{
    WriteJob(key_, {{L"AGENT", L"OTHER"}, {L"UNC_PATH", kShare}, {L"STATE", L"READY "}, {L"RESULT", L"OK"},
                    {L"RETRY", L"1"}});
    JobRun job = RunExpecting(-1);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "UtilStateId: invalid state: READY ",
        "Util_UpdateDone: Updating state for result 'ERR_FAILURE', legacy workflow:'0' ",
        "stateStr: invalid state: 0",
        "UtilManageUpdateState: Update key: job current state:  result:OK",
    }));
    EXPECT_TRUE(HasWrittenValues(key_, {"", "OK", "", "", "", "1"}));
    std::optional<std::vector<JsonValue>> entries = TelemetryEntries();
    ASSERT_TRUE(entries.has_value());
    ASSERT_EQ(entries->size(), 1u);
    EXPECT_TRUE(IsEntry((*entries)[0], {"job", "OTHER", "", "", "", 1, "OK"}, job.startedAt, job.endedAt));
}

TEST_F(JobValues, RetryOfEveryTypeIsWrittenBackAsDecimalText)
{
    struct Case {
        const char* label;
        std::function<void(const std::wstring&)> write;
        const char* written;
    };
    const std::vector<Case> cases = {
        {"REG_DWORD 3", [](const std::wstring& k) { WriteDword(k, L"RETRY", 3); }, "3"},
        {"REG_SZ \"3\"", [](const std::wstring& k) { WriteString(k, L"RETRY", L"3"); }, "3"},
        {"REG_SZ \"0x10\"", [](const std::wstring& k) { WriteString(k, L"RETRY", L"0x10"); }, "16"},
        {"REG_SZ \" 010 \" (not octal)", [](const std::wstring& k) { WriteString(k, L"RETRY", L" 010 "); }, "10"},
        {"REG_QWORD 7", [](const std::wstring& k) { WriteQword(k, L"RETRY", 7); }, "7"},
        {"REG_SZ \"-2\"", [](const std::wstring& k) { WriteString(k, L"RETRY", L"-2"); }, "-2"},
        {"REG_SZ \"abc\"", [](const std::wstring& k) { WriteString(k, L"RETRY", L"abc"); }, "0"},
        {"absent", [](const std::wstring&) {}, "0"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        NextCase();
        WriteJob(key_, {{L"AGENT", L"OTHER"}, {L"UNC_PATH", kShare}, {L"STATE", L"READY"}, {L"RESULT", L"OK"}});
        c.write(key_);
        JobRun job = RunExpecting(-1);
        EXPECT_TRUE(HasWrittenValues(key_, {"READY", "OK", "", "", "", c.written}));
        std::optional<std::vector<JsonValue>> entries = TelemetryEntries();
        ASSERT_TRUE(entries.has_value());
        ASSERT_EQ(entries->size(), 1u);
        EXPECT_TRUE(IsEntry((*entries)[0], {"job", "OTHER", "", "", "READY", std::stoll(c.written), "OK"},
                            job.startedAt, job.endedAt));
    }
}

TEST_F(JobValues, UrlAsMultiStringGivesOneItemPerEntryAndAsPlainTextOneItem)
{
    const std::wstring a = L"https://a.example/agent.msi";  // 27 characters
    const std::wstring b = L"https://b.example/agent.msi";
    ASSERT_EQ(a.size(), 27u);
    struct Case {
        const char* label;
        std::function<void()> write;
        std::string line;
    };
    const std::vector<Case> cases = {
        // Two items and three NULs: the list's terminators count in the length.
        {"REG_MULTI_SZ of two", [&] { WriteMultiString(key_, L"URL", {a, b}); },
         "UtilGetRegistry: URL length: 57 [" + Narrow(a) + "," + Narrow(b) + "]"},
        // One item that holds the comma.
        {"REG_SZ with a comma", [&] { WriteString(key_, L"URL", a + L"," + b); },
         "UtilGetRegistry: URL length: 55 [" + Narrow(a) + "," + Narrow(b) + "]"},
        {"REG_SZ of one", [&] { WriteString(key_, L"URL", a); }, "UtilGetRegistry: URL length: 27 [" + Narrow(a) + "]"},
        // Empty pieces are dropped; a piece behind the last NUL stays.
        {"REG_BINARY with empty pieces and no terminator",
         [&] {
             std::wstring text = std::wstring(L"\0\0", 2) + a + std::wstring(L"\0\0", 2) + b;
             WriteBinary(key_, L"URL", Utf16Bytes(text, false));
         },
         "UtilGetRegistry: URL length: 58 [" + Narrow(a) + "," + Narrow(b) + "]"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        NextCase();
        WriteJob(key_, {{L"AGENT", L"OTHER"}, {L"STATE", L"READY"}, {L"RESULT", L"OK"}});
        c.write();
        JobRun job = RunExpecting(-1);
        EXPECT_EQ(CountMessages(Messages(job), c.line), 1u) << job.run.out;
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "UtilGetRegistry: required parameter empty"));
        EXPECT_TRUE(HasWrittenValues(key_, {"READY", "OK", "", "", "", "0"}));
    }
}

TEST_F(JobValues, UrlOfOnlyNulsIsAnEmptyListAndFailsTheMandatoryCheck)
{
    WriteJob(key_, {{L"AGENT", L"OTHER"}, {L"STATE", L"READY"}, {L"RESULT", L"OK"}});
    WriteMultiString(key_, L"URL", {});
    JobRun job = RunExpecting(-1);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {"UtilGetRegistry: URL length: 1 []",
                                                "UtilGetRegistry: required parameter empty, sAgent: OTHER, sUNC: , "
                                                "sURLs: "}));
}

TEST_F(JobValues, MetadataThatParsesIsLoggedAndMetadataThatDoesntIsSilent)
{
    struct Case {
        const char* label;
        std::wstring metadata;
        bool loaded;
    };
    const std::vector<Case> cases = {
        {"two thumbprints",
         L"<PROPERTYBAG><ITEM name=\"THUMBPRINT\">9F86D081884C7D659A2FEAA0C55AD015A3BF4F1B</ITEM>"
         L"<ITEM name=\"thumbprint\">2C26B46B68FFC68FF99B453C1D30413413422D70</ITEM></PROPERTYBAG>",
         true},
        {"an empty bag", L"<PROPERTYBAG></PROPERTYBAG>", true},
        {"an item without a name", L"<PROPERTYBAG><ITEM>x</ITEM></PROPERTYBAG>", false},
        {"no closing tag", L"<PROPERTYBAG><ITEM name=\"THUMBPRINT\">AB</ITEM>", false},
        {"not a bag", L"thumbprint=AB", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        NextCase();
        WriteJob(key_, {{L"AGENT", L"OTHER"}, {L"UNC_PATH", kShare}, {L"STATE", L"READY"}, {L"RESULT", L"OK"},
                        {L"METADATA", c.metadata}});
        JobRun job = RunExpecting(-1);
        EXPECT_EQ(CountMessages(Messages(job), "UtilGetRegistry: matadata XML string loaded"), c.loaded ? 1u : 0u);
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "PropertyBag Parse failed"));
        // Metadata is an instruction: read, never written.
        EXPECT_EQ(ReadText(key_, L"METADATA"), Narrow(c.metadata));
        EXPECT_TRUE(HasWrittenValues(key_, {"READY", "OK", "", "", "", "0"}));
    }
}

TEST_F(JobValues, MetadataOfAtMost8191BytesIsReadWithEverythingBehindIt)
{
    // 4094 characters and the terminator: 8190 bytes, within the limit.
    std::wstring bag = L"<PROPERTYBAG><ITEM name=\"THUMBPRINT\">AB</ITEM></PROPERTYBAG>";
    std::wstring metadata = bag + std::wstring(4094 - bag.size(), L' ');
    WriteJob(key_, {{L"AGENT", L"OTHER"}, {L"UNC_PATH", kShare}, {L"STATE", L"WAIT"}, {L"RESULT", L"OK"},
                    {L"RETRY", L"1"}, {L"VERSION", L"2.5.0.7"}, {L"METADATA", metadata}});
    ASSERT_EQ(ReadValue(key_, L"METADATA")->data.size(), 8190u);
    JobRun job = RunExpecting(-1);
    EXPECT_TRUE(ContainsMessage(Messages(job), "UtilGetRegistry: matadata XML string loaded"));
    EXPECT_TRUE(ContainsMessage(Messages(job), "Update key: job VERSION = 2.5.0.7"));
    EXPECT_TRUE(HasWrittenValues(key_, {"WAIT", "OK", "", "", "", "1"}));
}

TEST_F(JobValues, MetadataOverTheLimitEndsTheListingAndTheValuesBehindItAreMissing)
{
    // 4095 characters and the terminator: 8192 bytes, one over the limit.
    std::wstring metadata(4095, L'x');
    const std::vector<std::pair<std::wstring, std::wstring>> values = {
        {L"AGENT", L"OTHER"},        {L"ARCH", L"64-BitAgent"},     {L"CHECKSUM", L"ABCDEF"},
        {L"FILENAME", L"C:\\dl\\agent.msi"}, {L"METADATA", metadata}, {L"OPTIONS", L"/quiet"},
        {L"RESULT", L"FAILURE"},     {L"RETRY", L"1"},              {L"STATE", L"DOWNLOAD"},
        {L"UNC_PATH", kShare},       {L"URL", L"https://dl.example/agent.msi"}, {L"VERSION", L"2.5.0.7"},
    };
    WriteJob(key_, values);
    // The lab lists values alphabetically (Windows lists them in the order
    // of creation): what stands behind "METADATA" depends on it.
    std::vector<std::wstring> order = ValueNames(key_);
    std::vector<std::wstring> alphabetical;
    for (const auto& value : values)
        alphabetical.push_back(value.first);
    ASSERT_EQ(order, alphabetical);

    JobRun job = RunExpecting(-1);
    const std::vector<std::string>& m = Messages(job);
    EXPECT_TRUE(HasLinesInOrder(m, {
        "Update key: job AGENT = OTHER",
        "Update key: job ARCH = 64-BitAgent",
        "Update key: job CHECKSUM = ABCDEF",
        "Update key: job FILENAME = C:\\dl\\agent.msi",
        // Share and URL are behind it: the mandatory check fails.
        "UtilGetRegistry: required parameter empty, sAgent: OTHER, sUNC: , sURLs: ",
        "Util_GetUpdateState: Update key: job Registry failure",
    }));
    for (const char* name : {"METADATA", "OPTIONS", "RESULT", "RETRY", "STATE", "UNC_PATH", "URL", "VERSION"})
        EXPECT_TRUE(LacksLineStartingWith(m, std::string("Update key: job ") + name + " = "));
    // STATE was never read: the record's READY stands, so the DOWNLOAD job
    // takes no retry and is written back as READY with nothing of its own.
    EXPECT_TRUE(LacksLineStartingWith(m, "UtilTryAgain:"));
    EXPECT_TRUE(HasWrittenValues(key_, {"READY", "", "", "", "", "0"}));
}

}  // namespace
}  // namespace it
