#include "core/log/LogLine.h"

#include <cstdarg>

#include "core/win.h"

namespace CORE::logline_detail {

void formatAndWrite(const wchar_t* format, ...)
{
    const DWORD saved = ::GetLastError();
    corestring line;
    va_list args;
    va_start(args, format);
    try {
        corestring::vformat(line, 8192, format, args);
    } catch (...) {
        va_end(args);
        throw;
    }
    va_end(args);
    WriteLogLine(line);
    ::SetLastError(saved);
}

}  // namespace CORE::logline_detail
