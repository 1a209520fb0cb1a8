// unpackTar on archives made by python3's tarfile at build time
// (tests/fixtures/tar/make_archives.py, into bin/fixtures/tar beside this
// program). Every test unpacks into a fresh folder under GetTempPathW and
// looks at everything that folder holds afterwards.
#include "TarUnpack.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>

namespace {

using mirel::TarResult;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// "\\?\" before a full drive path: the tests' own file calls must not stop
// at MAX_PATH where the long names go past it.
std::wstring longForm(const std::wstring& path) { return path.compare(0, 4, L"\\\\?\\") == 0 ? path : L"\\\\?\\" + path; }

std::wstring programFolder()
{
    std::wstring path(32768, L'\0');
    const DWORD n = ::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    path.resize(n);
    return path.substr(0, path.find_last_of(L'\\'));
}

std::wstring fixture(const std::wstring& name) { return programFolder() + L"\\fixtures\\tar\\" + name; }

// Byte i of a pattern file is (i * 31 + seed) % 256, as make_archives.py
// writes it.
std::string pattern(std::size_t size, unsigned seed)
{
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>((i * 31 + seed) % 256);
    return bytes;
}

void writeFile(const std::wstring& path, const std::string& content)
{
    HANDLE file = ::CreateFileW(longForm(path).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE) << "error " << ::GetLastError();
    DWORD written = 0;
    const BOOL ok = ::WriteFile(file, content.data(), static_cast<DWORD>(content.size()), &written, nullptr);
    ::CloseHandle(file);
    ASSERT_TRUE(ok && written == content.size());
}

std::string readFile(const std::wstring& path)
{
    HANDLE file = ::CreateFileW(longForm(path).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return "<unreadable: error " + std::to_string(::GetLastError()) + ">";
    std::string content;
    char buffer[65536];
    DWORD got = 0;
    while (::ReadFile(file, buffer, sizeof buffer, &got, nullptr) && got > 0)
        content.append(buffer, got);
    ::CloseHandle(file);
    return content;
}

const std::string kFolder = "<folder>";

// Everything below `root`: relative path -> content, or kFolder.
using Listing = std::map<std::wstring, std::string>;

void listInto(const std::wstring& root, const std::wstring& relative, Listing& listing)
{
    const std::wstring folder = relative.empty() ? root : root + L"\\" + relative;
    WIN32_FIND_DATAW found;
    HANDLE find = ::FindFirstFileW(longForm(folder + L"\\*").c_str(), &found);
    if (find == INVALID_HANDLE_VALUE)
        return;
    do {
        const std::wstring name = found.cFileName;
        if (name == L"." || name == L"..")
            continue;
        const std::wstring path = relative.empty() ? name : relative + L"\\" + name;
        if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
            listing[path] = kFolder;
            listInto(root, path, listing);
        } else {
            listing[path] = readFile(root + L"\\" + path);
        }
    } while (::FindNextFileW(find, &found));
    ::FindClose(find);
}

Listing listing(const std::wstring& root)
{
    Listing result;
    listInto(root, std::wstring(), result);
    return result;
}

void removeTree(const std::wstring& path)
{
    WIN32_FIND_DATAW found;
    HANDLE find = ::FindFirstFileW(longForm(path + L"\\*").c_str(), &found);
    if (find != INVALID_HANDLE_VALUE) {
        do {
            const std::wstring name = found.cFileName;
            if (name == L"." || name == L"..")
                continue;
            const std::wstring child = path + L"\\" + name;
            if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
                removeTree(child);
            } else {
                ::SetFileAttributesW(longForm(child).c_str(), FILE_ATTRIBUTE_NORMAL);
                ::DeleteFileW(longForm(child).c_str());
            }
        } while (::FindNextFileW(find, &found));
        ::FindClose(find);
    }
    ::RemoveDirectoryW(longForm(path).c_str());
}

