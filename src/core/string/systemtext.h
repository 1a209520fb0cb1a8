#pragma once
#include <cstdint>

#include "core/string/corestring.h"

namespace CORE {

// The system's text of an error code exactly as FormatMessageW gives it
// (system table, inserts ignored, the system allocates the buffer), line end
// included. False, with `text` left alone, when the system has no text.
bool systemErrorText(std::uint32_t code, std::uint32_t language, corestring& text);

}  // namespace CORE
