// Preflight rules that administrators keep in the registry: each looks at a
// key, or at one value of it, and names an action.
#include <algorithm>

#include "app/App.h"
#include "core/log/LogLine.h"
#include "registry/Registry.h"
#include "registry/RegistryEnumeration.h"
#include "update/UpdateRecord.h"
#include "update/UpdateRecordReader.h"

using CORE::keywordEquals;

bool PreflightActionOrder::operator()(const corestring& a, const corestring& b) const
{
    return CORE::corestring_text<wchar_t>::compare(0, a.c_str(), static_cast<int>(a.length()), b.c_str(),
                                                   static_cast<int>(b.length())) == CSTR_LESS_THAN;
}

namespace {

// Equal but for case over the texts' whole lengths, so the terminators
// inside a multi-string count as characters.
bool sameTextNoCase(const corestring& a, const corestring& b)
{
    int n = static_cast<int>(std::min(a.length(), b.length()) + 1);
    return CORE::corestring_text<wchar_t>::compare(NORM_IGNORECASE, a.c_str(), n, b.c_str(), n) == CSTR_EQUAL;
}

corestring rulesKey(corestring root)
{
    root.append(L"\\Agent\\PreflightChecks\\");
    return root;
}

}  // namespace

PreflightActions& App::performRegistryBasedChecks(PreflightActions& actions)
{
    const wchar_t* tag = L"App::performRegistryBasedChecks";
    // Rule names come from the root the job is not under, their values
    // always from the new root: for a job under the new root a rule works
    // only when its key stands under both roots.
    corestring namesKey = rulesKey(g_updateRecord.bLegacyUpgrade ? GetNewRootKeyPath() : GetLegacyRootKeyPath());
    CORE::StringList names;
    RegistryListSubkeys(names, namesKey.c_str(), false);

    for (const corestring& name : names) {
        LogLine(L"%s: processing preflight check key [%s]", tag, name.c_str());
        corestring valuesKey = rulesKey(GetNewRootKeyPath());
        valuesKey.append(name);
        valuesKey.append(L"\\");
        NoCaseMap values;
        RegistryReadAllValues(values, valuesKey.c_str(), false);
        if (values.empty())
            continue;

        corestring keyPath = values.get(L"KeyPath");
        if (keyPath.empty() || !RegistryKeyExists(keyPath)) {
            LogLine(L"%s: preflight check, unable to read keypath for check: [%s], no action", tag, name.c_str());
            continue;
        }

        // A rule fires either on its key alone or on one value of it.
        corestring keyPresentAction = values.get(L"KeyPresentAction");
        corestring action = !keyPresentAction.empty() ? getPreflightCheckAction(keyPresentAction)
                                                      : getValueMatchAction(values);
        LogLine(L"%s: preflight check [%s], action [%s] is added", tag, name.c_str(), action.c_str());
        actions.insert(action);
    }
    return actions;
}

corestring App::getPreflightCheckAction(const corestring& text)
{
    if (text.empty())
        return corestring(L"NONE");
    if (keywordEquals(text.c_str(), L"REBOOT", true))
        return corestring(L"REBOOT");
    if (keywordEquals(text.c_str(), L"ERROR", true))
        return corestring(L"ERROR");
    // "NONE" written out lands here too.
    LogLine(L"%s: invalid action [%s]", L"App::getPreflightCheckAction", text.c_str());
    return corestring(L"NONE");
}

corestring App::getValueMatchAction(NoCaseMap values)
{
    const wchar_t* tag = L"App::getValueMatchAction";
    corestring keyPath = values.get(L"KeyPath");
    corestring matchAction = values.get(L"ValueMatchAction");
    if (matchAction.empty()) {
        LogLine(L"%s: no value match action defined", tag);
        return corestring(L"NONE");
    }
    corestring valueName = values.get(L"ValueName");
    corestring expected = values.get(L"ExpectedValue");

    // An empty value name leaves a trailing backslash: the key's default value.
    corestring path = ShortenHiveNames(keyPath);
    path.append(L"\\");
    path.append(valueName);
    corestring actual = RegistryReadOrDefault(path.c_str(), L"");

    // No rule can test for an empty value.
    if (expected.empty())
        return corestring(L"NONE");
    if (!sameTextNoCase(expected, actual))
        return corestring(L"NONE");
    LogLine(L"%s: preflight check [%s], value matches, adding an action [%s] to process", tag, keyPath.c_str(),
            matchAction.c_str());
    return getPreflightCheckAction(matchAction);
}
