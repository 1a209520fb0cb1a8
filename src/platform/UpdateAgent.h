#pragma once
#include "core/win.h"

namespace platform {

// The operating system's update agent, asked one question: is an
// installation or uninstallation of updates running right now?
class UpdateAgent {
public:
    // Which step of the question failed, if one did.
    enum class Failure { None, CreateInstaller, ReadIsBusy };
    struct Answer {
        Failure failure = Failure::None;
        HRESULT error = S_OK;  // of the failed step
        bool busy = false;     // meaningful only without a failure
    };

    virtual ~UpdateAgent() = default;
    // Enters COM, makes a fresh UpdateInstaller object, reads IsBusy,
    // releases the object and leaves COM again.
    virtual Answer QueryInstallerBusy() = 0;
};

}  // namespace platform
