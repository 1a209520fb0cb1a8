#pragma once
// The lab's stand-in installer (tests/lab/installer), built next to the
// harness as exitcode-installer.exe: copies of it under any name, the files
// beside a copy that tell it what to do, and what it recorded.
//
// A copy exits with the code in "<copy>.exitcode" if there is one, else with
// the number its name ends in. With "<copy>.install" naming a Windows
// Installer package it runs msiexec /i on it instead (passing on the
// NAME=value words of its command line) and exits with msiexec's code, or
// with the ".exitcode" code when msiexec succeeded.
#include <windows.h>

#include <optional>
#include <string>

namespace it {

// Copies the stand-in to folder\name (making the folder); the copy's path.
std::wstring PlaceStandIn(const std::wstring& folder, const std::wstring& name);
// "<installer>.exitcode": the code the copy exits with.
void SetStandInExitCode(const std::wstring& installer, DWORD code);
// "<installer>.install": the package the copy installs through msiexec.
void SetStandInPackage(const std::wstring& installer, const std::wstring& msiPath);

// The command line the copy was started with; nothing when it never ran.
std::optional<std::string> StandInCommandLine(const std::wstring& installer);
// The msiexec command line the copy ran and msiexec's exit code; nothing
// when it ran none.
struct MsiexecRun {
    std::string commandLine;
    DWORD exitCode = 0;
};
std::optional<MsiexecRun> StandInMsiexecRun(const std::wstring& installer);
// Removes what earlier runs of the copy recorded.
void ForgetStandInRuns(const std::wstring& installer);

// The system's text for a code, as FormatMessageW gives it, without the
// line end; and "<code> (<text>)", the way the tool writes an exit code
// into its log and into "ERRORDESC".
std::string SystemMessageText(DWORD code);
std::string ExitCodeText(DWORD code);

}  // namespace it
