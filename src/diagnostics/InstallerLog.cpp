#include "diagnostics/InstallerLog.h"

#include <cstring>
#include <emmintrin.h>
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

// A failure line of the running action by its name and its tail: the last
// " 3." of the line stands at its length - 4, that is the line ends in " 3."
// and one character more, the CR. A 3-character line without " 3." passes
// too: "not found" and its length - 4 are the same number there. An empty
// action's name is in every line.
bool endsLikeTheActionsFailure(Line line, const std::wstring& currentAction)
{
    bool tail = false;
    if (line.size() >= 4)
        tail = line.compare(line.size() - 4, 3, L" 3.") == 0;
    else if (line.size() == 3)
        tail = line != L" 3.";
    return tail && line.find(currentAction) != Line::npos;
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

// Finds a phrase in the whole log from a position on, remembering its last
// answer: the scan asks line after line, and most lines hold no phrase, so
// each phrase costs one pass over the log instead of one search per line.
// Eight places are tried at a time on the phrase's first and last character;
// only where both match is the rest compared.
class PhraseFinder {
public:
    PhraseFinder(Line text, Line phrase) : m_text(text), m_phrase(phrase) {}
    // Whether the phrase starts in [start, end); a phrase without LF that
    // starts before a line's LF ends before it too.
    bool inside(std::size_t start, std::size_t end) { return at(start) < end; }
    // The first place of the phrase at or after `from`.
    std::size_t at(std::size_t from)
    {
        if (!m_searched || (m_next != Line::npos && m_next < from))
            m_next = search(from);
        m_searched = true;
        return m_next;
    }

private:
    std::size_t search(std::size_t from) const
    {
        const wchar_t* text = m_text.data();
        const std::size_t n = m_text.size();
        const std::size_t m = m_phrase.size();
        const __m128i first = _mm_set1_epi16(static_cast<short>(m_phrase.front()));
        const __m128i last = _mm_set1_epi16(static_cast<short>(m_phrase.back()));
        std::size_t i = from;
        for (; i + m - 1 + 8 <= n; i += 8) {
            const __m128i heads = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + i));
            const __m128i tails = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + i + m - 1));
            unsigned mask = static_cast<unsigned>(
                _mm_movemask_epi8(_mm_and_si128(_mm_cmpeq_epi16(heads, first), _mm_cmpeq_epi16(tails, last))));
            while (mask) {
                const unsigned bit = static_cast<unsigned>(__builtin_ctz(mask));
                const std::size_t pos = i + bit / 2;
                if (m_text.compare(pos, m, m_phrase) == 0)
                    return pos;
                mask &= ~(3u << bit);
            }
        }
        for (; i + m <= n; ++i)
            if (m_text.compare(i, m, m_phrase) == 0)
                return i;
        return Line::npos;
    }

    Line m_text;
    Line m_phrase;
    std::size_t m_next = Line::npos;
    bool m_searched = false;
};

// The next LF at or after `from`, eight characters at a time.
std::size_t findLf(Line text, std::size_t from)
{
    const wchar_t* p = text.data();
    const std::size_t n = text.size();
    std::size_t i = from;
    const __m128i lf = _mm_set1_epi16(L'\n');
    for (; i + 8 <= n; i += 8) {
        const __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
        const int mask = _mm_movemask_epi8(_mm_cmpeq_epi16(units, lf));
        if (mask)
            return i + static_cast<std::size_t>(__builtin_ctz(static_cast<unsigned>(mask))) / 2;
    }
    for (; i < n; ++i)
        if (p[i] == L'\n')
            return i;
    return Line::npos;
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
    DWORD read = 0;
    // Its result isn't looked at: what didn't arrive is zero.
    if (!files.ReadFile(file.get(), data, bytes, &read) || read > bytes)
        read = 0;
    std::memset(reinterpret_cast<char*>(data) + read, 0, bytes - read);
    // Moved down in place: a new block would hold the log twice.
    if (data[0] == 0xFEFF) {
        const std::uint64_t length = text.length();
        std::memmove(data, data + 1, (length - 1) * sizeof(wchar_t));
        text.resize(length - 1, false);
    }
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

    const Line all = view(text);
    PhraseFinder returnValue3(all, L"Return value 3");
    PhraseFinder installFinalize(all, L"InstallFinalize");
    PhraseFinder doingAction(all, kDoingAction);
    PhraseFinder actionStart(all, L"Action start ");
    PhraseFinder schedule(all, L"CustomActionSchedule");

    // The window as places in the text; strings are made of it at the end.
    struct Span {
        std::size_t start;
        std::size_t length;
    };
    std::vector<Span> window;
    std::wstring currentAction;
    for (std::size_t start = 0; start < all.size();) {
        // Each line keeps the CR in front of its LF; a last line needs no LF.
        const std::size_t lf = findLf(all, start);
        const std::size_t end = lf == Line::npos ? all.size() : lf;
        const Line line = all.substr(start, end - start);

        const bool failed = returnValue3.inside(start, end) ||
                            (installFinalize.inside(start, end) && contains(line, L" 3.")) ||
                            endsLikeTheActionsFailure(line, currentAction);
        if (failed) {
            window.push_back({start, line.size()});
            break;
        }
        // A new action: the window starts again at its first line.
        if (doingAction.inside(start, end)) {
            window.clear();
            const std::size_t name = doingAction.at(start) + kDoingAction.size();
            currentAction = trimmed(all.substr(name, end - name), L".\r\n");
        } else if (actionStart.inside(start, end)) {
            window.clear();
        } else if (schedule.inside(start, end)) {
            window.clear();
            if (std::optional<std::wstring> action = scheduledAction(line))
                currentAction = *action;
        }
        window.push_back({start, line.size()});
        start = end + 1;
    }

    std::vector<corestring> lines;
    lines.reserve(window.size());
    for (const Span& span : window)
        lines.emplace_back(all.data() + span.start, span.length);
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
