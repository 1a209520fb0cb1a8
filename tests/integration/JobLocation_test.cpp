// Where the job is found: under the new root, under the legacy root of the
// former brand, under both, several at once, or an empty key; and where the
// closing steps write its state back.
#include <functional>

#include "JobFixture.h"

namespace it {
namespace {

const std::wstring kShare = L"\\\\fileserver\\deploy\\agent-2.5.0.7.msi";

class JobLocation : public JobTest {
protected:
    // A job with nothing to do in this run (READY), with old failure details
    // that the run must clear.
    std::vector<std::pair<std::wstring, std::wstring>> ReadyJob(const std::wstring& result = L"OK")
    {
        return {
            {L"AGENT", L"OTHER"},      {L"VERSION", L"2.5.0.7"}, {L"UNC_PATH", kShare},
            {L"ARCH", L"64-BitAgent"}, {L"STATE", L"READY"},     {L"RESULT", result},
            {L"FILENAME", L"C:\\dl\\agent.msi"}, {L"RETRY", L"1"}, {L"ERRORCODE", L"E_OLD"},
            {L"ERRORDESC", L"an old failure"},
        };
    }
};

TEST_F(JobLocation, JobUnderTheNewRootIsWrittenBackThereAndTheLegacyRootStaysUntouched)
{
    const std::wstring key = JobKey(kNewRoot, L"{5B7A1C2E-0001}");
    WriteJob(key, ReadyJob());

    JobRun job = RunExpecting(-1);

    EXPECT_TRUE(HasWrittenValues(key, {"READY", "OK", "C:\\dl\\agent.msi", "", "", "1"}));
    // Instructions are read, never written.
    EXPECT_EQ(ReadText(key, L"AGENT"), "OTHER");
    EXPECT_EQ(ReadText(key, L"UNC_PATH"), Narrow(kShare));
    EXPECT_EQ(ReadText(key, L"VERSION"), "2.5.0.7");
    EXPECT_EQ(ReadText(key, L"ARCH"), "64-BitAgent");
    EXPECT_FALSE(ReadValue(key, L"PreflightCheckComplete").has_value());
    EXPECT_FALSE(KeyExists(kLegacyRoot));

    const std::vector<std::string>& m = Messages(job);
    EXPECT_TRUE(HasLinesInOrder(m, {
        "UtilGetActiveUpdate: No Kesmarc active updates",
        "UtilGetActiveUpdate: Check for Tarvelle active updates",
        "UtilGetActiveUpdate: Update key: {5B7A1C2E-0001}",
        "Update key: {5B7A1C2E-0001} AGENT = OTHER",
        "Update key: {5B7A1C2E-0001} UNC_PATH = " + Narrow(kShare),
        "Util_UpdateDone: Updating state for result 'ERR_FAILURE', legacy workflow:'0' ",
        "UtilManageUpdateState: Update key: {5B7A1C2E-0001} current state: READY result:OK",
        "UtilGetActiveUpdate: Update key: {5B7A1C2E-0001}",
        "UtilUpdateStateRegistry_Legacy: No need to write to legacy Kesmarc key as not exist",
        "UtilManageUpdateState: Update key: {5B7A1C2E-0001} new state: READY result: OK",
    }));
    // Once when the job is read, once before the write under the new root.
    EXPECT_EQ(CountMessages(m, "UtilGetActiveUpdate: Update key: {5B7A1C2E-0001}"), 2u);
    EXPECT_EQ(CountMessages(m, "UtilUpdateStateRegistry_Legacy: No need to write to legacy Kesmarc key as not exist"),
              1u);
    EXPECT_TRUE(LacksLine(m, "UtilGetActiveUpdate: Kesmarc to Tarvelle agent upgrade detected"));
    EXPECT_TRUE(LacksLine(m, "wmain: failed to save the update state"));
    EXPECT_TRUE(LacksLine(m, "wmain: failed to save the telemetry data"));

    std::optional<std::vector<JsonValue>> entries = TelemetryEntries();
    ASSERT_TRUE(entries.has_value());
    ASSERT_EQ(entries->size(), 1u);
    EXPECT_TRUE(IsEntry((*entries)[0], {"{5B7A1C2E-0001}", "OTHER", "C:\\dl\\agent.msi", "2.5.0.7", "READY", 1, "OK"},
                        job.startedAt, job.endedAt));
}

TEST_F(JobLocation, JobUnderTheLegacyRootIsWrittenBackUnderBothRootsAndTheNewRootKeyIsCreated)
{
    const std::wstring legacyKey = JobKey(kLegacyRoot, L"legacy-job");
    const std::wstring newKey = JobKey(kNewRoot, L"legacy-job");
    WriteJob(legacyKey, ReadyJob(L"FAILURE"));
    ASSERT_FALSE(KeyExists(newKey));

    JobRun job = RunExpecting(-1);

    const WrittenValues expected{"READY", "FAILURE", "C:\\dl\\agent.msi", "", "", "1"};
    EXPECT_TRUE(HasWrittenValues(legacyKey, expected));
    ASSERT_TRUE(KeyExists(newKey));
    EXPECT_TRUE(HasWrittenValues(newKey, expected));
    // The new root's copy holds the six values and nothing else: the
    // instructions stay where the management side put them.
    EXPECT_EQ(ValueNames(newKey).size(), 6u);
    EXPECT_EQ(ReadText(legacyKey, L"AGENT"), "OTHER");
    // No preflight ran, so its completion marker is written nowhere.
    EXPECT_FALSE(ReadValue(newKey, L"PreflightCheckComplete").has_value());
    EXPECT_FALSE(ReadValue(legacyKey, L"PreflightCheckComplete").has_value());

    const std::vector<std::string>& m = Messages(job);
    EXPECT_TRUE(HasLinesInOrder(m, {
        "UtilGetActiveUpdate: Kesmarc to Tarvelle agent upgrade detected",
        "UtilGetActiveUpdate: Update key: legacy-job",
        "Update key: legacy-job AGENT = OTHER",
        "UtilManageUpdateState: Update key: legacy-job current state: READY result:FAILURE",
        "UtilManageUpdateState: Update key: legacy-job new state: READY result: FAILURE",
    }));
    // Read once, then again before each of the two writes.
    EXPECT_EQ(CountMessages(m, "UtilGetActiveUpdate: Update key: legacy-job"), 3u);
    EXPECT_EQ(CountMessages(m, "UtilGetActiveUpdate: Kesmarc to Tarvelle agent upgrade detected"), 3u);
    EXPECT_TRUE(LacksLine(m, "UtilGetActiveUpdate: No Kesmarc active updates"));
    EXPECT_TRUE(LacksLine(m, "UtilUpdateStateRegistry_Legacy: No need to write to legacy Kesmarc key as not exist"));

    std::optional<std::vector<JsonValue>> entries = TelemetryEntries();
    ASSERT_TRUE(entries.has_value());
    ASSERT_EQ(entries->size(), 1u);
    EXPECT_TRUE(IsEntry((*entries)[0], {"legacy-job", "OTHER", "C:\\dl\\agent.msi", "2.5.0.7", "READY", 1, "FAILURE"},
                        job.startedAt, job.endedAt));
}

TEST_F(JobLocation, JobsUnderBothRootsTheLegacyOneWinsAndTheOtherIsNeitherReadNorWritten)
{
    const std::wstring legacyKey = JobKey(kLegacyRoot, L"job-legacy");
    const std::wstring newKey = JobKey(kNewRoot, L"job-new");
    WriteJob(legacyKey, ReadyJob());
    // Read, this one would reach the install and end with -4.
    WriteJob(newKey, {{L"AGENT", L"TOVI"}, {L"UNC_PATH", kShare}, {L"ARCH", L"64-BitAgent"},
                      {L"STATE", L"UPDATING"}, {L"RESULT", L"PROGRESS"}, {L"RETRY", L"2"}});
    std::map<std::wstring, RegValue> newBefore = ReadAllValues(newKey);

    JobRun job = RunExpecting(-1);

    EXPECT_TRUE(HasWrittenValues(legacyKey, {"READY", "OK", "C:\\dl\\agent.msi", "", "", "1"}));
    EXPECT_TRUE(HasWrittenValues(JobKey(kNewRoot, L"job-legacy"), {"READY", "OK", "C:\\dl\\agent.msi", "", "", "1"}));
    EXPECT_EQ(ReadAllValues(newKey), newBefore);

    const std::vector<std::string>& m = Messages(job);
    EXPECT_TRUE(HasLinesInOrder(m, {"UtilGetActiveUpdate: Kesmarc to Tarvelle agent upgrade detected",
                                    "UtilGetActiveUpdate: Update key: job-legacy"}));
    EXPECT_TRUE(LacksLineStartingWith(m, "Update key: job-new "));
    EXPECT_TRUE(LacksLine(m, "UtilGetActiveUpdate: Update key: job-new"));
    EXPECT_TRUE(LacksLine(m, "UtilGetActiveUpdate: Check for Tarvelle active updates"));
}

TEST_F(JobLocation, JobsOfOneNameUnderBothRootsTheLegacyValuesReplaceTheSixValuesOfTheNewRootCopy)
{
    const std::wstring legacyKey = JobKey(kLegacyRoot, L"shared-job");
    const std::wstring newKey = JobKey(kNewRoot, L"shared-job");
    WriteJob(legacyKey, ReadyJob());
    WriteJob(newKey, {{L"AGENT", L"TOVI"}, {L"UNC_PATH", L"\\\\other\\share\\x.msi"}, {L"ARCH", L"64-BitAgent"},
                      {L"VERSION", L"9.9"}, {L"STATE", L"UPDATING"}, {L"RESULT", L"PROGRESS"},
                      {L"FILENAME", L"C:\\new\\x.msi"}, {L"RETRY", L"2"}, {L"ERRORCODE", L"E_NEW"},
                      {L"ERRORDESC", L"new failure"}});
    WriteDword(newKey, L"PreflightCheckComplete", 0);

    // The new root's UPDATING job would have ended with -4.
    JobRun job = RunExpecting(-1);

    const WrittenValues legacyValues{"READY", "OK", "C:\\dl\\agent.msi", "", "", "1"};
    EXPECT_TRUE(HasWrittenValues(legacyKey, legacyValues));
    // The new root's own STATE, RESULT, FILENAME, RETRY and error details are
    // gone: the write-back puts the legacy job's values there.
    EXPECT_TRUE(HasWrittenValues(newKey, legacyValues));
    // What the write-back doesn't touch stays as the new root had it.
    EXPECT_EQ(ReadText(newKey, L"AGENT"), "TOVI");
    EXPECT_EQ(ReadText(newKey, L"UNC_PATH"), "\\\\other\\share\\x.msi");
    EXPECT_EQ(ReadText(newKey, L"VERSION"), "9.9");
    std::optional<RegValue> marker = ReadValue(newKey, L"PreflightCheckComplete");
    ASSERT_TRUE(marker.has_value());
    EXPECT_EQ(marker->type, static_cast<DWORD>(REG_DWORD));
    EXPECT_EQ(marker->data, (std::vector<BYTE>{0, 0, 0, 0}));

    const std::vector<std::string>& m = Messages(job);
    EXPECT_TRUE(ContainsMessage(m, "Update key: shared-job AGENT = OTHER"));
    EXPECT_TRUE(LacksLine(m, "Update key: shared-job AGENT = TOVI"));
    EXPECT_TRUE(ContainsMessage(m, "UtilManageUpdateState: Update key: shared-job current state: READY result:OK"));

    std::optional<std::vector<JsonValue>> entries = TelemetryEntries();
    ASSERT_TRUE(entries.has_value());
    ASSERT_EQ(entries->size(), 1u);
    EXPECT_TRUE(IsEntry((*entries)[0], {"shared-job", "OTHER", "C:\\dl\\agent.msi", "2.5.0.7", "READY", 1, "OK"},
                        job.startedAt, job.endedAt));
}

TEST_F(JobLocation, OfTwoJobsUnderOneRootOnlyTheFirstInEnumerationOrderIsHandled)
{
    for (const wchar_t* root : {kNewRoot, kLegacyRoot}) {
        SCOPED_TRACE(Narrow(root));
        NextCase();
        // Created second, but first in the registry's order.
        const std::wstring secondKey = JobKey(root, L"zz-job");
        const std::wstring firstKey = JobKey(root, L"aa-job");
        WriteJob(secondKey, ReadyJob(L"FAILURE"));
        WriteJob(firstKey, ReadyJob(L"OK"));
        std::vector<std::wstring> order = SubkeyNames(UpdateKey(root));
        ASSERT_EQ(order, (std::vector<std::wstring>{L"aa-job", L"zz-job"})) << "the lab lists subkeys alphabetically";
        // Not a job of its own: makes the other job's values differ.
        WriteString(secondKey, L"RETRY", L"5");
        std::map<std::wstring, RegValue> secondBefore = ReadAllValues(secondKey);

        JobRun job = RunExpecting(-1);
        EXPECT_TRUE(HasWrittenValues(firstKey, {"READY", "OK", "C:\\dl\\agent.msi", "", "", "1"}));
        EXPECT_EQ(ReadAllValues(secondKey), secondBefore);
        EXPECT_TRUE(ContainsMessage(Messages(job), "UtilGetActiveUpdate: Update key: aa-job"));
        EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Update key: zz-job "));
        if (root == kLegacyRoot) {
            EXPECT_FALSE(KeyExists(JobKey(kNewRoot, L"zz-job")));
            EXPECT_TRUE(HasWrittenValues(JobKey(kNewRoot, L"aa-job"), {"READY", "OK", "C:\\dl\\agent.msi", "", "", "1"}));
        }
    }
}

TEST_F(JobLocation, EmptyJobKeyUnderTheNewRootEndsWithMinusOneAndGetsTheDefaultValues)
{
    const std::wstring key = JobKey(kNewRoot, L"empty-job");
    WriteJob(key, {});

    JobRun job = RunExpecting(-1);
    // A key was found, so the closing steps write the record's defaults.
    EXPECT_TRUE(HasWrittenValues(key, {"READY", "", "", "", "", "0"}));
    EXPECT_EQ(ValueNames(key).size(), 6u);
    EXPECT_FALSE(KeyExists(kLegacyRoot));

    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "UtilGetActiveUpdate: Update key: empty-job",
        "UtilGetRegistry: Tarvelle Update key: empty-job empty key",
        "Util_GetUpdateState: Update key: empty-job Registry failure",
        "Util_UpdateDone: Updating state for result 'ERR_FAILURE', legacy workflow:'0' ",
        "UtilManageUpdateState: Update key: empty-job current state: READY result:",
        "UtilManageUpdateState: Update key: empty-job new state: READY result: ",
    }));
    EXPECT_TRUE(LacksLineStartingWith(Messages(job), "Update key: empty-job "));

    std::optional<std::vector<JsonValue>> entries = TelemetryEntries();
    ASSERT_TRUE(entries.has_value());
    ASSERT_EQ(entries->size(), 1u);
    EXPECT_TRUE(IsEntry((*entries)[0], {"empty-job", "", "", "", "READY", 0, ""}, job.startedAt, job.endedAt));
}

