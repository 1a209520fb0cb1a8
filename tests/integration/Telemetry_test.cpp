// The telemetry file "UpdateToolTelemetryData.json" below the installer logs
// folder: one entry per run with a job, appended to what the file holds,
// written in place without cutting the file to the new length.
#include <cstdio>

#include "JobFixture.h"

namespace it {
namespace {

const std::wstring kShare = L"\\\\fileserver\\deploy\\agent-2.5.0.7.msi";

// How the process ends when an exception leaves wmain: the C runtime's abort.
constexpr uint32_t kAbortExitCode = 3;

class TelemetryFile : public JobTest {
protected:
    const std::wstring key_ = JobKey(kNewRoot, L"{7D1F0E52-AB4C-4F11-9C2D-5E6A7B8C9D01}");
    const std::string guid_ = "{7D1F0E52-AB4C-4F11-9C2D-5E6A7B8C9D01}";

    void WriteReadyJob()
    {
        WriteJob(key_, {{L"AGENT", L"TOVI"}, {L"VERSION", L"2.5.0.7"}, {L"UNC_PATH", kShare}, {L"STATE", L"READY"},
                        {L"RESULT", L"OK"}, {L"FILENAME", L"C:\\dl\\agent.msi"}, {L"RETRY", L"1"}});
    }

    ExpectedEntry ReadyEntry() const
    {
        return {guid_, "TOVI", "C:\\dl\\agent.msi", "2.5.0.7", "READY", 1, "OK"};
    }

    void WriteTelemetry(const std::string& bytes)
    {
        MakeDirectories(JoinPath(logsDir_, L"updatetool"));
        WriteFileBytes(TelemetryPath(), bytes);
    }

