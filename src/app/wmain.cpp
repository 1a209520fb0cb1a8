#include "app/RunSequence.h"

int wmain(int, wchar_t**) { return RunUpdateTool(); }
