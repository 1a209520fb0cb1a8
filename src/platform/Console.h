#pragma once
#include "core/win.h"

namespace platform {

// The process's standard output.
class Console {
public:
    virtual ~Console() = default;
    virtual void Write(const wchar_t* text, size_t length) = 0;
};

}  // namespace platform
