// Values of every registry type, size and shape in the places the tool reads
// before its run: it must never crash or hang, and it must read each one as
// text the way the registry layer defines (DWORD and QWORD as decimal
// numbers, other types as their UTF-16 text) before turning it into a bool.
#include <functional>

#include "Harness.h"

namespace it {
namespace {

enum class Reads { False, True };

struct ValueCase {
    std::string label;
    DWORD type;
    std::vector<BYTE> data;
    Reads reads;  // what the value means as a bool
};

std::vector<BYTE> sz(const std::wstring& text) { return Utf16Bytes(text, true); }
std::vector<BYTE> unterminated(const std::wstring& text) { return Utf16Bytes(text, false); }
std::vector<BYTE> multi(const std::vector<std::wstring>& items)
{
    std::wstring joined;
    for (const std::wstring& item : items) {
        joined += item;
        joined.push_back(L'\0');
    }
    return Utf16Bytes(joined, true);
}
std::vector<BYTE> dword(DWORD value)
{
    std::vector<BYTE> data(4);
    for (int i = 0; i < 4; ++i)
        data[i] = static_cast<BYTE>(value >> (8 * i));
    return data;
}
std::vector<BYTE> qword(ULONGLONG value)
{
    std::vector<BYTE> data(8);
    for (int i = 0; i < 8; ++i)
        data[i] = static_cast<BYTE>(value >> (8 * i));
    return data;
}

// Variables the REG_EXPAND_SZ cases expand; every run of this file has them.
const std::vector<std::pair<std::wstring, std::wstring>> kVariables = {
    {L"ZT_IT_ZERO", L"0"},
    {L"ZT_IT_ONE", L"1"},
};

// Each value read as a bool. "Text" below is what the registry layer makes
// of the stored bytes; the bool follows from the keyword/number rule.
std::vector<ValueCase> BoolCases()
{
    const Reads F = Reads::False, T = Reads::True;
    return {
        {"REG_SZ \"0\"", REG_SZ, sz(L"0"), F},
        {"REG_SZ \"1\"", REG_SZ, sz(L"1"), T},
        {"REG_SZ empty text", REG_SZ, sz(L""), F},
        {"REG_SZ with no data", REG_SZ, {}, F},
        {"REG_SZ \" 0\" (blanks skipped)", REG_SZ, sz(L" 0"), F},
        {"REG_SZ \"\\t1\"", REG_SZ, sz(L"\t1"), T},
        {"REG_SZ \"0x0\"", REG_SZ, sz(L"0x0"), F},
        {"REG_SZ \"0x10\"", REG_SZ, sz(L"0x10"), T},
        {"REG_SZ \"010\" (not octal, still non-zero)", REG_SZ, sz(L"010"), T},
        {"REG_SZ \"truex\"", REG_SZ, sz(L"truex"), F},
        {"REG_SZ \"yes\"", REG_SZ, sz(L"yes"), T},
        {"REG_SZ \"junk\"", REG_SZ, sz(L"junk"), F},
        // Stored without terminator the last character is lost.
        {"REG_SZ \"1\" without terminator (reads empty)", REG_SZ, unterminated(L"1"), F},
        {"REG_SZ \"0\" without terminator (reads empty)", REG_SZ, unterminated(L"0"), F},
        {"REG_SZ \"10\" without terminator (reads \"1\")", REG_SZ, unterminated(L"10"), T},
        {"REG_SZ \"yes\" without terminator (reads \"ye\")", REG_SZ, unterminated(L"yes"), F},
        {"REG_SZ \"true\" without terminator (reads \"tru\")", REG_SZ, unterminated(L"true"), F},
        {"REG_SZ \"on\" without terminator (reads \"o\")", REG_SZ, unterminated(L"on"), F},
        {"REG_SZ \"yes!\" without terminator (reads \"yes\")", REG_SZ, unterminated(L"yes!"), T},
        {"REG_SZ odd size: \"1\" and one more byte", REG_SZ, {0x31, 0x00, 0x37}, T},
        {"REG_EXPAND_SZ %ZT_IT_ZERO%", REG_EXPAND_SZ, sz(L"%ZT_IT_ZERO%"), F},
        {"REG_EXPAND_SZ %ZT_IT_ONE%", REG_EXPAND_SZ, sz(L"%ZT_IT_ONE%"), T},
        {"REG_EXPAND_SZ of an unset variable", REG_EXPAND_SZ, sz(L"%ZT_IT_NOT_SET_ANYWHERE%"), F},
        {"REG_EXPAND_SZ with no data", REG_EXPAND_SZ, {}, F},
        // Multi-strings keep their terminators; the number stops at the first.
        {"REG_MULTI_SZ {\"0\"}", REG_MULTI_SZ, multi({L"0"}), F},
        {"REG_MULTI_SZ {\"1\"}", REG_MULTI_SZ, multi({L"1"}), T},
        {"REG_MULTI_SZ {\"0\", \"1\"}", REG_MULTI_SZ, multi({L"0", L"1"}), F},
        {"REG_MULTI_SZ {\"12\", \"0\"}", REG_MULTI_SZ, multi({L"12", L"0"}), T},
        {"REG_MULTI_SZ {\"off\"}", REG_MULTI_SZ, multi({L"off"}), F},
        {"REG_MULTI_SZ empty list", REG_MULTI_SZ, multi({}), F},
        {"REG_MULTI_SZ with no data", REG_MULTI_SZ, {}, F},
        // Binary data is read as UTF-16 text, every byte pair.
        {"REG_BINARY with no data", REG_BINARY, {}, F},
        {"REG_BINARY UTF-16 \"1\"", REG_BINARY, {0x31, 0x00}, T},
        {"REG_BINARY UTF-16 \"0\"", REG_BINARY, {0x30, 0x00}, F},
        {"REG_BINARY 01 00 00 00 (a character 1, not the digit)", REG_BINARY, {0x01, 0x00, 0x00, 0x00}, F},
        {"REG_BINARY one byte", REG_BINARY, {0x31}, F},
        {"REG_BINARY UTF-16 \"1\" and one more byte", REG_BINARY, {0x31, 0x00, 0x39}, T},
        {"REG_BINARY UTF-16 \"yes\" without terminator", REG_BINARY, unterminated(L"yes"), T},
        {"REG_NONE UTF-16 \"0\"", REG_NONE, sz(L"0"), F},
        {"REG_NONE UTF-16 \"1\"", REG_NONE, sz(L"1"), T},
        // Numbers are read as their decimal text.
        {"REG_DWORD 0", REG_DWORD, dword(0), F},
        {"REG_DWORD 1", REG_DWORD, dword(1), T},
        {"REG_DWORD 16", REG_DWORD, dword(16), T},
        {"REG_DWORD 4294967295", REG_DWORD, dword(0xFFFFFFFFu), T},
        {"REG_DWORD of two bytes 01 00", REG_DWORD, {0x01, 0x00}, T},
        {"REG_DWORD with no data", REG_DWORD, {}, F},
        {"REG_QWORD 0", REG_QWORD, qword(0), F},
        {"REG_QWORD 1", REG_QWORD, qword(1), T},
        {"REG_QWORD 4294967296", REG_QWORD, qword(0x100000000ull), T},
        {"REG_QWORD 18446744073709551615", REG_QWORD, qword(~0ull), T},
        // Large values.
        {"REG_SZ 16 KiB of \"0\"", REG_SZ, sz(std::wstring(8191, L'0')), F},
        {"REG_SZ 16 KiB of \"9\" (out of range, non-zero)", REG_SZ, sz(std::wstring(8191, L'9')), T},
        {"REG_EXPAND_SZ 16 KiB of \"0\"", REG_EXPAND_SZ, sz(std::wstring(8191, L'0')), F},
        {"REG_MULTI_SZ 20 KiB", REG_MULTI_SZ, multi({std::wstring(10000, L'0'), L"1"}), F},
        {"REG_BINARY 64 KiB UTF-16 of \"1\"", REG_BINARY, unterminated(std::wstring(32768, L'1')), T},
        {"REG_SZ 1 MiB of \"0\"", REG_SZ, sz(std::wstring(512 * 1024 - 1, L'0')), F},
    };
}

// Length in characters of the text the registry layer makes of a value:
// a number has at least one digit, a string drops its stored terminator,
// anything else keeps every byte pair.
size_t TextLength(const ValueCase& c)
{
    switch (c.type) {
    case REG_DWORD:
    case REG_QWORD:
        return 1;
    case REG_SZ:
    case REG_EXPAND_SZ:
        return c.data.empty() ? 0 : (c.data.size() - 1) / 2;
    default:
        return c.data.size() / 2;
    }
}

bool OnlyTerminators(const ValueCase& c)
{
    size_t bytes = TextLength(c) * 2;
    for (size_t i = 0; i < bytes && i < c.data.size(); ++i)
        if (c.data[i])
            return false;
    return c.type != REG_DWORD && c.type != REG_QWORD;
}

class RegistryInput : public ToolTest {
protected:
    RunOptions CaseOptions() const
    {
        RunOptions options = Options();
        options.env.insert(options.env.end(), kVariables.begin(), kVariables.end());
        options.timeoutMs = 30000;
        return options;
    }

