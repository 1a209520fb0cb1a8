#pragma once
// Fakes of the small services: clock, console, processes, delivery client.
#include <functional>
#include <set>
#include <string>
#include <vector>

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

// The delivery client: records what the tool asks of it and answers with the
// code a test chooses. Download objects are addresses inside the fake.
class FakeDelivery : public platform::Delivery {
public:
    struct Download {
        std::string identity;
        std::int32_t expectedSize = 0;
        bool flag = false;
        std::vector<std::string> urls, thumbprints, proxies;
        std::string pacUrl, workspace, checksum;
        std::int32_t reserved = -1;
        std::int32_t payloadType = -1;
    };

    std::int32_t MirelRunDownloads(const std::string& workspace, const std::vector<void*>& downloads) override;
    void* MirelCreateDownload(const std::string& identity, std::int32_t expectedSize, bool flag,
                              const std::vector<std::string>& urls, const std::vector<std::string>& thumbprints,
                              const std::vector<std::string>& proxies, const std::string& pacUrl,
                              const std::string& workspace, const std::string& checksum, std::int32_t reserved,
                              std::int32_t payloadType) override;
    void MirelDestroyDownload(void* download) override;
    void MirelSetLogCallback(MirelLogCallback callback) override;
    void MirelSetPemFile(const std::string& pemFile) override;
    void MirelUseSystemCA(const bool* useSystemCA) override;

    MirelLogCallback callback = nullptr;
    int logCallbackCalls = 0;
    std::vector<Download> created;       // in the order of MirelCreateDownload
    std::vector<void*> destroyed;        // what MirelDestroyDownload got
    std::vector<std::string> runWorkspaces;
    std::vector<std::vector<void*>> runLists;
    std::vector<std::string> pemFiles;   // what MirelSetPemFile got
    std::vector<bool> systemCa;          // what MirelUseSystemCA's byte held
    std::vector<std::string> calls;      // "SetPemFile", "UseSystemCA", "Create", "Run", "Destroy" in order
    std::int32_t runResult = 0;
    // Runs inside MirelRunDownloads, before it answers: a test may put the
    // payload where the client would.
    std::function<void()> duringRun;

    // The object MirelCreateDownload handed out for download n (0 = first).
    void* handleOf(std::size_t n) { return &m_handles[n]; }

private:
    char m_handles[16] = {};
};

}  // namespace fakes
