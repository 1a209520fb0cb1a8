#include "agent/Agent.h"

#include "diagnostics/ToolLog.h"
#include "platform/Services.h"

bool isHostX64 = false;

bool Agent::IsHostX64()
{
    SYSTEM_INFO info{};
    platform::processes().GetNativeSystemInfo(&info);
    // Arm hosts count as 32-bit: only AMD64 runs the 64-bit agent.
    bool x64 = info.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_AMD64;
    LogLine(L"%s: host system: %s", L"Agent::IsHostX64", x64 ? L"64-bit" : L"32-bit");
    return x64;
}
