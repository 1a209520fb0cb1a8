#pragma once
#include "update/RunResult.h"
#include "core/string/corestring.h"

// The text a preflight failure leaves in "ERRORCODE"; empty for other codes.
CORE::corestring GetPreflightErrorName(RunResult code);
