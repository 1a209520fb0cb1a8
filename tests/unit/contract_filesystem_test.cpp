// The file system as the tool's logic sees it, asked the same questions
// through the fake and through the real Win32 calls (in the lab, Wine): the
// fake is only worth the tests built on it if both answer alike. Every case
// works in a fresh folder under the temporary directory, named after the
// process and a counter, since unit tests run in several processes at once.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "contract_support.h"
#include "fakes/FakeFileSystem.h"
#include "fakes/ScopedServices.h"
#include "platform/Handles.h"
#include "platform/Services.h"

using platform::FileHandle;
using platform::FindHandle;

namespace {

struct Version {
    WORD major = 0, minor = 0, patch = 0, build = 0;
};

// The version the build stamps into its programs, the test program included.
Version buildVersion()
{
    unsigned parts[4] = {};
    EXPECT_EQ(4, std::sscanf(ZT_VERSION_TEXT, "%u.%u.%u.%u", &parts[0], &parts[1], &parts[2], &parts[3]));
    return Version{static_cast<WORD>(parts[0]), static_cast<WORD>(parts[1]), static_cast<WORD>(parts[2]),
                   static_cast<WORD>(parts[3])};
}

// ---- The two sides

class FakeFiles {
public:
    static const char* name() { return "Fake"; }
    static constexpr bool isReal = false;

    // A machine has its temporary folder.
    FakeFiles() { m_files.addDirectory(m_files.tempPath); }
    platform::Services services()
    {
        platform::Services s = platform::win32Services();
        s.files = &m_files;
        return s;
    }
    std::wstring versionedFile(const std::wstring& folder)
    {
        const std::wstring path = folder + L"\\versioned.exe";
        m_files.addFile(path, std::string("MZ"));
        const Version v = buildVersion();
        m_files.setFileVersion(path, v.major, v.minor, v.patch, v.build);
        return path;
    }
    void removeTree(const std::wstring&) {}

private:
    fakes::FakeFileSystem m_files;
};

class Win32Files {
public:
    static const char* name() { return "Win32"; }
    static constexpr bool isReal = true;

    platform::Services services() { return platform::win32Services(); }
    // The test program carries the build's version resource.
    std::wstring versionedFile(const std::wstring&)
    {
        wchar_t self[MAX_PATH] = {};
        EXPECT_NE(0u, ::GetModuleFileNameW(nullptr, self, MAX_PATH));
        return self;
    }
    // Straight through Win32, whatever state a failed case left behind.
    void removeTree(const std::wstring& folder)
    {
        WIN32_FIND_DATAW data{};
        HANDLE find = ::FindFirstFileW((folder + L"\\*").c_str(), &data);
        if (find != INVALID_HANDLE_VALUE) {
            do {
                const std::wstring name = data.cFileName;
                if (name == L"." || name == L"..")
                    continue;
                const std::wstring path = folder + L"\\" + name;
                if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
                    removeTree(path);
                else
                    ::DeleteFileW(path.c_str());
            } while (::FindNextFileW(find, &data));
            ::FindClose(find);
        }
        ::RemoveDirectoryW(folder.c_str());
    }
};

// ---- The fixture

template <class Side> class FileSystemContract : public ::testing::Test {
protected:
    void SetUp() override
    {
        wchar_t temp[MAX_PATH + 1] = {};
        const DWORD length = files().GetTempPathW(MAX_PATH + 1, temp);
        ASSERT_GT(length, 0u);
        ASSERT_LE(length, static_cast<DWORD>(MAX_PATH));
        m_dir = std::wstring(temp) + contract::uniqueName(L"ztc-");
        ASSERT_TRUE(files().CreateDirectoryW(m_dir.c_str())) << ::GetLastError();
        m_made = true;
    }
    void TearDown() override
    {
        if (m_made)
            m_side.removeTree(m_dir);
    }

    platform::FileSystem& files() { return platform::files(); }
    std::wstring at(const std::wstring& name) const { return m_dir + L"\\" + name; }

    HANDLE open(const std::wstring& name, DWORD access, DWORD share, DWORD disposition)
    {
        return files().CreateFileW(at(name).c_str(), access, share, disposition, FILE_ATTRIBUTE_NORMAL);
    }
    // A file with these bytes, written through the service under test.
    void put(const std::wstring& name, const std::string& bytes)
    {
        FileHandle file(open(name, GENERIC_WRITE, 0, CREATE_ALWAYS));
        ASSERT_TRUE(file.valid()) << ::GetLastError();
        DWORD written = 0;
        ASSERT_TRUE(files().WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written));
        ASSERT_EQ(bytes.size(), written);
    }
    std::string contents(const std::wstring& name)
    {
        FileHandle file(open(name, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING));
        EXPECT_TRUE(file.valid()) << ::GetLastError();
        if (!file)
            return "<cannot open>";
        std::string bytes(files().GetFileSize(file.get(), nullptr), '\0');
        DWORD read = 0;
        EXPECT_TRUE(files().ReadFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &read));
        bytes.resize(read);
        return bytes;
    }
    DWORD attributesOf(const std::wstring& path) { return files().GetFileAttributesW(path.c_str()); }

    Side m_side;
    fakes::ScopedServices m_scope{m_side.services()};
    std::wstring m_dir;
    bool m_made = false;
};

using Sides = ::testing::Types<FakeFiles, Win32Files>;
TYPED_TEST_SUITE(FileSystemContract, Sides, contract::SideName);

// ---- CreateFileW: what each disposition does and says

