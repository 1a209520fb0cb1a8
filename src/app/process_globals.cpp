// Process-wide objects built during static initialisation, and the hand-downs
// that let the lower layers reach the higher ones. Their order is the order
// of definition in this file: the tool log becomes the log sink first, so no
// line is lost; the host's architecture (its line reaches standard output
// only, as the log has no file yet); then the tool log is opened; the
// workspace's clean-up goes to the state machine; last the retry settings.
#include "agent/Agent.h"
#include "core/log/LogSink.h"
#include "diagnostics/ToolLog.h"
#include "fetch/Workspace.h"
#include "update/RetrySettings.h"
#include "update/StateMachine.h"

namespace {

const bool g_logSinkSet = (CORE::SetLogSink(&TheToolLog()), true);

const bool g_hostChecked = (isHostX64 = Agent::IsHostX64(), true);

const bool g_toolLogOpen = (ToolLog::Open(TheToolLog(), true), true);

const bool g_cleanupHandedDown = (SetWorkspaceCleanup(UtilCleanupWorkspace), true);

const bool g_retrySettingsRead = (ReadRetrySettings(), true);

}  // namespace
