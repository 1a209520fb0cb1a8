// Cost of a tool log line as the log grows: every line rewrites the whole
// file, so the cost per line rises with the size of the log. Writes 100,
// 1,000 and 5,000 lines into fresh logs in a scratch folder and prints the
// mean cost per line and the cost of the last hundred lines. The console copy
// is discarded, so only the file is measured. Figures only.
#include <cstdio>

#include "BenchSupport.h"
#include "diagnostics/ToolLog.h"
#include "platform/Services.h"

namespace {

class DiscardingConsole final : public platform::Console {
public:
    void Write(const wchar_t*, size_t) override {}
};

}  // namespace

int main()
{
    std::wstring logs = bench::scratchFolder(L"zt-bench-toollog");
    DiscardingConsole console;
    platform::services().console = &console;

    // A line of typical length.
    const corestring line(L"UtilCopyFile: INFO: copied 52428800 bytes from \\\\fileserver\\share\\agent.msi, attempt 1");
    std::printf("tool log, line of %u characters, console copy discarded\n",
                static_cast<unsigned>(line.length()));
    std::printf("%7s %12s %16s %22s %12s\n", "lines", "total ms", "mean us/line", "last 100: us/line",
                "file KiB");
    {
        bench::InstallLogsDirOverride override(logs);
        for (int count : {100, 1000, 5000}) {
            ToolLog log;
            ToolLog::Open(log, false);
            double start = bench::nowMs();
            double lastHundredStart = start;
            for (int i = 0; i < count; ++i) {
                if (i == count - 100)
                    lastHundredStart = bench::nowMs();
                ToolLog::WriteLine(log, line);
            }
            double end = bench::nowMs();

            WIN32_FILE_ATTRIBUTE_DATA data{};
            double kib = ::GetFileAttributesExW(log.path().c_str(), GetFileExInfoStandard, &data)
                             ? static_cast<double>(data.nFileSizeLow) / 1024.0
                             : -1.0;
            std::printf("%7d %12.1f %16.1f %22.1f %12.1f\n", count, end - start, (end - start) * 1000.0 / count,
                        (end - lastHundredStart) * 1000.0 / 100, kib);
            ::DeleteFileW(log.path().c_str());
        }
    }
    bench::removeTree(logs);
    return 0;
}
