#include "core/log/LogLine.h"

void line(const wchar_t* format) { LogLine(format, L"Tag"); }
