#include "update/RunResult.h"

using CORE::corestring;

corestring GetRunResultName(RunResult code)
{
    struct Row {
        RunResult code;
        const wchar_t* name;
    };
    // -8 has no name on purpose.
    static const Row table[] = {
        {0, L"ERR_SUCCESS"},
        {-1, L"ERR_FAILURE"},
        {-2, L"ERR_KILLSWITCH"},
        {-3, L"ERR_DUPLICATE"},
        {-4, L"ERR_NOAGENT"},
        {-5, L"ERR_LAUNCH"},
        {-6, L"ERR_INCOMPATIBLE"},
        {-7, L"ERR_REBOOT"},
        {-9, L"ERR_PREFLIGHTCHECK_OK"},
        {-10, L"ERR_PREFLIGHTCHECK_FAILED"},
        {-11, L"ERR_PREFLIGHTCHECK_REBOOT"},
        {-12, L"ERR_PREFLIGHTCHECK_INSUFFICIENT_DISK"},
        {-13, L"ERR_PREFLIGHTCHECK_UPDATE_INPROGRESS"},
        {-14, L"ERR_PREFLIGHTCHECK_INVALID_UNC_PATH"},
    };
    for (const Row& row : table)
        if (row.code == code)
            return corestring(row.name);
    corestring name;
    return corestring::format(name, L"Update ERR_%d", code);
}
