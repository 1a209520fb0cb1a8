#include "diagnostics/Telemetry.h"

// Not built yet: without a job record there is no entry to add.
bool Util_UpdateDataForTelemetry() { return true; }
