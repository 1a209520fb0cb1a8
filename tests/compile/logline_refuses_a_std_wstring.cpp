#include <string>

#include "core/log/LogLine.h"

void line(const std::wstring& text) { LogLine(L"%s: %s", L"Tag", text); }
