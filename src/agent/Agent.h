#pragma once
#include "core/string/corestring.h"

// True when the machine's native processor is 64-bit (AMD64). Set during
// static initialisation by Agent::IsHostX64, before wmain runs.
extern bool isHostX64;

// One installable product as the update run sees it.
class Agent {
public:
    virtual ~Agent() = default;
    // Asks the platform for the native architecture and logs it; the
    // process-wide flag is set from its result.
    static bool IsHostX64();
};
