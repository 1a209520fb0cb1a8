#include "core/string/corestring.h"

#include <algorithm>
#include <climits>

#include "core/LazyDll.h"
#include "core/win.h"

namespace CORE {

void throwCore(const wchar_t* text) { throw coreException(0, text); }

namespace {

using WideFormatter = int(__cdecl*)(wchar_t*, size_t, const wchar_t*, va_list);
using WideFormatterLocale = int(__cdecl*)(wchar_t*, size_t, const wchar_t*, void*, va_list);
using NarrowFormatter = int(__cdecl*)(char*, size_t, const char*, va_list);
using NarrowFormatterLocale = int(__cdecl*)(char*, size_t, const char*, void*, va_list);

// The tool's formats follow msvcrt's conventions (%s wide in a wide format,
// %S narrow, %I64u, positional arguments). mingw's headers send swprintf to
// C99 semantics, so msvcrt's own entry points are taken from the DLL. Some
// msvcrt builds export only the _l variant; a null locale is the current one.
struct Formatters {
    WideFormatter wide = nullptr;
    WideFormatterLocale wideLocale = nullptr;
    NarrowFormatter narrow = nullptr;
    NarrowFormatterLocale narrowLocale = nullptr;

    Formatters()
    {
        // From the system directory only: a msvcrt.dll planted beside the
        // program would otherwise format every line the tool writes.
        wide = LazyExport<WideFormatter>(L"msvcrt.dll", "_vswprintf_p");
        wideLocale = LazyExport<WideFormatterLocale>(L"msvcrt.dll", "_vswprintf_p_l");
        narrow = LazyExport<NarrowFormatter>(L"msvcrt.dll", "_vsprintf_p");
        narrowLocale = LazyExport<NarrowFormatterLocale>(L"msvcrt.dll", "_vsprintf_p_l");
    }
};

const Formatters& formatters()
{
    static const Formatters f;
    return f;
}

}  // namespace

int corestring_text<wchar_t>::compare(std::uint32_t flags, const wchar_t* a, int na, const wchar_t* b, int nb)
{
    return ::CompareStringW(LOCALE_USER_DEFAULT, flags, a, na, b, nb);
}

namespace {
// kernelbase carries the same CharLowerBuff as user32 on current systems, and
// is loaded anyway; user32 would drag in the whole windowing stack.
template <class F> F charLowerBuff(const char* name)
{
    F call = LazyExport<F>(L"kernelbase.dll", name);
    return call ? call : LazyExport<F>(L"user32.dll", name);
}
}  // namespace

void corestring_text<wchar_t>::lower(wchar_t* s, std::uint32_t n)
{
    static const auto call = charLowerBuff<decltype(&::CharLowerBuffW)>("CharLowerBuffW");
    if (call)
        call(s, n);
}

long long corestring_text<wchar_t>::toInt64(const wchar_t* s) { return ::_wcstoi64(s, nullptr, 0); }

int corestring_text<wchar_t>::vformat(wchar_t* buffer, size_t count, const wchar_t* format, va_list args)
{
    const Formatters& f = formatters();
    if (f.wide)
        return f.wide(buffer, count, format, args);
    if (f.wideLocale)
        return f.wideLocale(buffer, count, format, nullptr, args);
    return -1;
}

int corestring_text<char>::compare(std::uint32_t flags, const char* a, int na, const char* b, int nb)
{
    return ::CompareStringA(LOCALE_USER_DEFAULT, flags, a, na, b, nb);
}

void corestring_text<char>::lower(char* s, std::uint32_t n)
{
    static const auto call = charLowerBuff<decltype(&::CharLowerBuffA)>("CharLowerBuffA");
    if (call)
        call(s, n);
}

long long corestring_text<char>::toInt64(const char* s) { return ::_strtoi64(s, nullptr, 0); }

int corestring_text<char>::vformat(char* buffer, size_t count, const char* format, va_list args)
{
    const Formatters& f = formatters();
    if (f.narrow)
        return f.narrow(buffer, count, format, args);
    if (f.narrowLocale)
        return f.narrowLocale(buffer, count, format, nullptr, args);
    return -1;
}

coremstring to_mstr(const wchar_t* text, std::uint64_t length, std::uint32_t codePage)
{
    if (!text)
        return coremstring();
    if (length == corestring::npos)
        length = std::wcslen(text);
    if (length == 0)
        return coremstring();
    std::uint64_t size = 3 * (length + 1);
    corestring_buffer<char> buffer(static_cast<char*>(g_corestringMemory.allocate(size)));
    if (!buffer)
        throwOutOfMem();
    int n = ::WideCharToMultiByte(codePage, 0, text, static_cast<int>(length + 1), buffer.get(), static_cast<int>(size),
                                  nullptr, nullptr);
    if (n == 0) {
        buffer.reset();
        throwCore(L"to_mstr Failed");
    }
    return coremstring(buffer.get(), strnlen(buffer.get(), static_cast<size_t>(n)));
}

corestring to_wstr(const char* text, std::uint64_t length, std::uint32_t codePage)
{
    if (!text)
        return corestring();
    if (length == coremstring::npos)
        length = std::strlen(text);
    if (length == 0)
        return corestring();
    std::uint64_t size = length + 1;
    corestring_buffer<wchar_t> buffer(static_cast<wchar_t*>(g_corestringMemory.allocate(size * sizeof(wchar_t))));
    if (!buffer)
        throwOutOfMem();
    int n = ::MultiByteToWideChar(codePage, 0, text, static_cast<int>(length + 1), buffer.get(), static_cast<int>(size));
    if (n == 0) {
        buffer.reset();
        throwCore(L"to_wstr Failed");
    }
    return corestring(buffer.get(), wcsnlen(buffer.get(), static_cast<size_t>(n)));
}

std::string WideToUtf8(const corestring& text)
{
    coremstring narrow = to_mstr(text.c_str(), text.length(), 65001);
    const char* bytes = narrow.c_str();
    return std::string(bytes, std::find(bytes, bytes + narrow.length(), '\0'));
}

bool ToDefaultCodePage(const wchar_t* text, std::uint64_t length, std::string& out)
{
    out.clear();
    if (length == 0)
        return true;
    if (length > static_cast<std::uint64_t>(INT_MAX))
        return false;
    const int count = static_cast<int>(length);
    // UTF-8 has a form for every character but lone surrogates, and takes no
    // default character; the other code pages report what they couldn't map.
    const bool utf8 = ::GetACP() == CP_UTF8;
    const DWORD flags = utf8 ? WC_ERR_INVALID_CHARS : WC_NO_BEST_FIT_CHARS;
    BOOL usedDefault = FALSE;
    BOOL* usedDefaultOut = utf8 ? nullptr : &usedDefault;
    int bytes = ::WideCharToMultiByte(CP_ACP, flags, text, count, nullptr, 0, nullptr, usedDefaultOut);
    if (bytes <= 0 || usedDefault)
        return false;
    out.resize(static_cast<std::size_t>(bytes));
    bytes = ::WideCharToMultiByte(CP_ACP, flags, text, count, out.data(), bytes, nullptr, usedDefaultOut);
    if (bytes <= 0 || usedDefault) {
        out.clear();
        return false;
    }
    return true;
}

corestring systemMessage(std::uint32_t id, std::uint32_t language, std::uint32_t flags, const void* source,
                         va_list* arguments)
{
    constexpr DWORD kSize = 4096;
    corestring_buffer<wchar_t> buffer(static_cast<wchar_t*>(g_corestringMemory.allocate(kSize * sizeof(wchar_t))));
    if (!buffer)
        throwOutOfMem();
    buffer.get()[0] = L'\0';
    DWORD n = ::FormatMessageW(flags, source, id, language, buffer.get(), kSize, arguments);
    corestring text;
    if (n)
        text.assign(buffer.get(), std::min<DWORD>(n, kSize - 1));
    text.trim(corestring::blanks);
    return text;
}

corestring errorText(std::uint32_t code)
{
    corestring text;
    if (code < 0x80000000u)
        corestring::format(text, L"%d", static_cast<int>(code));
    else
        corestring::format(text, L"0x%p", reinterpret_cast<void*>(static_cast<std::uintptr_t>(code)));
    // Inserts are left as they stand: there are no arguments to put in.
    corestring message =
        systemMessage(code, 0, FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, nullptr);
    text.append(L" (");
    text.append(message);
    text.append(L")");
    return text;
}

namespace {
bool keywordEqualsCounted(const wchar_t* text, std::uint64_t length, const wchar_t* literal, bool ignoreCase)
{
    int n = static_cast<int>(std::min<std::uint64_t>(length, std::wcslen(literal)) + 1);
    return ::CompareStringW(LOCALE_USER_DEFAULT, ignoreCase ? NORM_IGNORECASE : 0, text, n, literal, n) == CSTR_EQUAL;
}
}  // namespace

bool keywordEquals(const wchar_t* text, const wchar_t* literal, bool ignoreCase)
{
    const wchar_t* a = text ? text : L"";
    return keywordEqualsCounted(a, std::wcslen(a), literal, ignoreCase);
}

bool keywordEquals(const corestring& text, const wchar_t* literal, bool ignoreCase)
{
    return keywordEqualsCounted(text.c_str(), text.length(), literal, ignoreCase);
}

}  // namespace CORE
