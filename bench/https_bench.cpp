// DOWNLOAD runs of the tool over HTTPS from the lab's nginx (tests/lab/https,
// started by scripts/bench.sh): the whole run timed from process start to
// exit, the tool's memory sampled while it runs, and a download cut short
// and resumed by the next run. Figures only.
//
//   bench_https fetch URL SIZE SHA256 [runs]     whole downloads (default 3)
//   bench_https resume URL SIZE SHA256 CUT       a run ended once the payload's
//                                                partial file holds CUT bytes,
//                                                then the run that finishes it
//
// Memory as bench_fetch reads it: GetProcessMemoryInfo on the tool's process,
// which Wine answers from the kernel's figures for the tool's Unix process
// (PeakWorkingSetSize is VmHWM).
//
// The job lives in its own key for the length of the bench; the lab's
// settings that the bench changes are put back afterwards, and the
// workspace is emptied after each run. The last line is "key=value" figures
// for scripts/bench.sh.
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
const wchar_t* const kJobName = L"zt-bench-https";
const DWORD kSampleMs = 5;

bool keyExists(const wchar_t* path)
{
    HKEY key = nullptr;
    if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, KEY_READ, &key) != ERROR_SUCCESS)
        return false;
    ::RegCloseKey(key);
    return true;
}

bool hasSubkeys(const wchar_t* path)
{
    HKEY key = nullptr;
    if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, KEY_READ, &key) != ERROR_SUCCESS)
        return false;
    wchar_t name[256];
    DWORD length = 256;
    bool any = ::RegEnumKeyExW(key, 0, name, &length, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
    ::RegCloseKey(key);
    return any;
}

