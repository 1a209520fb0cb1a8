#include "Harness.h"

#include <shlwapi.h>
// after windows.h, which it needs
#include <wincrypt.h>

#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <cwctype>
#include <mutex>
#include <regex>
#include <stdexcept>
#include <thread>

namespace it {

namespace {

[[noreturn]] void fail(const std::string& what, DWORD code)
{
    throw std::runtime_error(what + " (error " + std::to_string(code) + ")");
}

}  // namespace

// --- Text --------------------------------------------------------------------

std::string Narrow(const std::wstring& text)
{
    if (text.empty())
        return std::string();
    int bytes = ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr,
                                      nullptr);
    std::string out(static_cast<size_t>(bytes), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(), bytes, nullptr,
                          nullptr);
    return out;
}

std::wstring Wide(const std::string& text)
{
    if (text.empty())
        return std::wstring();
    int chars = ::MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    std::wstring out(static_cast<size_t>(chars), L'\0');
    ::MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(), chars);
    return out;
}

std::vector<BYTE> Utf16Bytes(const std::wstring& text, bool terminator)
{
    size_t chars = text.size() + (terminator ? 1 : 0);
    std::vector<BYTE> bytes(chars * 2, 0);
    for (size_t i = 0; i < text.size(); ++i) {
        bytes[2 * i] = static_cast<BYTE>(text[i] & 0xFF);
        bytes[2 * i + 1] = static_cast<BYTE>((text[i] >> 8) & 0xFF);
    }
    return bytes;
}

std::wstring UpdateKey(const wchar_t* root) { return std::wstring(root) + L"\\Agent\\Update"; }
std::wstring VolatileStatusKey(const wchar_t* root) { return std::wstring(root) + L"\\Agent\\UpdateStatusVolatile"; }

// --- Registry ----------------------------------------------------------------

void DeleteProductKeys()
{
    static const wchar_t* const trees[] = {
        L"Software\\Tarvelle",
        L"Software\\Kesmarc, Inc.",
        L"Software\\Policies\\Tarvelle",
        L"Software\\Policies\\Kesmarc, Inc.",
    };
    for (const wchar_t* tree : trees) {
        LSTATUS rc = ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, tree);
        if (rc != ERROR_SUCCESS && rc != ERROR_FILE_NOT_FOUND)
            fail("RegDeleteTreeW HKLM\\" + Narrow(tree), rc);
        if (KeyExists(tree))
            throw std::runtime_error("HKLM\\" + Narrow(tree) + " still exists after deletion");
    }
}

void WriteRaw(const std::wstring& key, const std::wstring& name, DWORD type, const std::vector<BYTE>& data,
              bool volatileKey)
{
    HKEY handle = nullptr;
    LSTATUS rc = ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, nullptr,
                                   volatileKey ? REG_OPTION_VOLATILE : REG_OPTION_NON_VOLATILE, KEY_SET_VALUE,
                                   nullptr, &handle, nullptr);
    if (rc != ERROR_SUCCESS)
        fail("RegCreateKeyExW HKLM\\" + Narrow(key), rc);
    // RegSetValueExW counts a string's terminator for the caller when the
    // data lacks one and a zero character happens to follow it in memory.
    // Non-zero bytes behind the data keep the stored size exactly as given.
    std::vector<BYTE> padded(data);
    padded.insert(padded.end(), 4, 0x41);
    rc = ::RegSetValueExW(handle, name.c_str(), 0, type, padded.data(), static_cast<DWORD>(data.size()));
    ::RegCloseKey(handle);
    if (rc != ERROR_SUCCESS)
        fail("RegSetValueExW HKLM\\" + Narrow(key) + "\\" + Narrow(name), rc);
    std::optional<RegValue> stored = ReadValue(key, name);
    if (!stored || stored->type != type || stored->data != data)
        throw std::runtime_error("HKLM\\" + Narrow(key) + "\\" + Narrow(name) + " was not stored as given");
}

void WriteString(const std::wstring& key, const std::wstring& name, const std::wstring& text)
{
    WriteRaw(key, name, REG_SZ, Utf16Bytes(text, true));
}

void WriteExpandString(const std::wstring& key, const std::wstring& name, const std::wstring& text)
{
    WriteRaw(key, name, REG_EXPAND_SZ, Utf16Bytes(text, true));
}

