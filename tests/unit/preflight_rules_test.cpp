// Preflight rules held in the registry: where their names and values are
// read, which action each gives, and what a bad rule does to the others.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/App.h"
#include "fakes/FakePlatform.h"
#include "update/UpdateRecord.h"

using CORE::corestring;
using fakes::FakePlatform;

namespace {

const std::wstring kNewRules = L"Software\\Tarvelle\\Zenthra\\Agent\\PreflightChecks";
const std::wstring kLegacyRules = L"Software\\Kesmarc, Inc.\\Kesmarc TQM\\Agent\\PreflightChecks";
const std::wstring kWatched = L"Software\\Watched\\Key";
const std::wstring kWatchedPath = L"HKLM\\Software\\Watched\\Key";

std::vector<std::wstring> names(const PreflightActions& actions)
{
    std::vector<std::wstring> out;
    for (const corestring& a : actions)
        out.push_back(a.c_str());
    return out;
}

class RulesTest : public ::testing::Test {
protected:
    RulesTest() { p.keys.createKey(HKEY_LOCAL_MACHINE, kWatched); }

    // A job under the new root (the default) lists rule names under the
    // legacy root and reads their values under the new one.
    void nameOnly(const std::wstring& name, const std::wstring& root = kLegacyRules)
    {
        p.keys.createKey(HKEY_LOCAL_MACHINE, root + L"\\" + name);
    }
    void rule(const std::wstring& name, const std::vector<std::pair<std::wstring, std::wstring>>& values)
    {
        nameOnly(name);
        for (const auto& [n, v] : values)
            p.keys.putString(HKEY_LOCAL_MACHINE, kNewRules + L"\\" + name, n, v);
    }
    std::vector<std::wstring> evaluate()
    {
        PreflightActions actions;
        PreflightActions& returned = app.performRegistryBasedChecks(actions);
        EXPECT_EQ(&actions, &returned);
        return names(actions);
    }
    std::wstring action(const std::wstring& text) { return app.getPreflightCheckAction(corestring(text.c_str())).c_str(); }

    FakePlatform p;
    App app;
};

// --- getPreflightCheckAction -----------------------------------------------------

TEST_F(RulesTest, ActionNamesIgnoreCase)
{
    EXPECT_EQ(L"REBOOT", action(L"reboot"));
    EXPECT_EQ(L"REBOOT", action(L"ReBoot"));
    EXPECT_EQ(L"ERROR", action(L"error"));
    EXPECT_EQ(L"ERROR", action(L"ERROR"));
    EXPECT_TRUE(p.logLines().empty());
}

TEST_F(RulesTest, EmptyActionIsNoneWithoutALine)
{
    EXPECT_EQ(L"NONE", action(L""));
    EXPECT_TRUE(p.logLines().empty());
}

TEST_F(RulesTest, UnknownActionsAndNoneItselfAreLoggedAsInvalid)
{
    for (const wchar_t* text : {L"Stop", L"NONE", L"none", L"REBOOTNOW", L"ERR", L" ERROR", L"REBOOT "}) {
        EXPECT_EQ(L"NONE", action(text)) << text;
        EXPECT_TRUE(p.logHas(std::wstring(L"App::getPreflightCheckAction: invalid action [") + text + L"]")) << text;
    }
}

// --- Where rules are read -------------------------------------------------------------

TEST_F(RulesTest, NoRulesKeyGivesAnEmptySetWithoutLines)
{
    EXPECT_TRUE(evaluate().empty());
    EXPECT_TRUE(p.logLines().empty());
}

TEST_F(RulesTest, KeyPresentRebootGivesReboot)
{
    rule(L"restart", {{L"KeyPath", kWatchedPath}, {L"KeyPresentAction", L"reboot"}});
    EXPECT_EQ(std::vector<std::wstring>{L"REBOOT"}, evaluate());
    const std::vector<std::wstring> expected = {
        L"App::performRegistryBasedChecks: processing preflight check key [restart]",
        L"App::performRegistryBasedChecks: preflight check [restart], action [REBOOT] is added",
    };
    EXPECT_EQ(expected, p.logLines());
}

TEST_F(RulesTest, NewRootJobDoesNotSeeARuleStandingUnderTheNewRootAlone)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kNewRules + L"\\only-new", L"KeyPath", kWatchedPath);
    p.keys.putString(HKEY_LOCAL_MACHINE, kNewRules + L"\\only-new", L"KeyPresentAction", L"ERROR");
    EXPECT_TRUE(evaluate().empty());
    EXPECT_TRUE(p.logLines().empty());
}

