#include "core/log/LogLine.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "diagnostics/ToolLog.h"
#include "fakes/FakePlatform.h"
#include "fakes/RecordingLogSink.h"

using CORE::corestring;
using fakes::FakePlatform;

TEST(LogLine, FormatsWithWideStringArguments)
{
    FakePlatform p;
    corestring nothing;
    LogLine(L"%s: value %s and %d", L"Tag", nothing.handle(), 5);
    EXPECT_TRUE(p.logHas(L"Tag: value (null) and 5"));
}

TEST(LogLine, PrintsTheMicrosoftConventions)
{
    FakePlatform p;
    LogLine(L"%s: %S %I64u %I64d %lu %c %02d %x %%", L"Tag", "narrow", 18446744073709551615ull, -5ll, 4000000000ul,
            L'z', 7, 255);
    EXPECT_TRUE(p.logHas(L"Tag: narrow 18446744073709551615 -5 4000000000 z 07 ff %"));
}

TEST(LogLine, PrintsAnEnumAsItsNumber)
{
    FakePlatform p;
    enum class Kind : unsigned { Third = 3 };
    LogLine(L"%s: kind %u", L"Tag", Kind::Third);
    EXPECT_TRUE(p.logHas(L"Tag: kind 3"));
}

TEST(LogLine, KeepsTheLastError)
{
    FakePlatform p;
    ::SetLastError(1234);
    LogLine(L"%s: one line", L"Tag");
    EXPECT_EQ(1234u, ::GetLastError());
}

TEST(LogLine, KeepsTheLastErrorWhenTheLogFileCannotBeWritten)
{
    FakePlatform p;
    p.files.addDirectory(L"D:\\Logs");
    p.keys.putString(HKEY_LOCAL_MACHINE, L"Software\\Tarvelle\\Zenthra", L"InstallLogsDir", L"D:\\Logs");
    ToolLog::Open(TheToolLog(), false);
    HANDLE reader = p.files.holdOpen(TheToolLog().path().c_str());
    ::SetLastError(1234);
    LogLine(L"%s: blocked", L"Tag");
    EXPECT_EQ(1234u, ::GetLastError());
    p.files.release(reader);
    EXPECT_TRUE(p.logHas(L"Tag: blocked"));
}

TEST(LogLine, GoesToTheInstalledSink)
{
    FakePlatform p;
    fakes::RecordingLogSink sink;
    LogLine(L"%s: %d", L"Tag", 1);
    EXPECT_EQ(std::vector<std::wstring>{L"Tag: 1"}, sink.lines);
    EXPECT_FALSE(p.logHas(L"Tag: 1"));
}

TEST(LogLine, WithoutASinkTheLineIsDropped)
{
    fakes::RecordingLogSink earlier;
    CORE::LogSink* installed = CORE::SetLogSink(nullptr);
    ::SetLastError(77);
    LogLine(L"%s: nowhere", L"Tag");
    EXPECT_EQ(77u, ::GetLastError());
    CORE::SetLogSink(installed);
    EXPECT_TRUE(earlier.lines.empty());
}
