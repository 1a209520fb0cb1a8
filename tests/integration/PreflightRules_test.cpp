// The preflight rules an administrator keeps in the registry, evaluated by
// the real tool in a preflight-only run: which root lists them and which
// holds their values, what each kind of rule adds, how the set of actions
// decides the run, and that no bad rule, of whatever shape or type, stops
// the rules behind it.
//
// Every job here starts on its last try for a pending reboot (RETRY 2), so
// a REBOOT ends the job instead of restarting the prefix.
#include <algorithm>
#include <cwchar>

#include "PreflightLab.h"

namespace it {
namespace {

const char* const kRebootKeysLine = "App::isRebootPending: checking registry keys for reboot pending";
const char* const kNoMatchAction = "App::getValueMatchAction: no value match action defined";

std::string processing(const std::string& rule)
{
    return "App::performRegistryBasedChecks: processing preflight check key [" + rule + "]";
}

std::string added(const std::string& rule, const std::string& action)
{
    return "App::performRegistryBasedChecks: preflight check [" + rule + "], action [" + action + "] is added";
}

std::string noKeyPath(const std::string& rule)
{
    return "App::performRegistryBasedChecks: preflight check, unable to read keypath for check: [" + rule +
           "], no action";
}

std::string finalAction(const std::string& action)
{
    return "App::performPreflightChecks: preflight final actions: [" + action + "]";
}

std::string invalidAction(const std::string& text)
{
    return "App::getPreflightCheckAction: invalid action [" + text + "]";
}

std::string valueMatches(const std::wstring& keyPath, const std::string& action)
{
    return "App::getValueMatchAction: preflight check [" + Narrow(keyPath) + "], value matches, adding an action [" +
           action + "] to process";
}

class PreflightRules : public PreflightTest {
protected:
    // The rules let the update go on: the reboot keys have the last word.
    void ExpectPassed(const JobRun& job)
    {
        EXPECT_TRUE(HasWrittenValues(jobKey_, {"DONE", "PREFLIGHTCHECK_OK", "", "", "", "0"}));
        EXPECT_TRUE(HasCompletionMarker());
        EXPECT_TRUE(HasLinesInOrder(Messages(job), {kRebootKeysLine, UpdateDoneLine(-9), ClosingLine(-9)}));
        ExpectOneEntry(job, {"job", "NONE", "", "4.2.0", "DONE", 0, "PREFLIGHTCHECK_OK"});
    }

    // A rule's ERROR: the job is done, with no error name of its own, and
    // the retry count left alone; the reboot keys are not looked at.
    void ExpectFailed(const JobRun& job)
    {
        EXPECT_TRUE(HasWrittenValues(jobKey_, {"DONE", "PREFLIGHTCHECK_FAILURE", "", "", "", "2"}));
        EXPECT_TRUE(LacksCompletionMarker());
        EXPECT_TRUE(HasLinesInOrder(Messages(job), {finalAction("ERROR"), UpdateDoneLine(-10),
                                                    stateLinesDone("PREFLIGHTCHECK_FAILURE"), ClosingLine(-10)}));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::isRebootPending:"));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "UtilTryAgain:"));
        ExpectOneEntry(job, {"job", "NONE", "", "4.2.0", "DONE", 2, "PREFLIGHTCHECK_FAILURE"});
    }

    // A rule's REBOOT on the job's last try: the job ends without a restart.
    void ExpectRebootOverTheLimit(const JobRun& job)
    {
        EXPECT_TRUE(HasWrittenValues(jobKey_, {"DONE", "PREFLIGHTCHECK_FAILURE", "", "PREFLIGHT_ERR_REBOOT_PENDING", "",
                                               "0"}));
        EXPECT_TRUE(LacksCompletionMarker());
        EXPECT_TRUE(HasLinesInOrder(Messages(job), {
            finalAction("REBOOT"),
            UpdateDoneLine(-11),
            "UtilTryAgain: exceeded retry attempts: 3, max attempt allowed: 2",
            "UtilTryAgain: updating retry: 3, max attempt allowed: 2",
            stateLinesDone("PREFLIGHTCHECK_FAILURE"),
            ClosingLine(-11),
        }));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::isRebootPending:"));
        ExpectOneEntry(job, {"job", "NONE", "", "4.2.0", "DONE", 0, "PREFLIGHTCHECK_FAILURE",
                             "PREFLIGHT_ERR_REBOOT_PENDING"});
    }

