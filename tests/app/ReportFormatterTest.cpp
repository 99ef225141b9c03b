#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ReportFormatter.hpp"
#include "TextTable.hpp"

namespace brimlog {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

TEST(ReportFormatterTest, EveryViewEndsWithATotalThatMatchesTheSummary) {
  const UsageSummary& summary = UsageSummary::preview();
  const Calendar utc = Calendar::utc();
  const std::string total = formatUSD(summary.totalCostUSD);
  for (auto view : {ReportFormatter::View::daily, ReportFormatter::View::models,
                    ReportFormatter::View::tools}) {
    const std::string text = ReportFormatter::render(summary, view, utc);
    EXPECT_THAT(text, HasSubstr("Usage of the last 30 days"));
    EXPECT_THAT(text, HasSubstr("Total"));
    EXPECT_THAT(text, HasSubstr(total));
  }
  const std::string daily = ReportFormatter::render(summary, ReportFormatter::View::daily, utc);
  // A cost column per tool with data.
  for (const UsageSummary::Tool& tool : summary.tools) {
    EXPECT_THAT(daily, HasSubstr(std::string(tool.provider.displayName())));
  }
  const std::string tools = ReportFormatter::render(summary, ReportFormatter::View::tools, utc);
  EXPECT_THAT(tools, HasSubstr("Claude Code"));
  EXPECT_THAT(tools, HasSubstr(formatCount(summary.sessions)));
}

TEST(ReportFormatterTest, MarksApproximateAndUnknownCosts) {
  UsageSummary summary;
  summary.days = 7;
  summary.windowEnd = *parseISO8601("2026-11-20T00:00:00Z");
  summary.totalCostUSD = 2;
  summary.hasUnknownPrices = true;
  summary.tools = {{ProviderID::grok, 1, 100, 2, 1, 1, true}};
  summary.models = {{ProviderID::grok, "grok-4", 2.0, 1, 0.5, {}, true},
                    {ProviderID::grok, "mystery", std::nullopt, 0, 0.5, {}, false}};
  const std::string text =
      ReportFormatter::render(summary, ReportFormatter::View::models, Calendar::utc());
  EXPECT_THAT(text, HasSubstr("2026-11-14 to 2026-11-20"));
  EXPECT_THAT(text, HasSubstr("~$2.00"));
  EXPECT_THAT(text, HasSubstr("mystery"));
  EXPECT_THAT(text, HasSubstr("~ approximate"));
  EXPECT_THAT(text, HasSubstr("no known price"));

  summary.tools.clear();
  EXPECT_THAT(ReportFormatter::render(summary, ReportFormatter::View::daily, Calendar::utc()),
              HasSubstr("No usage recorded"));
  EXPECT_FALSE(ReportFormatter::viewNamed("weekly"));
}

}  // namespace
}  // namespace brimlog
