#pragma once
#include <list>

#include "app/RunResult.h"
#include "core/string/corestring.h"
#include "update/NoCaseMap.h"

using CORE::corestring;

class Agent;

// The central object of a run: what the command line and the job said, and
// the agents to work on. One instance lives in wmain's frame.
class App {
public:
    App() = default;
    ~App();
    App(const App&) = delete;
    App& operator=(const App&) = delete;

    bool Init();
    // The switches and the version override file name; false when help was
    // asked for or an option is unknown.
    bool ParseCmdline(const corestring& commandLine);
    // Reads "Tovi.version" and "Tovi.filename" from versionFile in the workspace.
    void ParseOverrideFile();
    RunResult performPreflightChecks();
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
    std::list<Agent*> agents;   // owned until Cleanup
    std::list<Agent*> updates;  // chosen by CheckVersion
};
