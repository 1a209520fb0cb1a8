#include "core/log/LogLine.h"

void line() { LogLine(L"%s: done", L"Tag", 5); }
