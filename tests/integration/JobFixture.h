#pragma once
// What the job tests share: writing a job key, the retry settings beside it,
// and checking what a run leaves behind: the six values the closing steps
// write, the reboot marker, the telemetry entry.
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Harness.h"
#include "JsonText.h"

namespace it {

// root\Agent\Update\<name>
std::wstring JobKey(const wchar_t* root, const std::wstring& name);

// The six values every completed run writes back, as text.
struct WrittenValues {
    std::string state;
    std::string result;
    std::string fileName;
    std::string errorCode;
    std::string errorDesc;
    std::string retry;
};

// Each of the six exists as REG_SZ holding exactly the text and its terminator.
::testing::AssertionResult HasWrittenValues(const std::wstring& key, const WrittenValues& expected);
// A REG_SZ value's text; nothing when absent or of another type.
std::optional<std::string> ReadText(const std::wstring& key, const std::wstring& name);
// Neither root carries the tool's "NeedReboot" marker.
::testing::AssertionResult NoRebootMarker();

// What the telemetry entry of a run must hold; the three optional keys are
// expected absent.
struct ExpectedEntry {
    std::string updatedGUID;
    std::string type;
    std::string fileName;
    std::string version;
    std::string status;
    int64_t attempt = 0;
    std::string result;
    // Written only when the run failed; empty means the key must be absent.
    std::string errorCode = {};
    std::string errorDescription = {};
};

::testing::AssertionResult IsEntry(const JsonValue& entry, const ExpectedEntry& expected, int64_t notBefore,
                                   int64_t notAfter);

// One run of the tool with what it left: console and log messages and the
// wall clock around it (seconds since 1970, UTC).
struct JobRun {
    ToolRun run;
    std::optional<LogFile> log;
    std::vector<std::string> console;  // time-stamped messages of standard output
    int64_t startedAt = 0;
    int64_t endedAt = 0;
};

class JobTest : public ToolTest {
protected:
    void SetUp() override;

    // A fresh start within one test: no product keys, a new log folder, the
    // retry settings of SetUp again and an empty workspace.
    void NextCase();

    // A job key with REG_SZ values.
    void WriteJob(const std::wstring& key, const std::vector<std::pair<std::wstring, std::wstring>>& values);
    // "RetryWaitPeriod" and, when given, "MAXDOWNLOADANDUPGRADERETRY", both as REG_SZ.
    void SetRetrySettings(const std::wstring& waitMs, const std::optional<std::wstring>& maxRetry = std::nullopt);

    JobRun RunJob(DWORD timeoutMs = 60000);
    // A run with these options, e.g. Options() with arguments added.
    JobRun RunJob(RunOptions options);
    // A run that must go through its closing steps (see ExpectCompleted).
    JobRun RunCompleted(const std::vector<std::wstring>& args = {}, DWORD timeoutMs = 60000);
    // The same, ending with `exitCode`.
    JobRun RunExpecting(int32_t exitCode, const std::vector<std::wstring>& args = {}, DWORD timeoutMs = 60000);
    // The run left a log, went through its closing steps and left no reboot
    // marker.
    static void ExpectCompleted(const JobRun& job);

    // The log's messages; none when the run left no log.
    static const std::vector<std::string>& Messages(const JobRun& job);
    // The run's one telemetry entry.
    void ExpectOneEntry(const JobRun& job, const ExpectedEntry& expected);

    std::wstring TelemetryPath() const;
    std::optional<JsonValue> ReadTelemetry() const;
    // The "updateTool" list, or nothing when the file isn't such a document.
    std::optional<std::vector<JsonValue>> TelemetryEntries() const;
    // The tool's workspace: "updatetool-data" below the %TEMP% the harness gives it.
    std::wstring Workspace() const;
    // A file in the workspace, as a payload a fetch would have left.
    std::wstring MakePayload(const std::wstring& name);

    // The "MAXDOWNLOADANDUPGRADERETRY" that SetUp and NextCase write; none
    // leaves the tool's default. A fixture sets it in its constructor.
    std::optional<std::wstring> maxRetry_;
};

// A job fixture whose runs can't restart the machine, which would end the
// prefix with this harness in it: every case starts with no retries
// ("MAXDOWNLOADANDUPGRADERETRY" 0), unless a test sets others.
template <class Fixture>
class NoRestart : public Fixture {
protected:
    NoRestart() { this->maxRetry_ = L"0"; }
};

using NoRestartJobTest = NoRestart<JobTest>;

// The run's log messages (from the log file) contain each line, in this order.
::testing::AssertionResult HasLinesInOrder(const std::vector<std::string>& messages,
                                           const std::vector<std::string>& lines);
::testing::AssertionResult LacksLine(const std::vector<std::string>& messages, const std::string& line);
// No message begins with the prefix.
::testing::AssertionResult LacksLineStartingWith(const std::vector<std::string>& messages, const std::string& prefix);

}  // namespace it
