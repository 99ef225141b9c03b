#include <gtest/gtest.h>

#include <string>
#include <vector>

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
      turn(2, R"({"b":{},"a":{"inputTokens":1}})"),
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

TEST(GrokUsageParserTest, TokenFieldsAreNumbersOnly) {
  const auto result = GrokUsageParser::events(
      session(
          {turn(1, R"({"m":{"inputTokens":10,"cachedReadTokens":40,"outputTokens":"9",)"
                   R"("reasoningTokens":2.9,"costUsdTicks":"100"}})"),
           turn(2, R"({"m":{"inputTokens":1e300,"cachedReadTokens":-1e300,"costUsdTicks":0}})")}),
      0);
  ASSERT_EQ(result.events.size(), 2u);
  EXPECT_EQ(result.events[0].tokens, (TokenCounts{0, 40, 0, 0, 0, 2}));
  EXPECT_EQ(result.events[0].reportedCostUSD, std::nullopt);
  EXPECT_EQ(result.events[1].tokens.uncachedInput, std::numeric_limits<int64_t>::max());
  EXPECT_EQ(result.events[1].reportedCostUSD, 0.0);
}

TEST(GrokUsageParserTest, UnusableDocumentsKeepAfterTurn) {
  const std::string good = session({turn(1, R"({"m":{}})")});
  ASSERT_EQ(GrokUsageParser::events(good, -1).events.size(), 1u);
  std::string invalidUtf8 = good;
  invalidUtf8.replace(invalidUtf8.find("s1"), 2, "s\xff");
  for (const std::string& document : {
           std::string(""),
           std::string("[]"),
           good + " x",
           good.substr(0, good.size() - 1),
           invalidUtf8,
           std::string(R"({"turns":[{"turnNumber":1,)") + kEnded + R"(,"modelUsage":{"m":{}}}]})",
           std::string(R"({"sessionId":1,"turns":[]})"),
           std::string(R"({"sessionId":"s1","turns":{"turnNumber":1}})"),
           std::string(R"({"sessionId":"s1"})"),
           // One turn that is not an object spoils the list.
           std::string(R"({"sessionId":"s1","turns":[{"turnNumber":1,)") + kEnded +
               R"(,"modelUsage":{"m":{}}},7]})",
       }) {
    EXPECT_EQ(GrokUsageParser::events(document, -1), (GrokUsageParser::Result{{}, -1})) << document;
  }
}

}  // namespace
}  // namespace brimlog
