#include "diagnostics/ToolLog.h"

#include <cstdlib>
#include <memory>

#include <fmt/format.h>

#include "fetch/Workspace.h"
#include "platform/Handles.h"
#include "platform/Services.h"
#include "registry/Registry.h"

namespace {

bool writeAll(HANDLE file, const void* data, DWORD bytes)
{
    DWORD written = 0;
    return platform::files().WriteFile(file, data, bytes, &written) && written == bytes;
}

void exitHandler() { ToolLog::Close(); }

}  // namespace

ToolLog& TheToolLog()
{
    // Heap-held so that no static destructor can run before the exit handler.
    static ToolLog* log = new ToolLog();
    return *log;
}

corestring GetInstallerLogsRoot()
{
    corestring path = GetNewRootKeyPath();
    path.append(L"\\InstallLogsDir");
    corestring directory = RegistryReadOrDefault(path, L"");
    if (directory.empty()) {
        path = GetLegacyRootKeyPath();
        path.append(L"\\InstallLogsDir");
        directory = RegistryReadOrDefault(path, L"");
    }
    if (directory.empty())
        directory = Util_GetWorkspace();
    return directory;
}

corestring GetInstallerLogsDirectory()
{
    corestring directory = GetInstallerLogsRoot();
    directory.appendPath(L"updatetool");
    return directory;
}

void ToolLog::Open(ToolLog& log, bool registerExit)
{
    log.m_text = corestring();
    log.m_path = GetInstallerLogsDirectory();
    platform::files().CreateDirectoryW(log.m_path.c_str());

    log.m_path.appendPath(StampedFileName(L"Tarvelle_Agent_Update_%d%02d%02d%02d%02d%02d.log").c_str());

    WriteLine(log, corestring(L"=== Begin === "));

    wchar_t module[260] = {};
    corestring line;
    if (platform::processes().GetModuleFileNameW(nullptr, module, 260)) {
        // A cut name ends in a terminator on Windows, not on every system.
        module[259] = L'\0';
        corestring version = CORE::to_wstr(GetFileVersionString(module).c_str());
        corestring::format(line, L"Updatetool Version: %s", version.c_str());
    } else {
        corestring::format(line, L"WARNING: Unable to read this file version: (%d)", static_cast<int>(::GetLastError()));
    }
    WriteLine(log, line);

    if (registerExit)
        std::atexit(exitHandler);
}

void ToolLog::WriteLine(ToolLog& log, const corestring& message)
{
    corestring console = NowAsText(L'-', L'.', 0);
    console.append(L": ");
    console.append(message);
    console.append(L"\n");
    platform::console().Write(console.c_str(), console.length());

    log.m_text.append(NowAsText(L'-', L'.', 0));
    log.m_text.append(L": ");
    log.m_text.append(message);
    log.m_text.append(L"\r\n");

    platform::FileHandle file(platform::files().CreateFileW(log.m_path.c_str(), GENERIC_WRITE, 0, CREATE_ALWAYS, 0));
    if (!file.valid())
        return;
    static const unsigned char bom[2] = {0xFF, 0xFE};
    if (!writeAll(file.get(), bom, sizeof bom))
        return;
    writeAll(file.get(), log.m_text.c_str(), static_cast<DWORD>(log.m_text.length() * sizeof(wchar_t)));
}

void ToolLog::Close(ToolLog& log)
{
    WriteLine(log, corestring(L"=== End ==="));
    log.m_text = corestring();
    log.m_path = corestring();
}

void ToolLog::Close() { Close(TheToolLog()); }

corestring StampedFileName(const wchar_t* format)
{
    struct tm local {};
    platform::clock().localtime64(platform::clock().time64(), local);
    corestring fileName;
    corestring::format(fileName, format, local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
                       local.tm_min, local.tm_sec);
    // Made in a buffer of 256 characters.
    return fileName.left(255);
}

corestring FormatTimeStamp(const struct tm& time, wchar_t dateSeparator, wchar_t timeSeparator,
                           wchar_t millisecondsSeparator, int milliseconds)
{
    // Each part is formatted on its own so that the argument list always
    // matches the parts the separators switch on.
    corestring text, part;
    if (dateSeparator) {
        corestring::format(part, L"%04d%c%02d%c%02d", time.tm_year + 1900, dateSeparator, time.tm_mon + 1,
                           dateSeparator, time.tm_mday);
        text.append(part);
    }
    if (timeSeparator) {
        if (dateSeparator)
            text.append(L" ");
        corestring::format(part, L"%02d%c%02d%c%02d", time.tm_hour, timeSeparator, time.tm_min, timeSeparator,
                           time.tm_sec);
        text.append(part);
    }
    if (millisecondsSeparator) {
        corestring::format(part, L"%c%03d", millisecondsSeparator, milliseconds);
        text.append(part);
    }
    return text;
}

corestring NowAsText(wchar_t dateSeparator, wchar_t timeSeparator, wchar_t millisecondsSeparator)
{
    struct __timeb64 now {};
    platform::clock().ftime64(now);
    struct tm local {};
    platform::clock().localtime64(now.time, local);
    return FormatTimeStamp(local, dateSeparator, timeSeparator, millisecondsSeparator, now.millitm);
}

std::string GetFileVersionString(const wchar_t* path)
{
    platform::FileSystem& files = platform::files();
    DWORD ignored = 0;
    DWORD size = files.GetFileVersionInfoSizeW(path, &ignored);
    if (!size)
        return std::string();
    // Zeroed; running out of memory here is the framework's OutOfMem.
    std::unique_ptr<void, decltype(&std::free)> data(std::calloc(1, size), &std::free);
    if (!data)
        CORE::throwOutOfMem();
    VS_FIXEDFILEINFO* info = nullptr;
    UINT infoSize = 0;
    if (!files.GetFileVersionInfoW(path, 0, size, data.get()) ||
        !files.VerQueryValueA(data.get(), "\\", reinterpret_cast<void**>(&info), &infoSize) || !info || !infoSize ||
        info->dwSignature != 0xFEEF04BD)
        return std::string();
    return fmt::format("{}.{}.{}.{}", HIWORD(info->dwFileVersionMS), LOWORD(info->dwFileVersionMS),
                       HIWORD(info->dwFileVersionLS), LOWORD(info->dwFileVersionLS));
}
