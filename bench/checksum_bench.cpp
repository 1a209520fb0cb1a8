// SHA-256 verification of one large file as the tool does it: the tool's own
// Util_ComputeCheckSum, which streams the file through one 4096-byte buffer
// into the platform's hash service. Beside it, the two halves of its cost
// measured apart: the 4096-byte reads alone, and the hash service alone over
// the same number of 4096-byte pieces from memory (and over 1 MiB pieces, to
// show what the piece size costs per call). Figures only.
//
//   bench_checksum PATH [runs]        (default 3 runs; min and median printed)
//
// Each figure is wall time, with the thread's processor time beside it, which
// other work on a shared machine disturbs less. The last line is
// "checksum_ms_min=<ms> checksum_ms_median=<ms> checksum_cpu_ms_min=<ms>" for
// scripts/bench.sh to set beside sha256sum.
#include <windows.h>
#include <bcrypt.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "fetch/Verification.h"
#include "platform/Services.h"

namespace {

// A failure would log a line; the figures are what matters here.
class QuietConsole final : public platform::Console {
public:
    void Write(const wchar_t*, size_t) override {}
};

std::string hex(const std::vector<unsigned char>& bytes)
{
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (unsigned char b : bytes) {
        text.push_back(digits[b >> 4]);
        text.push_back(digits[b & 15]);
    }
    return text;
}

unsigned long long fileSize(const std::wstring& path)
{
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!::GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data))
        return 0;
    return (static_cast<unsigned long long>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
}

// ReadFile in 4096-byte pieces to the end, nothing else.
bool readOnly(const std::wstring& path)
{
    HANDLE file = ::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return false;
    unsigned char buffer[4096];
    DWORD read = 0;
    while (::ReadFile(file, buffer, sizeof buffer, &read, nullptr) && read)
        ;
    ::CloseHandle(file);
    return true;
}

// The hash service over `total` bytes of memory in pieces of `piece` bytes.
bool hashOnly(unsigned long long total, ULONG piece)
{
    BCRYPT_ALG_HANDLE provider = nullptr;
    BCRYPT_HASH_HANDLE hash = nullptr;
    if (::BCryptOpenAlgorithmProvider(&provider, BCRYPT_SHA256_ALGORITHM, nullptr, 0) != 0)
        return false;
    bool ok = ::BCryptCreateHash(provider, &hash, nullptr, 0, nullptr, 0, 0) == 0;
    std::vector<unsigned char> buffer(piece, 0x5a);
    for (unsigned long long done = 0; ok && done < total; done += piece)
        ok = ::BCryptHashData(hash, buffer.data(), piece, 0) == 0;
    unsigned char digest[32];
    ok = ok && ::BCryptFinishHash(hash, digest, sizeof digest, 0) == 0;
    if (hash)
        ::BCryptDestroyHash(hash);
    ::BCryptCloseAlgorithmProvider(provider, 0);
    return ok;
}

// User and kernel time of this thread, in milliseconds.
double cpuMs()
{
    FILETIME created, exited, kernel, user;
    if (!::GetThreadTimes(::GetCurrentThread(), &created, &exited, &kernel, &user))
        return 0;
    auto ms = [](const FILETIME& t) {
        return static_cast<double>((static_cast<unsigned long long>(t.dwHighDateTime) << 32) | t.dwLowDateTime) /
               1e4;
    };
    return ms(kernel) + ms(user);
}

struct Timing {
    bench::Figures wall;
    bench::Figures cpu;
};

template <typename Step>
Timing timeRuns(int runs, Step step)
{
    std::vector<double> wall, cpu;
    for (int i = 0; i < runs; ++i) {
        double cpuStart = cpuMs();
        double start = bench::nowMs();
        if (!step()) {
            std::fprintf(stderr, "bench_checksum: a run failed\n");
            std::exit(3);
        }
        wall.push_back(bench::nowMs() - start);
        cpu.push_back(cpuMs() - cpuStart);
    }
    return {bench::figuresOf(wall), bench::figuresOf(cpu)};
}

void print(const char* what, const Timing& t, unsigned long long bytes)
{
    std::printf("%-44s min %6.0f ms  median %6.0f ms  %7.1f MB/s  cpu min %6.0f ms\n", what, t.wall.min,
                t.wall.median, static_cast<double>(bytes) / 1e6 / (t.wall.min / 1000.0), t.cpu.min);
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: bench_checksum PATH [runs]\n");
        return 2;
    }
    const std::wstring path = argv[1];
    int runs = argc > 2 ? _wtoi(argv[2]) : 3;
    if (runs < 1)
        runs = 3;
    const unsigned long long size = fileSize(path);
    if (size == 0) {
        std::fprintf(stderr, "bench_checksum: can't size %ls\n", path.c_str());
        return 2;
    }

    // The tool log is never opened here: a failure's line would go to the
    // console alone, and that is silenced.
    static QuietConsole quiet;
    platform::services().console = &quiet;
    std::vector<unsigned char> digest;
    Timing tool = timeRuns(runs, [&] {
        digest.clear();
        return Util_ComputeCheckSum(path.c_str(), digest);
    });
    Timing reads = timeRuns(runs, [&] { return readOnly(path); });
    Timing hash4k = timeRuns(runs, [&] { return hashOnly(size, 4096); });
    Timing hash1m = timeRuns(runs, [&] { return hashOnly(size, 1 << 20); });

    std::printf("file %ls, %llu bytes, %d runs each\n", path.c_str(), size, runs);
    std::printf("sha256 %s\n", hex(digest).c_str());
    print("Util_ComputeCheckSum (4096-byte reads)", tool, size);
    print("  of which: ReadFile, 4096-byte pieces", reads, size);
    print("  of which: BCryptHashData, 4096-byte pieces", hash4k, size);
    print("  (BCryptHashData, 1 MiB pieces)", hash1m, size);
    std::printf("checksum_ms_min=%.0f checksum_ms_median=%.0f checksum_cpu_ms_min=%.0f\n", tool.wall.min,
                tool.wall.median, tool.cpu.min);
    return 0;
}
