#include <gtest/gtest.h>

#include "output/ReportJson.hpp"

namespace brimlog {
namespace {

Date at(const char* text) { return *parseISO8601(text); }

// The summary's own keys, with calendar days as dates, a tool's series without its idle days,
// and sums of doubles given as people write them.
TEST(ReportJsonTest, SummaryDaysAreDatesAndFiguresAreGivenToTheMillionth) {
  const Calendar newYork = *Calendar::named("America/New_York");
  UsageSummary summary;
  summary.days = 2;
  summary.windowEnd = at("2026-11-04T05:00:00Z");
  summary.totalCostUSD = 13.883511999999998;
  summary.tools = {{ProviderID::claude, 1, 1200, 0.1 + 0.2, 1.0 / 3, 1, false}};
  summary.daily = {{at("2026-11-03T05:00:00Z"), ProviderID::claude, 0, 0},
                   {at("2026-11-04T05:00:00Z"), ProviderID::claude, 1200, 0.1 + 0.2}};
  summary.perDay = {{at("2026-11-04T05:00:00Z"), 0.1 + 0.2, 1200, 1}};

  ReportContent content;
  content.view = ReportContent::View::tools;
  content.summary = summary;
  const std::string text = ReportJson::write(content, newYork);
  const Json json = Json::parse(text);
  EXPECT_EQ(json["windowEnd"], "2026-11-04");
  EXPECT_EQ(json["daily"], Json::parse(R"([{"day": "2026-11-04", "provider": "claude",
                                            "tokens": 1200, "costUSD": 0.3}])"));
  EXPECT_EQ(json["perDay"][0]["day"], "2026-11-04");
  EXPECT_NE(text.find("\"totalCostUSD\": 13.883512,"), std::string::npos) << text;
  EXPECT_NE(text.find("\"costShare\": 0.333333,"), std::string::npos) << text;
  // Every other key is the summary's.
  Json keys = summary.toJson(DateForm::iso8601);
  for (auto& [key, value] : keys.items()) EXPECT_TRUE(json.contains(key)) << key;
  EXPECT_EQ(json.size(), keys.size());
}

}  // namespace
}  // namespace brimlog
