#include "JobFixture.h"

#include <ctime>
#include <set>

namespace it {

std::wstring JobKey(const wchar_t* root, const std::wstring& name) { return UpdateKey(root) + L"\\" + name; }

std::optional<std::string> ReadText(const std::wstring& key, const std::wstring& name)
{
    std::optional<RegValue> value = ReadValue(key, name);
    if (!value || value->type != REG_SZ)
        return std::nullopt;
    std::wstring text;
    for (size_t i = 0; i + 1 < value->data.size(); i += 2)
        text.push_back(static_cast<wchar_t>(value->data[i] | (value->data[i + 1] << 8)));
    while (!text.empty() && text.back() == L'\0')
        text.pop_back();
    return Narrow(text);
}

::testing::AssertionResult HasWrittenValues(const std::wstring& key, const WrittenValues& expected)
{
    const std::pair<const wchar_t*, const std::string*> items[] = {
        {L"STATE", &expected.state},         {L"RESULT", &expected.result},
        {L"FILENAME", &expected.fileName},   {L"ERRORCODE", &expected.errorCode},
        {L"ERRORDESC", &expected.errorDesc}, {L"RETRY", &expected.retry},
    };
    bool failed = false;
    std::string report;
    for (const auto& [name, text] : items) {
        std::optional<RegValue> value = ReadValue(key, name);
        std::string label = "HKLM\\" + Narrow(key) + "\\" + Narrow(name);
        if (!value) {
            report += label + " is missing; expected \"" + *text + "\"\n";
            failed = true;
            continue;
        }
        std::optional<std::string> got = ReadText(key, name);
        if (value->type != REG_SZ) {
            report += label + " has type " + std::to_string(value->type) + ", expected REG_SZ\n";
            failed = true;
        } else if (value->data != Utf16Bytes(Wide(*text), true)) {
            report += label + " = \"" + got.value_or("?") + "\" (" + std::to_string(value->data.size()) +
                      " bytes), expected \"" + *text + "\"\n";
            failed = true;
        }
    }
    if (failed)
        return ::testing::AssertionFailure() << report;
    return ::testing::AssertionSuccess();
}

::testing::AssertionResult NoRebootMarker()
{
    for (const wchar_t* root : {kNewRoot, kLegacyRoot})
        if (ReadValue(VolatileStatusKey(root), L"NeedReboot"))
            return ::testing::AssertionFailure() << "NeedReboot stands under HKLM\\" << Narrow(root);
    return ::testing::AssertionSuccess();
}

::testing::AssertionResult IsEntry(const JsonValue& entry, const ExpectedEntry& expected, int64_t notBefore,
                                   int64_t notAfter)
{
    if (!entry.IsObject())
        return ::testing::AssertionFailure() << "the entry is not an object";
    std::set<std::string> keys;
    for (const std::string& key : entry.Keys())
        keys.insert(key);
    std::set<std::string> expectedKeys = {"attempt", "fileName", "result", "status",
                                          "timestamp", "type", "updatedGUID", "version"};
    if (!expected.errorCode.empty())
        expectedKeys.insert("errorCode");
    if (!expected.errorDescription.empty())
        expectedKeys.insert("errorDescription");
    if (keys != expectedKeys) {
        std::string got;
        for (const std::string& key : keys)
            got += " " + key;
        return ::testing::AssertionFailure() << "entry keys:" << got;
    }
    const std::pair<const char*, const std::string*> texts[] = {
        {"updatedGUID", &expected.updatedGUID}, {"type", &expected.type},     {"fileName", &expected.fileName},
        {"version", &expected.version},         {"status", &expected.status}, {"result", &expected.result},
        {"errorCode", &expected.errorCode},     {"errorDescription", &expected.errorDescription},
    };
    for (const auto& [key, text] : texts) {
        const JsonValue* value = entry.Find(key);
        if (!value && text->empty())
            continue;
        if (value->kind != JsonValue::Kind::String || value->text != *text)
            return ::testing::AssertionFailure() << "\"" << key << "\" is \"" << value->text << "\" (kind "
                                                 << static_cast<int>(value->kind) << "), expected \"" << *text
                                                 << "\"";
    }
    const JsonValue* attempt = entry.Find("attempt");
    if (attempt->kind != JsonValue::Kind::Int || attempt->integer != expected.attempt)
        return ::testing::AssertionFailure() << "\"attempt\" is " << attempt->integer << ", expected "
                                             << expected.attempt;
    const JsonValue* stamp = entry.Find("timestamp");
    if (stamp->kind != JsonValue::Kind::Int || stamp->integer < notBefore || stamp->integer > notAfter)
        return ::testing::AssertionFailure() << "\"timestamp\" is " << stamp->integer << ", expected between "
                                             << notBefore << " and " << notAfter;
    return ::testing::AssertionSuccess();
}

void JobTest::SetUp()
{
    ToolTest::SetUp();
    // Every run that reaches a retry waits this long; keep it short.
    SetRetrySettings(L"200", maxRetry_);
}

void JobTest::NextCase()
{
    DeleteProductKeys();
    logsDir_ = UseFreshLogsDir();
    SetRetrySettings(L"200", maxRetry_);
    RemoveTree(Workspace());
}

void JobTest::WriteJob(const std::wstring& key, const std::vector<std::pair<std::wstring, std::wstring>>& values)
{
    HKEY handle = nullptr;
    if (::RegCreateKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, nullptr, 0, KEY_READ, nullptr, &handle, nullptr) !=
        ERROR_SUCCESS)
        throw std::runtime_error("can't create HKLM\\" + Narrow(key));
    ::RegCloseKey(handle);
    for (const auto& [name, text] : values)
        WriteString(key, name, text);
}

