#pragma once
// Reads of settings that group policy of either brand may override.
#include <cstdint>
#include <map>
#include <span>

#include "core/string/corestring.h"

using CORE::corestring;

// Component (lower case, first subkey under the new-brand root) -> its
// subkey below the legacy policy base.
using LegacyPolicyMap = std::map<corestring, corestring>;
const LegacyPolicyMap& LegacyPolicyTable();

// The rows the table is built from, in the order they are written down.
struct LegacyPolicyRow {
    const wchar_t* component;
    const wchar_t* legacyPath;
};
std::span<const LegacyPolicyRow> LegacyPolicyRows();

corestring TranslateToLegacyPolicy(const corestring& subkey);
std::uint32_t PolicyRead(corestring& out, const wchar_t* path, std::uint32_t requiredType, bool use32BitRegistry,
                         corestring* usedPath);
corestring PolicyReadOrDefault(const wchar_t* path, const wchar_t* defaultText, bool use32BitRegistry = false);
