#pragma once
// Shared set-up of the share copy and verification tests: all services
// faked, a file service wrapper that records what the fetch asks of it and
// can fail single calls, and a job under DOWNLOAD that names a file on a share.
#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "fakes/FakePlatform.h"
#include "fakes/ForwardingFileSystem.h"
#include "fakes/ScopedServices.h"
#include "update/UpdateRecord.h"
#include "update/UpdateState.h"

namespace fetch_test {

// SHA-256 test vectors of the published standard.
inline const wchar_t* const kDigestOfAbc = L"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
inline const wchar_t* const kDigestOfNothing = L"e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
inline const wchar_t* const kDigestOfMillionA = L"cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0";
inline const wchar_t* const kDigestOf448Bits = L"248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1";
inline const char* const k448Bits = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";

inline const wchar_t* const kSource = L"\\\\server\\share\\folder\\agent.msi";
inline const wchar_t* const kFolder = L"\\\\server\\share\\folder";
inline const wchar_t* const kWorkspace = L"C:\\Windows\\Temp\\updatetool-data";
inline const wchar_t* const kDestination = L"C:\\Windows\\Temp\\updatetool-data\\agent.msi";

inline std::wstring upper(std::wstring text)
{
    for (wchar_t& c : text)
        if (c >= L'a' && c <= L'z')
            c = static_cast<wchar_t>(c - L'a' + L'A');
    return text;
}

// Forwards to the fake file system; records the calls of the fetch and can
// make single ones fail as Windows would.
class RecordingFiles final : public fakes::ForwardingFileSystem {
public:
    using ForwardingFileSystem::ForwardingFileSystem;

    struct Open {
        std::wstring path;
        DWORD access, share, disposition, attributes;
    };
    struct Copy {
        std::wstring from, to;
        BOOL failIfExists;
    };
    std::vector<Open> opens;  // the tool log's own included
    std::vector<Open> opensFor(const std::wstring& path) const
    {
        std::vector<Open> found;
        for (const Open& open : opens)
            if (open.path == path)
                found.push_back(open);
        return found;
    }
    int opensOf(const std::wstring& path) const { return static_cast<int>(opensFor(path).size()); }
    std::vector<Copy> copies;
    std::vector<DWORD> readSizes;  // bytes asked for by each ReadFile
    int sizeCalls = 0;
    bool sizeHighAsked = false;

    // The nth CreateFileW (1 = first) of this path fails with this code.
    std::wstring failOpenPath;
    int failOpenNumber = 0;
    DWORD failOpenError = 0;
    // The nth ReadFile (1 = first) and all later ones fail with this code.
    int failReadNumber = 0;
    DWORD failReadError = ERROR_READ_FAULT;
    // When set, GetFileSize reports this low part (and high part 1 if asked).
    std::optional<DWORD> sizeOverride;
    // Runs after a copy that succeeded.
    std::function<void()> afterCopy;

    HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD share, DWORD disposition, DWORD attributes) override
    {
        std::wstring name = path ? path : L"";
        opens.push_back({name, access, share, disposition, attributes});
        if (failOpenNumber && name == failOpenPath && opensOf(name) == failOpenNumber) {
            ::SetLastError(failOpenError);
            return INVALID_HANDLE_VALUE;
        }
        return m_inner.CreateFileW(path, access, share, disposition, attributes);
    }
    BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read) override
    {
        readSizes.push_back(toRead);
        if (failReadNumber && static_cast<int>(readSizes.size()) >= failReadNumber) {
            if (read)
                *read = 0;
            ::SetLastError(failReadError);
            return FALSE;
        }
        return m_inner.ReadFile(file, buffer, toRead, read);
    }
    DWORD GetFileSize(HANDLE file, LPDWORD sizeHigh) override
    {
        ++sizeCalls;
        sizeHighAsked = sizeHighAsked || sizeHigh != nullptr;
        if (sizeOverride) {
            if (sizeHigh)
                *sizeHigh = 1;
            return *sizeOverride;
        }
        return m_inner.GetFileSize(file, sizeHigh);
    }
    BOOL CopyFileW(LPCWSTR from, LPCWSTR to, BOOL failIfExists) override
    {
        copies.push_back({from ? from : L"", to ? to : L"", failIfExists});
        BOOL ok = m_inner.CopyFileW(from, to, failIfExists);
        if (ok && afterCopy)
            afterCopy();
        return ok;
    }

};

inline platform::Services withFiles(platform::FileSystem* files)
{
    platform::Services s = platform::services();
    s.files = files;
    return s;
}

// A job under DOWNLOAD naming kSource, which holds "abc", with the matching
// size and checksum.
class FetchTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        UpdateRecord& r = g_updateRecord;
        r.sUpdateKey = L"Job1";
        r.nState = STATE_DOWNLOAD;
        r.sShareType = L"SMB";
        r.sUNC = kSource;
        r.sFileSize = L"3";
        r.sCheckSum = kDigestOfAbc;
        p.files.addFile(kSource, std::string("abc"));
    }

    std::vector<std::wstring> linesOf(std::initializer_list<const wchar_t*> tags) const { return p.linesOf(tags); }

    // The system's own text of a code, taken straight from FormatMessageW.
    static std::optional<std::wstring> systemText(DWORD code)
    {
        wchar_t* buffer = nullptr;
        DWORD n = ::FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM |
                                       FORMAT_MESSAGE_IGNORE_INSERTS,
                                   nullptr, code, 0, reinterpret_cast<wchar_t*>(&buffer), 0, nullptr);
        if (!buffer)
            return std::nullopt;
        std::wstring text(buffer, n);
        ::LocalFree(buffer);
        return text;
    }

    fakes::FakePlatform p;
    RecordingFiles files{p.files};
    fakes::ScopedServices scope{withFiles(&files)};
};

}  // namespace fetch_test
