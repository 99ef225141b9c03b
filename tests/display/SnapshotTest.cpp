#include <fmt/format.h>
#include <gmock/gmock.h>
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

  // Each form, at each place a date stands in the document.
  const std::pair<const char*, const char*> rows[] = {
      {"whole seconds with Z", "2026-10-29T12:00:00Z"},
      {"zero offset", "2026-10-29T12:00:00+00:00"},
      {"other offset", "2026-10-29T14:00:00+02:00"},
      {"fraction", "2026-10-29T12:00:00.5Z"},
      {"zero fraction", "2026-10-29T12:00:00.000Z"},
      {"lower-case z", "2026-10-29T12:00:00z"},
      {"no seconds", "2026-10-29T12:00Z"},
      {"no zone", "2026-10-29T12:00:00"},
      {"date only", "2026-10-29"},
  };
  const auto at = [](const char* path, const char* text) {
    const bool source = std::string_view(path).ends_with("source");
    return Json::array({{{"op", "add"},
                         {"path", path},
                         {"value", source ? Json{{"stale", {{"asOf", text}}}} : Json(text)}}});
  };
  for (const auto& [name, text] : rows) {
    for (const char* path :
         {"/generatedAt", "/providers/0/windows/0/resetsAt", "/providers/0/windows/0/source"}) {
      const auto read = [&] { return Snapshot::fromJson(written.patch(at(path, text))); };
      if (name == rows[0].first) {
        EXPECT_NO_THROW(read()) << path;
      } else {
        EXPECT_THROW(read(), JsonDecodeError) << name << " at " << path;
      }
    }
  }
  EXPECT_EQ(Snapshot::fromJson(written.patch(at("/generatedAt", rows[0].second))).generatedAt,
            p.generatedAt);
}

// A shorter series reads; a longer one, or more entries than there are tools or windows, is
// refused before its values are read.
TEST(SnapshotTest, ListsLongerThanTheWriterMakesThemAreRefusedWhole) {
  const Json sample = Snapshot::placeholder().toJson();
  const auto longer = [](Json list, size_t size) {
    while (list.size() < size) list.push_back(list.back());
    while (list.size() > size) list.erase(list.size() - 1);
    return list;
  };
  struct Row {
    const char* name;
    const char* list;
    size_t size;
    bool reads;
  };
  const Row rows[] = {
      {"3 days", "/dailyCost30", 3, true},
      {"30 days", "/dailyCost30", Snapshot::seriesLength, true},
      {"31 days", "/dailyCost30", Snapshot::seriesLength + 1, false},
      {"one entry per tool", "/providers", ProviderID::allCases.size(), true},
      {"an entry more than there are tools", "/providers", ProviderID::allCases.size() + 1, false},
      {"16 windows", "/providers/0/windows", Snapshot::maxWindows, true},
      {"17 windows", "/providers/0/windows", Snapshot::maxWindows + 1, false},
  };
  for (const Row& row : rows) {
    Json document = sample;
    const Json::json_pointer list{row.list};
    document[list] = longer(document[list], row.size);
    if (row.reads) {
      EXPECT_EQ(json::dump(Snapshot::fromJson(document).toJson()), json::dump(document))
          << row.name;
    } else {
      EXPECT_THAT([&] { Snapshot::fromJson(document); },
                  ::testing::ThrowsMessage<JsonDecodeError>(
                      ::testing::HasSubstr(fmt::format("for key \"{}\"", list.back()))))
          << row.name;
    }
  }
  Json withoutApproximate = sample;
  withoutApproximate["providers"][1].erase("approximate");
  EXPECT_THROW(Snapshot::fromJson(withoutApproximate), JsonDecodeError);
}

}  // namespace
}  // namespace brimlog
