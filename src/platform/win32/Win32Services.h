#pragma once
#include "platform/Services.h"

namespace platform {

class Win32KeyStore final : public KeyStore {
public:
    LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM rights, PHKEY result) override;
    LSTATUS RegOpenCurrentUser(REGSAM rights, PHKEY result) override;
    LSTATUS RegCreateKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM rights, PHKEY result,
                            LPDWORD disposition) override;
    LSTATUS RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD type, LPBYTE data, LPDWORD size) override;
    LSTATUS RegSetValueExW(HKEY key, LPCWSTR name, DWORD type, const BYTE* data, DWORD size) override;
    LSTATUS RegDeleteValueW(HKEY key, LPCWSTR name) override;
    LSTATUS RegEnumKeyExW(HKEY key, DWORD index, LPWSTR name, LPDWORD nameLength) override;
    LSTATUS RegEnumValueW(HKEY key, DWORD index, LPWSTR name, LPDWORD nameLength, LPDWORD type, LPBYTE data,
                          LPDWORD dataSize) override;
    LSTATUS RegFlushKey(HKEY key) override;
    LSTATUS RegCloseKey(HKEY key) override;
    DWORD ExpandEnvironmentStringsW(LPCWSTR source, LPWSTR destination, DWORD size) override;
};

class Win32FileSystem final : public FileSystem {
public:
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
};

class Win32Processes final : public Processes {
public:
    BOOL CreateProcessW(LPCWSTR application, LPWSTR commandLine, BOOL inheritHandles, DWORD flags,
                        LPCWSTR currentDirectory, LPSTARTUPINFOW startup, LPPROCESS_INFORMATION info) override;
    DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds) override;
    BOOL GetExitCodeProcess(HANDLE process, LPDWORD exitCode) override;
    BOOL CloseHandle(HANDLE object) override;
    HANDLE CreateMutexW(BOOL initialOwner, LPCWSTR name) override;
    LPWSTR GetCommandLineW() override;
    DWORD GetModuleFileNameW(HMODULE module, LPWSTR buffer, DWORD size) override;
    void GetNativeSystemInfo(LPSYSTEM_INFO info) override;
};

class Win32Installer final : public Installer {
public:
    UINT MsiEnumRelatedProductsW(LPCWSTR upgradeCode, DWORD reserved, DWORD index, LPWSTR productCode) override;
    UINT MsiGetProductInfoW(LPCWSTR product, LPCWSTR property, LPWSTR buffer, LPDWORD size) override;
};

class Win32UpdateAgent final : public UpdateAgent {
public:
    Answer QueryInstallerBusy() override;
};

class Win32Network final : public Network {
public:
    DWORD WNetAddConnection2W(LPNETRESOURCEW resource, LPCWSTR password, LPCWSTR user, DWORD flags) override;
    DWORD WNetCancelConnection2W(LPCWSTR name, DWORD flags, BOOL force) override;
};

class Win32Hashing final : public Hashing {
public:
    NTSTATUS BCryptOpenAlgorithmProvider(BCRYPT_ALG_HANDLE* algorithm, LPCWSTR id, LPCWSTR implementation,
                                         ULONG flags) override;
    NTSTATUS BCryptGetProperty(BCRYPT_HANDLE object, LPCWSTR property, PUCHAR output, ULONG size, ULONG* result,
                               ULONG flags) override;
    NTSTATUS BCryptCreateHash(BCRYPT_ALG_HANDLE algorithm, BCRYPT_HASH_HANDLE* hash, PUCHAR object, ULONG objectSize,
                              PUCHAR secret, ULONG secretSize, ULONG flags) override;
    NTSTATUS BCryptHashData(BCRYPT_HASH_HANDLE hash, PUCHAR input, ULONG size, ULONG flags) override;
    NTSTATUS BCryptFinishHash(BCRYPT_HASH_HANDLE hash, PUCHAR output, ULONG size, ULONG flags) override;
    NTSTATUS BCryptDestroyHash(BCRYPT_HASH_HANDLE hash) override;
    NTSTATUS BCryptCloseAlgorithmProvider(BCRYPT_ALG_HANDLE algorithm, ULONG flags) override;
};

class Win32Power final : public Power {
public:
    BOOL OpenProcessToken(HANDLE process, DWORD access, PHANDLE token) override;
    BOOL LookupPrivilegeValueW(LPCWSTR systemName, LPCWSTR name, PLUID luid) override;
    BOOL AdjustTokenPrivileges(HANDLE token, BOOL disableAll, PTOKEN_PRIVILEGES newState, DWORD bufferLength,
                               PTOKEN_PRIVILEGES previousState, PDWORD returnLength) override;
    BOOL CloseHandle(HANDLE object) override;
    BOOL ExitWindowsEx(UINT flags, DWORD reason) override;
};

class Win32Clock final : public Clock {
public:
    void Sleep(DWORD milliseconds) override;
    __time64_t time64() override;
    bool localtime64(const __time64_t& time, struct tm& out) override;
    void ftime64(struct __timeb64& out) override;
    ULONGLONG GetTickCount64() override;
};

class Win32Delivery final : public Delivery {
public:
    std::int32_t MirelRunDownloads(const std::string& workspace, const std::vector<void*>& downloads) override;
    void* MirelCreateDownload(const std::string& identity, std::int32_t expectedSize, bool flag,
                              const std::vector<std::string>& urls, const std::vector<std::string>& thumbprints,
                              const std::vector<std::string>& proxies, const std::string& pacUrl,
                              const std::string& workspace, const std::string& checksum, std::int32_t reserved,
                              std::int32_t payloadType) override;
    void MirelDestroyDownload(void* download) override;
    void MirelSetLogCallback(MirelLogCallback callback) override;
    void MirelSetPemFile(const std::string& pemFile) override;
    void MirelUseSystemCA(const bool* useSystemCA) override;
};

class Win32Console final : public Console {
public:
    void Write(const wchar_t* text, size_t length) override;
};

}  // namespace platform