    static std::string stateLinesDone(const std::string& result)
    {
        return "UtilManageUpdateState: Update key: job new state: DONE result: " + result;
    }

    // Runs the test body once with the job under each root.
    template <typename Body>
    void ForBothRoots(Body body)
    {
        for (bool legacy : {false, true}) {
            SCOPED_TRACE(legacy ? "job under the legacy root" : "job under the new root");
            NextCase();
            if (legacy)
                UseLegacyJob();
            body();
        }
    }
};

// --- The edge cases of a rule ---------------------------------------------------------------

TEST_F(PreflightRules, KeyPresentRebootOnAnExistingKeyAsksForARestartWhicheverRootHasTheJob)
{
    ForBothRoots([&] {
        WriteString(WatchedKey(L"agent"), L"Installed", L"1");
        AddRule(L"restart-rule", {{L"KeyPath", WatchedPath(L"agent")}, {L"KeyPresentAction", L"reboot"}});
        // Not looked at: the rule has decided already.
        CreateMachineKey(kAutoUpdateRebootKey);
        WritePreflightJob();
        JobRun job = RunPreflight(-11);
        EXPECT_TRUE(HasLinesInOrder(Messages(job), {processing("restart-rule"), added("restart-rule", "REBOOT"),
                                                    finalAction("REBOOT")}));
        ExpectRebootOverTheLimit(job);
    });
}

TEST_F(PreflightRules, KeyPresentActionStopIsInvalidAndTheValueTestIsNotTried)
{
    WriteString(WatchedKey(L"agent"), L"Mode", L"on");
    AddRule(L"stop-rule", {{L"KeyPath", WatchedPath(L"agent")},
                           {L"KeyPresentAction", L"Stop"},
                           {L"ValueMatchAction", L"ERROR"},
                           {L"ValueName", L"Mode"},
                           {L"ExpectedValue", L"on"}});
    WritePreflightJob();
    JobRun job = RunPreflight(-9);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {processing("stop-rule"), invalidAction("Stop"),
                                                added("stop-rule", "NONE"), finalAction("NONE")}));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::getValueMatchAction:"));
    ExpectPassed(job);
}

TEST_F(PreflightRules, EmptyKeyPresentActionLeavesItToTheValueTestWhichIgnoresCase)
{
    ForBothRoots([&] {
        WriteString(WatchedKey(L"agent"), L"Mode", L"Enabled");
        AddRule(L"value-rule", {{L"KeyPath", WatchedPath(L"agent")},
                                {L"KeyPresentAction", L""},
                                {L"ValueMatchAction", L"ERROR"},
                                {L"ValueName", L"Mode"},
                                {L"ExpectedValue", L"ENABLED"}});
        WritePreflightJob();
        JobRun job = RunPreflight(-10);
        EXPECT_TRUE(HasLinesInOrder(Messages(job), {processing("value-rule"),
                                                    valueMatches(WatchedPath(L"agent"), "ERROR"),
                                                    added("value-rule", "ERROR"), finalAction("ERROR")}));
        ExpectFailed(job);
    });
}

