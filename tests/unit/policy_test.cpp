#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "registry/Policy.h"
#include "registry/Registry.h"
#include "registry_test_support.h"

using namespace registry_test;
using View = FakeKeyStore::View;

namespace {

class PolicyReadTest : public FakeRegistryTest {};
class PolicyTranslateTest : public ::testing::Test {};

constexpr wchar_t kMachinePath[] = L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\LogLevel";
constexpr wchar_t kUserPath[] = L"HKCU\\Software\\Tarvelle\\Zenthra\\Agent\\LogLevel";
constexpr wchar_t kOrdinary[] = L"Software\\Tarvelle\\Zenthra\\Agent";
constexpr wchar_t kNewPolicy[] = L"Software\\Policies\\Tarvelle\\Zenthra\\Agent";
constexpr wchar_t kLegacyPolicy[] = L"Software\\Policies\\Kesmarc, Inc.\\Kesmarc TQM\\Agent";
constexpr wchar_t kSwitchPolicyKey[] = L"Software\\Policies\\Tarvelle\\Zenthra";
constexpr wchar_t kSwitchKey[] = L"Software\\Tarvelle\\Zenthra";

std::wstring translate(const wchar_t* subkey) { return text(TranslateToLegacyPolicy(corestring(subkey))); }

// ---------------------------------------------------------------- translation

TEST_F(PolicyTranslateTest, ProductRootAloneIsTheLegacyProductKey)
{
    EXPECT_EQ(L"Software\\Policies\\Kesmarc, Inc.\\Kesmarc TQM", translate(L"Software\\Tarvelle\\Zenthra"));
    EXPECT_EQ(L"Software\\Policies\\Kesmarc, Inc.\\Kesmarc TQM", translate(L"sOFTWARE\\tarvelle\\ZENTHRA"));
}

TEST_F(PolicyTranslateTest, FirstComponentIsLowerCasedAndTheRestKeepsItsSpelling)
{
    EXPECT_EQ(L"Software\\Policies\\Kesmarc, Inc.\\Kesmarc TQM\\Agent\\Configuration",
              translate(L"Software\\Tarvelle\\Zenthra\\AGENT\\Configuration"));
    EXPECT_EQ(L"Software\\Policies\\Kesmarc, Inc.\\Kesmarc TQM\\Agent\\Update\\JobA",
              translate(L"Software\\Tarvelle\\Zenthra\\Agent\\Update\\JobA"));
    EXPECT_EQ(L"Software\\Policies\\Kesmarc, Inc.\\Kesmarc TQM\\Agent", translate(L"Software\\Tarvelle\\Zenthra\\agent"));
}

TEST_F(PolicyTranslateTest, ForwardSlashCountsAsBackslash)
{
    EXPECT_EQ(L"Software\\Policies\\Kesmarc, Inc.\\Kesmarc TQM\\Agent\\Log",
              translate(L"Software\\Tarvelle\\Zenthra\\Agent/Log"));
}

TEST_F(PolicyTranslateTest, MakerWordRowsAndFreeNames)
{
    EXPECT_EQ(L"Software\\Policies\\Kesmarc, Inc.\\Kesmarc Firewall", translate(L"Software\\Tarvelle\\Zenthra\\Firewall"));
    EXPECT_EQ(L"Software\\Policies\\Kesmarc, Inc.\\Kesmarc TQM\\Telemetry\\Upload",
              translate(L"Software\\Tarvelle\\Zenthra\\Telemetry\\Upload"));
    EXPECT_EQ(L"Software\\Policies\\Kesmarc, Inc.\\Kesmarc HIPS", translate(L"Software\\Tarvelle\\Zenthra\\HostIntrusion"));
}

TEST_F(PolicyTranslateTest, ComponentWithoutRowHasNoLegacyPolicy)
{
    EXPECT_EQ(nullptr, TranslateToLegacyPolicy(corestring(L"Software\\Tarvelle\\Zenthra\\NoSuchComponent\\x")).handle());
    EXPECT_EQ(nullptr, TranslateToLegacyPolicy(corestring(L"Software\\Tarvelle\\Zenthra\\")).handle());
}

TEST_F(PolicyTranslateTest, SubkeyOutsideTheNewRootHasNoLegacyPolicy)
{
    EXPECT_EQ(nullptr, TranslateToLegacyPolicy(corestring(L"Software\\Other\\Product\\Agent")).handle());
    EXPECT_EQ(nullptr, TranslateToLegacyPolicy(corestring(L"Software\\Tarvelle")).handle());
    EXPECT_EQ(nullptr, TranslateToLegacyPolicy(corestring(L"Software\\Tarvelle\\Zenthr")).handle());
    EXPECT_EQ(nullptr, TranslateToLegacyPolicy(corestring()).handle());
    EXPECT_EQ(nullptr, TranslateToLegacyPolicy(corestring(L"Software\\Kesmarc, Inc.\\Kesmarc TQM\\Agent")).handle());
}

TEST_F(PolicyTranslateTest, RowWithBackslashIsNeverHit)
{
    // Only the first component is looked up, so "agent\configuration" goes
    // through the "agent" row.
    EXPECT_EQ(1u, LegacyPolicyTable().count(corestring(L"agent\\configuration")));
    EXPECT_EQ(L"Software\\Policies\\Kesmarc, Inc.\\Kesmarc TQM\\Agent\\configuration",
              translate(L"Software\\Tarvelle\\Zenthra\\agent\\configuration"));
}

// ---------------------------------------------------------------- the table

TEST_F(PolicyTranslateTest, TableHas59RowsInKeyOrder)
{
    const LegacyPolicyMap& table = LegacyPolicyTable();
    std::span<const LegacyPolicyRow> rows = LegacyPolicyRows();
    EXPECT_EQ(59u, table.size());
    ASSERT_EQ(59u, rows.size());
    for (std::size_t i = 1; i < rows.size(); ++i)
        EXPECT_TRUE(corestring(rows[i - 1].component) < corestring(rows[i].component))
            << "out of order: " << i << " " << corestring(rows[i].component).c_str();
    std::size_t i = 0;
    for (const auto& row : table) {
        EXPECT_EQ(std::wstring(rows[i].component), text(row.first));
        EXPECT_EQ(std::wstring(rows[i].legacyPath), text(row.second));
        ++i;
    }
}

TEST_F(PolicyTranslateTest, TableKeysAreLowerCaseAndValuesRelative)
{
    std::size_t productRows = 0;
    for (const auto& row : LegacyPolicyTable()) {
        std::wstring key = text(row.first);
        std::wstring value = text(row.second);
        for (wchar_t c : key)
            EXPECT_FALSE(c >= L'A' && c <= L'Z') << key;
        ASSERT_FALSE(value.empty()) << key;
        EXPECT_NE(L'\\', value.front()) << key;
        EXPECT_NE(L'\\', value.back()) << key;
        if (value.rfind(L"Kesmarc TQM\\", 0) == 0)
            ++productRows;
    }
    EXPECT_GT(productRows, LegacyPolicyTable().size() / 2);
    auto agent = LegacyPolicyTable().find(corestring(L"agent"));
    ASSERT_NE(LegacyPolicyTable().end(), agent);
    EXPECT_EQ(L"Kesmarc TQM\\Agent", text(agent->second));
}

TEST_F(PolicyTranslateTest, TableIsBuiltOnceForAllThreads)
{
    std::vector<const LegacyPolicyMap*> seen(8, nullptr);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < seen.size(); ++i)
        threads.emplace_back([&seen, i] { seen[i] = &LegacyPolicyTable(); });
    for (std::thread& t : threads)
        t.join();
    for (const LegacyPolicyMap* table : seen) {
        EXPECT_EQ(&LegacyPolicyTable(), table);
        EXPECT_EQ(59u, table->size());
    }
}

