#include <fmt/format.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ingest/DataRow.hpp"
#include "ingest/gemini/GeminiLogParser.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

std::string described(const UsageEvent& e) {
  const TokenCounts& t = e.tokens;
  return fmt::format("{}|{}|{}|{}|{:.3f}|{}|{}|{}|{}|{}|{}", e.dedupKey, e.model, e.sessionID,
                     e.project, unixSeconds(e.timestamp), t.uncachedInput, t.cacheRead,
                     t.cacheWrite5m, t.cacheWrite1h, t.output, t.reasoning);
}

GeminiSession session(const std::string& field) {
  const size_t bar = field.find('|');
  return {field.substr(0, bar), field.substr(bar + 1)};
}

TEST(GeminiLogParserTest, LinesGiveTheirRepliesAndTheSessionTheyBelongTo) {
  for (const testing::DataRow& row : testing::namedRows("ingest/gemini-lines.tsv")) {
    SCOPED_TRACE(row.name);
    GeminiSession s = session(row.fields.at(1));
    std::vector<UsageEvent> events;
    GeminiLogParser::consume(testing::PaddedCopy(row.fields.at(4)), s,
                             row.fields[0] == "-" ? "" : row.fields[0], events);
    std::string got = events.empty() ? "-" : "";
    for (const UsageEvent& e : events) got += (got.empty() ? "" : " ; ") + described(e);
    EXPECT_EQ(got, row.fields.at(2));
    EXPECT_EQ(s, session(row.fields.at(3)));
  }
}

TEST(GeminiLogParserTest, OlderDocumentsGiveTheirReplies) {
  const auto legacy = GeminiLogParser::document(
      testing::readFile(testing::dataPath("ingest/gemini-legacy-session.json")), "/work/q");
  ASSERT_TRUE(legacy);
  ASSERT_EQ(legacy->size(), 1u);
  EXPECT_EQ(described((*legacy)[0]),
            "gemini:a1b2c3d4-0000-4a1b-8c2d-112233445566/m2|gemini-2.5-flash|"
            "a1b2c3d4-0000-4a1b-8c2d-112233445566|/work/q|1763654550.100|9120|0|0|0|686|231");
  // A document cut short while it was rewritten, or one without messages, is not a session.
  for (const char* broken : {R"({"sessionId":"s","messages":[)", R"({"sessionId":"s"})", "[]"}) {
    EXPECT_EQ(GeminiLogParser::document(broken, ""), std::nullopt) << broken;
  }
}

}  // namespace
}  // namespace brimlog