TEST_F(PreflightRules, ErrorDecidesOverRebootAndOverAPendingReboot)
{
    WriteString(WatchedKey(L"agent"), L"Installed", L"1");
    AddRule(L"a-reboot", {{L"KeyPath", WatchedPath(L"agent")}, {L"KeyPresentAction", L"REBOOT"}});
    AddRule(L"b-error", {{L"KeyPath", WatchedPath(L"agent")}, {L"KeyPresentAction", L"Error"}});
    CreateMachineKey(kServicingRebootKey);
    WritePreflightJob();
    JobRun job = RunPreflight(-10);
    // The set is sorted by action, whatever the order of the rules.
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {processing("a-reboot"), added("a-reboot", "REBOOT"),
                                                processing("b-error"), added("b-error", "ERROR"),
                                                finalAction("ERROR"), finalAction("REBOOT"), UpdateDoneLine(-10)}));
    ExpectFailed(job);
}

TEST_F(PreflightRules, LongHiveNameWorksForTheKeyAndForTheValue)
{
    WriteString(WatchedKey(L"long"), L"Mode", L"ON");
    const std::wstring keyPath = L"HKEY_LOCAL_MACHINE\\" + WatchedKey(L"long");
    AddRule(L"long-rule", {{L"KeyPath", keyPath},
                           {L"ValueMatchAction", L"ERROR"},
                           {L"ValueName", L"Mode"},
                           {L"ExpectedValue", L"on"}});
    WritePreflightJob();
    JobRun job = RunPreflight(-10);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {processing("long-rule"), valueMatches(keyPath, "ERROR"),
                                                added("long-rule", "ERROR")}));
    ExpectFailed(job);
}

TEST_F(PreflightRules, DwordValuesCompareByTheirDecimalText)
{
    WriteDword(WatchedKey(L"dword-a"), L"Level", 1);
    WriteDword(WatchedKey(L"dword-b"), L"Max", 4294967295u);
    WriteDword(WatchedKey(L"dword-c"), L"Level", 1);
    AddRule(L"a-text-one", {{L"KeyPath", WatchedPath(L"dword-a")},
                            {L"ValueMatchAction", L"ERROR"},
                            {L"ValueName", L"Level"},
                            {L"ExpectedValue", L"1"}});
    // The rule's own value a REG_DWORD too.
    AddRule(L"b-dword-max", {{L"KeyPath", WatchedPath(L"dword-b")},
                             {L"ValueMatchAction", L"ERROR"},
                             {L"ValueName", L"Max"}});
    WriteDword(RuleValuesKey(L"b-dword-max"), L"ExpectedValue", 4294967295u);
    // Text, not numbers: "0x1" is not "1".
    AddRule(L"c-hex-one", {{L"KeyPath", WatchedPath(L"dword-c")},
                           {L"ValueMatchAction", L"ERROR"},
                           {L"ValueName", L"Level"},
                           {L"ExpectedValue", L"0x1"}});
    WritePreflightJob();
    JobRun job = RunPreflight(-10);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        processing("a-text-one"), valueMatches(WatchedPath(L"dword-a"), "ERROR"), added("a-text-one", "ERROR"),
        processing("b-dword-max"), valueMatches(WatchedPath(L"dword-b"), "ERROR"), added("b-dword-max", "ERROR"),
        processing("c-hex-one"), added("c-hex-one", "NONE"),
    }));
    EXPECT_TRUE(LacksLine(Messages(job), valueMatches(WatchedPath(L"dword-c"), "ERROR")));
    ExpectFailed(job);
}

TEST_F(PreflightRules, RuleStandingUnderTheJobsOwnRootAloneIsNotSeen)
{
    WriteString(WatchedKey(L"agent"), L"Installed", L"1");
    // New-root job: names come from the legacy root, which has none.
    WriteString(RuleValuesKey(L"unseen"), L"KeyPath", WatchedPath(L"agent"));
    WriteString(RuleValuesKey(L"unseen"), L"KeyPresentAction", L"ERROR");
    WritePreflightJob();
    JobRun job = RunPreflight(-9);
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::performRegistryBasedChecks:"));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::performPreflightChecks: preflight final actions"));
    ExpectPassed(job);

    // Legacy job: names come from the new root, values too; a rule under
    // the legacy root alone is never read.
    NextCase();
    UseLegacyJob();
    WriteString(WatchedKey(L"agent"), L"Installed", L"1");
    WriteString(RulesKey(kLegacyRoot) + L"\\unseen", L"KeyPath", WatchedPath(L"agent"));
    WriteString(RulesKey(kLegacyRoot) + L"\\unseen", L"KeyPresentAction", L"ERROR");
    WritePreflightJob();
    JobRun legacy = RunPreflight(-9);
    EXPECT_TRUE(LacksLineStartingWith(Messages(legacy), "App::performRegistryBasedChecks:"));
    ExpectPassed(legacy);
}