void WriteStringNoTerminator(const std::wstring& key, const std::wstring& name, const std::wstring& text)
{
    WriteRaw(key, name, REG_SZ, Utf16Bytes(text, false));
}

void WriteMultiString(const std::wstring& key, const std::wstring& name, const std::vector<std::wstring>& items)
{
    std::wstring joined;
    for (const std::wstring& item : items) {
        joined += item;
        joined.push_back(L'\0');
    }
    WriteRaw(key, name, REG_MULTI_SZ, Utf16Bytes(joined, true));
}

void WriteDword(const std::wstring& key, const std::wstring& name, DWORD value)
{
    std::vector<BYTE> data(4);
    for (int i = 0; i < 4; ++i)
        data[i] = static_cast<BYTE>(value >> (8 * i));
    WriteRaw(key, name, REG_DWORD, data);
}

void WriteQword(const std::wstring& key, const std::wstring& name, ULONGLONG value)
{
    std::vector<BYTE> data(8);
    for (int i = 0; i < 8; ++i)
        data[i] = static_cast<BYTE>(value >> (8 * i));
    WriteRaw(key, name, REG_QWORD, data);
}

void WriteBinary(const std::wstring& key, const std::wstring& name, const std::vector<BYTE>& data)
{
    WriteRaw(key, name, REG_BINARY, data);
}

std::optional<RegValue> ReadValue(const std::wstring& key, const std::wstring& name)
{
    HKEY handle = nullptr;
    if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_QUERY_VALUE, &handle) != ERROR_SUCCESS)
        return std::nullopt;
    RegValue value;
    DWORD size = 0;
    LSTATUS rc = ::RegQueryValueExW(handle, name.c_str(), nullptr, &value.type, nullptr, &size);
    if (rc == ERROR_SUCCESS) {
        value.data.resize(size);
        rc = ::RegQueryValueExW(handle, name.c_str(), nullptr, &value.type, value.data.empty() ? nullptr : value.data.data(),
                                &size);
        value.data.resize(size);
    }
    ::RegCloseKey(handle);
    if (rc != ERROR_SUCCESS)
        return std::nullopt;
    return value;
}

std::map<std::wstring, RegValue> ReadAllValues(const std::wstring& key)
{
    std::map<std::wstring, RegValue> values;
    HKEY handle = nullptr;
    if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_QUERY_VALUE, &handle) != ERROR_SUCCESS)
        return values;
    for (DWORD index = 0;; ++index) {
        wchar_t name[16384];
        DWORD nameLength = 16384;
        DWORD type = 0;
        DWORD size = 0;
        LSTATUS rc = ::RegEnumValueW(handle, index, name, &nameLength, nullptr, &type, nullptr, &size);
        if (rc != ERROR_SUCCESS)
            break;
        RegValue value;
        value.type = type;
        value.data.resize(size);
        nameLength = 16384;
        rc = ::RegEnumValueW(handle, index, name, &nameLength, nullptr, &type, value.data.empty() ? nullptr : value.data.data(),
                             &size);
        if (rc != ERROR_SUCCESS)
            break;
        value.data.resize(size);
        values[std::wstring(name, nameLength)] = value;
    }
    ::RegCloseKey(handle);
    return values;
}

bool KeyExists(const std::wstring& key)
{
    HKEY handle = nullptr;
    if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_READ, &handle) != ERROR_SUCCESS)
        return false;
    ::RegCloseKey(handle);
    return true;
}

