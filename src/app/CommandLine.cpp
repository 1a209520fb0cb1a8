// The command line of a run: two switches and a version override file.
#include <vector>

#include "app/App.h"
#include "app/RunSequence.h"
#include "app/TextFile.h"
#include "core/log/LogLine.h"
#include "platform/Services.h"

using CORE::keywordEquals;

namespace {

// Goes to standard output only: nobody reads the tool log for it.
void printUsage()
{
    corestring usage;
    corestring name = ProgramFileName();
    corestring::format(usage, L"%s [-help] [-force] [-test] [<version filename>]\n", name.c_str());
    usage.append(L"-help              : usage help\n");
    usage.append(L"-force             : force updates\n");
    usage.append(L"-test              : don't do updates\n");
    usage.append(L"<version filename> : version override configuration file\n");
    platform::console().Write(usage.c_str(), static_cast<size_t>(usage.length()));
}

bool isOption(const corestring& token, const wchar_t* dashForm, const wchar_t* slashForm)
{
    return keywordEquals(token.c_str(), dashForm, true) || keywordEquals(token.c_str(), slashForm, true);
}

// The override value of a key, trimmed; empty when the key isn't there.
corestring overrideValue(const NoCaseMap& map, const corestring& word, const wchar_t* suffix)
{
    corestring key(word);
    key.append(suffix);
    const corestring* value = map.find(key.c_str());
    if (!value)
        return corestring();
    corestring trimmed(*value);
    trimmed.trim(L" \t\r\n");
    return trimmed;
}

}  // namespace

bool App::ParseCmdline(const corestring& commandLine)
{
    const wchar_t* tag = L"App::ParseCmdline";
    LogLine(L"%s: cmdLine: [%s]", tag, commandLine.c_str());

    std::vector<corestring> tokens = corestring::split(commandLine.c_str(), L" \t\r\n", L"'\"");
    // Token 0 is the program itself.
    for (std::size_t i = 1; i < tokens.size(); ++i) {
        const corestring& token = tokens[i];
        if (token.empty())
            continue;
        if (isOption(token, L"-help", L"/help")) {
            LogLine(L"%s: invoking help", tag);
            printUsage();
            return false;
        }
        if (isOption(token, L"-force", L"/force")) {
            forceUpdate = true;
            LogLine(L"%s: force launch enabled", tag);
        } else if (isOption(token, L"-test", L"/test")) {
            testMode = true;
            LogLine(L"%s: test mode enabled", tag);
        } else if (token.charAt(0) == L'-' || token.charAt(0) == L'/') {
            LogLine(L"%s: unknown argument %u: [%s]", tag, static_cast<unsigned>(i), token.c_str());
            return false;
        } else {
            // Each file is read as it comes; a later one replaces what an
            // earlier one gave.
            versionFile = token;
            LogLine(L"%s: version override filename: [%s]", tag, versionFile.c_str());
            ParseOverrideFile();
        }
    }
    return true;
}

void App::ParseOverrideFile()
{
    const wchar_t* tag = L"App::ParseOverrideFile";
    if (versionFile.empty())
        return;

    // Always under the workspace, even when the argument looks like a full path.
    corestring path(workspace);
    path.appendPath(versionFile.c_str());

    bool wasMultiByte = false;
    corestring text;
    if (!ReadTextFile(path.c_str(), 65001, wasMultiByte, false, text)) {
        LogLine(L"%s: unable to read from: [%s]", tag, versionFile.c_str());
        return;
    }
    NoCaseMap values = ParseKeyValueText(text, L'\n', L'=');
    if (values.empty()) {
        LogLine(L"%s: version override file is empty", tag);
        return;
    }

    const corestring word(L"Tovi");
    corestring version = overrideValue(values, word, L".version");
    if (!version.empty()) {
        LogLine(L"%s: version for %s: [%s]", tag, word.c_str(), version.c_str());
        overrideVersion = version;
    }
    corestring filename = overrideValue(values, word, L".filename");
    if (!filename.empty()) {
        LogLine(L"%s: filename for %s: [%s]", tag, word.c_str(), filename.c_str());
        overrideFilename = filename;
    }
}