TEST_F(PreflightRules, NoRulesKeyOrAnEmptyOneLeavesItToTheRebootKeys)
{
    for (bool emptyKeys : {false, true}) {
        SCOPED_TRACE(emptyKeys ? "empty rule keys under both roots" : "no rule keys");
        NextCase();
        if (emptyKeys) {
            CreateMachineKey(RulesKey(kNewRoot));
            CreateMachineKey(RulesKey(kLegacyRoot));
        }
        WritePreflightJob();
        JobRun job = RunPreflight(-9);
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::performRegistryBasedChecks:"));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::performPreflightChecks: preflight final actions"));
        ExpectPassed(job);
    }
}

// --- The failure table --------------------------------------------------------------------------

TEST_F(PreflightRules, RuleWithoutValuesIsSkippedInSilenceAndTheRulesBehindItRun)
{
    WriteString(WatchedKey(L"agent"), L"Installed", L"1");
    // A name under the listing root alone, and one with an empty values key.
    AddRuleName(L"a-name-only");
    AddRuleName(L"b-no-values");
    CreateMachineKey(RuleValuesKey(L"b-no-values"));
    AddRule(L"c-last", {{L"KeyPath", WatchedPath(L"agent")}, {L"KeyPresentAction", L"ERROR"}});
    WritePreflightJob();
    JobRun job = RunPreflight(-10);
    const std::vector<std::string>& messages = Messages(job);
    auto at = std::find(messages.begin(), messages.end(), processing("a-name-only"));
    ASSERT_TRUE(at != messages.end()) << "a-name-only was not processed";
    ASSERT_TRUE(messages.end() - at >= 4);
    // Nothing at all between one rule and the next.
    EXPECT_EQ(processing("b-no-values"), at[1]);
    EXPECT_EQ(processing("c-last"), at[2]);
    EXPECT_EQ(added("c-last", "ERROR"), at[3]);
    EXPECT_EQ(1u, CountLinesStartingWith(messages, "App::performRegistryBasedChecks: preflight check ["));
    ExpectFailed(job);
}

TEST_F(PreflightRules, KeyPathMissingEmptyOrOfAMissingKeyAddsNoActionAtAll)
{
    AddRule(L"a-absent", {{L"KeyPresentAction", L"ERROR"}});
    AddRule(L"b-empty", {{L"KeyPath", L""}, {L"KeyPresentAction", L"ERROR"}});
    AddRule(L"c-gone", {{L"KeyPath", WatchedPath(L"gone")}, {L"KeyPresentAction", L"ERROR"}});
    AddRule(L"d-no-data", {{L"KeyPresentAction", L"ERROR"}});
    WriteRaw(RuleValuesKey(L"d-no-data"), L"KeyPath", REG_SZ, {});
    WritePreflightJob();
    JobRun job = RunPreflight(-9);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        processing("a-absent"), noKeyPath("a-absent"),
        processing("b-empty"), noKeyPath("b-empty"),
        processing("c-gone"), noKeyPath("c-gone"),
        processing("d-no-data"), noKeyPath("d-no-data"),
    }));
    // Not even "NONE".
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::performRegistryBasedChecks: preflight check ["));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::performPreflightChecks: preflight final actions"));
    ExpectPassed(job);
}

