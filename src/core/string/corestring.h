#pragma once
// The framework's string: one pointer to the characters, with a guarded header
// in front of them. A null handle is the empty string; a destroyed string
// holds all ones. Copying copies; there is no sharing.
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <memory>
#include <string>
#include <vector>

#include "core/string/coreexception.h"

namespace CORE {

#pragma pack(push, 4)
// Lies directly in front of the characters, so the length can be read from
// the handle alone.
struct corestring_header {
    std::uint64_t length;     // characters in use, without the terminator
    std::uint64_t capacity;   // characters the data area holds, without the terminator
    std::uint32_t guard1;     // 0xFAFAFAFA
    std::uint16_t flags;      // bit 0: wipe on release or cut
    std::uint16_t guard2;     // 0xFBFB
    std::uint32_t byteLength; // length * width; top bit: binary content, low bits exact bytes
};
#pragma pack(pop)
static_assert(sizeof(corestring_header) == 28, "the header is packed in front of the text");

constexpr std::uint32_t kGuardHead = 0xFAFAFAFAu;
constexpr std::uint16_t kGuardMid = 0xFBFBu;
constexpr std::uint32_t kGuardTail = 0xFCFCFCFCu;
constexpr std::uint32_t kBinaryBit = 0x80000000u;
constexpr std::uint16_t kWipeFlag = 0x0001u;

// Where blocks and work buffers come from and go back to. Tests swap these to
// look at what is given back, or to make an allocation fail.
struct corestring_memory {
    void* (*allocate)(std::size_t bytes);
    void* (*reallocate)(void* block, std::size_t bytes);
    void (*free)(void* block);
};
inline void* corestringAllocate(std::size_t bytes) { return std::malloc(bytes); }
inline void* corestringReallocate(void* block, std::size_t bytes) { return std::realloc(block, bytes); }
inline void corestringFree(void* block) { std::free(block); }
inline corestring_memory g_corestringMemory = {corestringAllocate, corestringReallocate, corestringFree};

// A work buffer from g_corestringMemory, given back when it goes out of scope.
struct corestring_memory_release {
    void operator()(void* block) const { g_corestringMemory.free(block); }
};
template <class T> using corestring_buffer = std::unique_ptr<T, corestring_memory_release>;

[[noreturn]] void throwCore(const wchar_t* text);
[[noreturn]] inline void throwOutOfMem() { throwCore(L"OutOfMem"); }

// The platform's text calls, one set per character width.
template <class C> struct corestring_text;

template <> struct corestring_text<wchar_t> {
    static const wchar_t* empty() { return L""; }
    static size_t len(const wchar_t* s) { return std::wcslen(s); }
    static size_t span(const wchar_t* s, const wchar_t* set) { return std::wcsspn(s, set); }
    static size_t cspan(const wchar_t* s, const wchar_t* set) { return std::wcscspn(s, set); }
    static const wchar_t* chr(const wchar_t* s, wchar_t c) { return std::wcschr(s, c); }
    static const wchar_t* str(const wchar_t* s, const wchar_t* n) { return std::wcsstr(s, n); }
    // CompareStringW, locale 1024, with explicit counts.
    static int compare(std::uint32_t flags, const wchar_t* a, int na, const wchar_t* b, int nb);
    static void lower(wchar_t* s, std::uint32_t n);  // CharLowerBuffW
    static long toLong(const wchar_t* s) { return std::wcstol(s, nullptr, 0); }
    static unsigned long toULong(const wchar_t* s) { return std::wcstoul(s, nullptr, 0); }
    static long long toInt64(const wchar_t* s);  // _wcstoi64, base 0
    static int vformat(wchar_t* buffer, size_t count, const wchar_t* format, va_list args);  // _vswprintf_p
};

template <> struct corestring_text<char> {
    static const char* empty() { return ""; }
    static size_t len(const char* s) { return std::strlen(s); }
    static size_t span(const char* s, const char* set) { return std::strspn(s, set); }
    static size_t cspan(const char* s, const char* set) { return std::strcspn(s, set); }
    static const char* chr(const char* s, char c) { return std::strchr(s, c); }
    static const char* str(const char* s, const char* n) { return std::strstr(s, n); }
    static int compare(std::uint32_t flags, const char* a, int na, const char* b, int nb);  // CompareStringA
    static void lower(char* s, std::uint32_t n);                                             // CharLowerBuffA
    static long toLong(const char* s) { return std::strtol(s, nullptr, 0); }
    static unsigned long toULong(const char* s) { return std::strtoul(s, nullptr, 0); }
    static long long toInt64(const char* s);  // _strtoi64, base 0
    static int vformat(char* buffer, size_t count, const char* format, va_list args);  // _vsprintf_p
};

template <class C> class basic_corestring {
    using T = corestring_text<C>;

public:
    static constexpr std::uint64_t npos = ~std::uint64_t(0);
    static constexpr std::uint32_t width = sizeof(C);
    // The four characters trimmed throughout the program.
    static constexpr C blanks[] = {C(' '), C('\t'), C('\r'), C('\n'), C(0)};

    constexpr basic_corestring() noexcept : m_p(nullptr) {}
    basic_corestring(const C* text, std::uint64_t length = npos) : m_p(nullptr) { assign(text, length); }
    basic_corestring(const basic_corestring& other) : m_p(nullptr) { *this = other; }
    basic_corestring(basic_corestring&& other) noexcept : m_p(other.m_p) { other.m_p = nullptr; }
    // A corrupted block found here ends the process (terminate), as nothing
    // in the tool may catch the corruption; release() throws it to callers.
    ~basic_corestring() { release(); }

    basic_corestring& operator=(const basic_corestring& other);
    basic_corestring& operator=(basic_corestring&& other)
    {
        if (this != &other) {
            basic_corestring old;
            old.swap(other);
            swap(old);
        }
        return *this;
    }
    basic_corestring& operator=(const C* text) { return assign(text, npos); }

    basic_corestring& assign(const C* text, std::uint64_t length);
    basic_corestring& setBinary(const void* bytes, std::uint64_t byteCount);
    static basic_corestring fromNumber(std::uint32_t value, std::uint32_t radix);
    static basic_corestring fromNumber(std::uint64_t value, std::uint32_t radix);

    // Releases the block after the guard check; the handle becomes all ones.
    void release();
    void swap(basic_corestring& other) noexcept
    {
        C* p = m_p;
        m_p = other.m_p;
        other.m_p = p;
    }

    // Handle and header.
    C* handle() const { return m_p; }  // may be null: "%s" prints "(null)"
    const C* c_str() const { return m_p ? m_p : T::empty(); }
    operator const C*() const { return c_str(); }
    std::uint64_t length() const { return m_p ? header()->length : 0; }
    std::uint64_t capacity() const { return m_p ? header()->capacity : 0; }
    bool empty() const { return length() == 0; }
    bool isBinary() const { return m_p && (header()->byteLength & kBinaryBit); }
    std::uint32_t byteLength() const { return m_p ? header()->byteLength : 0; }
    bool wipeMark() const { return m_p && (header()->flags & kWipeFlag); }
    void setWipeMark(bool on);

    // Growing and changing.
    basic_corestring& resize(std::uint64_t length, bool exact);
    basic_corestring& append(const C* text, std::uint64_t length = npos);
    basic_corestring& append(const basic_corestring& text) { return append(text.m_p, text.length()); }
    basic_corestring& appendChar(C c, std::uint64_t count);
    basic_corestring& appendPath(const C* component);
    static basic_corestring& concat(const basic_corestring& a, basic_corestring& out, const C* b);
    basic_corestring& replaceRange(std::uint64_t position, std::uint64_t count, const C* text, std::uint64_t length = npos);
    basic_corestring& trim(const C* set = blanks) { return trimLeft(set).trimRight(set); }
    basic_corestring& trimLeft(const C* set = blanks);
    basic_corestring& trimRight(const C* set = blanks);
    static basic_corestring toBackslashes(const C* text);

    // Parts of the text.
    basic_corestring left(std::uint64_t n) const { return mid(0, n); }
    basic_corestring right(std::uint64_t n) const
    {
        std::uint64_t len = length();
        return n >= len ? *this : mid(len - n, n);
    }
    basic_corestring mid(std::uint64_t position, std::uint64_t n) const;
    std::uint64_t findChar(C c, std::uint64_t from = 0) const;
    static std::uint64_t findNoCase(const C* text, const C* needle);
    static basic_corestring stripExtension(const C* name);
    C charAt(std::uint64_t index) const;        // the terminator may be read
    C& charAtForWrite(std::uint64_t index);     // only characters in use

    // Comparison through the platform (CompareString, locale 1024), with both
    // counts the smaller length plus one: exact, not a prefix test.
    bool equals(const C* other, bool ignoreCase) const;
    bool equalsNoCase(const C* other) const { return equals(other, true); }
    int compareNoCase(const C* other, std::uint64_t length = npos) const;
    bool operator<(const basic_corestring& other) const;
    bool operator==(const basic_corestring& other) const { return equals(other.c_str(), false); }
    // A wcsstr hit at position 0.
    bool startsWith(const C* prefix) const;

    // Numbers.
    basic_corestring normalizeNumber() const;
    long toInt(bool normalize) const;
    unsigned long toUInt(bool normalize) const;
    long long toInt64(bool normalize) const;

    // printf with the Microsoft conventions (positional arguments allowed).
    static basic_corestring& format(basic_corestring& out, const C* format, ...);
    static basic_corestring& vformat(basic_corestring& out, std::uint64_t firstSize, const C* format, va_list args);

    // Tokens.
    static basic_corestring tokenize(const C*& cursor, const C* delimiters, const C* quotes);
    static std::vector<basic_corestring> split(const C* text, const C* delimiters, const C* quotes);

private:
    corestring_header* header() const
    {
        return reinterpret_cast<corestring_header*>(reinterpret_cast<char*>(m_p) - sizeof(corestring_header));
    }
    static std::size_t blockSize(std::uint64_t capacity)
    {
        // A capacity whose block size can't be expressed can't be had either;
        // the size wrapping round would hand out a tiny block.
        constexpr std::uint64_t overhead = sizeof(corestring_header) + sizeof(std::uint32_t);
        if (capacity >= (SIZE_MAX - overhead) / width)
            throwOutOfMem();
        return static_cast<std::size_t>(overhead + (capacity + 1) * width);
    }
    static void writeTailGuard(C* p, std::uint64_t capacity)
    {
        std::uint32_t g = kGuardTail;
        std::memcpy(p + capacity + 1, &g, sizeof g);
    }
    static std::uint32_t readTailGuard(const C* p, std::uint64_t capacity)
    {
        std::uint32_t g;
        std::memcpy(&g, p + capacity + 1, sizeof g);
        return g;
    }
    static C* allocate(std::uint64_t capacity);
    void reallocate(std::uint64_t capacity);
    void setLength(std::uint64_t n);

    C* m_p;
};

using corestring = basic_corestring<wchar_t>;
using coremstring = basic_corestring<char>;
using StringList = std::vector<corestring>;

// Wide to narrow and back through the platform's code page conversion.
coremstring to_mstr(const wchar_t* text, std::uint64_t length = corestring::npos, std::uint32_t codePage = 65001);
corestring to_wstr(const char* text, std::uint64_t length = coremstring::npos, std::uint32_t codePage = 65001);

// UTF-8 of the text, cut at the first zero: what crosses to JSON and to the
// delivery client.
std::string WideToUtf8(const corestring& text);
// `length` characters in the system's default (ANSI) code page, all of them
// or nothing: false when a character has no form of its own there (no
// best-fit stand-in, no default character).
bool ToDefaultCodePage(const wchar_t* text, std::uint64_t length, std::string& out);

// FormatMessageW into 4096 characters, trimmed; empty when there is no text.
corestring systemMessage(std::uint32_t id, std::uint32_t language, std::uint32_t flags, const void* source,
                         va_list* arguments);
// "5 (Access is denied.)", or "0x%p (...)" for codes with the top bit set.
corestring errorText(std::uint32_t code);

// A keyword test: CompareStringW, locale 1024, counts min(length + 1,
// literal's length + 1), so exact but for case when ignoreCase is set.
bool keywordEquals(const wchar_t* text, const wchar_t* literal, bool ignoreCase);
// The same with the string's own length, so characters behind an embedded
// terminator take part.
bool keywordEquals(const corestring& text, const wchar_t* literal, bool ignoreCase);

}  // namespace CORE

#include "core/string/corestring_impl.h"