TYPED_TEST(FileSystemContract, CreateNewMakesTheFileAndClearsTheLastError)
{
    ::SetLastError(1234);
    FileHandle file(this->open(L"new.txt", GENERIC_WRITE, 0, CREATE_NEW));
    const DWORD error = ::GetLastError();
    ASSERT_TRUE(file.valid()) << error;
    EXPECT_EQ(0u, error);
    EXPECT_NE(INVALID_FILE_ATTRIBUTES, this->attributesOf(this->at(L"new.txt")));
}

TYPED_TEST(FileSystemContract, CreateNewOnAnExistingFileFailsWithFileExists)
{
    this->put(L"old.txt", "kept");
    FileHandle file(this->open(L"old.txt", GENERIC_WRITE, 0, CREATE_NEW));
    const DWORD error = ::GetLastError();
    EXPECT_FALSE(file.valid());
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_EXISTS), error);
    EXPECT_EQ("kept", this->contents(L"old.txt"));
}

TYPED_TEST(FileSystemContract, OpenAlwaysOnAnExistingFileSucceedsWithAlreadyExists)
{
    this->put(L"old.txt", "abc");
    ::SetLastError(0);
    FileHandle file(this->open(L"old.txt", GENERIC_READ, 0, OPEN_ALWAYS));
    const DWORD error = ::GetLastError();
    ASSERT_TRUE(file.valid()) << error;
    EXPECT_EQ(static_cast<DWORD>(ERROR_ALREADY_EXISTS), error);
    EXPECT_EQ(3u, this->files().GetFileSize(file.get(), nullptr));
}

TYPED_TEST(FileSystemContract, OpenAlwaysOnANewFileClearsTheLastError)
{
    ::SetLastError(1234);
    FileHandle file(this->open(L"new.txt", GENERIC_WRITE, 0, OPEN_ALWAYS));
    const DWORD error = ::GetLastError();
    ASSERT_TRUE(file.valid()) << error;
    EXPECT_EQ(0u, error);
}

TYPED_TEST(FileSystemContract, CreateAlwaysOnAnExistingFileEmptiesItWithAlreadyExists)
{
    this->put(L"old.txt", "abcdef");
    ::SetLastError(0);
    FileHandle file(this->open(L"old.txt", GENERIC_WRITE, 0, CREATE_ALWAYS));
    const DWORD error = ::GetLastError();
    ASSERT_TRUE(file.valid()) << error;
    EXPECT_EQ(static_cast<DWORD>(ERROR_ALREADY_EXISTS), error);
    EXPECT_EQ(0u, this->files().GetFileSize(file.get(), nullptr));
}

TYPED_TEST(FileSystemContract, CreateAlwaysOnANewFileClearsTheLastError)
{
    ::SetLastError(1234);
    FileHandle file(this->open(L"new.txt", GENERIC_WRITE, 0, CREATE_ALWAYS));
    const DWORD error = ::GetLastError();
    ASSERT_TRUE(file.valid()) << error;
    EXPECT_EQ(0u, error);
}

TYPED_TEST(FileSystemContract, TruncateExistingEmptiesAnExistingFileOnly)
{
    this->put(L"old.txt", "abcdef");
    {
        FileHandle file(this->open(L"old.txt", GENERIC_WRITE, 0, TRUNCATE_EXISTING));
        ASSERT_TRUE(file.valid()) << ::GetLastError();
        EXPECT_EQ(0u, this->files().GetFileSize(file.get(), nullptr));
    }
    FileHandle missing(this->open(L"missing.txt", GENERIC_WRITE, 0, TRUNCATE_EXISTING));
    const DWORD error = ::GetLastError();
    EXPECT_FALSE(missing.valid());
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), error);
}

TYPED_TEST(FileSystemContract, AnUnknownDispositionIsAnInvalidParameter)
{
    FileHandle file(this->open(L"any.txt", GENERIC_WRITE, 0, 0));
    const DWORD error = ::GetLastError();
    EXPECT_FALSE(file.valid());
    EXPECT_EQ(static_cast<DWORD>(ERROR_INVALID_PARAMETER), error);
}

TYPED_TEST(FileSystemContract, OpenExistingOfAMissingFileGivesFileNotFound)
{
    FileHandle file(this->open(L"missing.txt", GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING));
    const DWORD error = ::GetLastError();
    EXPECT_FALSE(file.valid());
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), error);
}

TYPED_TEST(FileSystemContract, EveryDispositionInAMissingFolderGivesPathNotFound)
{
    for (DWORD disposition : {OPEN_EXISTING, CREATE_NEW, CREATE_ALWAYS, OPEN_ALWAYS, TRUNCATE_EXISTING}) {
        FileHandle file(this->open(L"missing\\file.txt", GENERIC_WRITE, 0, disposition));
        const DWORD error = ::GetLastError();
        EXPECT_FALSE(file.valid()) << "disposition " << disposition;
        EXPECT_EQ(static_cast<DWORD>(ERROR_PATH_NOT_FOUND), error) << "disposition " << disposition;
    }
}

TYPED_TEST(FileSystemContract, AnEmptyPathGivesPathNotFound)
{
    FileHandle file(this->files().CreateFileW(L"", GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING, 0));
    const DWORD error = ::GetLastError();
    EXPECT_FALSE(file.valid());
    EXPECT_EQ(static_cast<DWORD>(ERROR_PATH_NOT_FOUND), error);
}

TYPED_TEST(FileSystemContract, OpeningAFolderAsAFileIsDenied)
{
    ASSERT_TRUE(this->files().CreateDirectoryW(this->at(L"folder").c_str()));
    FileHandle file(this->open(L"folder", GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING));
    const DWORD error = ::GetLastError();
    EXPECT_FALSE(file.valid());
    EXPECT_EQ(static_cast<DWORD>(ERROR_ACCESS_DENIED), error);
}

