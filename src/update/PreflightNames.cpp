#include "update/PreflightNames.h"

using CORE::corestring;

corestring GetPreflightErrorName(RunResult code)
{
    // A rule's ERROR (-10) has no name of its own.
    switch (code) {
    case ERR_PREFLIGHTCHECK_INVALID_UNC_PATH:
        return corestring(L"PREFLIGHT_ERR_INVALID_UNC_PATH");
    case ERR_PREFLIGHTCHECK_UPDATE_INPROGRESS:
        return corestring(L"PREFLIGHT_ERR_WIN_UPDATE_INPROGRESS");
    case ERR_PREFLIGHTCHECK_INSUFFICIENT_DISK:
        return corestring(L"PREFLIGHT_ERR_INSUFFICIENT_DISKSPACE");
    case ERR_PREFLIGHTCHECK_REBOOT:
        return corestring(L"PREFLIGHT_ERR_REBOOT_PENDING");
    default:
        return corestring();
    }
}
