#include <gtest/gtest.h>

#include "output/CsvWriter.hpp"

namespace brimlog {
namespace {

TEST(CsvWriterTest, QuotesOnlyFieldsThatNeedItAndDoublesTheirQuotes) {
  const struct {
    const char* name;
    const char* field;
    const char* written;
  } rows[] = {
      {"plain text", "claude-sonnet-4-5", "claude-sonnet-4-5"},
      {"a number", "13.883512", "13.883512"},
      {"empty", "", ""},
      {"spaces stay as they are", " a b ", " a b "},
      {"a comma", "claude, codex", "\"claude, codex\""},
      {"double quotes", "say \"hi\"", "\"say \"\"hi\"\"\""},
      {"a line feed", "two\nlines", "\"two\nlines\""},
      {"a carriage return", "a\rb", "\"a\rb\""},
      {"UTF-8", "/home/zoë/café", "/home/zoë/café"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(CsvWriter::field(row.field), row.written);
  }
  EXPECT_EQ(CsvWriter::record({"day", "", "a,b"}), "day,,\"a,b\"\n");
}

}  // namespace
}  // namespace brimlog