// ---- CreateFileW: share modes between two handles

TYPED_TEST(FileSystemContract, ReadersThatShareReadingOpenTogether)
{
    this->put(L"shared.txt", "x");
    FileHandle first(this->open(L"shared.txt", GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING));
    ASSERT_TRUE(first.valid());
    FileHandle second(this->open(L"shared.txt", GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING));
    EXPECT_TRUE(second.valid()) << ::GetLastError();
}

TYPED_TEST(FileSystemContract, AWriterIsRefusedWhileAReaderDoesNotShareWriting)
{
    this->put(L"shared.txt", "x");
    FileHandle reader(this->open(L"shared.txt", GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING));
    ASSERT_TRUE(reader.valid());
    FileHandle writer(this->open(L"shared.txt", GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING));
    const DWORD error = ::GetLastError();
    EXPECT_FALSE(writer.valid());
    EXPECT_EQ(static_cast<DWORD>(ERROR_SHARING_VIOLATION), error);
    reader.reset();
    FileHandle later(this->open(L"shared.txt", GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING));
    EXPECT_TRUE(later.valid()) << ::GetLastError();
}

TYPED_TEST(FileSystemContract, ASecondOpenMustShareWhatTheFirstHandleDoes)
{
    this->put(L"shared.txt", "x");
    FileHandle writer(this->open(L"shared.txt", GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING));
    ASSERT_TRUE(writer.valid());
    // The reader would let nobody write, but a writer is already there.
    FileHandle reader(this->open(L"shared.txt", GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING));
    const DWORD error = ::GetLastError();
    EXPECT_FALSE(reader.valid());
    EXPECT_EQ(static_cast<DWORD>(ERROR_SHARING_VIOLATION), error);
}

TYPED_TEST(FileSystemContract, AHandleThatSharesNothingKeepsEveryReaderAndWriterOut)
{
    this->put(L"locked.txt", "x");
    FileHandle holder(this->open(L"locked.txt", GENERIC_READ, 0, OPEN_EXISTING));
    ASSERT_TRUE(holder.valid());
    for (DWORD access : {static_cast<DWORD>(GENERIC_READ), static_cast<DWORD>(GENERIC_WRITE)}) {
        FileHandle other(this->open(L"locked.txt", access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                    OPEN_EXISTING));
        const DWORD error = ::GetLastError();
        EXPECT_FALSE(other.valid()) << std::hex << access;
        EXPECT_EQ(static_cast<DWORD>(ERROR_SHARING_VIOLATION), error) << std::hex << access;
    }
}

TYPED_TEST(FileSystemContract, AnOpenWithoutReadOrWriteAccessPassesAnySharing)
{
    this->put(L"locked.txt", "x");
    FileHandle holder(this->open(L"locked.txt", GENERIC_READ, 0, OPEN_EXISTING));
    ASSERT_TRUE(holder.valid());
    FileHandle query(this->open(L"locked.txt", 0, 0, OPEN_EXISTING));
    EXPECT_TRUE(query.valid()) << ::GetLastError();
    // ... and it reads nothing.
    char byte = 0;
    DWORD read = 0;
    EXPECT_FALSE(this->files().ReadFile(query.get(), &byte, 1, &read));
    EXPECT_EQ(static_cast<DWORD>(ERROR_ACCESS_DENIED), ::GetLastError());
}

// ---- ReadFile, WriteFile, GetFileSize

TYPED_TEST(FileSystemContract, ReadFileGivesTheBytesInTurnThenZeroAtTheEnd)
{
    this->put(L"data.txt", "hello");
    FileHandle file(this->open(L"data.txt", GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING));
    ASSERT_TRUE(file.valid());
    char buffer[16] = {};
    DWORD read = 99;
    ASSERT_TRUE(this->files().ReadFile(file.get(), buffer, 3, &read));
    EXPECT_EQ(3u, read);
    EXPECT_EQ("hel", std::string(buffer, read));
    ASSERT_TRUE(this->files().ReadFile(file.get(), buffer, sizeof buffer, &read));
    EXPECT_EQ(2u, read);
    EXPECT_EQ("lo", std::string(buffer, read));
    read = 99;
    EXPECT_TRUE(this->files().ReadFile(file.get(), buffer, sizeof buffer, &read));
    EXPECT_EQ(0u, read);
}

TYPED_TEST(FileSystemContract, ReadFileOnAHandleOpenedForWritingIsDenied)
{
    FileHandle file(this->open(L"data.txt", GENERIC_WRITE, 0, CREATE_ALWAYS));
    ASSERT_TRUE(file.valid());
    char byte = 0;
    DWORD read = 0;
    EXPECT_FALSE(this->files().ReadFile(file.get(), &byte, 1, &read));
    EXPECT_EQ(static_cast<DWORD>(ERROR_ACCESS_DENIED), ::GetLastError());
}

TYPED_TEST(FileSystemContract, WriteFileOnAHandleOpenedForReadingIsDenied)
{
    this->put(L"data.txt", "abc");
    FileHandle file(this->open(L"data.txt", GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING));
    ASSERT_TRUE(file.valid());
    DWORD written = 0;
    EXPECT_FALSE(this->files().WriteFile(file.get(), "x", 1, &written));
    EXPECT_EQ(static_cast<DWORD>(ERROR_ACCESS_DENIED), ::GetLastError());
    EXPECT_EQ("abc", this->contents(L"data.txt"));
}

