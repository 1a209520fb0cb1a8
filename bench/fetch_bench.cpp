// A whole DOWNLOAD run of the tool on a large payload from the lab's share:
// copy into the workspace, size check, SHA-256 check, state written back.
// Each run is timed from process start to exit, and the tool's memory is
// sampled every few milliseconds while it runs. Figures only.
//
//   bench_fetch UNC SIZE SHA256 [runs]      (default 3 runs)
//
// Memory: GetProcessMemoryInfo on the tool's process handle. Under Wine the
// server answers it for another process from the kernel's /proc/<pid>/status
// of the tool's Unix process: PeakWorkingSetSize is VmHWM, the kernel's peak
// resident set, which only grows; PagefileUsage is RssAnon + VmSwap, the
// private memory in use (Wine gives no peak of its own for that, so the
// largest sample is kept). The counters vanish with the process, so the last
// sample is at most one interval before the exit.
//
// The job lives in its own key for the length of the bench; the lab's
// settings that the bench changes are put back afterwards, and the copies the
// tool leaves in its workspace are deleted after each run. After each run
// the bench also times CopyFileW of the same file on its own, to tell the
// copy's share of a run from the verification's. The last line is
// "fetch_ms_min=<ms> fetch_ms_median=<ms> copy_ms_min=<ms> peak_ws_kib=<KiB>
// peak_private_kib=<KiB>" for scripts/bench.sh.
#include <windows.h>
#include <psapi.h>

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "BenchSupport.h"

namespace {

const wchar_t* const kUpdateKey = L"Software\\Tarvelle\\Zenthra\\Agent\\Update";
const wchar_t* const kLegacyUpdateKey = L"Software\\Kesmarc, Inc.\\Kesmarc TQM\\Agent\\Update";
const wchar_t* const kJobName = L"zt-bench-fetch";
const DWORD kSampleMs = 5;

bool keyExists(const wchar_t* path)
{
    HKEY key = nullptr;
    if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, KEY_READ, &key) != ERROR_SUCCESS)
        return false;
    ::RegCloseKey(key);
    return true;
}

// Names of the subkeys of a key; empty when it doesn't exist.
std::vector<std::wstring> subkeys(const wchar_t* path)
{
    std::vector<std::wstring> names;
    HKEY key = nullptr;
    if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, KEY_READ, &key) != ERROR_SUCCESS)
        return names;
    wchar_t name[256];
    for (DWORD i = 0;; ++i) {
        DWORD length = 256;
        if (::RegEnumKeyExW(key, i, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
            break;
        names.emplace_back(name, length);
    }
    ::RegCloseKey(key);
    return names;
}

bool writeText(const std::wstring& keyPath, const wchar_t* name, const std::wstring& text)
{
    HKEY key = nullptr;
    if (::RegCreateKeyExW(HKEY_LOCAL_MACHINE, keyPath.c_str(), 0, nullptr, 0, KEY_SET_VALUE, nullptr, &key,
                          nullptr) != ERROR_SUCCESS)
        return false;
    LSTATUS rc = ::RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                                  static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
    ::RegCloseKey(key);
    return rc == ERROR_SUCCESS;
}

std::wstring readText(const std::wstring& keyPath, const wchar_t* name)
{
    wchar_t buffer[1024] = {};
    DWORD size = sizeof buffer - sizeof(wchar_t);
    if (::RegGetValueW(HKEY_LOCAL_MACHINE, keyPath.c_str(), name, RRF_RT_REG_SZ, nullptr, buffer, &size) !=
        ERROR_SUCCESS)
        return L"?";
    return buffer;
}

// A value below HKLM set for the bench and put back as it was.
class ValueOverride {
public:
    ValueOverride(std::wstring key, std::wstring name, const std::wstring& text)
        : m_key(std::move(key)), m_name(std::move(name))
    {
        HKEY handle = nullptr;
        if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, m_key.c_str(), 0, KEY_QUERY_VALUE, &handle) == ERROR_SUCCESS) {
            DWORD type = 0, size = 0;
            if (::RegQueryValueExW(handle, m_name.c_str(), nullptr, &type, nullptr, &size) == ERROR_SUCCESS) {
                std::vector<BYTE> data(size);
                if (::RegQueryValueExW(handle, m_name.c_str(), nullptr, &type, data.data(), &size) == ERROR_SUCCESS)
                    m_saved = std::make_pair(type, data);
            }
            ::RegCloseKey(handle);
        }
        writeText(m_key, m_name.c_str(), text);
    }
    ~ValueOverride()
    {
        HKEY handle = nullptr;
        if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, m_key.c_str(), 0, KEY_SET_VALUE, &handle) != ERROR_SUCCESS)
            return;
        if (m_saved)
            ::RegSetValueExW(handle, m_name.c_str(), 0, m_saved->first, m_saved->second.data(),
                             static_cast<DWORD>(m_saved->second.size()));
        else
            ::RegDeleteValueW(handle, m_name.c_str());
        ::RegCloseKey(handle);
    }
    ValueOverride(const ValueOverride&) = delete;
    ValueOverride& operator=(const ValueOverride&) = delete;

