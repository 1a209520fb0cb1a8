#pragma once
// The client's log: lines go to the callback the caller registered, if any.
#include "mirel_types.h"

namespace mirel {

enum LogLevel : int { kDebug = 0, kInfo = 1, kWarning = 2, kError = 3 };

void setLogCallback(MirelLogCallback callback);
// printf-style, in the Microsoft conventions of the caller's formatter;
// UTF-8. Dropped while no callback is registered. Any thread may log.
void log(int level, const char* format, ...) __attribute__((format(ms_printf, 2, 3)));

// The text of a boundary string, wherever it lies.
const char* textOf(const NarrowText& text);

}  // namespace mirel
