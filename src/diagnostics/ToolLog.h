#pragma once
// The tool's own log: the whole text is kept in memory and the whole UTF-16
// file is rewritten for every line, so the file is complete at every moment.
#include <ctime>
#include <string>

#include "core/log/LogSink.h"
#include "core/string/corestring.h"

using CORE::corestring;

// The sink of every LogLine once it is installed (CORE::SetLogSink).
class ToolLog final : public CORE::LogSink {
public:
    // Directory, file name, banner; registers Close for process exit when
    // registerExit is set (the process-wide log does, test instances don't).
    static void Open(ToolLog& log, bool registerExit = true);
    static void WriteLine(ToolLog& log, const corestring& message);
    // "=== End ===" on the process-wide log, then its fields are released.
    static void Close();
    static void Close(ToolLog& log);

    void Write(const corestring& message) override { WriteLine(*this, message); }

    const corestring& path() const { return m_path; }
    const corestring& text() const { return m_text; }

private:
    corestring m_path;
    corestring m_text;
};

// The one process-wide instance. Never destroyed: Close releases its text.
ToolLog& TheToolLog();

// "InstallLogsDir" under the new root, else the legacy root, else the workspace.
corestring GetInstallerLogsRoot();
// The tool's own folder below it: GetInstallerLogsRoot() + "updatetool".
corestring GetInstallerLogsDirectory();
// A file name from a format with six %d (or %02d) fields: year, month, day,
// hour, minute, second of the local time now; at most 255 characters.
corestring StampedFileName(const wchar_t* format);
corestring FormatTimeStamp(const struct tm& time, wchar_t dateSeparator, wchar_t timeSeparator,
                           wchar_t millisecondsSeparator, int milliseconds);
corestring NowAsText(wchar_t dateSeparator, wchar_t timeSeparator, wchar_t millisecondsSeparator);
std::string GetFileVersionString(const wchar_t* path);  // "" when there is none