TEST_F(PreflightRules, RuleWithNeitherActionGivesNoneWithItsLine)
{
    WriteString(WatchedKey(L"agent"), L"Mode", L"on");
    AddRule(L"no-action", {{L"KeyPath", WatchedPath(L"agent")}, {L"ValueName", L"Mode"}, {L"ExpectedValue", L"on"}});
    WritePreflightJob();
    JobRun job = RunPreflight(-9);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {processing("no-action"), kNoMatchAction, added("no-action", "NONE"),
                                                finalAction("NONE"), kRebootKeysLine}));
    ExpectPassed(job);
}

TEST_F(PreflightRules, UnknownActionTextsAreLoggedAndGiveNone)
{
    WriteString(WatchedKey(L"agent"), L"Mode", L"on");
    AddRule(L"a-none", {{L"KeyPath", WatchedPath(L"agent")}, {L"KeyPresentAction", L"NONE"}});
    AddRule(L"b-errors", {{L"KeyPath", WatchedPath(L"agent")}, {L"KeyPresentAction", L"ERRORS"}});
    AddRule(L"c-reboot-now", {{L"KeyPath", WatchedPath(L"agent")}, {L"KeyPresentAction", L"REBOOT NOW"}});
    AddRule(L"d-restart", {{L"KeyPath", WatchedPath(L"agent")},
                           {L"ValueMatchAction", L"Restart"},
                           {L"ValueName", L"Mode"},
                           {L"ExpectedValue", L"ON"}});
    WritePreflightJob();
    JobRun job = RunPreflight(-9);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        processing("a-none"), invalidAction("NONE"), added("a-none", "NONE"),
        processing("b-errors"), invalidAction("ERRORS"), added("b-errors", "NONE"),
        processing("c-reboot-now"), invalidAction("REBOOT NOW"), added("c-reboot-now", "NONE"),
        processing("d-restart"), valueMatches(WatchedPath(L"agent"), "Restart"), invalidAction("Restart"),
        added("d-restart", "NONE"),
        finalAction("NONE"),
    }));
    EXPECT_EQ(1u, CountLinesStartingWith(Messages(job), "App::performPreflightChecks: preflight final actions"));
    ExpectPassed(job);
}

TEST_F(PreflightRules, ValueThatCannotBeReadOrDiffersGivesNone)
{
    WriteString(WatchedKey(L"agent"), L"Mode", L"on");
    WriteString(WatchedKey(L"agent"), L"Blank", L"");
    const std::wstring path = WatchedPath(L"agent");
    auto rule = [&](const std::wstring& name, const std::wstring& valueName, const std::wstring& expected) {
        AddRule(name, {{L"KeyPath", path},
                       {L"ValueMatchAction", L"ERROR"},
                       {L"ValueName", valueName},
                       {L"ExpectedValue", expected}});
    };
    rule(L"a-missing-value", L"Absent", L"on");
    rule(L"b-differs", L"Mode", L"off");
    rule(L"c-longer", L"Mode", L"on ");
    rule(L"d-shorter", L"Mode", L"o");
    // No rule can test for an empty value, not even against an empty one.
    rule(L"e-empty-expected", L"Blank", L"");
    rule(L"f-empty-against-missing", L"Absent", L"");
    WritePreflightJob();
    JobRun job = RunPreflight(-9);
    for (const char* name : {"a-missing-value", "b-differs", "c-longer", "d-shorter", "e-empty-expected",
                             "f-empty-against-missing"})
        EXPECT_TRUE(HasLinesInOrder(Messages(job), {processing(name), added(name, "NONE")}));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::getValueMatchAction:"));
    ExpectPassed(job);
}

// --- Bad input ------------------------------------------------------------------------------------

