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
    // A closing ".*" matches no extension at all as well: "*.*" is everything.
    if (*text == L'\0' && pattern[0] == L'.' && pattern[1] == L'*' && pattern[2] == L'\0')
        return true;
    if (*pattern == L'*')
        return wildcardMatch(pattern + 1, text) || (*text && wildcardMatch(pattern, text + 1));
    if (*text && (*pattern == L'?' || std::towlower(*pattern) == std::towlower(*text)))
        return wildcardMatch(pattern + 1, text + 1);
    return false;
}

// What an access mask does to the file's data, as sharing sees it.
bool readsData(DWORD access) { return (access & (GENERIC_READ | GENERIC_ALL | FILE_READ_DATA)) != 0; }
bool writesData(DWORD access)
{
    return (access & (GENERIC_WRITE | GENERIC_ALL | FILE_WRITE_DATA | FILE_APPEND_DATA)) != 0;
}
bool deletes(DWORD access) { return (access & (DELETE | GENERIC_ALL)) != 0; }
bool usesData(DWORD access) { return readsData(access) || writesData(access) || deletes(access); }

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
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

bool FakeFileSystem::isDriveRoot(const std::wstring& key) { return key.size() == 2 && key[1] == L':'; }

bool FakeFileSystem::parentExists(const std::wstring& key) const
{
    std::wstring parent = parentOf(key);
    if (isDriveRoot(parent))
        return true;
    auto it = m_nodes.find(parent);
    return it != m_nodes.end() && it->second.directory;
}

DWORD FakeFileSystem::missingError(const std::wstring& key) const
{
    return parentExists(key) ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND;
}

DWORD FakeFileSystem::sharingError(const std::wstring& key, DWORD access, DWORD share) const
{
    // An open that neither reads, writes nor deletes is let in past any
    // sharing, and holds nobody else out.
    if (!usesData(access))
        return 0;
    for (const auto& [h, open] : m_handles) {
        if (open.key != key || !usesData(open.access))
            continue;
        const bool refusedByThem = (readsData(access) && !(open.share & FILE_SHARE_READ)) ||
                                   (writesData(access) && !(open.share & FILE_SHARE_WRITE)) ||
                                   (deletes(access) && !(open.share & FILE_SHARE_DELETE));
        const bool refusingThem = (readsData(open.access) && !(share & FILE_SHARE_READ)) ||
                                  (writesData(open.access) && !(share & FILE_SHARE_WRITE)) ||
                                  (deletes(open.access) && !(share & FILE_SHARE_DELETE));
        if (refusedByThem || refusingThem)
            return ERROR_SHARING_VIOLATION;
    }
    return 0;
}

DWORD FakeFileSystem::attributesOf(const std::wstring& key, DWORD& error) const
{
    if (isDriveRoot(key))
        return FILE_ATTRIBUTE_DIRECTORY;
    auto it = m_nodes.find(key);
    if (it == m_nodes.end()) {
        error = missingError(key);
        return INVALID_FILE_ATTRIBUTES;
    }
    if (it->second.deletePending) {
        error = ERROR_ACCESS_DENIED;
        return INVALID_FILE_ATTRIBUTES;
    }
    // The file system marks every new or changed file for archiving.
    return it->second.directory ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_ARCHIVE;
}