// ---------------------------------------------------------------- reading

TEST_F(PolicyReadTest, PolicyValueWinsOverTheOrdinaryValue)
{
    keys.putString(HKEY_LOCAL_MACHINE, kNewPolicy, L"LogLevel", L"policy");
    keys.putString(HKEY_LOCAL_MACHINE, kOrdinary, L"LogLevel", L"ordinary");
    corestring out, used;
    EXPECT_EQ(static_cast<std::uint32_t>(REG_SZ), PolicyRead(out, kMachinePath, kRegAnyType, false, &used));
    EXPECT_EQ(L"policy", text(out));
    EXPECT_EQ(L"HKLM\\Software\\Policies\\Tarvelle\\Zenthra\\Agent\\LogLevel", text(used));
}

TEST_F(PolicyReadTest, PolicySubkeyPutsPoliciesAfterTheFirstComponent)
{
    keys.putString(HKEY_LOCAL_MACHINE, L"Software\\Policies\\Other\\Product", L"V", L"policy");
    keys.putString(HKEY_LOCAL_MACHINE, L"Software\\Other\\Product", L"V", L"ordinary");
    corestring out;
    ASSERT_NE(kRegReadFailed, PolicyRead(out, L"HKLM\\Software\\Other\\Product\\V", kRegAnyType, false, nullptr));
    EXPECT_EQ(L"policy", text(out));
}

