#pragma once
// The tool's log call: LogLine(L"%s: Update key: %s", L"UtilGetActiveUpdate", key.c_str()).
//
// Formats follow the Microsoft printf conventions (in a wide format %s is a
// wide string and %S a narrow one, %I64u a 64-bit number), the line goes to
// the installed log sink, and the thread's last error is the same afterwards,
// so a caller may log a failure before it reports the failure's code.
//
// The format must be a literal, and it is checked against the arguments when
// the call is compiled: each conversion must meet an argument it can print
// (a wide or narrow C string, an integer of the conversion's size, a
// pointer), and there must be as many arguments as conversions. A corestring
// or std::wstring is refused: pass .c_str().
#include <cstddef>
#include <type_traits>

#include "core/log/LogSink.h"

namespace CORE {

namespace logline_detail {

enum class Arg : unsigned char { Wide, Narrow, Int32, Int64, Pointer, Null, Floating, Unsupported };

template <class T> consteval Arg kindOf()
{
    using U = std::remove_cv_t<T>;
    if constexpr (std::is_same_v<U, std::nullptr_t>) {
        return Arg::Null;
    } else if constexpr (std::is_pointer_v<U>) {
        using Pointee = std::remove_cv_t<std::remove_pointer_t<U>>;
        if constexpr (std::is_same_v<Pointee, wchar_t>)
            return Arg::Wide;
        else if constexpr (std::is_same_v<Pointee, char>)
            return Arg::Narrow;
        else
            return Arg::Pointer;
    } else if constexpr (std::is_integral_v<U> || std::is_enum_v<U>) {
        return sizeof(U) <= 4 ? Arg::Int32 : Arg::Int64;
    } else if constexpr (std::is_same_v<U, float> || std::is_same_v<U, double>) {
        return Arg::Floating;  // long double has no msvcrt form
    } else {
        return Arg::Unsupported;
    }
}

constexpr bool isDigit(wchar_t c) { return c >= L'0' && c <= L'9'; }

// Whether each conversion of the format meets an argument it prints, and
// every argument is used. Positional arguments (%1$s) are not taken here.
consteval bool formatFits(const wchar_t* p, const Arg* args, std::size_t count)
{
    std::size_t next = 0;
    auto take = [&](Arg wanted) {
        if (next >= count)
            return false;
        Arg got = args[next++];
        if (got == wanted)
            return true;
        // A null pointer stands for a string ("(null)") or a pointer.
        return got == Arg::Null && (wanted == Arg::Wide || wanted == Arg::Narrow || wanted == Arg::Pointer);
    };
    while (*p) {
        if (*p++ != L'%')
            continue;
        if (*p == L'%') {
            ++p;
            continue;
        }
        // Width and precision: digits, or "*" for an int argument.
        auto widthOrPrecision = [&] {
            if (*p == L'*') {
                ++p;
                return take(Arg::Int32);
            }
            while (isDigit(*p))
                ++p;
            return true;
        };
        while (*p == L'-' || *p == L'+' || *p == L' ' || *p == L'#' || *p == L'0')
            ++p;
        if (!widthOrPrecision() || *p == L'$')
            return false;
        if (*p == L'.') {
            ++p;
            if (!widthOrPrecision())
                return false;
        }
        enum class Size { Default, Short, Long, Wide64 } size = Size::Default;
        if (*p == L'h') {
            size = Size::Short;
            p += p[1] == L'h' ? 2 : 1;
        } else if (*p == L'l') {
            size = p[1] == L'l' ? Size::Wide64 : Size::Long;
            p += p[1] == L'l' ? 2 : 1;
        } else if (*p == L'w') {
            size = Size::Long;
            ++p;
        } else if (*p == L'I') {
            if (p[1] == L'6' && p[2] == L'4') {
                size = Size::Wide64;
                p += 3;
            } else if (p[1] == L'3' && p[2] == L'2') {
                p += 3;
            } else {
                size = Size::Wide64;  // pointer-sized: this is a 64-bit program
                ++p;
            }
        }
        const wchar_t conversion = *p++;
        switch (conversion) {
        case L'd':
        case L'i':
        case L'u':
        case L'o':
        case L'x':
        case L'X':
            if (!take(size == Size::Wide64 ? Arg::Int64 : Arg::Int32))
                return false;
            break;
        case L'c':
        case L'C':
            if (!take(Arg::Int32))
                return false;
            break;
        case L's':
            if (!take(size == Size::Short ? Arg::Narrow : Arg::Wide))
                return false;
            break;
        case L'S':
            if (!take(size == Size::Long ? Arg::Wide : Arg::Narrow))
                return false;
            break;
        case L'p':
            if (next >= count || !(args[next] == Arg::Pointer || args[next] == Arg::Wide ||
                                   args[next] == Arg::Narrow || args[next] == Arg::Null))
                return false;
            ++next;
            break;
        case L'e':
        case L'E':
        case L'f':
        case L'g':
        case L'G':
            if (!take(Arg::Floating))
                return false;
            break;
        default:  // %n, a size without a conversion, a lone % at the end
            return false;
        }
    }
    return next == count;
}

// Not constexpr: reaching it while a format is checked stops the build here.
void formatDoesNotFitItsArguments();

template <class T> auto passable(T value)
{
    if constexpr (std::is_enum_v<T>)
        return static_cast<std::underlying_type_t<T>>(value);
    else
        return value;
}

// Formats with msvcrt's conventions and writes to the sink; keeps the last error.
void formatAndWrite(const wchar_t* format, ...);

}  // namespace logline_detail

template <class... Args> class LogFormat {
    static_assert(((logline_detail::kindOf<Args>() != logline_detail::Arg::Unsupported) && ...),
                  "LogLine prints wide or narrow C strings, integers and pointers: pass a string as .c_str()");

public:
    template <std::size_t N> consteval LogFormat(const wchar_t (&text)[N]) : m_text(text)
    {
        constexpr logline_detail::Arg kinds[] = {logline_detail::kindOf<Args>()..., logline_detail::Arg::Unsupported};
        if (!logline_detail::formatFits(text, kinds, sizeof...(Args)))
            logline_detail::formatDoesNotFitItsArguments();
    }
    const wchar_t* text() const { return m_text; }

private:
    const wchar_t* m_text;
};

template <class... Args> void LogLine(LogFormat<std::type_identity_t<Args>...> format, Args... args)
{
    logline_detail::formatAndWrite(format.text(), logline_detail::passable(args)...);
}

}  // namespace CORE

using CORE::LogLine;
