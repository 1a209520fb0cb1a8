#pragma once
#include "platform/win.h"

namespace platform {

// The Windows Update Agent, asked whether an installation is running. Each
// call makes a fresh UpdateInstaller object and releases it again.
class UpdateAgent {
public:
    virtual ~UpdateAgent() = default;
    // HRESULT of the first step that failed (creating the object or reading
    // IsBusy); *busy is valid only on success.
    virtual HRESULT IsInstallerBusy(bool* busy) = 0;
};

}  // namespace platform
