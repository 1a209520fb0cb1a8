#include "fetch/DeliveryLog.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fakes/FakePlatform.h"

using fakes::FakePlatform;

namespace {
void callDelivery(int level, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    DeliveryLogCallback(level, format, args);
    va_end(args);
}
}  // namespace

TEST(DeliveryLogCallback, PrefixesEachLevelAndWritesToTheToolLog)
{
    FakePlatform p;
    callDelivery(0, "d %d", 1);
    callDelivery(1, "i %s", "x");
    callDelivery(2, "w");
    callDelivery(3, "e %u", 7u);
    std::vector<std::wstring> lines = p.logLines();
    ASSERT_EQ(4u, lines.size());
    EXPECT_EQ(L"[DEBUG] d 1", lines[0]);
    EXPECT_EQ(L"[INFO] i x", lines[1]);
    EXPECT_EQ(L"[WARNING] w", lines[2]);
    EXPECT_EQ(L"[ERROR] e 7", lines[3]);
}

TEST(DeliveryLogCallback, ConvertsUtf8AndLongTexts)
{
    FakePlatform p;
    std::string longText(20000, 'z');
    callDelivery(1, "%s \xC3\xA9t\xC3\xA9", longText.c_str());
    std::wstring line = p.logLines().at(0);
    EXPECT_EQ(L"[INFO] " + std::wstring(20000, L'z') + L" \u00e9t\u00e9", line);
}
