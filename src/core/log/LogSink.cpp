#include "core/log/LogSink.h"

#include <atomic>

#include "core/win.h"

namespace CORE {

namespace {
// The delivery client may log from threads of its own.
std::atomic<LogSink*> g_sink{nullptr};
}  // namespace

LogSink* SetLogSink(LogSink* sink) { return g_sink.exchange(sink); }

void WriteLogLine(const corestring& message)
{
    LogSink* sink = g_sink.load();
    if (!sink)
        return;
    const DWORD saved = ::GetLastError();
    sink->Write(message);
    ::SetLastError(saved);
}

}  // namespace CORE
