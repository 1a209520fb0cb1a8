#include "update/UpdateState.h"

#include <gtest/gtest.h>

#include "fakes/FakePlatform.h"

using CORE::corestring;
using fakes::FakePlatform;

namespace {

struct StateNameTest : ::testing::Test {
    FakePlatform p;
};

TEST_F(StateNameTest, EachNameGivesItsId)
{
    const std::pair<const wchar_t*, std::uint32_t> table[] = {
        {L"READY", 1}, {L"DOWNLOAD", 2}, {L"WAIT", 3}, {L"NOLOGON", 4}, {L"UPDATING", 5}, {L"DONE", 6},
    };
    for (const auto& [name, id] : table)
        EXPECT_EQ(id, UtilStateId(name)) << name;
    EXPECT_TRUE(p.logLines().empty());
}

TEST_F(StateNameTest, CaseIsIgnored)
{
    EXPECT_EQ(STATE_READY, UtilStateId(L"ready"));
    EXPECT_EQ(STATE_DOWNLOAD, UtilStateId(L"DownLoad"));
    EXPECT_EQ(STATE_UPDATING, UtilStateId(L"updating"));
    EXPECT_EQ(STATE_DONE, UtilStateId(L"dOnE"));
    EXPECT_TRUE(p.logLines().empty());
}

TEST_F(StateNameTest, TrailingBlankIsUnknownAndLogged)
{
    EXPECT_EQ(STATE_UNKNOWN, UtilStateId(L"READY "));
    ASSERT_EQ(1u, p.logLines().size());
    EXPECT_EQ(L"UtilStateId: invalid state: READY ", p.logLines()[0]);
}

TEST_F(StateNameTest, PrefixAndLongerTextDoNotMatch)
{
    EXPECT_EQ(STATE_UNKNOWN, UtilStateId(L"READ"));
    EXPECT_EQ(STATE_UNKNOWN, UtilStateId(L"DONEX"));
    EXPECT_EQ(STATE_UNKNOWN, UtilStateId(L" WAIT"));
    EXPECT_EQ(STATE_UNKNOWN, UtilStateId(L"3"));
    std::vector<std::wstring> lines = p.logLines();
    ASSERT_EQ(4u, lines.size());
    EXPECT_EQ(L"UtilStateId: invalid state: READ", lines[0]);
    EXPECT_EQ(L"UtilStateId: invalid state: DONEX", lines[1]);
    EXPECT_EQ(L"UtilStateId: invalid state:  WAIT", lines[2]);
    EXPECT_EQ(L"UtilStateId: invalid state: 3", lines[3]);
}

TEST_F(StateNameTest, EmptyTextIsUnknown)
{
    EXPECT_EQ(STATE_UNKNOWN, UtilStateId(L""));
    ASSERT_EQ(1u, p.logLines().size());
    EXPECT_EQ(L"UtilStateId: invalid state: ", p.logLines()[0]);
}

TEST_F(StateNameTest, NullTextIsUnknownWithoutCrash)
{
    EXPECT_EQ(STATE_UNKNOWN, UtilStateId(nullptr));
    ASSERT_EQ(1u, p.logLines().size());
    EXPECT_EQ(L"UtilStateId: invalid state: (null)", p.logLines()[0]);
}

TEST_F(StateNameTest, StateStrNamesOneToSix)
{
    const wchar_t* names[] = {L"READY", L"DOWNLOAD", L"WAIT", L"NOLOGON", L"UPDATING", L"DONE"};
    for (std::uint32_t id = 1; id <= 6; ++id)
        EXPECT_STREQ(names[id - 1], stateStr(id).c_str()) << id;
    EXPECT_TRUE(p.logLines().empty());
}

TEST_F(StateNameTest, StateStrOfZeroAndSevenIsEmptyAndLogged)
{
    EXPECT_TRUE(stateStr(0).empty());
    EXPECT_TRUE(stateStr(7).empty());
    std::vector<std::wstring> lines = p.logLines();
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ(L"stateStr: invalid state: 0", lines[0]);
    EXPECT_EQ(L"stateStr: invalid state: 7", lines[1]);
}

TEST_F(StateNameTest, StateStrOfAHugeIdIsEmpty)
{
    EXPECT_TRUE(stateStr(0xFFFFFFFFu).empty());
    ASSERT_EQ(1u, p.logLines().size());
    EXPECT_EQ(L"stateStr: invalid state: -1", p.logLines()[0]);
}

TEST_F(StateNameTest, NamesAndIdsRoundTrip)
{
    for (std::uint32_t id = 1; id <= 6; ++id)
        EXPECT_EQ(id, UtilStateId(stateStr(id).c_str()));
}

}  // namespace