TYPED_TEST(FileSystemContract, WriteFileOverwritesFromTheStartAndKeepsTheRest)
{
    this->put(L"data.txt", "abcdef");
    {
        FileHandle file(this->open(L"data.txt", GENERIC_WRITE, FILE_SHARE_WRITE, OPEN_ALWAYS));
        ASSERT_TRUE(file.valid());
        DWORD written = 0;
        ASSERT_TRUE(this->files().WriteFile(file.get(), "XY", 2, &written));
        EXPECT_EQ(2u, written);
        ASSERT_TRUE(this->files().WriteFile(file.get(), "Z", 1, &written));
        EXPECT_EQ(1u, written);
    }
    EXPECT_EQ("XYZdef", this->contents(L"data.txt"));
}

TYPED_TEST(FileSystemContract, GetFileSizeGivesTheLowPartAndAZeroHighPart)
{
    this->put(L"data.txt", "12345");
    FileHandle file(this->open(L"data.txt", GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING));
    ASSERT_TRUE(file.valid());
    DWORD high = 0xDEADBEEF;
    EXPECT_EQ(5u, this->files().GetFileSize(file.get(), &high));
    EXPECT_EQ(0u, high);
    EXPECT_EQ(5u, this->files().GetFileSize(file.get(), nullptr));
}

TYPED_TEST(FileSystemContract, GetFileSizeFollowsWhatTheHandleWrote)
{
    FileHandle file(this->open(L"growing.txt", GENERIC_WRITE, 0, CREATE_NEW));
    ASSERT_TRUE(file.valid());
    DWORD high = 0xDEADBEEF;
    EXPECT_EQ(0u, this->files().GetFileSize(file.get(), &high));
    EXPECT_EQ(0u, high);
    DWORD written = 0;
    ASSERT_TRUE(this->files().WriteFile(file.get(), "1234567", 7, &written));
    EXPECT_EQ(7u, this->files().GetFileSize(file.get(), &high));
}

// ---- CopyFileW

TYPED_TEST(FileSystemContract, CopyFileCopiesAndReplacesUnlessToldNotTo)
{
    this->put(L"from.txt", "payload");
    ASSERT_TRUE(this->files().CopyFileW(this->at(L"from.txt").c_str(), this->at(L"to.txt").c_str(), TRUE))
        << ::GetLastError();
    EXPECT_EQ("payload", this->contents(L"to.txt"));
    this->put(L"from.txt", "second");
    EXPECT_TRUE(this->files().CopyFileW(this->at(L"from.txt").c_str(), this->at(L"to.txt").c_str(), FALSE))
        << ::GetLastError();
    EXPECT_EQ("second", this->contents(L"to.txt"));
}

TYPED_TEST(FileSystemContract, CopyFileOntoAnExistingFileWhenToldNotToGivesFileExists)
{
    this->put(L"from.txt", "new");
    this->put(L"to.txt", "old");
    EXPECT_FALSE(this->files().CopyFileW(this->at(L"from.txt").c_str(), this->at(L"to.txt").c_str(), TRUE));
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_EXISTS), ::GetLastError());
    EXPECT_EQ("old", this->contents(L"to.txt"));
}

TYPED_TEST(FileSystemContract, CopyFileFromAMissingFileOrFolder)
{
    EXPECT_FALSE(this->files().CopyFileW(this->at(L"missing.txt").c_str(), this->at(L"to.txt").c_str(), FALSE));
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), ::GetLastError());
    EXPECT_FALSE(this->files().CopyFileW(this->at(L"missing\\x.txt").c_str(), this->at(L"to.txt").c_str(), FALSE));
    EXPECT_EQ(static_cast<DWORD>(ERROR_PATH_NOT_FOUND), ::GetLastError());
}

TYPED_TEST(FileSystemContract, CopyFileIntoAMissingFolderGivesPathNotFound)
{
    this->put(L"from.txt", "x");
    EXPECT_FALSE(this->files().CopyFileW(this->at(L"from.txt").c_str(), this->at(L"missing\\to.txt").c_str(), FALSE));
    EXPECT_EQ(static_cast<DWORD>(ERROR_PATH_NOT_FOUND), ::GetLastError());
}

TYPED_TEST(FileSystemContract, CopyFileToOrFromAFolderIsDenied)
{
    this->put(L"from.txt", "x");
    ASSERT_TRUE(this->files().CreateDirectoryW(this->at(L"folder").c_str()));
    EXPECT_FALSE(this->files().CopyFileW(this->at(L"from.txt").c_str(), this->at(L"folder").c_str(), FALSE));
    EXPECT_EQ(static_cast<DWORD>(ERROR_ACCESS_DENIED), ::GetLastError());
    EXPECT_NE(0u, this->attributesOf(this->at(L"folder")) & FILE_ATTRIBUTE_DIRECTORY);
    EXPECT_FALSE(this->files().CopyFileW(this->at(L"folder").c_str(), this->at(L"to.txt").c_str(), FALSE));
    EXPECT_EQ(static_cast<DWORD>(ERROR_ACCESS_DENIED), ::GetLastError());
}

TYPED_TEST(FileSystemContract, CopyFileOntoItselfIsASharingViolation)
{
    this->put(L"same.txt", "x");
    EXPECT_FALSE(this->files().CopyFileW(this->at(L"same.txt").c_str(), this->at(L"same.txt").c_str(), FALSE));
    EXPECT_EQ(static_cast<DWORD>(ERROR_SHARING_VIOLATION), ::GetLastError());
    EXPECT_EQ("x", this->contents(L"same.txt"));
}

