#include "TarUnpack.h"

#include <windows.h>

#include <archive.h>
#include <archive_entry.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <map>
#include <set>
#include <string_view>
#include <vector>

namespace mirel {

namespace {

// --- Texts for `why` ---------------------------------------------------------

std::string utf8(const wchar_t* text, std::size_t length)
{
    if (length == 0)
        return {};
    const int size = static_cast<int>(std::min<std::size_t>(length, 0x7fffffff));
    const int n = ::WideCharToMultiByte(CP_UTF8, 0, text, size, nullptr, 0, nullptr, nullptr);
    if (n <= 0)
        return "?";
    std::string out(static_cast<std::size_t>(n), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, text, size, out.data(), n, nullptr, nullptr);
    return out;
}

std::string utf8(const std::wstring& text) { return utf8(text.data(), text.size()); }

// A name as it appears in the log: quoted, control characters as \xNN, and
// cut short, whatever the archive holds.
std::string quoted(const std::string& text)
{
    static const char digits[] = "0123456789ABCDEF";
    std::size_t end = std::min<std::size_t>(text.size(), 300);
    while (end > 0 && end < text.size() && (static_cast<unsigned char>(text[end]) & 0xc0) == 0x80)
        --end;  // not inside a character
    std::string out = "'";
    for (std::size_t i = 0; i < end; ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c < 0x20 || c == 0x7f) {
            out += "\\x";
            out += digits[c >> 4];
            out += digits[c & 15];
        } else {
            out += static_cast<char>(c);
        }
    }
    if (end < text.size())
        out += "...";
    return out + "'";
}

std::string quoted(const std::wstring& text) { return quoted(utf8(text)); }

std::string withError(const std::string& text, DWORD error) { return text + " (error " + std::to_string(error) + ")"; }

// --- Paths -------------------------------------------------------------------

// The full path in the "\\?\" form: names past MAX_PATH work, and Windows
// takes the checked names as they are instead of trimming or reinterpreting.
bool longFullPath(const std::wstring& path, std::wstring& full)
{
    const DWORD needed = ::GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
    if (needed == 0)
        return false;
    std::wstring buffer(needed, L'\0');
    const DWORD n = ::GetFullPathNameW(path.c_str(), needed, buffer.data(), nullptr);
    if (n == 0 || n >= needed)
        return false;
    buffer.resize(n);
    if (buffer.compare(0, 4, L"\\\\?\\") == 0 || buffer.compare(0, 4, L"\\\\.\\") == 0)
        full = buffer;
    else if (buffer.compare(0, 2, L"\\\\") == 0)
        full = L"\\\\?\\UNC\\" + buffer.substr(2);
    else
        full = L"\\\\?\\" + buffer;
    return true;
}

// `root` joined with the first `count` parts.
std::wstring joined(const std::wstring& root, const std::vector<std::wstring>& parts, std::size_t count)
{
    std::wstring path = root;
    for (std::size_t i = 0; i < count; ++i) {
        if (!path.empty() && path.back() != L'\\')
            path += L'\\';
        path += parts[i];
    }
    return path;
}

// The first `count` parts as the archive writes them.
std::string archiveName(const std::vector<std::wstring>& parts, std::size_t count)
{
    std::wstring name;
    for (std::size_t i = 0; i < count; ++i)
        name += (i ? L"/" : L"") + parts[i];
    return quoted(name);
}

// Windows compares names without case; so do the checks of what the archive
// holds twice.
std::wstring folded(std::wstring text)
{
    if (!text.empty())
        ::CharUpperBuffW(text.data(), static_cast<DWORD>(text.size()));
    return text;
}

bool absent(DWORD error) { return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND; }

// --- Names and kinds -----------------------------------------------------------

bool isDeviceName(const std::wstring& part)
{
    // Windows opens the device for "nul", "NUL.txt" and "nul .txt" alike.
    std::wstring base = part.substr(0, part.find(L'.'));
    while (!base.empty() && base.back() == L' ')
        base.pop_back();
    for (wchar_t& c : base)
        if (c >= L'a' && c <= L'z')
            c = static_cast<wchar_t>(c - L'a' + L'A');
    for (const wchar_t* name : {L"CON", L"PRN", L"AUX", L"NUL", L"CONIN$", L"CONOUT$"})
        if (base == name)
            return true;
    if (base.size() == 4 && (base.compare(0, 3, L"COM") == 0 || base.compare(0, 3, L"LPT") == 0)) {
        const wchar_t digit = base[3];
        return (digit >= L'0' && digit <= L'9') || digit == L'\u00b9' || digit == L'\u00b2' || digit == L'\u00b3';
    }
    return false;
}

// Why `name` can't be a path below the destination, or empty when it can;
// `parts` are its parts without "." and empty ones.
std::string nameProblem(const std::wstring& name, std::vector<std::wstring>& parts)
{
    parts.clear();
    if (name.empty())
        return "it has no name";
    if (name.size() >= 2 && (name[0] == L'/' || name[0] == L'\\') && (name[1] == L'/' || name[1] == L'\\'))
        return "it is a UNC name";
    if (name[0] == L'/' || name[0] == L'\\')
        return "it is an absolute name";
    if (name.size() >= 2 && name[1] == L':' && ((name[0] >= L'A' && name[0] <= L'Z') || (name[0] >= L'a' && name[0] <= L'z')))
        return "it names a drive";
    if (name.find(L'\\') != std::wstring::npos)
        return "it holds a backslash, which Windows would take for a folder separator";
    std::size_t start = 0;
    while (start <= name.size()) {
        std::size_t end = name.find(L'/', start);
        if (end == std::wstring::npos)
            end = name.size();
        const std::wstring part = name.substr(start, end - start);
        start = end + 1;
        if (part.empty() || part == L".")
            continue;
        if (part == L"..")
            return "it holds a '..' part";
        for (const wchar_t c : part) {
            if (c < 0x20) {
                char code[8];
                code[0] = '\\';
                code[1] = 'x';
                code[2] = "0123456789ABCDEF"[c >> 4];
                code[3] = "0123456789ABCDEF"[c & 15];
                code[4] = '\0';
                return std::string("it holds the control character ") + code + ", which Windows refuses in names";
            }
            if (std::wstring_view(L"<>:\"|?*").find(c) != std::wstring_view::npos)
                return std::string("it holds the character '") + static_cast<char>(c) + "', which Windows refuses in names";
        }
        if (part.back() == L'.' || part.back() == L' ')
            return "a part of it ends in a dot or a space, which Windows would drop";
        if (isDeviceName(part))
            return "a part of it, " + quoted(part) + ", is a device name on Windows";
        if (part.size() > 255)
            return "a part of it is longer than the 255 characters Windows allows";
        parts.push_back(part);
    }
    return {};
}

// Why the entry's kind is not unpacked, or empty for files and folders.
std::string kindProblem(archive_entry* entry, bool& folder)
{
    folder = false;
    const wchar_t* hardlink = archive_entry_hardlink_w(entry);
    if (hardlink != nullptr || archive_entry_hardlink(entry) != nullptr)
        return "it is a hard link" + (hardlink ? " to " + quoted(hardlink) : std::string()) + ", and no link is unpacked";
    switch (archive_entry_filetype(entry)) {
    case AE_IFREG:
        return {};
    case AE_IFDIR:
        folder = true;
        return {};
    case AE_IFLNK: {
        const wchar_t* target = archive_entry_symlink_w(entry);
        return "it is a symbolic link" + (target ? " to " + quoted(target) : std::string()) + ", and no link is unpacked";
    }
    case AE_IFCHR:
        return "it is a character device";
    case AE_IFBLK:
        return "it is a block device";
    case AE_IFIFO:
        return "it is a FIFO";
    case AE_IFSOCK:
        return "it is a socket";
    default:
        return "it is of an unknown kind";
    }
}

// --- Reading the archive ---------------------------------------------------------

class FileHandle {
public:
    explicit FileHandle(HANDLE handle = INVALID_HANDLE_VALUE) : m_handle(handle) {}
    ~FileHandle() { close(); }
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;
    HANDLE get() const { return m_handle; }
    bool valid() const { return m_handle != INVALID_HANDLE_VALUE; }
    bool close()
    {
        if (!valid())
            return true;
        const BOOL closed = ::CloseHandle(m_handle);
        m_handle = INVALID_HANDLE_VALUE;
        return closed != FALSE;
    }

private:
    HANDLE m_handle;
};

// The archive file as libarchive reads it: one handle for both passes, so
// both see the same bytes.
struct Source {
    HANDLE file = INVALID_HANDLE_VALUE;
    std::uint64_t size = 0;
    std::uint64_t position = 0;
    std::vector<char> buffer = std::vector<char>(64 * 1024);
};

la_ssize_t readSource(archive* a, void* data, const void** block)
{
    Source& source = *static_cast<Source*>(data);
    DWORD got = 0;
    if (!::ReadFile(source.file, source.buffer.data(), static_cast<DWORD>(source.buffer.size()), &got, nullptr)) {
        archive_set_error(a, EIO, "%s", withError("reading the archive failed", ::GetLastError()).c_str());
        return -1;
    }
    source.position += got;
    *block = source.buffer.data();
    return static_cast<la_ssize_t>(got);
}

// Never past the end: libarchive then reads the rest and finds the archive
// truncated, where a seek beyond the end would hide it.
la_int64_t skipSource(archive*, void* data, la_int64_t request)
{
    Source& source = *static_cast<Source*>(data);
    if (request <= 0 || source.position >= source.size)
        return 0;
    const std::uint64_t step = std::min<std::uint64_t>(static_cast<std::uint64_t>(request), source.size - source.position);
    LARGE_INTEGER distance;
    distance.QuadPart = static_cast<LONGLONG>(step);
    if (!::SetFilePointerEx(source.file, distance, nullptr, FILE_CURRENT))
        return 0;
    source.position += step;
    return static_cast<la_int64_t>(step);
}

class TarReader {
public:
    TarReader() : m_archive(archive_read_new()) {}
    ~TarReader()
    {
        if (m_archive != nullptr)
            archive_read_free(m_archive);
    }
    TarReader(const TarReader&) = delete;
    TarReader& operator=(const TarReader&) = delete;

