#pragma once
// The job as the tool holds it for one run. One process-wide instance.
#include <cstdint>

#include "core/string/corestring.h"

using CORE::corestring;
using CORE::StringList;

struct UpdateRecord {
    std::uint32_t nState = 1;  // UpdateState; READY until "STATE" says otherwise
    std::int32_t nRetry = 0;
    bool bLegacyUpgrade = false;
    bool rebootRequired = false;
    corestring sUpdateKey;
    corestring sAgent;
    corestring sVersion;
    StringList sURLs;
    corestring sUNC;
    corestring sShareType;
    StringList sProxies;
    corestring sPacUrl;
    corestring sArch;
    corestring sMetadata;
    corestring sOptions;
    corestring sResult;
    corestring sCheckSum;
    corestring sFileSize;
    corestring sCertType;
    StringList sThumbprints;
    corestring sFileName;
    corestring sWorkspace;
    corestring sPackageFileName;
    corestring sRelativeFolderPath;
    corestring sErrorCode;
    corestring sErrorDesc;
    corestring sFromVersion;
    corestring sToVersion;
};

extern UpdateRecord g_updateRecord;

// The active job's key below a root ("HKLM\..."): root + "\Agent\Update\" +
// sUpdateKey, with no value name behind it.
corestring JobKeyPath(const corestring& root);
