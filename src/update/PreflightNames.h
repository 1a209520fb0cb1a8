#pragma once
#include "core/string/corestring.h"
#include "update/RunResult.h"

// The text a preflight failure leaves in "ERRORCODE"; empty for other codes.
CORE::corestring GetPreflightErrorName(RunResult code);
