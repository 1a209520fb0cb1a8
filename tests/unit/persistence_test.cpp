// Writing the job back: six values under the new root, the same under the
// legacy root for a legacy job, the volatile restart marker and the
// preflight completion flag.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "update/StateMachine.h"
#include "update/StatePersistence.h"
#include "update_test_support.h"

using namespace update_test;
using CORE::corestring;

namespace {

const std::vector<std::wstring> kSixValues = {L"STATE", L"RESULT", L"FILENAME", L"ERRORCODE", L"ERRORDESC", L"RETRY"};

class Persistence : public UpdateTest {
protected:
    // A record with something in every written field.
    void fullRecord(Root root)
    {
        job(root, L"Job1", STATE_WAIT, L"PROGRESS", 1);
        g_updateRecord.sFileName = L"C:\\Windows\\Temp\\updatetool-data\\agent.msi";
        g_updateRecord.sErrorCode = L"ERR_CODE";
        g_updateRecord.sErrorDesc = L"a description";
    }
    // Earlier content in all six values, to see which ones a failed save reached.
    void oldValues(Root root)
    {
        for (const std::wstring& name : kSixValues)
            p.keys.putString(HKEY_LOCAL_MACHINE, jobKey(root, L"Job1"), name, L"old");
    }
    void expectSaved(Root root)
    {
        EXPECT_EQ(L"WAIT", stored(root, L"Job1", L"STATE"));
        EXPECT_EQ(L"PROGRESS", stored(root, L"Job1", L"RESULT"));
        EXPECT_EQ(L"C:\\Windows\\Temp\\updatetool-data\\agent.msi", stored(root, L"Job1", L"FILENAME"));
        EXPECT_EQ(L"ERR_CODE", stored(root, L"Job1", L"ERRORCODE"));
        EXPECT_EQ(L"a description", stored(root, L"Job1", L"ERRORDESC"));
        EXPECT_EQ(L"1", stored(root, L"Job1", L"RETRY"));
        for (const std::wstring& name : kSixValues) {
            auto v = p.keys.value(HKEY_LOCAL_MACHINE, jobKey(root, L"Job1"), name);
            ASSERT_TRUE(v.has_value()) << name;
            EXPECT_EQ(static_cast<DWORD>(REG_SZ), v->type) << name;
        }
    }
    bool marker(const std::wstring& key) const
    {
        return p.keys.stringValue(HKEY_LOCAL_MACHINE, key, L"NeedReboot") == L"1";
    }
};

}  // namespace

// ---- The six values

TEST_F(Persistence, NewRootJobGetsSixStringValuesInOrder)
{
    fullRecord(Root::New);
    RecordingKeys keys(p.keys);
    fakes::ScopedServices scope{fakes::withKeys(keys)};
    EXPECT_TRUE(UtilUpdateStateRegistry());
    EXPECT_EQ(kSixValues, keys.names());
    for (const RecordingKeys::Write& w : keys.writes)
        EXPECT_EQ(static_cast<DWORD>(REG_SZ), w.type) << w.name;
    expectSaved(Root::New);
    EXPECT_FALSE(p.keys.keyExists(HKEY_LOCAL_MACHINE, jobKey(Root::Legacy, L"Job1")));
    EXPECT_EQ(0u, p.keys.flushCount());
    EXPECT_EQ(0u, p.keys.openHandleCount());
}

TEST_F(Persistence, NewRootJobAllWellLogsNoLegacyWorkOnceAndSucceeds)
{
    fullRecord(Root::New);
    EXPECT_TRUE(UtilManageUpdateState());
    EXPECT_EQ(1u, countOf(L"UtilUpdateStateRegistry_Legacy: No need to write to legacy Kesmarc key as not exist"));
    EXPECT_FALSE(p.keys.keyExists(HKEY_LOCAL_MACHINE, jobKey(Root::Legacy, L"Job1")));
    expectSaved(Root::New);
}

