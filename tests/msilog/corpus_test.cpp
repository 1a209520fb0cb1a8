// The corpus of real logs: the analyser's verdict on each must be the one
// the corpus README gives, read by hand, and the tool's own reading must
// name what the README's table says it names.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "ContractReading.h"
#include "LogText.h"
#include "Reading.h"
#include "fakes/FakePlatform.h"

using namespace ztmsilog;

namespace {

const std::string kCorpus = ZT_MSILOG_CORPUS;

std::string readFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

// A row of the README's table: | `file.log` | `Action` or unknown | `Name` or none | `Action` or unknown |
struct Row {
    std::string file;
    std::string expected;
    std::string contract;
    std::string analyser;
};

std::string cell(std::string text)
{
    const std::size_t first = text.find_first_not_of(' ');
    const std::size_t last = text.find_last_not_of(' ');
    text = first == std::string::npos ? std::string() : text.substr(first, last - first + 1);
    if (text.size() >= 2 && text.front() == '`' && text.back() == '`')
        text = text.substr(1, text.size() - 2);
    return text;
}

std::vector<Row> tableRows()
{
    std::istringstream readme(readFile(kCorpus + "/README.md"));
    std::vector<Row> rows;
    std::string line;
    while (std::getline(readme, line)) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.rfind("| `", 0) != 0)
            continue;
        std::vector<std::string> cells;
        std::size_t at = 1;
        for (std::size_t bar = line.find('|', at); bar != std::string::npos; bar = line.find('|', at)) {
            cells.push_back(cell(line.substr(at, bar - at)));
            at = bar + 1;
        }
        if (cells.size() == 4)
            rows.push_back({cells[0], cells[1], cells[2], cells[3]});
    }
    return rows;
}

std::string verdictOf(const std::string& bytes)
{
    const Reading reading = ReadLog(SplitLines(DecodeLog(bytes).text));
    return reading.verdict.action.empty() ? "unknown" : ToUtf8(reading.verdict.action);
}

// The tool on the log as the engine writes it: UTF-16 LE behind its mark,
// each line ending in CR LF.
std::string contractOf(const std::string& bytes)
{
    const std::wstring text = EngineText(SplitLines(DecodeLog(bytes).text));
    const std::wstring name = BareName(ReadAsTheToolDoes(EngineBytes(text)).name);
    return name.empty() ? "none" : ToUtf8(name);
}

}  // namespace

TEST(CorpusTest, TheTableHasEveryLogOnceAndTenFailuresAtLeast)
{
    const std::vector<Row> rows = tableRows();
    std::set<std::string> listed;
    std::size_t named = 0;
    for (const Row& row : rows) {
        EXPECT_TRUE(listed.insert(row.file).second) << row.file << " is in the table twice";
        if (row.expected != "unknown")
            ++named;
    }
    std::set<std::string> present;
    for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::u8path(kCorpus)))
        if (entry.path().extension() == ".log")
            present.insert(entry.path().filename().string());
    EXPECT_EQ(present, listed);
    EXPECT_GE(named, 10u);
}

TEST(CorpusTest, AnalyserGivesTheVerdictReadByHand)
{
    fakes::FakePlatform p;
    const std::vector<Row> rows = tableRows();
    ASSERT_FALSE(rows.empty());
    for (const Row& row : rows) {
        SCOPED_TRACE(row.file);
        const std::string bytes = readFile(kCorpus + "/" + row.file);
        ASSERT_FALSE(bytes.empty());
        const std::string verdict = verdictOf(bytes);
        EXPECT_EQ(row.expected, verdict);
        EXPECT_EQ(row.analyser, verdict);
    }
}

TEST(CorpusTest, ToolsOwnReadingIsAsTheTableSays)
{
    fakes::FakePlatform p;
    for (const Row& row : tableRows()) {
        SCOPED_TRACE(row.file);
        EXPECT_EQ(row.contract, contractOf(readFile(kCorpus + "/" + row.file)));
    }
}

TEST(CorpusTest, TheToolSeesNothingInAUtf8File)
{
    // The corpus is kept in UTF-8, which the tool reads as UTF-16: every
    // file is one line of noise to it, with no name in it.
    fakes::FakePlatform p;
    for (const Row& row : tableRows()) {
        SCOPED_TRACE(row.file);
        const ContractReading tool = ReadAsTheToolDoes(readFile(kCorpus + "/" + row.file));
        EXPECT_FALSE(tool.name.has_value());
    }
}
