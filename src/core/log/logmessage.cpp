#include "core/log/logmessage.h"

#include <cstdarg>
#include <cwchar>

#include "core/log/LogSink.h"
#include "core/string/corestring.h"

namespace CORE {

// The framework's own log files come later; until then its messages go to
// the tool's log sink. Nothing here may raise into the caller but "OutOfMem".
void logMessage(int level, const wchar_t* format, ...)
{
    (void)level;
    if (!format)
        return;
    va_list args;
    va_start(args, format);
    try {
        corestring text;
        corestring::vformat(text, 0, format, args);
        WriteLogLine(text);
    } catch (const coreException& e) {
        va_end(args);
        if (std::wcscmp(e.text(), L"OutOfMem") == 0)
            throw;
        return;
    } catch (...) {
        va_end(args);
        return;
    }
    va_end(args);
}

}  // namespace CORE