    // A run with nothing but the log folder set: the code every enabled run
    // without a job must give as well.
    int32_t Baseline()
    {
        ToolRun run = Run(CaseOptions());
        EXPECT_TRUE(IsCompletedRun(run, ReadNewestLog(logsDir_))) << "baseline run";
        return run.exitCode;
    }

    // Each case in a clean registry with its own log folder: `prepare` writes
    // whatever else the case needs, then the value goes to key\name.
    void RunCases(const std::vector<ValueCase>& cases, const std::wstring& key, const std::wstring& name,
                  const std::function<void()>& prepare, const std::function<Reads(Reads)>& outcome)
    {
        int32_t baseline = Baseline();
        for (const ValueCase& c : cases) {
            SCOPED_TRACE("HKLM\\" + Narrow(key) + "\\" + Narrow(name) + " = " + c.label);
            DeleteProductKeys();
            logsDir_ = UseFreshLogsDir();
            if (prepare)
                prepare();
            WriteRaw(key, name, c.type, c.data);
            ToolRun run = Run(CaseOptions());
            std::optional<LogFile> log = ReadNewestLog(logsDir_);
            if (outcome(c.reads) == Reads::False) {
                EXPECT_TRUE(IsKillSwitchRun(run, log));
            } else {
                EXPECT_TRUE(IsCompletedRun(run, log));
                EXPECT_EQ(run.exitCode, baseline) << run.out;
            }
        }
    }

