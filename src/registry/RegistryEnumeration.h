#pragma once
// Enumeration of one key: its subkey names, or all of its values as text.
#include "core/NoCaseMap.h"
#include "core/string/corestring.h"

// keyPath: a full key path in the registry path syntax, no value name.
void RegistryListSubkeys(CORE::StringList& list, const wchar_t* keyPath, bool use32BitView);
void RegistryReadAllValues(NoCaseMap& map, const wchar_t* keyPath, bool use32BitView);