std::vector<std::wstring> SubkeyNames(const std::wstring& key)
{
    std::vector<std::wstring> names;
    HKEY handle = nullptr;
    if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_READ, &handle) != ERROR_SUCCESS)
        return names;
    std::vector<wchar_t> name(32768);
    for (DWORD index = 0;; ++index) {
        DWORD length = static_cast<DWORD>(name.size());
        if (::RegEnumKeyExW(handle, index, name.data(), &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
            break;
        names.emplace_back(name.data(), length);
    }
    ::RegCloseKey(handle);
    return names;
}

std::vector<std::wstring> ValueNames(const std::wstring& key)
{
    std::vector<std::wstring> names;
    HKEY handle = nullptr;
    if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_QUERY_VALUE, &handle) != ERROR_SUCCESS)
        return names;
    std::vector<wchar_t> name(32768);
    for (DWORD index = 0;; ++index) {
        DWORD length = static_cast<DWORD>(name.size());
        // No data buffer: a large value must not end the listing here.
        if (::RegEnumValueW(handle, index, name.data(), &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
            break;
        names.emplace_back(name.data(), length);
    }
    ::RegCloseKey(handle);
    return names;
}

// --- Files -------------------------------------------------------------------

std::wstring HarnessDirectory()
{
    wchar_t buffer[32768];
    DWORD length = ::GetModuleFileNameW(nullptr, buffer, 32768);
    if (!length || length >= 32768)
        fail("GetModuleFileNameW", ::GetLastError());
    std::wstring path(buffer, length);
    return path.substr(0, path.find_last_of(L"\\/"));
}

std::wstring ToolPath()
{
    std::wstring path = JoinPath(HarnessDirectory(), L"zenthra-updatetool.exe");
    if (!PathExists(path))
        throw std::runtime_error("no tool next to the harness: " + Narrow(path));
    return path;
}

std::wstring JoinPath(const std::wstring& a, const std::wstring& b)
{
    if (a.empty())
        return b;
    if (a.back() == L'\\' || a.back() == L'/')
        return a + b;
    return a + L"\\" + b;
}

bool PathExists(const std::wstring& path) { return ::GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

void MakeDirectories(const std::wstring& path)
{
    if (path.empty() || PathExists(path))
        return;
    size_t cut = path.find_last_of(L"\\/");
    if (cut != std::wstring::npos && cut > 2)
        MakeDirectories(path.substr(0, cut));
    if (!::CreateDirectoryW(path.c_str(), nullptr) && ::GetLastError() != ERROR_ALREADY_EXISTS)
        fail("CreateDirectoryW " + Narrow(path), ::GetLastError());
}

void RemoveTree(const std::wstring& path)
{
    DWORD attributes = ::GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES)
        return;
    if (!(attributes & FILE_ATTRIBUTE_DIRECTORY)) {
        ::SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
        ::DeleteFileW(path.c_str());
        return;
    }
    WIN32_FIND_DATAW data;
    HANDLE find = ::FindFirstFileW(JoinPath(path, L"*").c_str(), &data);
    if (find != INVALID_HANDLE_VALUE) {
        do {
            std::wstring name = data.cFileName;
            if (name != L"." && name != L"..")
                RemoveTree(JoinPath(path, name));
        } while (::FindNextFileW(find, &data));
        ::FindClose(find);
    }
    ::RemoveDirectoryW(path.c_str());
}

std::vector<std::wstring> FindFilesRecursive(const std::wstring& folder, const std::wstring& pattern)
{
    std::vector<std::wstring> found;
    WIN32_FIND_DATAW data;
    HANDLE find = ::FindFirstFileW(JoinPath(folder, L"*").c_str(), &data);
    if (find == INVALID_HANDLE_VALUE)
        return found;
    do {
        std::wstring name = data.cFileName;
        if (name == L"." || name == L"..")
            continue;
        std::wstring full = JoinPath(folder, name);
        if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
            std::vector<std::wstring> below = FindFilesRecursive(full, pattern);
            found.insert(found.end(), below.begin(), below.end());
        } else if (::PathMatchSpecW(name.c_str(), pattern.c_str())) {
            found.push_back(full);
        }
    } while (::FindNextFileW(find, &data));
    ::FindClose(find);
    std::sort(found.begin(), found.end());
    return found;
}

std::optional<std::string> ReadFileBytes(const std::wstring& path)
{
    HANDLE file = ::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return std::nullopt;
    LARGE_INTEGER size{};
    if (!::GetFileSizeEx(file, &size)) {
        DWORD error = ::GetLastError();
        ::CloseHandle(file);
        fail("GetFileSizeEx " + Narrow(path), error);
    }
    std::string bytes(static_cast<size_t>(size.QuadPart), '\0');
    size_t done = 0;
    while (done < bytes.size()) {
        DWORD got = 0;
        DWORD piece = static_cast<DWORD>(std::min<size_t>(bytes.size() - done, 1u << 24));
        if (!::ReadFile(file, bytes.data() + done, piece, &got, nullptr) || !got)
            break;
        done += got;
    }
    ::CloseHandle(file);
    bytes.resize(done);
    return bytes;
}