TEST_F(Persistence, LegacyJobIsWrittenUnderBothRootsNewFirst)
{
    fullRecord(Root::Legacy);
    ASSERT_FALSE(p.keys.keyExists(HKEY_LOCAL_MACHINE, jobKey(Root::New, L"Job1")));
    RecordingKeys keys(p.keys);
    fakes::ScopedServices scope{fakes::withKeys(keys)};
    EXPECT_TRUE(UtilManageUpdateState());
    std::vector<std::wstring> twice = kSixValues;
    twice.insert(twice.end(), kSixValues.begin(), kSixValues.end());
    EXPECT_EQ(twice, keys.names());
    expectSaved(Root::New);
    expectSaved(Root::Legacy);
    // The new root's writes came first: its key is the one created first.
    std::vector<std::wstring> creates;
    for (const auto& open : p.keys.opens())
        if (open.operation == L"create")
            creates.push_back(open.path);
    ASSERT_FALSE(creates.empty());
    EXPECT_EQ(L"HKLM\\" + jobKey(Root::New, L"Job1"), creates.front());
    EXPECT_EQ(L"HKLM\\" + jobKey(Root::Legacy, L"Job1"), creates.back());
}

TEST_F(Persistence, StateZeroIsWrittenAsAnEmptyText)
{
    fullRecord(Root::New);
    g_updateRecord.nState = STATE_UNKNOWN;
    EXPECT_TRUE(UtilUpdateStateRegistry());
    EXPECT_EQ(L"", stored(Root::New, L"Job1", L"STATE"));
}

TEST_F(Persistence, NegativeRetryIsWrittenBackAsItStands)
{
    fullRecord(Root::New);
    g_updateRecord.nRetry = -7;
    EXPECT_TRUE(UtilUpdateStateRegistry());
    EXPECT_EQ(L"-7", stored(Root::New, L"Job1", L"RETRY"));
}

TEST_F(Persistence, EmptyErrorFieldsOverwriteTheLastFailure)
{
    fullRecord(Root::New);
    oldValues(Root::New);
    g_updateRecord.sErrorCode = corestring();
    g_updateRecord.sErrorDesc = corestring();
    EXPECT_TRUE(UtilUpdateStateRegistry());
    EXPECT_EQ(L"", stored(Root::New, L"Job1", L"ERRORCODE"));
    EXPECT_EQ(L"", stored(Root::New, L"Job1", L"ERRORDESC"));
}

// ---- Stop at the first failure

struct FailedValue {
    const wchar_t* name;
    std::size_t index;
    const wchar_t* line;
};

class FirstFailedWrite : public Persistence, public ::testing::WithParamInterface<FailedValue> {};

TEST_P(FirstFailedWrite, StopsThereWithItsLine)
{
    const FailedValue& f = GetParam();
    fullRecord(Root::New);
    oldValues(Root::New);
    RecordingKeys keys(p.keys);
    keys.failValue = f.name;
    fakes::ScopedServices scope{fakes::withKeys(keys)};
    EXPECT_FALSE(UtilUpdateStateRegistry());
    EXPECT_EQ(std::vector<std::wstring>(kSixValues.begin(), kSixValues.begin() + f.index + 1), keys.names());
    EXPECT_EQ(std::vector<std::wstring>{f.line}, linesOf({L"UtilUpdateStateRegistry"}));
    // Those behind the failed one keep their old content.
    for (std::size_t i = f.index; i < kSixValues.size(); ++i)
        EXPECT_EQ(L"old", stored(Root::New, L"Job1", kSixValues[i].c_str())) << kSixValues[i];
    for (std::size_t i = 0; i < f.index; ++i)
        EXPECT_NE(L"old", stored(Root::New, L"Job1", kSixValues[i].c_str())) << kSixValues[i];
    EXPECT_EQ(0u, p.keys.openHandleCount());
}