TYPED_TEST(FileSystemContract, CopyFileFromASourceOpenWithoutSharedReadingIsASharingViolation)
{
    this->put(L"from.txt", "x");
    for (DWORD access : {static_cast<DWORD>(GENERIC_READ), static_cast<DWORD>(GENERIC_WRITE)}) {
        FileHandle holder(this->open(L"from.txt", access, FILE_SHARE_WRITE | FILE_SHARE_DELETE, OPEN_EXISTING));
        ASSERT_TRUE(holder.valid());
        EXPECT_FALSE(this->files().CopyFileW(this->at(L"from.txt").c_str(), this->at(L"to.txt").c_str(), FALSE))
            << std::hex << access;
        EXPECT_EQ(static_cast<DWORD>(ERROR_SHARING_VIOLATION), ::GetLastError()) << std::hex << access;
    }
}

// Windows' documentation doesn't say how CopyFileW opens the source; in the
// lab it reads it sharing reading, writing and deleting, so a writer that
// lets others read doesn't stop the copy, and the fake does the same.
TYPED_TEST(FileSystemContract, CopyFileFromASourceAWriterSharesForReading)
{
    this->put(L"from.txt", "log line");
    FileHandle writer(this->open(L"from.txt", GENERIC_WRITE, FILE_SHARE_READ, OPEN_EXISTING));
    ASSERT_TRUE(writer.valid());
    EXPECT_TRUE(this->files().CopyFileW(this->at(L"from.txt").c_str(), this->at(L"to.txt").c_str(), FALSE))
        << ::GetLastError();
    EXPECT_EQ("log line", this->contents(L"to.txt"));
}

TYPED_TEST(FileSystemContract, CopyFileOntoADestinationOpenWithoutSharedWritingIsASharingViolation)
{
    this->put(L"from.txt", "new");
    this->put(L"to.txt", "old");
    {
        FileHandle reader(this->open(L"to.txt", GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING));
        ASSERT_TRUE(reader.valid());
        EXPECT_FALSE(this->files().CopyFileW(this->at(L"from.txt").c_str(), this->at(L"to.txt").c_str(), FALSE));
        EXPECT_EQ(static_cast<DWORD>(ERROR_SHARING_VIOLATION), ::GetLastError());
    }
    EXPECT_EQ("old", this->contents(L"to.txt"));
}

TYPED_TEST(FileSystemContract, CopyFileOntoADestinationOpenSharingReadAndWriteReplacesIt)
{
    this->put(L"from.txt", "new");
    this->put(L"to.txt", "old");
    FileHandle reader(this->open(L"to.txt", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING));
    ASSERT_TRUE(reader.valid());
    EXPECT_TRUE(this->files().CopyFileW(this->at(L"from.txt").c_str(), this->at(L"to.txt").c_str(), FALSE))
        << ::GetLastError();
    reader.reset();
    EXPECT_EQ("new", this->contents(L"to.txt"));
}

// ---- DeleteFileW

TYPED_TEST(FileSystemContract, DeleteFileRemovesTheFile)
{
    this->put(L"gone.txt", "x");
    EXPECT_TRUE(this->files().DeleteFileW(this->at(L"gone.txt").c_str())) << ::GetLastError();
    EXPECT_EQ(INVALID_FILE_ATTRIBUTES, this->attributesOf(this->at(L"gone.txt")));
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), ::GetLastError());
}

TYPED_TEST(FileSystemContract, DeleteFileOfAMissingFileOrFolder)
{
    EXPECT_FALSE(this->files().DeleteFileW(this->at(L"missing.txt").c_str()));
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), ::GetLastError());
    EXPECT_FALSE(this->files().DeleteFileW(this->at(L"missing\\x.txt").c_str()));
    EXPECT_EQ(static_cast<DWORD>(ERROR_PATH_NOT_FOUND), ::GetLastError());
}

TYPED_TEST(FileSystemContract, DeleteFileOfAFolderIsDenied)
{
    ASSERT_TRUE(this->files().CreateDirectoryW(this->at(L"folder").c_str()));
    EXPECT_FALSE(this->files().DeleteFileW(this->at(L"folder").c_str()));
    EXPECT_EQ(static_cast<DWORD>(ERROR_ACCESS_DENIED), ::GetLastError());
    EXPECT_NE(0u, this->attributesOf(this->at(L"folder")) & FILE_ATTRIBUTE_DIRECTORY);
}

TYPED_TEST(FileSystemContract, DeleteFileOfAFileOpenWithoutSharedDeletingIsASharingViolation)
{
    this->put(L"held.txt", "x");
    for (DWORD share : {DWORD{0}, static_cast<DWORD>(FILE_SHARE_READ | FILE_SHARE_WRITE)}) {
        FileHandle holder(this->open(L"held.txt", GENERIC_READ, share, OPEN_EXISTING));
        ASSERT_TRUE(holder.valid());
        EXPECT_FALSE(this->files().DeleteFileW(this->at(L"held.txt").c_str())) << share;
        EXPECT_EQ(static_cast<DWORD>(ERROR_SHARING_VIOLATION), ::GetLastError()) << share;
    }
    EXPECT_EQ("x", this->contents(L"held.txt"));
}