void WriteFileBytes(const std::wstring& path, const std::string& bytes)
{
    HANDLE file = ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        fail("CreateFileW " + Narrow(path), ::GetLastError());
    size_t done = 0;
    while (done < bytes.size()) {
        DWORD written = 0;
        DWORD piece = static_cast<DWORD>(std::min<size_t>(bytes.size() - done, 1u << 24));
        if (!::WriteFile(file, bytes.data() + done, piece, &written, nullptr) || !written) {
            DWORD error = ::GetLastError();
            ::CloseHandle(file);
            fail("WriteFile " + Narrow(path), error);
        }
        done += written;
    }
    ::CloseHandle(file);
}

bool IsHost64Bit()
{
    SYSTEM_INFO info{};
    ::GetNativeSystemInfo(&info);
    return info.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_AMD64;
}

std::string FileVersionOf(const std::wstring& path)
{
    DWORD ignored = 0;
    DWORD size = ::GetFileVersionInfoSizeW(path.c_str(), &ignored);
    if (!size)
        return std::string();
    std::vector<BYTE> block(size);
    VS_FIXEDFILEINFO* info = nullptr;
    UINT infoSize = 0;
    if (!::GetFileVersionInfoW(path.c_str(), 0, size, block.data()) ||
        !::VerQueryValueW(block.data(), L"\\", reinterpret_cast<void**>(&info), &infoSize) || !info ||
        infoSize < sizeof(VS_FIXEDFILEINFO) || info->dwSignature != 0xFEEF04BD)
        return std::string();
    char text[64];
    std::snprintf(text, sizeof text, "%u.%u.%u.%u", HIWORD(info->dwFileVersionMS), LOWORD(info->dwFileVersionMS),
                  HIWORD(info->dwFileVersionLS), LOWORD(info->dwFileVersionLS));
    return text;
}

std::wstring Sha256Hex(const std::string& bytes)
{
    HCRYPTPROV provider = 0;
    if (!::CryptAcquireContextW(&provider, nullptr, nullptr, PROV_RSA_AES, CRYPT_VERIFYCONTEXT))
        fail("CryptAcquireContextW", ::GetLastError());
    HCRYPTHASH hash = 0;
    BYTE digest[32] = {};
    DWORD size = sizeof digest;
    bool ok = ::CryptCreateHash(provider, CALG_SHA_256, 0, 0, &hash) &&
              ::CryptHashData(hash, reinterpret_cast<const BYTE*>(bytes.data()), static_cast<DWORD>(bytes.size()),
                              0) &&
              ::CryptGetHashParam(hash, HP_HASHVAL, digest, &size, 0) && size == sizeof digest;
    if (hash)
        ::CryptDestroyHash(hash);
    ::CryptReleaseContext(provider, 0);
    if (!ok)
        throw std::runtime_error("SHA-256 of " + std::to_string(bytes.size()) + " bytes failed");
    std::wstring hex;
    for (BYTE b : digest) {
        wchar_t pair[3];
        std::swprintf(pair, 3, L"%02x", b);
        hex += pair;
    }
    return hex;
}

// --- Run result codes ----------------------------------------------------------

std::string RunResultName(int32_t code)
{
    static const std::map<int32_t, std::string> names = {
        {0, "ERR_SUCCESS"},
        {-1, "ERR_FAILURE"},
        {-2, "ERR_KILLSWITCH"},
        {-3, "ERR_DUPLICATE"},
        {-4, "ERR_NOAGENT"},
        {-5, "ERR_LAUNCH"},
        {-6, "ERR_INCOMPATIBLE"},
        {-7, "ERR_REBOOT"},
        {-9, "ERR_PREFLIGHTCHECK_OK"},
        {-10, "ERR_PREFLIGHTCHECK_FAILED"},
        {-11, "ERR_PREFLIGHTCHECK_REBOOT"},
        {-12, "ERR_PREFLIGHTCHECK_INSUFFICIENT_DISK"},
        {-13, "ERR_PREFLIGHTCHECK_UPDATE_INPROGRESS"},
        {-14, "ERR_PREFLIGHTCHECK_INVALID_UNC_PATH"},
    };
    auto found = names.find(code);
    if (found != names.end())
        return found->second;
    return "Update ERR_" + std::to_string(code);
}

bool IsKnownRunResult(int32_t code) { return code <= 0 && code >= -14; }

// --- Processes -----------------------------------------------------------------

