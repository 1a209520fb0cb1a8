// Settings that group policy may override: the new brand's policy tree, the
// legacy brand's policy tree (whose layout differs per component), then the
// ordinary value.
#include "registry/Policy.h"

#include <cwchar>

#include "platform/Handles.h"
#include "registry/Registry.h"

using platform::KeyHandle;

namespace {

constexpr wchar_t kProductSubkey[] = L"Software\\Tarvelle\\Zenthra";
constexpr std::uint64_t kProductSubkeyLength = sizeof(kProductSubkey) / sizeof(wchar_t) - 1;

// Open, read with the type filter, close. In HKEY_CURRENT_USER the user's
// own hive is opened first and closed with the key.
std::uint32_t attemptRead(corestring& out, HKEY hive, const corestring& subkey, const corestring& valueName,
                          std::uint32_t requiredType, REGSAM rights, LSTATUS& lastOpenStatus)
{
    platform::KeyStore& keys = platform::keys();
    KeyHandle user;
    HKEY parent = hive;
    if (hive == HKEY_CURRENT_USER) {
        lastOpenStatus = keys.RegOpenCurrentUser(rights, user.out());
        if (lastOpenStatus != ERROR_SUCCESS)
            return kRegReadFailed;
        parent = user.get();
    }
    KeyHandle key;
    lastOpenStatus = keys.RegOpenKeyExW(parent, subkey.c_str(), 0, rights, key.out());
    if (lastOpenStatus != ERROR_SUCCESS)
        return kRegReadFailed;
    return RegistryReadValue(out, key.get(), valueName.c_str(), requiredType);
}

bool fallbackToLegacyPolicy()
{
    corestring value = RegistryReadOrDefault(L"HKLM\\Software\\Policies\\Tarvelle\\Zenthra\\FallbackToLegacyGPO", L"");
    if (value.empty())
        value = RegistryReadOrDefault(L"HKLM\\Software\\Tarvelle\\Zenthra\\FallbackToLegacyGPO", L"true");
    return ParseBool(value);
}

}  // namespace

corestring TranslateToLegacyPolicy(const corestring& subkey)
{
    // A shorter subkey compares its terminator and so never matches.
    if (subkey.compareNoCase(kProductSubkey, kProductSubkeyLength) != 0)
        return corestring();

    corestring legacy(L"Software\\Policies\\Kesmarc, Inc.");
    if (subkey.length() == kProductSubkeyLength) {
        legacy.appendPath(L"Kesmarc TQM");
        return legacy;
    }

    const LegacyPolicyMap& table = LegacyPolicyTable();
    corestring behind = corestring::toBackslashes(subkey.mid(kProductSubkeyLength + 1, corestring::npos).c_str());
    std::uint64_t split = behind.findChar(L'\\');
    corestring first = behind.left(split);
    corestring rest = split == corestring::npos ? corestring() : behind.mid(split + 1, corestring::npos);
    if (!first.empty())
        CORE::corestring_text<wchar_t>::lower(&first.charAtForWrite(0), static_cast<std::uint32_t>(first.length()));

    auto row = table.find(first);
    if (row == table.end())
        return corestring();
    legacy.appendPath(row->second.c_str());
    if (!rest.empty())
        legacy.appendPath(rest.c_str());
    return legacy;
}

std::uint32_t PolicyRead(corestring& out, const wchar_t* path, std::uint32_t requiredType, bool use32BitRegistry,
                         corestring* usedPath)
{
    corestring subkey;
    corestring valueName;
    HKEY hive = ParseRegistryPath(path, subkey, valueName);
    if (!hive) {
        out = corestring();
        ::SetLastError(ERROR_PATH_NOT_FOUND);
        return kRegReadFailed;
    }

    // "Software\X\Y" -> "Software\Policies\X\Y"
    std::uint64_t split = subkey.findChar(L'\\');
    corestring policySubkey = subkey.left(split);
    policySubkey.append(L"\\Policies\\");
    if (split != corestring::npos)
        policySubkey.append(subkey.c_str() + split + 1);

    const REGSAM rights = use32BitRegistry ? KEY_QUERY_VALUE | KEY_WOW64_32KEY : KEY_QUERY_VALUE;
    const bool inUserHive = hive == HKEY_CURRENT_USER;
    LSTATUS lastOpenStatus = ERROR_SUCCESS;

    auto attempt = [&](HKEY place, const corestring& placeSubkey, std::uint32_t& type) {
        type = attemptRead(out, place, placeSubkey, valueName, requiredType, rights, lastOpenStatus);
        if (type == kRegReadFailed)
            return false;
        if (usedPath) {
            // Whatever the hive, anything but the machine's is shown as the user's.
            *usedPath = corestring(place == HKEY_LOCAL_MACHINE ? L"HKLM" : L"HKCU");
            usedPath->appendPath(placeSubkey.c_str());
            usedPath->appendPath(valueName.c_str());
        }
        return true;
    };

    std::uint32_t type = kRegReadFailed;
    if (attempt(hive, policySubkey, type))
        return type;

    // The switch is read afresh each time, so an administrator's change
    // applies at the next read.
    corestring legacySubkey;
    if (fallbackToLegacyPolicy()) {
        legacySubkey = TranslateToLegacyPolicy(subkey);
        if (!legacySubkey.empty() && attempt(hive, legacySubkey, type))
            return type;
    }

    if (inUserHive) {
        if (attempt(HKEY_LOCAL_MACHINE, policySubkey, type))
            return type;
        if (!legacySubkey.empty() && attempt(HKEY_LOCAL_MACHINE, legacySubkey, type))
            return type;
    }

    if (attempt(hive, subkey, type))
        return type;
    if (inUserHive && attempt(HKEY_LOCAL_MACHINE, subkey, type))
        return type;

    // The last open's failure, or, if it opened, the failed read's own error.
    DWORD error = lastOpenStatus != ERROR_SUCCESS ? static_cast<DWORD>(lastOpenStatus) : ::GetLastError();
    out = corestring();
    ::SetLastError(error);
    return kRegReadFailed;
}

corestring PolicyReadOrDefault(const wchar_t* path, const wchar_t* defaultText, bool use32BitRegistry)
{
    corestring value;
    if (PolicyRead(value, path, kRegAnyType, use32BitRegistry, nullptr) == kRegReadFailed)
        return corestring(defaultText);
    return value;
}
