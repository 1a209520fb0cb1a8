#pragma once
#include "agent/Agent.h"

// Any other product: the tool knows nothing about it and runs the file the
// job names, on every run that reaches it.
class GenericAgent : public Agent {
public:
    explicit GenericAgent(const CORE::corestring& filename);
    ~GenericAgent() override = default;

    bool GetVersion() override;
    std::uint32_t Launch(bool testMode, std::uint32_t rebootMode, const CORE::corestring& options,
                         std::uint32_t* exitCode) override;
    // The installer's exit code alone tells: success, or a restart needed.
    LaunchVerdict Judge(std::uint32_t launchResult) const override;
};