// A fresh folder under GetTempPathW, removed with all it holds at the end;
// it holds the destination "dest" with one file of its own, "before.txt".
class TarFolderTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        wchar_t temp[MAX_PATH + 1];
        const DWORD n = ::GetTempPathW(MAX_PATH + 1, temp);
        ASSERT_GT(n, 0u);
        static unsigned counter = 0;
        m_root = std::wstring(temp, n) + L"zt-tar-" + std::to_wstring(::GetCurrentProcessId()) + L"-" + std::to_wstring(++counter);
        if (m_root.back() == L'\\')
            m_root.pop_back();
        removeTree(m_root);
        ASSERT_TRUE(::CreateDirectoryW(m_root.c_str(), nullptr)) << "error " << ::GetLastError();
        destination = m_root + L"\\dest";
        ASSERT_TRUE(::CreateDirectoryW(destination.c_str(), nullptr));
        writeFile(destination + L"\\before.txt", "before\n");
    }
    void TearDown() override
    {
        removeTree(m_root);
        EXPECT_EQ(::GetFileAttributesW(m_root.c_str()), INVALID_FILE_ATTRIBUTES) << "the test's folder was not removed";
    }

    TarResult unpack(const std::wstring& archive) { return mirel::unpackTar(fixture(archive), destination, why); }

    // What the destination holds besides before.txt.
    Listing unpacked()
    {
        Listing all = listing(destination);
        EXPECT_EQ(all[L"before.txt"], "before\n");
        all.erase(L"before.txt");
        return all;
    }

    // The test's whole folder as SetUp left it: nothing written anywhere.
    void expectUntouched()
    {
        const Listing expected{{L"dest", kFolder}, {L"dest\\before.txt", "before\n"}};
        EXPECT_EQ(listing(m_root), expected);
    }

    const std::wstring& root() const { return m_root; }

    std::wstring destination;
    std::string why;

private:
    std::wstring m_root;
};

// --- Archives that are unpacked ---------------------------------------------------

class TarUnpackWrites : public TarFolderTest {};

// What ok_plain.tar holds.
Listing plainListing()
{
    return Listing{
        {L"readme.txt", "first file\n"},
        {L"folder", kFolder},
        {L"folder\\inner", kFolder},
        {L"folder\\inner\\deep.txt", "deep content\n"},
        {L"folder\\empty", kFolder},
        {L"zero.bin", ""},
        {L"big.bin", pattern(200000, 7)},
        {L"implicit", kFolder},
        {L"implicit\\parent", kFolder},
        {L"implicit\\parent\\made.txt", "parents made as needed\n"},
    };
}

TEST_F(TarUnpackWrites, PlainFilesAndNestedFoldersWithTheirContent)
{
    ASSERT_EQ(unpack(L"ok_plain.tar"), TarResult::Ok) << why;
    EXPECT_THAT(why, IsEmpty());
    EXPECT_EQ(unpacked(), plainListing());
}

TEST_F(TarUnpackWrites, UnpackingAgainOverItsOwnFoldersAndFiles)
{
    ASSERT_EQ(unpack(L"ok_plain.tar"), TarResult::Ok) << why;
    ASSERT_EQ(unpack(L"ok_plain.tar"), TarResult::Ok) << why;
    EXPECT_THAT(why, IsEmpty());
    EXPECT_EQ(unpacked(), plainListing());
}

TEST_F(TarUnpackWrites, DotPartsAndDoubleSlashesStayInTheDestination)
{
    ASSERT_EQ(unpack(L"ok_dot_prefix.tar"), TarResult::Ok) << why;
    EXPECT_THAT(why, IsEmpty());
    const Listing expected{
        {L"dot", kFolder},
        {L"dot\\file.txt", "dot\n"},
        {L"plain", kFolder},
        {L"plain\\double.txt", "double slash\n"},
    };
    EXPECT_EQ(unpacked(), expected);
}

const std::wstring kLongFolder = L"a-folder-whose-name-is-long-" + std::wstring(60, L'x');
const std::wstring kLongFile = L"a-file-name-longer-than-one-hundred-characters-" + std::wstring(70, L'y') + L".txt";

Listing longNamesListing()
{
    return Listing{
        {kLongFolder, kFolder},
        {kLongFolder + L"\\" + kLongFile, "long name\n"},
        {kLongFolder + L"\\second", kFolder},
        {kLongFolder + L"\\second\\" + std::wstring(120, L'z') + L".bin", pattern(1000, 3)},
    };
}

TEST_F(TarUnpackWrites, PaxLongNames)
{
    ASSERT_EQ(unpack(L"ok_pax_long.tar"), TarResult::Ok) << why;
    EXPECT_THAT(why, IsEmpty());
    EXPECT_EQ(unpacked(), longNamesListing());
}

