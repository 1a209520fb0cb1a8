// The block behind a corestring handle: header layout, guards, growth, the
// wipe mark, binary content, assignment and appending.
#include "core/string/corestring.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

using CORE::coreException;
using CORE::corestring;
using CORE::coremstring;

namespace {

// Byte offsets of the header fields, counted back from the handle.
constexpr int kOffLength = 28;
constexpr int kOffCapacity = 20;
constexpr int kOffGuardHead = 12;
constexpr int kOffFlags = 8;
constexpr int kOffGuardMid = 6;
constexpr int kOffByteLength = 4;

template <class T> T fieldAt(const void* handle, int offsetBack)
{
    T value;
    std::memcpy(&value, static_cast<const char*>(handle) - offsetBack, sizeof value);
    return value;
}

template <class T> void setFieldAt(void* handle, int offsetBack, T value)
{
    std::memcpy(static_cast<char*>(handle) - offsetBack, &value, sizeof value);
}

template <class S> std::uint64_t rawLength(const S& s) { return fieldAt<std::uint64_t>(s.handle(), kOffLength); }
template <class S> std::uint64_t rawCapacity(const S& s) { return fieldAt<std::uint64_t>(s.handle(), kOffCapacity); }
template <class S> std::uint32_t rawByteLength(const S& s) { return fieldAt<std::uint32_t>(s.handle(), kOffByteLength); }
template <class S> std::uint16_t rawFlags(const S& s) { return fieldAt<std::uint16_t>(s.handle(), kOffFlags); }

// The guard directly behind the capacity plus one characters.
template <class S> std::uint32_t tailGuard(const S& s)
{
    std::uint32_t g;
    std::memcpy(&g, s.handle() + rawCapacity(s) + 1, sizeof g);
    return g;
}

// A handle that owns nothing, put into an object whose block is gone or
// mustn't be released twice.
template <class S> void forgetHandle(S& s)
{
    void* none = nullptr;
    std::memcpy(static_cast<void*>(&s), &none, sizeof none);
}

std::wstring text(const corestring& s) { return std::wstring(s.c_str(), s.length()); }

// Stands in for the string's memory while alive: counts what is asked for,
// can fail on demand, and can keep given-back blocks so that their bytes can
// still be read after release.
class MemorySpy {
public:
    MemorySpy() : m_saved(CORE::g_corestringMemory)
    {
        s_active = this;
        CORE::g_corestringMemory = {&MemorySpy::allocate, &MemorySpy::reallocate, &MemorySpy::free};
    }
    ~MemorySpy()
    {
        CORE::g_corestringMemory = m_saved;
        s_active = nullptr;
        for (void* block : kept)
            std::free(block);
    }
    MemorySpy(const MemorySpy&) = delete;
    MemorySpy& operator=(const MemorySpy&) = delete;

    int allocations = 0;
    int reallocations = 0;
    int frees = 0;
    std::vector<std::size_t> allocationSizes;
    bool fail = false;       // every allocate and reallocate returns null
    bool keepFreed = false;  // given-back blocks stay readable until the spy ends
    std::vector<void*> kept;
    std::function<void(const void* block, std::size_t newSize)> beforeReallocate;

private:
    static void* allocate(std::size_t bytes)
    {
        MemorySpy& s = *s_active;
        ++s.allocations;
        s.allocationSizes.push_back(bytes);
        return s.fail ? nullptr : std::malloc(bytes);
    }
    static void* reallocate(void* block, std::size_t bytes)
    {
        MemorySpy& s = *s_active;
        ++s.reallocations;
        if (s.beforeReallocate)
            s.beforeReallocate(block, bytes);
        return s.fail ? nullptr : std::realloc(block, bytes);
    }
    static void free(void* block)
    {
        MemorySpy& s = *s_active;
        ++s.frees;
        if (s.keepFreed)
            s.kept.push_back(block);
        else
            std::free(block);
    }

    inline static MemorySpy* s_active = nullptr;
    CORE::corestring_memory m_saved;
};

const void* blockOf(const void* handle) { return static_cast<const char*>(handle) - kOffLength; }

}  // namespace

// ---------------------------------------------------------------- layout

TEST(corestring, EmptyStringHasNullHandle)
{
    corestring s;
    EXPECT_EQ(nullptr, s.handle());
    EXPECT_EQ(0u, s.length());
    EXPECT_EQ(0u, s.capacity());
    EXPECT_STREQ(L"", s.c_str());
}

