#include <gtest/gtest.h>

#include <limits>

#include "output/TextTable.hpp"

namespace brimlog {
namespace {

// The edges; zero and thousands in counts and dollars are in every report of ReportFormatterTest.
TEST(TextTableTest, FormatsCountsDollarsAndBytesForPeople) {
  EXPECT_EQ(formatCount(999), "999");
  EXPECT_EQ(formatCount(1000), "1,000");
  EXPECT_EQ(formatCount(-45000), "-45,000");
  EXPECT_EQ(formatCount(std::numeric_limits<int64_t>::min()), "-9,223,372,036,854,775,808");

  EXPECT_EQ(formatUSD(0), "$0.00");
  EXPECT_EQ(formatUSD(0.005), "$0.01");  // cents are rounded, not cut
  EXPECT_EQ(formatUSD(-3), "-$3.00");
  EXPECT_EQ(formatUSD(-0.001), "$0.00");  // no "-$0.00"
  EXPECT_EQ(formatUSD(std::numeric_limits<double>::infinity()), "-");

  EXPECT_EQ(formatBytes(512), "512 B");
  EXPECT_EQ(formatBytes(1536), "1.5 KB");
  EXPECT_EQ(formatBytes(int64_t{3} << 30), "3.0 GB");
}

TEST(TextTableTest, AlignsColumnsByCharactersAndTrimsLineEnds) {
  TextTable table{
      {{"Model", TextTable::left}, {"Cost", TextTable::right}, {"Note", TextTable::left}}};
  table.addRow({"opus", "$10.00", "é"});
  table.addRow({"a-much-longer-name", "$1.00"});  // a missing cell is blank
  table.addRule();
  table.addRow({"Total", "$11.00", "ü"});
  EXPECT_EQ(table.render(),
            "Model                 Cost  Note\n"
            "--------------------------------\n"
            "opus                $10.00  é\n"
            "a-much-longer-name   $1.00\n"
            "--------------------------------\n"
            "Total               $11.00  ü\n");
}

// Text columns give up width in their order, down to their heading, and end in "…" (one
// character, counted as one even after UTF-8 text); numbers keep every digit.
TEST(TextTableTest, FitsAWidthByShorteningTextColumnsInTheirOrder) {
  TextTable table{{{"Project", TextTable::left, 2},
                   {"Models", TextTable::left, 1},
                   {"Tokens", TextTable::right}}};
  table.addRow({"/home/ana/src/brimlog", "claude-sonnet-4-5, gpt-5", "1,234,567"});
  table.addRow({"/home/ana/ünïcødé", "m", "1"});
  const std::string whole =
      "Project                Models                       Tokens\n"
      "----------------------------------------------------------\n"
      "/home/ana/src/brimlog  claude-sonnet-4-5, gpt-5  1,234,567\n"
      "/home/ana/ünïcødé      m                                 1\n";
  const struct {
    const char* name;
    std::optional<size_t> width;
    std::string expected;
  } rows[] = {
      {"no width: whole values", std::nullopt, whole},
      {"wide enough", 58, whole},
      {"the models give way first", 50,
       "Project                Models               Tokens\n"
       "--------------------------------------------------\n"
       "/home/ana/src/brimlog  claude-sonnet-4…  1,234,567\n"
       "/home/ana/ünïcødé      m                         1\n"},
      {"then the project", 36,
       "Project            Models     Tokens\n"
       "------------------------------------\n"
       "/home/ana/src/br…  claud…  1,234,567\n"
       "/home/ana/ünïcødé  m               1\n"},
      {"never below the headings, never into numbers", 10,
       "Project  Models     Tokens\n"
       "--------------------------\n"
       "/home/…  claud…  1,234,567\n"
       "/home/…  m               1\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(table.render(row.width), row.expected);
  }

  // Columns of one order give way together.
  TextTable even{{{"Project", TextTable::left, 1},
                  {"Models", TextTable::left, 1},
                  {"Tokens", TextTable::right}}};
  even.addRow({"/home/ana/src/brimlog", "claude-sonnet-4-5, gpt-5", "1,234,567"});
  EXPECT_EQ(even.render(40),
            "Project        Models             Tokens\n"
            "----------------------------------------\n"
            "/home/ana/sr…  claude-sonnet…  1,234,567\n");
}

}  // namespace
}  // namespace brimlog
