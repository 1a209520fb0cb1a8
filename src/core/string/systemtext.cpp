#include "core/string/systemtext.h"

#include "platform/win.h"

namespace CORE {

bool systemErrorText(std::uint32_t code, std::uint32_t language, corestring& text)
{
    constexpr DWORD kFlags =
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
    static_assert(kFlags == 4864);
    wchar_t* buffer = nullptr;
    DWORD n = ::FormatMessageW(kFlags, nullptr, code, language, reinterpret_cast<wchar_t*>(&buffer), 0, nullptr);
    if (!buffer)
        return false;
    // The buffer goes back to the system even when the copy runs out of memory.
    struct Release {
        wchar_t* p;
        ~Release() { ::LocalFree(p); }
    } release{buffer};
    text.assign(buffer, n);
    return true;
}

}  // namespace CORE
