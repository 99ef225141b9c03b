#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ingest/DataRow.hpp"
#include "ingest/gemini/GeminiLogParser.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

// What a line yields: the events' keys with their six counters, the session it leaves.
struct LineRow {
  const char* name;
  std::string line;
  std::vector<std::string> events;  // "key uncached cacheRead output reasoning project model"
  GeminiSession after;
};

std::string described(const UsageEvent& e) {
  return e.dedupKey + " " + std::to_string(e.tokens.uncachedInput) + " " +
         std::to_string(e.tokens.cacheRead) + " " + std::to_string(e.tokens.output) + " " +
         std::to_string(e.tokens.reasoning) + " " + e.project + " " + e.model;
}

constexpr const char* kReply =
    R"({"id":"g1","timestamp":"2026-05-02T09:14:14.870Z","type":"gemini","content":"",)"
    R"("tokens":{"input":1000,"output":50,"cached":600,"thoughts":20,"tool":30,"total":1100},)"
    R"("model":"gemini-2.5-pro"})";

TEST(GeminiLogParserTest, LinesGiveTheirRepliesAndTheSessionTheyBelongTo) {
  const GeminiSession s{"s1", "/work/dir"};
  const LineRow rows[] = {
      // Input holds the cached part; the tool-use prompt is input beside it; thinking is output.
      {"a reply", kReply, {"gemini:s1/g1 430 600 70 20 /work/p gemini-2.5-pro"}, s},
      {"a reply before its counts",
       R"({"id":"g1","timestamp":"2026-05-02T09:14:14Z","type":"gemini","model":"m"})",
       {},
       s},
      {"counts not known yet",
       R"({"id":"g1","timestamp":"2026-05-02T09:14:14Z","type":"gemini","tokens":null})",
       {},
       s},
      {"the user's turn",
       R"({"id":"u1","timestamp":"2026-05-02T09:14:14Z","type":"user","tokens":{"input":5}})",
       {},
       s},
      // A cache read larger than the prompt leaves only the tool-use prompt uncached.
      {"no model, more cached than input",
       R"({"id":"g2","timestamp":"2026-05-02T09:14:14Z","type":"gemini",)"
       R"("tokens":{"input":10,"cached":40,"output":1,"tool":3}})",
       {"gemini:s1/g2 3 40 1 0 /work/p unknown"},
       s},
      {"a rewind takes nothing back", R"({"$rewindTo":"g1"})", {}, s},
      {"a metadata update", R"({"$set":{"lastUpdated":"2026-05-02T09:14:21.401Z"}})", {}, s},
      {"the session's id set again",
       R"({"$set":{"sessionId":"s2","directories":["/work/other"]}})",
       {},
       {"s2", "/work/other"}},
      // A checkpoint writes every message again; its replies come out under the same keys.
      {"a checkpoint",
       R"({"$set":{"messages":[{"id":"u1","timestamp":"2026-05-02T09:14:10Z","type":"user"},)"
       R"(7,)" +
           std::string(kReply) + "]}}",
       {"gemini:s1/g1 430 600 70 20 /work/p gemini-2.5-pro"},
       s},
      {"a new session's first line",
       R"({"sessionId":"s3","projectHash":"ab","startTime":"2026-05-02T09:14:05Z","kind":"subagent",)"
       R"("directories":["/work/sub","/work/x"]})",
       {},
       {"s3", "/work/sub"}},
      {"not JSON", R"({"id":"g1","type":"gemini",)", {}, s},
  };
  for (const LineRow& row : rows) {
    SCOPED_TRACE(row.name);
    GeminiSession session = s;
    std::vector<UsageEvent> events;
    GeminiLogParser::consume(testing::PaddedCopy(row.line), session, "/work/p", events);
    std::vector<std::string> got;
    for (const UsageEvent& e : events) got.push_back(described(e));
    EXPECT_EQ(got, row.events);
    EXPECT_EQ(session, row.after);
  }
}

TEST(GeminiLogParserTest, ARepliesProjectAndSessionComeFromWhatTheFileTold) {
  std::vector<UsageEvent> events;
  // Before the metadata line, a reply has no session to be matched by in other files.
  GeminiSession session;
  GeminiLogParser::consume(testing::PaddedCopy(kReply), session, "", events);
  EXPECT_TRUE(events.empty());
  // Without a project folder, the session's first workspace folder stands in.
  session = {"s1", "/work/dir"};
  GeminiLogParser::consume(testing::PaddedCopy(kReply), session, "", events);
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0],
            (UsageEvent{ProviderID::gemini, "gemini-2.5-pro", "s1", "gemini:s1/g1",
                        *parseISO8601("2026-05-02T09:14:14.870Z"),
                        TokenCounts{430, 600, 0, 0, 70, 20}, std::nullopt, "/work/dir"}));
}

TEST(GeminiLogParserTest, OlderDocumentsGiveTheirReplies) {
  const auto legacy = GeminiLogParser::document(
      testing::readFile(testing::dataPath("ingest/gemini-legacy-session.json")), "/work/q");
  ASSERT_TRUE(legacy);
  ASSERT_EQ(legacy->size(), 1u);
  EXPECT_EQ(described((*legacy)[0]),
            "gemini:a1b2c3d4-0000-4a1b-8c2d-112233445566/m2 9120 0 686 231 /work/q "
            "gemini-2.5-flash");
  // A document cut short while it was rewritten, or one without messages, is not a session.
  for (const char* broken : {R"({"sessionId":"s","messages":[)", R"({"sessionId":"s"})", "[]"}) {
    EXPECT_EQ(GeminiLogParser::document(broken, ""), std::nullopt) << broken;
  }
}

}  // namespace
}  // namespace brimlog
