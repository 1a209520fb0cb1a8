#pragma once
// Finding the active job under the two roots and reading it into the record.
#include "core/NoCaseMap.h"
#include "core/string/corestring.h"
#include "update/UpdateRecord.h"

// The first job key, legacy root first; sets sUpdateKey and bLegacyUpgrade.
bool UtilGetActiveUpdate();
// Reads the active job's values into g_updateRecord.
bool UtilGetRegistry();
// Both, then publishes "AGENT", "VERSION", "ARCH", "OPTIONS", "FILENAME".
bool Util_GetUpdateState(NoCaseMap& map);

// Trimmed, and leading zeros behind an optional sign dropped while a digit
// follows, so that base 0 never reads octal.
CORE::corestring ParseNumberText(const CORE::corestring& text);
