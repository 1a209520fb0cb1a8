#pragma once
// The text zt-msilog prints for a log: the tool's own reading, then the
// analyser's, then the verdict. UTF-8, LF line ends.
#include <string>
#include <string_view>

namespace ztmsilog {

std::string FormatReport(std::wstring_view logName, std::string_view fileBytes);

// A line for printing: control characters shown as \r, \t, \0, \xNN.
std::wstring Visible(std::wstring_view text);

}  // namespace ztmsilog
