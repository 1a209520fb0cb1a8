#include "platform/win32/Win32Services.h"

#include <cstdio>
#include <vector>

namespace platform {

// The console copy of the log goes to standard output as UTF-8, which is
// what a pipe reader or the management agent's capture expects.
void Win32Console::Write(const wchar_t* text, size_t length)
{
    if (!length)
        return;
    int bytes = ::WideCharToMultiByte(CP_UTF8, 0, text, static_cast<int>(length), nullptr, 0, nullptr, nullptr);
    if (bytes <= 0)
        return;
    std::vector<char> buffer(static_cast<size_t>(bytes));
    ::WideCharToMultiByte(CP_UTF8, 0, text, static_cast<int>(length), buffer.data(), bytes, nullptr, nullptr);
    std::fwrite(buffer.data(), 1, buffer.size(), stdout);
    std::fflush(stdout);
}

}  // namespace platform
