#include "core/log/LogLine.h"

// In a wide format %s is a wide string: a narrow one needs %S.
void line() { LogLine(L"%s: %s", L"Tag", "narrow"); }
