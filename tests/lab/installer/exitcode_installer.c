/* A stand-in installer for the lab: it takes the silent command line of a
 * real setup program, writes what it got to a file beside itself, and exits
 * with the number that ends its own file name ("setup-3010.exe" exits 3010).
 * Wine's msiexec can't be made to end with such codes. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>
#include <windows.h>

int wmain(void)
{
    wchar_t self[MAX_PATH];
    DWORD n = GetModuleFileNameW(NULL, self, MAX_PATH);
    if (n == 0 || n >= MAX_PATH)
        return 2;

    wchar_t record[MAX_PATH + 16];
    swprintf(record, MAX_PATH + 16, L"%ls.cmdline.txt", self);
    FILE* out = _wfopen(record, L"wb");
    if (out) {
        const wchar_t* line = GetCommandLineW();
        fwrite(line, sizeof(wchar_t), wcslen(line), out);
        fclose(out);
    }

    wchar_t* dot = wcsrchr(self, L'.');
    if (dot)
        *dot = L'\0';
    wchar_t* dash = wcsrchr(self, L'-');
    return dash ? (int)wcstoul(dash + 1, NULL, 10) : 0;
}