TEST_F(PreflightRules, KeyPathSpellingsFindTheKeyOnlyWithAHiveNameTheTestKnows)
{
    CreateMachineKey(WatchedKey(L"spell"));
    CreateMachineKey(WatchedKey(L"machine-only"));
    WriteUserString(WatchedKey(L"spell"), L"Mode", L"on");
    struct Case {
        const wchar_t* rule;
        std::wstring keyPath;
        bool found;
    };
    const Case cases[] = {
        {L"a-short", L"HKLM\\" + WatchedKey(L"spell"), true},
        {L"b-long", L"HKEY_LOCAL_MACHINE\\" + WatchedKey(L"spell"), true},
        {L"c-other-case-below-the-hive", L"HKLM\\SOFTWARE\\zenthrapreflightlab\\SPELL", true},
        {L"d-hive-in-lower-case", L"hklm\\" + WatchedKey(L"spell"), false},
        {L"e-forward-slashes", L"HKLM/Software/ZenthraPreflightLab/spell", false},
        {L"f-slashes-below-the-hive", L"HKLM\\Software/ZenthraPreflightLab/spell", false},
        {L"g-no-hive", WatchedKey(L"spell"), false},
        {L"h-user-short", L"HKCU\\" + WatchedKey(L"spell"), true},
        {L"i-user-long", L"HKEY_CURRENT_USER\\" + WatchedKey(L"spell"), true},
        {L"j-user-missing", L"HKCU\\" + WatchedKey(L"machine-only"), false},
    };
    for (const Case& c : cases)
        AddRule(c.rule, {{L"KeyPath", c.keyPath}, {L"KeyPresentAction", L"ERROR"}});
    WritePreflightJob();
    JobRun job = RunPreflight(-10);
    for (const Case& c : cases) {
        SCOPED_TRACE(Narrow(c.rule));
        const std::string name = Narrow(c.rule);
        const std::string outcome = c.found ? added(name, "ERROR") : noKeyPath(name);
        EXPECT_TRUE(HasLinesInOrder(Messages(job), {processing(name), outcome}));
        EXPECT_TRUE(LacksLine(Messages(job), c.found ? noKeyPath(name) : added(name, "ERROR")));
    }
    ExpectFailed(job);
}

TEST_F(PreflightRules, ValueIsReadOnlyThroughAHiveNameTheReaderKnows)
{
    // The long name of HKCU is shortened to "HCU", which the reader refuses:
    // the key exists, its value can't be read.
    WriteUserString(WatchedKey(L"user"), L"Mode", L"on");
    const std::wstring longPath = L"HKEY_CURRENT_USER\\" + WatchedKey(L"user");
    const std::wstring shortPath = L"HKCU\\" + WatchedKey(L"user");
    AddRule(L"a-user-long", {{L"KeyPath", longPath},
                             {L"ValueMatchAction", L"ERROR"},
                             {L"ValueName", L"Mode"},
                             {L"ExpectedValue", L"on"}});
    AddRule(L"b-user-short", {{L"KeyPath", shortPath},
                              {L"ValueMatchAction", L"ERROR"},
                              {L"ValueName", L"Mode"},
                              {L"ExpectedValue", L"on"}});
    WritePreflightJob();
    JobRun job = RunPreflight(-10);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {processing("a-user-long"), added("a-user-long", "NONE"),
                                                processing("b-user-short"), valueMatches(shortPath, "ERROR"),
                                                added("b-user-short", "ERROR")}));
    EXPECT_TRUE(LacksLine(Messages(job), valueMatches(longPath, "ERROR")));
    ExpectFailed(job);
}

TEST_F(PreflightRules, ValueNameWithBackslashesReadsBelowTheKeyAndAnEmptyOneTheDefaultValue)
{
    WriteString(WatchedKey(L"deep") + L"\\Sub", L"Mode", L"x");
    WriteString(WatchedKey(L"dflt"), L"", L"present");
    AddRule(L"a-deep", {{L"KeyPath", WatchedPath(L"deep")},
                        {L"ValueMatchAction", L"ERROR"},
                        {L"ValueName", L"Sub\\Mode"},
                        {L"ExpectedValue", L"X"}});
    AddRule(L"b-default", {{L"KeyPath", WatchedPath(L"dflt")},
                           {L"ValueMatchAction", L"error"},
                           {L"ValueName", L""},
                           {L"ExpectedValue", L"Present"}});
    WritePreflightJob();
    JobRun job = RunPreflight(-10);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        processing("a-deep"), valueMatches(WatchedPath(L"deep"), "ERROR"), added("a-deep", "ERROR"),
        processing("b-default"), valueMatches(WatchedPath(L"dflt"), "error"), added("b-default", "ERROR"),
    }));
    ExpectFailed(job);
}

