#pragma once
// Text helpers of the client: UTF-8 and UTF-16, hex, and texts made safe
// for a log line.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace mirel {

// Strict conversions: false on text that isn't valid UTF-8 / UTF-16.
bool utf8ToWide(const std::string& text, std::wstring& wide);
std::string wideToUtf8(const std::wstring& text);

// Lower-case hex of the bytes.
std::string toHex(const std::uint8_t* bytes, std::size_t count);
std::string toHex(const std::vector<std::uint8_t>& bytes);
int hexValue(char c);  // -1 when c isn't a hex digit

// ASCII case folding, for protocol texts (host names, headers, hex).
std::string asciiLower(std::string text);
bool equalsNoCase(const std::string& a, const std::string& b);

// A text as it may appear in one log line: control characters shown as
// \xNN, and at most `limit` bytes followed by "..." (the line stays short
// and on one line whatever the caller passed).
std::string forLog(const std::string& text, std::size_t limit = 300);
std::string forLog(const std::wstring& text, std::size_t limit = 300);

// Unsigned decimal without sign, blanks or overflow; false otherwise.
bool parseDecimal(const std::string& text, std::uint64_t& value);

}  // namespace mirel
