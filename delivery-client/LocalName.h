#pragma once
// The payload's local name, taken from the first URL exactly as the tool
// takes it, so that the tool finds the file where the client put it.
#include <string>

namespace mirel {

// Every '/' turned into '\', the text behind the last '\', and only when it
// holds a '%': "%XY" (with two characters following) becomes the one
// character wcstol(XY, 16) gives, '+' becomes a blank.
std::wstring localNameFromUrl(const std::wstring& url);
std::wstring decodeLikeTheTool(const std::wstring& text);

// Room kept for the suffixes of the partial file and its record.
constexpr std::size_t kMaxLocalName = 255 - 13;

// False with `why` when `name` can't be a Windows file name as it stands:
// empty, "." or "..", a character Windows refuses ('<' '>' ':' '"' '/' '\'
// '|' '?' '*' or a control character), a trailing dot or blank, a device
// name (CON, NUL, COM1, ...), or longer than kMaxLocalName.
bool checkLocalName(const std::wstring& name, std::string& why);

// A name for a file only the client reads (a tar archive's download): the
// same name with every refused character replaced by '_', shortened when
// too long; "payload.tar" when nothing usable is left.
std::wstring sanitizedName(const std::wstring& name);

}  // namespace mirel
