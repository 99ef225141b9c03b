#include <gtest/gtest.h>

#include "output/ReportJson.hpp"

namespace brimlog {
namespace {

Date at(const char* text) { return *parseISO8601(text); }

// The summary's own keys, with calendar days as dates and sums of doubles given as people write
// them. No series holds a row without usage: a tool or model whose only rows are empty (a reply of
// 0 tokens), a tool's day without use, a day whose only rows are empty.
TEST(ReportJsonTest, SummaryDaysAreDatesFiguresAreToTheMillionthAndEmptyRowsAreLeftOut) {
  UsageSummary summary;
  summary.days = 2;
  summary.windowEnd = at("2026-11-04T05:00:00Z");
  summary.totalCostUSD = 13.883511999999998;
  summary.tools = {{ProviderID::claude, 1, 1200, 0.1 + 0.2, 1.0 / 3, 1, false},
                   {ProviderID::codex, 1, 0, 0, 0, 0, false}};
  summary.daily = {{at("2026-11-03T05:00:00Z"), ProviderID::claude, 0, 0},
                   {at("2026-11-04T05:00:00Z"), ProviderID::claude, 1200, 0.1 + 0.2},
                   {at("2026-11-04T05:00:00Z"), ProviderID::codex, 0, 0}};
  TokenCounts used;
  used.output = 1200;
  summary.models = {{ProviderID::claude, "claude-sonnet-4-5", 0.3, 1, 1, used, false},
                    {ProviderID::codex, "gpt-5.3-codex", 0.0, 0, 0, TokenCounts{}, false},
                    {ProviderID::codex, "gpt-unpriced", std::nullopt, 0, 0, TokenCounts{}, false}};
  summary.perDay = {{at("2026-11-03T05:00:00Z"), 0, 0, 1},
                    {at("2026-11-04T05:00:00Z"), 0.1 + 0.2, 1200, 1}};
  ReportContent content;
  content.view = ReportContent::View::tools;
  content.summary = summary;

  const std::string text = ReportJson::write(content, *Calendar::named("America/New_York"));
  const Json json = Json::parse(text);
  EXPECT_EQ(json["windowEnd"], "2026-11-04");
  EXPECT_EQ(json["daily"], Json::parse(R"([{"day": "2026-11-04", "provider": "claude",
                                            "tokens": 1200, "costUSD": 0.3}])"));
  for (const char* series : {"tools", "models"}) {
    ASSERT_EQ(json[series].size(), 1u) << json[series];
    EXPECT_EQ(json[series][0]["provider"], "claude");
  }
  ASSERT_EQ(json["perDay"].size(), 1u);
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
