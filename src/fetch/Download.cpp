#include "fetch/Download.h"

#include "fetch/FetchGate.h"

bool Util_DoDownload()
{
    FetchGate gate = Util_FetchGate(L"Util_DoDownload");
    if (gate != FetchGate::Fetch)
        return gate == FetchGate::Install;
    // The download through the delivery client comes with its own change;
    // until then the run ends here and the job keeps the result it had.
    return false;
}
