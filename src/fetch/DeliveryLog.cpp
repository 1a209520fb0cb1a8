#include "fetch/DeliveryLog.h"

#include "core/log/LogSink.h"
#include "core/string/corestring.h"

using CORE::coremstring;
using CORE::corestring;

void DeliveryLogCallback(int level, const char* format, va_list arguments)
{
    static const wchar_t* const prefixes[] = {L"[DEBUG] ", L"[INFO] ", L"[WARNING] ", L"[ERROR] "};
    coremstring narrow;
    coremstring::vformat(narrow, 8192, format, arguments);
    corestring line(prefixes[level]);
    line.append(CORE::to_wstr(narrow.c_str(), narrow.length(), 65001));
    CORE::WriteLogLine(line);
}
