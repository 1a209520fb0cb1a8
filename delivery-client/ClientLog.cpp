#include "ClientLog.h"

#include <atomic>
#include <cstdarg>

namespace mirel {

namespace {
// In a struct: the callback's va_list parameter carries an attribute that a
// template argument would drop.
struct Callback {
    MirelLogCallback call;
};
std::atomic<Callback> g_log{Callback{nullptr}};
}  // namespace

void setLogCallback(MirelLogCallback callback) { g_log.store(Callback{callback}); }

void log(int level, const char* format, ...)
{
    MirelLogCallback callback = g_log.load().call;
    if (!callback)
        return;
    va_list args;
    va_start(args, format);
    callback(level, format, args);
    va_end(args);
}

const char* textOf(const NarrowText& text) { return text.capacity > 15 ? text.data.heapText : text.data.inlineText; }

}  // namespace mirel