// One pipe drained on a thread of its own until the process has ended and
// the pipe is empty. It never blocks in ReadFile: a process the tool starts
// in the prefix (Wine's desktop process takes the standard error handle of
// whoever starts it) may keep the write end open long after the tool is gone.
struct ToolProcess::Capture {
    HANDLE read = nullptr;
    std::thread reader;
    mutable std::mutex lock;
    std::string data;

    void run(HANDLE process)
    {
        char buffer[4096];
        for (;;) {
            DWORD available = 0;
            if (!::PeekNamedPipe(read, nullptr, 0, nullptr, &available, nullptr))
                return;  // every writer has closed
            if (available) {
                DWORD got = 0;
                if (!::ReadFile(read, buffer, std::min<DWORD>(available, sizeof buffer), &got, nullptr) || !got)
                    return;
                std::lock_guard<std::mutex> guard(lock);
                data.append(buffer, got);
                continue;
            }
            // What the process wrote is in the pipe before it is signalled,
            // so an empty pipe after its end is the end of its output.
            if (::WaitForSingleObject(process, 0) == WAIT_OBJECT_0) {
                if (::PeekNamedPipe(read, nullptr, 0, nullptr, &available, nullptr) && available)
                    continue;
                return;
            }
            ::Sleep(10);
        }
    }
    std::string text() const
    {
        std::lock_guard<std::mutex> guard(lock);
        return data;
    }
};

namespace {

std::wstring quoteArgument(const std::wstring& arg)
{
    if (!arg.empty() && arg.find_first_of(L" \t\"") == std::wstring::npos)
        return arg;
    std::wstring quoted = L"\"";
    size_t backslashes = 0;
    for (wchar_t c : arg) {
        if (c == L'\\') {
            ++backslashes;
            continue;
        }
        if (c == L'"')
            quoted.append(backslashes * 2 + 1, L'\\');
        else
            quoted.append(backslashes, L'\\');
        backslashes = 0;
        quoted.push_back(c);
    }
    quoted.append(backslashes * 2, L'\\');
    quoted.push_back(L'"');
    return quoted;
}

bool sameName(const std::wstring& a, const std::wstring& b)
{
    return ::CompareStringOrdinal(a.c_str(), -1, b.c_str(), -1, TRUE) == CSTR_EQUAL;
}

// The harness's environment with the options' variables set.
std::wstring environmentBlock(const std::vector<std::pair<std::wstring, std::wstring>>& overrides)
{
    std::vector<std::wstring> entries;
    wchar_t* strings = ::GetEnvironmentStringsW();
    for (const wchar_t* p = strings; p && *p; p += wcslen(p) + 1)
        entries.emplace_back(p);
    ::FreeEnvironmentStringsW(strings);
    for (const auto& [name, value] : overrides) {
        entries.erase(std::remove_if(entries.begin(), entries.end(),
                                     [&](const std::wstring& entry) {
                                         size_t eq = entry.find(L'=', 1);
                                         return eq != std::wstring::npos && sameName(entry.substr(0, eq), name);
                                     }),
                      entries.end());
        entries.push_back(name + L"=" + value);
    }
    std::wstring block;
    for (const std::wstring& entry : entries) {
        block += entry;
        block.push_back(L'\0');
    }
    block.push_back(L'\0');
    return block;
}

void makePipe(HANDLE& read, HANDLE& write)
{
    SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
    if (!::CreatePipe(&read, &write, &inherit, 0))
        fail("CreatePipe", ::GetLastError());
    // Only the child's end may be inherited.
    ::SetHandleInformation(read, HANDLE_FLAG_INHERIT, 0);
}

}  // namespace

ToolProcess::~ToolProcess()
{
    Terminate();
    joinReaders();
    delete m_out;
    delete m_err;
    if (m_process)
        ::CloseHandle(m_process);
}