// The two error values share the line of FILENAME.
INSTANTIATE_TEST_SUITE_P(
    Values, FirstFailedWrite,
    ::testing::Values(
        FailedValue{L"STATE", 0, L"UtilUpdateStateRegistry: Update key: Job1 failed to update Registry. state: WAIT"},
        FailedValue{L"RESULT", 1,
                    L"UtilUpdateStateRegistry: Update key: Job1 failed to update Registry. Result: PROGRESS"},
        FailedValue{L"FILENAME", 2,
                    L"UtilUpdateStateRegistry: Update key: Job1 failed to update Registry. filename: "
                    L"C:\\Windows\\Temp\\updatetool-data\\agent.msi"},
        FailedValue{L"ERRORCODE", 3,
                    L"UtilUpdateStateRegistry: Update key: Job1 failed to update Registry. filename: ERR_CODE"},
        FailedValue{L"ERRORDESC", 4,
                    L"UtilUpdateStateRegistry: Update key: Job1 failed to update Registry. filename: a description"},
        FailedValue{L"RETRY", 5, L"UtilUpdateStateRegistry: Update key: Job1 failed to update Registry. retry: 1"}),
    [](const auto& info) { return std::string(info.param.name, info.param.name + wcslen(info.param.name)); });

TEST_F(Persistence, EveryWriteRefusedStopsAtState)
{
    fullRecord(Root::New);
    oldValues(Root::New);
    p.keys.failSetValue(ERROR_ACCESS_DENIED);
    EXPECT_FALSE(UtilUpdateStateRegistry());
    EXPECT_EQ(std::vector<std::wstring>{L"UtilUpdateStateRegistry: Update key: Job1 failed to update Registry. state: "
                                        L"WAIT"},
              linesOf({L"UtilUpdateStateRegistry"}));
    p.keys.clearFaults();
    for (const std::wstring& name : kSixValues)
        EXPECT_EQ(L"old", stored(Root::New, L"Job1", name.c_str())) << name;
}

TEST_F(Persistence, JobKeyThatCannotBeOpenedStopsAtState)
{
    fullRecord(Root::New);
    p.keys.failOpen(HKEY_LOCAL_MACHINE, jobKey(Root::New, L"Job1"), ERROR_ACCESS_DENIED);
    EXPECT_FALSE(UtilUpdateStateRegistry());
    EXPECT_TRUE(p.logHas(L"UtilUpdateStateRegistry: Update key: Job1 failed to update Registry. state: WAIT"));
    EXPECT_EQ(1u, linesOf({L"UtilUpdateStateRegistry"}).size());
}

TEST_F(Persistence, LegacyWriterFailureUsesItsOwnTag)
{
    fullRecord(Root::Legacy);
    p.keys.failOpen(HKEY_LOCAL_MACHINE, jobKey(Root::Legacy, L"Job1"), ERROR_ACCESS_DENIED);
    EXPECT_FALSE(UtilUpdateStateRegistry_Legacy());
    EXPECT_EQ(std::vector<std::wstring>{L"UtilUpdateStateRegistry_Legacy: Update key: Job1 failed to update "
                                        L"Registry. state: WAIT"},
              linesOf({L"UtilUpdateStateRegistry_Legacy"}));
}

TEST_F(Persistence, NewRootJobWithResultRefusedStillReportsSuccess)
{
    fullRecord(Root::New);
    oldValues(Root::New);
    RecordingKeys keys(p.keys);
    keys.failValue = L"RESULT";
    fakes::ScopedServices scope{fakes::withKeys(keys)};
    EXPECT_TRUE(UtilManageUpdateState());
    EXPECT_EQ(L"WAIT", stored(Root::New, L"Job1", L"STATE"));
    EXPECT_EQ(L"old", stored(Root::New, L"Job1", L"RESULT"));
    EXPECT_TRUE(p.logHas(L"UtilUpdateStateRegistry: Update key: Job1 failed to update Registry. Result: PROGRESS"));
    EXPECT_FALSE(p.logHas(L"UtilManageUpdateState: registry update failed"));
}

TEST_F(Persistence, LegacyJobWithTheNewRootUnwritableIsStillWrittenUnderTheLegacyRoot)
{
    fullRecord(Root::Legacy);
    p.keys.failOpen(HKEY_LOCAL_MACHINE, jobKey(Root::New, L"Job1"), ERROR_ACCESS_DENIED);
    EXPECT_TRUE(UtilManageUpdateState());
    EXPECT_FALSE(p.keys.keyExists(HKEY_LOCAL_MACHINE, jobKey(Root::New, L"Job1")));
    expectSaved(Root::Legacy);
    EXPECT_TRUE(p.logHas(L"UtilUpdateStateRegistry: Update key: Job1 failed to update Registry. state: WAIT"));
}