TEST_F(TarUnpackWrites, GnuLongNames)
{
    ASSERT_EQ(unpack(L"ok_gnu_long.tar"), TarResult::Ok) << why;
    EXPECT_THAT(why, IsEmpty());
    EXPECT_EQ(unpacked(), longNamesListing());
}

Listing utf8Listing()
{
    return Listing{
        {L"Gr\u00fc\u00dfe", kFolder},
        {L"Gr\u00fc\u00dfe\\na\u00efve caf\u00e9.txt", "caf\xc3\xa9\n"},
        {L"\u65e5\u672c\u8a9e", kFolder},
        {L"\u65e5\u672c\u8a9e\\\u30d5\u30a1\u30a4\u30eb.txt", "nihongo\n"},
        {L"emoji-\U0001F600.txt", "smile\n"},
    };
}

TEST_F(TarUnpackWrites, Utf8NamesFromPaxRecordsBecomeWideNames)
{
    ASSERT_EQ(unpack(L"ok_utf8_pax.tar"), TarResult::Ok) << why;
    EXPECT_THAT(why, IsEmpty());
    EXPECT_EQ(unpacked(), utf8Listing());
}

TEST_F(TarUnpackWrites, Utf8NamesInGnuHeadersBecomeWideNames)
{
    ASSERT_EQ(unpack(L"ok_utf8_gnu.tar"), TarResult::Ok) << why;
    EXPECT_THAT(why, IsEmpty());
    EXPECT_EQ(unpacked(), utf8Listing());
}

TEST_F(TarUnpackWrites, EmptyArchiveWritesNothing)
{
    ASSERT_EQ(unpack(L"ok_empty.tar"), TarResult::Ok) << why;
    EXPECT_THAT(why, IsEmpty());
    expectUntouched();
}

TEST_F(TarUnpackWrites, ExistingFileIsReplacedAndOthersAreLeftAlone)
{
    writeFile(destination + L"\\keep.txt", "an old content, longer than the new one\n");
    writeFile(destination + L"\\other.txt", "other\n");
    ASSERT_EQ(unpack(L"ok_replace.tar"), TarResult::Ok) << why;
    EXPECT_THAT(why, IsEmpty());
    const Listing expected{{L"keep.txt", "new\n"}, {L"other.txt", "other\n"}};
    EXPECT_EQ(unpacked(), expected);
}

// Windows refuses to open a read-only file for writing, and CREATE_ALWAYS
// refuses hidden and system files; Wine 8 replaces all three, so here only
// the attributes afterwards show that the old file's were cleared.
TEST_F(TarUnpackWrites, ReadOnlyHiddenSystemFileIsReplacedByAnOrdinaryOne)
{
    const std::wstring keep = destination + L"\\keep.txt";
    writeFile(keep, "old\n");
    ASSERT_TRUE(::SetFileAttributesW(keep.c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM));
    ASSERT_EQ(unpack(L"ok_replace.tar"), TarResult::Ok) << why;
    EXPECT_THAT(why, IsEmpty());
    const Listing expected{{L"keep.txt", "new\n"}};
    EXPECT_EQ(unpacked(), expected);
    const DWORD attributes = ::GetFileAttributesW(keep.c_str());
    ASSERT_NE(attributes, INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(attributes & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM), 0u);
}

TEST_F(TarUnpackWrites, SparseFileHolesBecomeZeros)
{
    ASSERT_EQ(unpack(L"ok_sparse.tar"), TarResult::Ok) << why;
    EXPECT_THAT(why, IsEmpty());
    std::string expected(12288, '\0');
    expected.replace(0, 512, std::string(512, 'A'));
    expected.replace(10240, 512, std::string(512, 'B'));
    const Listing unpackedFiles = unpacked();
    ASSERT_EQ(unpackedFiles.size(), 1u);
    ASSERT_EQ(unpackedFiles.count(L"sparse.bin"), 1u);
    EXPECT_EQ(unpackedFiles.at(L"sparse.bin").size(), 12288u);
    EXPECT_TRUE(unpackedFiles.at(L"sparse.bin") == expected);
}

TEST_F(TarUnpackWrites, DestinationMayEndInABackslash)
{
    ASSERT_EQ(mirel::unpackTar(fixture(L"ok_replace.tar"), destination + L"\\", why), TarResult::Ok) << why;
    EXPECT_THAT(why, IsEmpty());
    const Listing expected{{L"keep.txt", "new\n"}};
    EXPECT_EQ(unpacked(), expected);
}

