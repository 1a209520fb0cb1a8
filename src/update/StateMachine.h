#pragma once
#include <cstdint>

#include "update/RunResult.h"

// Counts one more attempt; false when the count is now past the limit.
bool UtilTryAgain(std::int32_t limit);
// Turns a run's outcome into the job's state, result text and retry count,
// and saves them. Called once per run.
bool Util_UpdateDone(RunResult result, bool legacyWorkflow);
// The last rules on state and result, then the save under both roots.
bool UtilManageUpdateState();

// Removing the fetched payload after an update (UtilCleanupWorkspace) is the
// workspace's work, a layer above this one: the program hands it down at
// start-up. Without one, a clean-up counts as failed.
using WorkspaceCleanup = bool (*)();
// Gives back the one it replaces.
WorkspaceCleanup SetWorkspaceCleanup(WorkspaceCleanup cleanup);
