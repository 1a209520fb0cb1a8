#include "fetch/ShareCopy.h"

#include "fetch/FetchGate.h"

bool Util_UNCDownload()
{
    FetchGate gate = Util_FetchGate(L"Util_UNCDownload");
    if (gate != FetchGate::Fetch)
        return gate == FetchGate::Install;
    // The copy from the share comes with its own change; until then the run
    // ends here and the job keeps the result it had.
    return false;
}
