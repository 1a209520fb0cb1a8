#include "core/string/systemtext.h"

#include "core/UniqueHandle.h"
#include "core/win.h"

namespace CORE {

bool systemErrorText(std::uint32_t code, std::uint32_t language, corestring& text)
{
    constexpr DWORD kFlags =
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
    static_assert(kFlags == 4864);
    // The buffer goes back to the system even when the copy runs out of memory.
    LocalMemory<wchar_t*> buffer;
    DWORD n = ::FormatMessageW(kFlags, nullptr, code, language, reinterpret_cast<wchar_t*>(buffer.out()), 0, nullptr);
    if (!buffer)
        return false;
    text.assign(buffer.get(), n);
    return true;
}

}  // namespace CORE