    archive* get() const { return m_archive; }

    // Reads `source` from its start.
    bool open(Source& source, std::string& problem)
    {
        if (m_archive == nullptr) {
            problem = "libarchive could not start";
            return false;
        }
        LARGE_INTEGER start;
        start.QuadPart = 0;
        if (!::SetFilePointerEx(source.file, start, nullptr, FILE_BEGIN)) {
            problem = withError("the archive could not be read from its start", ::GetLastError());
            return false;
        }
        source.position = 0;
        // Names in plain headers are UTF-8 too, not the machine's code page.
        if (archive_read_support_format_tar(m_archive) != ARCHIVE_OK ||
            archive_read_set_format_option(m_archive, "tar", "hdrcharset", "UTF-8") != ARCHIVE_OK ||
            archive_read_open2(m_archive, &source, nullptr, readSource, skipSource, nullptr) != ARCHIVE_OK) {
            problem = message();
            return false;
        }
        return true;
    }

    std::string message() const
    {
        const char* text = m_archive ? archive_error_string(m_archive) : nullptr;
        return text ? text : "libarchive gives no reason";
    }

private:
    archive* m_archive;
};

// --- What the archive asks for -----------------------------------------------

struct Planned {
    bool folder = false;
    std::vector<std::wstring> parts;
    std::string shown;  // the name as the log shows it
};

// Where in the archive, for a `why`: after the first `count` entries.
std::string placeAfter(const std::vector<Planned>& plan, std::size_t count)
{
    return count == 0 ? "at its start" : "after entry " + plan[count - 1].shown;
}

// Takes the header just read into `planned`, or says why it is refused;
// `place` says where the header is, for a name that can't be shown.
TarResult classify(archive_entry* entry, int readResult, const TarReader& reader, const std::string& place, Planned& planned,
                   std::string& why)
{
    const wchar_t* wide = archive_entry_pathname_w(entry);
    if (wide == nullptr) {
        why = "an entry " + place + " is refused: its name is not valid UTF-8";
        return TarResult::UnsafeEntry;
    }
    const std::wstring name = wide;
    planned.shown = quoted(name);
    if (readResult != ARCHIVE_OK) {
        why = "entry " + planned.shown + " can't be read: " + reader.message();
        return TarResult::Unreadable;
    }
    std::string problem = kindProblem(entry, planned.folder);
    if (problem.empty())
        problem = nameProblem(name, planned.parts);
    if (problem.empty() && planned.parts.empty() && !planned.folder)
        problem = "it names the destination folder itself";
    if (!problem.empty()) {
        why = "entry " + planned.shown + " is refused: " + problem;
        return TarResult::UnsafeEntry;
    }
    return TarResult::Ok;
}

// The first pass: every header, every name, and the data's length, before
// anything is written.
TarResult checkArchive(Source& source, const std::wstring& root, std::vector<Planned>& plan, std::string& why)
{
    TarReader reader;
    std::string problem;
    if (!reader.open(source, problem)) {
        why = "the archive is not a tar archive or is damaged at its start: " + problem;
        return TarResult::Unreadable;
    }
    std::map<std::wstring, bool> kinds;  // folded path below the destination: a folder?
    for (;;) {
        archive_entry* entry = nullptr;
        const int r = archive_read_next_header(reader.get(), &entry);
        if (r == ARCHIVE_EOF)
            return TarResult::Ok;
        if (r != ARCHIVE_OK && r != ARCHIVE_WARN) {
            why = "the archive is not a tar archive or is damaged " + placeAfter(plan, plan.size()) + ": " + reader.message();
            return TarResult::Unreadable;
        }
        Planned planned;
        const TarResult verdict = classify(entry, r, reader, placeAfter(plan, plan.size()), planned, why);
        if (verdict != TarResult::Ok)
            return verdict;
        if (root.size() + 1 + joined(std::wstring(), planned.parts, planned.parts.size()).size() > 32000) {
            why = "entry " + planned.shown + " is refused: its path in the destination would be longer than Windows allows";
            return TarResult::UnsafeEntry;
        }
        // One name, one kind: tar would replace one with the other, which
        // here could only half happen.
        std::wstring path;
        for (std::size_t i = 0; i < planned.parts.size(); ++i) {
            path += (i ? L"\\" : L"") + folded(planned.parts[i]);
            const bool folder = planned.folder || i + 1 < planned.parts.size();
            const auto known = kinds.find(path);
            if (known != kinds.end() && known->second != folder) {
                why = "entry " + planned.shown + " is refused: the archive holds " + archiveName(planned.parts, i + 1) +
                      " both as a file and as a folder";
                return TarResult::UnsafeEntry;
            }
            kinds[path] = folder;
        }
        if (archive_read_data_skip(reader.get()) != ARCHIVE_OK) {
            why = "the archive is truncated or damaged in entry " + planned.shown + ": " + reader.message();
            return TarResult::Unreadable;
        }
        plan.push_back(std::move(planned));
    }
}

// --- What the destination holds ---------------------------------------------------

bool sameFile(HANDLE handle, const std::wstring& path)
{
    FileHandle other(::CreateFileW(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                   FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    BY_HANDLE_FILE_INFORMATION a;
    BY_HANDLE_FILE_INFORMATION b;
    return other.valid() && ::GetFileInformationByHandle(handle, &a) && ::GetFileInformationByHandle(other.get(), &b) &&
           a.dwVolumeSerialNumber == b.dwVolumeSerialNumber && a.nFileIndexHigh == b.nFileIndexHigh && a.nFileIndexLow == b.nFileIndexLow;
}

// Finds before the first write what would stop the writing: a file where a
// folder goes, a folder where a file goes, a link on the way, the archive
// itself among the files to replace.
TarResult checkDestination(const Source& source, const std::wstring& root, const std::vector<Planned>& plan, std::string& why)
{
    std::set<std::wstring> checked;
    for (const Planned& planned : plan) {
        const std::size_t folders = planned.folder ? planned.parts.size() : planned.parts.size() - 1;
        for (std::size_t i = 1; i <= planned.parts.size(); ++i) {
            const std::wstring path = joined(root, planned.parts, i);
            const bool folder = i <= folders;
            if (folder && !checked.insert(folded(path)).second)
                continue;
            const DWORD attributes = ::GetFileAttributesW(path.c_str());
            if (attributes == INVALID_FILE_ATTRIBUTES) {
                const DWORD error = ::GetLastError();
                if (absent(error))
                    continue;
                why = withError("entry " + planned.shown + " can't be written: " + quoted(path) + " can't be looked at", error);
                return TarResult::WriteFailed;
            }
            if (attributes & FILE_ATTRIBUTE_REPARSE_POINT) {
                why = "entry " + planned.shown + " can't be written: " + quoted(path) +
                      " is a link on disk, and nothing is written through links";
                return TarResult::WriteFailed;
            }
            if (folder && !(attributes & FILE_ATTRIBUTE_DIRECTORY)) {
                why = "entry " + planned.shown + " can't be written: it needs " + quoted(path) + " as a folder, but that is a file";
                return TarResult::WriteFailed;
            }
            if (!folder && (attributes & FILE_ATTRIBUTE_DIRECTORY)) {
                why = "entry " + planned.shown + " can't be written: " + quoted(path) + " is a folder";
                return TarResult::WriteFailed;
            }
            if (!folder && sameFile(source.file, path)) {
                why = "entry " + planned.shown + " can't be written: it would replace the archive being unpacked";
                return TarResult::WriteFailed;
            }
        }
    }
    return TarResult::Ok;
}

// --- Writing ---------------------------------------------------------------------

bool writeAll(HANDLE file, const void* data, std::size_t size)
{
    const char* next = static_cast<const char*>(data);
    while (size > 0) {
        const DWORD chunk = static_cast<DWORD>(std::min<std::size_t>(size, 1u << 20));
        DWORD done = 0;
        if (!::WriteFile(file, next, chunk, &done, nullptr) || done != chunk)
            return false;
        next += chunk;
        size -= chunk;
    }
    return true;
}

// The holes of a sparse file, written out.
bool writeZeros(HANDLE file, std::uint64_t count)
{
    static const char zeros[64 * 1024] = {};
    while (count > 0) {
        const std::size_t chunk = static_cast<std::size_t>(std::min<std::uint64_t>(count, sizeof zeros));
        if (!writeAll(file, zeros, chunk))
            return false;
        count -= chunk;
    }
    return true;
}

TarResult makeFolders(const std::wstring& root, const Planned& planned, std::size_t count, std::set<std::wstring>& made, std::string& why)
{
    for (std::size_t i = 1; i <= count; ++i) {
        const std::wstring path = joined(root, planned.parts, i);
        const std::wstring key = folded(path);
        if (made.count(key))
            continue;
        if (!::CreateDirectoryW(path.c_str(), nullptr)) {
            const DWORD error = ::GetLastError();
            const DWORD attributes = ::GetFileAttributesW(path.c_str());
            if (error != ERROR_ALREADY_EXISTS || attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_DIRECTORY) ||
                (attributes & FILE_ATTRIBUTE_REPARSE_POINT)) {
                why = withError("entry " + planned.shown + " can't be written: the folder " + quoted(path) + " can't be made", error);
                return TarResult::WriteFailed;
            }
        }
        made.insert(key);
    }
    return TarResult::Ok;
}

TarResult writeFile(const TarReader& reader, archive_entry* entry, const std::wstring& path, const Planned& planned, std::string& why)
{
    const std::string cannot = "entry " + planned.shown + " can't be written: ";
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES) {
        if (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) {
            why = cannot + quoted(path) + " is a folder or a link";
            return TarResult::WriteFailed;
        }
        // Windows won't replace read-only, hidden or system files.
        if ((attributes & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM)) &&
            !::SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL)) {
            const DWORD error = ::GetLastError();
            why = withError(cannot + quoted(path) + " can't be made writable", error);
            return TarResult::WriteFailed;
        }
    }
    FileHandle out(::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!out.valid()) {
        const DWORD error = ::GetLastError();
        why = withError(cannot + quoted(path) + " can't be created", error);
        return TarResult::WriteFailed;
    }
    // A file cut short is worse than none.
    auto fail = [&](TarResult result, const std::string& text) {
        out.close();
        ::DeleteFileW(path.c_str());
        why = text;
        return result;
    };
    const std::string writing = cannot + "writing " + quoted(path) + " failed";
    std::uint64_t written = 0;
    for (;;) {
        const void* block = nullptr;
        size_t size = 0;
        la_int64_t offset = 0;
        const int r = archive_read_data_block(reader.get(), &block, &size, &offset);
        if (r == ARCHIVE_EOF)
            break;
        if (r != ARCHIVE_OK)
            return fail(TarResult::Unreadable, "the archive is truncated or damaged in entry " + planned.shown + ": " + reader.message());
        if (offset < 0 || static_cast<std::uint64_t>(offset) < written)
            return fail(TarResult::Unreadable, "the archive is damaged in entry " + planned.shown + ": its data blocks overlap");
        if (!writeZeros(out.get(), static_cast<std::uint64_t>(offset) - written) || !writeAll(out.get(), block, size))
            return fail(TarResult::WriteFailed, withError(writing, ::GetLastError()));
        written = static_cast<std::uint64_t>(offset) + size;
    }
    // A sparse file may end in a hole.
    const la_int64_t size = archive_entry_size(entry);
    if (size > 0 && static_cast<std::uint64_t>(size) > written && !writeZeros(out.get(), static_cast<std::uint64_t>(size) - written))
        return fail(TarResult::WriteFailed, withError(writing, ::GetLastError()));
    if (!out.close()) {
        const DWORD error = ::GetLastError();
        return fail(TarResult::WriteFailed, withError(cannot + "closing " + quoted(path) + " failed", error));
    }
    return TarResult::Ok;
}

