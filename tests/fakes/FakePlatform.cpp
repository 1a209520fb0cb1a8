#include "fakes/FakePlatform.h"

#include "diagnostics/ToolLog.h"
#include "fetch/Workspace.h"
#include "update/StateMachine.h"
#include "update/UpdateRecord.h"

namespace fakes {

platform::Services FakePlatform::servicesOf(FakePlatform& p)
{
    platform::Services s = platform::win32Services();
    s.keys = &p.keys;
    s.files = &p.files;
    s.processes = &p.processes;
    s.installer = &p.installer;
    s.clock = &p.clock;
    s.console = &p.console;
    s.delivery = &p.delivery;
    s.power = &p.power;
    s.network = &p.network;
    s.hashing = &p.hashing;
    s.updateAgent = &p.updateAgent;
    return s;
}

FakePlatform::FakePlatform()
    : m_scope(servicesOf(*this)),
      // Wired as the program wires them at start-up.
      m_previousSink(CORE::SetLogSink(&TheToolLog())),
      m_previousCleanup(SetWorkspaceCleanup(UtilCleanupWorkspace))
{
    files.addDirectory(L"C:\\Windows\\Temp");
    Util_ResetWorkspaceForTest();
    g_updateRecord = UpdateRecord{};
    // A log with no file: lines reach the console fake and the text only.
    ToolLog::Close(TheToolLog());
    console.output.clear();
}

FakePlatform::~FakePlatform()
{
    Util_ResetWorkspaceForTest();
    g_updateRecord = UpdateRecord{};
    ToolLog::Close(TheToolLog());
    SetWorkspaceCleanup(m_previousCleanup);
    CORE::SetLogSink(m_previousSink);
}

std::vector<std::wstring> messagesOf(const std::wstring& text)
{
    std::vector<std::wstring> messages;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find(L"\r\n", start);
        if (end == std::wstring::npos)
            end = text.size();
        std::wstring line = text.substr(start, end - start);
        size_t colon = line.find(L": ");
        messages.push_back(colon == std::wstring::npos ? line : line.substr(colon + 2));
        start = end + 2;
    }
    return messages;
}

std::vector<std::wstring> FakePlatform::logLines() const { return messagesOf(TheToolLog().text().c_str()); }

bool FakePlatform::logHas(const std::wstring& message) const
{
    for (const std::wstring& line : logLines())
        if (line == message)
            return true;
    return false;
}

std::size_t FakePlatform::countOf(const std::wstring& message) const
{
    std::size_t n = 0;
    for (const std::wstring& line : logLines())
        n += line == message;
    return n;
}

bool FakePlatform::hasLineStartingWith(const std::wstring& prefix) const
{
    for (const std::wstring& line : logLines())
        if (line.rfind(prefix, 0) == 0)
            return true;
    return false;
}

std::vector<std::wstring> FakePlatform::linesOf(std::initializer_list<const wchar_t*> tags) const
{
    std::vector<std::wstring> out;
    for (const std::wstring& line : logLines())
        for (const wchar_t* tag : tags)
            if (line.rfind(std::wstring(tag) + L": ", 0) == 0) {
                out.push_back(line);
                break;
            }
    return out;
}

}  // namespace fakes
