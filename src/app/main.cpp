#include "app/wmain.h"

int wmain(int, wchar_t**) { return RunUpdateTool(); }
