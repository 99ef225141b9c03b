#include <gtest/gtest.h>

#include <sstream>

#include "output/Dashboard.hpp"
#include "support/ExpectedFile.hpp"

namespace brimlog {
namespace {

const Date kBase = *parseISO8601("2026-10-29T12:00:00Z");

// The sample snapshot drawn whole: plain at 80 columns, in colour, at 50, and half an hour old.
TEST(DashboardTest, DrawsTheSnapshotAsExpected) {
  const Calendar utc = Calendar::utc();
  const Snapshot& sample = Snapshot::placeholder();
  struct Row {
    const char* file;
    Dashboard dashboard;
    double age;
  };
  const Row rows[] = {
      {"dashboard-80.txt", {80, false}, 0},
      {"dashboard-color.txt", {80, true}, 0},
      {"dashboard-50.txt", {50, false}, 0},
      {"dashboard-stale.txt", {80, false}, 1801},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.file);
    EXPECT_TRUE(testing::matchesExpectedFile(
        row.file, row.dashboard.render(sample, kBase + Seconds{row.age}, utc)));
  }
}

// The columns a drawn line takes on a terminal: escapes take none, every code point one.
size_t columnsOf(const std::string& line) {
  size_t count = 0;
  for (size_t i = 0; i < line.size(); ++i) {
    if (line[i] == '\x1b') {
      i = line.find('m', i);
      continue;
    }
    if ((line[i] & 0xC0) != 0x80) ++count;
  }
  return count;
}

// A terminal never wraps a line of the dashboard, from 40 columns up (below that, 40 are used):
// not with long names, long countdowns, a stale notice or colours.
TEST(DashboardTest, NoLineIsWiderThanTheTerminal) {
  const Calendar utc = Calendar::utc();
  Snapshot wordy = Snapshot::placeholder();
  wordy.providers[0].plan = "Max 20x for a team whose plan has a long name";
  wordy.providers[0].status = ProviderStatus::rateLimited;
  wordy.providers[1].windows[0].label = "GPT-5.3-Codex-Spark weekly";
  wordy.providers[1].windows[0].resetsAt = kBase + Seconds{29 * 86400.0 + 3600};
  wordy.cost30dUSD = 123456.78;
  for (const Snapshot& snapshot : {Snapshot::placeholder(), wordy}) {
    for (int width = 30; width <= 130; ++width) {
      for (bool color : {false, true}) {
        const std::string drawn =
            Dashboard{width, color}.render(snapshot, kBase + Seconds{7200}, utc);
        std::istringstream lines(drawn);
        for (std::string line; std::getline(lines, line);) {
          ASSERT_LE(columnsOf(line), static_cast<size_t>(std::max(width, 40)))
              << width << " columns" << (color ? ", in colour" : "") << ":\n"
              << drawn;
        }
      }
    }
  }
  // The sparkline gives way to the room there is, the latest days kept.
  const auto sparkline = [&](int width) {
    const std::string drawn = Dashboard{width, false}.render(Snapshot::placeholder(), kBase, utc);
    return drawn.substr(drawn.find("Last "), 14);
  };
  EXPECT_EQ(sparkline(50), "Last 21 days  ");
  EXPECT_EQ(sparkline(80), "Last 30 days  ");
}

// One provider with a weekly window that resets in three days, read `age` seconds ago.
Snapshot::Provider weekly(double used, double age, std::optional<LimitForecast> forecast) {
  Snapshot::Provider provider;
  provider.id = ProviderID::codex;
  provider.windows = {LimitWindow{"weekly", "Weekly", used, 604800.0, kBase + Seconds{259200.0},
                                  LimitSource::live()}};
  provider.readAt = kBase - Seconds{age};
  if (forecast) provider.forecasts = {*forecast};
  return provider;
}

// Each window's own lines: its share left in the warning colours from 80% and 95% used, its
// age once its reading is old, and its forecast under the bar.
TEST(DashboardTest, WindowsShowTheirLevelAgeAndForecast) {
  const Calendar utc = Calendar::utc();
  LimitForecast runsOut{"weekly", kBase, 0.02, kBase + Seconds{3600.0 * 26}, {}};
  runsOut.history = {{kBase - Seconds{86400.0}, 0.5}, {kBase, 0.85}};
  LimitForecast lasts{"weekly", kBase, 0.001, std::nullopt, runsOut.history};
  struct Row {
    const char* name;
    Snapshot::Provider provider;
    std::vector<std::string> shown;
    std::vector<std::string> notShown;
  };
  const std::string yellow = "\x1b[33m 15% left";
  const std::string red = "\x1b[31m  3% left";
  const Row rows[] = {
      {"fresh, below 80%, no forecast",
       weekly(0.5, 60, std::nullopt),
       {" 50% left"},
       {"as of", "at this pace", "\x1b[33m 50%"}},
      {"80% used: yellow, 3 h old",
       weekly(0.85, 3 * 3600, std::nullopt),
       {yellow, "as of 3 h ago"},
       {"at this pace"}},
      {"95% used: red", weekly(0.97, 0, std::nullopt), {red}, {yellow}},
      {"runs out before the reset, with the week so far",
       weekly(0.85, 0, runsOut),
       {"at this pace: runs out Fri 14:00, 1 d before the reset",
        "\x1b[2m▁▁▁▁▁▁▁▁▁▁▁▁▁▁▁▁▁▄▄▄▄▄▇\x1b[0m"},
       {"as of"}},
      {"lasts", weekly(0.85, 0, lasts), {"at this pace: lasts until the reset"}, {}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string drawn = Dashboard{100, true}.windows(row.provider, kBase, utc);
    for (const std::string& text : row.shown)
      EXPECT_NE(drawn.find(text), std::string::npos) << drawn;
    for (const std::string& text : row.notShown)
      EXPECT_EQ(drawn.find(text), std::string::npos) << drawn;
  }
}

// The week's use in columns from its start to its reset: each column the latest share read by
// its end, nothing drawn after now; a window without a period gives its points as they are.
TEST(DashboardTest, PeriodSparklinesDrawTheWeekSoFar) {
  const Date reset = kBase + Seconds{3.5 * 86400};
  const LimitWindow week{"weekly", "Weekly", 0.9, 604800.0, reset, LimitSource::live()};
  const Date start = reset - Seconds{604800.0};
  const auto day = [&](double days) { return start + Seconds{days * 86400}; };
  LimitForecast forecast{"weekly", kBase, 0.01, std::nullopt, {}};
  forecast.history = {{day(3.1), 0.9}, {day(0.5), 0.1}, {day(1.5), 0.3}, {day(2.2), 0.5}};
  // A column a day: 0.1, 0.3, 0.5 and 0.9 by the ends of the first four; the rest to come.
  EXPECT_EQ(Dashboard::periodSparkline(forecast, week, kBase, 7), "▁▃▄█");
  EXPECT_EQ(Dashboard::periodSparkline(forecast, week, day(0.2), 7), "▁");
  const LimitWindow unknown{"weekly", "Weekly", 0.9, std::nullopt, reset, LimitSource::live()};
  EXPECT_EQ(Dashboard::periodSparkline(forecast, unknown, kBase, 7), "▁▃▄█");
}

TEST(DashboardTest, SparklinesScaleToTheLargestDay) {
  EXPECT_EQ(Dashboard::sparkline({0, 0, 0}), "▁▁▁");
  EXPECT_EQ(Dashboard::sparkline({1, 8, 4, 0.01}), "▁█▄▁");
  EXPECT_EQ(Dashboard::sparkline({}), "");
}

}  // namespace
}  // namespace brimlog
