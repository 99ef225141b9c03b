#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "ingest/DataRow.hpp"
#include "ingest/claude/ClaudeLogParser.hpp"

namespace brimlog {
namespace {

using testing::DataRow;
using testing::PaddedCopy;

// An assistant reply with its usage spliced in.
std::string reply(const std::string& usage) {
  return R"({"type":"assistant","timestamp":"2025-06-01T12:34:56.789Z","sessionId":"s1",)"
         R"("message":{"id":"msg_1","model":"m1","usage":)" +
         usage + "}}";
}

TEST(ClaudeLogParserTest, AnAssistantReplyBecomesAnEvent) {
  const auto event = ClaudeLogParser::event(reply(R"({"input_tokens":10,"output_tokens":5})"));
  EXPECT_EQ(event, (UsageEvent{ProviderID::claude, "m1", "s1", "msg_1",
                               dateFromUnixSeconds(1748781296.789), TokenCounts{10, 0, 0, 0, 5, 0},
                               std::nullopt, ""}));
}

// Which usage fields count as what: cache writes split by lifetime when they can be, token
// fields as truncated numbers and nothing else.
TEST(ClaudeLogParserTest, UsageFieldsBecomeTokenCounts) {
  for (const DataRow& row : testing::namedRows("ingest/claude-usage.tsv")) {
    SCOPED_TRACE(row.name);
    const auto event = ClaudeLogParser::event(reply(row.fields.at(0)));
    ASSERT_TRUE(event);
    EXPECT_EQ(event->tokens, (TokenCounts{row.integer(1), row.integer(2), row.integer(3),
                                          row.integer(4), row.integer(5), row.integer(6)}));
  }
}

// What each line gives: the fallbacks of key, model and session, lines that are not usable
// replies, keys written with escapes, broken text. Lines read from a file take a quick look at
// their type first; the outcome must be the one the full parse of the same bytes gives.
TEST(ClaudeLogParserTest, EachLineGivesWhatTheFullParseGives) {
  for (const DataRow& row : testing::namedRows("ingest/claude-lines.tsv")) {
    SCOPED_TRACE(row.name);
    const std::string& line = row.fields.at(1);
    const auto full = ClaudeLogParser::event(std::string_view(line));
    EXPECT_EQ(full ? full->dedupKey + "|" + full->model + "|" + full->sessionID : "-",
              row.fields.at(0));
    EXPECT_EQ(ClaudeLogParser::event(PaddedCopy(line)), full);
  }
}

TEST(ClaudeLogParserTest, ManyThreadsParseAtOnce) {
  std::vector<std::thread> threads;
  std::atomic<int> mismatches{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t, &mismatches] {
      for (int i = 0; i < 2000; ++i) {
        const int n = t * 10000 + i;
        const auto event = ClaudeLogParser::event(
            reply(R"({"input_tokens":)" + std::to_string(n) + R"(,"output_tokens":1})"));
        if (!event || event->tokens.uncachedInput != n) ++mismatches;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(mismatches.load(), 0);
}

}  // namespace
}  // namespace brimlog
