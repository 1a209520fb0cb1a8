// Process-wide objects built during static initialisation. Their order is
// the order of definition in this file: the host's architecture first (its
// line reaches standard output only), then the tool log, then the retry
// settings.
#include "agent/Agent.h"
#include "diagnostics/ToolLog.h"
#include "update/RetrySettings.h"

namespace {

const bool g_hostChecked = (isHostX64 = Agent::IsHostX64(), true);

const bool g_toolLogOpen = (ToolLog::Open(TheToolLog(), true), true);

const bool g_retrySettingsRead = (ReadRetrySettings(), true);

}  // namespace
