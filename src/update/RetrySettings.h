#pragma once
#include <cstdint>

// Retries allowed for download and update ("MAXDOWNLOADANDUPGRADERETRY",
// default 2) and the wait between them ("RetryWaitPeriod", default 300000
// ms). Read once, during static initialisation, policy first; no clamp.
extern std::int32_t maxRetry;
extern std::uint32_t retryWaitMs;

// Reads both from the registry into the process-wide settings.
void ReadRetrySettings();
