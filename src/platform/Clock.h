#pragma once
#include "core/win.h"
#include <ctime>
#include <sys/timeb.h>

namespace platform {

// Time and waiting.
class Clock {
public:
    virtual ~Clock() = default;
    virtual void Sleep(DWORD milliseconds) = 0;
    virtual __time64_t time64() = 0;                                  // _time64
    virtual bool localtime64(const __time64_t& time, struct tm& out) = 0;  // _localtime64_s
    virtual void ftime64(struct __timeb64& out) = 0;                  // _ftime64_s
    virtual ULONGLONG GetTickCount64() = 0;
};

}  // namespace platform
