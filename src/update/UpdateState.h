#pragma once
#include <cstdint>

#include "core/string/corestring.h"

// The six states of a job; 0 is a "STATE" text that wasn't understood.
enum UpdateState : std::uint32_t {
    STATE_UNKNOWN = 0,
    STATE_READY = 1,
    STATE_DOWNLOAD = 2,
    STATE_WAIT = 3,
    STATE_NOLOGON = 4,
    STATE_UPDATING = 5,
    STATE_DONE = 6,
};

// Exact but for case; an unknown text is logged and gives 0.
std::uint32_t UtilStateId(const wchar_t* text);
// The name of ids 1 to 6; any other id is logged and gives an empty text.
CORE::corestring stateStr(std::uint32_t id);