TEST_F(RulesTest, LegacyJobListsNamesUnderTheNewRoot)
{
    g_updateRecord.bLegacyUpgrade = true;
    p.keys.putString(HKEY_LOCAL_MACHINE, kNewRules + L"\\only-new", L"KeyPath", kWatchedPath);
    p.keys.putString(HKEY_LOCAL_MACHINE, kNewRules + L"\\only-new", L"KeyPresentAction", L"ERROR");
    // Values under the legacy root are never read.
    p.keys.putString(HKEY_LOCAL_MACHINE, kLegacyRules + L"\\only-legacy", L"KeyPath", kWatchedPath);
    p.keys.putString(HKEY_LOCAL_MACHINE, kLegacyRules + L"\\only-legacy", L"KeyPresentAction", L"REBOOT");
    EXPECT_EQ(std::vector<std::wstring>{L"ERROR"}, evaluate());
    EXPECT_FALSE(p.logHas(L"App::performRegistryBasedChecks: processing preflight check key [only-legacy]"));
}

TEST_F(RulesTest, RuleWithAName_ButValuesOnlyUnderTheNamingRootIsSkippedSilently)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kLegacyRules + L"\\legacy-values", L"KeyPath", kWatchedPath);
    p.keys.putString(HKEY_LOCAL_MACHINE, kLegacyRules + L"\\legacy-values", L"KeyPresentAction", L"ERROR");
    EXPECT_TRUE(evaluate().empty());
    const std::vector<std::wstring> expected = {
        L"App::performRegistryBasedChecks: processing preflight check key [legacy-values]"};
    EXPECT_EQ(expected, p.logLines());
}

TEST_F(RulesTest, ValueNamesOfARuleIgnoreCase)
{
    rule(L"r", {{L"keypath", kWatchedPath}, {L"KEYPRESENTACTION", L"Error"}});
    EXPECT_EQ(std::vector<std::wstring>{L"ERROR"}, evaluate());
}

// --- KeyPath ----------------------------------------------------------------------------

TEST_F(RulesTest, MissingOrEmptyKeyPathIsLoggedAndAddsNothing)
{
    rule(L"no-path", {{L"KeyPresentAction", L"ERROR"}});
    rule(L"empty-path", {{L"KeyPath", L""}, {L"KeyPresentAction", L"ERROR"}});
    EXPECT_TRUE(evaluate().empty());
    EXPECT_TRUE(p.logHas(
        L"App::performRegistryBasedChecks: preflight check, unable to read keypath for check: [no-path], no action"));
    EXPECT_TRUE(p.logHas(
        L"App::performRegistryBasedChecks: preflight check, unable to read keypath for check: [empty-path], no action"));
}

TEST_F(RulesTest, KeyPathOfAMissingKeyAddsNotEvenNone)
{
    rule(L"gone", {{L"KeyPath", L"HKLM\\Software\\Nowhere"}, {L"KeyPresentAction", L"REBOOT"}});
    EXPECT_TRUE(evaluate().empty());
    EXPECT_TRUE(p.logHas(
        L"App::performRegistryBasedChecks: preflight check, unable to read keypath for check: [gone], no action"));
}

TEST_F(RulesTest, LongHiveNameWorksForTheKeyAndTheValue)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kWatched, L"Mode", L"Maintenance");
    rule(L"long", {{L"KeyPath", L"HKEY_LOCAL_MACHINE\\Software\\Watched\\Key"},
                   {L"ValueMatchAction", L"ERROR"},
                   {L"ValueName", L"Mode"},
                   {L"ExpectedValue", L"maintenance"}});
    EXPECT_EQ(std::vector<std::wstring>{L"ERROR"}, evaluate());
    EXPECT_TRUE(p.logHas(L"App::getValueMatchAction: preflight check [HKEY_LOCAL_MACHINE\\Software\\Watched\\Key], "
                         L"value matches, adding an action [ERROR] to process"));
}

TEST_F(RulesTest, KeyPathWithForwardSlashesOrWithoutHiveFindsNoKey)
{
    rule(L"slashes", {{L"KeyPath", L"HKLM/Software/Watched/Key"}, {L"KeyPresentAction", L"ERROR"}});
    rule(L"no-hive", {{L"KeyPath", L"Software\\Watched\\Key"}, {L"KeyPresentAction", L"ERROR"}});
    rule(L"lower-hive", {{L"KeyPath", L"hklm\\Software\\Watched\\Key"}, {L"KeyPresentAction", L"ERROR"}});
    EXPECT_TRUE(evaluate().empty());
    for (const wchar_t* name : {L"slashes", L"no-hive", L"lower-hive"})
        EXPECT_TRUE(p.logHas(std::wstring(L"App::performRegistryBasedChecks: preflight check, unable to read keypath "
                                          L"for check: [") +
                             name + L"], no action"))
            << name;
}

// --- KeyPresentAction and ValueMatchAction -------------------------------------------------

