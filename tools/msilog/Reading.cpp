#include "Reading.h"

#include <cwctype>
#include <string_view>

namespace ztmsilog {

namespace {

using View = std::wstring_view;

bool isDigit(wchar_t c) { return c >= L'0' && c <= L'9'; }
bool isBlank(wchar_t c) { return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n'; }

View trimmed(View text)
{
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

// Digits (with a sign) at `at`; npos when there are none. Numbers too long
// for a long long are no numbers here.
std::size_t parseNumber(View text, std::size_t at, long long& value)
{
    std::size_t i = at;
    const bool negative = i < text.size() && text[i] == L'-';
    if (negative)
        ++i;
    const std::size_t first = i;
    long long number = 0;
    while (i < text.size() && isDigit(text[i])) {
        if (i - first >= 18)
            return View::npos;
        number = number * 10 + (text[i] - L'0');
        ++i;
    }
    if (i == first)
        return View::npos;
    value = negative ? -number : number;
    return i;
}

// "h:mm:ss" or "hh:mm:ss" at `at`, not inside a longer number; its end or npos.
std::size_t timeOfDayAt(View text, std::size_t at)
{
    if (at > 0 && isDigit(text[at - 1]))
        return View::npos;
    std::size_t i = at;
    std::size_t hour = 0;
    while (i < text.size() && isDigit(text[i]) && hour < 3)
        ++i, ++hour;
    if (hour == 0 || hour > 2)
        return View::npos;
    for (int part = 0; part < 2; ++part) {
        if (i + 2 >= text.size() || text[i] != L':' || !isDigit(text[i + 1]) || !isDigit(text[i + 2]))
            return View::npos;
        i += 3;
    }
    if (i < text.size() && isDigit(text[i]))
        return View::npos;
    return i;
}

// An action's name as the engine writes it: no blanks, no commas or brackets.
std::wstring nameAt(View text, std::size_t at, View stops)
{
    std::size_t end = at;
    while (end < text.size() && !isBlank(text[end]) && stops.find(text[end]) == View::npos)
        ++end;
    return std::wstring(text.substr(at, end - at));
}

}  // namespace

std::optional<EndedAction> ParseEndedAction(const std::wstring& text)
{
    // Read from the end, so a line costs one pass: "<words> <time>: <Name>.
    // <words> <number>." ("Action ended", "Aktion beendet um", "Action
    // terminée à" ... "Return value 3.", "Rückgabewert 3.").
    const View line = trimmed(text);
    if (line.size() < 3 || line.back() != L'.')
        return std::nullopt;
    const View body = line.substr(0, line.size() - 1);
    const std::size_t blank = body.find_last_of(L' ');
    long long value = 0;
    if (blank == View::npos || parseNumber(body, blank + 1, value) != body.size())
        return std::nullopt;
    // Words without digits back to the name, the first token with a dot at its end.
    std::size_t end = blank;
    bool words = false;
    std::size_t nameStart = 0;
    View name;
    for (;;) {
        while (end > 0 && isBlank(body[end - 1]))
            --end;
        if (end == 0)
            return std::nullopt;
        const std::size_t before = body.find_last_of(L" \t", end - 1);
        const std::size_t start = before == View::npos ? 0 : before + 1;
        const View token = body.substr(start, end - start);
        if (words && token.size() >= 2 && token.back() == L'.') {
            name = token.substr(0, token.size() - 1);
            nameStart = start;
            break;
        }
        for (wchar_t c : token)
            if (isDigit(c))
                return std::nullopt;
        words = true;
        end = start;
    }
    // "<time>: " or "<time> : " in front of the name.
    std::size_t i = nameStart;
    while (i > 0 && body[i - 1] == L' ')
        --i;
    if (i == nameStart || i == 0 || body[i - 1] != L':')
        return std::nullopt;
    --i;
    if (i > 0 && body[i - 1] == L' ')
        --i;
    std::size_t timeStart = View::npos;
    for (std::size_t length : {std::size_t(8), std::size_t(7)})
        if (i >= length && timeOfDayAt(body, i - length) == i) {
            timeStart = i - length;
            break;
        }
    if (timeStart == View::npos)
        return std::nullopt;
    // The words in front of the time; one word alone is the progress line
    // "Action 12:00:00: Name. Description".
    const View before = trimmed(body.substr(0, timeStart));
    if (before.find(L' ') == View::npos || before.find(L':') != View::npos)
        return std::nullopt;
    return EndedAction{0, std::wstring(name), value};
}

std::vector<CustomActionReturn> ParseCustomActionReturns(const std::wstring& text)
{
    static constexpr View kHead = L"CustomAction ";
    static constexpr View kReturned = L" returned actual error code ";
    static constexpr View kTranslated = L"translated to success due to continue marking";
    const View line(text);
    std::vector<CustomActionReturn> found;
    for (std::size_t at = line.find(kHead); at != View::npos; at = line.find(kHead, at + 1)) {
        const std::size_t nameStart = at + kHead.size();
        const std::wstring name = nameAt(line, nameStart, L"");
        if (name.empty() || line.compare(nameStart + name.size(), kReturned.size(), kReturned) != 0)
            continue;
        CustomActionReturn result;
        result.name = name;
        if (parseNumber(line, nameStart + name.size() + kReturned.size(), result.code) == View::npos)
            continue;
        // The remark belongs to this return when it comes before the next one.
        const std::size_t next = line.find(kHead, nameStart);
        const View own = line.substr(nameStart, next == View::npos ? View::npos : next - nameStart);
        result.translatedToSuccess = own.find(kTranslated) != View::npos;
        found.push_back(result);
    }
    return found;
}

std::vector<ErrorBlock> ParseErrorBlocks(const std::wstring& text)
{
    static constexpr View kError = L"Error ";
    static constexpr View kAction = L"Action ";
    const View line(text);
    // "Error 1722." and the like: four or five digits and a dot.
    struct Head {
        std::size_t at;
        std::size_t dot;
        long long number;
    };
    std::vector<Head> heads;
    for (std::size_t at = line.find(kError); at != View::npos; at = line.find(kError, at + 1)) {
        const std::size_t digits = at + kError.size();
        if ((at > 0 && std::iswalnum(line[at - 1])) || digits >= line.size() || !isDigit(line[digits]))
            continue;
        long long number = 0;
        const std::size_t end = parseNumber(line, digits, number);
        if (end == View::npos || number < 1000 || number > 99999 || end >= line.size() || line[end] != L'.')
            continue;
        heads.push_back({at, end, number});
    }
    std::vector<ErrorBlock> found;
    for (std::size_t k = 0; k < heads.size(); ++k) {
        // A block's text runs to the next block of the line.
        const std::size_t stop = k + 1 < heads.size() ? heads[k + 1].at : line.size();
        const View body = trimmed(line.substr(heads[k].dot + 1, stop - heads[k].dot - 1));
        ErrorBlock block;
        block.number = heads[k].number;
        block.text = std::wstring(body);
        // "... Action Name, location: ..., command: ..."
        for (std::size_t a = body.find(kAction); a != View::npos; a = body.find(kAction, a + 1)) {
            if (a > 0 && !isBlank(body[a - 1]))
                continue;
            const std::wstring name = nameAt(body, a + kAction.size(), L",");
            const std::size_t after = a + kAction.size() + name.size();
            if (!name.empty() && after < body.size() && body[after] == L',') {
                block.action = name;
                break;
            }
        }
        found.push_back(block);
    }
    return found;
}

std::optional<std::wstring> ParseScriptAction(const std::wstring& text)
{
    static constexpr View kPatterns[] = {L"ActionStart(Name=", L"CustomActionSchedule(Action="};
    const View line(text);
    std::optional<std::wstring> last;
    std::size_t lastAt = 0;
    for (View pattern : kPatterns) {
        const std::size_t at = line.rfind(pattern);
        if (at == View::npos || (last && at < lastAt))
            continue;
        std::wstring name = nameAt(line, at + pattern.size(), L",)");
        if (!name.empty()) {
            last = std::move(name);
            lastAt = at;
        }
    }
    return last;
}

bool IsCarrierAction(const std::wstring& name)
{
    static const wchar_t* const kCarriers[] = {L"INSTALL",        L"ADMIN",          L"ADVERTISE",
                                               L"InstallExecute", L"InstallExecuteAgain", L"InstallFinalize",
                                               L"ExecuteAction"};
    for (const wchar_t* carrier : kCarriers)
        if (name == carrier)
            return true;
    return false;
}

namespace {

bool isRollbackLine(View line)
{
    const View text = trimmed(line);
    std::size_t start = 0;
    while (start < text.size() && (text[start] == L'>' || text[start] == L' '))
        ++start;
    return text.substr(start).starts_with(L"Rollback: ") || line.find(L"Executing op: Header(") != View::npos ||
           line.find(L"Executing op: ActionStart(") != View::npos ||
           line.find(L"Error in rollback skipped") != View::npos;
}

bool isResultLine(View line)
{
    static constexpr View kResults[] = {
        L"MainEngineThread is returning ",    L"Installation failed",
        L"Installation completed successfully", L"Removal failed",
        L"Removal completed successfully",    L"Configuration failed",
        L"Configuration completed successfully", L"success or error status: ",
        L"Back from server. Return value: ",
    };
    for (View phrase : kResults)
        if (line.find(phrase) != View::npos)
            return true;
    return false;
}

}  // namespace

Reading ReadLog(const std::vector<std::wstring>& lines)
{
    Reading reading;
    std::vector<ScriptAction> scriptActions;
    std::optional<EndedAction> firstFailedEnd;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const std::wstring& line = lines[i];
        const std::size_t number = i + 1;
        if (std::optional<EndedAction> ended = ParseEndedAction(line)) {
            ended->line = number;
            if (ended->value == 3)
                reading.failedActions.push_back(*ended);
            // The top action's end is the install's own.
            if (ended->name == L"INSTALL" || ended->name == L"ADMIN" || ended->name == L"ADVERTISE" ||
                ended->name == L"ExecuteAction")
                reading.results.push_back({number, line});
        }
        for (CustomActionReturn& r : ParseCustomActionReturns(line)) {
            r.line = number;
            reading.customActionReturns.push_back(r);
        }
        for (ErrorBlock& e : ParseErrorBlocks(line)) {
            e.line = number;
            reading.errors.push_back(e);
        }
        if (std::optional<std::wstring> name = ParseScriptAction(line))
            scriptActions.push_back({number, *name, line});
        if (isResultLine(line) && (reading.results.empty() || reading.results.back().line != number))
            reading.results.push_back({number, line});
    }

    // Where the install first went wrong: a failed end, an untranslated
    // custom action error or an error block, whichever comes first.
    auto earlier = [&](std::size_t line) {
        if (!reading.firstFailureLine || line < *reading.firstFailureLine)
            reading.firstFailureLine = line;
    };
    if (!reading.failedActions.empty())
        earlier(reading.failedActions.front().line);
    for (const CustomActionReturn& r : reading.customActionReturns)
        if (!r.translatedToSuccess && r.code != 0) {
            earlier(r.line);
            break;
        }
    if (!reading.errors.empty())
        earlier(reading.errors.front().line);

    if (reading.firstFailureLine) {
        for (const ScriptAction& s : scriptActions)
            if (s.line <= *reading.firstFailureLine)
                reading.scriptActionAtFailure = s;
    }
    // Rollback comes after the failure; with none found, any rollback line.
    const std::size_t from = reading.firstFailureLine ? *reading.firstFailureLine : 0;
    for (std::size_t i = from; i < lines.size(); ++i) {
        const bool scriptLine = lines[i].find(L"Executing op: ") != std::wstring::npos;
        if (!reading.firstFailureLine && scriptLine)
            continue;
        if (isRollbackLine(lines[i])) {
            reading.rollbackStart = LineRef{i + 1, lines[i]};
            break;
        }
    }

    // The verdict. A failed end of a real action names it; a carrier's
    // failure (InstallExecute, InstallFinalize, INSTALL...) is another
    // action's, found in the lines up to it.
    Verdict& v = reading.verdict;
    if (!reading.failedActions.empty() && !IsCarrierAction(reading.failedActions.front().name)) {
        const EndedAction& e = reading.failedActions.front();
        v = {e.name, e.line, lines[e.line - 1], L"the action ended with return value 3"};
        return reading;
    }
    const std::size_t limit = reading.failedActions.empty() ? lines.size() : reading.failedActions.front().line;
    for (const CustomActionReturn& r : reading.customActionReturns) {
        if (r.line > limit)
            break;
        if (!r.translatedToSuccess && r.code != 0) {
            v = {r.name, r.line, lines[r.line - 1], L"the first custom action that returned an error"};
            return reading;
        }
    }
    for (const ErrorBlock& e : reading.errors) {
        if (e.line > limit)
            break;
        if (!e.action.empty()) {
            v = {e.action, e.line, lines[e.line - 1], L"the first error block that names an action"};
            return reading;
        }
    }
    if (reading.scriptActionAtFailure) {
        const ScriptAction& s = *reading.scriptActionAtFailure;
        v = {s.name, s.line, s.text, L"the script action running when the install failed"};
        return reading;
    }
    if (reading.firstFailureLine) {
        const std::size_t at = *reading.firstFailureLine;
        v = {L"", at, lines[at - 1], L"the install failed here, but no line names the action that failed"};
    } else {
        v = {L"", 0, L"", L"no failure in the log"};
    }
    return reading;
}

}  // namespace ztmsilog
