#pragma once
// Registry access by one full path ("HKLM\Software\...\ValueName"); every
// value comes back as text whatever its type.
#include <cstdint>

#include "core/string/corestring.h"
#include "core/win.h"

using CORE::corestring;

// A requested type of all ones means any type; a returned one means failure.
constexpr std::uint32_t kRegAnyType = 0xFFFFFFFFu;
constexpr std::uint32_t kRegReadFailed = 0xFFFFFFFFu;

HKEY ParseRegistryPath(const wchar_t* path, corestring& subkey, corestring& valueName);
std::uint32_t RegistryReadValue(corestring& out, HKEY key, const wchar_t* name, std::uint32_t requiredType);
std::uint32_t RegistryRead(corestring& out, const wchar_t* path, std::uint32_t requiredType, bool use32BitRegistry);
corestring RegistryReadOrDefault(const wchar_t* path, const wchar_t* defaultText, bool use32BitRegistry = false);
bool RegistryWrite(const corestring& value, const wchar_t* path, std::uint32_t type, bool use32BitRegistry, bool flush);
bool RegistryKeyExists(corestring path);
corestring ShortenHiveNames(corestring path);
bool Util_DeleteRegistryIfExists(corestring path);
corestring GetNewRootKeyPath();
corestring GetLegacyRootKeyPath();
bool ParseBool(const corestring& text);
// Replaces %NAME% references by the environment's values, as a
// REG_EXPAND_SZ read does; the text stands when there is no expansion.
void RegistryExpandText(corestring& text);