// ---- No job to write

TEST_F(Persistence, EmptyUpdateKeyNewWriterFailsSilentlyLegacyWriterLogsAndSucceeds)
{
    fullRecord(Root::New);
    g_updateRecord.sUpdateKey = corestring();
    p.keys.clearLog();
    EXPECT_FALSE(UtilUpdateStateRegistry());
    EXPECT_TRUE(p.logLines().empty());
    EXPECT_TRUE(p.keys.opens().empty());
    EXPECT_TRUE(UtilUpdateStateRegistry_Legacy());
    EXPECT_EQ(std::vector<std::wstring>{L"UtilUpdateStateRegistry_Legacy: No need to write to legacy Kesmarc key as "
                                        L"not exist"},
              p.logLines());
    EXPECT_TRUE(UtilManageUpdateState());
    EXPECT_EQ(L"OLD", stored(Root::New, L"Job1", L"STATE"));
}

TEST_F(Persistence, VanishedJobKeyStopsTheWrite)
{
    g_updateRecord.sUpdateKey = L"Gone";
    g_updateRecord.nState = STATE_WAIT;
    g_updateRecord.rebootRequired = true;
    EXPECT_FALSE(UtilUpdateStateRegistry());
    EXPECT_TRUE(g_updateRecord.sUpdateKey.empty());
    EXPECT_FALSE(p.keys.keyExists(HKEY_LOCAL_MACHINE, jobKey(Root::New, L"Gone")));
    EXPECT_FALSE(p.keys.keyExists(HKEY_LOCAL_MACHINE, kNewVolatile));
    EXPECT_TRUE(linesOf({L"UtilUpdateStateRegistry"}).empty());
}

TEST_F(Persistence, VanishedLegacyJobStopsTheLegacyWriteToo)
{
    g_updateRecord.sUpdateKey = L"Gone";
    g_updateRecord.bLegacyUpgrade = true;
    EXPECT_FALSE(UtilUpdateStateRegistry_Legacy());
    EXPECT_FALSE(p.keys.keyExists(HKEY_LOCAL_MACHINE, jobKey(Root::Legacy, L"Gone")));
    EXPECT_TRUE(linesOf({L"UtilUpdateStateRegistry_Legacy"}).empty());
}

// ---- The volatile restart marker

TEST_F(Persistence, RebootRequiredLegacyJobGetsTheVolatileMarkerUnderBothRoots)
{
    fullRecord(Root::Legacy);
    g_updateRecord.rebootRequired = true;
    EXPECT_TRUE(UtilManageUpdateState());
    EXPECT_TRUE(marker(kNewVolatile));
    EXPECT_TRUE(marker(kLegacyVolatile));
    EXPECT_TRUE(p.keys.isVolatile(HKEY_LOCAL_MACHINE, kNewVolatile));
    EXPECT_TRUE(p.keys.isVolatile(HKEY_LOCAL_MACHINE, kLegacyVolatile));
    auto v = p.keys.value(HKEY_LOCAL_MACHINE, kNewVolatile, L"NeedReboot");
    ASSERT_TRUE(v.has_value());
    EXPECT_EQ(static_cast<DWORD>(REG_SZ), v->type);
    EXPECT_EQ(4u, v->bytes.size());
    // Gone with the restart; the job itself stays.
    p.keys.simulateReboot();
    EXPECT_FALSE(p.keys.keyExists(HKEY_LOCAL_MACHINE, kNewVolatile));
    EXPECT_FALSE(p.keys.keyExists(HKEY_LOCAL_MACHINE, kLegacyVolatile));
    EXPECT_EQ(L"WAIT", stored(Root::Legacy, L"Job1", L"STATE"));
}

TEST_F(Persistence, NewRootJobGetsTheMarkerUnderTheNewRootOnly)
{
    fullRecord(Root::New);
    g_updateRecord.rebootRequired = true;
    EXPECT_TRUE(UtilManageUpdateState());
    EXPECT_TRUE(marker(kNewVolatile));
    EXPECT_FALSE(p.keys.keyExists(HKEY_LOCAL_MACHINE, kLegacyVolatile));
}