void JobTest::SetRetrySettings(const std::wstring& waitMs, const std::optional<std::wstring>& maxRetry)
{
    WriteString(UpdateKey(kNewRoot), L"RetryWaitPeriod", waitMs);
    if (maxRetry)
        WriteString(UpdateKey(kNewRoot), L"MAXDOWNLOADANDUPGRADERETRY", *maxRetry);
}

JobRun JobTest::RunJob(DWORD timeoutMs)
{
    RunOptions options = Options();
    options.timeoutMs = timeoutMs;
    return RunJob(options);
}

JobRun JobTest::RunJob(RunOptions options)
{
    JobRun job;
    job.startedAt = _time64(nullptr);
    job.run = Run(options);
    job.endedAt = _time64(nullptr);
    job.log = ReadNewestLog(logsDir_);
    job.console = MessagesOf(OutputLines(job.run.out));
    return job;
}

JobRun JobTest::RunCompleted(const std::vector<std::wstring>& args, DWORD timeoutMs)
{
    RunOptions options = Options();
    options.args = args;
    options.timeoutMs = timeoutMs;
    JobRun job = RunJob(options);
    ExpectCompleted(job);
    return job;
}

JobRun JobTest::RunExpecting(int32_t exitCode, const std::vector<std::wstring>& args, DWORD timeoutMs)
{
    JobRun job = RunCompleted(args, timeoutMs);
    EXPECT_EQ(exitCode, job.run.exitCode) << RunResultName(job.run.exitCode);
    return job;
}

void JobTest::ExpectCompleted(const JobRun& job)
{
    EXPECT_TRUE(job.log.has_value()) << job.run.out;
    EXPECT_TRUE(IsCompletedRun(job.run, job.log));
    EXPECT_TRUE(NoRebootMarker());
}

const std::vector<std::string>& JobTest::Messages(const JobRun& job)
{
    static const std::vector<std::string> none;
    return job.log ? job.log->messages : none;
}

void JobTest::ExpectOneEntry(const JobRun& job, const ExpectedEntry& expected)
{
    std::optional<std::vector<JsonValue>> entries = TelemetryEntries();
    ASSERT_TRUE(entries.has_value());
    ASSERT_EQ(1u, entries->size());
    EXPECT_TRUE(IsEntry((*entries)[0], expected, job.startedAt, job.endedAt));
}

std::wstring JobTest::TelemetryPath() const
{
    return JoinPath(JoinPath(logsDir_, L"updatetool"), L"UpdateToolTelemetryData.json");
}

std::optional<JsonValue> JobTest::ReadTelemetry() const
{
    std::optional<std::string> bytes = ReadFileBytes(TelemetryPath());
    if (!bytes)
        return std::nullopt;
    return ParseJson(*bytes);
}

std::optional<std::vector<JsonValue>> JobTest::TelemetryEntries() const
{
    std::optional<JsonValue> document = ReadTelemetry();
    if (!document)
        return std::nullopt;
    const JsonValue* list = document->Find("updateTool");
    if (!list || !list->IsArray())
        return std::nullopt;
    return list->items;
}

std::wstring JobTest::Workspace() const { return JoinPath(tempDir_, L"updatetool-data"); }

std::wstring JobTest::MakePayload(const std::wstring& name)
{
    MakeDirectories(Workspace());
    std::wstring path = JoinPath(Workspace(), name);
    WriteFileBytes(path, "payload of the installer");
    return path;
}

::testing::AssertionResult HasLinesInOrder(const std::vector<std::string>& messages,
                                           const std::vector<std::string>& lines)
{
    size_t at = 0;
    for (const std::string& line : lines) {
        while (at < messages.size() && messages[at] != line)
            ++at;
        if (at == messages.size()) {
            std::string all;
            for (const std::string& m : messages)
                all += "  " + m + "\n";
            return ::testing::AssertionFailure() << "missing (or out of order): \"" << line << "\"\nmessages:\n"
                                                 << all;
        }
        ++at;
    }
    return ::testing::AssertionSuccess();
}

::testing::AssertionResult LacksLine(const std::vector<std::string>& messages, const std::string& line)
{
    if (ContainsMessage(messages, line))
        return ::testing::AssertionFailure() << "unexpected line: \"" << line << "\"";
    return ::testing::AssertionSuccess();
}

::testing::AssertionResult LacksLineStartingWith(const std::vector<std::string>& messages, const std::string& prefix)
{
    for (const std::string& message : messages)
        if (message.rfind(prefix, 0) == 0)
            return ::testing::AssertionFailure() << "unexpected line: \"" << message << "\"";
    return ::testing::AssertionSuccess();
}

}  // namespace it