    static Reads Same(Reads reads) { return reads; }
    static Reads AlwaysTrue(Reads) { return Reads::True; }
    // The switch decides whether legacy policy's "0" is seen.
    static Reads SwitchOutcome(Reads sw) { return sw == Reads::True ? Reads::False : Reads::True; }
};

TEST_F(RegistryInput, EnabledUnderTheNewRootOfEveryTypeAndSize)
{
    RunCases(BoolCases(), UpdateKey(kNewRoot), L"Enabled", nullptr, Same);
}

TEST_F(RegistryInput, EnabledInTheNewBrandPolicyTreeOfEveryTypeAndSize)
{
    // The ordinary value says yes; the policy value decides.
    RunCases(BoolCases(), UpdateKey(kNewPolicyRoot), L"Enabled",
             [] { WriteString(UpdateKey(kNewRoot), L"Enabled", L"1"); }, Same);
}

TEST_F(RegistryInput, EnabledInTheLegacyPolicyTreeOfEveryTypeAndSize)
{
    RunCases(BoolCases(), UpdateKey(kLegacyPolicyRoot), L"Enabled",
             [] { WriteString(UpdateKey(kNewRoot), L"Enabled", L"1"); }, Same);
}

TEST_F(RegistryInput, EnabledUnderTheLegacyRootOfEveryTypeIsNeverRead)
{
    RunCases(BoolCases(), UpdateKey(kLegacyRoot), L"Enabled", nullptr, AlwaysTrue);
}

TEST_F(RegistryInput, FallbackToLegacyGpoInThePolicyTreeOfEveryTypeAndSize)
{
    // With the switch on, legacy policy's "0" disables the tool. A policy
    // switch that reads as empty text defers to the ordinary one, and
    // without that the default is on.
    std::vector<ValueCase> cases;
    for (ValueCase c : BoolCases()) {
        size_t length = TextLength(c);
        // Text of nothing but terminators: "empty" is a matter of definition there.
        if (length && OnlyTerminators(c))
            continue;
        if (!length)
            c.reads = Reads::True;
        cases.push_back(c);
    }
    RunCases(cases, kNewPolicyRoot, L"FallbackToLegacyGPO",
             [] { WriteString(UpdateKey(kLegacyPolicyRoot), L"Enabled", L"0"); }, SwitchOutcome);
}

TEST_F(RegistryInput, FallbackToLegacyGpoInTheOrdinaryTreeOfEveryTypeAndSize)
{
    // Here an existing empty value is not the default: it reads false.
    RunCases(BoolCases(), kNewRoot, L"FallbackToLegacyGPO",
             [] { WriteString(UpdateKey(kLegacyPolicyRoot), L"Enabled", L"0"); }, SwitchOutcome);
}

TEST_F(RegistryInput, FallbackToLegacyGpoPolicyValueWinsOverTheOrdinaryOne)
{
    struct Pair {
        const char* label;
        std::function<void()> write;
        bool legacyPolicySeen;
    };
    const std::wstring sw = L"FallbackToLegacyGPO";
    const std::vector<Pair> pairs = {
        {"policy 1, ordinary 0", [&] { WriteString(kNewPolicyRoot, sw, L"1"); WriteString(kNewRoot, sw, L"0"); }, true},
        {"policy 0, ordinary 1", [&] { WriteString(kNewPolicyRoot, sw, L"0"); WriteString(kNewRoot, sw, L"1"); }, false},
        {"policy empty, ordinary 0", [&] { WriteString(kNewPolicyRoot, sw, L""); WriteString(kNewRoot, sw, L"0"); }, false},
        {"policy empty, ordinary empty", [&] { WriteString(kNewPolicyRoot, sw, L""); WriteString(kNewRoot, sw, L""); }, false},
        {"policy empty, no ordinary", [&] { WriteString(kNewPolicyRoot, sw, L""); }, true},
        {"policy REG_DWORD 0, ordinary 1", [&] { WriteDword(kNewPolicyRoot, sw, 0); WriteString(kNewRoot, sw, L"1"); }, false},
        {"neither", [] {}, true},
    };
    for (const Pair& pair : pairs) {
        SCOPED_TRACE(pair.label);
        DeleteProductKeys();
        logsDir_ = UseFreshLogsDir();
        WriteString(UpdateKey(kLegacyPolicyRoot), L"Enabled", L"0");
        pair.write();
        ToolRun run = Run(CaseOptions());
        std::optional<LogFile> log = ReadNewestLog(logsDir_);
        if (pair.legacyPolicySeen)
            EXPECT_TRUE(IsKillSwitchRun(run, log));
        else
            EXPECT_TRUE(IsCompletedRun(run, log));
    }
}

// --- "InstallLogsDir": where the log lands for each kind of value ---------------

class InstallLogsDirInput : public ToolTest {
protected:
    // Runs and returns the log found below `expectedDir`; checks the run
    // went through and that no log landed in the folders given as unused.
    void ExpectLogIn(const std::wstring& expectedDir, const std::vector<std::wstring>& unused = {})
    {
        ToolRun run = Run();
        std::optional<LogFile> log = ReadNewestLog(expectedDir);
        EXPECT_TRUE(log.has_value()) << "no log below " << Narrow(expectedDir) << "\n" << run.out;
        if (log) {
            EXPECT_TRUE(log->hasBom);
        }
        EXPECT_TRUE(IsCompletedRun(run, log));
        for (const std::wstring& folder : unused)
            EXPECT_TRUE(FindFilesRecursive(folder, L"*.log").empty()) << Narrow(folder);
    }

