#include "ClientLog.h"

#include <atomic>
#include <cstdarg>

namespace mirel {

namespace {
std::atomic<MirelLogCallback> g_log{nullptr};
}  // namespace

void setLogCallback(MirelLogCallback callback) { g_log.store(callback); }

void log(int level, const char* format, ...)
{
    MirelLogCallback callback = g_log.load();
    if (!callback)
        return;
    va_list args;
    va_start(args, format);
    callback(level, format, args);
    va_end(args);
}

const char* textOf(const NarrowText& text) { return text.capacity > 15 ? text.data.heapText : text.data.inlineText; }

}  // namespace mirel
