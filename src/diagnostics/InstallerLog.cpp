#include "diagnostics/InstallerLog.h"

#include <cstring>
#include <optional>
#include <regex>
#include <string>
#include <string_view>

#include "core/log/LogLine.h"
#include "platform/Handles.h"

namespace {

using Line = std::wstring_view;

constexpr Line kDoingAction = L": Doing action: ";
constexpr Line kSandboxNote = L"(note this may not be 100% accurate if translation happened inside sandbox)";

// Lines are searched with their full length: a NUL inside a line hides
// nothing behind it.
bool contains(Line line, Line what) { return line.find(what) != Line::npos; }

Line view(const corestring& text) { return Line(text.c_str(), static_cast<std::size_t>(text.length())); }

Line trimmed(Line text, Line characters)
{
    const std::size_t first = text.find_first_not_of(characters);
    if (first == Line::npos)
        return Line();
    return text.substr(first, text.find_last_not_of(characters) - first + 1);
}

// Group 1 of "Action=([^,]+)": up to the next comma, or to the end of the
// line with its CR.
std::optional<std::wstring> scheduledAction(Line line)
{
    static const std::wregex pattern(L"Action=([^,]+)", std::regex::ECMAScript);
    std::wcmatch match;
    if (!std::regex_search(line.data(), line.data() + line.size(), match, pattern))
        return std::nullopt;
    return match[1].str();
}

// The three ways a line reports the failure of the running action.
bool isFailureLine(Line line, const std::wstring& currentAction)
{
    if (contains(line, L"Return value 3"))
        return true;
    if (contains(line, L"InstallFinalize") && contains(line, L" 3."))
        return true;
    // By the action's name and the tail " 3." and the CR. A 3-character line
    // without " 3." passes too: rfind's "not found" and its length - 4 are
    // the same number. An empty action's name is in every line.
    return line.find(currentAction) != Line::npos && line.rfind(L" 3.") == line.size() - 4;
}

bool isEngineLine(Line text)
{
    static constexpr Line kEngineWords[] = {
        L"MSI (s)", L"Action ended", L"Action start", L", Entrypoint: ", L"CustomActionSchedule",
        L": Doing action: ", L"tqmInstUtil: ", L"driverInstUtil: ", L"instLog: ", L"DIFXAPP: ",
    };
    for (Line words : kEngineWords)
        if (contains(text, words))
            return true;
    return false;
}

// Takes the first sandbox remark out the way the report always has: the
// character behind it goes with it, and a zero stands at the end instead.
void dropSandboxNote(corestring& text)
{
    const std::size_t at = view(text).find(kSandboxNote);
    if (at == Line::npos)
        return;
    const std::size_t behind = at + kSandboxNote.size();
    corestring rest(text.c_str(), at);
    if (behind < text.length()) {
        rest.append(text.c_str() + behind + 1, text.length() - behind - 1);
        rest.appendChar(L'\0', 1);
    }
    text = std::move(rest);
}

}  // namespace

corestring ReadUnicodeFile(const corestring& path)
{
    platform::FileSystem& files = platform::files();
    platform::FileHandle file(
        files.CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL));
    if (!file)
        return corestring();
    const DWORD size = files.GetFileSize(file.get(), nullptr);
    if (size == 0 || size == INVALID_FILE_SIZE)
        return corestring();
    const DWORD bytes = size & ~DWORD(1);
    if (bytes == 0)
        return corestring();
    // Read straight into the text: a log is held once here.
    corestring text;
    text.resize(bytes / sizeof(wchar_t), true);
    wchar_t* data = &text.charAtForWrite(0);
    std::memset(data, 0, bytes);
    DWORD read = 0;
    // Its result isn't looked at: what didn't arrive stays zero.
    files.ReadFile(file.get(), data, bytes, &read);
    if (data[0] == 0xFEFF)
        text.replaceRange(0, 1, nullptr, 0);
    return text;
}

std::vector<corestring> FetchErrorLines(const corestring& logPath)
{
    const wchar_t* tag = L"FetchErrorLines";
    const corestring text = ReadUnicodeFile(logPath);
    if (text.empty()) {
        LogLine(L"%s: ERROR: Failed to open and read MSI log file - %s ", tag, logPath.c_str());
        return {};
    }
    LogLine(L"%s: Opened MSI log file - %s ", tag, logPath.c_str());

    std::vector<corestring> lines;
    std::wstring currentAction;
    const Line all = view(text);
    for (std::size_t start = 0; start < all.size();) {
        // Each line keeps the CR in front of its LF; a last line needs no LF.
        const std::size_t lf = all.find(L'\n', start);
        const std::size_t end = lf == Line::npos ? all.size() : lf;
        const Line line = all.substr(start, end - start);
        start = end + 1;

        if (isFailureLine(line, currentAction)) {
            lines.emplace_back(line.data(), line.size());
            break;
        }
        // A new action: the window starts again at its first line.
        if (const std::size_t at = line.find(kDoingAction); at != Line::npos) {
            lines.clear();
            currentAction = trimmed(line.substr(at + kDoingAction.size()), L".\r\n");
        } else if (contains(line, L"Action start ")) {
            lines.clear();
        } else if (contains(line, L"CustomActionSchedule")) {
            lines.clear();
            if (std::optional<std::wstring> action = scheduledAction(line))
                currentAction = *action;
        }
        lines.emplace_back(line.data(), line.size());
    }
    return lines;
}

corestring GetFailedCustomActionName(const std::vector<corestring>& lines)
{
    corestring name;
    for (const corestring& text : lines) {
        const Line line = view(text);
        if (contains(line, kDoingAction)) {
            // From the last blank on, the blank and the CR included.
            const std::size_t blank = line.rfind(L' ');
            if (blank != Line::npos)
                name.assign(line.data() + blank, line.size() - blank);
        } else if (contains(line, L"CustomActionSchedule")) {
            if (std::optional<std::wstring> action = scheduledAction(line))
                name.assign(action->c_str(), action->size());
        }
    }
    LogLine(L"%s: INFO: GetFailedCustomActionName name - %s ", L"GetFailedCustomActionName", name.handle());
    return name;
}

corestring GetFailedCAErrorMessage(const std::vector<corestring>& lines)
{
    corestring message;
    for (const corestring& text : lines) {
        const Line line = trimmed(view(text), L".\r\n");
        if (line.empty() || isEngineLine(line))
            continue;
        message.append(line.data(), line.size());
        dropSandboxNote(message);
    }
    LogLine(L"%s: INFO: GetFailedCAErrorMessage name - %s ", L"GetFailedCAErrorMessage", message.handle());
    return message;
}
