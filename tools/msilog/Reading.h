#pragma once
// An administrator's reading of a failed install's verbose log: which
// actions failed, what custom actions returned, the engine's error blocks,
// the script action running at the failure, where rollback began, how the
// install ended, and which action made it fail. Pure functions over lines;
// the engine's prefixes ("MSI (s) (..) [..]: ") may be there or not, and
// "Action ended" lines may be in the user's language.
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace ztmsilog {

// Line numbers count from 1.
struct LineRef {
    std::size_t line = 0;
    std::wstring text;
};

// "Action ended 12:00:00: Name. Return value 3." in any language.
struct EndedAction {
    std::size_t line = 0;
    std::wstring name;
    long long value = 0;
};

// "CustomAction Name returned actual error code N", maybe "but will be
// translated to success due to continue marking".
struct CustomActionReturn {
    std::size_t line = 0;
    std::wstring name;
    long long code = 0;
    bool translatedToSuccess = false;
};

// "Error 1722. <text>", with the action its text names ("Action X, ...").
struct ErrorBlock {
    std::size_t line = 0;
    long long number = 0;
    std::wstring text;
    std::wstring action;
};

// "Executing op: ActionStart(Name=X,...)" or "CustomActionSchedule(Action=X,...)".
struct ScriptAction {
    std::size_t line = 0;
    std::wstring name;
    std::wstring text;
};

struct Verdict {
    std::wstring action;  // empty: unknown
    std::size_t line = 0;  // of the evidence, 0 when there is none
    std::wstring evidence;
    std::wstring why;
};

struct Reading {
    std::vector<EndedAction> failedActions;  // ended with return value 3
    std::vector<CustomActionReturn> customActionReturns;
    std::vector<ErrorBlock> errors;
    std::optional<std::size_t> firstFailureLine;
    std::optional<ScriptAction> scriptActionAtFailure;
    std::optional<LineRef> rollbackStart;
    std::vector<LineRef> results;
    Verdict verdict;
};

// The pieces one line holds; empty when it holds none.
std::optional<EndedAction> ParseEndedAction(const std::wstring& line);
std::vector<CustomActionReturn> ParseCustomActionReturns(const std::wstring& line);
std::vector<ErrorBlock> ParseErrorBlocks(const std::wstring& line);
std::optional<std::wstring> ParseScriptAction(const std::wstring& line);

// Actions that only carry others: their failure is another action's.
bool IsCarrierAction(const std::wstring& name);

Reading ReadLog(const std::vector<std::wstring>& lines);

}  // namespace ztmsilog