TEST(corestring, ConstructFromNullOrZeroLengthAllocatesNothing)
{
    MemorySpy spy;
    corestring fromNull(nullptr);
    corestring fromEmpty(L"");
    corestring fromZeroLength(L"abc", 0);
    corestring fromNullWithLength(nullptr, 5);
    EXPECT_EQ(nullptr, fromNull.handle());
    EXPECT_EQ(nullptr, fromEmpty.handle());
    EXPECT_EQ(nullptr, fromZeroLength.handle());
    EXPECT_EQ(nullptr, fromNullWithLength.handle());
    EXPECT_EQ(0, spy.allocations);
}

TEST(corestring, ConstructFromTextHasExactCapacity)
{
    corestring whole(L"hello");
    EXPECT_EQ(5u, whole.length());
    EXPECT_EQ(5u, whole.capacity());
    EXPECT_EQ(L"hello", text(whole));

    corestring part(L"hello", 3);
    EXPECT_EQ(3u, part.capacity());
    EXPECT_EQ(L"hel", text(part));
    EXPECT_EQ(L'\0', part.handle()[3]);
}

TEST(corestring, HeaderLiesDirectlyInFrontOfTheCharacters)
{
    corestring s(L"hello");
    EXPECT_EQ(5u, rawLength(s));
    EXPECT_EQ(5u, rawCapacity(s));
    EXPECT_EQ(0xFAFAFAFAu, fieldAt<std::uint32_t>(s.handle(), kOffGuardHead));
    EXPECT_EQ(0u, rawFlags(s));
    EXPECT_EQ(0xFBFBu, fieldAt<std::uint16_t>(s.handle(), kOffGuardMid));
    EXPECT_EQ(10u, rawByteLength(s));
    EXPECT_EQ(L'\0', s.handle()[5]);
    EXPECT_EQ(0xFCFCFCFCu, tailGuard(s));
}

TEST(corestring, TailGuardFollowsCapacityNotLength)
{
    corestring s(L"abc");
    s.append(L"d");  // grows with a margin
    ASSERT_EQ(132u, rawCapacity(s));
    EXPECT_EQ(4u, rawLength(s));
    EXPECT_EQ(L'\0', s.handle()[4]);
    std::uint32_t g;
    std::memcpy(&g, s.handle() + 133, sizeof g);
    EXPECT_EQ(0xFCFCFCFCu, g);
}

TEST(corestring, NarrowHeaderCountsBytes)
{
    coremstring s("hello");
    EXPECT_EQ(5u, rawLength(s));
    EXPECT_EQ(5u, rawCapacity(s));
    EXPECT_EQ(5u, rawByteLength(s));
    EXPECT_EQ('\0', s.handle()[5]);
    EXPECT_EQ(0xFCFCFCFCu, tailGuard(s));
}

// ---------------------------------------------------------------- release

TEST(corestring, WritingOnePastCapacityIsCaughtAtRelease)
{
    corestring s(L"abc");
    wchar_t* p = s.handle();
    wchar_t saved = p[4];
    p[4] = L'X';  // index capacity + 1: the first half of the trailing guard
    try {
        s.release();
        FAIL() << "an overrun went unnoticed";
    } catch (const coreException& e) {
        EXPECT_EQ(0u, e.code());
        EXPECT_STREQ(L"CORESTRING CORRUPTION", e.text());
    }
    // The failed check kept the block; mend the guard so it goes back cleanly.
    EXPECT_EQ(p, s.handle());
    p[4] = saved;
    EXPECT_NO_THROW(s.release());
    forgetHandle(s);
}

TEST(corestring, DamagedHeaderIsCaughtAtRelease)
{
    struct Damage {
        const char* what;
        int offset;
        std::uint32_t value;
        int size;
    };
    const Damage damages[] = {
        {"first guard", kOffGuardHead, 0xFAFAFAFBu, 4},
        {"second guard", kOffGuardMid, 0xFBFAu, 2},
        {"byteLength", kOffByteLength, 8u, 4},
    };
    for (const Damage& d : damages) {
        SCOPED_TRACE(d.what);
        corestring s(L"hello");
        char saved[4];
        char* at = reinterpret_cast<char*>(s.handle()) - d.offset;
        std::memcpy(saved, at, d.size);
        std::memcpy(at, &d.value, d.size);
        try {
            s.release();
            ADD_FAILURE() << "damage went unnoticed";
        } catch (const coreException& e) {
            EXPECT_STREQ(L"CORESTRING CORRUPTION", e.text());
        }
        std::memcpy(at, saved, d.size);
    }
}

