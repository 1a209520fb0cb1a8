#pragma once
#include "agent/Agent.h"

// The product's own desktop agent: known upgrade codes, installer naming and
// silent command line.
class ToviAgent : public Agent {
public:
    ToviAgent(const CORE::corestring& overrideVersion, const CORE::corestring& overrideFilename);
    ~ToviAgent() override = default;

    bool GetVersion() override;
    std::uint32_t Launch(bool testMode, std::uint32_t rebootMode, const CORE::corestring& options,
                         std::uint32_t* exitCode) override;
    // The agent's own installer restarts nothing by itself when it is last.
    std::uint32_t RebootModeAsLast() const override { return 0; }
};