void ToolProcess::Start(const RunOptions& options)
{
    if (m_process)
        throw std::runtime_error("ToolProcess started twice");
    std::wstring tool = ToolPath();
    std::wstring commandLine = quoteArgument(tool);
    for (const std::wstring& arg : options.args)
        commandLine += L" " + quoteArgument(arg);

    HANDLE outWrite = nullptr, errWrite = nullptr;
    m_out = new Capture();
    m_err = new Capture();
    makePipe(m_out->read, outWrite);
    makePipe(m_err->read, errWrite);

    SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
    HANDLE nul = ::CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit, OPEN_EXISTING, 0,
                               nullptr);

    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = nul;
    startup.hStdOutput = outWrite;
    startup.hStdError = errWrite;
    PROCESS_INFORMATION info{};
    std::wstring environment = environmentBlock(options.env);
    std::vector<wchar_t> mutableLine(commandLine.begin(), commandLine.end());
    mutableLine.push_back(L'\0');
    BOOL ok = FALSE;
    DWORD error = 0;
    // A loaded lab now and then fails a process start with 1359 before any of
    // the tool's code runs; that is the lab's hiccup, not the tool's answer.
    for (int attempt = 0; attempt < 3; ++attempt) {
        ok = ::CreateProcessW(tool.c_str(), mutableLine.data(), nullptr, nullptr, TRUE, CREATE_UNICODE_ENVIRONMENT,
                              environment.data(), options.workDir.empty() ? nullptr : options.workDir.c_str(),
                              &startup, &info);
        error = ::GetLastError();
        if (ok || error != ERROR_INTERNAL_ERROR)
            break;
        std::fprintf(stderr, "harness: process start failed with %lu, trying again\n", error);
        ::Sleep(500);
    }
    ::CloseHandle(outWrite);
    ::CloseHandle(errWrite);
    if (nul != INVALID_HANDLE_VALUE)
        ::CloseHandle(nul);
    if (!ok)
        fail("CreateProcessW " + Narrow(commandLine), error);
    ::CloseHandle(info.hThread);
    m_process = info.hProcess;
    m_out->reader = std::thread([c = m_out, p = m_process] { c->run(p); });
    m_err->reader = std::thread([c = m_err, p = m_process] { c->run(p); });
}

bool ToolProcess::Alive() const
{
    return m_process && ::WaitForSingleObject(m_process, 0) == WAIT_TIMEOUT;
}

bool ToolProcess::Wait(DWORD timeoutMs)
{
    if (!m_process)
        return true;
    if (::WaitForSingleObject(m_process, timeoutMs) != WAIT_OBJECT_0)
        return false;
    joinReaders();
    return true;
}

int32_t ToolProcess::ExitCode() const
{
    DWORD code = 0;
    if (!m_process || !::GetExitCodeProcess(m_process, &code))
        fail("GetExitCodeProcess", ::GetLastError());
    return static_cast<int32_t>(code);
}

bool ToolProcess::WaitForOutput(const std::string& needle, DWORD timeoutMs)
{
    ULONGLONG deadline = ::GetTickCount64() + timeoutMs;
    for (;;) {
        if (Output().find(needle) != std::string::npos)
            return true;
        if (!Alive()) {
            joinReaders();
            return Output().find(needle) != std::string::npos;
        }
        if (::GetTickCount64() >= deadline)
            return false;
        ::Sleep(50);
    }
}

void ToolProcess::Terminate()
{
    if (m_process && Alive()) {
        ::TerminateProcess(m_process, 1);
        // The mutex and the log file go with the process; be sure it is gone.
        ::WaitForSingleObject(m_process, 30000);
    }
    joinReaders();
}

std::string ToolProcess::Output() const { return m_out ? m_out->text() : std::string(); }
std::string ToolProcess::Errors() const { return m_err ? m_err->text() : std::string(); }

void ToolProcess::joinReaders()
{
    for (Capture* capture : {m_out, m_err}) {
        if (!capture)
            continue;
        if (capture->reader.joinable() && !Alive())
            capture->reader.join();
        if (!capture->reader.joinable() && capture->read) {
            ::CloseHandle(capture->read);
            capture->read = nullptr;
        }
    }
}

ToolRun RunTool(const RunOptions& options)
{
    ToolProcess process;
    process.Start(options);
    ToolRun run;
    if (!process.Wait(options.timeoutMs)) {
        run.timedOut = true;
        process.Terminate();
    }
    run.exitCode = process.ExitCode();
    run.out = process.Output();
    run.err = process.Errors();
    return run;
}

// --- Tool log --------------------------------------------------------------------

