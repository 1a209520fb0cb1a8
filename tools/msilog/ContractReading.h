#pragma once
// What zenthra-updatetool itself reports of a log: its own functions
// (FetchErrorLines, GetFailedCustomActionName, GetFailedCAErrorMessage) run
// on the log's bytes, served from memory by a file system of one file that
// stands in for the platform's while they run. The tool's log lines go to no
// sink meanwhile.
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ztmsilog {

struct ContractReading {
    // Each line as FetchErrorLines gives it, the CR before its LF included.
    std::vector<std::wstring> window;
    // The functions' answers as they are (blank and CR included); nullopt
    // where they answer a null string.
    std::optional<std::wstring> name;
    std::optional<std::wstring> message;
};

ContractReading ReadAsTheToolDoes(std::string_view fileBytes);

// The name stripped of the blank and line end the tool leaves on it.
std::wstring BareName(const std::optional<std::wstring>& name);

}  // namespace ztmsilog