    std::string LoadedLine() const
    {
        return "Util_UpdateDataForTelemetry: Loading from json file " + Narrow(TelemetryPath()) + " completed";
    }
    std::string MissingLine() const
    {
        return "Util_UpdateDataForTelemetry: Json file - " + Narrow(TelemetryPath()) + " , doesn't exist";
    }
    std::string SavedLine() const
    {
        return "Util_UpdateDataForTelemetry: Saving to json file - " + Narrow(TelemetryPath()) + " completed";
    }
};

// A foreign entry as another writer might have left it, in compact form.
JsonValue ForeignEntry(int n)
{
    JsonValue entry = JsonValue::Object();
    entry.Set("updatedGUID", JsonValue::String("job-" + std::to_string(n)));
    entry.Set("attempt", JsonValue::Int(n % 3));
    entry.Set("timestamp", JsonValue::Int(1700000000 + n));
    entry.Set("status", JsonValue::String(n % 2 ? "DONE" : "WAIT"));
    entry.Set("result", JsonValue::String("OK"));
    return entry;
}

std::string Compact(const JsonValue& v)
{
    // Styled text with its line structure removed is still valid JSON.
    std::string styled = StyledJson(v);
    std::string out;
    bool inString = false;
    for (size_t i = 0; i < styled.size(); ++i) {
        char c = styled[i];
        if (c == '"' && (i == 0 || styled[i - 1] != '\\'))
            inString = !inString;
        if (!inString && (c == '\n' || c == '\t'))
            continue;
        out.push_back(c);
    }
    return out;
}

TEST_F(TelemetryFile, FirstRunCreatesTheFileWithOneEntryInStyledText)
{
    WriteReadyJob();
    ASSERT_FALSE(PathExists(TelemetryPath()));
    JobRun job = RunExpecting(-1);

    std::optional<std::string> bytes = ReadFileBytes(TelemetryPath());
    ASSERT_TRUE(bytes.has_value()) << "no file at " << Narrow(TelemetryPath());
    std::optional<JsonValue> document = ParseJson(*bytes);
    ASSERT_TRUE(document.has_value()) << *bytes;
    ASSERT_TRUE(document->IsObject());
    EXPECT_EQ(document->Keys(), (std::vector<std::string>{"updateTool"}));
    std::optional<std::vector<JsonValue>> entries = TelemetryEntries();
    ASSERT_TRUE(entries.has_value());
    ASSERT_EQ(entries->size(), 1u);
    EXPECT_TRUE(IsEntry((*entries)[0], ReadyEntry(), job.startedAt, job.endedAt));
    // Keys in byte order, tab indentation, a line feed at the end.
    EXPECT_EQ((*entries)[0].Keys(), (std::vector<std::string>{"attempt", "fileName", "result", "status", "timestamp",
                                                              "type", "updatedGUID", "version"}));
    EXPECT_EQ(*bytes, StyledJson(*document));
    EXPECT_EQ(bytes->rfind("{\n\t\"updateTool\" : \n\t[\n\t\t{\n\t\t\t\"attempt\" : 1,\n", 0), 0u) << *bytes;

    EXPECT_TRUE(HasLinesInOrder(Messages(job), {MissingLine(), SavedLine()}));
    EXPECT_TRUE(LacksLine(Messages(job), LoadedLine()));
}

TEST_F(TelemetryFile, EachRunAppendsAnEntryAndKeepsTheEarlierOnes)
{
    SetRetrySettings(L"200", L"5");
    std::vector<JsonValue> earlier;
    for (int run = 1; run <= 3; ++run) {
        SCOPED_TRACE("run " + std::to_string(run));
        // The management side starts the fetch again after each failure.
        WriteJob(key_, {{L"AGENT", L"OTHER"}, {L"VERSION", L"3.0"}, {L"UNC_PATH", kShare}, {L"STATE", L"DOWNLOAD"},
                        {L"RESULT", L"FAILURE"}});
        JobRun job = RunJob();
        EXPECT_TRUE(IsCompletedRun(job.run, std::nullopt));
        EXPECT_EQ(job.run.exitCode, -1);
        // The share doesn't exist in the lab: each fetch fails to connect.
        EXPECT_TRUE(HasWrittenValues(key_, {"READY", "PROGRESS", "", "UNC_BAD_NET_NAME",
                                            "The network name could not be found.", std::to_string(run)}));

        std::optional<std::string> bytes = ReadFileBytes(TelemetryPath());
        ASSERT_TRUE(bytes.has_value());
        std::optional<JsonValue> document = ParseJson(*bytes);
        ASSERT_TRUE(document.has_value()) << *bytes;
        EXPECT_EQ(*bytes, StyledJson(*document));
        std::optional<std::vector<JsonValue>> entries = TelemetryEntries();
        ASSERT_TRUE(entries.has_value());
        ASSERT_EQ(entries->size(), static_cast<size_t>(run));
        for (size_t i = 0; i < earlier.size(); ++i)
            EXPECT_EQ((*entries)[i], earlier[i]) << "entry " << i;
        EXPECT_TRUE(IsEntry(entries->back(),
                            {guid_, "OTHER", "", "3.0", "READY", run, "PROGRESS", "UNC_BAD_NET_NAME",
                             "The network name could not be found."},
                            job.startedAt, job.endedAt));
        earlier = *entries;
        // Several runs may share a log file name; the console has this run's lines.
        EXPECT_EQ(CountMessages(job.console, LoadedLine()), run == 1 ? 0u : 1u);
        EXPECT_EQ(CountMessages(job.console, MissingLine()), run == 1 ? 1u : 0u);
        EXPECT_EQ(CountMessages(job.console, SavedLine()), 1u);
    }
}

TEST_F(TelemetryFile, OtherTopLevelKeysAndForeignEntriesSurvive)
{
    JsonValue before = JsonValue::Object();
    JsonValue collector = JsonValue::Object();
    collector.Set("id", JsonValue::Int(7));
    collector.Set("name", JsonValue::String("site collector"));
    before.Set("collector", collector);
    before.Set("schema", JsonValue::Int(3));
    JsonValue list = JsonValue::Array();
    list.items.push_back(ForeignEntry(1));
    before.Set("updateTool", list);
    WriteTelemetry(Compact(before));

    WriteReadyJob();
    JobRun job = RunExpecting(-1);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {LoadedLine(), SavedLine()}));

    std::optional<JsonValue> after = ReadTelemetry();
    ASSERT_TRUE(after.has_value());
    EXPECT_EQ(after->Keys(), (std::vector<std::string>{"collector", "schema", "updateTool"}));
    EXPECT_EQ(*after->Find("collector"), collector);
    EXPECT_EQ(*after->Find("schema"), JsonValue::Int(3));
    std::optional<std::vector<JsonValue>> entries = TelemetryEntries();
    ASSERT_TRUE(entries.has_value());
    ASSERT_EQ(entries->size(), 2u);
    EXPECT_EQ((*entries)[0], ForeignEntry(1));
    EXPECT_TRUE(IsEntry((*entries)[1], ReadyEntry(), job.startedAt, job.endedAt));
}

