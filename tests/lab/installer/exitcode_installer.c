/* A stand-in installer for the lab. It takes the silent command line of a
 * real setup program ("<exe> /s /v /qn NAME=value ..."), writes what it got
 * to "<self>.cmdline.txt" (UTF-16LE, no mark) and then does one of these,
 * chosen by files beside itself:
 *
 *   "<self>.install"   holds the path of a Windows Installer package: run
 *                      msiexec /i "<package>" /qn, with every NAME=value
 *                      of our own command line passed on as the /v switch
 *                      of a real setup would, and exit with msiexec's code;
 *                      a successful install may still exit with the code of
 *                      "<self>.exitcode", if there is one (say 3010).
 *   "<self>.exitcode"  holds a decimal exit code: exit with it.
 *   neither            exit with the number that ends the file name
 *                      ("setup-3010.exe" exits 3010), 0 if there is none.
 *
 * Whatever it does, when "<self>.verboselog" is there and the command line
 * asks for a verbose log ("/l*v <path>", the path in quotes or not), that
 * file is copied to the path first, as a real installer leaves its log
 * behind: the lab's logs are in the Windows Installer's own format, which
 * Wine's msiexec doesn't write.
 *
 * The sidecars let the file carry a name that a version is read from (such
 * as "...-8.12.0-9876543.exe") and still exit with any code. The msiexec
 * line it ran and msiexec's code go to "<self>.msiexec.txt" (UTF-16LE).
 * Wine's msiexec can't be made to end with codes like 1618 or 3010, which is
 * why this program exists. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>
#include <windows.h>

#define SIDECAR_PATH (MAX_PATH + 32)

static void write_utf16(const wchar_t* path, const wchar_t* text)
{
    FILE* out = _wfopen(path, L"wb");
    if (!out)
        return;
    fwrite(text, sizeof(wchar_t), wcslen(text), out);
    fclose(out);
}

/* The text of a small sidecar file: UTF-16LE behind a mark, else UTF-8.
 * NULL when the file isn't there. Blanks and line ends around it go. */
static wchar_t* read_sidecar(const wchar_t* path)
{
    FILE* in = _wfopen(path, L"rb");
    if (!in)
        return NULL;
    char bytes[4 * MAX_PATH];
    size_t n = fread(bytes, 1, sizeof bytes - 2, in);
    fclose(in);
    bytes[n] = bytes[n + 1] = 0;

    wchar_t* text = calloc(2 * MAX_PATH + 1, sizeof(wchar_t));
    if (!text)
        return NULL;
    if (n >= 2 && (unsigned char)bytes[0] == 0xFF && (unsigned char)bytes[1] == 0xFE) {
        size_t chars = (n - 2) / 2;
        if (chars > 2 * MAX_PATH)
            chars = 2 * MAX_PATH;
        memcpy(text, bytes + 2, chars * sizeof(wchar_t));
    } else {
        const char* from = bytes;
        if (n >= 3 && (unsigned char)bytes[0] == 0xEF && (unsigned char)bytes[1] == 0xBB &&
            (unsigned char)bytes[2] == 0xBF)
            from += 3;
        MultiByteToWideChar(CP_UTF8, 0, from, -1, text, 2 * MAX_PATH);
    }
    size_t end = wcslen(text);
    while (end > 0 && wcschr(L" \t\r\n", text[end - 1]))
        text[--end] = L'\0';
    size_t start = wcsspn(text, L" \t\r\n");
    memmove(text, text + start, (end - start + 1) * sizeof(wchar_t));
    return text;
}

/* Behind the program's own name in a command line: a quoted first word
 * ends at its closing quote, a plain one at the first blank. */
static const wchar_t* skip_program(const wchar_t* line)
{
    if (*line == L'"') {
        const wchar_t* close = wcschr(line + 1, L'"');
        return close ? close + 1 : line + wcslen(line);
    }
    while (*line && *line != L' ' && *line != L'\t')
        ++line;
    return line;
}

/* Appends every NAME=value word of the arguments (quotes kept as given) to
 * the msiexec line; switches such as /s /v /qn stay behind. */
static void append_properties(wchar_t* line, size_t size, const wchar_t* args)
{
    const wchar_t* at = args;
    for (;;) {
        while (*at == L' ' || *at == L'\t')
            ++at;
        if (!*at)
            break;
        const wchar_t* start = at;
        int quoted = 0;
        while (*at && (quoted || (*at != L' ' && *at != L'\t'))) {
            if (*at == L'"')
                quoted = !quoted;
            ++at;
        }
        size_t length = (size_t)(at - start);
        if (*start == L'/' || !wmemchr(start, L'=', length))
            continue;
        size_t used = wcslen(line);
        if (used + 1 + length + 1 > size)
            break;
        line[used] = L' ';
        wmemcpy(line + used + 1, start, length);
        line[used + 1 + length] = L'\0';
    }
}

