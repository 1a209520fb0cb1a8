#pragma once
#include "update/RunResult.h"

// The run of one job, from the kill switch to the exit code.
RunResult RunUpdateTool();
// The kill switch: "Enabled" under the new root (policy-aware), read twice.
bool IsUpdateToolEnabled();
// The legacy workflow's marker that the first half has run.
bool IsPreflightCheckComplete();
// The program's own file name without its folder; empty when the platform
// can't tell.
CORE::corestring ProgramFileName();
// The platform check of a job's "ARCH" against the host.
RunResult CheckPlatform(const CORE::corestring& arch, bool hostX64);
