#pragma once
#include <cstdint>

#include "core/string/corestring.h"

// True when the machine's native processor is 64-bit (AMD64). Set during
// static initialisation by Agent::IsHostX64, before wmain runs.
extern bool isHostX64;

// Outcome of Agent::Launch and Agent::LaunchHelper.
enum LaunchResult : std::uint32_t {
    kLaunchOk = 0,               // installer ran to its end (or test mode skipped it)
    kLaunchNothing = 1,          // empty command line or no installer file
    kLaunchBadExtension = 2,     // GenericAgent: neither .msi nor .exe
    kLaunchFailed = 3,           // could not start it / read its exit code; Tovi: 1638
    kLaunchExitCodeFailure = 4,  // the kind judged the exit code
};

// What a kind makes of an installer's end for the run as a whole.
enum class LaunchVerdict {
    None,            // nothing: the next run's version check tells
    Succeeded,       // the update is done
    RebootRequired,  // the machine must restart before the update counts
};

// major, minor, patch are signed; build is unsigned. Callers zero it first.
struct VersionParts {
    std::int32_t major = 0;
    std::int32_t minor = 0;
    std::int32_t patch = 0;
    std::uint32_t build = 0;
};

// One installable product as the update run sees it: what is installed, what
// the workspace offers, whether that is newer, and how to launch the installer.
class Agent {
public:
    Agent(const CORE::corestring& overrideVersion, const CORE::corestring& overrideFilename);
    virtual ~Agent() = default;

    // Fills installedVersion, updateVersion and updateFilename; true when an
    // installer file was found.
    virtual bool GetVersion() = 0;
    // Sets upgradeNeeded when the offered version is newer (never clears it).
    virtual bool CompVersion();
    // Builds the kind's command line and runs the installer; returns a LaunchResult.
    virtual std::uint32_t Launch(bool testMode, std::uint32_t rebootMode, const CORE::corestring& options,
                                 std::uint32_t* exitCode) = 0;
    // rebootMode for Launch when this agent is the last to be updated in the
    // run (one that isn't the last gets 1).
    virtual std::uint32_t RebootModeAsLast() const { return 2; }
    // Launch's result as the run sees it; most kinds leave it to the next run.
    virtual LaunchVerdict Judge(std::uint32_t launchResult) const;
    // Splits "a.b.c[-d]" into parts; false with fewer than three tokens.
    virtual bool ParseVersion(const CORE::corestring& text, VersionParts& parts);

    bool FindInstalledVersion(const CORE::corestring& upgradeCode);
    bool FindUpdateVersion(const CORE::corestring& namePrefix, bool archAware, const CORE::corestring& excludedText);
    std::uint32_t LaunchHelper(bool testMode, const CORE::corestring& commandLine, std::uint32_t* exitCode);
    // updateFilename as a command line's first word: in double quotes when
    // it holds a blank, as it stands otherwise.
    CORE::corestring QuotedUpdateFilename() const;
    bool UpdateAvailable(bool force);

    // Asks the platform for the native architecture and logs it; the
    // process-wide flag is set from its result.
    static bool IsHostX64();

    CORE::corestring installedVersion;
    CORE::corestring updateVersion;
    bool upgradeNeeded = false;
    CORE::corestring updateFilename;
    bool isMsi = false;
};
