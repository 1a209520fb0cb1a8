// Cost of the end-of-run telemetry step against files that already hold
// 0, 1,000, 10,000 and 100,000 entries, on the real file system and registry.
//
//   telemetry_bench                     runs every size, each in a fresh child
//   telemetry_bench --child N BASE      one size (used by the parent)
//
// The parent points "InstallLogsDir" of the new-brand root at a temporary
// folder for the duration and puts the old value back afterwards. Each child
// measures time per run and the peak memory of its own process, so the sizes
// don't inherit each other's peaks.
#include <windows.h>
#include <psapi.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <json/json.h>

#include "core/log/LogSink.h"
#include "diagnostics/Telemetry.h"
#include "diagnostics/ToolLog.h"
#include "platform/Services.h"
#include "update/UpdateRecord.h"
#include "update/UpdateState.h"

namespace {

const wchar_t* kRootKey = L"Software\\Tarvelle\\Zenthra";
const wchar_t* kParentKey = L"Software\\Tarvelle";
const int kSizes[] = {0, 1000, 10000, 100000};

int runsFor(int entries)
{
    if (entries <= 0)
        return 200;
    if (entries <= 1000)
        return 50;
    if (entries <= 10000)
        return 10;
    return 3;
}

// The tool log would print every line; the figures are what matters here.
class QuietConsole : public platform::Console {
public:
    void Write(const wchar_t*, size_t) override {}
};

std::wstring seedPath(const std::wstring& base, int entries)
{
    return base + L"\\seed-" + std::to_wstring(entries) + L".json";
}

std::wstring targetPath(const std::wstring& base)
{
    return base + L"\\logs\\updatetool\\UpdateToolTelemetryData.json";
}

std::wstring resultPath(const std::wstring& base, int entries)
{
    return base + L"\\result-" + std::to_wstring(entries) + L".txt";
}

bool writeBytes(const std::wstring& path, const std::string& bytes)
{
    HANDLE h = ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return false;
    DWORD written = 0;
    BOOL ok = ::WriteFile(h, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
    ::CloseHandle(h);
    return ok && written == bytes.size();
}

std::string readBytes(const std::wstring& path)
{
    std::string bytes;
    HANDLE h = ::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                             FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return bytes;
    char buffer[1 << 16];
    DWORD read = 0;
    while (::ReadFile(h, buffer, sizeof buffer, &read, nullptr) && read)
        bytes.append(buffer, read);
    ::CloseHandle(h);
    return bytes;
}

// Entries shaped like the tool's own, a fifth of them with error details.
std::string seedDocument(int entries)
{
    Json::Value root;
    Json::Value& list = root["updateTool"];
    for (int i = 0; i < entries; ++i) {
        Json::Value e;
        e["updatedGUID"] = "{5A1C0E2B-7D4F-4C39-9B6E-" + std::to_string(100000000000LL + i) + "}";
        e["type"] = "GenericAgent";
        e["fileName"] = "C:\\Windows\\Temp\\updatetool-data\\ZenthraAgent-8.2.0.14-x64.msi";
        e["version"] = "8.2.0.14";
        e["timestamp"] = Json::Int64(1700000000) + i * 3600;
        e["status"] = i % 5 ? "DONE" : "WAIT";
        e["attempt"] = i % 3;
        e["result"] = i % 5 ? "SUCCESS" : "INSTALL_FAILED";
        e["fromVersion"] = "8.1.9.3";
        if (i % 5 == 0) {
            e["errorCode"] = "1603";
            e["errorDescription"] = "Fatal error during installation.";
        }
        list.append(std::move(e));
    }
    return root.toStyledString();
}

int child(int entries, const std::wstring& base)
{
    static QuietConsole quiet;
    platform::Services services = platform::win32Services();
    services.console = &quiet;
    platform::services() = services;
    // The step's lines go to the tool log as in the program (no file here).
    CORE::SetLogSink(&TheToolLog());

    g_updateRecord.sUpdateKey = L"{5A1C0E2B-7D4F-4C39-9B6E-2F8A1D3C4B5E}";
    g_updateRecord.sAgent = L"GenericAgent";
    g_updateRecord.sFileName = L"C:\\Windows\\Temp\\updatetool-data\\ZenthraAgent-8.2.0.14-x64.msi";
    g_updateRecord.sVersion = L"8.2.0.14";
    g_updateRecord.sFromVersion = L"8.1.9.3";
    g_updateRecord.nState = STATE_DONE;
    g_updateRecord.nRetry = 1;
    g_updateRecord.sResult = L"SUCCESS";

    const std::wstring target = targetPath(base);
    const std::wstring seed = seedPath(base, entries);

    PROCESS_MEMORY_COUNTERS before{};
    before.cb = sizeof before;
    ::GetProcessMemoryInfo(::GetCurrentProcess(), &before, sizeof before);

    LARGE_INTEGER frequency, start, stop;
    ::QueryPerformanceFrequency(&frequency);
    const int runs = runsFor(entries);
    double total = 0, best = 1e30;
    for (int r = 0; r < runs; ++r) {
        // Every run starts from the same file, outside the timed part.
        if (entries == 0)
            ::DeleteFileW(target.c_str());
        else if (!::CopyFileW(seed.c_str(), target.c_str(), FALSE)) {
            std::fprintf(stderr, "copy of the seed file failed: %lu\n", ::GetLastError());
            return 2;
        }
        ::QueryPerformanceCounter(&start);
        bool ok = Util_UpdateDataForTelemetry();
        ::QueryPerformanceCounter(&stop);
        if (!ok) {
            std::fprintf(stderr, "telemetry step failed: %lu\n", ::GetLastError());
            return 3;
        }
        double seconds = double(stop.QuadPart - start.QuadPart) / double(frequency.QuadPart);
        total += seconds;
        if (seconds < best)
            best = seconds;
    }

    PROCESS_MEMORY_COUNTERS after{};
    after.cb = sizeof after;
    ::GetProcessMemoryInfo(::GetCurrentProcess(), &after, sizeof after);

    // The last run's file must hold the seed's entries and one more.
    std::string written = readBytes(target);
    Json::Value root;
    Json::Reader reader;
    if (!reader.parse(written.data(), written.data() + written.size(), root, true) ||
        root["updateTool"].size() != static_cast<Json::ArrayIndex>(entries + 1)) {
        std::fprintf(stderr, "the file after the run doesn't hold %d entries\n", entries + 1);
        return 4;
    }

    char line[512];
    std::snprintf(line, sizeof line, "%d %d %.6f %.6f %llu %llu %llu %llu %llu\n", entries, runs, total / runs, best,
                  static_cast<unsigned long long>(written.size()),
                  static_cast<unsigned long long>(before.WorkingSetSize),
                  static_cast<unsigned long long>(after.PeakWorkingSetSize),
                  static_cast<unsigned long long>(before.PagefileUsage),
                  static_cast<unsigned long long>(after.PeakPagefileUsage));
    return writeBytes(resultPath(base, entries), line) ? 0 : 5;
}

// HKLM\Software\Tarvelle\Zenthra "InstallLogsDir", set for the run and put
// back as it was, keys we made included.
class InstallLogsDirOverride {
public:
    bool set(const std::wstring& directory)
    {
        DWORD disposition = 0;
        HKEY parent = nullptr;
        if (::RegCreateKeyExW(HKEY_LOCAL_MACHINE, kParentKey, 0, nullptr, 0, KEY_READ, nullptr, &parent,
                              &disposition) != ERROR_SUCCESS)
            return false;
        m_createdParent = disposition == REG_CREATED_NEW_KEY;
        ::RegCloseKey(parent);
        if (::RegCreateKeyExW(HKEY_LOCAL_MACHINE, kRootKey, 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr, &m_key,
                              &disposition) != ERROR_SUCCESS)
            return false;
        m_createdKey = disposition == REG_CREATED_NEW_KEY;
        DWORD type = 0, size = 0;
        if (::RegQueryValueExW(m_key, L"InstallLogsDir", nullptr, &type, nullptr, &size) == ERROR_SUCCESS) {
            m_old.resize(size);
            if (::RegQueryValueExW(m_key, L"InstallLogsDir", nullptr, &type, m_old.data(), &size) == ERROR_SUCCESS) {
                m_old.resize(size);
                m_oldType = type;
                m_hadOld = true;
            }
        }
        return ::RegSetValueExW(m_key, L"InstallLogsDir", 0, REG_SZ, reinterpret_cast<const BYTE*>(directory.c_str()),
                                static_cast<DWORD>((directory.size() + 1) * sizeof(wchar_t))) == ERROR_SUCCESS;
    }
    ~InstallLogsDirOverride()
    {
        if (!m_key)
            return;
        if (m_hadOld)
            ::RegSetValueExW(m_key, L"InstallLogsDir", 0, m_oldType, m_old.data(), static_cast<DWORD>(m_old.size()));
        else
            ::RegDeleteValueW(m_key, L"InstallLogsDir");
        ::RegCloseKey(m_key);
        if (m_createdKey)
            ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, kRootKey);
        if (m_createdParent)
            ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, kParentKey);
    }

private:
    HKEY m_key = nullptr;
    bool m_createdKey = false;
    bool m_createdParent = false;
    bool m_hadOld = false;
    DWORD m_oldType = REG_SZ;
    std::vector<BYTE> m_old;
};

