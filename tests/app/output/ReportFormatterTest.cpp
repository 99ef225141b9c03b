#include <gtest/gtest.h>

#include "output/ReportFormatter.hpp"
#include "store/UsageStore.hpp"
#include "store/UsageSummary.hpp"
#include "support/ExpectedFile.hpp"

namespace brimlog {
namespace {

using View = ReportContent::View;

// A report of `summary`'s days, which end today.
ReportContent contentOf(const UsageSummary& summary, View view, const Calendar& calendar) {
  ReportContent content;
  content.view = view;
  content.summary = summary;
  content.window = SummaryWindow::between(
      calendar.addingDays(1 - static_cast<int>(summary.days), summary.windowEnd)
          .value_or(summary.windowEnd),
      summary.windowEnd, calendar);
  return content;
}

const Calendar newYork = *Calendar::named("America/New_York");

// A week across the end of daylight saving time in New York (1 November 2026), summed by a real
// store: Codex costs most but keeps the second cost column, Claude borrows nothing, Grok has a
// reported cost (approximate) and a model without a price, and some days have no usage at all.
UsageSummary weekAcrossTheClockChange() {
  const auto price = [](double input, double output, std::optional<std::string> proxy = {}) {
    return ModelPrice{input, output, input / 10, input * 1.25, input * 2, proxy, "t", "2026-01-01"};
  };
  const PriceTable prices{{{"claude-sonnet-4-5", price(3, 15)},
                           {"gpt-5", price(1.25, 10)},
                           {"gpt-5-mini", price(0.25, 2, "gpt-5")}}};
  // Each reply is keyed by its time, which no two share.
  const auto reply = [](ProviderID provider, const char* model, const char* session, const char* at,
                        TokenCounts tokens, std::optional<double> reported = {}) {
    return UsageEvent{provider, model, session, at, *parseISO8601(at), tokens, reported, ""};
  };
  const std::vector<UsageEvent> replies = {
      // 23:30 on 31 October in New York, still summer time.
      reply(ProviderID::claude, "claude-sonnet-4-5-20250929", "c1", "2026-11-01T03:30:00Z",
            {12'000, 480'000, 20'000, 0, 9'000, 0}),
      reply(ProviderID::claude, "claude-sonnet-4-5", "c2", "2026-11-03T16:30:00Z",
            {30'000, 1'200'000, 0, 40'000, 25'000, 0}),
      reply(ProviderID::codex, "gpt-5", "x1", "2026-10-29T14:00:00Z",
            {900'000, 3'000'000, 0, 0, 120'000, 60'000}),
      // 00:30 on 4 November, winter time.
      reply(ProviderID::codex, "gpt-5-mini", "x2", "2026-11-04T05:30:00Z",
            {200'000, 0, 0, 0, 50'000, 20'000}),
      reply(ProviderID::grok, "grok-build", "g1", "2026-11-03T12:00:00Z",
            {50'000, 0, 0, 0, 4'000, 1'000}, 0.42),
      reply(ProviderID::grok, "grok-mystery", "g1", "2026-11-03T13:00:00Z",
            {7'000, 0, 0, 0, 500, 0}),
  };
  UsageStore store{":memory:"};
  store.ingest(replies);
  return store.summary(7, *parseISO8601("2026-11-04T18:00:00Z"), newYork, prices);
}

TEST(ReportFormatterTest, ViewsMatchTheirExpectedFiles) {
  const UsageSummary week = weekAcrossTheClockChange();
  const Calendar utc = Calendar::utc();
  const struct {
    const char* name;
    const UsageSummary& summary;
    View view;
    const Calendar& calendar;
  } rows[] = {
      {"report-daily.txt", week, View::daily, newYork},
      {"report-models.txt", week, View::models, newYork},
      {"report-tools.txt", week, View::tools, newYork},
      {"report-empty.txt", UsageSummary{}, View::daily, utc},
      {"report-preview-daily.txt", UsageSummary::preview(), View::daily, utc},
      {"report-preview-models.txt", UsageSummary::preview(), View::models, utc},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_TRUE(testing::matchesExpectedFile(
        row.name,
        ReportFormatter::render(contentOf(row.summary, row.view, row.calendar), row.calendar)));
  }
}

}  // namespace
}  // namespace brimlog
