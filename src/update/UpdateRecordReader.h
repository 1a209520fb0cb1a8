#pragma once
// Finding the active job under the two roots and reading it into the record.
#include "core/string/corestring.h"
#include "update/NoCaseMap.h"
#include "update/UpdateRecord.h"

// The first job key, legacy root first; sets sUpdateKey and bLegacyUpgrade.
bool UtilGetActiveUpdate();
// Reads the active job's values into g_updateRecord.
bool UtilGetRegistry();
// Both, then publishes "AGENT", "VERSION", "ARCH", "OPTIONS", "FILENAME".
bool Util_GetUpdateState(NoCaseMap& map);

// keyPath: a full key path in the registry path syntax, no value name.
void RegistryListSubkeys(CORE::StringList& list, const wchar_t* keyPath, bool use32BitView);
void RegistryReadAllValues(NoCaseMap& map, const wchar_t* keyPath, bool use32BitView);
// Trimmed, and leading zeros behind an optional sign dropped while a digit
// follows, so that base 0 never reads octal.
CORE::corestring ParseNumberText(const CORE::corestring& text);
