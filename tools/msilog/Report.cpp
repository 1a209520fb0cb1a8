#include "Report.h"

#include <cwchar>

#include "ContractReading.h"
#include "LogText.h"
#include "Reading.h"

namespace ztmsilog {

namespace {

// Lines of a reading the tool makes of bytes it takes for UTF-16 when they
// are not: shown cut, since they are the file's bytes paired into noise.
constexpr std::size_t kNoiseShown = 120;

class Out {
public:
    Out& operator<<(std::wstring_view text)
    {
        m_text += ToUtf8(text);
        return *this;
    }
    Out& operator<<(std::size_t number) { return *this << std::to_wstring(number); }
    Out& operator<<(long long number) { return *this << std::to_wstring(number); }
    std::string take() { return std::move(m_text); }

private:
    std::string m_text;
};

std::wstring quoted(const std::optional<std::wstring>& text, std::size_t limit = std::wstring::npos)
{
    if (!text)
        return L"(null)";
    std::wstring shown = Visible(*text);
    if (shown.size() > limit)
        shown = shown.substr(0, limit) + L"... (" + std::to_wstring(shown.size() - limit) + L" more)";
    return L"\"" + shown + L"\"";
}

void contractSection(Out& out, const ContractReading& tool, bool noise)
{
    const std::size_t limit = noise ? kNoiseShown : std::wstring::npos;
    out << L"  window: " << tool.window.size() << L" line(s)\n";
    for (const std::wstring& line : tool.window) {
        std::wstring shown = Visible(line);
        if (shown.size() > limit)
            shown = shown.substr(0, limit) + L"... (" + std::to_wstring(shown.size() - limit) + L" more)";
        out << L"  | " << shown << L"\n";
    }
    out << L"  GetFailedCustomActionName: " << quoted(tool.name, limit) << L"\n";
    out << L"  GetFailedCAErrorMessage: " << quoted(tool.message, limit) << L"\n";
}

std::wstring at(std::size_t line) { return L"line " + std::to_wstring(line) + L": "; }

}  // namespace

std::wstring Visible(std::wstring_view text)
{
    std::wstring shown;
    shown.reserve(text.size());
    for (wchar_t c : text) {
        switch (c) {
        case L'\r': shown += L"\\r"; break;
        case L'\n': shown += L"\\n"; break;
        case L'\t': shown += L"\\t"; break;
        case L'\0': shown += L"\\0"; break;
        default:
            if (c < 0x20 || c == 0x7F) {
                wchar_t code[8];
                std::swprintf(code, 8, L"\\x%02X", static_cast<unsigned>(c));
                shown += code;
            } else {
                shown.push_back(c);
            }
        }
    }
    return shown;
}

std::string FormatReport(std::wstring_view logName, std::string_view fileBytes)
{
    Out out;
    const DecodedLog log = DecodeLog(fileBytes);
    const std::vector<std::wstring> lines = SplitLines(log.text);
    out << L"log: " << Visible(logName) << L"\n";
    out << L"encoding: ";
    const std::string encoding = EncodingName(log.encoding);
    out << std::wstring(encoding.begin(), encoding.end());
    out << L", " << fileBytes.size() << L" bytes, " << lines.size() << L" line(s)\n\n";

    // The tool reads UTF-16 LE only. On any other file it sees noise, so
    // the same text as the engine writes it is read as well.
    const bool asTheEngineWrites = log.encoding == Encoding::Utf16Le;
    out << L"== What the tool reports (FetchErrorLines, GetFailedCustomActionName, GetFailedCAErrorMessage)\n";
    out << L"-- on the file as it is\n";
    contractSection(out, ReadAsTheToolDoes(fileBytes), !IsUtf16LittleEndian(log.encoding));
    if (!asTheEngineWrites) {
        out << L"-- on the same lines as the engine writes them (UTF-16 LE with byte order mark, CR LF)\n";
        contractSection(out, ReadAsTheToolDoes(EngineBytes(EngineText(lines))), false);
    }

    const Reading reading = ReadLog(lines);
    out << L"\n== The log read through\n";
    out << L"actions that ended with return value 3:\n";
    if (reading.failedActions.empty())
        out << L"  none\n";
    for (const EndedAction& e : reading.failedActions)
        out << L"  " << at(e.line) << e.name << L"\n";

    out << L"custom actions that returned an error code:\n";
    if (reading.customActionReturns.empty())
        out << L"  none\n";
    for (const CustomActionReturn& r : reading.customActionReturns) {
        out << L"  " << at(r.line) << r.name << L" returned " << r.code;
        out << (r.translatedToSuccess ? L", translated to success due to continue marking\n" : L"\n");
    }

    out << L"error blocks:\n";
    if (reading.errors.empty())
        out << L"  none\n";
    for (const ErrorBlock& e : reading.errors) {
        out << L"  " << at(e.line) << L"Error " << e.number;
        out << (e.action.empty() ? std::wstring(L" (names no action)") : L" (action " + e.action + L")");
        out << L": " << Visible(e.text) << L"\n";
    }

    out << L"script action running at the failure:\n";
    if (reading.scriptActionAtFailure)
        out << L"  " << at(reading.scriptActionAtFailure->line) << reading.scriptActionAtFailure->name << L"\n";
    else
        out << L"  none\n";

    out << L"rollback began:\n";
    if (reading.rollbackStart)
        out << L"  " << at(reading.rollbackStart->line) << Visible(reading.rollbackStart->text) << L"\n";
    else
        out << L"  not in the log\n";

    out << L"the installer's result:\n";
    if (reading.results.empty())
        out << L"  not in the log\n";
    for (const LineRef& r : reading.results)
        out << L"  " << at(r.line) << Visible(r.text) << L"\n";

    const Verdict& v = reading.verdict;
    out << L"\nfailed action: " << (v.action.empty() ? std::wstring(L"unknown") : v.action) << L"\n";
    out << L"because: " << v.why << L"\n";
    if (v.line != 0)
        out << L"evidence: " << at(v.line) << Visible(v.evidence) << L"\n";
    return out.take();
}

}  // namespace ztmsilog