TEST_F(PreflightRules, RuleValuesOfOtherTypesArriveAsText)
{
    const std::wstring typed = WatchedPath(L"typed");
    WriteString(WatchedKey(L"typed"), L"Mode", L"on");
    WriteString(WatchedKey(L"typed"), L"7", L"seven");
    WriteString(WatchedKey(L"typed"), L"Count", L"12");
    auto keyPath = [&](const std::wstring& rule) { WriteString(RuleValuesKey(rule), L"KeyPath", typed); };
    auto valueTest = [&](const std::wstring& rule, const std::wstring& action) {
        keyPath(rule);
        WriteString(RuleValuesKey(rule), L"ValueMatchAction", action);
    };

    AddRuleName(L"a-dword-action");
    keyPath(L"a-dword-action");
    WriteDword(RuleValuesKey(L"a-dword-action"), L"KeyPresentAction", 1);

    AddRuleName(L"b-multi-action");
    keyPath(L"b-multi-action");
    WriteMultiString(RuleValuesKey(L"b-multi-action"), L"KeyPresentAction", {L"Reboot"});

    AddRuleName(L"c-binary-action");
    keyPath(L"c-binary-action");
    WriteBinary(RuleValuesKey(L"c-binary-action"), L"KeyPresentAction", Utf16Bytes(L"error", false));

    AddRuleName(L"d-dword-keypath");
    WriteDword(RuleValuesKey(L"d-dword-keypath"), L"KeyPath", 5);
    WriteString(RuleValuesKey(L"d-dword-keypath"), L"KeyPresentAction", L"ERROR");

    AddRuleName(L"e-multi-keypath");
    WriteMultiString(RuleValuesKey(L"e-multi-keypath"), L"KeyPath", {typed});
    WriteString(RuleValuesKey(L"e-multi-keypath"), L"KeyPresentAction", L"ERROR");

    AddRuleName(L"f-binary-keypath");
    WriteBinary(RuleValuesKey(L"f-binary-keypath"), L"KeyPath", Utf16Bytes(typed, false));
    WriteString(RuleValuesKey(L"f-binary-keypath"), L"KeyPresentAction", L"ERROR");

    AddRuleName(L"g-dword-valuename");
    valueTest(L"g-dword-valuename", L"ERROR");
    WriteDword(RuleValuesKey(L"g-dword-valuename"), L"ValueName", 7);
    WriteString(RuleValuesKey(L"g-dword-valuename"), L"ExpectedValue", L"SEVEN");

    AddRuleName(L"h-binary-expected");
    valueTest(L"h-binary-expected", L"REBOOT");
    WriteString(RuleValuesKey(L"h-binary-expected"), L"ValueName", L"Mode");
    WriteBinary(RuleValuesKey(L"h-binary-expected"), L"ExpectedValue", Utf16Bytes(L"on", false));

    AddRuleName(L"i-qword-expected");
    valueTest(L"i-qword-expected", L"Error");
    WriteString(RuleValuesKey(L"i-qword-expected"), L"ValueName", L"Count");
    WriteQword(RuleValuesKey(L"i-qword-expected"), L"ExpectedValue", 12);

    AddRuleName(L"j-dword-expected-against-text");
    valueTest(L"j-dword-expected-against-text", L"ERROR");
    WriteString(RuleValuesKey(L"j-dword-expected-against-text"), L"ValueName", L"Mode");
    WriteDword(RuleValuesKey(L"j-dword-expected-against-text"), L"ExpectedValue", 0);

    WritePreflightJob();
    JobRun job = RunPreflight(-10);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        processing("a-dword-action"), invalidAction("1"), added("a-dword-action", "NONE"),
        processing("b-multi-action"), added("b-multi-action", "REBOOT"),
        processing("c-binary-action"), added("c-binary-action", "ERROR"),
        processing("d-dword-keypath"), noKeyPath("d-dword-keypath"),
        processing("e-multi-keypath"), added("e-multi-keypath", "ERROR"),
        processing("f-binary-keypath"), added("f-binary-keypath", "ERROR"),
        processing("g-dword-valuename"), valueMatches(typed, "ERROR"), added("g-dword-valuename", "ERROR"),
        processing("h-binary-expected"), valueMatches(typed, "REBOOT"), added("h-binary-expected", "REBOOT"),
        processing("i-qword-expected"), valueMatches(typed, "Error"), added("i-qword-expected", "ERROR"),
        processing("j-dword-expected-against-text"), added("j-dword-expected-against-text", "NONE"),
        finalAction("ERROR"), finalAction("NONE"), finalAction("REBOOT"),
    }));
    ExpectFailed(job);
}

