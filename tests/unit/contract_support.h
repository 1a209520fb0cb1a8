#pragma once
// Shared pieces of the contract suites, which run the same cases once against
// a fake service and once against the real one, so that a fake is held to
// the answers Windows gives.
#include <atomic>
#include <string>

#include "core/win.h"

namespace contract {

// A name no other test, in this process or another one running beside it,
// uses at the same time: the process id and a counter.
inline std::wstring uniqueName(const wchar_t* prefix)
{
    static std::atomic<unsigned> counter{0};
    return prefix + std::to_wstring(::GetCurrentProcessId()) + L"-" + std::to_wstring(++counter);
}

// Wine's ntdll exports its version; Windows' doesn't. Only the few cases
// where Wine is known to answer otherwise than Windows ask this.
inline bool runningUnderWine()
{
    HMODULE ntdll = ::GetModuleHandleW(L"ntdll.dll");
    return ntdll && ::GetProcAddress(ntdll, "wine_get_version");
}

// Typed tests show up as Suite/Fake.Case and Suite/Win32.Case.
struct SideName {
    template <class Side> static std::string GetName(int) { return Side::name(); }
};

}  // namespace contract