    // A value that names no usable folder: the run goes on, the log stays on
    // the console, and no log file appears in the folders given.
    void ExpectConsoleOnly(const std::vector<std::wstring>& folders)
    {
        ToolRun run = Run();
        EXPECT_TRUE(IsCompletedRun(run, std::nullopt));
        EXPECT_TRUE(ContainsMessage(MessagesOf(OutputLines(run.out)), kBeginLine)) << run.out;
        for (const std::wstring& folder : folders)
            EXPECT_TRUE(FindFilesRecursive(folder, L"Tarvelle_Agent_Update_*").empty()) << Narrow(folder);
    }

    void ClearNewRootValue() { ::RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kNewRoot, L"InstallLogsDir"); }
};

TEST_F(InstallLogsDirInput, DwordIsAFolderNamedByItsNumberBelowTheWorkingDirectory)
{
    MakeDirectories(JoinPath(sandbox_, L"7"));
    WriteDword(kNewRoot, L"InstallLogsDir", 7);
    ExpectLogIn(JoinPath(sandbox_, L"7"), {logsDir_});
}

TEST_F(InstallLogsDirInput, QwordIsAFolderNamedByItsNumberBelowTheWorkingDirectory)
{
    MakeDirectories(JoinPath(sandbox_, L"4294967296"));
    WriteQword(kNewRoot, L"InstallLogsDir", 0x100000000ull);
    ExpectLogIn(JoinPath(sandbox_, L"4294967296"), {logsDir_});
}

TEST_F(InstallLogsDirInput, BinaryUtf16TextNamesTheFolder)
{
    std::wstring folder = NewFolder(L"binary");
    WriteBinary(kNewRoot, L"InstallLogsDir", Utf16Bytes(folder, false));
    ExpectLogIn(folder, {logsDir_});
}

TEST_F(InstallLogsDirInput, StringWithoutTerminatorLosesItsLastCharacter)
{
    std::wstring folder = NewFolder(L"cut");
    WriteStringNoTerminator(kNewRoot, L"InstallLogsDir", folder + L"Q");
    ExpectLogIn(folder, {logsDir_});
}

TEST_F(InstallLogsDirInput, ExpandStringIsExpanded)
{
    std::wstring folder = NewFolder(L"expanded");
    WriteExpandString(kNewRoot, L"InstallLogsDir", L"%TEMP%\\..\\" + folder.substr(sandbox_.size() + 1));
    ExpectLogIn(folder, {logsDir_});
}

TEST_F(InstallLogsDirInput, EmptyValuesUnderTheNewRootFallBackToTheLegacyRoot)
{
    struct Empty {
        const char* label;
        DWORD type;
        std::vector<BYTE> data;
    };
    const std::vector<Empty> empties = {
        {"REG_SZ empty text", REG_SZ, {0, 0}},
        {"REG_SZ with no data", REG_SZ, {}},
        {"REG_SZ one character without terminator", REG_SZ, {0x43, 0x00}},
        {"REG_BINARY with no data", REG_BINARY, {}},
        {"REG_EXPAND_SZ empty text", REG_EXPAND_SZ, {0, 0}},
    };
    for (const Empty& e : empties) {
        SCOPED_TRACE(e.label);
        DeleteProductKeys();
        std::wstring legacy = NewFolder(L"legacy");
        WriteRaw(kNewRoot, L"InstallLogsDir", e.type, e.data);
        WriteString(kLegacyRoot, L"InstallLogsDir", legacy);
        ExpectLogIn(legacy);
    }
}

TEST_F(InstallLogsDirInput, MultiStringIsSeenUpToItsFirstTerminatorAndLeavesNoFile)
{
    std::wstring folder = NewFolder(L"multi");
    WriteMultiString(kNewRoot, L"InstallLogsDir", {folder, L"second"});
    ExpectConsoleOnly({folder, sandbox_});
}

TEST_F(InstallLogsDirInput, OverlongPathLeavesNoFile)
{
    WriteString(kNewRoot, L"InstallLogsDir", sandbox_ + L"\\" + std::wstring(8000, L'a'));
    ExpectConsoleOnly({sandbox_});
}

TEST_F(InstallLogsDirInput, PathOfAFileLeavesNoLogFile)
{
    std::wstring file = JoinPath(sandbox_, L"plain-file");
    HANDLE handle = ::CreateFileW(file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
    ASSERT_NE(handle, INVALID_HANDLE_VALUE);
    ::CloseHandle(handle);
    WriteString(kNewRoot, L"InstallLogsDir", file);
    ExpectConsoleOnly({sandbox_});
}

TEST_F(InstallLogsDirInput, LegacyRootValuesOfOtherTypes)
{
    {
        SCOPED_TRACE("REG_DWORD under the legacy root");
        ClearNewRootValue();
        MakeDirectories(JoinPath(sandbox_, L"9"));
        WriteDword(kLegacyRoot, L"InstallLogsDir", 9);
        ExpectLogIn(JoinPath(sandbox_, L"9"), {logsDir_});
    }
    {
        SCOPED_TRACE("REG_BINARY under the legacy root");
        DeleteProductKeys();
        std::wstring folder = NewFolder(L"legacy-binary");
        WriteBinary(kLegacyRoot, L"InstallLogsDir", Utf16Bytes(folder, false));
        ExpectLogIn(folder, {logsDir_});
    }
    {
        SCOPED_TRACE("REG_MULTI_SZ under the legacy root");
        DeleteProductKeys();
        std::wstring folder = NewFolder(L"legacy-multi");
        WriteMultiString(kLegacyRoot, L"InstallLogsDir", {folder});
        ExpectConsoleOnly({folder});
    }
    {
        SCOPED_TRACE("16 KiB REG_SZ under the legacy root");
        DeleteProductKeys();
        std::wstring folder = NewFolder(L"legacy-long");
        WriteString(kLegacyRoot, L"InstallLogsDir", folder + L"\\" + std::wstring(8191 - folder.size() - 1, L'x'));
        ExpectConsoleOnly({folder});
    }
}

}  // namespace
}  // namespace it
