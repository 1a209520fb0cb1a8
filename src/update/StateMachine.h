#pragma once
#include "app/RunResult.h"

// Turns a run's outcome into the job's state, result text and retry count.
bool Util_UpdateDone(RunResult result, bool legacyWorkflow);
