// The lab's network provider. Wine's own WNetAddConnection2W answers 1222 to
// everything, so share access could never succeed in the lab. This DLL takes
// its place (native override "mpr=n,b" for the tool's runs) and answers like
// Windows does for shares that the prefix maps below dosdevices\unc:
//   0    the remote folder exists
//   53   ERROR_BAD_NETPATH   no such server
//   67   ERROR_BAD_NET_NAME  the server is there, the share or folder isn't
// WNetCancelConnection2W gives 0 for a name this process connected and 2250
// (ERROR_NOT_CONNECTED) for any other.
//
// When ZT_MPR_TRACE names a file, every call is appended to it as one UTF-8
// line, so the integration tests can see exactly what the tool asked for.
#include <windows.h>
#include <winnetwk.h>

#include <cwchar>
#include <cwctype>
#include <string>
#include <vector>

namespace {

CRITICAL_SECTION g_lock;
std::vector<std::wstring>* g_connected = nullptr;

std::wstring lowered(const std::wstring& text)
{
    std::wstring out(text);
    for (wchar_t& c : out)
        c = static_cast<wchar_t>(std::towlower(c));
    return out;
}

std::wstring shown(const wchar_t* text) { return text ? L"\"" + std::wstring(text) + L"\"" : L"null"; }

void trace(const std::wstring& line)
{
    wchar_t path[MAX_PATH];
    DWORD n = ::GetEnvironmentVariableW(L"ZT_MPR_TRACE", path, MAX_PATH);
    if (n == 0 || n >= MAX_PATH)
        return;
    std::wstring text = line + L"\n";
    int bytes = ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr,
                                      nullptr);
    std::string utf8(static_cast<size_t>(bytes), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), utf8.data(), bytes, nullptr,
                          nullptr);
    HANDLE file = ::CreateFileW(path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                                FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return;
    DWORD written = 0;
    ::WriteFile(file, utf8.data(), static_cast<DWORD>(utf8.size()), &written, nullptr);
    ::CloseHandle(file);
}

bool isFolder(const std::wstring& path)
{
    DWORD attributes = ::GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

// The answer Windows gives for a remote name, worked out from the folders
// the prefix maps: "\\server\share[\folder...]".
DWORD connectAnswer(const wchar_t* remote)
{
    if (!remote)
        return ERROR_INVALID_PARAMETER;
    std::wstring name(remote);
    for (wchar_t& c : name)
        if (c == L'/')
            c = L'\\';
    if (name.size() < 3 || name.compare(0, 2, L"\\\\") != 0)
        return ERROR_BAD_NET_NAME;
    size_t serverEnd = name.find(L'\\', 2);
    std::wstring server = name.substr(2, serverEnd == std::wstring::npos ? std::wstring::npos : serverEnd - 2);
    if (server.empty())
        return ERROR_BAD_NET_NAME;
    // Wine maps \\server to dosdevices\unc\server; the server "answers" when
    // that folder is there.
    if (!isFolder(L"\\\\" + server + L"\\"))
        return ERROR_BAD_NETPATH;
    if (serverEnd == std::wstring::npos || serverEnd + 1 >= name.size())
        return ERROR_BAD_NET_NAME;
    while (name.size() > 2 && name.back() == L'\\')
        name.pop_back();
    return isFolder(name) ? NO_ERROR : ERROR_BAD_NET_NAME;
}

}  // namespace

extern "C" {

BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID)
{
    if (reason == DLL_PROCESS_ATTACH) {
        ::InitializeCriticalSection(&g_lock);
        g_connected = new std::vector<std::wstring>();
    }
    return TRUE;
}

__declspec(dllexport) DWORD WINAPI WNetAddConnection2W(LPNETRESOURCEW resource, LPCWSTR password, LPCWSTR user,
                                                       DWORD flags)
{
    DWORD answer = resource ? connectAnswer(resource->lpRemoteName) : ERROR_INVALID_PARAMETER;
    if (resource) {
        trace(L"WNetAddConnection2W scope=" + std::to_wstring(resource->dwScope) +
              L" type=" + std::to_wstring(resource->dwType) +
              L" display=" + std::to_wstring(resource->dwDisplayType) +
              L" usage=" + std::to_wstring(resource->dwUsage) + L" local=" + shown(resource->lpLocalName) +
              L" remote=" + shown(resource->lpRemoteName) + L" comment=" + shown(resource->lpComment) +
              L" provider=" + shown(resource->lpProvider) + L" password=" + shown(password) + L" user=" +
              shown(user) + L" flags=" + std::to_wstring(flags) + L" -> " + std::to_wstring(answer));
    } else {
        trace(L"WNetAddConnection2W resource=null -> " + std::to_wstring(answer));
    }
    if (answer == NO_ERROR) {
        ::EnterCriticalSection(&g_lock);
        g_connected->push_back(lowered(resource->lpRemoteName));
        ::LeaveCriticalSection(&g_lock);
    }
    return answer;
}

__declspec(dllexport) DWORD WINAPI WNetCancelConnection2W(LPCWSTR name, DWORD flags, BOOL force)
{
    DWORD answer = ERROR_NOT_CONNECTED;
    if (name) {
        std::wstring key = lowered(name);
        ::EnterCriticalSection(&g_lock);
        for (auto it = g_connected->begin(); it != g_connected->end(); ++it) {
            if (*it == key) {
                g_connected->erase(it);
                answer = NO_ERROR;
                break;
            }
        }
        ::LeaveCriticalSection(&g_lock);
    }
    trace(L"WNetCancelConnection2W name=" + shown(name) + L" flags=" + std::to_wstring(flags) + L" force=" +
          std::to_wstring(force) + L" -> " + std::to_wstring(answer));
    return answer;
}

}  // extern "C"