TEST(corestring, ReleaseLeavesAllOnesInTheHandle)
{
    corestring s(L"abc");
    s.release();
    EXPECT_EQ(reinterpret_cast<wchar_t*>(~std::uintptr_t(0)), s.handle());
    forgetHandle(s);
}

TEST(corestring, ReleaseClearsHeaderAndTrailingGuard)
{
    MemorySpy spy;
    spy.keepFreed = true;
    corestring s(L"abc");
    const unsigned char* block = static_cast<const unsigned char*>(blockOf(s.handle()));
    const wchar_t* chars = s.handle();
    s.release();
    ASSERT_EQ(1u, spy.kept.size());
    EXPECT_EQ(static_cast<const void*>(block), spy.kept[0]);
    for (int i = 0; i < kOffLength; ++i)
        EXPECT_EQ(0, block[i]) << "header byte " << i;
    std::uint32_t g;
    std::memcpy(&g, chars + 4, sizeof g);
    EXPECT_EQ(0u, g);
    forgetHandle(s);
}

TEST(corestring, DoubleReleaseThroughRawCopyThrows)
{
    MemorySpy spy;
    spy.keepFreed = true;  // the cleared header stays readable, as it would be right after a free
    corestring first(L"abc");
    corestring second;
    std::memcpy(static_cast<void*>(&second), &first, sizeof first);
    first.release();
    try {
        second.release();
        ADD_FAILURE() << "a block was released twice without notice";
    } catch (const coreException& e) {
        EXPECT_EQ(0u, e.code());
        EXPECT_STREQ(L"CORESTRING CORRUPTION", e.text());
    }
    EXPECT_EQ(1, spy.frees);
    forgetHandle(first);
    forgetHandle(second);
}

TEST(corestringDeathTest, CorruptionFoundByTheDestructorEndsTheProcess)
{
    // Nothing may catch a corruption that a scope's end finds.
    EXPECT_DEATH(
        {
            corestring s(L"abc");
            s.handle()[4] = L'X';
        },
        "coreException");
}

// ---------------------------------------------------------------- wipe mark

TEST(corestring, WipeMarkZeroesCharactersAtRelease)
{
    MemorySpy spy;
    spy.keepFreed = true;
    corestring marked(L"secret");
    marked.setWipeMark(true);
    EXPECT_EQ(1u, rawFlags(marked));
    corestring plain(L"public");
    const wchar_t* markedChars = marked.handle();
    const wchar_t* plainChars = plain.handle();
    marked.release();
    plain.release();
    EXPECT_EQ(0, std::memcmp(markedChars, L"\0\0\0\0\0\0", 6 * sizeof(wchar_t)));
    EXPECT_EQ(0, std::memcmp(plainChars, L"public", 6 * sizeof(wchar_t)));
    forgetHandle(marked);
    forgetHandle(plain);
}

TEST(corestring, WipeMarkZeroesCutOffCharactersOnShrink)
{
    corestring s;
    s.appendChar(L'x', 4000);
    s.append(L"y");
    ASSERT_EQ(6001u, s.capacity());
    s.setWipeMark(true);

    MemorySpy spy;
    std::vector<wchar_t> seen;
    spy.beforeReallocate = [&](const void* block, std::size_t) {
        const wchar_t* chars = reinterpret_cast<const wchar_t*>(static_cast<const char*>(block) + kOffLength);
        seen.assign(chars, chars + 6002);
    };
    s.resize(100, false);
    ASSERT_EQ(1, spy.reallocations);
    ASSERT_EQ(6002u, seen.size());
    EXPECT_EQ(228u, s.capacity());
    for (std::size_t i = 0; i < 228; ++i)
        ASSERT_EQ(L'x', seen[i]) << "kept character " << i;
    for (std::size_t i = 228; i < 6002; ++i)
        ASSERT_EQ(L'\0', seen[i]) << "cut-off character " << i;
    EXPECT_TRUE(s.wipeMark());
    EXPECT_EQ(std::wstring(100, L'x'), text(s));
}

