#include "fakes/FakeFileSystem.h"

#include <algorithm>
#include <cstring>
#include <cwctype>

namespace fakes {

namespace {
bool wildcardMatch(const wchar_t* pattern, const wchar_t* text)
{
    if (*pattern == L'\0')
        return *text == L'\0';
    if (*pattern == L'*')
        return wildcardMatch(pattern + 1, text) || (*text && wildcardMatch(pattern, text + 1));
    if (*text && (*pattern == L'?' || std::towlower(*pattern) == std::towlower(*text)))
        return wildcardMatch(pattern + 1, text + 1);
    return false;
}
}  // namespace

FakeFileSystem::FakeFileSystem() = default;

std::wstring FakeFileSystem::keyOf(const std::wstring& path)
{
    std::wstring key = path;
    std::replace(key.begin(), key.end(), L'/', L'\\');
    // Windows takes "a\\b" as "a\b"; only a leading pair (UNC) means something.
    for (size_t i = 2; i < key.size();) {
        if (key[i] == L'\\' && key[i - 1] == L'\\')
            key.erase(i, 1);
        else
            ++i;
    }
    while (key.size() > 3 && key.back() == L'\\')
        key.pop_back();
    if (key.size() == 3 && key[1] == L':' && key[2] == L'\\')
        key.pop_back();
    for (wchar_t& c : key)
        c = static_cast<wchar_t>(std::towlower(c));
    return key;
}

std::wstring FakeFileSystem::parentOf(const std::wstring& key)
{
    size_t slash = key.rfind(L'\\');
    return slash == std::wstring::npos ? std::wstring() : key.substr(0, slash);
}

bool FakeFileSystem::parentExists(const std::wstring& key) const
{
    std::wstring parent = parentOf(key);
    if (parent.size() == 2 && parent[1] == L':')
        return true;
    auto it = m_nodes.find(parent);
    return it != m_nodes.end() && it->second.directory;
}

void FakeFileSystem::addDirectory(const std::wstring& path)
{
    std::wstring key = keyOf(path);
    std::wstring parent = parentOf(key);
    if (!parent.empty() && !(parent.size() == 2 && parent[1] == L':') && !m_nodes.count(parent))
        addDirectory(path.substr(0, path.find_last_of(L"\\/")));
    m_nodes[key].directory = true;
    m_names[key] = path;
}

void FakeFileSystem::addFile(const std::wstring& path, const std::vector<unsigned char>& bytes)
{
    std::wstring key = keyOf(path);
    std::wstring parent = parentOf(key);
    if (!parent.empty() && !(parent.size() == 2 && parent[1] == L':') && !m_nodes.count(parent))
        addDirectory(path.substr(0, path.find_last_of(L"\\/")));
    Node node;
    node.bytes = bytes;
    m_nodes[key] = node;
    m_names[key] = path;
}

void FakeFileSystem::addFile(const std::wstring& path, const std::string& bytes)
{
    addFile(path, std::vector<unsigned char>(bytes.begin(), bytes.end()));
}

bool FakeFileSystem::exists(const std::wstring& path) const { return m_nodes.count(keyOf(path)) != 0; }

bool FakeFileSystem::isDirectory(const std::wstring& path) const
{
    auto it = m_nodes.find(keyOf(path));
    return it != m_nodes.end() && it->second.directory;
}

std::vector<unsigned char> FakeFileSystem::bytesOf(const std::wstring& path) const
{
    auto it = m_nodes.find(keyOf(path));
    return it == m_nodes.end() ? std::vector<unsigned char>() : it->second.bytes;
}

HANDLE FakeFileSystem::holdOpen(const std::wstring& path)
{
    HANDLE h = reinterpret_cast<HANDLE>(m_nextHandle++);
    m_handles[h] = Open{keyOf(path), GENERIC_READ, 0, 0};
    return h;
}

void FakeFileSystem::release(HANDLE handle) { m_handles.erase(handle); }

HANDLE FakeFileSystem::CreateFileW(LPCWSTR path, DWORD access, DWORD share, DWORD disposition, DWORD)
{
    ++calls;
    if (!path || !*path) {
        ::SetLastError(ERROR_PATH_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    std::wstring key = keyOf(path);
    for (const auto& [h, open] : m_handles) {
        if (open.key != key)
            continue;
        bool readBlocked = (access & GENERIC_READ) && !(open.share & FILE_SHARE_READ);
        bool writeBlocked = (access & GENERIC_WRITE) && !(open.share & FILE_SHARE_WRITE);
        bool theirsBlocked = ((open.access & GENERIC_READ) && !(share & FILE_SHARE_READ)) ||
                             ((open.access & GENERIC_WRITE) && !(share & FILE_SHARE_WRITE));
        if (readBlocked || writeBlocked || theirsBlocked) {
            ::SetLastError(ERROR_SHARING_VIOLATION);
            return INVALID_HANDLE_VALUE;
        }
    }
    auto it = m_nodes.find(key);
    if (it != m_nodes.end() && it->second.directory) {
        ::SetLastError(ERROR_ACCESS_DENIED);
        return INVALID_HANDLE_VALUE;
    }
    switch (disposition) {
    case OPEN_EXISTING:
        if (it == m_nodes.end()) {
            ::SetLastError(parentExists(key) ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND);
            return INVALID_HANDLE_VALUE;
        }
        break;
    case CREATE_ALWAYS:
    case CREATE_NEW:
    case OPEN_ALWAYS:
        if (!parentExists(key)) {
            ::SetLastError(ERROR_PATH_NOT_FOUND);
            return INVALID_HANDLE_VALUE;
        }
        if (disposition == CREATE_NEW && it != m_nodes.end()) {
            ::SetLastError(ERROR_FILE_EXISTS);
            return INVALID_HANDLE_VALUE;
        }
        if (it == m_nodes.end() || disposition == CREATE_ALWAYS) {
            m_nodes[key] = Node{};
            m_names[key] = path;
        }
        break;
    default:
        ::SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    HANDLE h = reinterpret_cast<HANDLE>(m_nextHandle++);
    m_handles[h] = Open{key, access, share, 0};
    ::SetLastError(0);
    return h;
}

BOOL FakeFileSystem::ReadFile(HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read)
{
    ++calls;
    auto it = m_handles.find(file);
    if (it == m_handles.end() || !(it->second.access & GENERIC_READ)) {
        ::SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    const auto& bytes = m_nodes[it->second.key].bytes;
    size_t available = bytes.size() > it->second.position ? bytes.size() - it->second.position : 0;
    size_t n = std::min<size_t>(available, toRead);
    if (n)
        std::memcpy(buffer, bytes.data() + it->second.position, n);
    it->second.position += n;
    if (read)
        *read = static_cast<DWORD>(n);
    return TRUE;
}

BOOL FakeFileSystem::WriteFile(HANDLE file, LPCVOID buffer, DWORD toWrite, LPDWORD written)
{
    ++calls;
    auto it = m_handles.find(file);
    if (it == m_handles.end() || !(it->second.access & GENERIC_WRITE)) {
        ::SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    auto& bytes = m_nodes[it->second.key].bytes;
    size_t end = it->second.position + toWrite;
    if (bytes.size() < end)
        bytes.resize(end);
    if (toWrite)
        std::memcpy(bytes.data() + it->second.position, buffer, toWrite);
    it->second.position = end;
    if (written)
        *written = toWrite;
    return TRUE;
}

DWORD FakeFileSystem::GetFileSize(HANDLE file, LPDWORD sizeHigh)
{
    ++calls;
    auto it = m_handles.find(file);
    if (it == m_handles.end()) {
        ::SetLastError(ERROR_INVALID_HANDLE);
        return INVALID_FILE_SIZE;
    }
    unsigned long long size = m_nodes[it->second.key].bytes.size();
    if (sizeHigh)
        *sizeHigh = static_cast<DWORD>(size >> 32);
    return static_cast<DWORD>(size);
}

BOOL FakeFileSystem::CloseHandle(HANDLE file)
{
    ++calls;
    if (!m_handles.erase(file)) {
        ::SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    return TRUE;
}

BOOL FakeFileSystem::CopyFileW(LPCWSTR from, LPCWSTR to, BOOL failIfExists)
{
    ++calls;
    auto it = m_nodes.find(keyOf(from));
    if (it == m_nodes.end() || it->second.directory) {
        ::SetLastError(it == m_nodes.end() ? ERROR_FILE_NOT_FOUND : ERROR_ACCESS_DENIED);
        return FALSE;
    }
    std::wstring target = keyOf(to);
    if (!parentExists(target)) {
        ::SetLastError(ERROR_PATH_NOT_FOUND);
        return FALSE;
    }
    if (failIfExists && m_nodes.count(target)) {
        ::SetLastError(ERROR_FILE_EXISTS);
        return FALSE;
    }
    m_nodes[target] = it->second;
    m_names[target] = to;
    return TRUE;
}

BOOL FakeFileSystem::DeleteFileW(LPCWSTR path)
{
    ++calls;
    auto it = m_nodes.find(keyOf(path));
    if (it == m_nodes.end()) {
        ::SetLastError(ERROR_FILE_NOT_FOUND);
        return FALSE;
    }
    if (it->second.directory) {
        ::SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    m_names.erase(it->first);
    m_nodes.erase(it);
    return TRUE;
}

void FakeFileSystem::fillFind(const std::wstring& name, LPWIN32_FIND_DATAW data) const
{
    *data = WIN32_FIND_DATAW{};
    auto it = m_nodes.find(name);
    const std::wstring& shown = m_names.at(name);
    std::wstring leaf = shown.substr(shown.find_last_of(L"\\/") + 1);
    wcsncpy(data->cFileName, leaf.c_str(), MAX_PATH - 1);
    data->dwFileAttributes = it->second.directory ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_NORMAL;
    unsigned long long size = it->second.bytes.size();
    data->nFileSizeLow = static_cast<DWORD>(size);
    data->nFileSizeHigh = static_cast<DWORD>(size >> 32);
}

HANDLE FakeFileSystem::FindFirstFileW(LPCWSTR pattern, LPWIN32_FIND_DATAW data)
{
    ++calls;
    std::wstring key = keyOf(pattern);
    std::wstring folder = parentOf(key);
    std::wstring leafPattern = key.substr(folder.size() + 1);
    Find find;
    for (const auto& [name, node] : m_nodes) {
        if (parentOf(name) != folder)
            continue;
        if (wildcardMatch(leafPattern.c_str(), name.substr(folder.size() + 1).c_str()))
            find.names.push_back(name);
    }
    if (find.names.empty()) {
        ::SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    fillFind(find.names[0], data);
    find.next = 1;
    HANDLE h = reinterpret_cast<HANDLE>(m_nextHandle++);
    m_finds[h] = find;
    return h;
}

BOOL FakeFileSystem::FindNextFileW(HANDLE handle, LPWIN32_FIND_DATAW data)
{
    ++calls;
    auto it = m_finds.find(handle);
    if (it == m_finds.end()) {
        ::SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (it->second.next >= it->second.names.size()) {
        ::SetLastError(ERROR_NO_MORE_FILES);
        return FALSE;
    }
    fillFind(it->second.names[it->second.next++], data);
    return TRUE;
}

BOOL FakeFileSystem::FindClose(HANDLE handle)
{
    ++calls;
    return m_finds.erase(handle) ? TRUE : FALSE;
}

DWORD FakeFileSystem::GetFileAttributesW(LPCWSTR path)
{
    ++calls;
    auto it = m_nodes.find(keyOf(path));
    if (it == m_nodes.end()) {
        ::SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_FILE_ATTRIBUTES;
    }
    return it->second.directory ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_NORMAL;
}

BOOL FakeFileSystem::CreateDirectoryW(LPCWSTR path)
{
    ++calls;
    if (m_createDirectoryError) {
        ::SetLastError(m_createDirectoryError);
        return FALSE;
    }
    std::wstring key = keyOf(path);
    if (m_nodes.count(key)) {
        ::SetLastError(ERROR_ALREADY_EXISTS);
        return FALSE;
    }
    if (!parentExists(key)) {
        ::SetLastError(ERROR_PATH_NOT_FOUND);
        return FALSE;
    }
    m_nodes[key].directory = true;
    m_names[key] = path;
    return TRUE;
}

DWORD FakeFileSystem::GetTempPathW(DWORD size, LPWSTR buffer)
{
    ++calls;
    if (tempPathResult)
        return tempPathResult;
    if (tempPath.size() + 1 > size)
        return static_cast<DWORD>(tempPath.size() + 1);
    wcscpy(buffer, tempPath.c_str());
    return static_cast<DWORD>(tempPath.size());
}

BOOL FakeFileSystem::GetDiskFreeSpaceExW(LPCWSTR directory, PULARGE_INTEGER freeToCaller, PULARGE_INTEGER total,
                                         PULARGE_INTEGER totalFree)
{
    ++calls;
    diskSpaceAskedFor = directory ? directory : L"(null)";
    if (!diskSpaceResult) {
        ::SetLastError(ERROR_PATH_NOT_FOUND);
        return FALSE;
    }
    if (freeToCaller)
        freeToCaller->QuadPart = freeToCallerBytes == ~0ull ? freeBytes : freeToCallerBytes;
    if (total)
        total->QuadPart = totalBytes ? totalBytes : freeBytes * 2;
    if (totalFree)
        totalFree->QuadPart = freeBytes;
    return TRUE;
}

DWORD FakeFileSystem::GetCurrentDirectoryW(DWORD size, LPWSTR buffer)
{
    ++calls;
    if (currentDirectoryError) {
        ::SetLastError(currentDirectoryError);
        return 0;
    }
    if (currentDirectory.size() + 1 > size)
        return static_cast<DWORD>(currentDirectory.size() + 1);
    wcscpy(buffer, currentDirectory.c_str());
    return static_cast<DWORD>(currentDirectory.size());
}

BOOL FakeFileSystem::PathFileExistsW(LPCWSTR path)
{
    ++calls;
    return m_nodes.count(keyOf(path)) ? TRUE : FALSE;
}

// A version block of the fake's own making: a mark, then the fixed part,
// which is all the tool asks of it.
namespace {
constexpr DWORD kVersionBlockMark = 0x5A545649;
struct VersionBlock {
    DWORD mark;
    VS_FIXEDFILEINFO fixed;
};
}  // namespace

void FakeFileSystem::setFileVersion(const std::wstring& path, WORD major, WORD minor, WORD patch, WORD build)
{
    VS_FIXEDFILEINFO info{};
    info.dwSignature = 0xFEEF04BD;
    info.dwStrucVersion = 0x00010000;
    info.dwFileVersionMS = MAKELONG(minor, major);
    info.dwFileVersionLS = MAKELONG(build, patch);
    info.dwProductVersionMS = info.dwFileVersionMS;
    info.dwProductVersionLS = info.dwFileVersionLS;
    m_versions[keyOf(path)] = info;
}

DWORD FakeFileSystem::GetFileVersionInfoSizeW(LPCWSTR path, LPDWORD handle)
{
    ++calls;
    if (handle)
        *handle = 0;
    std::wstring key = keyOf(path ? path : L"");
    auto node = m_nodes.find(key);
    if (node == m_nodes.end() || node->second.directory) {
        ::SetLastError(ERROR_FILE_NOT_FOUND);
        return 0;
    }
    if (!m_versions.count(key)) {
        ::SetLastError(ERROR_RESOURCE_TYPE_NOT_FOUND);
        return 0;
    }
    return sizeof(VersionBlock);
}

BOOL FakeFileSystem::GetFileVersionInfoW(LPCWSTR path, DWORD, DWORD size, LPVOID data)
{
    ++calls;
    auto version = m_versions.find(keyOf(path ? path : L""));
    if (version == m_versions.end()) {
        ::SetLastError(ERROR_RESOURCE_TYPE_NOT_FOUND);
        return FALSE;
    }
    if (size < sizeof(VersionBlock)) {
        ::SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    VersionBlock block{kVersionBlockMark, version->second};
    std::memcpy(data, &block, sizeof block);
    return TRUE;
}

BOOL FakeFileSystem::VerQueryValueA(LPCVOID block, LPCSTR subBlock, LPVOID* buffer, PUINT length)
{
    ++calls;
    auto* versionBlock = static_cast<const VersionBlock*>(block);
    if (!versionBlock || versionBlock->mark != kVersionBlockMark || !subBlock || std::strcmp(subBlock, "\\") != 0)
        return FALSE;
    *buffer = const_cast<VS_FIXEDFILEINFO*>(&versionBlock->fixed);
    *length = sizeof(VS_FIXEDFILEINFO);
    return TRUE;
}

}  // namespace fakes
