// The failure report's reading of a large verbose installer log, as the tool
// does it: FetchErrorLines over the whole file, then the name and the message
// from its window. Figures only.
//
//   bench_msilog --make PATH [MiB]   writes a UTF-16 log of that size (default
//                                    256) whose failure comes near its end
//   bench_msilog PATH [runs]         reads it (default 3 runs) and prints the
//                                    time of each run, and the process's peak
//                                    memory, which holds the log once
//
// The last line is "analysis_ms_min=<ms> analysis_ms_median=<ms>
// peak_mib=<MiB> window_lines=<n>" for scripts/bench.sh to set beside
// ripgrep.
#include <windows.h>
#include <psapi.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "diagnostics/InstallerLog.h"
#include "fakes/VerboseMsiLog.h"

namespace {

int make(const std::wstring& path, std::size_t mebibytes)
{
    // The engine's chatter a megabyte at a time, then a failed action.
    msilog::VerboseLog chatter;
    chatter.engineLines(2000);
    const std::string block = msilog::Utf16File(chatter.text(), false);
    msilog::VerboseLog failure;
    failure.succeeds(L"InstallFiles");
    failure.customActionFails(L"CA_StartService", {L"CA_StartService: the Agent service did not start."}, true);
    failure.rollbackAndEnd();
    const std::string tail = msilog::Utf16File(failure.text(), false);

    HANDLE file = ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        std::fprintf(stderr, "cannot create %ls (error %lu)\n", path.c_str(), ::GetLastError());
        return 2;
    }
    auto put = [&](const std::string& bytes) {
        DWORD written = 0;
        return ::WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) &&
               written == bytes.size();
    };
    bool ok = put("\xFF\xFE");
    const std::size_t target = mebibytes << 20;
    for (std::size_t size = 2; ok && size + block.size() + tail.size() <= target; size += block.size())
        ok = put(block);
    ok = ok && put(tail);
    ::CloseHandle(file);
    if (!ok) {
        std::fprintf(stderr, "cannot write %ls\n", path.c_str());
        return 2;
    }
    return 0;
}

int analyse(const std::wstring& path, int runs)
{
    std::vector<double> times;
    std::size_t windowLines = 0;
    for (int run = 0; run < runs; ++run) {
        const double start = bench::nowMs();
        std::vector<CORE::corestring> lines = FetchErrorLines(CORE::corestring(path.c_str()));
        CORE::corestring name = GetFailedCustomActionName(lines);
        CORE::corestring message = GetFailedCAErrorMessage(lines);
        times.push_back(bench::nowMs() - start);
        windowLines = lines.size();
        std::printf("run %d: %.0f ms, window %zu lines, name %ls\n", run + 1, times.back(), lines.size(),
                    name.c_str());
    }
    PROCESS_MEMORY_COUNTERS memory{};
    ::GetProcessMemoryInfo(::GetCurrentProcess(), &memory, sizeof memory);
    const bench::Figures f = bench::figuresOf(times);
    std::printf("analysis_ms_min=%.0f analysis_ms_median=%.0f peak_mib=%.0f window_lines=%zu\n", f.min, f.median,
                static_cast<double>(memory.PeakWorkingSetSize) / (1 << 20), windowLines);
    return windowLines ? 0 : 1;
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    if (argc >= 3 && std::wstring(argv[1]) == L"--make")
        return make(argv[2], argc >= 4 ? std::wcstoul(argv[3], nullptr, 10) : 256);
    if (argc >= 2)
        return analyse(argv[1], argc >= 3 ? std::wcstol(argv[2], nullptr, 10) : 3);
    std::fprintf(stderr, "usage: bench_msilog --make PATH [MiB] | bench_msilog PATH [runs]\n");
    return 2;
}