TEST_F(RulesTest, InvalidKeyPresentActionIsNoneAndTheValueTestIsNotTried)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kWatched, L"Mode", L"on");
    rule(L"stop", {{L"KeyPath", kWatchedPath},
                   {L"KeyPresentAction", L"Stop"},
                   {L"ValueMatchAction", L"ERROR"},
                   {L"ValueName", L"Mode"},
                   {L"ExpectedValue", L"on"}});
    EXPECT_EQ(std::vector<std::wstring>{L"NONE"}, evaluate());
    EXPECT_TRUE(p.logHas(L"App::getPreflightCheckAction: invalid action [Stop]"));
    for (const std::wstring& line : p.logLines())
        EXPECT_EQ(std::wstring::npos, line.find(L"App::getValueMatchAction")) << line;
}

TEST_F(RulesTest, EmptyKeyPresentActionLeavesItToTheValueTest)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kWatched, L"Mode", L"Maintenance");
    rule(L"maint", {{L"KeyPath", kWatchedPath},
                    {L"KeyPresentAction", L""},
                    {L"ValueMatchAction", L"ERROR"},
                    {L"ValueName", L"Mode"},
                    {L"ExpectedValue", L"MAINTENANCE"}});
    EXPECT_EQ(std::vector<std::wstring>{L"ERROR"}, evaluate());
    EXPECT_TRUE(p.logHas(L"App::performRegistryBasedChecks: preflight check [maint], action [ERROR] is added"));
}

TEST_F(RulesTest, NeitherActionGivesNoneWithItsLine)
{
    rule(L"bare", {{L"KeyPath", kWatchedPath}});
    EXPECT_EQ(std::vector<std::wstring>{L"NONE"}, evaluate());
    EXPECT_TRUE(p.logHas(L"App::getValueMatchAction: no value match action defined"));
}

TEST_F(RulesTest, ValueThatDiffersGivesNone)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kWatched, L"Mode", L"Normal");
    rule(L"r", {{L"KeyPath", kWatchedPath},
                {L"ValueMatchAction", L"REBOOT"},
                {L"ValueName", L"Mode"},
                {L"ExpectedValue", L"Normally"}});
    EXPECT_EQ(std::vector<std::wstring>{L"NONE"}, evaluate());
    EXPECT_FALSE(p.logHas(L"App::getValueMatchAction: preflight check [HKLM\\Software\\Watched\\Key], value matches, "
                          L"adding an action [REBOOT] to process"));
}

TEST_F(RulesTest, EmptyExpectedValueNeverMatchesEvenAnEmptyValue)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kWatched, L"Mode", L"");
    rule(L"r", {{L"KeyPath", kWatchedPath}, {L"ValueMatchAction", L"ERROR"}, {L"ValueName", L"Mode"},
                {L"ExpectedValue", L""}});
    rule(L"s", {{L"KeyPath", kWatchedPath}, {L"ValueMatchAction", L"ERROR"}, {L"ValueName", L"Mode"}});
    EXPECT_EQ(std::vector<std::wstring>{L"NONE"}, evaluate());
}

TEST_F(RulesTest, MissingValueReadsAsEmptyAndDoesNotMatch)
{
    rule(L"r", {{L"KeyPath", kWatchedPath}, {L"ValueMatchAction", L"ERROR"}, {L"ValueName", L"Absent"},
                {L"ExpectedValue", L"x"}});
    EXPECT_EQ(std::vector<std::wstring>{L"NONE"}, evaluate());
}

TEST_F(RulesTest, DwordValueComparesByItsDecimalText)
{
    p.keys.putDword(HKEY_LOCAL_MACHINE, kWatched, L"Flag", 1);
    rule(L"dword", {{L"KeyPath", kWatchedPath}, {L"ValueMatchAction", L"REBOOT"}, {L"ValueName", L"Flag"},
                    {L"ExpectedValue", L"1"}});
    EXPECT_EQ(std::vector<std::wstring>{L"REBOOT"}, evaluate());
}

TEST_F(RulesTest, RuleValuesOfOtherTypesArriveAsText)
{
    p.keys.putDword(HKEY_LOCAL_MACHINE, kWatched, L"Flag", 42);
    nameOnly(L"typed");
    const std::wstring key = kNewRules + L"\\typed";
    p.keys.putString(HKEY_LOCAL_MACHINE, key, L"KeyPath", kWatchedPath);
    p.keys.putString(HKEY_LOCAL_MACHINE, key, L"ValueMatchAction", L"ERROR", REG_EXPAND_SZ);
    p.keys.putString(HKEY_LOCAL_MACHINE, key, L"ValueName", L"Flag");
    p.keys.putDword(HKEY_LOCAL_MACHINE, key, L"ExpectedValue", 42);
    EXPECT_EQ(std::vector<std::wstring>{L"ERROR"}, evaluate());
}