// Deleting a file that is open with FILE_SHARE_DELETE succeeds and the file
// goes when its last handle closes. In between Windows refuses to open it
// (ERROR_ACCESS_DENIED, as DeleteFileW's documentation says), and so does
// the fake; Wine lets it be opened as before, which is what the real side
// checks there.
TYPED_TEST(FileSystemContract, DeleteFileOfAFileOpenWithSharedDeletingWaitsForTheLastHandle)
{
    this->put(L"held.txt", "x");
    FileHandle holder(this->open(L"held.txt", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, OPEN_EXISTING));
    ASSERT_TRUE(holder.valid());
    EXPECT_TRUE(this->files().DeleteFileW(this->at(L"held.txt").c_str())) << ::GetLastError();
    {
        FileHandle again(this->open(L"held.txt", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, OPEN_EXISTING));
        const DWORD error = ::GetLastError();
        if (TypeParam::isReal && contract::runningUnderWine()) {
            EXPECT_TRUE(again.valid()) << error;
        } else {
            EXPECT_FALSE(again.valid());
            EXPECT_EQ(static_cast<DWORD>(ERROR_ACCESS_DENIED), error);
        }
    }
    holder.reset();
    EXPECT_EQ(INVALID_FILE_ATTRIBUTES, this->attributesOf(this->at(L"held.txt")));
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), ::GetLastError());
}

// ---- FindFirstFileW, FindNextFileW, FindClose

TYPED_TEST(FileSystemContract, FindListsTheMatchingEntriesThenNoMoreFiles)
{
    this->put(L"agent-1.msi", "12345");
    this->put(L"agent-2.msi", "1");
    this->put(L"other.txt", "1");
    ASSERT_TRUE(this->files().CreateDirectoryW(this->at(L"agentDir").c_str()));

    WIN32_FIND_DATAW data{};
    FindHandle find(this->files().FindFirstFileW(this->at(L"agent*").c_str(), &data));
    ASSERT_TRUE(find.valid()) << ::GetLastError();
    std::vector<std::wstring> names;
    do {
        const std::wstring name = data.cFileName;
        names.push_back(name);
        const bool folder = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        EXPECT_EQ(name == L"agentDir", folder) << name;
        if (name == L"agent-1.msi") {
            EXPECT_EQ(5u, data.nFileSizeLow);
            EXPECT_EQ(0u, data.nFileSizeHigh);
        }
    } while (this->files().FindNextFileW(find.get(), &data));
    EXPECT_EQ(static_cast<DWORD>(ERROR_NO_MORE_FILES), ::GetLastError());
    // Windows promises no order.
    std::sort(names.begin(), names.end());
    EXPECT_EQ((std::vector<std::wstring>{L"agent-1.msi", L"agent-2.msi", L"agentDir"}), names);
    EXPECT_FALSE(this->files().FindNextFileW(find.get(), &data));
    EXPECT_EQ(static_cast<DWORD>(ERROR_NO_MORE_FILES), ::GetLastError());
}

TYPED_TEST(FileSystemContract, FindGivesTheNameAsItWasCreated)
{
    this->put(L"MixedCase.Txt", "x");
    WIN32_FIND_DATAW data{};
    FindHandle find(this->files().FindFirstFileW(this->at(L"mixedcase.txt").c_str(), &data));
    ASSERT_TRUE(find.valid()) << ::GetLastError();
    EXPECT_EQ(std::wstring(L"MixedCase.Txt"), data.cFileName);
    EXPECT_EQ(0u, data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY);
}

TYPED_TEST(FileSystemContract, FindOfEverythingInAFolderIncludesItsDotEntries)
{
    ASSERT_TRUE(this->files().CreateDirectoryW(this->at(L"empty").c_str()));
    WIN32_FIND_DATAW data{};
    FindHandle find(this->files().FindFirstFileW(this->at(L"empty\\*").c_str(), &data));
    ASSERT_TRUE(find.valid()) << ::GetLastError();
    std::vector<std::wstring> names;
    do {
        names.push_back(data.cFileName);
        EXPECT_NE(0u, data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) << data.cFileName;
    } while (this->files().FindNextFileW(find.get(), &data));
    EXPECT_EQ(static_cast<DWORD>(ERROR_NO_MORE_FILES), ::GetLastError());
    std::sort(names.begin(), names.end());
    EXPECT_EQ((std::vector<std::wstring>{L".", L".."}), names);
}

// A closing ".*" also matches a name without any dot, so "*.*" is
// everything.
TYPED_TEST(FileSystemContract, FindWithAClosingDotStarAlsoMatchesNamesWithoutADot)
{
    this->put(L"noext", "x");
    this->put(L"a.b", "x");
    for (const wchar_t* pattern : {L"*.*", L"noext.*"}) {
        WIN32_FIND_DATAW data{};
        FindHandle find(this->files().FindFirstFileW(this->at(pattern).c_str(), &data));
        ASSERT_TRUE(find.valid()) << ::GetLastError();
        std::vector<std::wstring> names;
        do {
            names.push_back(data.cFileName);
        } while (this->files().FindNextFileW(find.get(), &data));
        EXPECT_NE(names.end(), std::find(names.begin(), names.end(), L"noext")) << pattern;
    }
}

TYPED_TEST(FileSystemContract, FindWithoutAMatchInAnExistingFolderGivesFileNotFound)
{
    this->put(L"other.txt", "x");
    WIN32_FIND_DATAW data{};
    FindHandle find(this->files().FindFirstFileW(this->at(L"agent*").c_str(), &data));
    const DWORD error = ::GetLastError();
    EXPECT_FALSE(find.valid());
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), error);
}

