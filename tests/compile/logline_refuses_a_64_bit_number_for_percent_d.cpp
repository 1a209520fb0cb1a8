#include <cstdint>

#include "core/log/LogLine.h"

void line(std::uint64_t size) { LogLine(L"%s: %u bytes", L"Tag", size); }
