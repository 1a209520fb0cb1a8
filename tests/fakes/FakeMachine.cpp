#include "fakes/FakeMachine.h"

#include <cwchar>

namespace fakes {

FakeClock::FakeClock()
{
    // 2026-11-13 23:35:14 UTC, a fixed moment so that stamps can be asserted.
    now = 1794612914;
}

void FakeClock::Sleep(DWORD ms)
{
    sleeps.push_back(ms);
    ticks += ms;
    now += ms / 1000;
}

bool FakeClock::localtime64(const __time64_t& time, struct tm& out)
{
    return ::_gmtime64_s(&out, &time) == 0;
}

void FakeClock::ftime64(struct __timeb64& out)
{
    out = {};
    out.time = now;
    out.millitm = milliseconds;
}

BOOL FakeProcesses::CreateProcessW(LPCWSTR, LPWSTR commandLine, BOOL, DWORD, LPCWSTR, LPSTARTUPINFOW,
                                   LPPROCESS_INFORMATION info)
{
    launched.push_back(commandLine ? commandLine : L"");
    if (!createProcessResult) {
        ::SetLastError(ERROR_FILE_NOT_FOUND);
        return FALSE;
    }
    *info = PROCESS_INFORMATION{};
    info->hProcess = reinterpret_cast<HANDLE>(0x7001);
    info->hThread = reinterpret_cast<HANDLE>(0x7002);
    return TRUE;
}

DWORD FakeProcesses::WaitForSingleObject(HANDLE, DWORD) { return WAIT_OBJECT_0; }

BOOL FakeProcesses::GetExitCodeProcess(HANDLE, LPDWORD code)
{
    if (!exitCodeResult) {
        ::SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    *code = exitCode;
    return TRUE;
}

BOOL FakeProcesses::CloseHandle(HANDLE) { return TRUE; }

HANDLE FakeProcesses::CreateMutexW(BOOL, LPCWSTR name)
{
    std::wstring n = name ? name : L"";
    mutexCalls.push_back(n);
    if (mutexes.count(n)) {
        ::SetLastError(ERROR_ALREADY_EXISTS);
    } else {
        mutexes.insert(n);
        ::SetLastError(0);
    }
    return reinterpret_cast<HANDLE>(0x6001);
}

DWORD FakeProcesses::GetModuleFileNameW(HMODULE, LPWSTR buffer, DWORD size)
{
    if (moduleFileNameError) {
        ::SetLastError(moduleFileNameError);
        return 0;
    }
    // As Windows documents it: a name that doesn't fit is cut to size - 1
    // characters and terminated, the call returns size and sets 122.
    if (moduleFileName.size() >= size) {
        if (size) {
            wmemcpy(buffer, moduleFileName.c_str(), size - 1);
            buffer[size - 1] = L'\0';
        }
        ::SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return size;
    }
    DWORD n = static_cast<DWORD>(moduleFileName.size());
    wmemcpy(buffer, moduleFileName.c_str(), n);
    buffer[n] = L'\0';
    return n;
}

void FakeProcesses::GetNativeSystemInfo(LPSYSTEM_INFO info)
{
    *info = SYSTEM_INFO{};
    info->wProcessorArchitecture = processorArchitecture;
}

}  // namespace fakes