void FakeFileSystem::dropHandle(std::map<HANDLE, Open>::iterator it)
{
    const std::wstring key = it->second.key;
    m_handles.erase(it);
    auto node = m_nodes.find(key);
    if (node == m_nodes.end() || !node->second.deletePending)
        return;
    for (const auto& [h, open] : m_handles)
        if (open.key == key)
            return;
    m_nodes.erase(node);
    m_names.erase(key);
    m_versions.erase(key);
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

void FakeFileSystem::release(HANDLE handle)
{
    auto it = m_handles.find(handle);
    if (it != m_handles.end())
        dropHandle(it);
}

HANDLE FakeFileSystem::CreateFileW(LPCWSTR path, DWORD access, DWORD share, DWORD disposition, DWORD)
{
    ++calls;
    if (!path || !*path) {
        ::SetLastError(ERROR_PATH_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    if (disposition < CREATE_NEW || disposition > TRUNCATE_EXISTING) {
        ::SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    const std::wstring key = keyOf(path);
    auto it = m_nodes.find(key);
    DWORD error = 0;
    if (isDriveRoot(key) || (it != m_nodes.end() && it->second.directory))
        error = ERROR_ACCESS_DENIED;
    else if (it == m_nodes.end() && !parentExists(key))
        error = ERROR_PATH_NOT_FOUND;
    else if (it == m_nodes.end() && (disposition == OPEN_EXISTING || disposition == TRUNCATE_EXISTING))
        error = ERROR_FILE_NOT_FOUND;
    else if (it != m_nodes.end() && it->second.deletePending)
        error = ERROR_ACCESS_DENIED;
    else if (it != m_nodes.end() && disposition == CREATE_NEW)
        error = ERROR_FILE_EXISTS;
    else if (it != m_nodes.end())
        error = sharingError(key, access, share);
    if (error) {
        ::SetLastError(error);
        return INVALID_HANDLE_VALUE;
    }
    const bool existed = it != m_nodes.end();
    if (!existed) {
        m_nodes[key] = Node{};
        m_names[key] = path;
    } else if (disposition == CREATE_ALWAYS || disposition == TRUNCATE_EXISTING) {
        it->second.bytes.clear();
    }
    HANDLE h = reinterpret_cast<HANDLE>(m_nextHandle++);
    m_handles[h] = Open{key, access, share, 0};
    // Success still says whether an existing file was opened or replaced.
    ::SetLastError(existed && (disposition == OPEN_ALWAYS || disposition == CREATE_ALWAYS) ? ERROR_ALREADY_EXISTS : 0);
    return h;
}

BOOL FakeFileSystem::ReadFile(HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read)
{
    ++calls;
    auto it = m_handles.find(file);
    if (it == m_handles.end()) {
        ::SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (!readsData(it->second.access)) {
        ::SetLastError(ERROR_ACCESS_DENIED);
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
    if (it == m_handles.end()) {
        ::SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (!writesData(it->second.access)) {
        ::SetLastError(ERROR_ACCESS_DENIED);
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
    auto it = m_handles.find(file);
    if (it == m_handles.end()) {
        ::SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    dropHandle(it);
    return TRUE;
}

BOOL FakeFileSystem::CopyFileW(LPCWSTR from, LPCWSTR to, BOOL failIfExists)
{
    ++calls;
    if (!from || !to) {
        ::SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const std::wstring source = keyOf(from);
    const std::wstring target = keyOf(to);
    auto it = m_nodes.find(source);
    auto dest = m_nodes.find(target);
    // The source is opened for reading, sharing everything; then the
    // destination for writing, sharing reading and writing.
    const auto sourceError = [&]() -> DWORD {
        if (it == m_nodes.end() && !isDriveRoot(source))
            return missingError(source);
        if (isDriveRoot(source) || it->second.directory || it->second.deletePending)
            return ERROR_ACCESS_DENIED;
        return sharingError(source, GENERIC_READ, kShareAll);
    };
    const auto destinationError = [&]() -> DWORD {
        if (!failIfExists && source == target)
            return ERROR_SHARING_VIOLATION;
        if (isDriveRoot(target) || (dest != m_nodes.end() && (dest->second.directory || dest->second.deletePending)))
            return ERROR_ACCESS_DENIED;
        if (dest == m_nodes.end())
            return parentExists(target) ? 0 : ERROR_PATH_NOT_FOUND;
        if (failIfExists)
            return ERROR_FILE_EXISTS;
        return sharingError(target, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE);
    };
    DWORD error = sourceError();
    if (!error)
        error = destinationError();
    if (error) {
        ::SetLastError(error);
        return FALSE;
    }
    const Node copy = it->second;
    m_nodes[target] = copy;
    if (dest == m_nodes.end() || !m_names.count(target))
        m_names[target] = to;
    // The version resource is part of the file.
    auto version = m_versions.find(source);
    if (version != m_versions.end())
        m_versions[target] = version->second;
    else
        m_versions.erase(target);
    return TRUE;
}

BOOL FakeFileSystem::DeleteFileW(LPCWSTR path)
{
    ++calls;
    const std::wstring key = keyOf(path ? path : L"");
    auto it = m_nodes.find(key);
    DWORD error = 0;
    if (it == m_nodes.end() && !isDriveRoot(key))
        error = missingError(key);
    else if (isDriveRoot(key) || it->second.directory || it->second.deletePending)
        error = ERROR_ACCESS_DENIED;
    else
        error = sharingError(key, DELETE, kShareAll);
    if (error) {
        ::SetLastError(error);
        return FALSE;
    }
    for (const auto& [h, open] : m_handles) {
        if (open.key == key) {
            // Every handle on it shares deleting: it goes with the last one.
            it->second.deletePending = true;
            return TRUE;
        }
    }
    m_names.erase(key);
    m_versions.erase(key);
    m_nodes.erase(it);
    return TRUE;
}

void FakeFileSystem::fillFind(const Entry& entry, LPWIN32_FIND_DATAW data)
{
    *data = WIN32_FIND_DATAW{};
    wcsncpy(data->cFileName, entry.name.c_str(), MAX_PATH - 1);
    data->dwFileAttributes = entry.directory ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_ARCHIVE;
    data->nFileSizeLow = static_cast<DWORD>(entry.size);
    data->nFileSizeHigh = static_cast<DWORD>(entry.size >> 32);
}

HANDLE FakeFileSystem::FindFirstFileW(LPCWSTR pattern, LPWIN32_FIND_DATAW data)
{
    ++calls;
    const std::wstring raw = pattern ? pattern : L"";
    if (raw.empty()) {
        ::SetLastError(ERROR_PATH_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    // A folder's name with nothing after it to look for.
    if (raw.back() == L'\\' || raw.back() == L'/') {
        ::SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    const std::wstring key = keyOf(raw);
    const size_t slash = key.rfind(L'\\');
    const std::wstring folder = slash == std::wstring::npos ? std::wstring() : key.substr(0, slash);
    const std::wstring leafPattern = key.substr(slash == std::wstring::npos ? 0 : slash + 1);
    auto folderNode = m_nodes.find(folder);
    if (!isDriveRoot(folder) && (folderNode == m_nodes.end() || !folderNode->second.directory)) {
        ::SetLastError(ERROR_PATH_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    Find find;
    // A folder other than a drive's root lists itself and its parent first.
    if (!isDriveRoot(folder)) {
        for (const wchar_t* dots : {L".", L".."})
            if (wildcardMatch(leafPattern.c_str(), dots))
                find.entries.push_back(Entry{dots, true, 0});
    }
    for (const auto& [name, node] : m_nodes) {
        if (parentOf(name) != folder)
            continue;
        if (!wildcardMatch(leafPattern.c_str(), name.substr(folder.size() + 1).c_str()))
            continue;
        const std::wstring& shown = m_names.at(name);
        find.entries.push_back(
            Entry{shown.substr(shown.find_last_of(L"\\/") + 1), node.directory, node.bytes.size()});
    }
    if (find.entries.empty()) {
        ::SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    fillFind(find.entries[0], data);
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
    if (it->second.next >= it->second.entries.size()) {
        ::SetLastError(ERROR_NO_MORE_FILES);
        return FALSE;
    }
    fillFind(it->second.entries[it->second.next++], data);
    return TRUE;
}

BOOL FakeFileSystem::FindClose(HANDLE handle)
{
    ++calls;
    if (!m_finds.erase(handle)) {
        ::SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    return TRUE;
}

DWORD FakeFileSystem::GetFileAttributesW(LPCWSTR path)
{
    ++calls;
    DWORD error = 0;
    const DWORD attributes = attributesOf(keyOf(path ? path : L""), error);
    if (attributes == INVALID_FILE_ATTRIBUTES)
        ::SetLastError(error);
    return attributes;
}

BOOL FakeFileSystem::CreateDirectoryW(LPCWSTR path)
{
    ++calls;
    if (m_createDirectoryError) {
        ::SetLastError(m_createDirectoryError);
        return FALSE;
    }
    std::wstring key = keyOf(path);
    if (isDriveRoot(key) || m_nodes.count(key)) {
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
    // No folder given is the current drive, which is always there.
    if (directory) {
        DWORD error = 0;
        const DWORD attributes = attributesOf(keyOf(directory), error);
        if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_DIRECTORY)) {
            ::SetLastError(attributes == INVALID_FILE_ATTRIBUTES ? error : ERROR_DIRECTORY);
            return FALSE;
        }
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
    DWORD error = 0;
    return attributesOf(keyOf(path ? path : L""), error) != INVALID_FILE_ATTRIBUTES ? TRUE : FALSE;
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
    if (node == m_nodes.end()) {
        ::SetLastError(missingError(key));
        return 0;
    }
    // A folder can't be opened as a file to look inside.
    if (node->second.directory) {
        ::SetLastError(ERROR_ACCESS_DENIED);
        return 0;
    }
    if (!m_versions.count(key)) {
        ::SetLastError(ERROR_RESOURCE_DATA_NOT_FOUND);
        return 0;
    }
    ::SetLastError(0);
    return sizeof(VersionBlock);
}

BOOL FakeFileSystem::GetFileVersionInfoW(LPCWSTR path, DWORD, DWORD size, LPVOID data)
{
    ++calls;
    auto version = m_versions.find(keyOf(path ? path : L""));
    if (version == m_versions.end()) {
        ::SetLastError(ERROR_RESOURCE_DATA_NOT_FOUND);
        return FALSE;
    }
    // Too small a buffer gets as much of the block as fits.
    VersionBlock block{kVersionBlockMark, version->second};
    std::memcpy(data, &block, std::min<size_t>(size, sizeof block));
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
