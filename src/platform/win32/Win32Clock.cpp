#include "platform/win32/Win32Services.h"

namespace platform {

void Win32Clock::Sleep(DWORD milliseconds) { ::Sleep(milliseconds); }

__time64_t Win32Clock::time64() { return ::_time64(nullptr); }

bool Win32Clock::localtime64(const __time64_t& time, struct tm& out) { return ::_localtime64_s(&out, &time) == 0; }

void Win32Clock::ftime64(struct __timeb64& out) { ::_ftime64_s(&out); }

ULONGLONG Win32Clock::GetTickCount64() { return ::GetTickCount64(); }

}  // namespace platform