TEST(corestring, UnmarkedShrinkLeavesCutOffCharacters)
{
    corestring s;
    s.appendChar(L'x', 4000);
    s.append(L"y");
    MemorySpy spy;
    std::vector<wchar_t> seen;
    spy.beforeReallocate = [&](const void* block, std::size_t) {
        const wchar_t* chars = reinterpret_cast<const wchar_t*>(static_cast<const char*>(block) + kOffLength);
        seen.assign(chars, chars + 4001);
    };
    s.resize(100, false);
    ASSERT_EQ(4001u, seen.size());
    EXPECT_EQ(L'x', seen[3999]);
    EXPECT_EQ(L'y', seen[4000]);
}

TEST(corestring, AssignFromMarkedStringMarksDestination)
{
    corestring source(L"secret");
    source.setWipeMark(true);

    corestring copied(source);
    EXPECT_TRUE(copied.wipeMark());

    corestring assigned(L"other text");
    assigned = source;
    EXPECT_TRUE(assigned.wipeMark());
    EXPECT_EQ(L"secret", text(assigned));

    corestring plainSource(L"plain");
    corestring plainCopy(plainSource);
    EXPECT_FALSE(plainCopy.wipeMark());
}

TEST(corestring, AssignFromUnmarkedStringKeepsDestinationMark)
{
    corestring dest(L"secret");
    dest.setWipeMark(true);
    corestring source(L"plain");
    dest = source;
    EXPECT_TRUE(dest.wipeMark());
    EXPECT_FALSE(source.wipeMark());
}

TEST(corestring, AssignFromRawTextDoesNotMark)
{
    corestring s;
    s.assign(L"abc", 3);
    EXPECT_FALSE(s.wipeMark());
}

TEST(corestring, ReplaceRangeKeepsWipeMark)
{
    corestring s(L"password=hunter2");
    s.setWipeMark(true);
    s.replaceRange(9, 7, L"******");
    EXPECT_EQ(L"password=******", text(s));
    EXPECT_TRUE(s.wipeMark());
}

// ---------------------------------------------------------------- binary

TEST(corestring, SetBinaryOddByteCountRoundsLengthUp)
{
    const unsigned char bytes[] = {'A', 0, 'B', 0, 'C'};
    corestring s;
    s.setBinary(bytes, sizeof bytes);
    ASSERT_NE(nullptr, s.handle());
    EXPECT_EQ(3u, s.length());
    EXPECT_EQ(3u, s.capacity());
    EXPECT_TRUE(s.isBinary());
    EXPECT_EQ(0x80000005u, rawByteLength(s));
    EXPECT_EQ(0, std::memcmp(s.handle(), bytes, sizeof bytes));
    EXPECT_EQ(L'C', s.handle()[2]);  // the missing high byte is zero
    EXPECT_EQ(L'\0', s.handle()[3]);
    EXPECT_EQ(0xFCFCFCFCu, tailGuard(s));
}

TEST(corestring, SetBinaryKeepsZeroBytes)
{
    const unsigned char bytes[] = {0, 0, 7, 0, 0, 0};
    corestring s;
    s.setBinary(bytes, sizeof bytes);
    EXPECT_EQ(3u, s.length());
    EXPECT_EQ(0x80000006u, rawByteLength(s));
    EXPECT_EQ(0, std::memcmp(s.handle(), bytes, sizeof bytes));
}

TEST(corestring, SetBinaryWithZeroBytesKeepsABlock)
{
    corestring s;
    s.setBinary("", 0);
    ASSERT_NE(nullptr, s.handle());
    EXPECT_EQ(0u, s.length());
    EXPECT_EQ(0x80000000u, rawByteLength(s));
    EXPECT_NO_THROW(s.release());
    forgetHandle(s);
}

TEST(corestring, SetBinaryReplacesExistingTextWithExactCapacity)
{
    corestring s(L"abc");
    s.append(L"defgh");  // capacity with margin
    ASSERT_GT(s.capacity(), 8u);
    const unsigned char bytes[] = {1, 2, 3};
    s.setBinary(bytes, 3);
    EXPECT_EQ(2u, s.length());
    EXPECT_EQ(2u, s.capacity());
    EXPECT_EQ(0x80000003u, rawByteLength(s));
}

