#include <fmt/format.h>
#include <gtest/gtest.h>

#include "ingest/DataRow.hpp"
#include "ingest/qwen/QwenLogParser.hpp"

namespace brimlog {
namespace {

// What each record gives: how each provider's usage maps onto the counters, the records that must
// add nothing, branch copies, fallbacks, broken lines. Records read from a file take a quick look
// at their type first; the outcome must be the one the full parse of the same bytes gives.
TEST(QwenLogParserTest, EachRecordGivesWhatTheFullParseGives) {
  for (const testing::DataRow& row : testing::namedRows("ingest/qwen-records.tsv")) {
    SCOPED_TRACE(row.name);
    const std::string& line = row.fields.at(1);
    const auto e = QwenLogParser::event(std::string_view(line));
    const TokenCounts t = e ? e->tokens : TokenCounts{};
    EXPECT_EQ(e ? fmt::format("{}|{}|{}|{}|{:.3f}|{}|{}|{}|{}|{}|{}", e->dedupKey, e->model,
                              e->sessionID, e->project, unixSeconds(e->timestamp), t.uncachedInput,
                              t.cacheRead, t.cacheWrite5m, t.cacheWrite1h, t.output, t.reasoning)
                : "-",
              row.fields.at(0));
    EXPECT_EQ(QwenLogParser::event(testing::PaddedCopy(line)), e);
  }
}

}  // namespace
}  // namespace brimlog