TEST_F(PolicyReadTest, FirstAttemptHitDoesNotReadTheSwitch)
{
    keys.putString(HKEY_LOCAL_MACHINE, kNewPolicy, L"LogLevel", L"policy");
    corestring out;
    ASSERT_NE(kRegReadFailed, PolicyRead(out, kMachinePath, kRegAnyType, false, nullptr));
    EXPECT_EQ((std::vector<std::wstring>{L"HKLM\\Software\\Policies\\Tarvelle\\Zenthra\\Agent"}), keys.openedPaths());
}

TEST_F(PolicyReadTest, MachineOrderIsNewPolicyLegacyPolicyOrdinary)
{
    keys.putString(HKEY_LOCAL_MACHINE, kNewPolicy, L"LogLevel", L"1 new policy");
    keys.putString(HKEY_LOCAL_MACHINE, kLegacyPolicy, L"LogLevel", L"2 legacy policy");
    keys.putString(HKEY_LOCAL_MACHINE, kOrdinary, L"LogLevel", L"3 ordinary");
    struct Step {
        const wchar_t* expected;
        const wchar_t* used;
        const wchar_t* removeFrom;
    };
    const Step steps[] = {
        {L"1 new policy", L"HKLM\\Software\\Policies\\Tarvelle\\Zenthra\\Agent\\LogLevel", kNewPolicy},
        {L"2 legacy policy", L"HKLM\\Software\\Policies\\Kesmarc, Inc.\\Kesmarc TQM\\Agent\\LogLevel", kLegacyPolicy},
        {L"3 ordinary", L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\LogLevel", kOrdinary},
    };
    for (const Step& step : steps) {
        corestring out, used;
        ASSERT_NE(kRegReadFailed, PolicyRead(out, kMachinePath, kRegAnyType, false, &used)) << step.expected;
        EXPECT_EQ(step.expected, text(out));
        EXPECT_EQ(step.used, text(used));
        HKEY key = nullptr;
        ASSERT_EQ(ERROR_SUCCESS, keys.RegOpenKeyExW(HKEY_LOCAL_MACHINE, step.removeFrom, 0, KEY_SET_VALUE, &key));
        ASSERT_EQ(ERROR_SUCCESS, keys.RegDeleteValueW(key, L"LogLevel"));
        keys.RegCloseKey(key);
    }
    corestring out(L"previous");
    EXPECT_EQ(kRegReadFailed, PolicyRead(out, kMachinePath, kRegAnyType, false, nullptr));
    EXPECT_EQ(nullptr, out.handle());
}

TEST_F(PolicyReadTest, MachineAttemptsOpenTheseKeysInThisOrder)
{
    corestring out;
    EXPECT_EQ(kRegReadFailed, PolicyRead(out, kMachinePath, kRegAnyType, false, nullptr));
    EXPECT_EQ((std::vector<std::wstring>{
                  L"HKLM\\Software\\Policies\\Tarvelle\\Zenthra\\Agent",
                  L"HKLM\\Software\\Policies\\Tarvelle\\Zenthra",  // the switch, policy tree
                  L"HKLM\\Software\\Tarvelle\\Zenthra",            // the switch, ordinary tree
                  L"HKLM\\Software\\Policies\\Kesmarc, Inc.\\Kesmarc TQM\\Agent",
                  L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent",
              }),
              keys.openedPaths());
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), ::GetLastError());
    for (const auto& record : keys.opens())
        EXPECT_EQ(L"open", record.operation);
}

