#include "app/App.h"

#include "agent/Agent.h"
#include "fetch/Workspace.h"
#include "update/UpdateRecordReader.h"

App::~App()
{
    // The agents themselves are deleted by Cleanup.
    agents.clear();
    updates.clear();
}

bool App::Init()
{
    workspace = Util_GetWorkspace();
    if (workspace.empty())
        return false;
    // The command line, the choice of agent and the preflight flags come in a later change.
    if (!Util_GetUpdateState(properties))
        return false;
    arch = properties[L"ARCH"];
    options = properties[L"OPTIONS"];
    return true;
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
