// zt-msilog LOGFILE: reads a failed install's verbose log the way
// zenthra-updatetool does and the way an administrator would, and prints
// both in UTF-8.
#include <windows.h>

#include <cstdio>
#include <fcntl.h>
#include <io.h>
#include <string>

#include "Report.h"

namespace {

// Shared for writing and deleting too: a log the installer still holds
// opens all the same.
bool readWholeFile(const wchar_t* path, std::string& bytes, DWORD& error)
{
    HANDLE file = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        error = GetLastError();
        return false;
    }
    bool ok = true;
    char buffer[1 << 16];
    for (;;) {
        DWORD read = 0;
        if (!ReadFile(file, buffer, sizeof buffer, &read, nullptr)) {
            error = GetLastError();
            ok = false;
            break;
        }
        if (read == 0)
            break;
        bytes.append(buffer, read);
    }
    CloseHandle(file);
    return ok;
}

void write(const std::string& text)
{
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    // The report is UTF-8 bytes; the console shows them as such, and a
    // redirected output keeps them as they are.
    SetConsoleOutputCP(CP_UTF8);
    _setmode(_fileno(stdout), _O_BINARY);
    if (argc != 2) {
        write("usage: zt-msilog LOGFILE\n"
              "Prints what zenthra-updatetool reports of a verbose installer log, a reading of the\n"
              "log's failures, and the action that failed.\n");
        return 2;
    }
    std::string bytes;
    DWORD error = 0;
    if (!readWholeFile(argv[1], bytes, error)) {
        std::fprintf(stderr, "zt-msilog: cannot read the log (error %lu)\n", static_cast<unsigned long>(error));
        return 1;
    }
    write(ztmsilog::FormatReport(argv[1], bytes));
    return 0;
}
