#include <gtest/gtest.h>

#include "output/ClaudeCodeStatus.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

TEST(ClaudeCodeStatusTest, ReadsTheModelAndCostAndIgnoresTheRest) {
  const std::optional<ClaudeCodeStatus> real =
      ClaudeCodeStatus::parse(testing::readFile(testing::dataPath("app/claude-code-status.json")));
  ASSERT_TRUE(real);
  EXPECT_EQ(*real, (ClaudeCodeStatus{"Opus", 0.01234}));
  struct Case {
    const char* name;
    const char* input;
    std::optional<ClaudeCodeStatus> expected;
  };
  const Case cases[] = {
      {"no input", "", std::nullopt},
      {"not JSON", "{\"model\":", std::nullopt},
      {"not an object", "[1,2]", std::nullopt},
      {"nothing known", "{\"session_id\":\"x\"}", ClaudeCodeStatus{}},
      {"wrong types", R"({"model":{"display_name":7},"cost":{"total_cost_usd":"0.5"}})",
       ClaudeCodeStatus{}},
      {"control characters", R"({"model":{"display_name":"Op\u001b[2Jus\n"}})",
       ClaudeCodeStatus{"Op[2Jus", std::nullopt}},
  };
  for (const Case& c : cases) EXPECT_EQ(ClaudeCodeStatus::parse(c.input), c.expected) << c.name;
}

}  // namespace
}  // namespace brimlog