TEST_F(JobLocation, EmptyJobKeyUnderTheLegacyRootIsNamedAsSuchAndWrittenUnderBothRoots)
{
    const std::wstring key = JobKey(kLegacyRoot, L"empty-job");
    WriteJob(key, {});

    JobRun job = RunExpecting(-1);
    EXPECT_TRUE(HasWrittenValues(key, {"READY", "", "", "", "", "0"}));
    EXPECT_TRUE(HasWrittenValues(JobKey(kNewRoot, L"empty-job"), {"READY", "", "", "", "", "0"}));
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {
        "UtilGetActiveUpdate: Kesmarc to Tarvelle agent upgrade detected",
        "UtilGetRegistry: Kesmarc Update key: empty-job empty key",
        "Util_GetUpdateState: Update key: empty-job Registry failure",
    }));
    EXPECT_TRUE(LacksLine(Messages(job), "UtilGetRegistry: Tarvelle Update key: empty-job empty key"));
}

TEST_F(JobLocation, KeyWhoseOnlyValueIsTheDefaultOneOrTooLargeCountsAsEmpty)
{
    struct Case {
        const char* label;
        std::function<void(const std::wstring&)> fill;
    };
    const std::vector<Case> cases = {
        {"default value only", [](const std::wstring& key) { WriteString(key, L"", L"READY"); }},
        // The first value in the listing is over the data limit: the listing ends there.
        {"first value of 8192 bytes",
         [](const std::wstring& key) {
             WriteString(key, L"AGENT", std::wstring(4095, L'A'));
             WriteString(key, L"STATE", L"DOWNLOAD");
             WriteString(key, L"UNC_PATH", kShare);
         }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        NextCase();
        const std::wstring key = JobKey(kNewRoot, L"job");
        WriteJob(key, {});
        c.fill(key);

        JobRun job = RunExpecting(-1);
        EXPECT_TRUE(ContainsMessage(Messages(job), "UtilGetRegistry: Tarvelle Update key: job empty key"));
        EXPECT_TRUE(HasWrittenValues(key, {"READY", "", "", "", "", "0"}));
    }
}

TEST_F(JobLocation, KeyNameWithBlanksIsTrimmedSoTheKeyReadsEmptyAndTheTrimmedNameIsWritten)
{
    const std::wstring blankKey = JobKey(kNewRoot, L"job ");
    WriteJob(blankKey, ReadyJob());
    std::map<std::wstring, RegValue> before = ReadAllValues(blankKey);

    JobRun job = RunExpecting(-1);
    EXPECT_TRUE(HasLinesInOrder(Messages(job), {"UtilGetActiveUpdate: Update key: job",
                                                    "UtilGetRegistry: Tarvelle Update key: job empty key"}));
    EXPECT_EQ(ReadAllValues(blankKey), before);
    EXPECT_TRUE(HasWrittenValues(JobKey(kNewRoot, L"job"), {"READY", "", "", "", "", "0"}));
}

TEST_F(JobLocation, NoJobAnywhereWritesNothingAndLeavesNoTelemetry)
{
    JobRun job = RunExpecting(-1);
    EXPECT_TRUE(SubkeyNames(UpdateKey(kNewRoot)).empty());
    EXPECT_FALSE(KeyExists(kLegacyRoot));
    EXPECT_FALSE(PathExists(TelemetryPath()));
    const std::vector<std::string>& m = Messages(job);
    EXPECT_TRUE(HasLinesInOrder(m, {
        "UtilGetActiveUpdate: No Kesmarc active updates",
        "UtilGetActiveUpdate: Check for Tarvelle active updates",
        "UtilGetActiveUpdate: No Tarvelle active updates",
        "Util_UpdateDone: Updating state for result 'ERR_FAILURE', legacy workflow:'0' ",
        "UtilUpdateStateRegistry_Legacy: No need to write to legacy Kesmarc key as not exist",
        "Util_UpdateDataForTelemetry: UpdateID empty",
        "wmain: failed to save the telemetry data",
    }));
    // The legacy writer's "nothing to do" counts as saved.
    EXPECT_TRUE(LacksLine(m, "wmain: failed to save the update state"));
    EXPECT_TRUE(LacksLine(m, "UtilManageUpdateState: registry update failed"));
}

}  // namespace
}  // namespace it
