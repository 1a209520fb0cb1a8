#pragma once
// The run of one job from start to exit code.
int RunUpdateTool();
