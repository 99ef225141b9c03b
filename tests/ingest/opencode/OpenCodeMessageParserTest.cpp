#include <fmt/format.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "ingest/opencode/OpenCodeMessageParser.hpp"

namespace brimlog {
namespace {

// A token object of the tool: input, output, reasoning, cache read and write, and the total
// when the build stored one (negative: none).
std::string tokens(int64_t input, int64_t output, int64_t reasoning, int64_t read, int64_t write,
                   int64_t total = -1) {
  const std::string totalField = total < 0 ? "" : fmt::format(R"("total":{},)", total);
  return fmt::format(
      R"({{{}"input":{},"output":{},"reasoning":{},"cache":{{"read":{},"write":{}}}}})", totalField,
      input, output, reasoning, read, write);
}

constexpr const char* kTime = R"("time":{"created":1771228800123,"completed":1771228809456},)";

std::string assistant(const std::string& messageTokens, double cost,
                      const std::string& extra = R"("path":{"cwd":"/w/app","root":"/w"},)",
                      const std::string& time = kTime) {
  return fmt::format(
      R"({{"role":"assistant","providerID":"anthropic","modelID":"claude-sonnet-4-5",{}{})"
      R"("cost":{},"tokens":{}}})",
      extra, time, cost, messageTokens);
}

std::string step(const std::string& stepTokens, double cost) {
  return fmt::format(R"({{"type":"step-finish","reason":"stop","cost":{},"tokens":{}}})", cost,
                     stepTokens);
}

struct Expected {
  TokenCounts tokens;
  std::optional<double> cost;
};

TEST(OpenCodeMessageParserTest, MapsEachKindOfMessageOntoOneReply) {
  const struct Row {
    const char* name;
    std::string message;
    std::vector<std::string> parts;
    std::optional<Expected> expected;
  } rows[] = {
      {"the steps' sums, not the message's own last step",
       assistant(tokens(5, 7, 0, 300, 20), 0.03),
       {step(tokens(3, 4, 0, 100, 20), 0.01), R"({"type":"text","text":"step-finish"})",
        step(tokens(5, 7, 0, 300, 20), 0.02)},
       Expected{{8, 400, 40, 0, 11, 0}, 0.03}},
      {"no parts: the message's own counts",
       assistant(tokens(5, 7, 0, 300, 20), 0.02),
       {},
       Expected{{5, 300, 20, 0, 7, 0}, 0.02}},
      {"a total of the four counts: reasoning already inside the output",
       assistant(tokens(10, 50, 30, 0, 0, 60), 0),
       {},
       Expected{{10, 0, 0, 0, 50, 30}, {}}},
      {"a total beyond them: reasoning added to the output",
       assistant(tokens(10, 50, 30, 0, 0, 90), 0),
       {},
       Expected{{10, 0, 0, 0, 80, 30}, {}}},
      {"no total, reasoning within the output: inside",
       assistant(tokens(10, 50, 30, 0, 0), 0),
       {},
       Expected{{10, 0, 0, 0, 50, 30}, {}}},
      {"no total, reasoning beyond the output: added",
       assistant(tokens(10, 20, 30, 0, 0), 0),
       {},
       Expected{{10, 0, 0, 0, 50, 30}, {}}},
      {"each step decides for itself",
       assistant(tokens(0, 0, 0, 0, 0), 0),
       {step(tokens(1, 50, 30, 0, 0, 51), 0), step(tokens(1, 50, 30, 0, 0, 81), 0)},
       Expected{{2, 0, 0, 0, 130, 60}, {}}},
      {"a user message", R"({"role":"user","time":{"created":1771228800123}})", {}, std::nullopt},
      {"waiting for its first step", assistant(tokens(0, 0, 0, 0, 0), 0), {}, std::nullopt},
      {"no creation time", assistant(tokens(1, 1, 0, 0, 0), 0, "", ""), {}, std::nullopt},
      {"not JSON", R"({"role":"assistant",)", {}, std::nullopt},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    OpenCodeMessageParser parser;
    parser.message(row.message);
    for (const std::string& part : row.parts) parser.part(part);
    const std::optional<UsageEvent> event = parser.event(ProviderID::opencode, "ses_1", "/s");
    ASSERT_EQ(event.has_value(), row.expected.has_value());
    if (!event) continue;
    EXPECT_EQ(event->tokens, row.expected->tokens);
    ASSERT_EQ(event->reportedCostUSD.has_value(), row.expected->cost.has_value());
    if (event->reportedCostUSD) {
      EXPECT_NEAR(*event->reportedCostUSD, *row.expected->cost, 1e-12);
    }
  }
}

// A forked session's copy has a new id, a new session and (in Kilo) no cost, an old JSON file's
// copy has the same id: each is the same reply as the original. The key, the session, the project
// and the time come from the first read.
TEST(OpenCodeMessageParserTest, CopiesOfAReplyShareItsKey) {
  OpenCodeMessageParser parser;
  ASSERT_TRUE(parser.message(assistant(tokens(5, 7, 0, 300, 20), 0.02)));
  const UsageEvent original = *parser.event(ProviderID::opencode, "ses_1", "/s");
  EXPECT_EQ(original.dedupKey, "opencode:anthropic/claude-sonnet-4-5@1771228800123");
  EXPECT_EQ(original.sessionID, "ses_1");
  EXPECT_EQ(original.project, "/w/app");
  EXPECT_EQ(unixSeconds(original.timestamp), 1771228800.123);

  ASSERT_TRUE(parser.message(assistant(tokens(5, 7, 0, 300, 20), 0,
                                       R"("id":"msg_copy",)"
                                       R"("sessionID":"ses_2",)")));
  const UsageEvent copy = *parser.event(ProviderID::kilo, "ignored", "/s");
  EXPECT_EQ(copy.dedupKey, "kilo:anthropic/claude-sonnet-4-5@1771228800123");
  // With no working folder in the message, the caller's (the session's folder) is used.
  EXPECT_EQ(std::tuple(copy.sessionID, copy.project, copy.reportedCostUSD),
            std::tuple("ses_2", "/s", std::optional<double>{}));
  EXPECT_EQ(parser.messageID(), "msg_copy");
}

}  // namespace
}  // namespace brimlog
