#include "fakes/FakeMachine.h"

#include <algorithm>
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

std::int32_t FakeDelivery::MirelRunDownloads(const std::string& workspace, const std::vector<void*>& downloads)
{
    calls.push_back("Run");
    runWorkspaces.push_back(workspace);
    runLists.push_back(downloads);
    if (duringRun)
        duringRun();
    return runResult;
}

void* FakeDelivery::MirelCreateDownload(const std::string& identity, std::int32_t expectedSize, bool flag,
                                        const std::vector<std::string>& urls,
                                        const std::vector<std::string>& thumbprints,
                                        const std::vector<std::string>& proxies, const std::string& pacUrl,
                                        const std::string& workspace, const std::string& checksum,
                                        std::int32_t reserved, std::int32_t payloadType)
{
    calls.push_back("Create");
    created.push_back(Download{identity, expectedSize, flag, urls, thumbprints, proxies, pacUrl, workspace, checksum,
                               reserved, payloadType});
    return handleOf(std::min<std::size_t>(created.size() - 1, sizeof m_handles - 1));
}

void FakeDelivery::MirelDestroyDownload(void* download)
{
    calls.push_back("Destroy");
    destroyed.push_back(download);
}

void FakeDelivery::MirelSetLogCallback(MirelLogCallback callback)
{
    ++logCallbackCalls;
    this->callback = callback;
}

void FakeDelivery::MirelSetPemFile(const std::string& pemFile)
{
    calls.push_back("SetPemFile");
    pemFiles.push_back(pemFile);
}

void FakeDelivery::MirelUseSystemCA(const bool* useSystemCA)
{
    calls.push_back("UseSystemCA");
    systemCa.push_back(useSystemCA && *useSystemCA);
}

}  // namespace fakes
