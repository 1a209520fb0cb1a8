// The project's own mirelclient.dll, loaded as the tool loads it. Until the
// download is built, the library is a stand-in that logs and refuses every
// download; these tests pin what the stand-in does so that a change to it is
// seen. They are no requirement of the client: its own tests replace them.
#include "mirel_types.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/Services.h"

namespace {

std::vector<std::pair<int, std::string>> g_lines;

void capture(int level, const char* format, va_list args)
{
    char buffer[1024];
    vsnprintf(buffer, sizeof buffer, format, args);
    g_lines.emplace_back(level, buffer);
}

NarrowText shortText(const char* text)
{
    NarrowText t{};
    strncpy(t.data.inlineText, text, 15);
    t.length = strlen(t.data.inlineText);
    t.capacity = 15;
    return t;
}

}  // namespace

TEST(PlaceholderMirelClient, LogCallbackIsStoredAndUsedByLaterCalls)
{
    g_lines.clear();
    platform::Delivery& d = *platform::win32Services().delivery;
    d.MirelSetLogCallback(capture);
    EXPECT_TRUE(g_lines.empty());
    bool yes = true;
    d.MirelUseSystemCA(&yes);
    ASSERT_EQ(1u, g_lines.size());
    EXPECT_EQ(3, g_lines[0].first);
    EXPECT_NE(std::string::npos, g_lines[0].second.find("system CA (1)"));
    d.MirelSetLogCallback(nullptr);
    d.MirelUseSystemCA(&yes);
    EXPECT_EQ(1u, g_lines.size());
}

TEST(PlaceholderMirelClient, DownloadsAnswerInitFailedWithoutDoingAnything)
{
    g_lines.clear();
    platform::Delivery& d = *platform::win32Services().delivery;
    d.MirelSetLogCallback(capture);
    NarrowText workspace = shortText("C:\\ws");
    NarrowTextList none{};
    void* download = d.MirelCreateDownload(shortText("job"), 10, true, none, none, none, shortText(""), workspace,
                                           shortText("ab"), 0, 0);
    EXPECT_EQ(nullptr, download);
    void* handles[1] = {download};
    DownloadHandleList list{handles, handles + 1, handles + 1};
    EXPECT_EQ(MIRELCLIENT_INIT_FAILED, d.MirelRunDownloads(workspace, list));
    d.MirelDestroyDownload(download);
    bool sawError = false;
    for (const auto& [level, text] : g_lines)
        sawError |= level == 3 && text.find("C:\\ws") != std::string::npos;
    EXPECT_TRUE(sawError);
    d.MirelSetLogCallback(nullptr);
}