private:
    std::wstring m_key, m_name;
    std::optional<std::pair<DWORD, std::vector<BYTE>>> m_saved;
};

// The bench's own environment with TEMP and TMP pointing at `temp`: the
// tool's workspace lands there.
std::wstring environmentWithTemp(const std::wstring& temp)
{
    std::wstring block;
    wchar_t* strings = ::GetEnvironmentStringsW();
    for (const wchar_t* p = strings; p && *p; p += wcslen(p) + 1) {
        std::wstring entry = p;
        if (_wcsnicmp(entry.c_str(), L"TEMP=", 5) == 0 || _wcsnicmp(entry.c_str(), L"TMP=", 4) == 0)
            continue;
        block += entry;
        block.push_back(L'\0');
    }
    ::FreeEnvironmentStringsW(strings);
    for (const wchar_t* name : {L"TEMP=", L"TMP="}) {
        block += name + temp;
        block.push_back(L'\0');
    }
    block.push_back(L'\0');
    return block;
}

struct Run {
    double ms = 0;
    double copyMs = 0;  // CopyFileW of the same file from the bench itself
    DWORD exitCode = 0;
    SIZE_T firstWorkingSet = 0;
    SIZE_T peakWorkingSet = 0;
    SIZE_T peakPrivate = 0;
    int samples = 0;
};

Run runTool(const std::wstring& tool, std::wstring environment)
{
    Run run;
    double start = bench::nowMs();
    // The console copy of the log goes nowhere.
    PROCESS_INFORMATION info = bench::startQuietly(tool, environment.data());
    for (;;) {
        DWORD wait = ::WaitForSingleObject(info.hProcess, kSampleMs);
        if (wait != WAIT_TIMEOUT)
            break;
        PROCESS_MEMORY_COUNTERS counters{};
        counters.cb = sizeof counters;
        if (::GetProcessMemoryInfo(info.hProcess, &counters, sizeof counters)) {
            if (run.samples++ == 0)
                run.firstWorkingSet = counters.WorkingSetSize;
            run.peakWorkingSet = std::max(run.peakWorkingSet, counters.PeakWorkingSetSize);
            run.peakPrivate = std::max(run.peakPrivate, counters.PagefileUsage);
        }
    }
    run.ms = bench::nowMs() - start;
    ::GetExitCodeProcess(info.hProcess, &run.exitCode);
    ::CloseHandle(info.hThread);
    ::CloseHandle(info.hProcess);
    return run;
}