TYPED_TEST(FileSystemContract, FindInAMissingFolderGivesPathNotFound)
{
    WIN32_FIND_DATAW data{};
    FindHandle find(this->files().FindFirstFileW(this->at(L"missing\\agent*").c_str(), &data));
    const DWORD error = ::GetLastError();
    EXPECT_FALSE(find.valid());
    EXPECT_EQ(static_cast<DWORD>(ERROR_PATH_NOT_FOUND), error);
}

TYPED_TEST(FileSystemContract, FindOfAPathEndingInABackslashGivesFileNotFound)
{
    WIN32_FIND_DATAW data{};
    FindHandle find(this->files().FindFirstFileW((this->m_dir + L"\\").c_str(), &data));
    const DWORD error = ::GetLastError();
    EXPECT_FALSE(find.valid());
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), error);
}

TYPED_TEST(FileSystemContract, FindCloseOfAnInvalidHandleFails)
{
    EXPECT_FALSE(this->files().FindClose(INVALID_HANDLE_VALUE));
    EXPECT_EQ(static_cast<DWORD>(ERROR_INVALID_HANDLE), ::GetLastError());
}

// ---- GetFileAttributesW, PathFileExistsW

TYPED_TEST(FileSystemContract, AttributesOfANewFileAndFolder)
{
    this->put(L"file.txt", "x");
    ASSERT_TRUE(this->files().CreateDirectoryW(this->at(L"folder").c_str()));
    // The file system marks a new file for archiving.
    EXPECT_EQ(static_cast<DWORD>(FILE_ATTRIBUTE_ARCHIVE), this->attributesOf(this->at(L"file.txt")));
    EXPECT_EQ(static_cast<DWORD>(FILE_ATTRIBUTE_DIRECTORY), this->attributesOf(this->at(L"folder")));
    EXPECT_NE(0u, this->attributesOf(L"C:\\") & FILE_ATTRIBUTE_DIRECTORY);
}

TYPED_TEST(FileSystemContract, AttributesOfAMissingFileOrFolder)
{
    EXPECT_EQ(INVALID_FILE_ATTRIBUTES, this->attributesOf(this->at(L"missing.txt")));
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), ::GetLastError());
    EXPECT_EQ(INVALID_FILE_ATTRIBUTES, this->attributesOf(this->at(L"missing\\x.txt")));
    EXPECT_EQ(static_cast<DWORD>(ERROR_PATH_NOT_FOUND), ::GetLastError());
}

TYPED_TEST(FileSystemContract, PathFileExistsForFilesAndFoldersOnly)
{
    this->put(L"file.txt", "x");
    EXPECT_TRUE(this->files().PathFileExistsW(this->at(L"file.txt").c_str()));
    EXPECT_TRUE(this->files().PathFileExistsW(this->m_dir.c_str()));
    EXPECT_FALSE(this->files().PathFileExistsW(this->at(L"missing.txt").c_str()));
    EXPECT_FALSE(this->files().PathFileExistsW(this->at(L"missing\\x.txt").c_str()));
}

// ---- CreateDirectoryW

TYPED_TEST(FileSystemContract, CreateDirectoryOnceThenAlreadyExists)
{
    EXPECT_TRUE(this->files().CreateDirectoryW(this->at(L"folder").c_str())) << ::GetLastError();
    EXPECT_FALSE(this->files().CreateDirectoryW(this->at(L"folder").c_str()));
    EXPECT_EQ(static_cast<DWORD>(ERROR_ALREADY_EXISTS), ::GetLastError());
}

TYPED_TEST(FileSystemContract, CreateDirectoryWhereAFileIsGivesAlreadyExists)
{
    this->put(L"file.txt", "x");
    EXPECT_FALSE(this->files().CreateDirectoryW(this->at(L"file.txt").c_str()));
    EXPECT_EQ(static_cast<DWORD>(ERROR_ALREADY_EXISTS), ::GetLastError());
    EXPECT_EQ(0u, this->attributesOf(this->at(L"file.txt")) & FILE_ATTRIBUTE_DIRECTORY);
}

TYPED_TEST(FileSystemContract, CreateDirectoryInAMissingFolderGivesPathNotFound)
{
    EXPECT_FALSE(this->files().CreateDirectoryW(this->at(L"missing\\folder").c_str()));
    EXPECT_EQ(static_cast<DWORD>(ERROR_PATH_NOT_FOUND), ::GetLastError());
}

// ---- GetTempPathW, GetCurrentDirectoryW, GetDiskFreeSpaceExW

TYPED_TEST(FileSystemContract, TempPathEndsInABackslashAndNamesAFolder)
{
    wchar_t buffer[MAX_PATH + 1] = {};
    const DWORD length = this->files().GetTempPathW(MAX_PATH + 1, buffer);
    ASSERT_GT(length, 0u);
    EXPECT_EQ(std::wcslen(buffer), length);
    EXPECT_EQ(L'\\', buffer[length - 1]);
    EXPECT_NE(0u, this->attributesOf(buffer) & FILE_ATTRIBUTE_DIRECTORY);
}

TYPED_TEST(FileSystemContract, TempPathInTooSmallABufferGivesTheSizeNeeded)
{
    wchar_t buffer[MAX_PATH + 1] = {};
    const DWORD length = this->files().GetTempPathW(MAX_PATH + 1, buffer);
    ASSERT_GT(length, 1u);
    EXPECT_EQ(length + 1, this->files().GetTempPathW(0, nullptr));
    wchar_t small[MAX_PATH + 1] = {};
    EXPECT_EQ(length + 1, this->files().GetTempPathW(length, small));
}

