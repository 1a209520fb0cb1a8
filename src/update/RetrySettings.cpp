#include "update/RetrySettings.h"

#include <cwchar>

#include "registry/Policy.h"
#include "registry/Registry.h"
#include "update/UpdateRecordReader.h"

using CORE::corestring;

// Constant-initialised, so the defaults stand before any static initialiser runs.
constinit std::int32_t maxRetry = 2;
constinit std::uint32_t retryWaitMs = 300000;

void ReadRetrySettings()
{
    const corestring retryDefault(L"2");
    const corestring waitDefault(L"300000");

    // Beside the job keys under the new root only; never the legacy root.
    corestring base = GetNewRootKeyPath();
    base.append(L"\\Agent\\Update\\");
    corestring retryPath(base);
    retryPath.append(L"MAXDOWNLOADANDUPGRADERETRY");
    corestring waitPath(base);
    waitPath.append(L"RetryWaitPeriod");

    // What the registry holds is used as it stands: no clamp, "abc" is 0.
    maxRetry = std::wcstol(ParseNumberText(PolicyReadOrDefault(retryPath.c_str(), retryDefault.c_str())).c_str(),
                           nullptr, 0);
    retryWaitMs = std::wcstoul(ParseNumberText(PolicyReadOrDefault(waitPath.c_str(), waitDefault.c_str())).c_str(),
                               nullptr, 0);
}