TEST_F(Persistence, NoMarkerWithoutRebootRequiredAndAnEarlierOneStays)
{
    fullRecord(Root::Legacy);
    EXPECT_TRUE(UtilManageUpdateState());
    EXPECT_FALSE(p.keys.keyExists(HKEY_LOCAL_MACHINE, kNewVolatile));
    EXPECT_FALSE(p.keys.keyExists(HKEY_LOCAL_MACHINE, kLegacyVolatile));

    p.keys.createKey(HKEY_LOCAL_MACHINE, kNewVolatile, fakes::FakeKeyStore::View::Native, true);
    p.keys.putString(HKEY_LOCAL_MACHINE, kNewVolatile, L"NeedReboot", L"1");
    EXPECT_TRUE(UtilManageUpdateState());
    EXPECT_TRUE(marker(kNewVolatile));
}

TEST_F(Persistence, MarkerFailureStopsTheWriteBeforeAnyValue)
{
    fullRecord(Root::New);
    oldValues(Root::New);
    g_updateRecord.rebootRequired = true;
    p.keys.failOpen(HKEY_LOCAL_MACHINE, kNewVolatile, ERROR_ACCESS_DENIED);
    EXPECT_FALSE(UtilUpdateStateRegistry());
    EXPECT_EQ(std::vector<std::wstring>{L"UtilUpdateStateRegistry: failed to update NeedReboot in registry"},
              linesOf({L"UtilUpdateStateRegistry"}));
    for (const std::wstring& name : kSixValues)
        EXPECT_EQ(L"old", stored(Root::New, L"Job1", name.c_str())) << name;
}

TEST_F(Persistence, LegacyMarkerFailureHasTheLegacyTag)
{
    fullRecord(Root::Legacy);
    g_updateRecord.rebootRequired = true;
    p.keys.failOpen(HKEY_LOCAL_MACHINE, kLegacyVolatile, ERROR_ACCESS_DENIED);
    EXPECT_FALSE(UtilUpdateStateRegistry_Legacy());
    EXPECT_TRUE(p.logHas(L"UtilUpdateStateRegistry_Legacy: failed to update NeedReboot in registry"));
}

TEST_F(Persistence, VolatileValueIsCreatedVolatileWithWriteRightsAndTheTerminatorCounted)
{
    corestring value(L"abc");
    corestring path(L"HKLM\\Software\\Test\\Volatile\\Flag");
    RecordingKeys keys(p.keys);
    fakes::ScopedServices scope{fakes::withKeys(keys)};
    EXPECT_TRUE(Util_WriteVolatileValue(std::move(value), std::move(path)));
    EXPECT_TRUE(p.keys.isVolatile(HKEY_LOCAL_MACHINE, L"Software\\Test\\Volatile"));
    ASSERT_EQ(1u, keys.writes.size());
    EXPECT_EQ(L"Flag", keys.writes[0].name);
    EXPECT_EQ(static_cast<DWORD>(REG_SZ), keys.writes[0].type);
    EXPECT_EQ(8u, keys.writes[0].size);
    EXPECT_EQ(L"abc", p.keys.stringValue(HKEY_LOCAL_MACHINE, L"Software\\Test\\Volatile", L"Flag"));
    ASSERT_FALSE(p.keys.opens().empty());
    EXPECT_EQ(L"create", p.keys.opens().back().operation);
    EXPECT_EQ(static_cast<REGSAM>(0x20006), p.keys.opens().back().rights);
    EXPECT_EQ(0u, p.keys.openHandleCount());
    EXPECT_TRUE(value.empty());
    EXPECT_TRUE(path.empty());
}

