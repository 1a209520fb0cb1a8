#pragma once
// The delivery client's log lines, taken into the tool's log.
#include <cstdarg>

// Registered with the client by the workspace's first use. level 0 to 3 is
// DEBUG, INFO, WARNING, ERROR and is not checked; the text is UTF-8.
void DeliveryLogCallback(int level, const char* format, va_list arguments);
