#pragma once
#include <map>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/FileSystem.h"

namespace fakes {

// Files and folders in memory. Paths compare without regard to case; a
// drive root ("C:") always exists. Failures set the last error as Windows does.
class FakeFileSystem : public platform::FileSystem {
public:
    struct Node {
        bool directory = false;
        std::vector<unsigned char> bytes;
        // Deleted while open with FILE_SHARE_DELETE: gone with its last handle.
        bool deletePending = false;
    };

    FakeFileSystem();

    // Set-up and inspection.
    void addDirectory(const std::wstring& path);
    void addFile(const std::wstring& path, const std::vector<unsigned char>& bytes);
    void addFile(const std::wstring& path, const std::string& bytes);
    bool exists(const std::wstring& path) const;
    bool isDirectory(const std::wstring& path) const;
    std::vector<unsigned char> bytesOf(const std::wstring& path) const;
    // Makes CreateDirectoryW fail with this code for every path.
    void failCreateDirectory(DWORD error) { m_createDirectoryError = error; }
    // Holds a path open without sharing, as another reader would.
    HANDLE holdOpen(const std::wstring& path);
    void release(HANDLE handle);

    std::wstring tempPath = L"C:\\Windows\\Temp\\";
    DWORD tempPathResult = 0;  // when non-zero, GetTempPathW returns it as is
    std::wstring currentDirectory = L"C:\\";
    int calls = 0;             // every operation counts
    int openHandles() const { return static_cast<int>(m_handles.size()); }

    HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD share, DWORD disposition, DWORD attributes) override;
    BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read) override;
    BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD toWrite, LPDWORD written) override;
    DWORD GetFileSize(HANDLE file, LPDWORD sizeHigh) override;
    BOOL CloseHandle(HANDLE file) override;
    BOOL CopyFileW(LPCWSTR from, LPCWSTR to, BOOL failIfExists) override;
    BOOL DeleteFileW(LPCWSTR path) override;
    HANDLE FindFirstFileW(LPCWSTR pattern, LPWIN32_FIND_DATAW data) override;
    BOOL FindNextFileW(HANDLE find, LPWIN32_FIND_DATAW data) override;
    BOOL FindClose(HANDLE find) override;
    DWORD GetFileAttributesW(LPCWSTR path) override;
    BOOL CreateDirectoryW(LPCWSTR path) override;
    DWORD GetTempPathW(DWORD size, LPWSTR buffer) override;
    BOOL GetDiskFreeSpaceExW(LPCWSTR directory, PULARGE_INTEGER freeToCaller, PULARGE_INTEGER total,
                             PULARGE_INTEGER totalFree) override;
    DWORD GetCurrentDirectoryW(DWORD size, LPWSTR buffer) override;
    BOOL PathFileExistsW(LPCWSTR path) override;
    DWORD GetFileVersionInfoSizeW(LPCWSTR path, LPDWORD handle) override;
    BOOL GetFileVersionInfoW(LPCWSTR path, DWORD handle, DWORD size, LPVOID data) override;
    BOOL VerQueryValueA(LPCVOID block, LPCSTR subBlock, LPVOID* buffer, PUINT length) override;
    // Gives an existing file a version resource with this file version.
    void setFileVersion(const std::wstring& path, WORD major, WORD minor, WORD patch, WORD build);

    // GetDiskFreeSpaceExW: the drive's total free bytes and what of it the
    // caller may use (all of it unless set), the size twice the free bytes.
    ULONGLONG freeBytes = 10ull << 30;
    ULONGLONG freeToCallerBytes = ~0ull;
    ULONGLONG totalBytes = 0;  // 0: twice freeBytes
    BOOL diskSpaceResult = TRUE;
    std::wstring diskSpaceAskedFor;
    // When non-zero, GetCurrentDirectoryW fails with this error.
    DWORD currentDirectoryError = 0;

private:
    struct Open {
        std::wstring key;
        DWORD access = 0;
        DWORD share = 0;
        size_t position = 0;
    };
    // What a search found, taken when it began.
    struct Entry {
        std::wstring name;
        bool directory = false;
        unsigned long long size = 0;
    };
    struct Find {
        std::vector<Entry> entries;
        size_t next = 0;
    };
    static std::wstring keyOf(const std::wstring& path);
    static std::wstring parentOf(const std::wstring& key);
    static bool isDriveRoot(const std::wstring& key);
    bool parentExists(const std::wstring& key) const;
    // What Windows says of a path that names nothing: its folder is there or not.
    DWORD missingError(const std::wstring& key) const;
    // 0, or the error of an open that the handles already open on key refuse.
    DWORD sharingError(const std::wstring& key, DWORD access, DWORD share) const;
    // The attributes GetFileAttributesW gives, or INVALID_FILE_ATTRIBUTES and the error.
    DWORD attributesOf(const std::wstring& key, DWORD& error) const;
    void dropHandle(std::map<HANDLE, Open>::iterator it);
    static void fillFind(const Entry& entry, LPWIN32_FIND_DATAW data);

    std::map<std::wstring, Node> m_nodes;   // by lower-case path
    std::map<std::wstring, std::wstring> m_names;  // lower-case -> as created
    std::map<std::wstring, VS_FIXEDFILEINFO> m_versions;  // by lower-case path
    std::map<HANDLE, Open> m_handles;
    std::map<HANDLE, Find> m_finds;
    std::uintptr_t m_nextHandle = 0x1000;
    DWORD m_createDirectoryError = 0;
};

}  // namespace fakes