TEST_F(TelemetryFile, ListThatIsNullBecomesAListOfOne)
{
    WriteTelemetry("{\"updateTool\": null, \"keep\": \"me\"}");
    WriteReadyJob();
    JobRun job = RunExpecting(-1);
    std::optional<JsonValue> after = ReadTelemetry();
    ASSERT_TRUE(after.has_value());
    EXPECT_EQ(*after->Find("keep"), JsonValue::String("me"));
    std::optional<std::vector<JsonValue>> entries = TelemetryEntries();
    ASSERT_TRUE(entries.has_value());
    ASSERT_EQ(entries->size(), 1u);
    EXPECT_TRUE(IsEntry((*entries)[0], ReadyEntry(), job.startedAt, job.endedAt));
}

TEST_F(TelemetryFile, ListThatIsNotAnArrayEndsTheProcessAfterTheStateWasSaved)
{
    // The append throws; nothing in the tool catches it.
    const std::vector<std::string> documents = {
        "{\"updateTool\": \"text\"}",
        "{\"updateTool\": {}}",
        "{\"updateTool\": {\"a\": 1}}",
        "{\"updateTool\": 5}",
        "[1, 2]",
        "\"just text\"",
    };
    for (const std::string& document : documents) {
        SCOPED_TRACE(document);
        NextCase();
        WriteTelemetry(document);
        // A job that does no work this run: its values are saved as they are.
        WriteJob(key_, {{L"AGENT", L"OTHER"}, {L"UNC_PATH", kShare}, {L"STATE", L"WAIT"}, {L"RESULT", L"OK"},
                        {L"RETRY", L"1"}, {L"ERRORCODE", L"E_OLD"}});

        JobRun job = RunJob();
        EXPECT_FALSE(job.run.timedOut);
        EXPECT_EQ(static_cast<uint32_t>(job.run.exitCode), kAbortExitCode) << job.run.out << job.run.err;
        // The state save comes before the telemetry.
        EXPECT_TRUE(HasWrittenValues(key_, {"WAIT", "OK", "", "", "", "1"}));
        EXPECT_EQ(ReadFileBytes(TelemetryPath()), document);
        ASSERT_TRUE(job.log.has_value());
        EXPECT_TRUE(HasLinesInOrder(job.log->messages, {
            "UtilManageUpdateState: Update key: " + guid_ + " new state: WAIT result: OK",
            LoadedLine(),
        }));
        // Nothing after the throw: no save line, no closing line, no end line.
        EXPECT_TRUE(LacksLine(job.log->messages, SavedLine()));
        EXPECT_TRUE(LacksLineStartingWith(job.log->messages, "wmain: Updatetool rc = "));
        EXPECT_TRUE(LacksLine(job.log->messages, kEndLine));
        EXPECT_NE(job.run.err.find("Json::LogicError"), std::string::npos) << job.run.err;
    }
}