// The second pass: the same headers again, each taken as in the first pass
// and compared with it, then written.
TarResult writeArchive(Source& source, const std::wstring& root, const std::vector<Planned>& plan, std::string& why)
{
    TarReader reader;
    std::string problem;
    if (!reader.open(source, problem)) {
        why = "the archive can't be read a second time: " + problem;
        return TarResult::Unreadable;
    }
    std::set<std::wstring> made;
    for (std::size_t index = 0;; ++index) {
        archive_entry* entry = nullptr;
        const int r = archive_read_next_header(reader.get(), &entry);
        if (r == ARCHIVE_EOF && index == plan.size())
            return TarResult::Ok;
        Planned planned;
        std::string refusal;
        if (r != ARCHIVE_OK || index >= plan.size() ||
            classify(entry, r, reader, placeAfter(plan, index), planned, refusal) != TarResult::Ok ||
            planned.folder != plan[index].folder || planned.parts != plan[index].parts) {
            why = "the archive read differently the second time, " + placeAfter(plan, std::min(index, plan.size()));
            return TarResult::Unreadable;
        }
        const std::size_t folders = planned.folder ? planned.parts.size() : planned.parts.size() - 1;
        TarResult result = makeFolders(root, planned, folders, made, why);
        if (result == TarResult::Ok && !planned.folder)
            result = writeFile(reader, entry, joined(root, planned.parts, planned.parts.size()), planned, why);
        if (result != TarResult::Ok)
            return result;
    }
}

}  // namespace