bool writeValue(const std::wstring& keyPath, const wchar_t* name, DWORD type, const std::wstring& text)
{
    HKEY key = nullptr;
    if (::RegCreateKeyExW(HKEY_LOCAL_MACHINE, keyPath.c_str(), 0, nullptr, 0, KEY_SET_VALUE, nullptr, &key,
                          nullptr) != ERROR_SUCCESS)
        return false;
    // REG_MULTI_SZ: the one item, its terminator and the list's.
    DWORD bytes = static_cast<DWORD>((text.size() + (type == REG_MULTI_SZ ? 2 : 1)) * sizeof(wchar_t));
    std::wstring data = text;
    data.push_back(L'\0');
    data.push_back(L'\0');
    LSTATUS rc = ::RegSetValueExW(key, name, 0, type, reinterpret_cast<const BYTE*>(data.c_str()), bytes);
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
        writeValue(m_key, m_name.c_str(), REG_SZ, text);
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

// The largest file below a folder, at any depth: the download under way.
unsigned long long largestFile(const std::wstring& folder)
{
    unsigned long long largest = 0;
    WIN32_FIND_DATAW data;
    HANDLE find = ::FindFirstFileW((folder + L"\\*").c_str(), &data);
    if (find == INVALID_HANDLE_VALUE)
        return 0;
    do {
        std::wstring name = data.cFileName;
        if (name == L"." || name == L"..")
            continue;
        unsigned long long size = data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY
                                      ? largestFile(folder + L"\\" + name)
                                      : (static_cast<unsigned long long>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
        largest = std::max(largest, size);
    } while (::FindNextFileW(find, &data));
    ::FindClose(find);
    return largest;
}

struct Run {
    double ms = 0;
    DWORD exitCode = 0;
    SIZE_T peakWorkingSet = 0;
    SIZE_T peakPrivate = 0;
    unsigned long long cutAt = 0;  // resume's first run: the partial file's size when it was ended
};

// Runs the tool to its end, or (cutAt > 0) until a file of the workspace
// holds cutAt bytes, then ends it.
Run runTool(const std::wstring& tool, std::wstring environment, const std::wstring& workspace,
            unsigned long long cutAt = 0)
{
    Run run;
    double start = bench::nowMs();
    PROCESS_INFORMATION info = bench::startQuietly(tool, environment.data());
    for (;;) {
        if (::WaitForSingleObject(info.hProcess, kSampleMs) != WAIT_TIMEOUT)
            break;
        PROCESS_MEMORY_COUNTERS counters{};
        counters.cb = sizeof counters;
        if (::GetProcessMemoryInfo(info.hProcess, &counters, sizeof counters)) {
            run.peakWorkingSet = std::max(run.peakWorkingSet, counters.PeakWorkingSetSize);
            run.peakPrivate = std::max(run.peakPrivate, counters.PagefileUsage);
        }
        if (cutAt && largestFile(workspace) >= cutAt) {
            ::TerminateProcess(info.hProcess, 1);
            ::WaitForSingleObject(info.hProcess, 30000);
            run.cutAt = largestFile(workspace);
            break;
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
    const std::wstring mode = argc > 1 ? argv[1] : L"";
    if (argc < 5 || (mode != L"fetch" && mode != L"resume") || (mode == L"resume" && argc < 6)) {
        std::fprintf(stderr, "usage: bench_https fetch URL SIZE SHA256 [runs] | resume URL SIZE SHA256 CUT\n");
        return 2;
    }
    const std::wstring url = argv[2];
    const std::wstring size = argv[3];
    const std::wstring checksum = argv[4];
    int runs = mode == L"fetch" && argc > 5 ? _wtoi(argv[5]) : 3;
    if (runs < 1)
        runs = 3;
    const unsigned long long cut = mode == L"resume" ? _wcstoui64(argv[5], nullptr, 10) : 0;
    const std::wstring tool = bench::ownDirectory() + L"\\zenthra-updatetool.exe";

    // The tool takes the first job it finds: a job of the lab's own would be
    // run instead of ours.
    for (const wchar_t* root : {kUpdateKey, kLegacyUpdateKey}) {
        if (hasSubkeys(root)) {
            std::fprintf(stderr, "bench_https: HKLM\\%ls already holds jobs; not touching them\n", root);
            return 2;
        }
    }
    std::wstring madeKey;
    for (const wchar_t* level : {L"Software\\Tarvelle", L"Software\\Tarvelle\\Zenthra",
                                 L"Software\\Tarvelle\\Zenthra\\Agent", kUpdateKey}) {
        if (!keyExists(level)) {
            madeKey = level;
            break;
        }
    }
    const std::wstring scratch = bench::scratchFolder(L"zt-bench-https");
    const std::wstring temp = scratch + L"\\temp";
    const std::wstring logs = scratch + L"\\logs";
    ::CreateDirectoryW(temp.c_str(), nullptr);
    ::CreateDirectoryW(logs.c_str(), nullptr);
    const std::wstring workspace = temp + L"\\updatetool-data";
    const std::wstring jobKey = std::wstring(kUpdateKey) + L"\\" + kJobName;

    auto writeJob = [&] {
        const std::pair<const wchar_t*, std::wstring> job[] = {
            {L"AGENT", L"OTHER"},   {L"VERSION", L"1.0.0"},       {L"ARCH", L"64-BitAgent"},
            {L"FILESIZE", size},    {L"CHECKSUM", checksum},      {L"CERTTYPE", L"CERT_SYSTEM_CA"},
            {L"STATE", L"DOWNLOAD"}, {L"RESULT", L""},            {L"RETRY", L"0"}};
        for (const auto& [name, text] : job)
            writeValue(jobKey, name, REG_SZ, text);
        writeValue(jobKey, L"URL", REG_MULTI_SZ, url);
    };
    auto endedWell = [&] {
        std::wstring state = readText(jobKey, L"STATE");
        std::wstring result = readText(jobKey, L"RESULT");
        if (state == L"WAIT" && result == L"OK")
            return true;
        std::fprintf(stderr, "bench_https: the run ended %ls/%ls (error %ls: %ls)\n", state.c_str(), result.c_str(),
                     readText(jobKey, L"ERRORCODE").c_str(), readText(jobKey, L"ERRORDESC").c_str());
        return false;
    };

    std::vector<Run> done;
    Run cutRun, resumedRun;
    bool failed = false;
    {
        bench::InstallLogsDirOverride logsDir(logs);
        // A failed run must not wait five minutes for a retry.
        ValueOverride wait(kUpdateKey, L"RetryWaitPeriod", L"0");
        ValueOverride retries(kUpdateKey, L"MAXDOWNLOADANDUPGRADERETRY", L"0");
        const std::wstring environment = environmentWithTemp(temp);
        if (mode == L"fetch") {
            for (int i = 0; i < runs && !failed; ++i) {
                writeJob();
                Run run = runTool(tool, environment, workspace);
                std::printf("  run %d: %8.0f ms, exit %ld, peak working set %.1f MiB\n", i + 1, run.ms,
                            static_cast<long>(run.exitCode), mib(run.peakWorkingSet));
                failed = !endedWell();
                bench::removeTree(workspace);
                done.push_back(run);
            }
        } else {
            writeJob();
            cutRun = runTool(tool, environment, workspace, cut);
            // The killed run saved nothing; the management side would start it again as it stands.
            std::printf("  first run ended after %.0f ms with %llu bytes in the workspace\n", cutRun.ms,
                        cutRun.cutAt);
            resumedRun = runTool(tool, environment, workspace);
            std::printf("  resumed run: %.0f ms, peak working set %.1f MiB\n", resumedRun.ms,
                        mib(resumedRun.peakWorkingSet));
            failed = cutRun.cutAt == 0 || !endedWell();
            bench::removeTree(workspace);
        }
        ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, jobKey.c_str());
        ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, jobKey.c_str());
    }
    if (!madeKey.empty()) {
        ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, madeKey.c_str());
        ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, madeKey.c_str());
    }
    bench::removeTree(scratch);
    if (failed)
        return 3;

    if (mode == L"resume") {
        std::printf("cut_bytes=%llu resume_ms=%.0f resume_peak_ws_kib=%llu\n", cutRun.cutAt, resumedRun.ms,
                    static_cast<unsigned long long>(resumedRun.peakWorkingSet / 1024));
        return 0;
    }
    std::vector<double> times;
    SIZE_T peak = 0, peakPrivate = 0;
    for (const Run& run : done) {
        times.push_back(run.ms);
        peak = std::max(peak, run.peakWorkingSet);
        peakPrivate = std::max(peakPrivate, run.peakPrivate);
    }
    bench::Figures f = bench::figuresOf(times);
    std::printf("https_ms_min=%.0f https_ms_median=%.0f peak_ws_kib=%llu peak_private_kib=%llu\n", f.min, f.median,
                static_cast<unsigned long long>(peak / 1024), static_cast<unsigned long long>(peakPrivate / 1024));
    return 0;
}
