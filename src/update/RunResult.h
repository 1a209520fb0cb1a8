#pragma once
#include <cstdint>

#include "core/string/corestring.h"

// The outcome of a run, and the process exit code. Even the good ends are
// negative; the job's state in the registry is the truth.
using RunResult = std::int32_t;

constexpr RunResult ERR_SUCCESS = 0;
constexpr RunResult ERR_FAILURE = -1;
constexpr RunResult ERR_KILLSWITCH = -2;
constexpr RunResult ERR_DUPLICATE = -3;
constexpr RunResult ERR_NOAGENT = -4;
constexpr RunResult ERR_LAUNCH = -5;
constexpr RunResult ERR_INCOMPATIBLE = -6;
constexpr RunResult ERR_REBOOT = -7;
constexpr RunResult ERR_PREFLIGHTCHECK_OK = -9;
constexpr RunResult ERR_PREFLIGHTCHECK_FAILED = -10;
constexpr RunResult ERR_PREFLIGHTCHECK_REBOOT = -11;
constexpr RunResult ERR_PREFLIGHTCHECK_INSUFFICIENT_DISK = -12;
constexpr RunResult ERR_PREFLIGHTCHECK_UPDATE_INPROGRESS = -13;
constexpr RunResult ERR_PREFLIGHTCHECK_INVALID_UNC_PATH = -14;

// The name of a code for log lines; "Update ERR_%d" outside the table.
CORE::corestring GetRunResultName(RunResult code);