TarResult unpackTar(const std::wstring& archive, const std::wstring& destination, std::string& why)
{
    why.clear();
    std::wstring archivePath;
    if (!longFullPath(archive, archivePath)) {
        const DWORD error = ::GetLastError();
        why = withError("the archive " + quoted(archive) + " can't be opened: its path is not valid", error);
        return TarResult::Unreadable;
    }
    // Writers stay out until both passes are done.
    FileHandle file(
        ::CreateFileW(archivePath.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    LARGE_INTEGER size;
    if (!file.valid() || !::GetFileSizeEx(file.get(), &size)) {
        const DWORD error = ::GetLastError();
        why = withError("the archive " + quoted(archive) + " can't be opened", error);
        return TarResult::Unreadable;
    }
    Source source;
    source.file = file.get();
    source.size = static_cast<std::uint64_t>(size.QuadPart);

    std::wstring root;
    if (!longFullPath(destination, root)) {
        const DWORD error = ::GetLastError();
        why = withError("the destination " + quoted(destination) + " is not a valid path", error);
        return TarResult::WriteFailed;
    }
    // "C:\" keeps its separator, other folders lose theirs.
    while (root.size() > 1 && root.back() == L'\\' && root[root.size() - 2] != L':')
        root.pop_back();

    std::vector<Planned> plan;
    TarResult result = checkArchive(source, root, plan, why);
    if (result != TarResult::Ok)
        return result;
    const DWORD attributes = ::GetFileAttributesW(root.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_DIRECTORY)) {
        const DWORD error = ::GetLastError();
        why = attributes == INVALID_FILE_ATTRIBUTES ? withError("the destination " + quoted(destination) + " can't be found", error)
                                                    : "the destination " + quoted(destination) + " is not a folder";
        return TarResult::WriteFailed;
    }
    result = checkDestination(source, root, plan, why);
    if (result != TarResult::Ok)
        return result;
    return writeArchive(source, root, plan, why);
}

}  // namespace mirel