TEST(corestring, AssignOfBinaryStringCopiesByteLength)
{
    const unsigned char bytes[] = {'x', 0, 0, 'y', 'z'};
    corestring source;
    source.setBinary(bytes, sizeof bytes);

    corestring dest(L"a much longer text than the source");
    dest = source;
    EXPECT_NE(source.handle(), dest.handle());
    EXPECT_EQ(3u, dest.length());
    EXPECT_EQ(3u, dest.capacity());
    EXPECT_EQ(0x80000005u, rawByteLength(dest));
    EXPECT_EQ(0, std::memcmp(dest.handle(), bytes, sizeof bytes));

    corestring constructed(source);
    EXPECT_EQ(0x80000005u, rawByteLength(constructed));
}

TEST(corestring, BinaryStringReleasesCleanly)
{
    const unsigned char bytes[] = {0xFF, 0xFE, 0xFD};
    corestring s;
    s.setBinary(bytes, sizeof bytes);
    EXPECT_NO_THROW(s.release());
    forgetHandle(s);
}

TEST(corestring, AppendToBinaryStringMakesItText)
{
    const unsigned char bytes[] = {'a', 0, 'b'};
    corestring s;
    s.setBinary(bytes, sizeof bytes);
    s.append(L"c");
    EXPECT_FALSE(s.isBinary());
    EXPECT_EQ(6u, rawByteLength(s));
}

// ---------------------------------------------------------------- resize

TEST(corestring, ResizeToZeroReleasesTheBlock)
{
    MemorySpy spy;
    corestring s(L"abc");
    s.resize(0, false);
    EXPECT_EQ(nullptr, s.handle());
    EXPECT_EQ(1, spy.frees);
}

TEST(corestring, FirstAllocationHasNoSpareRoom)
{
    corestring s;
    s.resize(10, false);
    EXPECT_EQ(10u, s.capacity());
    EXPECT_EQ(10u, s.length());
    EXPECT_EQ(L'\0', s.handle()[10]);
}

TEST(corestring, GrowthAddsHalfTheLengthOrAtLeast128)
{
    corestring small(L"abc");
    small.resize(4, false);
    EXPECT_EQ(4u + 128u, small.capacity());

    corestring large(std::wstring(1000, L'a').c_str());
    large.resize(1001, false);
    EXPECT_EQ(1001u + 500u, large.capacity());
}

TEST(corestring, GrowsWithMarginAndShrinksBackWhenFarTooLarge)
{
    corestring s(std::wstring(4000, L'a').c_str());
    ASSERT_EQ(4000u, s.capacity());
    s.append(L"b");
    EXPECT_EQ(6001u, s.capacity());

    MemorySpy spy;
    s.appendChar(L'c', 2000);
    EXPECT_EQ(0, spy.reallocations);
    EXPECT_EQ(6001u, s.length());
    EXPECT_EQ(6001u, s.capacity());

    s.resize(100, false);
    EXPECT_EQ(1, spy.reallocations);
    EXPECT_EQ(228u, s.capacity());
    EXPECT_EQ(std::wstring(100, L'a'), text(s));
}

TEST(corestring, ResizeKeepsBlockWithinTwiceTheMargin)
{
    corestring s(std::wstring(4000, L'a').c_str());
    s.append(L"b");
    ASSERT_EQ(6001u, s.capacity());

    MemorySpy spy;
    s.resize(3001, false);  // 3001 + 2 * 1500 == 6001: kept
    EXPECT_EQ(0, spy.reallocations);
    EXPECT_EQ(6001u, s.capacity());
    s.resize(3000, false);  // 3000 + 2 * 1500 < 6001: shrinks
    EXPECT_EQ(1, spy.reallocations);
    EXPECT_EQ(4500u, s.capacity());
}

TEST(corestring, ExactResizeSetsCapacityExactly)
{
    corestring s(L"abc");
    s.append(L"d");
    ASSERT_EQ(132u, s.capacity());
    MemorySpy spy;
    s.resize(10, true);
    EXPECT_EQ(10u, s.capacity());
    EXPECT_EQ(1, spy.reallocations);
    s.resize(10, true);
    EXPECT_EQ(1, spy.reallocations);
    s.resize(12, true);
    EXPECT_EQ(12u, s.capacity());
    EXPECT_EQ(2, spy.reallocations);
}

