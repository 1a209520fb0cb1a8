#include "diagnostics/FailureReport.h"

// The installer log analysis isn't built yet: nothing to report, and nothing failed.
bool WriteFailedCustomActionDetailsToRegistry() { return true; }
