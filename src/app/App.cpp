#include "app/App.h"

#include "agent/Agent.h"
#include "fetch/Workspace.h"

App::~App()
{
    // The agents themselves are deleted by Cleanup.
    agents.clear();
    updates.clear();
}

// Start-up of this version: the workspace only. The command line, the job
// record and the choice of agent come with the update run.
bool App::Init()
{
    workspace = Util_GetWorkspace();
    return !workspace.empty();
}

// Not built yet: a preflight-only run can't be chosen before Init reads the
// job's options.
RunResult App::performPreflightChecks() { return ERR_FAILURE; }

// Not built yet: with no agent there is nothing to update.
bool App::CheckVersion() { return false; }

// Not built yet: never reached, CheckVersion finds no update.
RunResult App::Update() { return ERR_FAILURE; }

void App::Cleanup()
{
    for (Agent* agent : agents)
        delete agent;
    agents.clear();
    updates.clear();
}
