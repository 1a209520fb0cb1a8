// Finding the job under the two roots and reading it into the record.
#include "update/UpdateRecordReader.h"

#include <cwchar>

#include "core/log/LogLine.h"
#include "core/propertybag.h"
#include "registry/Registry.h"
#include "registry/RegistryEnumeration.h"
#include "update/UpdateState.h"

using CORE::corestring;
using CORE::StringList;

namespace {

corestring updateKeyOf(const corestring& root)
{
    corestring path(root);
    path.append(L"\\Agent\\Update\\");
    return path;
}

// A list value is cut at every NUL; empty pieces go, a last piece without
// a terminator stays.
StringList splitAtNul(const corestring& text)
{
    StringList items;
    const wchar_t* p = text.c_str();
    const std::uint64_t length = text.length();
    std::uint64_t start = 0;
    for (std::uint64_t i = 0; i <= length; ++i) {
        if (i == length || p[i] == L'\0') {
            if (i > start)
                items.emplace_back(p + start, i - start);
            start = i + 1;
        }
    }
    return items;
}

corestring joinWithCommas(const StringList& items)
{
    corestring joined;
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i)
            joined.append(L",");
        joined.append(items[i]);
    }
    return joined;
}

}  // namespace

bool UtilGetActiveUpdate()
{
    const wchar_t* tag = L"UtilGetActiveUpdate";
    UpdateRecord& record = g_updateRecord;

    // A job left by the former brand's agent is finished first.
    StringList keys;
    RegistryListSubkeys(keys, updateKeyOf(GetLegacyRootKeyPath()).c_str(), false);
    if (!keys.empty()) {
        record.bLegacyUpgrade = true;
        LogLine(L"%s: Kesmarc to Tarvelle agent upgrade detected", tag);
    } else {
        LogLine(L"%s: No Kesmarc active updates", tag);
        LogLine(L"%s: Check for Tarvelle active updates", tag);
        RegistryListSubkeys(keys, updateKeyOf(GetNewRootKeyPath()).c_str(), false);
        if (keys.empty()) {
            LogLine(L"%s: No Tarvelle active updates", tag);
            record.sUpdateKey = corestring();
            return false;
        }
    }
    // One job per run: the first in the platform's order.
    record.sUpdateKey = keys.front();
    LogLine(L"%s: Update key: %s", tag, record.sUpdateKey.c_str());
    return !record.sUpdateKey.empty();
}

bool UtilGetRegistry()
{
    const wchar_t* tag = L"UtilGetRegistry";
    UpdateRecord& record = g_updateRecord;
    if (record.sUpdateKey.empty())
        return false;

    // Only the root the job was found under is read.
    corestring path = updateKeyOf(record.bLegacyUpgrade ? GetLegacyRootKeyPath() : GetNewRootKeyPath());
    path.append(record.sUpdateKey);
    NoCaseMap values;
    RegistryReadAllValues(values, path.c_str(), false);
    if (values.empty()) {
        if (record.bLegacyUpgrade)
            LogLine(L"%s: Kesmarc Update key: %s empty key", tag, record.sUpdateKey.c_str());
        else
            LogLine(L"%s: Tarvelle Update key: %s empty key", tag, record.sUpdateKey.c_str());
        return false;
    }
    for (const NoCaseMap::Entry& entry : values.entries())
        LogLine(L"Update key: %s %s = %s", record.sUpdateKey.c_str(), entry.first.c_str(), entry.second.c_str());

    if (const corestring* state = values.find(L"STATE"))
        record.nState = UtilStateId(state->c_str());

    record.sAgent = values.get(L"AGENT");
    record.sVersion = values.get(L"VERSION");
    record.sUNC = values.get(L"UNC_PATH");
    record.sShareType = values.get(L"UNC_SHARETYPE");
    if (!record.sUNC.empty() && record.sShareType.empty())
        record.sShareType = L"SMB";

    record.sURLs.clear();
    if (const corestring* urls = values.find(L"URL")) {
        record.sURLs = splitAtNul(*urls);
        LogLine(L"%s: URL length: %d [%s]", tag, static_cast<int>(urls->length()),
                joinWithCommas(record.sURLs).c_str());
    }
    record.sProxies.clear();
    if (const corestring* proxies = values.find(L"PROXY")) {
        record.sProxies = splitAtNul(*proxies);
        LogLine(L"%s: Proxy length: %d [%s]", tag, static_cast<int>(proxies->length()),
                joinWithCommas(record.sProxies).c_str());
    }

    record.sPacUrl = values.get(L"PACURL");
    record.sArch = values.get(L"ARCH");

    if (record.sAgent.empty() || (record.sUNC.empty() && record.sURLs.empty())) {
        LogLine(L"%s: required parameter empty, sAgent: %s, sUNC: %s, sURLs: %s", tag, record.sAgent.c_str(),
                record.sUNC.c_str(), joinWithCommas(record.sURLs).c_str());
        return false;
    }

    record.sMetadata = values.get(L"METADATA");
    CORE::PropertyBag metadata;
    // A metadata text that doesn't parse leaves the bag empty, silently.
    if (!record.sMetadata.empty() && metadata.Parse(record.sMetadata.c_str(), true, 0))
        LogLine(L"%s: matadata XML string loaded", tag);

    record.sCheckSum = values.get(L"CHECKSUM");
    record.sFileSize = values.get(L"FILESIZE");
    record.sCertType = values.get(L"CERTTYPE");

    record.sThumbprints.clear();
    if (metadata.Count() > 0) {
        corestring thumbprint;
        for (std::uint64_t next = metadata.Get(L"THUMBPRINT", thumbprint, 0); next != 0;
             next = metadata.Get(L"THUMBPRINT", thumbprint, next))
            record.sThumbprints.push_back(thumbprint);
    }

    record.sOptions = values.get(L"OPTIONS");
    record.sResult = values.get(L"RESULT");
    record.sFileName = values.get(L"FILENAME");
    record.sPackageFileName = values.get(L"PACKAGEFILENAME");
    record.sRelativeFolderPath = values.get(L"RELATIVEFOLDERPATH");

    if (const corestring* retry = values.find(L"RETRY"))
        record.nRetry = std::wcstol(ParseNumberText(*retry).c_str(), nullptr, 0);
    return true;
}

bool Util_GetUpdateState(NoCaseMap& map)
{
    if (!UtilGetActiveUpdate())
        return false;
    if (!UtilGetRegistry()) {
        LogLine(L"%s: Update key: %s Registry failure", L"Util_GetUpdateState", g_updateRecord.sUpdateKey.c_str());
        return false;
    }
    map.set(L"AGENT", g_updateRecord.sAgent);
    map.set(L"VERSION", g_updateRecord.sVersion);
    map.set(L"ARCH", g_updateRecord.sArch);
    map.set(L"OPTIONS", g_updateRecord.sOptions);
    map.set(L"FILENAME", g_updateRecord.sFileName);
    return true;
}

CORE::corestring ParseNumberText(const CORE::corestring& text)
{
    // The string's own rule: trimmed, leading zeros gone while a digit follows.
    return text.normalizeNumber();
}
