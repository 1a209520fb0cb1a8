#include "fetch/FetchGate.h"

#include "core/log/LogLine.h"
#include "update/UpdateRecord.h"
#include "update/UpdateState.h"

FetchGate Util_FetchGate(const wchar_t* tag)
{
    const UpdateRecord& r = g_updateRecord;
    LogLine(L"%s: Update key: %s state: %s", tag, r.sUpdateKey.c_str(), stateStr(r.nState).c_str());
    if (r.nState == STATE_UPDATING)
        return FetchGate::Install;
    if (r.nState != STATE_DOWNLOAD)
        return FetchGate::Stop;
    return FetchGate::Fetch;
}