TEST_F(TelemetryFile, GarbageLongerThanTheNewTextStaysBehindIt)
{
    std::string garbage;
    for (int i = 0; garbage.size() < 6000; ++i)
        garbage += "garbage line " + std::to_string(i) + " ####\r\n";
    WriteTelemetry(garbage);
    WriteReadyJob();

    JobRun first = RunExpecting(-1);
    EXPECT_TRUE(HasLinesInOrder(Messages(first), {MissingLine(), SavedLine()}));
    std::optional<std::string> bytes = ReadFileBytes(TelemetryPath());
    ASSERT_TRUE(bytes.has_value());
    // Written from the start, not cut: as long as before.
    ASSERT_EQ(bytes->size(), garbage.size());
    JsonParse head = ParseJsonPrefix(*bytes);
    ASSERT_TRUE(head.value.has_value()) << head.error;
    ASSERT_LT(head.end, bytes->size());
    ASSERT_EQ((*bytes)[head.end], '\n');
    const size_t newLength = head.end + 1;
    EXPECT_EQ(bytes->substr(0, newLength), StyledJson(*head.value));
    EXPECT_EQ(bytes->substr(newLength), garbage.substr(newLength));
    const JsonValue* list = head.value->Find("updateTool");
    ASSERT_TRUE(list && list->IsArray());
    ASSERT_EQ(list->items.size(), 1u);
    EXPECT_TRUE(IsEntry(list->items[0], ReadyEntry(), first.startedAt, first.endedAt));
    EXPECT_FALSE(ParseJson(*bytes).has_value()) << "the old tail makes the file as a whole invalid";

    // The reader takes the first document and ignores what stands behind
    // it, so the next run loads the list and appends to it.
    WriteReadyJob();
    JobRun second = RunExpecting(-1);
    EXPECT_TRUE(HasLinesInOrder(Messages(second), {LoadedLine(), SavedLine()}));
    std::optional<std::string> again = ReadFileBytes(TelemetryPath());
    ASSERT_TRUE(again.has_value());
    ASSERT_EQ(again->size(), garbage.size());
    JsonParse head2 = ParseJsonPrefix(*again);
    ASSERT_TRUE(head2.value.has_value()) << head2.error;
    const JsonValue* list2 = head2.value->Find("updateTool");
    ASSERT_TRUE(list2 && list2->IsArray());
    ASSERT_EQ(list2->items.size(), 2u);
    EXPECT_EQ(list2->items[0], list->items[0]);
    EXPECT_TRUE(IsEntry(list2->items[1], ReadyEntry(), second.startedAt, second.endedAt));
    EXPECT_EQ(again->substr(head2.end + 1), garbage.substr(head2.end + 1));
}

TEST_F(TelemetryFile, TruncatedFileKeepsWhatWasReadBeforeTheCutAndTheOldTail)
{
    // Twenty entries with wide padding, cut behind the comma of the fifth.
    std::string text = "{\"updateTool\": [";
    std::vector<size_t> ends;
    for (int i = 0; i < 20; ++i) {
        text += Compact(ForeignEntry(i)) + std::string(300, ' ') + ",";
        ends.push_back(text.size());
    }
    std::string truncated = text.substr(0, ends[4]) + std::string(2000, ' ');
    WriteTelemetry(truncated);
    WriteReadyJob();

    JobRun job = RunExpecting(-1);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {MissingLine(), SavedLine()}));
    std::optional<std::string> bytes = ReadFileBytes(TelemetryPath());
    ASSERT_TRUE(bytes.has_value());
    ASSERT_EQ(bytes->size(), truncated.size());
    JsonParse head = ParseJsonPrefix(*bytes);
    ASSERT_TRUE(head.value.has_value()) << head.error;
    const size_t newLength = head.end + 1;
    EXPECT_EQ(bytes->substr(0, newLength), StyledJson(*head.value));
    EXPECT_EQ(bytes->substr(newLength), truncated.substr(newLength));
    const JsonValue* list = head.value->Find("updateTool");
    ASSERT_TRUE(list && list->IsArray());
    // The five whole entries, the element the reader had begun (null), this run's.
    ASSERT_EQ(list->items.size(), 7u);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(list->items[static_cast<size_t>(i)], ForeignEntry(i)) << "entry " << i;
    EXPECT_EQ(list->items[5], JsonValue());
    EXPECT_TRUE(IsEntry(list->items[6], ReadyEntry(), job.startedAt, job.endedAt));
}

TEST_F(TelemetryFile, TenThousandEntriesAreAllKeptAndOneIsAppended)
{
    JsonValue before = JsonValue::Object();
    JsonValue list = JsonValue::Array();
    for (int i = 0; i < 10000; ++i)
        list.items.push_back(ForeignEntry(i));
    before.Set("updateTool", list);
    WriteTelemetry(StyledJson(before));
    WriteReadyJob();

    JobRun job = RunExpecting(-1);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {LoadedLine(), SavedLine()}));
    std::optional<std::string> bytes = ReadFileBytes(TelemetryPath());
    ASSERT_TRUE(bytes.has_value());
    std::optional<JsonValue> after = ParseJson(*bytes);
    ASSERT_TRUE(after.has_value());
    EXPECT_EQ(*bytes, StyledJson(*after));
    const JsonValue* entries = after->Find("updateTool");
    ASSERT_TRUE(entries && entries->IsArray());
    ASSERT_EQ(entries->items.size(), 10001u);
    for (size_t i = 0; i < 10000; ++i)
        if (!(entries->items[i] == list.items[i])) {
            ADD_FAILURE() << "entry " << i << " changed";
            break;
        }
    EXPECT_TRUE(IsEntry(entries->items[10000], ReadyEntry(), job.startedAt, job.endedAt));
}

