#include "platform/win32/LazyDll.h"

namespace platform {

FARPROC LazyProc(const wchar_t* dll, const char* name)
{
    HMODULE module = ::GetModuleHandleW(dll);
    if (!module)
        module = ::LoadLibraryExW(dll, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (!module)
        return nullptr;
    return ::GetProcAddress(module, name);
}

}  // namespace platform
