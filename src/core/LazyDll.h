#pragma once
// Exports of system DLLs that most runs never need, resolved on first use:
// loading msi.dll and its kin at start-up costs a run more than all its work.
#include "core/win.h"

namespace CORE {

// The export, or null (with the last error set) when the DLL or the export
// isn't there. DLLs come from the system directory only, never from the
// program's folder or the current directory.
FARPROC LazyProc(const wchar_t* dll, const char* name);

template <class F> F LazyExport(const wchar_t* dll, const char* name)
{
    return reinterpret_cast<F>(reinterpret_cast<void*>(LazyProc(dll, name)));
}

}  // namespace CORE
