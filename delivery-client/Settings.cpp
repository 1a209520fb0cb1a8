#include "Settings.h"

#include <windows.h>

#include "TextUtil.h"

namespace mirel {

const wchar_t* const kSettingsKey = L"Software\\Tarvelle\\Zenthra\\DeliveryClient";

const std::vector<SettingRule>& settingRules()
{
    static const std::vector<SettingRule> rules = {
        {L"ResolveTimeoutSeconds", 1, 3600, &Settings::resolveTimeoutSeconds},
        {L"ConnectTimeoutSeconds", 1, 3600, &Settings::connectTimeoutSeconds},
        {L"SendTimeoutSeconds", 1, 3600, &Settings::sendTimeoutSeconds},
        {L"ResponseTimeoutSeconds", 1, 3600, &Settings::responseTimeoutSeconds},
        {L"StallTimeoutSeconds", 1, 3600, &Settings::stallTimeoutSeconds},
        {L"AttemptTimeoutSeconds", 0, 7 * 24 * 3600, &Settings::attemptTimeoutSeconds},
        {L"CheckRevocation", 0, 1, nullptr},
    };
    return rules;
}

bool parseSettingValue(const SettingRule& rule, std::uint32_t type, const std::vector<std::uint8_t>& data,
                       std::uint32_t& value, std::string& why)
{
    std::uint64_t number = 0;
    if (type == REG_DWORD) {
        if (data.size() != 4) {
            why = "a REG_DWORD of " + std::to_string(data.size()) + " bytes";
            return false;
        }
        number = static_cast<std::uint64_t>(data[0]) | static_cast<std::uint64_t>(data[1]) << 8 |
                 static_cast<std::uint64_t>(data[2]) << 16 | static_cast<std::uint64_t>(data[3]) << 24;
    } else if (type == REG_SZ) {
        if (data.size() % 2 != 0) {
            why = "a REG_SZ of an odd number of bytes";
            return false;
        }
        std::wstring text;
        for (std::size_t i = 0; i + 1 < data.size(); i += 2) {
            const wchar_t c = static_cast<wchar_t>(data[i] | data[i + 1] << 8);
            if (c == L'\0')
                break;
            text.push_back(c);
        }
        const std::string narrow = wideToUtf8(text);
        if (!parseDecimal(narrow, number)) {
            why = "the text \"" + forLog(narrow, 40) + "\" is not a decimal number";
            return false;
        }
    } else {
        why = "type " + std::to_string(type) + " (a REG_DWORD or a REG_SZ number is taken)";
        return false;
    }
    if (number < rule.minimum || number > rule.maximum) {
        why = std::to_string(number) + " is outside " + std::to_string(rule.minimum) + ".." +
              std::to_string(rule.maximum);
        return false;
    }
    value = static_cast<std::uint32_t>(number);
    return true;
}

void applySetting(Settings& settings, const SettingRule& rule, std::uint32_t value)
{
    if (rule.field)
        settings.*(rule.field) = value;
    else
        settings.checkRevocation = value != 0;
}

Settings loadSettings(SettingsReport& report) { return loadSettingsFrom(HKEY_LOCAL_MACHINE, kSettingsKey, report); }

Settings loadSettingsFrom(HKEY root, const wchar_t* subkey, SettingsReport& report)
{
    Settings settings;
    HKEY key = nullptr;
    if (::RegOpenKeyExW(root, subkey, 0, KEY_QUERY_VALUE | KEY_WOW64_64KEY, &key) != ERROR_SUCCESS)
        return settings;
    for (const SettingRule& rule : settingRules()) {
        DWORD type = 0;
        DWORD size = 0;
        if (::RegQueryValueExW(key, rule.name, nullptr, &type, nullptr, &size) != ERROR_SUCCESS)
            continue;
        const std::string name = wideToUtf8(rule.name);
        if (size > 256) {
            report.ignored.push_back(name + ": a value of " + std::to_string(size) + " bytes");
            continue;
        }
        std::vector<std::uint8_t> data(size);
        if (::RegQueryValueExW(key, rule.name, nullptr, &type, data.data(), &size) != ERROR_SUCCESS)
            continue;
        data.resize(size);
        std::uint32_t value = 0;
        std::string why;
        if (!parseSettingValue(rule, type, data, value, why)) {
            report.ignored.push_back(name + ": " + why);
            continue;
        }
        applySetting(settings, rule, value);
        report.taken.push_back(name + " = " + std::to_string(value));
    }
    ::RegCloseKey(key);
    return settings;
}

}  // namespace mirel
