#include "fakes/VerboseMsiLog.h"

#include <cwchar>

namespace msilog {

namespace {

const wchar_t* const kSandboxNote = L"(note this may not be 100% accurate if translation happened inside sandbox)";

}  // namespace

std::wstring VerboseLog::engine(const std::wstring& text) { return L"MSI (s) (A4:B8) [12:34:56:789]: " + text; }

std::wstring VerboseLog::time() const
{
    wchar_t stamp[16];
    std::swprintf(stamp, 16, L"%02d:%02d:%02d", 12 + m_clock / 3600, (m_clock / 60) % 60, m_clock % 60);
    return stamp;
}

std::wstring VerboseLog::actionStart(const std::wstring& name) const
{
    if (m_language == Language::German)
        return L"Aktion gestartet um " + time() + L": " + name + L".";
    return L"Action start " + time() + L": " + name + L".";
}

std::wstring VerboseLog::actionEnded(const std::wstring& name, int value) const
{
    const std::wstring number = std::to_wstring(value);
    if (m_language == Language::German)
        return L"Aktion beendet um " + time() + L": " + name + L". R\u00fcckgabewert " + number + L".";
    return L"Action ended " + time() + L": " + name + L". Return value " + number + L".";
}

VerboseLog& VerboseLog::engineLines(int count)
{
    for (int i = 0; i < count; ++i)
        m_lines.push_back(engine(L"PROPERTY CHANGE: Adding Property" + std::to_wstring(i) +
                                 L" property. Its value is 'value " + std::to_wstring(i) + L"'."));
    return *this;
}

VerboseLog& VerboseLog::raw(const std::wstring& line)
{
    m_lines.push_back(line);
    return *this;
}

VerboseLog& VerboseLog::action(const Action& a)
{
    ++m_clock;
    if (a.deferred) {
        // Deferred actions run inside InstallExecute, from the script.
        m_lines.push_back(engine(L"Executing op: ActionStart(Name=" + a.name + L",,)"));
        m_lines.push_back(engine(L"Executing op: CustomActionSchedule(Action=" + a.name +
                                 L",ActionType=3073,Source=BinaryData,Target=Install,CustomActionData=INSTALLDIR=C:\\"
                                 L"Program Files\\Agent\\)"));
    } else {
        m_lines.push_back(engine(L"Doing action: " + a.name));
        m_lines.push_back(actionStart(a.name));
    }
    if (a.custom)
        m_lines.push_back(engine(L"Invoking remote custom action. DLL: C:\\Windows\\Installer\\MSI4F2A.tmp, "
                                 L"Entrypoint: " + a.name + L"Entry"));
    for (const std::wstring& line : a.lines)
        m_lines.push_back(line);
    if (a.custom && a.returnValue == 3)
        m_lines.push_back(L"CustomAction " + a.name + L" returned actual error code 1603 " + kSandboxNote);
    if (a.deferred) {
        if (a.returnValue == 3)
            m_lines.push_back(actionEnded(L"InstallExecute", 3));
    } else {
        m_lines.push_back(actionEnded(a.name, a.returnValue));
    }
    return *this;
}

VerboseLog& VerboseLog::customActionFails(const std::wstring& name, const std::vector<std::wstring>& ownLines,
                                          bool deferred)
{
    if (deferred) {
        m_lines.push_back(engine(L"Doing action: InstallExecute"));
        m_lines.push_back(actionStart(L"InstallExecute"));
    }
    return action(Action{name, 3, ownLines, true, deferred});
}

VerboseLog& VerboseLog::rollbackAndEnd()
{
    m_lines.push_back(engine(L"Executing op: Header(Signature=1397708873,Version=500,Timestamp=1234,LangId=1033)"));
    m_lines.push_back(L"Rollback: Removing files");
    m_lines.push_back(engine(L"Doing action: SetupCompleteError"));
    m_lines.push_back(actionStart(L"SetupCompleteError"));
    m_lines.push_back(actionEnded(L"SetupCompleteError", 2));
    m_lines.push_back(actionEnded(L"INSTALL", 3));
    m_lines.push_back(engine(L"Product: Zenthra Agent -- Installation failed."));
    m_lines.push_back(engine(L"MainEngineThread is returning 1603"));
    m_lines.push_back(L"=== Verbose logging stopped: 1/13/2026  12:40:00 ===");
    return *this;
}

std::wstring VerboseLog::text() const
{
    std::wstring all;
    for (const std::wstring& line : m_lines)
        all += line + L"\r\n";
    return all;
}

std::string VerboseLog::fileBytes() const { return Utf16File(text(), true); }

std::string Utf16File(const std::wstring& text, bool withMark)
{
    std::string bytes = withMark ? std::string("\xFF\xFE", 2) : std::string();
    for (wchar_t c : text) {
        bytes.push_back(static_cast<char>(c & 0xFF));
        bytes.push_back(static_cast<char>((c >> 8) & 0xFF));
    }
    return bytes;
}

}  // namespace msilog