struct Result {
    int entries = 0;
    int runs = 0;
    double mean = 0, best = 0;
    unsigned long long fileBytes = 0, baseWorkingSet = 0, peakWorkingSet = 0, basePagefile = 0, peakPagefile = 0;
};

bool runChild(const std::wstring& self, int entries, const std::wstring& base, Result& out)
{
    std::wstring commandLine = L"\"" + self + L"\" --child " + std::to_wstring(entries) + L" \"" + base + L"\"";
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!::CreateProcessW(self.c_str(), commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                          &process)) {
        std::fprintf(stderr, "could not start the child for %d entries: %lu\n", entries, ::GetLastError());
        return false;
    }
    ::WaitForSingleObject(process.hProcess, INFINITE);
    DWORD code = 1;
    ::GetExitCodeProcess(process.hProcess, &code);
    ::CloseHandle(process.hThread);
    ::CloseHandle(process.hProcess);
    if (code != 0) {
        std::fprintf(stderr, "child for %d entries ended with %lu\n", entries, code);
        return false;
    }
    std::string line = readBytes(resultPath(base, entries));
    return std::sscanf(line.c_str(), "%d %d %lf %lf %llu %llu %llu %llu %llu", &out.entries, &out.runs, &out.mean,
                       &out.best, &out.fileBytes, &out.baseWorkingSet, &out.peakWorkingSet, &out.basePagefile,
                       &out.peakPagefile) == 9;
}

