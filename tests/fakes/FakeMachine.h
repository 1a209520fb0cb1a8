#pragma once
// Fakes of the small services: clock, console, processes, delivery client.
#include <string>
#include <vector>
#include <set>

#include "platform/Clock.h"
#include "platform/Console.h"
#include "platform/Delivery.h"
#include "platform/Processes.h"

namespace fakes {

// A clock that stands still unless a test moves it; sleeps are recorded and
// move it by their length.
class FakeClock : public platform::Clock {
public:
    FakeClock();
    void Sleep(DWORD milliseconds) override;
    __time64_t time64() override { return now; }
    bool localtime64(const __time64_t& time, struct tm& out) override;
    void ftime64(struct __timeb64& out) override;
    ULONGLONG GetTickCount64() override { return ticks; }

    // Local time of `now` (the fake has no time zone: UTC is local).
    __time64_t now;
    unsigned short milliseconds = 0;
    ULONGLONG ticks = 1000;
    std::vector<DWORD> sleeps;
};

class FakeConsole : public platform::Console {
public:
    void Write(const wchar_t* text, size_t length) override { output.append(text, length); }
    std::wstring output;
};

class FakeProcesses : public platform::Processes {
public:
    BOOL CreateProcessW(LPCWSTR application, LPWSTR commandLine, BOOL inheritHandles, DWORD flags,
                        LPCWSTR currentDirectory, LPSTARTUPINFOW startup, LPPROCESS_INFORMATION info) override;
    DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds) override;
    BOOL GetExitCodeProcess(HANDLE process, LPDWORD exitCode) override;
    BOOL CloseHandle(HANDLE object) override;
    HANDLE CreateMutexW(BOOL initialOwner, LPCWSTR name) override;
    LPWSTR GetCommandLineW() override { return commandLine.data(); }
    DWORD GetModuleFileNameW(HMODULE module, LPWSTR buffer, DWORD size) override;
    void GetNativeSystemInfo(LPSYSTEM_INFO info) override;

    std::wstring commandLine = L"zenthra-updatetool.exe";
    std::wstring moduleFileName = L"C:\\Program Files\\Tarvelle\\zenthra-updatetool.exe";
    DWORD moduleFileNameError = 0;  // when set, GetModuleFileNameW fails with it
    WORD processorArchitecture = PROCESSOR_ARCHITECTURE_AMD64;
    std::set<std::wstring> mutexes;       // names that exist already
    std::vector<std::wstring> mutexCalls;  // every name asked for
    // Process launches, for the agents' tests.
    std::vector<std::wstring> launched;
    bool createProcessResult = TRUE;
    DWORD exitCode = 0;
    bool exitCodeResult = TRUE;
};

class FakeDelivery : public platform::Delivery {
public:
    std::int32_t MirelRunDownloads(const NarrowText&, const DownloadHandleList&) override { return runResult; }
    void* MirelCreateDownload(const NarrowText&, std::int32_t, bool, NarrowTextList, NarrowTextList, NarrowTextList,
                              const NarrowText&, const NarrowText&, const NarrowText&, std::int32_t,
                              std::int32_t) override
    {
        ++createCalls;
        return this;
    }
    void MirelDestroyDownload(void*) override { ++destroyCalls; }
    void MirelSetLogCallback(MirelLogCallback callback) override
    {
        ++logCallbackCalls;
        this->callback = callback;
    }
    void MirelSetPemFile(const NarrowText&) override { ++pemCalls; }
    void MirelUseSystemCA(const bool*) override { ++systemCaCalls; }

    MirelLogCallback callback = nullptr;
    int logCallbackCalls = 0;
    int createCalls = 0;
    int destroyCalls = 0;
    int pemCalls = 0;
    int systemCaCalls = 0;
    std::int32_t runResult = 0;
};

}  // namespace fakes
