#pragma once
// The client's settings: fixed defaults that an administrator may override
// with values under HKLM\Software\Tarvelle\Zenthra\DeliveryClient.
#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

namespace mirel {

struct Settings {
    std::uint32_t resolveTimeoutSeconds = 30;
    std::uint32_t connectTimeoutSeconds = 30;
    std::uint32_t sendTimeoutSeconds = 30;
    std::uint32_t responseTimeoutSeconds = 60;  // from the request to the answer's headers
    std::uint32_t stallTimeoutSeconds = 60;     // no byte of the body for this long ends the attempt
    std::uint32_t attemptTimeoutSeconds = 0;    // a whole attempt's limit; 0: none but the others
    bool checkRevocation = false;
};

// The registry key (below HKEY_LOCAL_MACHINE, 64-bit view) and its values.
extern const wchar_t* const kSettingsKey;

struct SettingRule {
    const wchar_t* name;
    std::uint32_t minimum;
    std::uint32_t maximum;
    std::uint32_t Settings::*field;  // null for the flag
};
const std::vector<SettingRule>& settingRules();

// One value as the registry holds it: REG_DWORD, or REG_SZ with a decimal
// number. False with `why` when the type, the text or the range is wrong;
// the default then stays.
bool parseSettingValue(const SettingRule& rule, std::uint32_t type, const std::vector<std::uint8_t>& data,
                       std::uint32_t& value, std::string& why);

// One line per value found: "StallTimeoutSeconds = 5" or why it was ignored.
struct SettingsReport {
    std::vector<std::string> taken;
    std::vector<std::string> ignored;
};

// Applies a value by name to `settings` (the flag's value is 0 or 1).
void applySetting(Settings& settings, const SettingRule& rule, std::uint32_t value);

// Reads the registry's overrides over the defaults: from HKEY_LOCAL_MACHINE
// \kSettingsKey, or from any key (the unit tests use one of their own).
Settings loadSettings(SettingsReport& report);
Settings loadSettingsFrom(HKEY root, const wchar_t* subkey, SettingsReport& report);

}  // namespace mirel
