// Generated job keys of every shape: value names of the job in any case and
// with blanks around them, any registry type, data up to beyond the listing's
// limit, any text, any state name. The real tool must end every run with a
// code of its table, without crash or hang, and leave a state it knows.
#include <cwctype>
#include <iterator>
#include <random>
#include <set>

#include "JobFixture.h"
#include "PreflightLab.h"

namespace it {
namespace {

const wchar_t* const kValueNames[] = {
    L"AGENT",    L"VERSION",  L"URL",      L"UNC_PATH", L"UNC_SHARETYPE", L"PROXY",      L"PACURL",
    L"ARCH",     L"METADATA", L"CHECKSUM", L"FILESIZE", L"CERTTYPE",      L"OPTIONS",    L"PACKAGEFILENAME",
    L"RELATIVEFOLDERPATH",    L"STATE",    L"RESULT",   L"FILENAME",      L"RETRY",      L"ERRORCODE",
    L"ERRORDESC", L"AGENTLOGFILENAME",     L"PreflightCheckComplete",
};

const wchar_t* const kStateNames[] = {L"READY", L"DOWNLOAD", L"WAIT", L"NOLOGON", L"UPDATING", L"DONE"};

const wchar_t* const kUsefulTexts[] = {
    L"OK", L"FAILURE", L"INVALID", L"PROGRESS", L"OTHER", L"TOVI", L"64-BitAgent", L"32-BitAgent",
    L"Use32-BitAgentOn64", L"0", L"1", L"-1", L"0x10", L"2147483647", L"-2147483648", L"4294967296",
    L"PREFLIGHTCHECK_ENABLED=1", L"PREFLIGHTCHECK_ENABLED=2", L"<PROPERTYBAG></PROPERTYBAG>",
    L"<PROPERTYBAG><ITEM name=\"THUMBPRINT\">AB</ITEM></PROPERTYBAG>", L"<PROPERTYBAG><ITEM",
    // Not ".msi" or ".exe": a generated job must never start an installer,
    // whose failure would end in a restart of the lab and of this harness.
    L"https://localhost:1/x.bin",
};

class Generator {
public:
    explicit Generator(uint32_t seed) : rng_(seed) {}

    uint32_t Below(uint32_t n) { return static_cast<uint32_t>(rng_() % n); }
    bool Chance(uint32_t percent) { return Below(100) < percent; }

    // Text without path separators, drive colons or variables, so that no
    // value can point the tool at a file outside its sandbox.
    std::wstring Text(size_t maxChars)
    {
        static const wchar_t alphabet[] = L"abcXYZ019 -_.,;=<>\"'&{}[]()\t\u00e9\u03b2\u4e2d";
        size_t length = Below(static_cast<uint32_t>(maxChars + 1));
        std::wstring text;
        for (size_t i = 0; i < length; ++i)
            text.push_back(alphabet[Below(static_cast<uint32_t>(std::size(alphabet) - 1))]);
        return text;
    }

    std::wstring SomeText()
    {
        switch (Below(4)) {
        case 0:
            return kUsefulTexts[Below(static_cast<uint32_t>(std::size(kUsefulTexts)))];
        case 1:
            return kStateNames[Below(static_cast<uint32_t>(std::size(kStateNames)))];
        case 2:
            return Text(40);
        default:
            // Up to about 9,000 bytes: around the listing's limit of 8191.
            return Text(4600);
        }
    }

    std::wstring Name(const wchar_t* base)
    {
        std::wstring name = base;
        for (wchar_t& c : name) {
            if (Chance(30))
                c = static_cast<wchar_t>(std::towlower(c));
            else if (Chance(30))
                c = static_cast<wchar_t>(std::towupper(c));
        }
        static const wchar_t* const blanks[] = {L" ", L"\t", L"  ", L"\r\n", L" \t"};
        if (Chance(15))
            name = blanks[Below(5)] + name;
        if (Chance(15))
            name += blanks[Below(5)];
        return name;
    }

    std::wstring StateText()
    {
        switch (Below(5)) {
        case 0:
            return Text(12);
        case 1:
            return Name(kStateNames[Below(6)]);
        default:
            return kStateNames[Below(6)];
        }
    }

