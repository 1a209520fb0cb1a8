#pragma once
// Where the tool's finished log lines go. The tool log, high up in the
// program, registers itself at start-up; the layers below it write here
// without knowing it.
#include "core/string/corestring.h"

namespace CORE {

class LogSink {
public:
    virtual void Write(const corestring& message) = 0;

protected:
    ~LogSink() = default;
};

// Installs the sink (null: none) and gives back the one it replaces.
LogSink* SetLogSink(LogSink* sink);
// One finished line to the installed sink; dropped when there is none.
// The thread's last error is the same afterwards.
void WriteLogLine(const corestring& message);

}  // namespace CORE
