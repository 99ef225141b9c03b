#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ingest/DataRow.hpp"
#include "ingest/GrokUsageParser.hpp"

namespace brimlog {
namespace {

const std::string kEnded = R"("endedAt":"2025-06-01T12:34:56.789Z")";

std::string turn(int number, const std::string& models, const std::string& ended = kEnded) {
  std::string text = R"({"turnNumber":)" + std::to_string(number);
  if (!ended.empty()) text += "," + ended;
  return text + R"(,"modelUsage":)" + models + "}";
}

std::string session(const std::vector<std::string>& turns) {
  std::string text = R"({"sessionId":"s1","turns":[)";
  for (size_t i = 0; i < turns.size(); ++i) text += (i ? "," : "") + turns[i];
  return text + "]}";
}

std::vector<std::string> keys(const GrokUsageParser::Result& result) {
  std::vector<std::string> keys;
  for (const UsageEvent& event : result.events) keys.push_back(event.dedupKey);
  return keys;
}

using Keys = std::vector<std::string>;

TEST(GrokUsageParserTest, FinishedTurnsYieldOneEventPerModel) {
  const std::string document = session({
      turn(1, R"({"a":{"inputTokens":100,"cachedReadTokens":30,"cacheCreationTokens":7,)"
              R"("outputTokens":20,"reasoningTokens":5,"costUsdTicks":25000000000}})"),
      turn(2, R"({"b":{},"a":{"inputTokens":1,"cachedReadTokens":5,"costUsdTicks":0}})"),
  });
  const auto first = GrokUsageParser::events(document, 0);
  EXPECT_EQ(keys(first), (Keys{"s1#1#a", "s1#2#a", "s1#2#b"}));
  EXPECT_EQ(first.lastTurn, 2);
  ASSERT_EQ(first.events.size(), 3u);
  const UsageEvent& event = first.events[0];
  EXPECT_EQ(event.provider, ProviderID::grok);
  EXPECT_EQ(event.model, "a");
  EXPECT_EQ(event.sessionID, "s1");
  EXPECT_EQ(event.timestamp, dateFromUnixSeconds(1748781296.789));
  EXPECT_EQ(event.tokens, (TokenCounts{70, 30, 7, 0, 20, 5}));
  ASSERT_TRUE(event.reportedCostUSD);
  EXPECT_DOUBLE_EQ(*event.reportedCostUSD, 2.5);
  // A model without figures still counts, without a cost of its own.
  EXPECT_EQ(first.events[2].tokens, TokenCounts::zero());
  EXPECT_EQ(first.events[2].reportedCostUSD, std::nullopt);
  // Cached tokens above the input leave no uncached input; a cost of nothing is still a cost.
  EXPECT_EQ(first.events[1].tokens, (TokenCounts{0, 5, 0, 0, 0, 0}));
  EXPECT_EQ(first.events[1].reportedCostUSD, 0.0);

  EXPECT_EQ(GrokUsageParser::events(document, 2), (GrokUsageParser::Result{{}, 2}));
  EXPECT_EQ(keys(GrokUsageParser::events(document, 1)), (Keys{"s1#2#a", "s1#2#b"}));
}

TEST(GrokUsageParserTest, CompletionStopsAtTheFirstUnfinishedTurn) {
  const std::string models = R"({"m":{"outputTokens":1}})";
  const auto pending =
      GrokUsageParser::events(session({turn(1, models), turn(2, models, ""), turn(3, models)}), 0);
  EXPECT_EQ(keys(pending), (Keys{"s1#1#m", "s1#3#m"}));
  EXPECT_EQ(pending.lastTurn, 1);

  const auto finished = GrokUsageParser::events(
      session({turn(1, models), turn(2, models), turn(3, models)}), pending.lastTurn);
  EXPECT_EQ(keys(finished), (Keys{"s1#2#m", "s1#3#m"}));
  EXPECT_EQ(finished.lastTurn, 3);

  // An empty or non-text end is unfinished; a text that is no date finishes the turn without
  // events of its own.
  for (const std::string& ended : {std::string(R"("endedAt":"")"), std::string(R"("endedAt":1)"),
                                   std::string(R"("endedAt":null)")}) {
    const auto result =
        GrokUsageParser::events(session({turn(1, models, ended), turn(2, models)}), 0);
    EXPECT_EQ(keys(result), (Keys{"s1#2#m"})) << ended;
    EXPECT_EQ(result.lastTurn, 0) << ended;
  }
  const auto notADate = GrokUsageParser::events(
      session({turn(1, models, R"("endedAt":"2025-06-01T12:34:56")"), turn(2, models)}), 0);
  EXPECT_EQ(keys(notADate), (Keys{"s1#2#m"}));
  EXPECT_EQ(notADate.lastTurn, 2);

  // Turns already taken never hold completion back, even unfinished ones.
  const auto afterOld =
      GrokUsageParser::events(session({turn(1, models, ""), turn(5, models), turn(6, models)}), 4);
  EXPECT_EQ(afterOld.lastTurn, 6);

  // A number below every turn takes them all.
  EXPECT_EQ(GrokUsageParser::events(session({turn(2, models)}), -10).lastTurn, 2);
}

TEST(GrokUsageParserTest, TurnsAndModelsAreTakenInOrder) {
  const std::string one = R"({"m":{}})";
  // Ascending turn numbers; equal numbers keep their document order.
  const auto sorted = GrokUsageParser::events(
      session({turn(3, one), turn(1, R"({"x":{}})"), turn(2, one), turn(1, R"({"w":{}})")}), -1);
  EXPECT_EQ(keys(sorted), (Keys{"s1#1#x", "s1#1#w", "s1#2#m", "s1#3#m"}));
  EXPECT_EQ(sorted.lastTurn, 3);

  // Model names by their bytes (upper case first); a name written twice counts once; entries
  // that are not objects are skipped.
  const auto models = GrokUsageParser::events(
      session({turn(1, R"({"b":{},"a":{"outputTokens":1},"B":{},"c":5,"a":{"outputTokens":2}})")}),
      0);
  EXPECT_EQ(keys(models), (Keys{"s1#1#B", "s1#1#a", "s1#1#b"}));
  EXPECT_EQ(models.events[1].tokens.output, 1);

  // Turn numbers: any JSON number, truncated; other turns are ignored but do not block.
  const auto numbers = GrokUsageParser::events(
      R"({"sessionId":"s1","turns":[{},{"turnNumber":"1",)" + kEnded +
          R"(,"modelUsage":{"m":{}}},{"turnNumber":2.7,)" + kEnded + R"(,"modelUsage":{"m":{}}},)" +
          R"({"turnNumber":3,)" + kEnded + R"(,"modelUsage":[]},{"turnNumber":4,)" + kEnded + "}]}",
      0);
  EXPECT_EQ(keys(numbers), (Keys{"s1#2#m"}));
  EXPECT_EQ(numbers.lastTurn, 4);
}

TEST(GrokUsageParserTest, UnusableDocumentsKeepAfterTurn) {
  for (const testing::DataRow& row : testing::dataRows("ingest/grok-documents.tsv")) {
    SCOPED_TRACE(row.name);
    const auto result = GrokUsageParser::events(row.fields.at(2), -1);
    EXPECT_EQ(result.events.size(), static_cast<size_t>(row.integer(0)));
    EXPECT_EQ(result.lastTurn, row.integer(1));
  }
}

}  // namespace
}  // namespace brimlog