    // A value of a random type holding the text, or raw bytes.
    std::pair<DWORD, std::vector<BYTE>> Value(const std::wstring& text)
    {
        switch (Below(9)) {
        case 0:
            return {REG_EXPAND_SZ, Utf16Bytes(text, true)};
        case 1: {
            std::wstring joined = text;
            if (Chance(50))
                joined += std::wstring(1, L'\0') + SomeText();
            joined.push_back(L'\0');
            return {REG_MULTI_SZ, Utf16Bytes(joined, Chance(70))};
        }
        case 2: {
            std::vector<BYTE> data(4);
            uint32_t number = Chance(50) ? Below(10) : static_cast<uint32_t>(rng_());
            for (int i = 0; i < 4; ++i)
                data[i] = static_cast<BYTE>(number >> (8 * i));
            // Now and then of a size no number has.
            if (Chance(10))
                data.resize(Below(4));
            return {REG_DWORD, data};
        }
        case 3: {
            std::vector<BYTE> data(8);
            uint64_t number = (static_cast<uint64_t>(rng_()) << 32) | rng_();
            for (int i = 0; i < 8; ++i)
                data[i] = static_cast<BYTE>(number >> (8 * i));
            return {REG_QWORD, data};
        }
        case 4: {
            std::vector<BYTE> data(Below(9001));
            for (BYTE& b : data)
                b = static_cast<BYTE>(rng_());
            return {Chance(50) ? REG_BINARY : REG_NONE, data};
        }
        case 5:
            // Without terminator, odd sizes included.
            {
                std::vector<BYTE> data = Utf16Bytes(text, false);
                if (Chance(30))
                    data.push_back(0x41);
                return {REG_SZ, data};
            }
        default:
            return {REG_SZ, Utf16Bytes(text, true)};
        }
    }

private:
    std::mt19937 rng_;
};

// Generated "OPTIONS" and "RETRY" reach the real preflight check: no
// reboot-pending key may stand, or a run could restart the lab.
class JobInputFuzz : public JobTest {
protected:
    void SetUp() override
    {
        JobTest::SetUp();
        for (const wchar_t* key : {kAutoUpdateRebootKey, kServicingRebootKey, kTarvelleNeedRebootKey,
                                   kKesmarcNeedRebootKey})
            DeleteMachineTree(key);
    }
};

TEST_F(JobInputFuzz, TwoHundredGeneratedJobsEachEndCleanlyWithAKnownState)
{
    // Fetch retries wait this long: next to nothing.
    SetRetrySettings(L"1");
    Generator gen(20240611u);
    std::set<int32_t> codesSeen;
    std::set<std::string> statesSeen;
    for (int i = 0; i < 200; ++i) {
        // A name of its own per case: the next case's run can't see this one.
        const std::wstring root = gen.Chance(25) ? kLegacyRoot : kNewRoot;
        const std::wstring name = L"fuzz-" + std::to_wstring(i);
        const std::wstring key = JobKey(root.c_str(), name);
        SCOPED_TRACE("case " + std::to_string(i) + " under " + Narrow(root));

        WriteJob(key, {});
        std::string shape;
        size_t count = gen.Below(12);
        for (size_t v = 0; v < count; ++v) {
            const wchar_t* base = kValueNames[gen.Below(static_cast<uint32_t>(std::size(kValueNames)))];
            std::wstring text = std::wstring(base) == L"STATE" ? gen.StateText() : gen.SomeText();
            auto [type, data] = gen.Value(text);
            std::wstring valueName = gen.Name(base);
            WriteRaw(key, valueName, type, data);
            shape += " [" + Narrow(valueName) + " type " + std::to_string(type) + ", " + std::to_string(data.size()) +
                     " bytes]";
        }
        // Mostly a job that passes the mandatory check, so that the states do their work.
        if (gen.Chance(70)) {
            WriteString(key, L"AGENT", gen.Chance(50) ? L"OTHER" : L"TOVI");
            WriteString(key, L"UNC_PATH", L"\\\\fuzz-server\\share\\agent.msi");
            WriteString(key, L"STATE", gen.StateText());
            static const wchar_t* const arches[] = {L"64-BitAgent", L"32-BitAgent", L"Use32-BitAgentOn64", L""};
            WriteString(key, L"ARCH", arches[gen.Below(4)]);
            shape += " [AGENT, UNC_PATH, STATE, ARCH]";
        }
        SCOPED_TRACE("values:" + shape);

        JobRun job = RunJob(30000);
        ASSERT_FALSE(job.run.timedOut) << "hang";
        EXPECT_TRUE(IsKnownRunResult(job.run.exitCode))
            << "exit code 0x" << std::hex << static_cast<uint32_t>(job.run.exitCode) << "\n" << job.run.err;
        EXPECT_TRUE(IsCompletedRun(job.run, std::nullopt));
        codesSeen.insert(job.run.exitCode);

        std::optional<RegValue> state = ReadValue(key, L"STATE");
        ASSERT_TRUE(state.has_value()) << "no STATE written back";
        EXPECT_EQ(state->type, static_cast<DWORD>(REG_SZ));
        std::optional<std::string> text = ReadText(key, L"STATE");
        ASSERT_TRUE(text.has_value());
        static const std::set<std::string> known = {"", "READY", "DOWNLOAD", "WAIT", "NOLOGON", "UPDATING", "DONE"};
        EXPECT_TRUE(known.count(*text)) << "STATE = \"" << *text << "\"";
        statesSeen.insert(*text);
        std::optional<std::string> retry = ReadText(key, L"RETRY");
        ASSERT_TRUE(retry.has_value()) << "no RETRY written back";
        EXPECT_TRUE(!retry->empty() && retry->find_first_not_of("-0123456789") == std::string::npos)
            << "RETRY = \"" << *retry << "\"";
        EXPECT_TRUE(NoRebootMarker());

        // Done with this job: the next one must be the only one.
        ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, UpdateKey(kLegacyRoot).c_str());
        ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, JobKey(kNewRoot, name).c_str());
        if (HasFailure())
            break;
    }
    // The generator must reach more than one outcome, or it tests little.
    EXPECT_GE(codesSeen.size(), 3u);
    EXPECT_GE(statesSeen.size(), 4u);
}

}  // namespace
}  // namespace it
