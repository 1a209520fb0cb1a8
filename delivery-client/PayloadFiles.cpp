#include "PayloadFiles.h"

#include <vector>

#include "TextUtil.h"

namespace mirel {

const wchar_t* const kPartialSuffix = L".partial";
const wchar_t* const kRecordSuffix = L".partial.info";

namespace {

std::string errorText(const char* what, DWORD error)
{
    return std::string(what) + " (error " + std::to_string(error) + ")";
}

std::wstring joined(const std::wstring& folder, const std::wstring& name)
{
    if (folder.empty())
        return name;
    const wchar_t last = folder.back();
    return (last == L'\\' || last == L'/') ? folder + name : folder + L"\\" + name;
}

}  // namespace

std::wstring longPath(const std::wstring& path)
{
    if (path.size() >= 3 && path[1] == L':' && (path[2] == L'\\' || path[2] == L'/')) {
        std::wstring full(32768, L'\0');
        const DWORD n = ::GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
        if (n == 0 || n >= full.size())
            return path;
        full.resize(n);
        return L"\\\\?\\" + full;
    }
    if (path.size() >= 3 && path[0] == L'\\' && path[1] == L'\\' && path[2] != L'?' && path[2] != L'.') {
        std::wstring full(32768, L'\0');
        const DWORD n = ::GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
        if (n == 0 || n >= full.size())
            return path;
        full.resize(n);
        return L"\\\\?\\UNC\\" + full.substr(2);
    }
    return path;
}

bool makeFolders(const std::wstring& folder, std::string& why)
{
    const std::wstring path = longPath(folder);
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES) {
        if (attributes & FILE_ATTRIBUTE_DIRECTORY)
            return true;
        why = "the workspace " + forLog(folder) + " is a file, not a folder";
        return false;
    }
    std::wstring parent = folder;
    while (!parent.empty() && (parent.back() == L'\\' || parent.back() == L'/'))
        parent.pop_back();
    const std::size_t slash = parent.find_last_of(L"\\/");
    if (slash != std::wstring::npos && slash > 2) {
        if (!makeFolders(parent.substr(0, slash), why))
            return false;
    }
    if (!::CreateDirectoryW(path.c_str(), nullptr) && ::GetLastError() != ERROR_ALREADY_EXISTS) {
        why = errorText(("the folder " + forLog(folder) + " can't be made").c_str(), ::GetLastError());
        return false;
    }
    return true;
}

PayloadFiles::PayloadFiles(const std::wstring& folder, const std::wstring& name)
    : m_plainFinal(joined(folder, name)),
      m_final(longPath(m_plainFinal)),
      m_partial(m_final + kPartialSuffix),
      m_record(m_final + kRecordSuffix)
{
}

PayloadFiles::~PayloadFiles()
{
    std::string ignored;
    close(ignored);
}

bool PayloadFiles::partialExists(std::uint64_t& size) const
{
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!::GetFileAttributesExW(m_partial.c_str(), GetFileExInfoStandard, &data) ||
        (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY))
        return false;
    size = (static_cast<std::uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
    return true;
}

bool PayloadFiles::readRecord(PartialRecord& record, std::string& why) const
{
    HANDLE file = ::CreateFileW(m_record.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        why = ::GetLastError() == ERROR_FILE_NOT_FOUND ? "there is none"
                                                       : errorText("it can't be opened", ::GetLastError());
        return false;
    }
    std::string text(16 * 1024, '\0');
    DWORD read = 0;
    const BOOL ok = ::ReadFile(file, text.data(), static_cast<DWORD>(text.size()), &read, nullptr);
    ::CloseHandle(file);
    if (!ok || read == text.size()) {
        why = ok ? "it is too large" : "it can't be read";
        return false;
    }
    text.resize(read);
    return parseRecord(text, record, why);
}

bool PayloadFiles::writeRecord(const PartialRecord& record, std::string& why) const
{
    std::string text;
    if (!serializeRecord(record, text)) {
        why = "a value holds a line break";
        return false;
    }
    HANDLE file =
        ::CreateFileW(m_record.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        why = errorText("it can't be written", ::GetLastError());
        return false;
    }
    DWORD done = 0;
    const BOOL ok = ::WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &done, nullptr);
    const DWORD error = ::GetLastError();
    ::CloseHandle(file);
    if (!ok || done != text.size()) {
        why = errorText("it can't be written", error);
        return false;
    }
    return true;
}

bool PayloadFiles::startOver(std::string& why)
{
    close(why);
    ::DeleteFileW(m_record.c_str());
    // Others may read the partial file (to watch it grow), never write it.
    m_file = ::CreateFileW(m_partial.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
    if (m_file == INVALID_HANDLE_VALUE) {
        why = errorText("the partial file can't be made", ::GetLastError());
        return false;
    }
    m_written = 0;
    return true;
}

bool PayloadFiles::continueAt(std::uint64_t offset, Sha256& hash, std::string& why)
{
    close(why);
    m_file = ::CreateFileW(m_partial.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                           FILE_ATTRIBUTE_NORMAL | FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
    if (m_file == INVALID_HANDLE_VALUE) {
        why = errorText("the partial file can't be opened", ::GetLastError());
        return false;
    }
    std::vector<std::uint8_t> buffer(1024 * 1024);
    std::uint64_t left = offset;
    while (left > 0) {
        const DWORD want = left > buffer.size() ? static_cast<DWORD>(buffer.size()) : static_cast<DWORD>(left);
        DWORD got = 0;
        if (!::ReadFile(m_file, buffer.data(), want, &got, nullptr) || got == 0) {
            why = errorText("the partial file can't be read back", ::GetLastError());
            close(why);
            return false;
        }
        hash.update(buffer.data(), got);
        left -= got;
    }
    LARGE_INTEGER at{};
    at.QuadPart = static_cast<LONGLONG>(offset);
    if (!::SetFilePointerEx(m_file, at, nullptr, FILE_BEGIN) || !::SetEndOfFile(m_file)) {
        why = errorText("the partial file can't be positioned", ::GetLastError());
        std::string ignored;
        close(ignored);
        return false;
    }
    m_written = offset;
    return true;
}

bool PayloadFiles::write(const void* data, std::uint32_t size, std::string& why)
{
    DWORD done = 0;
    if (!::WriteFile(m_file, data, size, &done, nullptr) || done != size) {
        why = errorText("the partial file can't be written", ::GetLastError());
        return false;
    }
    m_written += size;
    return true;
}

bool PayloadFiles::close(std::string& why)
{
    if (m_file == INVALID_HANDLE_VALUE)
        return true;
    bool ok = true;
    if (!::FlushFileBuffers(m_file)) {
        why = errorText("the partial file can't be flushed", ::GetLastError());
        ok = false;
    }
    ::CloseHandle(m_file);
    m_file = INVALID_HANDLE_VALUE;
    return ok;
}

bool PayloadFiles::publish(std::string& why)
{
    if (!close(why))
        return false;
    if (!::MoveFileExW(m_partial.c_str(), m_final.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        why = errorText("the file can't be put in place", ::GetLastError());
        return false;
    }
    ::DeleteFileW(m_record.c_str());
    return true;
}

void PayloadFiles::discard()
{
    std::string ignored;
    close(ignored);
    ::DeleteFileW(m_partial.c_str());
    ::DeleteFileW(m_record.c_str());
}

}  // namespace mirel
