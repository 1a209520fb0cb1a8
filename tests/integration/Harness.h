#pragma once
// Runs the real zenthra-updatetool.exe in the lab's prefix and looks at what a
// management side would see: the exit code, the job's registry values, the
// tool log and the console copy of it.
//
// Infrastructure failures (a key that can't be written, a process that can't
// be started) throw std::runtime_error, which fails the test with its text.
#include <windows.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace it {

// --- Keys the tool reads, all below HKEY_LOCAL_MACHINE ----------------------

inline constexpr const wchar_t* kNewRoot = L"Software\\Tarvelle\\Zenthra";
inline constexpr const wchar_t* kLegacyRoot = L"Software\\Kesmarc, Inc.\\Kesmarc TQM";
inline constexpr const wchar_t* kNewPolicyRoot = L"Software\\Policies\\Tarvelle\\Zenthra";
inline constexpr const wchar_t* kLegacyPolicyRoot = L"Software\\Policies\\Kesmarc, Inc.\\Kesmarc TQM";

std::wstring UpdateKey(const wchar_t* root);          // root\Agent\Update
std::wstring VolatileStatusKey(const wchar_t* root);  // root\Agent\UpdateStatusVolatile

// --- Text ------------------------------------------------------------------

std::string Narrow(const std::wstring& text);  // UTF-8
std::wstring Wide(const std::string& text);    // from UTF-8
// The bytes of a UTF-16LE text, with or without its terminator.
std::vector<BYTE> Utf16Bytes(const std::wstring& text, bool terminator);

// --- Registry (HKLM, native view) -------------------------------------------

struct RegValue {
    DWORD type = REG_NONE;
    std::vector<BYTE> data;
    bool operator==(const RegValue&) const = default;
};

// Removes every tree the tool reads or writes: both brands, both policy trees.
void DeleteProductKeys();

void WriteRaw(const std::wstring& key, const std::wstring& name, DWORD type, const std::vector<BYTE>& data,
              bool volatileKey = false);
void WriteString(const std::wstring& key, const std::wstring& name, const std::wstring& text);
void WriteExpandString(const std::wstring& key, const std::wstring& name, const std::wstring& text);
void WriteStringNoTerminator(const std::wstring& key, const std::wstring& name, const std::wstring& text);
void WriteMultiString(const std::wstring& key, const std::wstring& name, const std::vector<std::wstring>& items);
void WriteDword(const std::wstring& key, const std::wstring& name, DWORD value);
void WriteQword(const std::wstring& key, const std::wstring& name, ULONGLONG value);
void WriteBinary(const std::wstring& key, const std::wstring& name, const std::vector<BYTE>& data);

std::optional<RegValue> ReadValue(const std::wstring& key, const std::wstring& name);
// All values of a key by name; empty when the key doesn't exist.
std::map<std::wstring, RegValue> ReadAllValues(const std::wstring& key);
bool KeyExists(const std::wstring& key);
// Names of a key's subkeys and of its values, in the registry's enumeration
// order; empty when the key doesn't exist.
std::vector<std::wstring> SubkeyNames(const std::wstring& key);
std::vector<std::wstring> ValueNames(const std::wstring& key);

// --- Files -----------------------------------------------------------------

std::wstring HarnessDirectory();  // folder of this test program
std::wstring ToolPath();          // zenthra-updatetool.exe next to it
std::wstring JoinPath(const std::wstring& a, const std::wstring& b);
bool PathExists(const std::wstring& path);
void MakeDirectories(const std::wstring& path);
void RemoveTree(const std::wstring& path);
// Every file below a folder, at any depth, whose name matches the pattern.
std::vector<std::wstring> FindFilesRecursive(const std::wstring& folder, const std::wstring& pattern);
// Whole-file access; ReadFileBytes gives nothing when the file can't be opened.
std::optional<std::string> ReadFileBytes(const std::wstring& path);
void WriteFileBytes(const std::wstring& path, const std::string& bytes);

// Whether the host counts as 64-bit the way the tool counts it: an AMD64
// processor only, read independently of the tool.
bool IsHost64Bit();

// Four-part file version from a file's version resource ("a.b.c.d"), read
// independently of the tool; empty when there is none.
std::string FileVersionOf(const std::wstring& path);

// SHA-256 of the bytes in lower-case hexadecimal, computed apart from the
// tool (through the base provider, not CNG).
std::wstring Sha256Hex(const std::string& bytes);

// --- Run result codes ---------------------------------------------------------

// The name the tool prints for a run result, "Update ERR_<n>" outside its table.
std::string RunResultName(int32_t code);
// Whether the code is one the tool can end with at all (0 down to -14).
bool IsKnownRunResult(int32_t code);

