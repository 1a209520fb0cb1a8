#include "StandInInstaller.h"

#include <cwctype>
#include <stdexcept>

#include "Harness.h"

namespace it {

namespace {

// A file the stand-in wrote: UTF-16LE without a mark.
std::optional<std::string> readUtf16Record(const std::wstring& path)
{
    std::optional<std::string> bytes = ReadFileBytes(path);
    if (!bytes)
        return std::nullopt;
    std::wstring text;
    for (size_t i = 0; i + 1 < bytes->size(); i += 2)
        text.push_back(static_cast<wchar_t>(static_cast<unsigned char>((*bytes)[i]) |
                                            (static_cast<unsigned char>((*bytes)[i + 1]) << 8)));
    return Narrow(text);
}

}  // namespace

std::wstring PlaceStandIn(const std::wstring& folder, const std::wstring& name)
{
    MakeDirectories(folder);
    std::wstring path = JoinPath(folder, name);
    std::wstring built = JoinPath(HarnessDirectory(), L"exitcode-installer.exe");
    if (!::CopyFileW(built.c_str(), path.c_str(), FALSE))
        throw std::runtime_error("can't copy " + Narrow(built) + " to " + Narrow(path) + " (error " +
                                 std::to_string(::GetLastError()) + ")");
    return path;
}

void SetStandInExitCode(const std::wstring& installer, DWORD code)
{
    WriteFileBytes(installer + L".exitcode", std::to_string(code) + "\r\n");
}

void SetStandInPackage(const std::wstring& installer, const std::wstring& msiPath)
{
    WriteFileBytes(installer + L".install", Narrow(msiPath) + "\r\n");
}

std::optional<std::string> StandInCommandLine(const std::wstring& installer)
{
    return readUtf16Record(installer + L".cmdline.txt");
}

std::optional<MsiexecRun> StandInMsiexecRun(const std::wstring& installer)
{
    std::optional<std::string> text = readUtf16Record(installer + L".msiexec.txt");
    if (!text)
        return std::nullopt;
    size_t cut = text->rfind("\r\n");
    if (cut == std::string::npos)
        throw std::runtime_error("the stand-in's msiexec record has no exit code: " + *text);
    MsiexecRun run;
    run.commandLine = text->substr(0, cut);
    run.exitCode = static_cast<DWORD>(std::stoul(text->substr(cut + 2)));
    return run;
}

void ForgetStandInRuns(const std::wstring& installer)
{
    for (const wchar_t* record : {L".cmdline.txt", L".msiexec.txt"}) {
        std::wstring path = installer + record;
        if (PathExists(path) && !::DeleteFileW(path.c_str()))
            throw std::runtime_error("can't delete " + Narrow(path));
    }
}

std::string SystemMessageText(DWORD code)
{
    wchar_t* buffer = nullptr;
    DWORD length = ::FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0,
        reinterpret_cast<wchar_t*>(&buffer), 0, nullptr);
    std::wstring text = length && buffer ? std::wstring(buffer, length) : std::wstring();
    if (buffer)
        ::LocalFree(buffer);
    while (!text.empty() && std::iswspace(text.back()))
        text.pop_back();
    return Narrow(text);
}

std::string ExitCodeText(DWORD code) { return std::to_string(code) + " (" + SystemMessageText(code) + ")"; }

}  // namespace it
