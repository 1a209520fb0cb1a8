#include "ShareLab.h"

#include <stdexcept>

namespace it {

namespace {

std::wstring systemDirectory()
{
    wchar_t buffer[MAX_PATH];
    UINT length = ::GetSystemDirectoryW(buffer, MAX_PATH);
    if (!length || length >= MAX_PATH)
        throw std::runtime_error("GetSystemDirectoryW failed");
    return std::wstring(buffer, length);
}

std::string quoted(const std::wstring& text) { return "\"" + Narrow(text) + "\""; }

}  // namespace

void UseLabNetworkProvider()
{
    static bool done = false;
    if (done)
        return;
    if (!PathExists(kLabShare))
        throw std::runtime_error("the lab's share \\\\fileserver\\share is missing: scripts/lab.sh prepare maps it");
    std::wstring built = JoinPath(HarnessDirectory(), L"mpr.dll");
    std::optional<std::string> provider = ReadFileBytes(built);
    if (!provider)
        throw std::runtime_error("no lab network provider next to the harness: " + Narrow(built));
    // Wine looks for a native mpr.dll in system32 only, since the tool loads
    // it from there alone; the lab's per-program override (scripts/lab.sh)
    // makes it come before Wine's own. Copied here as well, since a rebuild
    // doesn't prepare the lab again.
    std::wstring installed = JoinPath(systemDirectory(), L"mpr.dll");
    if (ReadFileBytes(installed) != provider && !::CopyFileW(built.c_str(), installed.c_str(), FALSE))
        throw std::runtime_error("can't install " + Narrow(installed) + " (error " +
                                 std::to_string(::GetLastError()) + ")");
    done = true;
}

void ShareTest::SetUp()
{
    JobTest::SetUp();
    UseLabNetworkProvider();
    std::wstring name = sandbox_.substr(sandbox_.find_last_of(L'\\') + 1);
    shareFolder_ = JoinPath(kLabShare, name);
    RemoveTree(shareFolder_);
    MakeDirectories(shareFolder_);
    traceFile_ = JoinPath(sandbox_, L"provider-calls.txt");
}

void ShareTest::TearDown()
{
    if (!HasFailure())
        RemoveTree(shareFolder_);
    JobTest::TearDown();
}

std::wstring ShareTest::PutOnShare(const std::wstring& name, const std::string& bytes)
{
    std::wstring path = JoinPath(shareFolder_, name);
    WriteFileBytes(path, bytes);
    return path;
}

JobRun ShareTest::RunShareJob(DWORD timeoutMs)
{
    RunOptions options = Options();
    options.timeoutMs = timeoutMs;
    options.env.emplace_back(L"ZT_MPR_TRACE", traceFile_);
    return RunJob(options);
}

std::vector<std::string> ShareTest::ProviderCalls() const
{
    std::vector<std::string> lines;
    std::optional<std::string> text = ReadFileBytes(traceFile_);
    if (!text)
        return lines;
    size_t pos = 0;
    while (pos < text->size()) {
        size_t end = text->find('\n', pos);
        if (end == std::string::npos)
            end = text->size();
        lines.push_back(text->substr(pos, end - pos));
        pos = end + 1;
    }
    return lines;
}

std::string ConnectCall(const std::wstring& remote, unsigned answer)
{
    return "WNetAddConnection2W scope=0 type=1 display=0 usage=0 local=null remote=" + quoted(remote) +
           " comment=null provider=null password=null user=null flags=0 -> " + std::to_string(answer);
}

std::string DisconnectCall(const std::wstring& name, unsigned answer)
{
    return "WNetCancelConnection2W name=" + quoted(name) + " flags=1 force=1 -> " + std::to_string(answer);
}

}  // namespace it
