#include "core/LazyDll.h"

namespace CORE {

FARPROC LazyProc(const wchar_t* dll, const char* name)
{
    HMODULE module = ::GetModuleHandleW(dll);
    if (!module)
        module = ::LoadLibraryExW(dll, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (!module)
        return nullptr;
    return ::GetProcAddress(module, name);
}

}  // namespace CORE