/* msiexec /i "<package>" /qn NAME=value...; its exit code, or 1 when it
 * couldn't be run. */
static DWORD run_msiexec(const wchar_t* self, const wchar_t* package, const wchar_t* args)
{
    size_t size = wcslen(package) + wcslen(args) + 64;
    wchar_t* line = calloc(size, sizeof(wchar_t));
    if (!line)
        return 1;
    swprintf(line, size, L"msiexec /i \"%ls\" /qn", package);
    append_properties(line, size, args);

    DWORD code = 1;
    STARTUPINFOW startup;
    memset(&startup, 0, sizeof startup);
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process;
    wchar_t* mutable_line = _wcsdup(line);
    if (mutable_line && CreateProcessW(NULL, mutable_line, NULL, NULL, FALSE, 0, NULL, NULL, &startup, &process)) {
        WaitForSingleObject(process.hProcess, INFINITE);
        if (!GetExitCodeProcess(process.hProcess, &code))
            code = 1;
        CloseHandle(process.hThread);
        CloseHandle(process.hProcess);
    }
    free(mutable_line);

    wchar_t record[SIDECAR_PATH];
    swprintf(record, SIDECAR_PATH, L"%ls.msiexec.txt", self);
    size_t reportSize = wcslen(line) + 32;
    wchar_t* report = calloc(reportSize, sizeof(wchar_t));
    if (report) {
        swprintf(report, reportSize, L"%ls\r\n%lu", line, (unsigned long)code);
        write_utf16(record, report);
        free(report);
    }
    free(line);
    return code;
}

/* The path behind "/l*v" in the arguments, without its quotes; NULL when
 * none is asked for. */
static wchar_t* verbose_log_path(const wchar_t* args)
{
    for (const wchar_t* at = args; *at; ++at) {
        if (_wcsnicmp(at, L"/l*v", 4) != 0)
            continue;
        at += 4;
        while (*at == L' ' || *at == L'\t')
            ++at;
        const wchar_t* start = at;
        const wchar_t* end;
        if (*at == L'"') {
            start = ++at;
            end = wcschr(start, L'"');
            if (!end)
                end = start + wcslen(start);
        } else {
            end = start;
            while (*end && *end != L' ' && *end != L'\t')
                ++end;
        }
        if (end == start)
            return NULL;
        size_t length = (size_t)(end - start);
        wchar_t* path = calloc(length + 1, sizeof(wchar_t));
        if (path)
            wmemcpy(path, start, length);
        return path;
    }
    return NULL;
}

static void leave_verbose_log(const wchar_t* self, const wchar_t* args)
{
    wchar_t* path = verbose_log_path(args);
    if (!path)
        return;
    wchar_t sidecar[SIDECAR_PATH];
    swprintf(sidecar, SIDECAR_PATH, L"%ls.verboselog", self);
    CopyFileW(sidecar, path, FALSE);
    free(path);
}

static DWORD code_from_name(wchar_t* self)
{
    wchar_t* slash = wcsrchr(self, L'\\');
    wchar_t* name = slash ? slash + 1 : self;
    wchar_t* dot = wcsrchr(name, L'.');
    if (dot)
        *dot = L'\0';
    wchar_t* dash = wcsrchr(name, L'-');
    return dash ? (DWORD)wcstoul(dash + 1, NULL, 10) : 0;
}

int wmain(void)
{
    wchar_t self[MAX_PATH];
    DWORD n = GetModuleFileNameW(NULL, self, MAX_PATH);
    if (n == 0 || n >= MAX_PATH)
        return 2;

    const wchar_t* line = GetCommandLineW();
    wchar_t sidecar[SIDECAR_PATH];
    swprintf(sidecar, SIDECAR_PATH, L"%ls.cmdline.txt", self);
    write_utf16(sidecar, line);

    leave_verbose_log(self, skip_program(line));

    swprintf(sidecar, SIDECAR_PATH, L"%ls.exitcode", self);
    wchar_t* chosen = read_sidecar(sidecar);

    swprintf(sidecar, SIDECAR_PATH, L"%ls.install", self);
    wchar_t* package = read_sidecar(sidecar);
    if (package) {
        DWORD code = run_msiexec(self, package, skip_program(line));
        free(package);
        if (code == 0 && chosen)
            code = (DWORD)wcstoul(chosen, NULL, 10);
        free(chosen);
        return (int)code;
    }
    if (chosen) {
        DWORD code = (DWORD)wcstoul(chosen, NULL, 10);
        free(chosen);
        return (int)code;
    }
    return (int)code_from_name(self);
}
