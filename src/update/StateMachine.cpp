#include "update/StateMachine.h"

#include <utility>

#include "core/log/LogLine.h"
#include "platform/Services.h"
#include "update/PreflightNames.h"
#include "update/RetrySettings.h"
#include "update/StatePersistence.h"
#include "update/UpdateRecord.h"
#include "update/UpdateState.h"

using CORE::corestring;
using CORE::keywordEquals;

namespace {

WorkspaceCleanup g_workspaceCleanup = nullptr;

bool cleanupWorkspace() { return g_workspaceCleanup && g_workspaceCleanup(); }

// Result texts are compared exactly, case included.
bool resultIs(const wchar_t* text) { return keywordEquals(g_updateRecord.sResult.c_str(), text, false); }

// A reboot for the preflight checks gets two more tries, whatever the
// retry setting says.
constexpr std::int32_t kPreflightRebootLimit = 2;

void preflightDone(RunResult result, bool legacyWorkflow)
{
    const wchar_t* tag = L"Util_UpdateDone";
    UpdateRecord& r = g_updateRecord;
    // A preflight-only run ends the job whatever state it was started in.
    r.nState = STATE_DONE;
    switch (result) {
    case ERR_PREFLIGHTCHECK_OK:
        r.nRetry = 0;
        r.sResult = L"PREFLIGHTCHECK_OK";
        if (legacyWorkflow) {
            // The relaunch does the update under the same job.
            LogLine(L"%s: preflightcheck check is done, legacy workflow is in use so updating state to READY", tag);
            r.nState = STATE_READY;
            r.sResult = L"OK";
        }
        // The writer logs its own failure; the state is saved either way.
        Util_UpdatePreflightCheckCompleteReg(true);
        break;
    case ERR_PREFLIGHTCHECK_REBOOT:
        if (UtilTryAgain(kPreflightRebootLimit)) {
            r.rebootRequired = true;
            r.nState = STATE_READY;
            r.sResult = L"PREFLIGHTCHECK_INPROGRESS";
        } else {
            r.sResult = L"PREFLIGHTCHECK_FAILURE";
            r.sErrorCode = GetPreflightErrorName(result);
            // The next job starts counting afresh.
            r.nRetry = 0;
        }
        break;
    default:  // -10, -12, -13, -14
        r.sResult = L"PREFLIGHTCHECK_FAILURE";
        r.sErrorCode = GetPreflightErrorName(result);
        break;
    }
}

void updateDone(RunResult result)
{
    const wchar_t* tag = L"Util_UpdateDone";
    UpdateRecord& r = g_updateRecord;
    LogLine(L"%s: agent update result: %s", tag, GetRunResultName(result).c_str());
    bool cleaned = true;
    switch (result) {
    case ERR_NOAGENT:
        // The good end: the installer succeeded or nothing was left to do.
        r.sResult = L"OK";
        cleaned = cleanupWorkspace();
        break;
    case ERR_FAILURE:
    case ERR_LAUNCH:
        r.sResult = L"FAILURE";
        cleaned = cleanupWorkspace();
        break;
    case ERR_INCOMPATIBLE:
        r.sResult = L"INVALID";
        break;
    default:
        // A reboot request above all: go on after the restart while tries are left.
        r.sResult = L"PROGRESS";
        if (UtilTryAgain(maxRetry)) {
            r.rebootRequired = true;
            LogLine(L"%s: FORCE REBOOT", tag);
        } else {
            r.sResult = L"FAILURE";
        }
        break;
    }
    if (!cleaned)
        LogLine(L"%s: cleanup failed", tag);
}

// Both fetch steps end the run with -1 here, so only the result text tells.
void fetchDone()
{
    const wchar_t* tag = L"Util_UpdateDone";
    UpdateRecord& r = g_updateRecord;
    if (resultIs(L"OK"))
        return;
    if (!UtilTryAgain(maxRetry)) {
        // An invalid job stays in DOWNLOAD for the management side to see.
        if (resultIs(L"FAILURE")) {
            LogLine(L"%s: Download/Copy failure crossed download/Copy retry limit", tag);
            r.nState = STATE_DONE;
        }
        return;
    }
    LogLine(L"%s: wait for %d mins", tag, static_cast<int>(retryWaitMs / 60000));
    platform::clock().Sleep(retryWaitMs);
    LogLine(L"%s: done waiting", tag);
    r.nState = STATE_READY;
    r.sResult = L"PROGRESS";
}

}  // namespace

WorkspaceCleanup SetWorkspaceCleanup(WorkspaceCleanup cleanup) { return std::exchange(g_workspaceCleanup, cleanup); }

bool UtilTryAgain(std::int32_t limit)
{
    const wchar_t* tag = L"UtilTryAgain";
    UpdateRecord& r = g_updateRecord;
    // A "RETRY" of the largest number wraps rather than overflows.
    r.nRetry = static_cast<std::int32_t>(static_cast<std::uint32_t>(r.nRetry) + 1u);
    bool again = true;
    if (r.nRetry > limit) {
        LogLine(L"%s: exceeded retry attempts: %d, max attempt allowed: %d", tag, r.nRetry, limit);
        again = false;
    }
    LogLine(L"%s: updating retry: %d, max attempt allowed: %d", tag, r.nRetry, limit);
    return again;
}

bool Util_UpdateDone(RunResult result, bool legacyWorkflow)
{
    const wchar_t* tag = L"Util_UpdateDone";
    LogLine(L"%s: Updating state for result '%s', legacy workflow:'%d' ", tag, GetRunResultName(result).c_str(),
            legacyWorkflow ? 1 : 0);

    if (result >= ERR_PREFLIGHTCHECK_INVALID_UNC_PATH && result <= ERR_PREFLIGHTCHECK_OK)
        preflightDone(result, legacyWorkflow);
    else if (g_updateRecord.nState == STATE_UPDATING)
        updateDone(result);
    else if (g_updateRecord.nState == STATE_DOWNLOAD)
        fetchDone();
    // Any other state did no work: the record is saved as it stands.

    if (!UtilManageUpdateState()) {
        LogLine(L"%s: not ready to run update", tag);
        return false;
    }
    return true;
}

bool UtilManageUpdateState()
{
    const wchar_t* tag = L"UtilManageUpdateState";
    UpdateRecord& r = g_updateRecord;
    LogLine(L"%s: Update key: %s current state: %s result:%s", tag, r.sUpdateKey.c_str(),
            stateStr(r.nState).c_str(), r.sResult.c_str());

    if (r.nState == STATE_DOWNLOAD) {
        if (resultIs(L"OK") || resultIs(L"PROGRESS"))
            r.nState = STATE_WAIT;
    } else if (r.nState == STATE_UPDATING) {
        if (resultIs(L"OK")) {
            r.nState = STATE_DONE;
            r.nRetry = 0;
        } else if (resultIs(L"PROGRESS")) {
            r.nState = STATE_WAIT;
        }
    }

    // Both always run; the legacy writer answers true when there is no
    // legacy job, so a failure under the new root alone stays in its own line.
    bool savedNew = UtilUpdateStateRegistry();
    bool savedLegacy = UtilUpdateStateRegistry_Legacy();
    if (!savedNew && !savedLegacy) {
        LogLine(L"%s: registry update failed", tag);
        return false;
    }

    LogLine(L"%s: Update key: %s new state: %s result: %s", tag, r.sUpdateKey.c_str(), stateStr(r.nState).c_str(),
            r.sResult.c_str());
    return true;
}