TEST(corestring, ResizeSetsLengthByteLengthAndTerminatorAndKeepsText)
{
    corestring s(L"abcdef");
    s.resize(3, false);
    EXPECT_EQ(L"abc", text(s));
    EXPECT_EQ(L'\0', s.handle()[3]);
    EXPECT_EQ(6u, rawByteLength(s));
    s.resize(5, false);
    EXPECT_EQ(5u, s.length());
    EXPECT_EQ(10u, rawByteLength(s));
    EXPECT_EQ(L'\0', s.handle()[5]);
    EXPECT_EQ(0, std::wmemcmp(s.handle(), L"abc", 3));
}

TEST(corestring, ResizeOfBinaryStringClearsTheBinaryBit)
{
    const unsigned char bytes[] = {1, 2, 3, 4, 5};
    corestring s;
    s.setBinary(bytes, sizeof bytes);
    s.resize(2, false);
    EXPECT_EQ(4u, rawByteLength(s));
}

TEST(corestring, ResizeToHugeLengthThrowsOutOfMemAndKeepsTheString)
{
    corestring s(L"keep me");
    wchar_t* before = s.handle();
    try {
        s.resize(std::uint64_t(1) << 60, false);
        FAIL() << "a huge block was handed out";
    } catch (const coreException& e) {
        EXPECT_EQ(0u, e.code());
        EXPECT_STREQ(L"OutOfMem", e.text());
    }
    EXPECT_EQ(before, s.handle());
    EXPECT_EQ(L"keep me", text(s));
    EXPECT_EQ(7u, s.capacity());

    corestring empty;
    EXPECT_THROW(empty.resize(std::uint64_t(1) << 60, true), coreException);
    EXPECT_EQ(nullptr, empty.handle());
}

TEST(corestring, ResizeWhoseBlockSizeWouldWrapThrowsOutOfMem)
{
    corestring s;
    try {
        s.resize(std::uint64_t(1) << 63, false);
        FAIL() << "the block size wrapped round";
    } catch (const coreException& e) {
        EXPECT_STREQ(L"OutOfMem", e.text());
    }
    EXPECT_EQ(nullptr, s.handle());
    corestring t(L"x");
    EXPECT_THROW(t.resize(~std::uint64_t(0) - 1, true), coreException);
    EXPECT_EQ(L"x", text(t));
}

TEST(corestring, FailedGrowthLeavesTheStringAsItWas)
{
    corestring s(L"abc");
    MemorySpy spy;
    spy.fail = true;
    try {
        s.append(L"def");
        FAIL() << "the allocation failure was swallowed";
    } catch (const coreException& e) {
        EXPECT_STREQ(L"OutOfMem", e.text());
    }
    spy.fail = false;
    EXPECT_EQ(L"abc", text(s));
    EXPECT_EQ(3u, s.capacity());
    EXPECT_EQ(0xFCFCFCFCu, tailGuard(s));
}

// ---------------------------------------------------------------- assign

TEST(corestring, SelfAssignmentChangesNothing)
{
    corestring s(L"abc");
    wchar_t* before = s.handle();
    corestring& alias = s;
    s = alias;
    EXPECT_EQ(before, s.handle());
    EXPECT_EQ(L"abc", text(s));
}

TEST(corestring, AssignFromEmptyReleasesTheBlock)
{
    corestring s(L"abc");
    MemorySpy spy;
    corestring empty;
    s = empty;
    EXPECT_EQ(nullptr, s.handle());
    EXPECT_EQ(1, spy.frees);

    corestring t(L"abc");
    t.assign(L"", 0);
    EXPECT_EQ(nullptr, t.handle());
    t = L"xyz";
    t = static_cast<const wchar_t*>(nullptr);
    EXPECT_EQ(nullptr, t.handle());
}

TEST(corestring, AssignCopiesAndGrowsWithMargin)
{
    corestring s(L"ab");
    corestring source(L"a longer text");
    s = source;
    EXPECT_EQ(L"a longer text", text(s));
    EXPECT_NE(source.handle(), s.handle());
    EXPECT_EQ(13u + 128u, s.capacity());
}

