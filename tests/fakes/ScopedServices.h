#pragma once
#include "platform/Services.h"

namespace fakes {

// Installs a set of services for the life of a test and puts the previous
// set back afterwards.
class ScopedServices {
public:
    explicit ScopedServices(const platform::Services& replacement) : m_saved(platform::services())
    {
        platform::services() = replacement;
    }
    ~ScopedServices() { platform::services() = m_saved; }
    ScopedServices(const ScopedServices&) = delete;
    ScopedServices& operator=(const ScopedServices&) = delete;

private:
    platform::Services m_saved;
};

}  // namespace fakes
