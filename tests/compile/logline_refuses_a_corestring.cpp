#include "core/log/LogLine.h"

void line(const CORE::corestring& text) { LogLine(L"%s: %s", L"Tag", text); }
