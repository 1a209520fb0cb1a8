#pragma once
// Verbose logs in the Windows Installer engine's format, for the tests of
// the failure report: Wine's msiexec writes a format of its own. A test
// says which actions run and how each ends; the log is written as the
// engine writes it (UTF-16 little endian behind a byte order mark, CR LF
// line ends, "MSI (s) (A4:B8) [12:34:56:789]: " in front of the engine's own
// lines).
#include <string>
#include <vector>

namespace msilog {

enum class Language { English, German };

struct Action {
    std::wstring name;
    // 1 success, 3 failure (the engine's "Return value").
    int returnValue = 1;
    // What the action itself wrote, before its end (a custom action's own
    // lines, an "Error 1722." block...).
    std::vector<std::wstring> lines;
    // A custom action: the engine notes how it was run and what it returned.
    bool custom = false;
    // Run from the script: scheduled under InstallExecute rather than
    // started by "Doing action:"; its failure ends InstallExecute.
    bool deferred = false;
};

class VerboseLog {
public:
    explicit VerboseLog(Language language = Language::English) : m_language(language) {}

    // Lines of the engine between actions ("MSI (s) ...: PROPERTY CHANGE...").
    VerboseLog& engineLines(int count);
    VerboseLog& action(const Action& action);
    // Shorthands.
    VerboseLog& succeeds(const std::wstring& name) { return action(Action{name, 1, {}, false, false}); }
    VerboseLog& customActionFails(const std::wstring& name, const std::vector<std::wstring>& ownLines,
                                  bool deferred = false);
    // What the engine writes once an action has failed: rollback and the end.
    VerboseLog& rollbackAndEnd();
    // A line as it stands, without the engine's prefix.
    VerboseLog& raw(const std::wstring& line);

    const std::vector<std::wstring>& lines() const { return m_lines; }
    // The lines joined by CR LF, with a last CR LF.
    std::wstring text() const;
    // The file's bytes: FF FE, then the text in UTF-16 little endian.
    std::string fileBytes() const;

    // "MSI (s) (A4:B8) [12:34:56:789]: " and the text.
    static std::wstring engine(const std::wstring& text);

private:
    Language m_language;
    std::vector<std::wstring> m_lines;
    int m_clock = 0;  // seconds, for the stamps
    std::wstring time() const;
    std::wstring actionStart(const std::wstring& name) const;
    std::wstring actionEnded(const std::wstring& name, int value) const;
};

// UTF-16 little endian bytes of a text, with or without the byte order mark.
std::string Utf16File(const std::wstring& text, bool withMark = true);

}  // namespace msilog
