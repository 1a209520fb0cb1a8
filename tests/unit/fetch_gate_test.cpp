// The two fetch steps are also the gate between fetching and installing:
// only UPDATING goes on, DOWNLOAD ends the run with the job's result as it was.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "fetch/Download.h"
#include "fetch/ShareCopy.h"
#include "update_test_support.h"

using namespace update_test;

namespace {

struct Gate {
    const char* name;
    const wchar_t* tag;
    bool (*step)();
};

const wchar_t* const kStateNames[] = {L"", L"READY", L"DOWNLOAD", L"WAIT", L"NOLOGON", L"UPDATING", L"DONE"};

class FetchGate : public UpdateTest, public ::testing::WithParamInterface<std::tuple<Gate, std::uint32_t>> {};

}  // namespace

TEST_P(FetchGate, OnlyUpdatingGoesOnAndTheResultStays)
{
    const auto& [gate, state] = GetParam();
    g_updateRecord.sUpdateKey = L"Job1";
    g_updateRecord.nState = state;
    g_updateRecord.sResult = L"EARLIER";
    EXPECT_EQ(state == STATE_UPDATING, gate.step());
    EXPECT_STREQ(L"EARLIER", g_updateRecord.sResult.c_str());
    EXPECT_EQ(state, g_updateRecord.nState);
    EXPECT_EQ(std::vector<std::wstring>{std::wstring(gate.tag) + L": Update key: Job1 state: " + kStateNames[state]},
              linesOf({gate.tag}));
}

// The share step under DOWNLOAD copies: sharecopy_test covers it.
INSTANTIATE_TEST_SUITE_P(
    Share, FetchGate,
    ::testing::Combine(::testing::Values(Gate{"Share", L"Util_UNCDownload", &Util_UNCDownload}),
                       ::testing::Values(0u, 1u, 3u, 4u, 5u, 6u)),
    [](const auto& info) {
        return std::string(std::get<0>(info.param).name) + "State" + std::to_string(std::get<1>(info.param));
    });

// The download step under DOWNLOAD downloads: download_test covers it.
INSTANTIATE_TEST_SUITE_P(
    Steps, FetchGate,
    ::testing::Combine(::testing::Values(Gate{"Download", L"Util_DoDownload", &Util_DoDownload}),
                       ::testing::Values(0u, 1u, 3u, 4u, 5u, 6u)),
    [](const auto& info) {
        return std::string(std::get<0>(info.param).name) + "State" + std::to_string(std::get<1>(info.param));
    });