double mib(unsigned long long bytes) { return double(bytes) / (1024.0 * 1024.0); }

void removeTree(const std::wstring& base)
{
    for (int entries : kSizes) {
        ::DeleteFileW(seedPath(base, entries).c_str());
        ::DeleteFileW(resultPath(base, entries).c_str());
    }
    ::DeleteFileW(targetPath(base).c_str());
    ::RemoveDirectoryW((base + L"\\logs\\updatetool").c_str());
    ::RemoveDirectoryW((base + L"\\logs").c_str());
    ::RemoveDirectoryW(base.c_str());
}

int parent()
{
    wchar_t self[MAX_PATH + 1] = {};
    ::GetModuleFileNameW(nullptr, self, MAX_PATH);
    wchar_t temp[MAX_PATH + 1] = {};
    ::GetTempPathW(MAX_PATH, temp);
    std::wstring base = std::wstring(temp) + L"zt-telemetry-bench-" + std::to_wstring(::GetCurrentProcessId());
    ::CreateDirectoryW(base.c_str(), nullptr);
    ::CreateDirectoryW((base + L"\\logs").c_str(), nullptr);

    for (int entries : kSizes)
        if (entries > 0 && !writeBytes(seedPath(base, entries), seedDocument(entries))) {
            std::fprintf(stderr, "could not write the seed file for %d entries\n", entries);
            removeTree(base);
            return 1;
        }

    std::vector<Result> results;
    {
        InstallLogsDirOverride setting;
        if (!setting.set(base + L"\\logs")) {
            std::fprintf(stderr, "could not set InstallLogsDir (run with rights to HKLM)\n");
            removeTree(base);
            return 1;
        }
        for (int entries : kSizes) {
            Result r;
            if (!runChild(self, entries, base, r)) {
                removeTree(base);
                return 1;
            }
            results.push_back(r);
        }
    }
    removeTree(base);

    std::printf("telemetry step: load, append one entry, write back (real files, one process per size)\n");
    std::printf("%9s %5s %12s %12s %11s %13s %13s %13s\n", "entries", "runs", "ms/run mean", "ms/run best",
                "file MiB", "peak WS MiB", "WS growth MiB", "peak PF MiB");
    for (const Result& r : results)
        std::printf("%9d %5d %12.3f %12.3f %11.2f %13.1f %13.1f %13.1f\n", r.entries, r.runs, r.mean * 1000.0,
                    r.best * 1000.0, mib(r.fileBytes), mib(r.peakWorkingSet),
                    mib(r.peakWorkingSet - std::min(r.peakWorkingSet, r.baseWorkingSet)), mib(r.peakPagefile));

    // Growth between neighbouring sizes: time and memory per added entry.
    for (size_t i = 2; i < results.size(); ++i) {
        const Result& a = results[i - 1];
        const Result& b = results[i];
        double timeRatio = b.best / a.best;
        double sizeRatio = double(b.entries) / double(a.entries);
        double usPerEntry = (b.best - a.best) * 1e6 / double(b.entries - a.entries);
        double bytesPerEntry = double(b.peakWorkingSet - std::min(b.peakWorkingSet, a.peakWorkingSet)) /
                               double(b.entries - a.entries);
        std::printf("%d -> %d entries (x%.0f): time x%.1f, %.2f us and %.0f bytes of peak memory per added entry\n",
                    a.entries, b.entries, sizeRatio, timeRatio, usPerEntry, bytesPerEntry);
    }
    // The exponent k of time ~ entries^k over the two largest sizes: 1 is
    // linear, which is what reading and rewriting the whole file costs.
    const Result& small = results[results.size() - 2];
    const Result& large = results.back();
    double k = std::log(large.best / small.best) / std::log(double(large.entries) / double(small.entries));
    std::printf("time per run grows as entries^%.2f between %d and %d entries (%s)\n", k, small.entries,
                large.entries, k < 1.2 ? "about linear" : "faster than linear");
    return 0;
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    if (argc >= 4 && std::wstring(argv[1]) == L"--child")
        return child(std::wcstol(argv[2], nullptr, 10), argv[3]);
    return parent();
}