TEST_F(TelemetryFile, TextOutsideAsciiIsWrittenAsEscapes)
{
    const std::wstring key = JobKey(kNewRoot, L"job-\u00e9");
    WriteJob(key, {{L"AGENT", L"OTHER"}, {L"VERSION", L"2.5 \u03b2eta"}, {L"UNC_PATH", kShare},
                   {L"STATE", L"READY"}, {L"RESULT", L"OK"}, {L"FILENAME", L"C:\\dl\\\u00fcber \"x\".msi"}});
    JobRun job = RunExpecting(-1);
    std::optional<std::string> bytes = ReadFileBytes(TelemetryPath());
    ASSERT_TRUE(bytes.has_value());
    for (unsigned char c : *bytes)
        ASSERT_LT(c, 0x80u) << "the file holds a byte outside ASCII";
    EXPECT_NE(bytes->find("\"updatedGUID\" : \"job-\\u00e9\""), std::string::npos) << *bytes;
    EXPECT_NE(bytes->find("\"version\" : \"2.5 \\u03b2eta\""), std::string::npos) << *bytes;
    EXPECT_NE(bytes->find("\"fileName\" : \"C:\\\\dl\\\\\\u00fcber \\\"x\\\".msi\""), std::string::npos) << *bytes;
    std::optional<std::vector<JsonValue>> entries = TelemetryEntries();
    ASSERT_TRUE(entries.has_value());
    ASSERT_EQ(entries->size(), 1u);
    EXPECT_TRUE(IsEntry((*entries)[0],
                        {Narrow(L"job-\u00e9"), "OTHER", Narrow(L"C:\\dl\\\u00fcber \"x\".msi"), Narrow(L"2.5 \u03b2eta"),
                         "READY", 0, "OK"},
                        job.startedAt, job.endedAt));
}

TEST_F(TelemetryFile, LogsFolderWithATrailingBackslashStillGetsTheFile)
{
    WriteString(kNewRoot, L"InstallLogsDir", logsDir_ + L"\\");
    WriteReadyJob();
    JobRun job = RunJob();
    EXPECT_EQ(job.run.exitCode, -1);
    std::optional<std::vector<JsonValue>> entries = TelemetryEntries();
    ASSERT_TRUE(entries.has_value()) << "no file at " << Narrow(TelemetryPath());
    ASSERT_EQ(entries->size(), 1u);
    EXPECT_TRUE(IsEntry((*entries)[0], ReadyEntry(), job.startedAt, job.endedAt));
    EXPECT_TRUE(ContainsMessage(job.console, "Util_UpdateDataForTelemetry: Saving to json file - " +
                                                 Narrow(logsDir_) + "\\\\updatetool\\UpdateToolTelemetryData.json "
                                                                    "completed"));
}

TEST_F(TelemetryFile, WithoutANewRootLogsFolderTheLegacyRootsIsUsed)
{
    ::RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kNewRoot, L"InstallLogsDir");
    std::wstring legacyLogs = NewFolder(L"legacy-logs");
    WriteString(kLegacyRoot, L"InstallLogsDir", legacyLogs);
    WriteReadyJob();
    JobRun job = RunJob();
    EXPECT_EQ(job.run.exitCode, -1);
    EXPECT_FALSE(PathExists(TelemetryPath()));
    std::optional<std::string> bytes =
        ReadFileBytes(JoinPath(JoinPath(legacyLogs, L"updatetool"), L"UpdateToolTelemetryData.json"));
    ASSERT_TRUE(bytes.has_value());
    std::optional<JsonValue> document = ParseJson(*bytes);
    ASSERT_TRUE(document.has_value());
    const JsonValue* list = document->Find("updateTool");
    ASSERT_TRUE(list && list->IsArray());
    ASSERT_EQ(list->items.size(), 1u);
    EXPECT_TRUE(IsEntry(list->items[0], ReadyEntry(), job.startedAt, job.endedAt));
}

}  // namespace
}  // namespace it
