#pragma once
// Small helpers shared by the benchmarks: timing, figures, and the one
// registry value they point at a scratch folder for the length of a run.
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <optional>
#include <string>
#include <vector>

namespace bench {

// Starts a program with its standard handles on NUL, so that only its own
// work is measured, and the command line being its quoted path; ends the
// benchmark when the program can't be started. environment: a
// CREATE_UNICODE_ENVIRONMENT block, or null for the bench's own.
inline PROCESS_INFORMATION startQuietly(const std::wstring& program, wchar_t* environment = nullptr)
{
    SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
    HANDLE nul = ::CreateFileW(L"NUL", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit,
                               OPEN_EXISTING, 0, nullptr);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = nul;
    startup.hStdOutput = nul;
    startup.hStdError = nul;
    PROCESS_INFORMATION info{};
    std::wstring commandLine = L"\"" + program + L"\"";
    BOOL started = ::CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, TRUE,
                                    environment ? CREATE_UNICODE_ENVIRONMENT : 0, environment, nullptr, &startup, &info);
    DWORD error = ::GetLastError();
    ::CloseHandle(nul);  // the child has its own copy
    if (!started) {
        std::fprintf(stderr, "cannot start %ls (error %lu)\n", program.c_str(), error);
        std::exit(2);
    }
    return info;
}

inline double nowMs()
{
    static LARGE_INTEGER frequency = [] {
        LARGE_INTEGER f;
        ::QueryPerformanceFrequency(&f);
        return f;
    }();
    LARGE_INTEGER counter;
    ::QueryPerformanceCounter(&counter);
    return static_cast<double>(counter.QuadPart) * 1000.0 / static_cast<double>(frequency.QuadPart);
}

struct Figures {
    double mean = 0, median = 0, min = 0, max = 0;
};

inline Figures figuresOf(std::vector<double> samples)
{
    Figures f;
    if (samples.empty())
        return f;
    std::sort(samples.begin(), samples.end());
    f.mean = std::accumulate(samples.begin(), samples.end(), 0.0) / static_cast<double>(samples.size());
    size_t n = samples.size();
    f.median = n % 2 ? samples[n / 2] : (samples[n / 2 - 1] + samples[n / 2]) / 2;
    f.min = samples.front();
    f.max = samples.back();
    return f;
}

inline std::wstring ownDirectory()
{
    wchar_t buffer[MAX_PATH];
    DWORD length = ::GetModuleFileNameW(nullptr, buffer, MAX_PATH);
    std::wstring path(buffer, length);
    return path.substr(0, path.find_last_of(L'\\'));
}

// A fresh folder below %TEMP%.
inline std::wstring scratchFolder(const wchar_t* name)
{
    wchar_t temp[MAX_PATH + 1];
    DWORD length = ::GetTempPathW(MAX_PATH + 1, temp);
    std::wstring path = std::wstring(temp, length) + name + L"-" + std::to_wstring(::GetCurrentProcessId());
    ::CreateDirectoryW(path.c_str(), nullptr);
    return path;
}

inline void removeTree(const std::wstring& path)
{
    WIN32_FIND_DATAW data;
    HANDLE find = ::FindFirstFileW((path + L"\\*").c_str(), &data);
    if (find != INVALID_HANDLE_VALUE) {
        do {
            std::wstring name = data.cFileName;
            if (name == L"." || name == L"..")
                continue;
            std::wstring full = path + L"\\" + name;
            if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
                removeTree(full);
            else
                ::DeleteFileW(full.c_str());
        } while (::FindNextFileW(find, &data));
        ::FindClose(find);
    }
    ::RemoveDirectoryW(path.c_str());
}

// Sets HKLM\Software\Tarvelle\Zenthra\InstallLogsDir for its lifetime and
// puts back what stood there before.
class InstallLogsDirOverride {
public:
    explicit InstallLogsDirOverride(const std::wstring& folder)
    {
        HKEY key = nullptr;
        if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kParent, 0, KEY_READ, &key) == ERROR_SUCCESS) {
            m_parentExisted = true;
            ::RegCloseKey(key);
            key = nullptr;
        }
        if (::RegCreateKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, nullptr, 0, KEY_QUERY_VALUE | KEY_SET_VALUE, nullptr, &key,
                              &m_disposition) != ERROR_SUCCESS) {
            std::fprintf(stderr, "cannot open HKLM\\%ls\n", kKey);
            return;
        }
        DWORD type = 0, size = 0;
        if (::RegQueryValueExW(key, kName, nullptr, &type, nullptr, &size) == ERROR_SUCCESS) {
            std::vector<BYTE> data(size);
            if (::RegQueryValueExW(key, kName, nullptr, &type, data.empty() ? nullptr : data.data(), &size) ==
                ERROR_SUCCESS) {
                data.resize(size);
                m_saved = std::make_pair(type, data);
            }
        }
        ::RegSetValueExW(key, kName, 0, REG_SZ, reinterpret_cast<const BYTE*>(folder.c_str()),
                         static_cast<DWORD>((folder.size() + 1) * sizeof(wchar_t)));
        ::RegCloseKey(key);
    }
    ~InstallLogsDirOverride()
    {
        HKEY key = nullptr;
        if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, KEY_SET_VALUE, &key) != ERROR_SUCCESS)
            return;
        if (m_saved)
            ::RegSetValueExW(key, kName, 0, m_saved->first, m_saved->second.data(),
                             static_cast<DWORD>(m_saved->second.size()));
        else
            ::RegDeleteValueW(key, kName);
        ::RegCloseKey(key);
        // A key this run made goes again, so the lab is left as found.
        if (m_disposition == REG_CREATED_NEW_KEY)
            ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, kKey);
        // So does the brand key made on the way; it can't go while it has subkeys.
        if (!m_parentExisted)
            ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, kParent);
    }
    InstallLogsDirOverride(const InstallLogsDirOverride&) = delete;
    InstallLogsDirOverride& operator=(const InstallLogsDirOverride&) = delete;

private:
    static constexpr const wchar_t* kParent = L"Software\\Tarvelle";
    static constexpr const wchar_t* kKey = L"Software\\Tarvelle\\Zenthra";
    static constexpr const wchar_t* kName = L"InstallLogsDir";
    DWORD m_disposition = 0;
    bool m_parentExisted = false;
    std::optional<std::pair<DWORD, std::vector<BYTE>>> m_saved;
};

}  // namespace bench
