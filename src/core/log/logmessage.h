#pragma once
// The framework's log call. Levels: 0 TRACE, 1 DEBUG, 2 INFO, 3 WARN,
// 4 ERROR, 5 FATAL.
namespace CORE {

enum LogLevel : int { LOG_TRACE = 0, LOG_DEBUG = 1, LOG_INFO = 2, LOG_WARN = 3, LOG_ERROR = 4, LOG_FATAL = 5 };

void logMessage(int level, const wchar_t* format, ...);

}  // namespace CORE
