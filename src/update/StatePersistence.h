#pragma once
// Writing the job's state back under the new and the legacy root.
#include "core/string/corestring.h"

bool UtilUpdateStateRegistry();
bool UtilUpdateStateRegistry_Legacy();
// A REG_SZ in a key created volatile, so it is gone after the next restart.
// Both arguments are emptied whatever the outcome.
bool Util_WriteVolatileValue(CORE::corestring&& value, CORE::corestring&& path);
bool Util_UpdatePreflightCheckCompleteReg(bool complete);