// --- Archives that are refused ------------------------------------------------------

struct Refusal {
    const wchar_t* archive;
    const char* entry;   // the entry as `why` names it
    const char* reason;  // a part of the reason
    const wchar_t* outside = nullptr;  // where the entry would have landed outside the test's folder
};

void PrintTo(const Refusal& refusal, std::ostream* out) { *out << refusal.entry; }

class TarUnpackRefuses : public TarFolderTest, public ::testing::WithParamInterface<Refusal> {};

TEST_P(TarUnpackRefuses, TheWholeArchiveAndWritesNothing)
{
    const Refusal& refusal = GetParam();
    if (refusal.outside) {
        ASSERT_EQ(::GetFileAttributesW(refusal.outside), INVALID_FILE_ATTRIBUTES) << "left over from elsewhere";
    }
    EXPECT_EQ(unpack(refusal.archive), TarResult::UnsafeEntry) << why;
    EXPECT_THAT(why, HasSubstr(std::string("entry ") + refusal.entry + " is refused: "));
    EXPECT_THAT(why, HasSubstr(refusal.reason));
    expectUntouched();
    if (refusal.outside) {
        EXPECT_EQ(::GetFileAttributesW(refusal.outside), INVALID_FILE_ATTRIBUTES);
    }
}

const Refusal kRefusals[] = {
    {L"bad_name_dotdot.tar", "'../escaped.txt'", "it holds a '..' part"},
    {L"bad_name_inner_dotdot.tar", "'a/../../escaped.txt'", "it holds a '..' part"},
    {L"bad_name_harmless_dotdot.tar", "'gooddir/../inside.txt'", "it holds a '..' part"},
    {L"bad_name_folder_dotdot.tar", "'gooddir/../../escaped/'", "it holds a '..' part"},
    {L"bad_name_gnu_dotdot.tar", "'../escaped.txt'", "it holds a '..' part"},
    {L"bad_name_not_utf8.tar", "after entry 'gooddir/inner.txt'", "its name is not valid UTF-8"},
    {L"bad_name_absolute.tar", "'/abs.txt'", "it is an absolute name", L"\\abs.txt"},
    {L"bad_name_backslash_absolute.tar", "'\\abs.txt'", "it is an absolute name", L"\\abs.txt"},
    {L"bad_name_drive.tar", "'C:/escaped.txt'", "it names a drive", L"C:\\escaped.txt"},
    {L"bad_name_drive_relative.tar", "'C:escaped.txt'", "it names a drive", L"C:escaped.txt"},
    {L"bad_name_unc.tar", "'\\\\server\\share\\escaped.txt'", "it is a UNC name"},
    {L"bad_name_gnu_unc.tar", "'\\\\server\\share\\escaped.txt'", "it is a UNC name"},
    {L"bad_name_unc_slash.tar", "'//server/share/escaped.txt'", "it is a UNC name"},
    {L"bad_name_backslash_dotdot.tar", "'a\\..\\..\\escaped.txt'", "it holds a backslash"},
    {L"bad_name_question.tar", "'what?.txt'", "the character '?', which Windows refuses"},
    {L"bad_name_less.tar", "'a<b.txt'", "the character '<'"},
    {L"bad_name_greater.tar", "'a>b.txt'", "the character '>'"},
    {L"bad_name_pipe.tar", "'a|b.txt'", "the character '|'"},
    {L"bad_name_quote.tar", "'a\"b.txt'", "the character '\"'"},
    {L"bad_name_star.tar", "'a*b.txt'", "the character '*'"},
    {L"bad_name_control.tar", "'a\\x01b.txt'", "the control character \\x01"},
    {L"bad_name_stream.tar", "'good.txt:hidden'", "the character ':'"},
    {L"bad_name_trailing_dot.tar", "'gooddir/name.'", "ends in a dot or a space"},
    {L"bad_name_trailing_space.tar", "'name '", "ends in a dot or a space"},
    {L"bad_name_device_con.tar", "'CON'", "'CON', is a device name"},
    {L"bad_name_device_nul_ext.tar", "'gooddir/nul.txt'", "'nul.txt', is a device name"},
    {L"bad_name_device_com1.tar", "'com1'", "is a device name"},
    {L"bad_name_device_lpt9_folder.tar", "'LPT9/x.txt'", "'LPT9', is a device name"},
    {L"bad_name_device_aux_space.tar", "'aux .txt'", "is a device name"},
    {L"bad_symlink_out.tar", "'link'", "it is a symbolic link to '../../outside.txt', and no link is unpacked"},
    {L"bad_symlink_absolute.tar", "'link'", "it is a symbolic link to 'C:/Windows/win.ini'"},
    {L"bad_symlink_in.tar", "'link'", "it is a symbolic link to 'gooddir/inner.txt', and no link is unpacked"},
    {L"bad_hardlink_out.tar", "'hardlink.txt'", "it is a hard link to '../outside.txt', and no link is unpacked"},
    {L"bad_hardlink_in.tar", "'hardlink.txt'", "it is a hard link to 'good.txt'"},
    {L"bad_fifo.tar", "'fifo'", "it is a FIFO"},
    {L"bad_chardev.tar", "'chardev'", "it is a character device"},
    {L"bad_blockdev.tar", "'blockdev'", "it is a block device"},
    {L"bad_file_then_folder.tar", "'good.txt/inside.txt'", "the archive holds 'good.txt' both as a file and as a folder"},
    {L"bad_folder_then_file.tar", "'gooddir'", "the archive holds 'gooddir' both as a file and as a folder"},
};

