#pragma once
#include <list>
#include <memory>
#include <set>

#include "agent/Agent.h"
#include "core/NoCaseMap.h"
#include "core/string/corestring.h"
#include "update/RunResult.h"

using CORE::corestring;

// Orders preflight action names as CompareStringW does with locale 1024 and
// no flags: case-sensitive, by the user's collation.
struct PreflightActionOrder {
    bool operator()(const corestring& a, const corestring& b) const;
};
using PreflightActions = std::set<corestring, PreflightActionOrder>;

// The central object of a run: what the command line and the job said, and
// the agents to work on. One instance lives in wmain's frame.
class App {
public:
    App() = default;
    App(const App&) = delete;
    App& operator=(const App&) = delete;

    bool Init();
    // The switches and the version override file name; false when help was
    // asked for or an option is unknown.
    bool ParseCmdline(const corestring& commandLine);
    // Reads "Tovi.version" and "Tovi.filename" from versionFile in the workspace.
    void ParseOverrideFile();
    // The machine's fitness for an update, -9 (fit) to -14; fetches and
    // installs nothing.
    RunResult performPreflightChecks();
    bool isWindowsUpdateInProgress();
    bool isDiskspaceSufficientForUpdate();
    bool isRebootPending();
    // The administrators' rules below "\Agent\PreflightChecks\": one action
    // name per rule that applies.
    PreflightActions& performRegistryBasedChecks(PreflightActions& actions);
    corestring getPreflightCheckAction(const corestring& text);
    corestring getValueMatchAction(NoCaseMap values);
    bool CheckVersion();
    RunResult Update();
    void Cleanup();

    corestring workspace;
    bool forceUpdate = false;
    bool testMode = false;
    corestring versionFile;
    corestring overrideVersion;
    corestring overrideFilename;
    corestring options;
    corestring arch;
    bool preflightEnabled = false;
    bool legacyWorkflow = false;
    NoCaseMap properties;
    std::list<std::unique_ptr<Agent>> agents;  // until Cleanup
    std::list<Agent*> updates;                 // chosen by CheckVersion, among agents

private:
    // Looks again every minute, ten times at most; false when updates are
    // still running after the last look.
    bool waitForWindowsUpdateToComplete();
    // Whether the job's share path opens as a file with the tool's own rights.
    bool isValidUNCPath(const corestring& path);
};
