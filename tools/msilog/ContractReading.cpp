#include "ContractReading.h"

#include <algorithm>
#include <cstring>
#include <cwchar>

#include "core/log/LogSink.h"
#include "diagnostics/InstallerLog.h"
#include "platform/Services.h"

namespace ztmsilog {

namespace {

constexpr const wchar_t* kPath = L"C:\\zt-msilog\\install.log";

// One file, opened for reading only. Everything else fails as Windows does
// for a call it does not support.
class OneFileSystem final : public platform::FileSystem {
public:
    explicit OneFileSystem(std::string_view bytes) : m_bytes(bytes) {}

    HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD, DWORD disposition, DWORD) override
    {
        if (path == nullptr || std::wcscmp(path, kPath) != 0) {
            SetLastError(ERROR_FILE_NOT_FOUND);
            return INVALID_HANDLE_VALUE;
        }
        if ((access & ~GENERIC_READ) != 0 || disposition != OPEN_EXISTING) {
            SetLastError(ERROR_ACCESS_DENIED);
            return INVALID_HANDLE_VALUE;
        }
        m_position = 0;
        m_open = true;
        return handle();
    }
    BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read) override
    {
        if (!isOurs(file))
            return fail(ERROR_INVALID_HANDLE);
        const std::size_t count = std::min<std::size_t>(toRead, m_bytes.size() - m_position);
        if (count > 0)
            std::memcpy(buffer, m_bytes.data() + m_position, count);
        m_position += count;
        if (read)
            *read = static_cast<DWORD>(count);
        return TRUE;
    }
    DWORD GetFileSize(HANDLE file, LPDWORD sizeHigh) override
    {
        if (!isOurs(file)) {
            SetLastError(ERROR_INVALID_HANDLE);
            return INVALID_FILE_SIZE;
        }
        const unsigned long long size = m_bytes.size();
        if (sizeHigh)
            *sizeHigh = static_cast<DWORD>(size >> 32);
        else if (size >> 32)
            return INVALID_FILE_SIZE;
        return static_cast<DWORD>(size);
    }
    BOOL CloseHandle(HANDLE file) override
    {
        if (!isOurs(file))
            return fail(ERROR_INVALID_HANDLE);
        m_open = false;
        return TRUE;
    }
    BOOL WriteFile(HANDLE, LPCVOID, DWORD, LPDWORD) override { return fail(ERROR_ACCESS_DENIED); }
    BOOL CopyFileW(LPCWSTR, LPCWSTR, BOOL) override { return fail(ERROR_NOT_SUPPORTED); }
    BOOL DeleteFileW(LPCWSTR) override { return fail(ERROR_NOT_SUPPORTED); }
    HANDLE FindFirstFileW(LPCWSTR, LPWIN32_FIND_DATAW) override
    {
        SetLastError(ERROR_NOT_SUPPORTED);
        return INVALID_HANDLE_VALUE;
    }
    BOOL FindNextFileW(HANDLE, LPWIN32_FIND_DATAW) override { return fail(ERROR_NOT_SUPPORTED); }
    BOOL FindClose(HANDLE) override { return fail(ERROR_INVALID_HANDLE); }
    DWORD GetFileAttributesW(LPCWSTR path) override
    {
        if (path && std::wcscmp(path, kPath) == 0)
            return FILE_ATTRIBUTE_NORMAL;
        SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_FILE_ATTRIBUTES;
    }
    BOOL CreateDirectoryW(LPCWSTR) override { return fail(ERROR_NOT_SUPPORTED); }
    DWORD GetTempPathW(DWORD, LPWSTR) override
    {
        SetLastError(ERROR_NOT_SUPPORTED);
        return 0;
    }
    BOOL GetDiskFreeSpaceExW(LPCWSTR, PULARGE_INTEGER, PULARGE_INTEGER, PULARGE_INTEGER) override
    {
        return fail(ERROR_NOT_SUPPORTED);
    }
    DWORD GetCurrentDirectoryW(DWORD, LPWSTR) override
    {
        SetLastError(ERROR_NOT_SUPPORTED);
        return 0;
    }
    BOOL PathFileExistsW(LPCWSTR path) override { return path && std::wcscmp(path, kPath) == 0; }
    DWORD GetFileVersionInfoSizeW(LPCWSTR, LPDWORD) override
    {
        SetLastError(ERROR_RESOURCE_TYPE_NOT_FOUND);
        return 0;
    }
    BOOL GetFileVersionInfoW(LPCWSTR, DWORD, DWORD, LPVOID) override { return fail(ERROR_RESOURCE_TYPE_NOT_FOUND); }
    BOOL VerQueryValueA(LPCVOID, LPCSTR, LPVOID*, PUINT) override { return FALSE; }

private:
    static HANDLE handle() { return reinterpret_cast<HANDLE>(static_cast<ULONG_PTR>(0x5A4D)); }
    bool isOurs(HANDLE file) const { return m_open && file == handle(); }
    static BOOL fail(DWORD error)
    {
        SetLastError(error);
        return FALSE;
    }

    std::string_view m_bytes;
    std::size_t m_position = 0;
    bool m_open = false;
};

// Puts the platform's file system and the log sink back however the
// reading ends.
class Borrowed {
public:
    explicit Borrowed(platform::FileSystem& files)
        : m_files(platform::services().files), m_sink(CORE::SetLogSink(nullptr))
    {
        platform::services().files = &files;
    }
    ~Borrowed()
    {
        platform::services().files = m_files;
        CORE::SetLogSink(m_sink);
    }
    Borrowed(const Borrowed&) = delete;
    Borrowed& operator=(const Borrowed&) = delete;

private:
    platform::FileSystem* m_files;
    CORE::LogSink* m_sink;
};

std::optional<std::wstring> answer(const CORE::corestring& text)
{
    if (text.handle() == nullptr)
        return std::nullopt;
    return std::wstring(text.c_str(), static_cast<std::size_t>(text.length()));
}

}  // namespace

ContractReading ReadAsTheToolDoes(std::string_view fileBytes)
{
    OneFileSystem files(fileBytes);
    Borrowed scope(files);
    ContractReading reading;
    const std::vector<CORE::corestring> lines = FetchErrorLines(CORE::corestring(kPath));
    for (const CORE::corestring& line : lines)
        reading.window.emplace_back(line.c_str(), static_cast<std::size_t>(line.length()));
    reading.name = answer(GetFailedCustomActionName(lines));
    reading.message = answer(GetFailedCAErrorMessage(lines));
    return reading;
}

std::wstring BareName(const std::optional<std::wstring>& name)
{
    if (!name)
        return std::wstring();
    std::wstring_view text(*name);
    while (!text.empty() && (text.front() == L' ' || text.front() == L'\t' || text.front() == L'\r' ||
                             text.front() == L'\n'))
        text.remove_prefix(1);
    while (!text.empty() && (text.back() == L' ' || text.back() == L'\t' || text.back() == L'\r' ||
                             text.back() == L'\n'))
        text.remove_suffix(1);
    return std::wstring(text);
}

}  // namespace ztmsilog
