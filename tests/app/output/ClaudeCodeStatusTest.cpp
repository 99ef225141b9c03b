#include <fmt/format.h>
#include <gtest/gtest.h>

#include "output/ClaudeCodeStatus.hpp"
#include "output/StatusLine.hpp"
#include "support/ExpectedFile.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

const Date kNow = *parseISO8601("2026-10-29T12:00:00Z");

TEST(ClaudeCodeStatusTest, ReadsTheModelAndCostAndIgnoresTheRest) {
  EXPECT_EQ(ClaudeCodeStatus::parse(
                testing::readFile(testing::dataPath("app/claude-code-status.json")), kNow),
            (ClaudeCodeStatus{"Opus", 0.01234, {}}));
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
       ClaudeCodeStatus{"Op[2Jus", std::nullopt, {}}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ClaudeCodeStatus::parse(c.input, kNow), c.expected) << c.name;
  }
}

// Claude Code's own limits take the place of the snapshot's Claude windows in the claude-code
// line, whatever shape the object comes in; the line never fails for it.
TEST(ClaudeCodeStatusTest, ShowsClaudeCodesOwnLimitsWhateverShapeTheyComeIn) {
  const int64_t inAnHour = static_cast<int64_t>(unixSeconds(kNow)) + 3600;
  const int64_t inTwoDays = inAnHour + 47 * 3600;
  const std::string both = fmt::format(R"("five_hour":{{"used_percentage":42.3,"resets_at":{}}},)"
                                       R"("seven_day":{{"used_percentage":85.7,"resets_at":{}}})",
                                       inAnHour, inTwoDays);
  const std::pair<const char*, std::string> rows[] = {
      {"both windows", "{" + both + "}"},
      {"absent", ""},
      {"null", "null"},
      {"not an object", "[42]"},
      {"five hours only",
       fmt::format(R"({{"five_hour":{{"used_percentage":42.3,"resets_at":{}}}}})", inAnHour)},
      {"wrong types", R"({"five_hour":{"used_percentage":"42","resets_at":"soon"},)"
                      R"("seven_day":{"used_percentage":12,"resets_at":"soon"}})"},
      {"used up",
       fmt::format(R"({{"five_hour":{{"used_percentage":105,"resets_at":{}}}}})", inAnHour)},
      {"reset passed", R"({"five_hour":{"used_percentage":99,"resets_at":1700000000}})"},
      {"negative, no reset", R"({"seven_day":{"used_percentage":-3}})"},
  };
  std::string table;
  for (const auto& [name, limits] : rows) {
    const std::string text = R"({"model":{"display_name":"Opus"})" +
                             (limits.empty() ? "" : ",\"rate_limits\":" + limits) + "}";
    const std::optional<ClaudeCodeStatus> input = ClaudeCodeStatus::parse(text, kNow);
    ASSERT_TRUE(input) << name;
    table += std::string(name) + ": " +
             StatusLine{StatusLine::Format::claudeCode, std::nullopt, false}.render(
                 Snapshot::placeholder(), kNow, input);
  }
  EXPECT_TRUE(testing::matchesExpectedFile("line-claude-code-limits.txt", table));
}

}  // namespace
}  // namespace brimlog