INSTANTIATE_TEST_SUITE_P(Entries, TarUnpackRefuses, ::testing::ValuesIn(kRefusals));

class TarUnpackWhy : public TarFolderTest {};

TEST_F(TarUnpackWhy, VeryLongNameIsCutShort)
{
    EXPECT_EQ(unpack(L"bad_name_very_long.tar"), TarResult::UnsafeEntry);
    EXPECT_EQ(why, "entry '" + std::string(300, 'l') + "...' is refused: a part of it is longer than the 255 characters Windows allows");
    expectUntouched();
}

TEST_F(TarUnpackWhy, LongNameIsCutBetweenCharacters)
{
    EXPECT_EQ(unpack(L"bad_name_long_utf8.tar"), TarResult::UnsafeEntry);
    std::string shown = "x";
    for (int i = 0; i < 149; ++i)
        shown += "\xc3\xa9";  // U+00E9 in UTF-8: 299 bytes, the 300th would split the next one
    EXPECT_EQ(why, "entry '" + shown + "...' is refused: it holds a '..' part");
    expectUntouched();
}

// --- Archives that can't be read ------------------------------------------------------

class TarUnpackUnreadable : public TarFolderTest {};

TEST_F(TarUnpackUnreadable, TruncatedInAnEntrysDataWritesNothing)
{
    EXPECT_EQ(unpack(L"bad_truncated_data.tar"), TarResult::Unreadable);
    EXPECT_THAT(why, HasSubstr("the archive is truncated or damaged in entry 'second.bin': "));
    expectUntouched();
}

TEST_F(TarUnpackUnreadable, TruncatedFarIntoABigEntryWritesNothing)
{
    EXPECT_EQ(unpack(L"bad_truncated_big.tar"), TarResult::Unreadable);
    EXPECT_THAT(why, HasSubstr("the archive is truncated or damaged in entry 'big.bin': "));
    expectUntouched();
}

TEST_F(TarUnpackUnreadable, TruncatedInAHeaderWritesNothing)
{
    EXPECT_EQ(unpack(L"bad_truncated_header.tar"), TarResult::Unreadable);
    EXPECT_THAT(why, HasSubstr("damaged after entry 'first.txt': "));
    expectUntouched();
}

TEST_F(TarUnpackUnreadable, HeaderWithAWrongChecksumWritesNothing)
{
    EXPECT_EQ(unpack(L"bad_checksum.tar"), TarResult::Unreadable);
    EXPECT_THAT(why, HasSubstr("damaged after entry 'first.txt': "));
    expectUntouched();
}

TEST_F(TarUnpackUnreadable, FileThatIsNoTarArchive)
{
    EXPECT_EQ(unpack(L"not_a_tar.bin"), TarResult::Unreadable);
    EXPECT_THAT(why, HasSubstr("the archive is not a tar archive or is damaged at its start: "));
    expectUntouched();
}

TEST_F(TarUnpackUnreadable, EmptyFile)
{
    EXPECT_EQ(unpack(L"zero_bytes.bin"), TarResult::Unreadable);
    EXPECT_THAT(why, HasSubstr("the archive is not a tar archive or is damaged at its start: "));
    expectUntouched();
}

