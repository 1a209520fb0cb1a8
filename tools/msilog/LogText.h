#pragma once
// A collected log's bytes as text. The engine writes UTF-16 little endian,
// but logs reach an administrator copied, converted and cut: UTF-8 with or
// without a mark, a narrow code page, UTF-16 without its mark.
#include <string>
#include <string_view>
#include <vector>

namespace ztmsilog {

enum class Encoding { Empty, Utf16Le, Utf16LeNoMark, Utf16Be, Utf16BeNoMark, Utf8, Utf8NoMark, Ansi };

struct DecodedLog {
    Encoding encoding = Encoding::Empty;
    std::wstring text;  // without the mark
};

// Marks first; without one, zero bytes in every other place make UTF-16,
// valid UTF-8 makes UTF-8, anything else is read as Windows-1252. An odd
// last byte of UTF-16 is dropped.
DecodedLog DecodeLog(std::string_view bytes);
const char* EncodingName(Encoding encoding);
bool IsUtf16LittleEndian(Encoding encoding);

// Split at LF; a CR in front of the LF goes with it. Nothing counts behind
// a last LF.
std::vector<std::wstring> SplitLines(std::wstring_view text);

// UTF-8 of UTF-16 text; an unpaired surrogate becomes U+FFFD.
std::string ToUtf8(std::wstring_view text);
// The lines as the engine ends them: each behind a CR LF.
std::wstring EngineText(const std::vector<std::wstring>& lines);
// The bytes the engine would have written for the text: FF FE, then UTF-16 LE.
std::string EngineBytes(std::wstring_view text);

}  // namespace ztmsilog
