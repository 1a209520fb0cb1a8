// Wall time of a whole run of the tool with no job, against a program that
// does nothing, both started the same way in the warm lab. The difference is
// what the tool itself costs: static initialisation, the log, the registry
// reads, the closing steps. Figures only; the target is a difference of at
// most 80 ms.
//
// bench_startup [runs]   (default 20)
#include <cstdlib>

#include "BenchSupport.h"

namespace {

struct Run {
    double ms = 0;
    DWORD exitCode = 0;
};

Run runOnce(const std::wstring& program)
{
    Run run;
    double start = bench::nowMs();
    // The console copy of the log goes nowhere: only the run itself is timed.
    PROCESS_INFORMATION info = bench::startQuietly(program);
    ::WaitForSingleObject(info.hProcess, INFINITE);
    run.ms = bench::nowMs() - start;
    ::GetExitCodeProcess(info.hProcess, &run.exitCode);
    ::CloseHandle(info.hThread);
    ::CloseHandle(info.hProcess);
    return run;
}

void print(const char* what, const bench::Figures& f)
{
    std::printf("%-22s mean %8.1f ms   median %8.1f ms   min %8.1f ms   max %8.1f ms\n", what, f.mean, f.median,
                f.min, f.max);
}

}  // namespace

int main(int argc, char** argv)
{
    int runs = argc > 1 ? std::atoi(argv[1]) : 20;
    if (runs < 1)
        runs = 20;
    std::wstring dir = bench::ownDirectory();
    std::wstring tool = dir + L"\\zenthra-updatetool.exe";
    std::wstring trivial = dir + L"\\trivial.exe";

    std::wstring logs = bench::scratchFolder(L"zt-bench-startup");
    double toolExit = 0;
    std::vector<double> toolTimes, trivialTimes;
    {
        bench::InstallLogsDirOverride override(logs);
        // One run of each first, so that neither pays for loading the other's DLLs.
        runOnce(tool);
        runOnce(trivial);
        // Alternate, so that a busy moment of the machine hits both alike.
        for (int i = 0; i < runs; ++i) {
            Run t = runOnce(tool);
            toolTimes.push_back(t.ms);
            toolExit = static_cast<int>(t.exitCode);
            trivialTimes.push_back(runOnce(trivial).ms);
        }
    }
    bench::removeTree(logs);

    bench::Figures toolFigures = bench::figuresOf(toolTimes);
    bench::Figures trivialFigures = bench::figuresOf(trivialTimes);
    std::printf("start-up, %d runs each, warm lab, no job (tool exit code %d)\n", runs, static_cast<int>(toolExit));
    print("zenthra-updatetool.exe", toolFigures);
    print("trivial.exe", trivialFigures);
    double meanDiff = toolFigures.mean - trivialFigures.mean;
    double medianDiff = toolFigures.median - trivialFigures.median;
    std::printf("difference             mean %8.1f ms   median %8.1f ms   (target: at most 80 ms: %s)\n", meanDiff,
                medianDiff, medianDiff <= 80.0 ? "met" : "not met");
    return 0;
}
