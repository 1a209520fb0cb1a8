#pragma once
#include "platform/win.h"

namespace platform {

// Shutdown of the machine.
class Power {
public:
    virtual ~Power() = default;
    // OpenProcessToken + LookupPrivilegeValueW + AdjustTokenPrivileges for
    // SE_SHUTDOWN_NAME; FALSE with the last error of the step that failed.
    virtual BOOL EnableShutdownPrivilege() = 0;
    virtual BOOL ExitWindowsEx(UINT flags, DWORD reason) = 0;
};

}  // namespace platform
