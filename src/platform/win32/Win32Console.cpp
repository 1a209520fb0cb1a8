#include "platform/win32/Win32Services.h"

#include <string>

namespace platform {

// The console copy of the log goes to standard output as UTF-8, which is
// what a pipe reader or the management agent's capture expects, with CR LF
// line ends as a text-mode stream would give. It is written in one call:
// the C runtime's text mode hands Wine a write per character, which cost a
// run without a job over 60 ms.
void Win32Console::Write(const wchar_t* text, size_t length)
{
    if (!length)
        return;
    std::wstring lines;
    lines.reserve(length + length / 32);
    for (size_t i = 0; i < length; ++i) {
        if (text[i] == L'\n' && (i == 0 || text[i - 1] != L'\r'))
            lines.push_back(L'\r');
        lines.push_back(text[i]);
    }
    int bytes = ::WideCharToMultiByte(CP_UTF8, 0, lines.data(), static_cast<int>(lines.size()), nullptr, 0, nullptr,
                                      nullptr);
    if (bytes <= 0)
        return;
    std::string buffer(static_cast<size_t>(bytes), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, lines.data(), static_cast<int>(lines.size()), buffer.data(), bytes, nullptr,
                          nullptr);
    HANDLE out = ::GetStdHandle(STD_OUTPUT_HANDLE);
    if (out == nullptr || out == INVALID_HANDLE_VALUE)
        return;
    // A pipe may take less than all at once.
    const char* next = buffer.data();
    DWORD left = static_cast<DWORD>(buffer.size());
    while (left) {
        DWORD written = 0;
        if (!::WriteFile(out, next, left, &written, nullptr) || written == 0)
            return;
        next += written;
        left -= written;
    }
}

}  // namespace platform