TEST_F(PreflightRules, RuleNamesWithBlanks)
{
    WriteString(WatchedKey(L"agent"), L"Installed", L"1");
    AddRule(L"rule with blanks", {{L"KeyPath", WatchedPath(L"agent")}, {L"KeyPresentAction", L"ERROR"}});
    // Listed names are trimmed; the values are then looked for under the
    // trimmed name, where there are none.
    AddRule(L" padded ", {{L"KeyPath", WatchedPath(L"agent")}, {L"KeyPresentAction", L"REBOOT"}});
    WritePreflightJob();
    JobRun job = RunPreflight(-10);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {processing("padded"), processing("rule with blanks"),
                                                added("rule with blanks", "ERROR"), finalAction("ERROR")}));
    EXPECT_TRUE(LacksLine(Messages(job), processing(" padded ")));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::performRegistryBasedChecks: preflight check [padded]"));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "App::performRegistryBasedChecks: preflight check [ padded ]"));
    EXPECT_TRUE(LacksLine(Messages(job), finalAction("REBOOT")));
    ExpectFailed(job);
}

TEST_F(PreflightRules, ThreeHundredRulesAreAllEvaluatedInTheirOrder)
{
    constexpr int kRules = 300;
    WriteString(WatchedKey(L"many"), L"Slot", std::to_wstring(kRules - 1));
    std::vector<std::string> lines;
    for (int i = 0; i < kRules; ++i) {
        wchar_t name[16];
        std::swprintf(name, 16, L"rule-%03d", i);
        AddRule(name, {{L"KeyPath", WatchedPath(L"many")},
                       {L"ValueMatchAction", L"ERROR"},
                       {L"ValueName", L"Slot"},
                       {L"ExpectedValue", std::to_wstring(i)}});
        // Only the last rule matches: the run's result shows it was reached.
        lines.push_back(processing(Narrow(name)));
        if (i == kRules - 1)
            lines.push_back(valueMatches(WatchedPath(L"many"), "ERROR"));
        lines.push_back(added(Narrow(name), i == kRules - 1 ? "ERROR" : "NONE"));
    }
    lines.push_back(finalAction("ERROR"));
    lines.push_back(finalAction("NONE"));
    WritePreflightJob();
    JobRun job = RunPreflight(-10);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), lines));
    EXPECT_EQ(static_cast<size_t>(kRules),
              CountLinesStartingWith(Messages(job),
                                     "App::performRegistryBasedChecks: processing preflight check key ["));
    EXPECT_EQ(1u, CountLinesStartingWith(Messages(job), "App::getValueMatchAction:"));
    ExpectFailed(job);
}

}  // namespace
}  // namespace it
