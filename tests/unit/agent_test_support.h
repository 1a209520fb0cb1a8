#pragma once
// Shared pieces of the agent tests: a host architecture set for one test,
// a process service that records how it was called, and the workspace.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "agent/Agent.h"
#include "fakes/FakePlatform.h"
#include "fakes/ScopedServices.h"

namespace agent_test {

using CORE::corestring;

// The workspace the fake platform gives: "updatetool-data" below its temp path.
inline const std::wstring kWorkspace = L"C:\\Windows\\Temp\\updatetool-data";

// Sets the process-wide architecture flag and puts it back afterwards.
class HostArch {
public:
    explicit HostArch(bool x64) : m_saved(isHostX64) { isHostX64 = x64; }
    ~HostArch() { isHostX64 = m_saved; }
    HostArch(const HostArch&) = delete;
    HostArch& operator=(const HostArch&) = delete;

private:
    bool m_saved;
};

// FakeProcesses that also keeps the arguments of every launch, wait and close.
class RecordingProcesses : public fakes::FakeProcesses {
public:
    struct Launch {
        bool applicationNull;
        BOOL inheritHandles;
        DWORD flags;
        bool directoryNull;
        std::vector<unsigned char> startup;  // the STARTUPINFOW as bytes
    };
    BOOL CreateProcessW(LPCWSTR application, LPWSTR commandLine, BOOL inheritHandles, DWORD flags,
                        LPCWSTR currentDirectory, LPSTARTUPINFOW startup, LPPROCESS_INFORMATION info) override
    {
        const unsigned char* bytes = reinterpret_cast<const unsigned char*>(startup);
        launches.push_back({application == nullptr, inheritHandles, flags, currentDirectory == nullptr,
                            bytes ? std::vector<unsigned char>(bytes, bytes + sizeof(STARTUPINFOW))
                                  : std::vector<unsigned char>()});
        BOOL ok = FakeProcesses::CreateProcessW(application, commandLine, inheritHandles, flags, currentDirectory,
                                                startup, info);
        if (ok)
            process = info->hProcess, thread = info->hThread;
        return ok;
    }
    DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds) override
    {
        waits.push_back({object, milliseconds});
        return FakeProcesses::WaitForSingleObject(object, milliseconds);
    }
    BOOL CloseHandle(HANDLE object) override
    {
        closed.push_back(object);
        return FakeProcesses::CloseHandle(object);
    }

    std::vector<Launch> launches;
    std::vector<std::pair<HANDLE, DWORD>> waits;
    std::vector<HANDLE> closed;
    HANDLE process = nullptr;
    HANDLE thread = nullptr;
};

// FakeFileSystem that also keeps the search patterns and counts the closes.
class RecordingFiles : public fakes::FakeFileSystem {
public:
    RecordingFiles() { addDirectory(L"C:\\Windows\\Temp"); }
    HANDLE FindFirstFileW(LPCWSTR pattern, LPWIN32_FIND_DATAW data) override
    {
        patterns.push_back(pattern ? pattern : L"");
        HANDLE h = FakeFileSystem::FindFirstFileW(pattern, data);
        if (h != INVALID_HANDLE_VALUE)
            ++openFinds;
        return h;
    }
    BOOL FindClose(HANDLE find) override
    {
        BOOL ok = FakeFileSystem::FindClose(find);
        if (ok)
            --openFinds;
        return ok;
    }

    std::vector<std::wstring> patterns;
    int openFinds = 0;
};

// The fake platform with the recording services in place of its own.
struct AgentPlatform {
    fakes::FakePlatform p;
    RecordingProcesses processes;
    RecordingFiles files;
    fakes::ScopedServices scope{withRecording(processes, files)};

    static platform::Services withRecording(RecordingProcesses& processes, RecordingFiles& files)
    {
        platform::Services s = platform::services();
        s.processes = &processes;
        s.files = &files;
        return s;
    }

    // A workspace file, its folder made first.
    void addInstaller(const std::wstring& name)
    {
        files.addDirectory(kWorkspace);
        files.addFile(kWorkspace + L"\\" + name, std::string("MZ"));
    }

    bool logHas(const std::wstring& line) const { return p.logHas(line); }
    std::vector<std::wstring> linesOf(const std::wstring& tag) const { return p.linesOf(tag); }
};

inline std::wstring errorTextOf(DWORD code) { return CORE::errorText(code).c_str(); }

// What one Launch of an agent did.
struct Launched {
    std::uint32_t result;
    std::uint32_t exitCode;
    std::wstring commandLine;  // empty when nothing was started
};

// Launches the agent outside test mode; the exit code starts as 12345 so
// that an untouched one shows.
inline Launched launchAgent(AgentPlatform& env, Agent& agent, std::uint32_t rebootMode, const wchar_t* options)
{
    std::uint32_t exitCode = 12345;
    size_t before = env.processes.launched.size();
    std::uint32_t result = agent.Launch(false, rebootMode, corestring(options), &exitCode);
    std::wstring line = env.processes.launched.size() > before ? env.processes.launched.back() : std::wstring();
    return {result, exitCode, line};
}

}  // namespace agent_test
