#pragma once
// A fresh folder under GetTempPathW for one test, removed with everything in
// it afterwards.
#include <windows.h>

#include <string>

namespace testing_support {

class TempFolder {
public:
    TempFolder()
    {
        wchar_t base[MAX_PATH + 1] = {};
        ::GetTempPathW(MAX_PATH, base);
        static unsigned counter = 0;
        m_path = std::wstring(base) + L"zt-delivery-" + std::to_wstring(::GetCurrentProcessId()) + L"-" +
                 std::to_wstring(::GetTickCount64()) + L"-" + std::to_wstring(++counter);
        ::CreateDirectoryW(m_path.c_str(), nullptr);
    }
    ~TempFolder() { removeAll(m_path); }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::wstring& path() const { return m_path; }
    std::wstring file(const std::wstring& name) const { return m_path + L"\\" + name; }

    static bool exists(const std::wstring& path)
    {
        return ::GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
    }

    static bool write(const std::wstring& path, const std::string& bytes)
    {
        HANDLE f = ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
        if (f == INVALID_HANDLE_VALUE)
            return false;
        DWORD done = 0;
        const BOOL ok = ::WriteFile(f, bytes.data(), static_cast<DWORD>(bytes.size()), &done, nullptr);
        ::CloseHandle(f);
        return ok && done == bytes.size();
    }

    static std::string read(const std::wstring& path)
    {
        HANDLE f = ::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                 0, nullptr);
        if (f == INVALID_HANDLE_VALUE)
            return std::string("<missing>");
        std::string bytes;
        char buffer[65536];
        DWORD got = 0;
        while (::ReadFile(f, buffer, sizeof(buffer), &got, nullptr) && got > 0)
            bytes.append(buffer, got);
        ::CloseHandle(f);
        return bytes;
    }

private:
    static void removeAll(const std::wstring& folder)
    {
        WIN32_FIND_DATAW data;
        HANDLE find = ::FindFirstFileW((folder + L"\\*").c_str(), &data);
        if (find != INVALID_HANDLE_VALUE) {
            do {
                const std::wstring name = data.cFileName;
                if (name == L"." || name == L"..")
                    continue;
                const std::wstring path = folder + L"\\" + name;
                if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
                    removeAll(path);
                else
                    ::DeleteFileW(path.c_str());
            } while (::FindNextFileW(find, &data));
            ::FindClose(find);
        }
        ::RemoveDirectoryW(folder.c_str());
    }
    std::wstring m_path;
};

}  // namespace testing_support
