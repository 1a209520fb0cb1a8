#pragma once
// What a failed install's verbose log says: the lines of the action that
// failed, the custom action's name and its error text. Substring tests on the
// engine's fixed phrases; two of the stop tests need no phrase at all.
#include <vector>

#include "core/string/corestring.h"

using CORE::corestring;

// The whole file as UTF-16 little endian, its byte order mark dropped; empty
// when it can't be opened (shared for reading only, so a log the installer
// still writes doesn't open), is empty or can't be sized. A file in a narrow
// code page is read as UTF-16 all the same.
corestring ReadUnicodeFile(const corestring& path);

// The window of the failing action: the last line that started an action
// and every line up to and including the line that reports the failure.
// Every line keeps the CR before its LF; an empty line is a null string.
// Without a failure line: the last start and all behind it, or the whole
// log. Empty when the log can't be read.
std::vector<corestring> FetchErrorLines(const corestring& logPath);

// The failed custom action as the window names it: " Name\r" from the last
// ": Doing action: " line (from its last blank on), or the action of a
// "CustomActionSchedule" line; the last hit wins. Null when none.
corestring GetFailedCustomActionName(const std::vector<corestring>& lines);

// The window's own words: every line that isn't the engine's, trimmed of
// dots and line ends, joined without a separator, with the engine's sandbox
// remark taken out. Null when none.
corestring GetFailedCAErrorMessage(const std::vector<corestring>& lines);