TEST(corestring, AssignFromOwnSubstringMovesTextDown)
{
    corestring s(L"abcdefg");
    s.assign(s.handle() + 2, 3);
    EXPECT_EQ(L"cde", text(s));
    EXPECT_EQ(L'\0', s.handle()[3]);
}

TEST(corestring, AssignFromOwnTailMayTakeTheTerminator)
{
    corestring s(L"abcdefg");
    // 7 - 2 + 1 = 6 characters: the tail and its terminator.
    EXPECT_NO_THROW(s.assign(s.handle() + 2, 6));
    EXPECT_EQ(6u, s.length());
    EXPECT_EQ(0, std::wmemcmp(s.handle(), L"cdefg", 6));
}

TEST(corestring, AssignFromOwnSubstringBeyondTheEndThrowsOverrun)
{
    corestring s(L"abcdefg");
    try {
        s.assign(s.handle() + 2, 7);
        FAIL() << "an overlapping overrun was allowed";
    } catch (const coreException& e) {
        EXPECT_EQ(0u, e.code());
        EXPECT_STREQ(L"buffer overrun in overlapping data", e.text());
    }
    EXPECT_EQ(L"abcdefg", text(s));
}

TEST(corestring, AssignWithLengthMinusOneReadsToTheTerminator)
{
    corestring s;
    s.assign(L"hello", corestring::npos);
    EXPECT_EQ(L"hello", text(s));
}

TEST(corestring, MoveLeavesTheSourceEmpty)
{
    corestring a(L"abc");
    wchar_t* handle = a.handle();
    corestring b(std::move(a));
    EXPECT_EQ(handle, b.handle());
    EXPECT_EQ(nullptr, a.handle());
    corestring c(L"old");
    c = std::move(b);
    EXPECT_EQ(handle, c.handle());
    EXPECT_EQ(nullptr, b.handle());
}

TEST(corestring, SwapExchangesHandles)
{
    corestring a(L"a");
    corestring b(L"b");
    wchar_t* ha = a.handle();
    wchar_t* hb = b.handle();
    a.swap(b);
    EXPECT_EQ(hb, a.handle());
    EXPECT_EQ(ha, b.handle());
}

// ---------------------------------------------------------------- append

TEST(corestring, AppendWithinCapacityKeepsTheBlock)
{
    corestring s(L"abc");
    s.append(L"d");
    ASSERT_EQ(132u, s.capacity());
    MemorySpy spy;
    wchar_t* before = s.handle();
    s.append(L"efgh");
    EXPECT_EQ(0, spy.reallocations);
    EXPECT_EQ(0, spy.allocations);
    EXPECT_EQ(before, s.handle());
    EXPECT_EQ(L"abcdefgh", text(s));
    EXPECT_EQ(16u, rawByteLength(s));
    EXPECT_EQ(L'\0', s.handle()[8]);
}

TEST(corestring, FirstAppendToALiteralCopyReallocates)
{
    corestring s(L"abc");
    MemorySpy spy;
    s.append(L"d");
    EXPECT_EQ(1, spy.reallocations);
    EXPECT_EQ(L"abcd", text(s));
}

TEST(corestring, AppendOfNothingChangesNothing)
{
    corestring s(L"abc");
    MemorySpy spy;
    s.append(L"");
    s.append(nullptr);
    s.append(L"xyz", 0);
    corestring empty;
    s.append(empty);
    EXPECT_EQ(0, spy.allocations + spy.reallocations);
    EXPECT_EQ(L"abc", text(s));

    corestring none;
    none.append(L"");
    EXPECT_EQ(nullptr, none.handle());
}

TEST(corestring, AppendToEmptyStringAllocatesExactly)
{
    corestring s;
    s.append(L"hello");
    EXPECT_EQ(L"hello", text(s));
    EXPECT_EQ(5u, s.capacity());
}

TEST(corestring, AppendTakesAGivenLength)
{
    corestring s(L"ab");
    s.append(L"cdef", 2);
    corestring other(L"XY");
    s.append(other);
    EXPECT_EQ(L"abcdXY", text(s));
}

TEST(corestring, AppendCharRepeatsTheCharacter)
{
    corestring s(L"a");
    s.appendChar(L'-', 3);
    EXPECT_EQ(L"a---", text(s));
    s.appendChar(L'x', 0);
    EXPECT_EQ(L"a---", text(s));
}

