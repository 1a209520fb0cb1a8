// Every kind of argument the tool's log lines pass must compile.
#include <cstdint>

#include "core/log/LogLine.h"

enum class Small : unsigned char { One = 1 };

void lines(const CORE::corestring& text, const wchar_t* tag, std::uint64_t big, long number)
{
    static const wchar_t kTag[] = L"Tag";
    LogLine(L"=== Check Version ===");
    LogLine(L"%s: %s", kTag, text.c_str());
    LogLine(L"%s: %s %S", tag, text.handle(), "narrow");
    LogLine(L"%s: %d %u %lu %ld %c %02x %%", tag, 1, 2u, 3ul, number, L'x', 255);
    LogLine(L"%s: %I64u %I64d %llu", tag, big, static_cast<std::int64_t>(big), big);
    LogLine(L"%s: %p %d %s", tag, &big, Small::One, nullptr);
    LogLine(L"%s: %hs %ls %ws", tag, "narrow", L"wide", L"wide");
    LogLine(L"%s: %*d %.*s", tag, 4, 7, 2, L"wide");
}