TEST_F(RulesTest, MultiStringMustMatchAsAWholeText)
{
    p.keys.putMultiString(HKEY_LOCAL_MACHINE, kWatched, L"List", {L"a", L"b"});
    nameOnly(L"multi");
    const std::wstring key = kNewRules + L"\\multi";
    p.keys.putString(HKEY_LOCAL_MACHINE, key, L"KeyPath", kWatchedPath);
    p.keys.putString(HKEY_LOCAL_MACHINE, key, L"ValueMatchAction", L"ERROR");
    p.keys.putString(HKEY_LOCAL_MACHINE, key, L"ValueName", L"List");
    p.keys.putMultiString(HKEY_LOCAL_MACHINE, key, L"ExpectedValue", {L"A", L"B"});
    EXPECT_EQ(std::vector<std::wstring>{L"ERROR"}, evaluate());

    p.keys.putMultiString(HKEY_LOCAL_MACHINE, key, L"ExpectedValue", {L"a", L"c"});
    EXPECT_EQ(std::vector<std::wstring>{L"NONE"}, evaluate());
}

TEST_F(RulesTest, EmptyValueNameTestsTheKeysDefaultValue)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kWatched, L"", L"present");
    rule(L"default", {{L"KeyPath", kWatchedPath}, {L"ValueMatchAction", L"REBOOT"}, {L"ExpectedValue", L"Present"}});
    EXPECT_EQ(std::vector<std::wstring>{L"REBOOT"}, evaluate());
}

TEST_F(RulesTest, ValueNameWithBackslashesReadsBelowTheKey)
{
    p.keys.putString(HKEY_LOCAL_MACHINE, kWatched + L"\\Sub", L"Mode", L"x");
    rule(L"deep", {{L"KeyPath", kWatchedPath}, {L"ValueMatchAction", L"REBOOT"}, {L"ValueName", L"Sub\\Mode"},
                   {L"ExpectedValue", L"x"}});
    EXPECT_EQ(std::vector<std::wstring>{L"REBOOT"}, evaluate());
}

// --- Many rules, and bad ones among them --------------------------------------------------------

TEST_F(RulesTest, ErrorAndRebootRulesBothStandInTheSortedSet)
{
    rule(L"one", {{L"KeyPath", kWatchedPath}, {L"KeyPresentAction", L"REBOOT"}});
    rule(L"two", {{L"KeyPath", kWatchedPath}, {L"KeyPresentAction", L"ERROR"}});
    rule(L"three", {{L"KeyPath", kWatchedPath}, {L"KeyPresentAction", L"REBOOT"}});
    EXPECT_EQ((std::vector<std::wstring>{L"ERROR", L"REBOOT"}), evaluate());
}

TEST_F(RulesTest, BadRulesDoNotStopTheRulesBehindThem)
{
    rule(L"a bad one", {{L"KeyPath", L"nonsense"}});
    nameOnly(L"b empty");
    rule(L"c typo", {{L"KeyPath", kWatchedPath}, {L"KeyPresentAction", L"REBOTO"}});
    rule(L"d good", {{L"KeyPath", kWatchedPath}, {L"KeyPresentAction", L"ERROR"}});
    EXPECT_EQ((std::vector<std::wstring>{L"ERROR", L"NONE"}), evaluate());
    EXPECT_TRUE(p.logHas(L"App::performRegistryBasedChecks: preflight check [d good], action [ERROR] is added"));
}

TEST_F(RulesTest, HundredsOfRulesAreAllEvaluated)
{
    for (int i = 0; i < 300; ++i) {
        std::wstring name = L"rule " + std::to_wstring(i);
        if (i == 299)
            rule(name, {{L"KeyPath", kWatchedPath}, {L"KeyPresentAction", L"REBOOT"}});
        else
            rule(name, {{L"KeyPath", kWatchedPath}});
    }
    EXPECT_EQ((std::vector<std::wstring>{L"NONE", L"REBOOT"}), evaluate());
    size_t processed = 0;
    for (const std::wstring& line : p.logLines())
        processed += line.rfind(L"App::performRegistryBasedChecks: processing preflight check key [", 0) == 0;
    EXPECT_EQ(300u, processed);
}

TEST(PreflightActionOrder, IsCaseSensitiveCollation)
{
    PreflightActions set;
    set.insert(corestring(L"REBOOT"));
    set.insert(corestring(L"NONE"));
    set.insert(corestring(L"ERROR"));
    set.insert(corestring(L"NONE"));
    set.insert(corestring(L"none"));
    EXPECT_EQ((std::vector<std::wstring>{L"ERROR", L"none", L"NONE", L"REBOOT"}), names(set));
}

}  // namespace