double mib(SIZE_T bytes) { return static_cast<double>(bytes) / (1024.0 * 1024.0); }

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    if (argc < 4) {
        std::fprintf(stderr, "usage: bench_fetch UNC SIZE SHA256 [runs]\n");
        return 2;
    }
    const std::wstring unc = argv[1];
    const std::wstring size = argv[2];
    const std::wstring checksum = argv[3];
    int runs = argc > 4 ? _wtoi(argv[4]) : 3;
    if (runs < 1)
        runs = 3;
    const std::wstring tool = bench::ownDirectory() + L"\\zenthra-updatetool.exe";
    const std::wstring fileName = unc.substr(unc.find_last_of(L'\\') + 1);

    // The tool takes the first job it finds: a job of the lab's own would be
    // run instead of ours.
    for (const wchar_t* root : {kUpdateKey, kLegacyUpdateKey}) {
        if (!subkeys(root).empty()) {
            std::fprintf(stderr, "bench_fetch: HKLM\\%ls already holds jobs; not touching them\n", root);
            return 2;
        }
    }

    // The highest key of the job's path that isn't there yet: the bench
    // removes it again, with all below it, when it is done.
    std::wstring madeKey;
    for (const wchar_t* level : {L"Software\\Tarvelle", L"Software\\Tarvelle\\Zenthra",
                                 L"Software\\Tarvelle\\Zenthra\\Agent", kUpdateKey}) {
        if (!keyExists(level)) {
            madeKey = level;
            break;
        }
    }
    const std::wstring scratch = bench::scratchFolder(L"zt-bench-fetch");
    const std::wstring temp = scratch + L"\\temp";
    const std::wstring logs = scratch + L"\\logs";
    ::CreateDirectoryW(temp.c_str(), nullptr);
    ::CreateDirectoryW(logs.c_str(), nullptr);
    const std::wstring workspaceCopy = temp + L"\\updatetool-data\\" + fileName;
    const std::wstring jobKey = std::wstring(kUpdateKey) + L"\\" + kJobName;

    std::vector<Run> done;
    bool failed = false;
    {
        bench::InstallLogsDirOverride logsDir(logs);
        // A failed verification must not wait five minutes for a retry.
        ValueOverride wait(kUpdateKey, L"RetryWaitPeriod", L"0");
        ValueOverride retries(kUpdateKey, L"MAXDOWNLOADANDUPGRADERETRY", L"0");
        const std::wstring environment = environmentWithTemp(temp);
        for (int i = 0; i < runs && !failed; ++i) {
            const std::pair<const wchar_t*, std::wstring> job[] = {
                {L"AGENT", L"OTHER"},   {L"VERSION", L"1.0.0"}, {L"ARCH", L"64-BitAgent"},
                {L"UNC_PATH", unc},     {L"FILESIZE", size},    {L"CHECKSUM", checksum},
                {L"STATE", L"DOWNLOAD"}, {L"RESULT", L""},      {L"RETRY", L"0"}};
            for (const auto& [name, text] : job)
                writeText(jobKey, name, text);
            Run run = runTool(tool, environment);
            std::wstring state = readText(jobKey, L"STATE");
            std::wstring result = readText(jobKey, L"RESULT");
            std::printf("  run %d: %8.0f ms, exit %ld, job %ls/%ls, peak working set %.1f MiB, %d samples\n", i + 1,
                        run.ms, static_cast<long>(run.exitCode), state.c_str(), result.c_str(),
                        mib(run.peakWorkingSet), run.samples);
            if (state != L"WAIT" || result != L"OK") {
                std::fprintf(stderr, "bench_fetch: the run did not end in WAIT/OK (error %ls: %ls)\n",
                             readText(jobKey, L"ERRORCODE").c_str(), readText(jobKey, L"ERRORDESC").c_str());
                failed = true;
            }
            ::DeleteFileW(workspaceCopy.c_str());
            // The copy step alone, as the platform does it for the tool.
            double start = bench::nowMs();
            BOOL copied = ::CopyFileW(unc.c_str(), workspaceCopy.c_str(), FALSE);
            run.copyMs = bench::nowMs() - start;
            ::DeleteFileW(workspaceCopy.c_str());
            if (!copied) {
                std::fprintf(stderr, "bench_fetch: CopyFileW failed (error %lu)\n", ::GetLastError());
                failed = true;
            }
            done.push_back(run);
        }
        ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, jobKey.c_str());
        ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, jobKey.c_str());
    }
    // Keys the bench made go again, so the lab is left as found.
    if (!madeKey.empty()) {
        ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, madeKey.c_str());
        ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, madeKey.c_str());
    }
    bench::removeTree(scratch);
    if (failed)
        return 3;

    std::vector<double> times, copies;
    SIZE_T peak = 0, peakPrivate = 0, first = 0;
    for (const Run& run : done) {
        times.push_back(run.ms);
        copies.push_back(run.copyMs);
        peak = std::max(peak, run.peakWorkingSet);
        peakPrivate = std::max(peakPrivate, run.peakPrivate);
        if (!first || run.firstWorkingSet < first)
            first = run.firstWorkingSet;
    }
    bench::Figures f = bench::figuresOf(times);
    std::printf("tool DOWNLOAD run, %ls (%ls bytes): min %.0f ms, median %.0f ms\n", fileName.c_str(), size.c_str(),
                f.min, f.median);
    bench::Figures c = bench::figuresOf(copies);
    std::printf("  of which: CopyFileW of the same file alone: min %.0f ms, median %.0f ms\n", c.min, c.median);
    std::printf("tool memory: peak working set %.1f MiB (first sample %.1f MiB), largest private %.1f MiB\n",
                mib(peak), mib(first), mib(peakPrivate));
    std::printf("fetch_ms_min=%.0f fetch_ms_median=%.0f copy_ms_min=%.0f peak_ws_kib=%llu peak_private_kib=%llu\n",
                f.min, f.median, c.min, static_cast<unsigned long long>(peak / 1024),
                static_cast<unsigned long long>(peakPrivate / 1024));
    return 0;
}