TYPED_TEST(FileSystemContract, CurrentDirectoryAndTheSizeItNeeds)
{
    const DWORD needed = this->files().GetCurrentDirectoryW(0, nullptr);
    ASSERT_GT(needed, 1u);
    std::wstring buffer(needed, L'\0');
    EXPECT_EQ(needed - 1, this->files().GetCurrentDirectoryW(needed, buffer.data()));
    EXPECT_EQ(needed - 1, std::wcslen(buffer.c_str()));
    EXPECT_NE(0u, this->attributesOf(buffer.c_str()) & FILE_ATTRIBUTE_DIRECTORY);
    std::wstring small(needed, L'\0');
    EXPECT_EQ(needed, this->files().GetCurrentDirectoryW(needed - 1, small.data()));
}

TYPED_TEST(FileSystemContract, DiskFreeSpaceOfAFolder)
{
    ULARGE_INTEGER freeToCaller{}, total{}, totalFree{};
    ASSERT_TRUE(this->files().GetDiskFreeSpaceExW(this->m_dir.c_str(), &freeToCaller, &total, &totalFree))
        << ::GetLastError();
    EXPECT_GT(total.QuadPart, 0u);
    EXPECT_LE(totalFree.QuadPart, total.QuadPart);
    EXPECT_LE(freeToCaller.QuadPart, totalFree.QuadPart);
    ULARGE_INTEGER onlyFree{};
    EXPECT_TRUE(this->files().GetDiskFreeSpaceExW(this->m_dir.c_str(), &onlyFree, nullptr, nullptr));
}

TYPED_TEST(FileSystemContract, DiskFreeSpaceOfAMissingFolderOrAFile)
{
    ULARGE_INTEGER freeToCaller{};
    EXPECT_FALSE(this->files().GetDiskFreeSpaceExW(this->at(L"missing").c_str(), &freeToCaller, nullptr, nullptr));
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), ::GetLastError());
    EXPECT_FALSE(
        this->files().GetDiskFreeSpaceExW(this->at(L"missing\\deeper").c_str(), &freeToCaller, nullptr, nullptr));
    EXPECT_EQ(static_cast<DWORD>(ERROR_PATH_NOT_FOUND), ::GetLastError());
    this->put(L"file.txt", "x");
    EXPECT_FALSE(this->files().GetDiskFreeSpaceExW(this->at(L"file.txt").c_str(), &freeToCaller, nullptr, nullptr));
    EXPECT_EQ(static_cast<DWORD>(ERROR_DIRECTORY), ::GetLastError());
}

// ---- The version resource

TYPED_TEST(FileSystemContract, VersionOfAFileThatHasOne)
{
    const std::wstring path = this->m_side.versionedFile(this->m_dir);
    DWORD handle = 0xDEADBEEF;
    const DWORD size = this->files().GetFileVersionInfoSizeW(path.c_str(), &handle);
    ASSERT_GT(size, 0u) << ::GetLastError();
    EXPECT_EQ(0u, handle);
    std::vector<unsigned char> block(size);
    ASSERT_TRUE(this->files().GetFileVersionInfoW(path.c_str(), 0, size, block.data())) << ::GetLastError();
    VS_FIXEDFILEINFO* info = nullptr;
    UINT length = 0;
    ASSERT_TRUE(this->files().VerQueryValueA(block.data(), "\\", reinterpret_cast<void**>(&info), &length));
    ASSERT_NE(nullptr, info);
    EXPECT_EQ(sizeof(VS_FIXEDFILEINFO), length);
    EXPECT_EQ(0xFEEF04BDu, info->dwSignature);
    const Version v = buildVersion();
    EXPECT_EQ(MAKELONG(v.minor, v.major), info->dwFileVersionMS);
    EXPECT_EQ(MAKELONG(v.build, v.patch), info->dwFileVersionLS);
}

TYPED_TEST(FileSystemContract, VersionOfAMissingFileOrFolder)
{
    DWORD handle = 0xDEADBEEF;
    EXPECT_EQ(0u, this->files().GetFileVersionInfoSizeW(this->at(L"missing.dll").c_str(), &handle));
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), ::GetLastError());
    EXPECT_EQ(0u, handle);
    EXPECT_EQ(0u, this->files().GetFileVersionInfoSizeW(this->at(L"missing\\x.dll").c_str(), &handle));
    EXPECT_EQ(static_cast<DWORD>(ERROR_PATH_NOT_FOUND), ::GetLastError());
}

TYPED_TEST(FileSystemContract, VersionOfAFileWithoutResources)
{
    this->put(L"plain.txt", "no resources in here");
    DWORD handle = 0xDEADBEEF;
    EXPECT_EQ(0u, this->files().GetFileVersionInfoSizeW(this->at(L"plain.txt").c_str(), &handle));
    EXPECT_EQ(static_cast<DWORD>(ERROR_RESOURCE_DATA_NOT_FOUND), ::GetLastError());
    EXPECT_EQ(0u, handle);
}

// GetFileVersionInfoW cuts the block to the buffer it is given rather than
// failing.
TYPED_TEST(FileSystemContract, VersionBlockIsCutToTheBuffer)
{
    const std::wstring path = this->m_side.versionedFile(this->m_dir);
    DWORD handle = 0;
    const DWORD size = this->files().GetFileVersionInfoSizeW(path.c_str(), &handle);
    ASSERT_GT(size, 8u);
    std::vector<unsigned char> block(size, 0xCC);
    EXPECT_TRUE(this->files().GetFileVersionInfoW(path.c_str(), 0, 4, block.data())) << ::GetLastError();
    EXPECT_TRUE(std::all_of(block.begin() + 4, block.end(), [](unsigned char b) { return b == 0xCC; }));
}

}  // namespace
