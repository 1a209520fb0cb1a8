#include "core/log/LogLine.h"

void line() { LogLine(L"%s: %s and %d", L"Tag", L"one"); }
