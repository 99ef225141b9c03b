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
    // Made of what a fork's or an old file's copy keeps: provider, model and creation time.
    EXPECT_EQ(event->dedupKey, "opencode:anthropic/claude-sonnet-4-5@1771228800123");
    EXPECT_EQ(event->tokens, row.expected->tokens);
    ASSERT_EQ(event->reportedCostUSD.has_value(), row.expected->cost.has_value());
    if (event->reportedCostUSD) {
      EXPECT_NEAR(*event->reportedCostUSD, *row.expected->cost, 1e-12);
    }
  }
}

}  // namespace
}  // namespace brimlog