TEST_F(TarUnpackUnreadable, CompressedArchive)
{
    EXPECT_EQ(unpack(L"compressed.tar.gz"), TarResult::Unreadable);
    EXPECT_THAT(why, HasSubstr("the archive is not a tar archive or is damaged at its start: "));
    expectUntouched();
}

TEST_F(TarUnpackUnreadable, MissingArchive)
{
    EXPECT_EQ(unpack(L"no-such-archive.tar"), TarResult::Unreadable);
    EXPECT_THAT(why, HasSubstr("no-such-archive.tar' can't be opened (error 2)"));
    expectUntouched();
}

// --- Destinations that can't take the archive ----------------------------------------

class TarUnpackWriteFailed : public TarFolderTest {};

TEST_F(TarUnpackWriteFailed, MissingDestinationIsNotMade)
{
    const std::wstring missing = root() + L"\\missing";
    EXPECT_EQ(mirel::unpackTar(fixture(L"ok_plain.tar"), missing, why), TarResult::WriteFailed);
    EXPECT_THAT(why, HasSubstr("\\missing' can't be found (error 2)"));
    expectUntouched();
}

TEST_F(TarUnpackWriteFailed, DestinationThatIsAFile)
{
    EXPECT_EQ(mirel::unpackTar(fixture(L"ok_plain.tar"), destination + L"\\before.txt", why), TarResult::WriteFailed);
    EXPECT_THAT(why, HasSubstr("\\before.txt' is not a folder"));
    expectUntouched();
}

TEST_F(TarUnpackWriteFailed, FileWhereAFolderGoesStopsBeforeAnyWrite)
{
    writeFile(destination + L"\\taken", "a file\n");
    EXPECT_EQ(unpack(L"file_where_folder.tar"), TarResult::WriteFailed);
    EXPECT_THAT(why, HasSubstr("entry 'taken/inner.txt' can't be written: it needs '"));
    EXPECT_THAT(why, HasSubstr("\\taken' as a folder, but that is a file"));
    const Listing expected{{L"taken", "a file\n"}};
    EXPECT_EQ(unpacked(), expected);
}

TEST_F(TarUnpackWriteFailed, FolderWhereAFileGoesStopsBeforeAnyWrite)
{
    ASSERT_TRUE(::CreateDirectoryW((destination + L"\\locked.txt").c_str(), nullptr));
    EXPECT_EQ(unpack(L"two_files.tar"), TarResult::WriteFailed);
    EXPECT_THAT(why, HasSubstr("entry 'locked.txt' can't be written: '"));
    EXPECT_THAT(why, HasSubstr("\\locked.txt' is a folder"));
    const Listing expected{{L"locked.txt", kFolder}};
    EXPECT_EQ(unpacked(), expected);
}

TEST_F(TarUnpackWriteFailed, ArchiveInTheDestinationIsNotReplacedByItsOwnEntry)
{
    const std::string archive = readFile(fixture(L"self_named.tar"));
    ASSERT_GT(archive.size(), 1024u);
    writeFile(destination + L"\\self.tar", archive);
    EXPECT_EQ(mirel::unpackTar(destination + L"\\self.tar", destination, why), TarResult::WriteFailed);
    EXPECT_THAT(why, HasSubstr("entry 'self.tar' can't be written: it would replace the archive being unpacked"));
    const Listing expected{{L"self.tar", archive}};
    EXPECT_EQ(unpacked(), expected);
}

TEST_F(TarUnpackWriteFailed, FileHeldOpenByAnotherProgramIsLeftAsItWas)
{
    const std::wstring locked = destination + L"\\locked.txt";
    writeFile(locked, "old\n");
    HANDLE holder = ::CreateFileW(locked.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(holder, INVALID_HANDLE_VALUE);
    const TarResult result = unpack(L"two_files.tar");
    ::CloseHandle(holder);
    EXPECT_EQ(result, TarResult::WriteFailed);
    EXPECT_THAT(why, HasSubstr("entry 'locked.txt' can't be written: '"));
    EXPECT_THAT(why, HasSubstr("\\locked.txt' can't be created (error 32)"));
    // Found only while writing: the entry before it is there.
    const Listing expected{{L"first.txt", "first\n"}, {L"locked.txt", "old\n"}};
    EXPECT_EQ(unpacked(), expected);
}

}  // namespace
