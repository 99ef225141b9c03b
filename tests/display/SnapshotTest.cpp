#include <fmt/format.h>
#include <gtest/gtest.h>

#include "display/Snapshot.hpp"

namespace brimlog {
namespace {

Date at(const char* text) { return *parseISO8601(text); }

const Date kNow = at("2025-03-11T14:00:00Z");
const Calendar kNewYork = *Calendar::named("America/New_York");

TEST(SnapshotTest, KeepsProvidersWithLimitsAToolRowOrUsageAndTakesTheirFigures) {
  const LimitWindow week{"weekly", "Weekly", 0.5, 604800.0, std::nullopt, LimitSource::live()};
  const ProviderLimits limits{
      "Plus", {week}, Credits{"Credits", 3.0, {}, {}, false}, ProviderStatus::rateLimited, kNow};
  const UsageSummary::Tool tool{ProviderID::codex, 1, 100, 2.0, 1, 1, true};
  const std::tuple<const char*, bool, bool, std::vector<std::pair<int64_t, double>>, const char*>
      rows[] = {
          // Why, whether there are limits and a tool row, the daily points, what is shown.
          {"nothing", false, false, {}, "left out"},
          {"points of nothing", false, false, {{0, 0}, {0, 0}}, "left out"},
          {"a cent without tokens", false, false, {{0, 0}, {0, 0.01}}, "0 $0.01 unavailable - 0"},
          {"points add up", false, false, {{7, 1}, {5, 0.5}}, "12 $1.5 unavailable - 0"},
          {"limits alone", true, false, {}, "0 $0 rateLimited Plus 1 credits"},
          {"the tool row wins", false, true, {{7, 1}}, "100 $2 unavailable - 0 ~"},
      };
  for (const auto& [why, hasLimits, hasTool, points, shown] : rows) {
    UsageSummary summary;
    for (const auto& [tokens, cost] : points)
      summary.daily.push_back({kNow, tool.provider, tokens, cost});
    if (hasTool) summary.tools.push_back(tool);
    std::map<ProviderID, ProviderLimits> map;
    if (hasLimits) map.emplace(ProviderID::codex, limits);
    const Snapshot s = Snapshot::make(summary, map, ProviderID::allCases, kNow, kNewYork);
    std::string text = "left out";
    for (const auto& p : s.providers) {
      text = fmt::format("{} ${} {} {} {}{}{}", p.tokens30d, p.cost30dUSD, caseName(p.status),
                         p.plan.value_or("-"), p.windows.size(), p.credits ? " credits" : "",
                         p.approximate ? " ~" : "");
    }
    EXPECT_EQ(text, shown) << why;
  }
}

TEST(SnapshotTest, TheSeriesAddsUpLocalDaysAndEndsOnTheSummarysLastDayWhileTodayIsNow) {
  UsageSummary summary;
  summary.totalCostUSD = 42;
  summary.windowEnd = at("2025-03-10T04:00:00Z");  // yesterday's summary, in New York
  summary.daily = {// 00:30 and 23:30 of 9 March, the day the clocks go forward
                   {at("2025-03-09T05:30:00Z"), ProviderID::claude, 10, 1.0},
                   {at("2025-03-10T03:30:00Z"), ProviderID::grok, 20, 2.0},
                   {kNow, ProviderID::claude, 30, 5.0}};
  const ProviderID order[] = {ProviderID::grok, ProviderID::claude};
  const Snapshot s = Snapshot::make(summary, {}, order, kNow, kNewYork);
  std::vector<double> series(30, 0.0);
  series[28] = 3.0;
  EXPECT_EQ(s.dailyCost30, series);
  EXPECT_EQ(s.costTodayUSD, 5.0);
  EXPECT_EQ(s.cost30dUSD, 42);
  ASSERT_EQ(s.providers.size(), 2u);
  EXPECT_EQ(s.providers[0].id, ProviderID::grok);
}

// The round trip through the file is SnapshotStoreTest's.
TEST(SnapshotTest, DatesAreWrittenInWholeSecondsAndReadOnlyInThatForm) {
  const Snapshot& p = Snapshot::placeholder();
  Snapshot fractional = p;
  fractional.generatedAt += Seconds{0.75};
  const Json written = fractional.toJson();
  EXPECT_EQ(Snapshot::fromJson(written), p);

  // The first form alone reads, at the top and in a window alike.
  const std::pair<const char*, const char*> rows[] = {
      {"whole seconds with Z", "2026-10-29T12:00:00Z"},
      {"offset", "2026-10-29T12:00:00+00:00"},
      {"fraction", "2026-10-29T12:00:00.000Z"},
      {"lower-case z", "2026-10-29T12:00:00z"},
      {"no seconds", "2026-10-29T12:00Z"},
      {"date only", "2026-10-29"},
  };
  for (const auto& [name, text] : rows) {
    for (const char* key : {"/generatedAt", "/providers/0/windows/0/resetsAt"}) {
      const Json patched = written.patch({{{"op", "replace"}, {"path", key}, {"value", text}}});
      if (name == rows[0].first) {
        EXPECT_EQ(Snapshot::fromJson(patched).generatedAt, p.generatedAt) << key;
      } else {
        EXPECT_THROW(Snapshot::fromJson(patched), JsonDecodeError) << name << " at " << key;
      }
    }
  }
  Json withoutApproximate = written;
  withoutApproximate["providers"][1].erase("approximate");
  EXPECT_THROW(Snapshot::fromJson(withoutApproximate), JsonDecodeError);
}

// A shorter series reads; a longer list than the writer makes is refused whole.
TEST(SnapshotTest, ListsLongerThanTheWriterMakesThemAreRefused) {
  const std::tuple<const char*, size_t, bool> rows[] = {
      {"/dailyCost30", 3, true},
      {"/dailyCost30", Snapshot::seriesLength + 1, false},
      {"/providers", Snapshot::maxProviders + 1, false},
      {"/providers/0/windows", Snapshot::maxWindows + 1, false},
  };
  for (const auto& [list, size, reads] : rows) {
    Json document = Snapshot::placeholder().toJson();
    Json& values = document[Json::json_pointer{list}];
    while (values.size() > size) values.erase(values.size() - 1);
    while (values.size() < size) values.push_back(values.back());
    if (reads) {
      EXPECT_EQ(Snapshot::fromJson(document).dailyCost30.size(), size) << list;
    } else {
      EXPECT_THROW(Snapshot::fromJson(document), JsonDecodeError) << list << " of " << size;
    }
  }
}

}  // namespace
}  // namespace brimlog
