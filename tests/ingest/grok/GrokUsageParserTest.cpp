#include <gtest/gtest.h>

#include <string>

#include "ingest/DataRow.hpp"
#include "ingest/grok/GrokUsageParser.hpp"

namespace brimlog {
namespace {

TEST(GrokUsageParserTest, FinishedTurnsYieldOneEventPerModel) {
  const auto result = GrokUsageParser::events(
      R"({"sessionId":"s1","turns":[{"turnNumber":1,"endedAt":"2025-06-01T12:34:56.789Z",)"
      R"("modelUsage":{"a":{"inputTokens":100,"cachedReadTokens":30,"cacheCreationTokens":7,)"
      R"("outputTokens":20,"reasoningTokens":5,"costUsdTicks":25000000000}}},)"
      R"({"turnNumber":2,"endedAt":"2025-06-01T12:34:56.789Z","modelUsage":{"b":{},)"
      R"("a":{"inputTokens":1,"cachedReadTokens":5,"costUsdTicks":0},"a":{"outputTokens":9}}}]})",
      0);
  EXPECT_EQ(result.lastTurn, 2);
  ASSERT_EQ(result.events.size(), 3u);
  EXPECT_EQ(result.events[0],
            (UsageEvent{ProviderID::grok, "a", "s1", "s1#1#a", dateFromUnixSeconds(1748781296.789),
                        TokenCounts{70, 30, 7, 0, 20, 5}, 2.5, ""}));
  // Cached tokens above the input leave no uncached input; a cost of nothing is still a cost; a
  // model written twice counts once, with its first figures.
  EXPECT_EQ(result.events[1].dedupKey, "s1#2#a");
  EXPECT_EQ(result.events[1].tokens, (TokenCounts{0, 5, 0, 0, 0, 0}));
  EXPECT_EQ(result.events[1].reportedCostUSD, 0.0);
  // A model without figures still counts, without a cost of its own.
  EXPECT_EQ(result.events[2].dedupKey, "s1#2#b");
  EXPECT_EQ(result.events[2].tokens, TokenCounts::zero());
  EXPECT_EQ(result.events[2].reportedCostUSD, std::nullopt);
}

// Which turns give events and how far completion gets: completion stops at the first unfinished
// turn, turns come in ascending order and models by their names' bytes; a document that is not a
// usable session gives nothing and keeps the turn it was read after.
TEST(GrokUsageParserTest, DocumentsGiveTheirFinishedTurnsInOrder) {
  for (const testing::DataRow& row : testing::namedRows("ingest/grok-documents.tsv")) {
    SCOPED_TRACE(row.name);
    const auto result = GrokUsageParser::events(row.fields.at(3), row.integer(0));
    std::string keys;
    for (const UsageEvent& event : result.events)
      keys += (keys.empty() ? "" : " ") + event.dedupKey;
    EXPECT_EQ(keys.empty() ? "-" : keys, row.fields.at(1));
    EXPECT_EQ(result.lastTurn, row.integer(2));
  }
}

}  // namespace
}  // namespace brimlog