std::vector<std::wstring> FindLogFiles(const std::wstring& installLogsDir)
{
    std::vector<std::wstring> files;
    std::wstring folder = JoinPath(installLogsDir, L"updatetool");
    WIN32_FIND_DATAW data;
    HANDLE find = ::FindFirstFileW(JoinPath(folder, L"Tarvelle_Agent_Update_*.log").c_str(), &data);
    if (find == INVALID_HANDLE_VALUE)
        return files;
    do {
        if (!(data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY))
            files.push_back(JoinPath(folder, data.cFileName));
    } while (::FindNextFileW(find, &data));
    ::FindClose(find);
    // The names carry the start time, so their order is the order of the runs.
    std::sort(files.begin(), files.end());
    return files;
}

std::optional<LogFile> ReadNewestLog(const std::wstring& installLogsDir)
{
    std::vector<std::wstring> files = FindLogFiles(installLogsDir);
    if (files.empty())
        return std::nullopt;
    return ReadLog(files.back());
}

LogFile ReadLog(const std::wstring& path)
{
    LogFile log;
    log.path = path;
    // The tool opens its log without sharing for each line; retry briefly.
    HANDLE file = INVALID_HANDLE_VALUE;
    for (int attempt = 0; attempt < 50 && file == INVALID_HANDLE_VALUE; ++attempt) {
        file = ::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                             nullptr, OPEN_EXISTING, 0, nullptr);
        if (file == INVALID_HANDLE_VALUE)
            ::Sleep(20);
    }
    if (file == INVALID_HANDLE_VALUE)
        fail("open log " + Narrow(path), ::GetLastError());
    DWORD size = ::GetFileSize(file, nullptr);
    log.bytes.resize(size);
    DWORD got = 0;
    if (size && !::ReadFile(file, log.bytes.data(), size, &got, nullptr)) {
        DWORD error = ::GetLastError();
        ::CloseHandle(file);
        fail("read log " + Narrow(path), error);
    }
    ::CloseHandle(file);
    log.bytes.resize(got);

    log.hasBom = log.bytes.size() >= 2 && log.bytes[0] == 0xFF && log.bytes[1] == 0xFE;
    size_t start = log.hasBom ? 2 : 0;
    std::wstring text;
    for (size_t i = start; i + 1 < log.bytes.size(); i += 2)
        text.push_back(static_cast<wchar_t>(log.bytes[i] | (log.bytes[i + 1] << 8)));
    log.text = Narrow(text);
    log.endsWithCrLf = log.text.size() >= 2 && log.text.compare(log.text.size() - 2, 2, "\r\n") == 0;

    size_t pos = 0;
    while (pos < log.text.size()) {
        size_t end = log.text.find("\r\n", pos);
        if (end == std::string::npos) {
            log.lines.push_back(log.text.substr(pos));
            break;
        }
        log.lines.push_back(log.text.substr(pos, end - pos));
        pos = end + 2;
    }
    log.messages = MessagesOf(log.lines);
    return log;
}

bool HasTimeStamp(const std::string& line)
{
    static const std::regex stamp(R"(^\d{4}-\d{2}-\d{2} \d{2}\.\d{2}\.\d{2}: )");
    return std::regex_search(line, stamp);
}

std::vector<std::string> OutputLines(const std::string& out)
{
    std::vector<std::string> lines;
    size_t pos = 0;
    while (pos <= out.size()) {
        size_t end = out.find('\n', pos);
        std::string line = out.substr(pos, end == std::string::npos ? std::string::npos : end - pos);
        // Standard output is in text mode: each line feed arrives as CR LF.
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (!line.empty())
            lines.push_back(line);
        if (end == std::string::npos)
            break;
        pos = end + 1;
    }
    return lines;
}

std::vector<std::string> MessagesOf(const std::vector<std::string>& lines)
{
    // "YYYY-MM-DD hh.mm.ss: " is 21 characters.
    std::vector<std::string> messages;
    for (const std::string& line : lines)
        if (HasTimeStamp(line))
            messages.push_back(line.substr(21));
    return messages;
}

size_t CountMessages(const std::vector<std::string>& messages, const std::string& message)
{
    return static_cast<size_t>(std::count(messages.begin(), messages.end(), message));
}

bool ContainsMessage(const std::vector<std::string>& messages, const std::string& message)
{
    return CountMessages(messages, message) > 0;
}

// --- What a finished run looks like ----------------------------------------------

namespace {

std::string describe(const ToolRun& run, const std::optional<LogFile>& log)
{
    std::string text = "exit code " + std::to_string(run.exitCode) + (run.timedOut ? " (timed out)" : "") +
                       "\n--- stdout ---\n" + run.out;
    if (!run.err.empty())
        text += "--- stderr ---\n" + run.err;
    if (log)
        text += "--- log " + Narrow(log->path) + " ---\n" + log->text;
    else
        text += "--- no log file ---\n";
    return text;
}

}  // namespace

