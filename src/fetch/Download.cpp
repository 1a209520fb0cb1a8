#include "fetch/Download.h"

#include "diagnostics/ToolLog.h"
#include "update/UpdateRecord.h"
#include "update/UpdateState.h"

bool Util_DoDownload()
{
    const wchar_t* tag = L"Util_DoDownload";
    const UpdateRecord& r = g_updateRecord;
    LogLine(L"%s: Update key: %s state: %s", tag, r.sUpdateKey.handle(), stateStr(r.nState).handle());
    // The download happened in an earlier run: on to the install.
    if (r.nState == STATE_UPDATING)
        return true;
    if (r.nState != STATE_DOWNLOAD)
        return false;
    // The download through the delivery client comes with its own change;
    // until then the run ends here and the job keeps the result it had.
    return false;
}
