#include "app/wmain.h"

int RunUpdateTool() { return -1; }