TEST_F(PolicyReadTest, UserOrderCoversAllSixPlaces)
{
    keys.putString(HKEY_CURRENT_USER, kNewPolicy, L"LogLevel", L"1 user new policy");
    keys.putString(HKEY_CURRENT_USER, kLegacyPolicy, L"LogLevel", L"2 user legacy policy");
    keys.putString(HKEY_LOCAL_MACHINE, kNewPolicy, L"LogLevel", L"3 machine new policy");
    keys.putString(HKEY_LOCAL_MACHINE, kLegacyPolicy, L"LogLevel", L"4 machine legacy policy");
    keys.putString(HKEY_CURRENT_USER, kOrdinary, L"LogLevel", L"5 user ordinary");
    keys.putString(HKEY_LOCAL_MACHINE, kOrdinary, L"LogLevel", L"6 machine ordinary");
    struct Step {
        const wchar_t* expected;
        const wchar_t* used;
        HKEY hive;
        const wchar_t* removeFrom;
    };
    const Step steps[] = {
        {L"1 user new policy", L"HKCU\\Software\\Policies\\Tarvelle\\Zenthra\\Agent\\LogLevel", HKEY_CURRENT_USER,
         kNewPolicy},
        {L"2 user legacy policy", L"HKCU\\Software\\Policies\\Kesmarc, Inc.\\Kesmarc TQM\\Agent\\LogLevel",
         HKEY_CURRENT_USER, kLegacyPolicy},
        {L"3 machine new policy", L"HKLM\\Software\\Policies\\Tarvelle\\Zenthra\\Agent\\LogLevel", HKEY_LOCAL_MACHINE,
         kNewPolicy},
        {L"4 machine legacy policy", L"HKLM\\Software\\Policies\\Kesmarc, Inc.\\Kesmarc TQM\\Agent\\LogLevel",
         HKEY_LOCAL_MACHINE, kLegacyPolicy},
        {L"5 user ordinary", L"HKCU\\Software\\Tarvelle\\Zenthra\\Agent\\LogLevel", HKEY_CURRENT_USER, kOrdinary},
        {L"6 machine ordinary", L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\LogLevel", HKEY_LOCAL_MACHINE, kOrdinary},
    };
    for (const Step& step : steps) {
        corestring out, used;
        ASSERT_NE(kRegReadFailed, PolicyRead(out, kUserPath, kRegAnyType, false, &used)) << step.expected;
        EXPECT_EQ(step.expected, text(out));
        EXPECT_EQ(step.used, text(used));
        HKEY key = nullptr;
        ASSERT_EQ(ERROR_SUCCESS, keys.RegOpenKeyExW(step.hive, step.removeFrom, 0, KEY_SET_VALUE, &key));
        ASSERT_EQ(ERROR_SUCCESS, keys.RegDeleteValueW(key, L"LogLevel"));
        keys.RegCloseKey(key);
    }
    corestring out;
    EXPECT_EQ(kRegReadFailed, PolicyRead(out, kUserPath, kRegAnyType, false, nullptr));
}

TEST_F(PolicyReadTest, UserAttemptsOpenTheUsersHiveAndCloseIt)
{
    corestring out;
    EXPECT_EQ(kRegReadFailed, PolicyRead(out, kUserPath, kRegAnyType, false, nullptr));
    EXPECT_EQ((std::vector<std::wstring>{
                  L"HKCU",
                  L"HKCU\\Software\\Policies\\Tarvelle\\Zenthra\\Agent",
                  L"HKLM\\Software\\Policies\\Tarvelle\\Zenthra",
                  L"HKLM\\Software\\Tarvelle\\Zenthra",
                  L"HKCU",
                  L"HKCU\\Software\\Policies\\Kesmarc, Inc.\\Kesmarc TQM\\Agent",
                  L"HKLM\\Software\\Policies\\Tarvelle\\Zenthra\\Agent",
                  L"HKLM\\Software\\Policies\\Kesmarc, Inc.\\Kesmarc TQM\\Agent",
                  L"HKCU",
                  L"HKCU\\Software\\Tarvelle\\Zenthra\\Agent",
                  L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent",
              }),
              keys.openedPaths());
    const auto& opens = keys.opens();
    EXPECT_EQ(L"user", opens[0].operation);
    EXPECT_TRUE(opens[1].viaCurrentUser);
    EXPECT_FALSE(opens[2].viaCurrentUser);
    EXPECT_TRUE(opens[9].viaCurrentUser);
    EXPECT_FALSE(opens[10].viaCurrentUser);
}

TEST_F(PolicyReadTest, CurrentUserFailureMovesOnToTheMachine)
{
    keys.putString(HKEY_CURRENT_USER, kNewPolicy, L"LogLevel", L"user policy");
    keys.putString(HKEY_LOCAL_MACHINE, kOrdinary, L"LogLevel", L"machine ordinary");
    keys.failOpenCurrentUser(ERROR_ACCESS_DENIED);
    corestring out, used;
    ASSERT_NE(kRegReadFailed, PolicyRead(out, kUserPath, kRegAnyType, false, &used));
    EXPECT_EQ(L"machine ordinary", text(out));
    EXPECT_EQ(L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\LogLevel", text(used));
}

TEST_F(PolicyReadTest, OtherHivesAreReportedAsTheUsers)
{
    keys.putString(HKEY_USERS, L"S-1-5-18\\Software\\Tarvelle", L"V", L"users");
    corestring out, used;
    ASSERT_NE(kRegReadFailed, PolicyRead(out, L"HKU\\S-1-5-18\\Software\\Tarvelle\\V", kRegAnyType, false, &used));
    EXPECT_EQ(L"users", text(out));
    EXPECT_EQ(L"HKCU\\S-1-5-18\\Software\\Tarvelle\\V", text(used));
    // The machine's places are for the user's hive only: here HKLM is
    // opened for the switch alone.
    EXPECT_EQ((std::vector<std::wstring>{
                  L"HKU\\S-1-5-18\\Policies\\Software\\Tarvelle",
                  L"HKLM\\Software\\Policies\\Tarvelle\\Zenthra",
                  L"HKLM\\Software\\Tarvelle\\Zenthra",
                  L"HKU\\S-1-5-18\\Software\\Tarvelle",
              }),
              keys.openedPaths());
}

TEST_F(PolicyReadTest, LegacyPolicyIsUsedByDefault)
{
    keys.putString(HKEY_LOCAL_MACHINE, kLegacyPolicy, L"LogLevel", L"legacy");
    keys.putString(HKEY_LOCAL_MACHINE, kOrdinary, L"LogLevel", L"ordinary");
    EXPECT_EQ(L"legacy", text(PolicyReadOrDefault(kMachinePath, L"dflt")));
}

TEST_F(PolicyReadTest, SwitchFalseInPolicyTreeIgnoresLegacyEvenIfOrdinarySaysTrue)
{
    keys.putString(HKEY_LOCAL_MACHINE, kSwitchPolicyKey, L"FallbackToLegacyGPO", L"false");
    keys.putString(HKEY_LOCAL_MACHINE, kSwitchKey, L"FallbackToLegacyGPO", L"true");
    keys.putString(HKEY_LOCAL_MACHINE, kLegacyPolicy, L"LogLevel", L"legacy");
    keys.putString(HKEY_LOCAL_MACHINE, kOrdinary, L"LogLevel", L"ordinary");
    corestring out, used;
    ASSERT_NE(kRegReadFailed, PolicyRead(out, kMachinePath, kRegAnyType, false, &used));
    EXPECT_EQ(L"ordinary", text(out));
    for (const std::wstring& path : keys.openedPaths())
        EXPECT_EQ(std::wstring::npos, path.find(L"Kesmarc")) << path;
}

TEST_F(PolicyReadTest, EmptySwitchInPolicyTreeDefersToTheOrdinaryTree)
{
    keys.putString(HKEY_LOCAL_MACHINE, kSwitchPolicyKey, L"FallbackToLegacyGPO", L"");
    keys.putString(HKEY_LOCAL_MACHINE, kSwitchKey, L"FallbackToLegacyGPO", L"no");
    keys.putString(HKEY_LOCAL_MACHINE, kLegacyPolicy, L"LogLevel", L"legacy");
    keys.putString(HKEY_LOCAL_MACHINE, kOrdinary, L"LogLevel", L"ordinary");
    EXPECT_EQ(L"ordinary", text(PolicyReadOrDefault(kMachinePath, L"dflt")));
    keys.putString(HKEY_LOCAL_MACHINE, kSwitchKey, L"FallbackToLegacyGPO", L"Yes");
    EXPECT_EQ(L"legacy", text(PolicyReadOrDefault(kMachinePath, L"dflt")));
}

TEST_F(PolicyReadTest, SwitchInTheOrdinaryTreeAloneCanTurnLegacyOff)
{
    keys.putString(HKEY_LOCAL_MACHINE, kSwitchKey, L"FallbackToLegacyGPO", L"0");
    keys.putString(HKEY_LOCAL_MACHINE, kLegacyPolicy, L"LogLevel", L"legacy");
    keys.putString(HKEY_LOCAL_MACHINE, kOrdinary, L"LogLevel", L"ordinary");
    EXPECT_EQ(L"ordinary", text(PolicyReadOrDefault(kMachinePath, L"dflt")));
}

TEST_F(PolicyReadTest, SwitchMayBeANumber)
{
    keys.putDword(HKEY_LOCAL_MACHINE, kSwitchPolicyKey, L"FallbackToLegacyGPO", 0);
    keys.putString(HKEY_LOCAL_MACHINE, kLegacyPolicy, L"LogLevel", L"legacy");
    keys.putString(HKEY_LOCAL_MACHINE, kOrdinary, L"LogLevel", L"ordinary");
    EXPECT_EQ(L"ordinary", text(PolicyReadOrDefault(kMachinePath, L"dflt")));
    keys.putDword(HKEY_LOCAL_MACHINE, kSwitchPolicyKey, L"FallbackToLegacyGPO", 1);
    EXPECT_EQ(L"legacy", text(PolicyReadOrDefault(kMachinePath, L"dflt")));
}

TEST_F(PolicyReadTest, SwitchIsReadAfreshOnEveryRead)
{
    keys.putString(HKEY_LOCAL_MACHINE, kLegacyPolicy, L"LogLevel", L"legacy");
    keys.putString(HKEY_LOCAL_MACHINE, kOrdinary, L"LogLevel", L"ordinary");
    EXPECT_EQ(L"legacy", text(PolicyReadOrDefault(kMachinePath, L"dflt")));
    keys.putString(HKEY_LOCAL_MACHINE, kSwitchPolicyKey, L"FallbackToLegacyGPO", L"off");
    EXPECT_EQ(L"ordinary", text(PolicyReadOrDefault(kMachinePath, L"dflt")));
    keys.putString(HKEY_LOCAL_MACHINE, kSwitchPolicyKey, L"FallbackToLegacyGPO", L"on");
    EXPECT_EQ(L"legacy", text(PolicyReadOrDefault(kMachinePath, L"dflt")));
}

TEST_F(PolicyReadTest, SwitchFalseAlsoSkipsTheUsersMachineLegacyAttempt)
{
    keys.putString(HKEY_LOCAL_MACHINE, kSwitchPolicyKey, L"FallbackToLegacyGPO", L"false");
    keys.putString(HKEY_LOCAL_MACHINE, kLegacyPolicy, L"LogLevel", L"machine legacy");
    keys.putString(HKEY_CURRENT_USER, kLegacyPolicy, L"LogLevel", L"user legacy");
    keys.putString(HKEY_LOCAL_MACHINE, kOrdinary, L"LogLevel", L"machine ordinary");
    EXPECT_EQ(L"machine ordinary", text(PolicyReadOrDefault(kUserPath, L"dflt")));
}

TEST_F(PolicyReadTest, SubkeyOutsideTheNewRootGoesFromPolicyToOrdinary)
{
    keys.putString(HKEY_LOCAL_MACHINE, L"Software\\Other\\Product", L"V", L"ordinary");
    corestring out, used;
    ASSERT_NE(kRegReadFailed, PolicyRead(out, L"HKLM\\Software\\Other\\Product\\V", kRegAnyType, false, &used));
    EXPECT_EQ(L"ordinary", text(out));
    EXPECT_EQ(L"HKLM\\Software\\Other\\Product\\V", text(used));
    EXPECT_EQ((std::vector<std::wstring>{
                  L"HKLM\\Software\\Policies\\Other\\Product",
                  L"HKLM\\Software\\Policies\\Tarvelle\\Zenthra",
                  L"HKLM\\Software\\Tarvelle\\Zenthra",
                  L"HKLM\\Software\\Other\\Product",
              }),
              keys.openedPaths());
}

TEST_F(PolicyReadTest, ComponentWithoutRowSkipsLegacyAndReadsTheOrdinaryValue)
{
    keys.putString(HKEY_LOCAL_MACHINE, L"Software\\Policies\\Kesmarc, Inc.\\Kesmarc TQM\\Gizmo", L"V", L"legacy");
    keys.putString(HKEY_LOCAL_MACHINE, L"Software\\Tarvelle\\Zenthra\\Gizmo", L"V", L"ordinary");
    corestring out;
    ASSERT_NE(kRegReadFailed,
              PolicyRead(out, L"HKLM\\Software\\Tarvelle\\Zenthra\\Gizmo\\V", kRegAnyType, false, nullptr));
    EXPECT_EQ(L"ordinary", text(out));
    for (const std::wstring& path : keys.openedPaths())
        EXPECT_EQ(std::wstring::npos, path.find(L"Kesmarc")) << path;
}

TEST_F(PolicyReadTest, ProductRootValueHasTheLegacyProductKey)
{
    keys.putString(HKEY_LOCAL_MACHINE, L"Software\\Policies\\Kesmarc, Inc.\\Kesmarc TQM", L"InstallLogsDir", L"legacy");
    corestring out, used;
    ASSERT_NE(kRegReadFailed,
              PolicyRead(out, L"HKLM\\Software\\Tarvelle\\Zenthra\\InstallLogsDir", kRegAnyType, false, &used));
    EXPECT_EQ(L"legacy", text(out));
    EXPECT_EQ(L"HKLM\\Software\\Policies\\Kesmarc, Inc.\\Kesmarc TQM\\InstallLogsDir", text(used));
}

TEST_F(PolicyReadTest, TypeFilterRejectingAPolicyValueMovesOn)
{
    keys.putDword(HKEY_LOCAL_MACHINE, kNewPolicy, L"LogLevel", 4);
    keys.putString(HKEY_LOCAL_MACHINE, kOrdinary, L"LogLevel", L"2");
    corestring out, used;
    EXPECT_EQ(static_cast<std::uint32_t>(REG_SZ), PolicyRead(out, kMachinePath, REG_SZ, false, &used));
    EXPECT_EQ(L"2", text(out));
    EXPECT_EQ(L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\LogLevel", text(used));
    EXPECT_EQ(static_cast<std::uint32_t>(REG_DWORD), PolicyRead(out, kMachinePath, REG_DWORD, false, &used));
    EXPECT_EQ(L"4", text(out));
}

TEST_F(PolicyReadTest, TotalFailureGivesTheLastOpensCode)
{
    keys.failOpen(HKEY_LOCAL_MACHINE, kOrdinary, ERROR_ACCESS_DENIED);
    corestring out(L"previous");
    EXPECT_EQ(kRegReadFailed, PolicyRead(out, kMachinePath, kRegAnyType, false, nullptr));
    EXPECT_EQ(static_cast<DWORD>(ERROR_ACCESS_DENIED), ::GetLastError());
    EXPECT_EQ(nullptr, out.handle());
}

TEST_F(PolicyReadTest, TotalFailureAfterAnOpenKeyGivesTheReadsCode)
{
    // The earlier places fail to open; the last one opens but its value has
    // the wrong type.
    keys.failOpen(HKEY_LOCAL_MACHINE, kNewPolicy, ERROR_ACCESS_DENIED);
    keys.putDword(HKEY_LOCAL_MACHINE, kOrdinary, L"LogLevel", 3);
    corestring out;
    EXPECT_EQ(kRegReadFailed, PolicyRead(out, kMachinePath, REG_SZ, false, nullptr));
    EXPECT_EQ(static_cast<DWORD>(ERROR_INVALID_DATA), ::GetLastError());
}

TEST_F(PolicyReadTest, UserTotalFailureGivesTheMachineOrdinaryPlacesCode)
{
    keys.putDword(HKEY_CURRENT_USER, kOrdinary, L"LogLevel", 3);
    keys.failOpen(HKEY_LOCAL_MACHINE, kOrdinary, ERROR_ACCESS_DENIED);
    corestring out;
    EXPECT_EQ(kRegReadFailed, PolicyRead(out, kUserPath, REG_SZ, false, nullptr));
    EXPECT_EQ(static_cast<DWORD>(ERROR_ACCESS_DENIED), ::GetLastError());
}

TEST_F(PolicyReadTest, UnparsablePathFailsWithPathNotFound)
{
    corestring out(L"previous");
    EXPECT_EQ(kRegReadFailed,
              PolicyRead(out, L"HKEY_LOCAL_MACHINE\\Software\\Tarvelle\\Zenthra\\V", kRegAnyType, false, nullptr));
    EXPECT_EQ(static_cast<DWORD>(ERROR_PATH_NOT_FOUND), ::GetLastError());
    EXPECT_EQ(nullptr, out.handle());
    EXPECT_TRUE(keys.opens().empty());
}

TEST_F(PolicyReadTest, ThirtyTwoBitFlagAppliesToEveryAttemptButNotTheSwitch)
{
    keys.putString(HKEY_LOCAL_MACHINE, kOrdinary, L"LogLevel", L"32-bit", REG_SZ, View::Wow32);
    keys.putString(HKEY_LOCAL_MACHINE, kOrdinary, L"LogLevel", L"native");
    corestring out, used;
    ASSERT_NE(kRegReadFailed, PolicyRead(out, kMachinePath, kRegAnyType, true, &used));
    EXPECT_EQ(L"32-bit", text(out));
    const auto& opens = keys.opens();
    ASSERT_EQ(5u, opens.size());
    EXPECT_EQ(static_cast<REGSAM>(KEY_QUERY_VALUE | KEY_WOW64_32KEY), opens[0].rights);
    EXPECT_EQ(static_cast<REGSAM>(KEY_QUERY_VALUE), opens[1].rights);
    EXPECT_EQ(static_cast<REGSAM>(KEY_QUERY_VALUE), opens[2].rights);
    EXPECT_EQ(static_cast<REGSAM>(KEY_QUERY_VALUE | KEY_WOW64_32KEY), opens[3].rights);
    EXPECT_EQ(static_cast<REGSAM>(KEY_QUERY_VALUE | KEY_WOW64_32KEY), opens[4].rights);
}

TEST_F(PolicyReadTest, OrDefaultGivesDefaultOnlyWhenNothingIsFound)
{
    EXPECT_EQ(L"dflt", text(PolicyReadOrDefault(kMachinePath, L"dflt")));
    keys.putString(HKEY_LOCAL_MACHINE, kOrdinary, L"LogLevel", L"");
    corestring empty = PolicyReadOrDefault(kMachinePath, L"dflt");
    EXPECT_TRUE(empty.empty());
    keys.putDword(HKEY_LOCAL_MACHINE, kNewPolicy, L"LogLevel", 9);
    EXPECT_EQ(L"9", text(PolicyReadOrDefault(kMachinePath, L"dflt")));
}

TEST_F(PolicyReadTest, DefaultValueOfAKeyIsReportedWithATrailingBackslash)
{
    keys.putString(HKEY_LOCAL_MACHINE, kNewPolicy, L"", L"default");
    corestring out, used;
    ASSERT_NE(kRegReadFailed,
              PolicyRead(out, L"HKLM\\Software\\Tarvelle\\Zenthra\\Agent\\", kRegAnyType, false, &used));
    EXPECT_EQ(L"default", text(out));
    EXPECT_EQ(L"HKLM\\Software\\Policies\\Tarvelle\\Zenthra\\Agent\\", text(used));
}

}  // namespace
