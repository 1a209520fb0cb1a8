#pragma once
// What both fetch steps decide first, by the job's state: go on to the
// install (UPDATING, the fetch was an earlier run), end the run (any state
// but DOWNLOAD), or fetch now (DOWNLOAD).
enum class FetchGate { Install, Stop, Fetch };

// Logs "<tag>: Update key: <key> state: <state>" and gives the decision.
FetchGate Util_FetchGate(const wchar_t* tag);