TEST(corestring, AppendCharUpTo1024BytesNeedsNoWorkBuffer)
{
    corestring s;
    s.resize(2000, true);
    s.resize(1000, false);  // 1000 + 2 * 500 == 2000: the room is kept
    ASSERT_EQ(2000u, s.capacity());
    MemorySpy spy;
    s.appendChar(L'x', 512);
    EXPECT_EQ(0, spy.allocations);
    EXPECT_EQ(0, spy.reallocations);
    EXPECT_EQ(1512u, s.length());
    EXPECT_EQ(std::wstring(512, L'x'), text(s).substr(1000));
}

TEST(corestring, AppendCharBeyond1024BytesUsesAHeapWorkBuffer)
{
    corestring s;
    s.resize(2000, true);
    s.resize(1000, false);
    ASSERT_EQ(2000u, s.capacity());
    MemorySpy spy;
    s.appendChar(L'y', 513);
    ASSERT_EQ(1, spy.allocations);
    EXPECT_EQ(513u * sizeof(wchar_t), spy.allocationSizes[0]);
    EXPECT_EQ(1, spy.frees);
    EXPECT_EQ(0, spy.reallocations);
    EXPECT_EQ(std::wstring(513, L'y'), text(s).substr(1000));
}

TEST(corestring, AppendCharWorkBufferFailureThrowsOutOfMem)
{
    corestring s(L"abc");
    MemorySpy spy;
    spy.fail = true;
    EXPECT_THROW(s.appendChar(L'z', 5000), coreException);
    spy.fail = false;
    EXPECT_EQ(L"abc", text(s));
}

TEST(corestring, NarrowAppendCharSwitchesToTheHeapPast1024Characters)
{
    coremstring s;
    s.resize(6000, true);
    s.resize(3000, false);
    ASSERT_EQ(6000u, s.capacity());
    MemorySpy spy;
    s.appendChar('a', 1024);
    EXPECT_EQ(0, spy.allocations);
    s.appendChar('b', 1025);
    ASSERT_EQ(1, spy.allocations);
    EXPECT_EQ(1025u, spy.allocationSizes[0]);
    EXPECT_EQ(0, spy.reallocations);
    EXPECT_EQ(5049u, s.length());
    EXPECT_EQ('a', s.handle()[4023]);
    EXPECT_EQ('b', s.handle()[4024]);
    EXPECT_EQ('b', s.handle()[5048]);
}

TEST(corestring, FailedWorkBufferLeavesFormatOutputAsItWas)
{
    corestring out(L"before");
    MemorySpy spy;
    spy.fail = true;
    try {
        corestring::format(out, L"%s", L"after");
        FAIL() << "the work buffer's failure was swallowed";
    } catch (const coreException& e) {
        EXPECT_STREQ(L"OutOfMem", e.text());
    }
    spy.fail = false;
    EXPECT_EQ(L"before", text(out));
}

TEST(corestring, FormatReleasesItsWorkBuffers)
{
    corestring out;
    MemorySpy spy;
    corestring::format(out, L"%20000d", 1);  // 8192, 16384 and 32768 characters
    ASSERT_EQ(4, spy.allocations);
    EXPECT_EQ(8192u * sizeof(wchar_t), spy.allocationSizes[0]);
    EXPECT_EQ(16384u * sizeof(wchar_t), spy.allocationSizes[1]);
    EXPECT_EQ(32768u * sizeof(wchar_t), spy.allocationSizes[2]);
    EXPECT_EQ(3, spy.frees);  // the result's block stays
    EXPECT_EQ(20000u, out.length());
}

TEST(corestring, ConversionWorkBufferFailureThrowsOutOfMem)
{
    MemorySpy spy;
    spy.fail = true;
    try {
        CORE::to_mstr(L"abc", 3, 65001);
        FAIL() << "the work buffer's failure was swallowed";
    } catch (const coreException& e) {
        EXPECT_STREQ(L"OutOfMem", e.text());
    }
    EXPECT_THROW(CORE::to_wstr("abc", 3, 65001), coreException);
    ASSERT_EQ(2u, spy.allocationSizes.size());
    EXPECT_EQ(3u * 4u, spy.allocationSizes[0]);             // three bytes a character, terminator included
    EXPECT_EQ(4u * sizeof(wchar_t), spy.allocationSizes[1]);  // one character a byte, terminator included
}