std::string VersionLine() { return "Updatetool Version: " + FileVersionOf(ToolPath()); }

std::string ClosingLine(int32_t code) { return "wmain: Updatetool rc = " + RunResultName(code); }

::testing::AssertionResult IsKillSwitchRun(const ToolRun& run, const std::optional<LogFile>& log)
{
    if (run.timedOut || run.exitCode != kKillSwitch)
        return ::testing::AssertionFailure() << "expected the kill switch's -2; " << describe(run, log);
    if (log) {
        std::vector<std::string> expected = {kBeginLine, VersionLine(), kEndLine};
        if (log->messages != expected || log->lines.size() != expected.size())
            return ::testing::AssertionFailure() << "expected only banner and end line in the log; "
                                                 << describe(run, log);
    }
    if (run.out.find("wmain") != std::string::npos)
        return ::testing::AssertionFailure() << "the kill switch must not log a line of its own; "
                                             << describe(run, log);
    return ::testing::AssertionSuccess();
}

::testing::AssertionResult IsCompletedRun(const ToolRun& run, const std::optional<LogFile>& log)
{
    if (run.timedOut || !IsKnownRunResult(run.exitCode) || run.exitCode == kKillSwitch ||
        run.exitCode == kDuplicate)
        return ::testing::AssertionFailure() << "expected a run through its closing steps; " << describe(run, log);
    std::string closing = ClosingLine(run.exitCode);
    std::vector<std::string> console = MessagesOf(OutputLines(run.out));
    if (CountMessages(console, closing) != 1)
        return ::testing::AssertionFailure() << "expected \"" << closing << "\" once on the console; "
                                             << describe(run, log);
    if (log) {
        const std::vector<std::string>& messages = log->messages;
        if (messages.size() < 4 || messages.front() != kBeginLine || messages.back() != kEndLine ||
            messages[messages.size() - 2] != closing)
            return ::testing::AssertionFailure() << "expected the log to end with \"" << closing
                                                 << "\" and the end line; " << describe(run, log);
    }
    return ::testing::AssertionSuccess();
}

// --- Fixture -----------------------------------------------------------------------

void ToolTest::SetUp()
{
    DeleteProductKeys();
    wchar_t temp[MAX_PATH + 1];
    DWORD length = ::GetTempPathW(MAX_PATH + 1, temp);
    if (!length || length > MAX_PATH)
        fail("GetTempPathW", ::GetLastError());
    const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
    std::wstring name = Wide(std::string(test->test_suite_name()) + "." + test->name());
    for (wchar_t& c : name)
        if (!std::iswalnum(c) && c != L'.' && c != L'_' && c != L'-')
            c = L'_';
    sandbox_ = JoinPath(JoinPath(std::wstring(temp, length), L"zt-integration"), name);
    RemoveTree(sandbox_);
    MakeDirectories(sandbox_);
    tempDir_ = NewFolder(L"temp");
    logsDir_ = UseFreshLogsDir();
}

void ToolTest::TearDown()
{
    DeleteProductKeys();
    // A failed test keeps its sandbox for a look at what the tool left.
    if (!HasFailure())
        RemoveTree(sandbox_);
}

std::wstring ToolTest::NewFolder(const std::wstring& name)
{
    std::wstring path = JoinPath(sandbox_, name + L"-" + std::to_wstring(++folderCount_));
    RemoveTree(path);
    MakeDirectories(path);
    return path;
}

RunOptions ToolTest::Options() const
{
    RunOptions options;
    options.workDir = sandbox_;
    options.env = {{L"TEMP", tempDir_}, {L"TMP", tempDir_}};
    return options;
}

std::wstring ToolTest::UseFreshLogsDir()
{
    std::wstring folder = NewFolder(L"logs");
    WriteString(kNewRoot, L"InstallLogsDir", folder);
    return folder;
}

ToolRun ToolTest::Run(const RunOptions& options)
{
    ToolRun run = RunTool(options);
    EXPECT_FALSE(run.timedOut) << "the tool did not end within " << options.timeoutMs << " ms; output:\n" << run.out;
    return run;
}

}  // namespace it