constexpr int32_t kKillSwitch = -2;
constexpr int32_t kDuplicate = -3;

// --- Processes ---------------------------------------------------------------

struct RunOptions {
    std::vector<std::wstring> args;
    std::wstring workDir;  // empty: the harness's own
    // Variables set (or replaced) in the child's environment.
    std::vector<std::pair<std::wstring, std::wstring>> env;
    DWORD timeoutMs = 60000;
};

struct ToolRun {
    int32_t exitCode = 0;
    bool timedOut = false;
    std::string out;  // standard output, UTF-8
    std::string err;
};

// A running copy of the tool with its standard output and error captured.
class ToolProcess {
public:
    ToolProcess() = default;
    ~ToolProcess();
    ToolProcess(const ToolProcess&) = delete;
    ToolProcess& operator=(const ToolProcess&) = delete;

    void Start(const RunOptions& options);
    bool Started() const { return m_process != nullptr; }
    bool Alive() const;
    // Waits for the process to end; false on timeout.
    bool Wait(DWORD timeoutMs);
    int32_t ExitCode() const;
    // Waits until standard output holds the text (or the process ends).
    bool WaitForOutput(const std::string& needle, DWORD timeoutMs);
    void Terminate();
    std::string Output() const;
    std::string Errors() const;

private:
    struct Capture;
    HANDLE m_process = nullptr;
    Capture* m_out = nullptr;
    Capture* m_err = nullptr;
    void joinReaders();
};

ToolRun RunTool(const RunOptions& options);

// --- Tool log ------------------------------------------------------------------

struct LogFile {
    std::wstring path;
    std::vector<BYTE> bytes;
    bool hasBom = false;
    std::string text;                   // UTF-8 of everything behind the mark
    std::vector<std::string> lines;     // split at CR LF, without the last empty piece
    std::vector<std::string> messages;  // lines behind "YYYY-MM-DD hh.mm.ss: "
    bool endsWithCrLf = false;
};

// The log files the tool made below an "InstallLogsDir" folder.
std::vector<std::wstring> FindLogFiles(const std::wstring& installLogsDir);
// The newest of them, decoded; nothing when there is none.
std::optional<LogFile> ReadNewestLog(const std::wstring& installLogsDir);
LogFile ReadLog(const std::wstring& path);

// Whether a line starts with the tool's time stamp "YYYY-MM-DD hh.mm.ss: ".
bool HasTimeStamp(const std::string& line);
// Standard output split into lines (LF or CR LF); empty lines dropped.
std::vector<std::string> OutputLines(const std::string& out);
// The message part of time-stamped lines.
std::vector<std::string> MessagesOf(const std::vector<std::string>& lines);
size_t CountMessages(const std::vector<std::string>& messages, const std::string& message);
bool ContainsMessage(const std::vector<std::string>& messages, const std::string& message);

// --- What a finished run looks like -------------------------------------------

inline constexpr const char* kBeginLine = "=== Begin === ";
inline constexpr const char* kEndLine = "=== End ===";
inline constexpr const char* kRebootWaitLine =
    "wmain: Reboot action triggered by Update tool is still pending, waiting for (5) minutes before proceeeding..";

// "Updatetool Version: a.b.c.d" with the tool's own file version.
std::string VersionLine();
// "wmain: Updatetool rc = <name of the code>".
std::string ClosingLine(int32_t code);

// Exit code -2, and a log (when given) with nothing but banner and end line.
::testing::AssertionResult IsKillSwitchRun(const ToolRun& run, const std::optional<LogFile>& log);
// A run that went through its closing steps: a known code other than -2/-3,
// the closing line naming that code on the console and in the log (when
// given), and the log's end line last.
::testing::AssertionResult IsCompletedRun(const ToolRun& run, const std::optional<LogFile>& log);

// --- Fixture -------------------------------------------------------------------

// Clean product keys before and after every test, and a fresh sandbox folder
// per test: the tool's working directory, its %TEMP%, and the default
// "InstallLogsDir" so that its log lands where the test can find it.
class ToolTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // A new, empty folder in the sandbox.
    std::wstring NewFolder(const std::wstring& name);
    // Options for a run in the sandbox: working directory and %TEMP% set.
    RunOptions Options() const;
    // Points "InstallLogsDir" under the new root at a new folder and returns it.
    std::wstring UseFreshLogsDir();
    ToolRun Run(const RunOptions& options);
    ToolRun Run() { return Run(Options()); }

    std::wstring sandbox_;
    std::wstring tempDir_;
    std::wstring logsDir_;  // the "InstallLogsDir" set in SetUp

private:
    int folderCount_ = 0;
};

}  // namespace it