TEST_F(Persistence, VolatileValueEmptiesItsArgumentsAlsoOnFailure)
{
    corestring value(L"1");
    corestring path(L"HKLM\\Software\\Test\\Volatile\\Flag");
    p.keys.failOpen(HKEY_LOCAL_MACHINE, L"Software\\Test\\Volatile", ERROR_ACCESS_DENIED);
    EXPECT_FALSE(Util_WriteVolatileValue(std::move(value), std::move(path)));
    EXPECT_TRUE(value.empty());
    EXPECT_TRUE(path.empty());

    corestring value2(L"1");
    corestring path2(L"NotAHive\\x\\y");
    EXPECT_FALSE(Util_WriteVolatileValue(std::move(value2), std::move(path2)));
    EXPECT_TRUE(value2.empty());
    EXPECT_TRUE(path2.empty());

    corestring value3(L"1");
    corestring path3(L"HKLM\\Software\\Test\\Other\\Flag");
    p.keys.failSetValue(ERROR_ACCESS_DENIED);
    EXPECT_FALSE(Util_WriteVolatileValue(std::move(value3), std::move(path3)));
    EXPECT_TRUE(value3.empty());
    EXPECT_TRUE(path3.empty());
    EXPECT_EQ(0u, p.keys.openHandleCount());
}

// ---- The preflight completion flag

TEST_F(Persistence, PreflightFlagIsADwordOneUnderTheNewRootEvenForALegacyJob)
{
    fullRecord(Root::Legacy);
    ASSERT_FALSE(p.keys.keyExists(HKEY_LOCAL_MACHINE, jobKey(Root::New, L"Job1")));
    p.keys.clearLog();
    EXPECT_TRUE(Util_UpdatePreflightCheckCompleteReg(true));
    auto v = p.keys.value(HKEY_LOCAL_MACHINE, jobKey(Root::New, L"Job1"), L"PreflightCheckComplete");
    ASSERT_TRUE(v.has_value());
    EXPECT_EQ(static_cast<DWORD>(REG_DWORD), v->type);
    EXPECT_EQ(4u, v->bytes.size());
    EXPECT_EQ(1u, p.keys.dwordValue(HKEY_LOCAL_MACHINE, jobKey(Root::New, L"Job1"), L"PreflightCheckComplete"));
    EXPECT_FALSE(p.keys.value(HKEY_LOCAL_MACHINE, jobKey(Root::Legacy, L"Job1"), L"PreflightCheckComplete"));
    ASSERT_EQ(1u, p.keys.opens().size());
    EXPECT_EQ(L"create", p.keys.opens()[0].operation);
    EXPECT_EQ(static_cast<REGSAM>(0x20006), p.keys.opens()[0].rights);
    EXPECT_FALSE(p.keys.isVolatile(HKEY_LOCAL_MACHINE, jobKey(Root::New, L"Job1")));
    EXPECT_EQ(0u, p.keys.openHandleCount());
    EXPECT_TRUE(p.logLines().empty());
}

TEST_F(Persistence, PreflightFlagFalseWritesZero)
{
    fullRecord(Root::New);
    EXPECT_TRUE(Util_UpdatePreflightCheckCompleteReg(false));
    EXPECT_EQ(0u, p.keys.dwordValue(HKEY_LOCAL_MACHINE, jobKey(Root::New, L"Job1"), L"PreflightCheckComplete"));
}

TEST_F(Persistence, PreflightFlagFailureIsLogged)
{
    fullRecord(Root::New);
    p.keys.failOpen(HKEY_LOCAL_MACHINE, jobKey(Root::New, L"Job1"), ERROR_ACCESS_DENIED);
    EXPECT_FALSE(Util_UpdatePreflightCheckCompleteReg(true));
    EXPECT_EQ(std::vector<std::wstring>{L"Util_UpdatePreflightCheckCompleteReg: Update key: Job1 failed to update "
                                        L"preflightcheckcomplete flag for value: 1"},
              p.logLines());

    p.keys.clearFaults();
    p.keys.failSetValue(ERROR_ACCESS_DENIED);
    EXPECT_FALSE(Util_UpdatePreflightCheckCompleteReg(false));
    EXPECT_TRUE(p.logHas(L"Util_UpdatePreflightCheckCompleteReg: Update key: Job1 failed to update "
                         L"preflightcheckcomplete flag for value: 0"));
    EXPECT_EQ(0u, p.keys.openHandleCount());
}
