#include <fmt/format.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <tuple>
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

// An assistant message with its own tokens and no cost of its own.
std::string assistant(const std::string& messageTokens, bool withCreationTime = true) {
  return fmt::format(
      R"({{"role":"assistant","providerID":"anthropic","modelID":"claude-sonnet-4-5",{})"
      R"("cost":0,"tokens":{}}})",
      withCreationTime ? R"("time":{"created":1771228800123,"completed":1771228809456},)" : "",
      messageTokens);
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
  // Each row: its name, the message, its parts, and the reply's tokens and cost if there is one.
  const std::tuple<const char*, std::string, std::vector<std::string>, std::optional<Expected>>
      rows[] = {
          {"no total, reasoning within the output: inside",
           assistant(tokens(10, 50, 30, 0, 0)),
           {},
           Expected{{10, 0, 0, 0, 50, 30}, {}}},
          {"no total, reasoning beyond the output: added",
           assistant(tokens(10, 20, 30, 0, 0)),
           {},
           Expected{{10, 0, 0, 0, 50, 30}, {}}},
          {"the steps' sums, each step deciding for itself",
           assistant(tokens(0, 0, 0, 0, 0)),
           {step(tokens(1, 50, 30, 0, 0, 51), 0.01), step(tokens(1, 50, 30, 0, 0, 81), 0.02)},
           Expected{{2, 0, 0, 0, 130, 60}, 0.03}},
          {"no creation time", assistant(tokens(1, 1, 0, 0, 0), false), {}, std::nullopt},
          {"not JSON", R"({"role":"assistant",)", {}, std::nullopt},
      };
  for (const auto& [name, message, parts, expected] : rows) {
    SCOPED_TRACE(name);
    OpenCodeMessageParser parser;
    parser.message(message);
    for (const std::string& part : parts) parser.part(part);
    const std::optional<UsageEvent> event = parser.event(ProviderID::opencode, "ses_1", "/s");
    ASSERT_EQ(event.has_value(), expected.has_value());
    if (!event) continue;
    // Made of what a fork's or an old file's copy keeps: provider, model and creation time.
    EXPECT_EQ(event->dedupKey, "opencode:anthropic/claude-sonnet-4-5@1771228800123");
    EXPECT_EQ(event->tokens, expected->tokens);
    EXPECT_NEAR(event->reportedCostUSD.value_or(-1), expected->cost.value_or(-1), 1e-12);
  }
}

}  // namespace
}  // namespace brimlog
