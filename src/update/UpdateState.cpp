#include "update/UpdateState.h"

#include <iterator>

#include "core/log/LogLine.h"

using CORE::corestring;

namespace {

// Index = id - 1; the order is also the order of the comparisons.
const wchar_t* const kStateNames[] = {L"READY", L"DOWNLOAD", L"WAIT", L"NOLOGON", L"UPDATING", L"DONE"};

}  // namespace

std::uint32_t UtilStateId(const wchar_t* text)
{
    for (std::uint32_t i = 0; i < std::size(kStateNames); ++i)
        if (CORE::keywordEquals(text, kStateNames[i], true))
            return i + 1;
    LogLine(L"%s: invalid state: %s", L"UtilStateId", text);
    return STATE_UNKNOWN;
}

corestring stateStr(std::uint32_t id)
{
    if (id >= STATE_READY && id <= STATE_DONE)
        return corestring(kStateNames[id - 1]);
    LogLine(L"%s: invalid state: %d", L"stateStr", id);
    return corestring();
}
