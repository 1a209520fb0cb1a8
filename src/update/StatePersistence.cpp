#include "update/StatePersistence.h"

#include <cwchar>

#include "core/log/LogLine.h"
#include "platform/Handles.h"
#include "platform/Services.h"
#include "registry/Registry.h"
#include "update/UpdateRecord.h"
#include "update/UpdateRecordReader.h"
#include "update/UpdateState.h"

using CORE::corestring;
using platform::KeyHandle;

namespace {

// The six values of the job key under one root, in the order of writing;
// STATE goes first so that a state is never saved behind another value.
bool writeStateUnder(const corestring& root, const wchar_t* tag)
{
    UpdateRecord& r = g_updateRecord;
    if (r.sUpdateKey.empty())
        return false;
    // Again before every write: a job key that has gone stops it.
    if (!UtilGetActiveUpdate())
        return false;

    if (r.rebootRequired) {
        corestring marker = root;
        marker.append(L"\\Agent\\UpdateStatusVolatile\\NeedReboot");
        if (!Util_WriteVolatileValue(corestring(L"1"), std::move(marker))) {
            LogLine(L"%s: failed to update NeedReboot in registry", tag);
            return false;
        }
    }

    corestring state = stateStr(r.nState);
    corestring retry;
    corestring::format(retry, L"%d", r.nRetry);

    corestring key = JobKeyPath(root);
    key.append(L"\\");

    // ERRORCODE and ERRORDESC report their failure with the FILENAME line.
    enum class Line { State, Result, FileName, Retry };
    struct Item {
        const wchar_t* name;
        const corestring& value;
        Line failure;
    };
    const Item items[] = {
        {L"STATE", state, Line::State},          {L"RESULT", r.sResult, Line::Result},
        {L"FILENAME", r.sFileName, Line::FileName}, {L"ERRORCODE", r.sErrorCode, Line::FileName},
        {L"ERRORDESC", r.sErrorDesc, Line::FileName}, {L"RETRY", retry, Line::Retry},
    };
    for (const Item& item : items) {
        corestring path = key;
        path.append(item.name);
        if (RegistryWrite(item.value, path.c_str(), REG_SZ, false, false))
            continue;
        const wchar_t* job = r.sUpdateKey.c_str();
        const wchar_t* value = item.value.c_str();
        switch (item.failure) {
        case Line::State:
            LogLine(L"%s: Update key: %s failed to update Registry. state: %s", tag, job, value);
            break;
        case Line::Result:
            LogLine(L"%s: Update key: %s failed to update Registry. Result: %s", tag, job, value);
            break;
        case Line::FileName:
            LogLine(L"%s: Update key: %s failed to update Registry. filename: %s", tag, job, value);
            break;
        case Line::Retry:
            LogLine(L"%s: Update key: %s failed to update Registry. retry: %s", tag, job, value);
            break;
        }
        return false;
    }
    return true;
}

}  // namespace

bool UtilUpdateStateRegistry() { return writeStateUnder(GetNewRootKeyPath(), L"UtilUpdateStateRegistry"); }

bool UtilUpdateStateRegistry_Legacy()
{
    const wchar_t* tag = L"UtilUpdateStateRegistry_Legacy";
    if (!g_updateRecord.bLegacyUpgrade) {
        LogLine(L"%s: No need to write to legacy Kesmarc key as not exist", tag);
        return true;
    }
    return writeStateUnder(GetLegacyRootKeyPath(), tag);
}

bool Util_WriteVolatileValue(corestring&& value, corestring&& path)
{
    // Taken over here, so the caller's strings are empty whatever happens.
    corestring text = std::move(value);
    corestring where = std::move(path);

    corestring subkey;
    corestring name;
    HKEY hive = ParseRegistryPath(where.c_str(), subkey, name);
    if (!hive)
        return false;

    platform::KeyStore& keys = platform::keys();
    KeyHandle key;
    if (keys.RegCreateKeyExW(hive, subkey.c_str(), REG_OPTION_VOLATILE, KEY_WRITE, key.out(), nullptr) !=
        ERROR_SUCCESS)
        return false;
    DWORD size = static_cast<DWORD>((text.length() + 1) * sizeof(wchar_t));
    return keys.RegSetValueExW(key.get(), name.c_str(), REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()), size) ==
           ERROR_SUCCESS;
}

bool Util_UpdatePreflightCheckCompleteReg(bool complete)
{
    const wchar_t* tag = L"Util_UpdatePreflightCheckCompleteReg";
    corestring text(complete ? L"1" : L"0");

    // Always the new root: the relaunch of a legacy workflow looks only there.
    corestring path = JobKeyPath(GetNewRootKeyPath());
    path.append(L"\\PreflightCheckComplete");

    bool written = RegistryWrite(text, path.c_str(), REG_DWORD, false, false);
    if (!written)
        LogLine(L"%s: Update key: %s failed to update preflightcheckcomplete flag for value: %s", tag,
                g_updateRecord.sUpdateKey.c_str(), text.c_str());
    return written;
}
