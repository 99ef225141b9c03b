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
Snapshot::Provider weekly(double used, double age, std::vector<LimitForecast> forecasts = {}) {
  Snapshot::Provider provider;
  provider.id = ProviderID::codex;
  provider.windows = {LimitWindow{"weekly", "Weekly", used, 604800.0, kBase + Seconds{259200.0},
                                  LimitSource::live()}};
  provider.readAt = kBase - Seconds{age};
  provider.forecasts = std::move(forecasts);
  return provider;
}

// A window's share left in the warning colours from 80% and 95% used, its age once its reading
// is old, and its forecast and week so far under the bar.
TEST(DashboardTest, WindowsShowTheirLevelAgeAndForecast) {
  const LimitForecast runsOut{"weekly",
                              kBase,
                              0.02,
                              kBase + Seconds{3600.0 * 26},
                              {{kBase - Seconds{86400.0}, 0.5}, {kBase, 0.85}}};
  struct Row {
    const char* name;
    Snapshot::Provider provider;
    const char* shown;
    const char* notShown;
  };
  const Row rows[] = {
      {"fresh, below 80%", weekly(0.5, 60), "\x1b[0m   50% left", "as of"},
      {"80% used, 3 h old", weekly(0.85, 3 * 3600), "\x1b[33m 15% left", "at this pace"},
      {"95% used", weekly(0.97, 0), "\x1b[31m  3% left", "as of"},
      {"runs out", weekly(0.85, 0, {runsOut}),
       "at this pace: runs out Fri 14:00, 1 d before the reset\x1b[0m\n"
       "            \x1b[2m▁▁▁▁▁▁▁▁▁▁▁▁▁▁▁▁▁▄▄▄▄▄▇\x1b[0m  this week's use so far",
       "as of"},
  };
  for (const Row& row : rows) {
    const std::string drawn = Dashboard{100, true}.windows(row.provider, kBase, Calendar::utc());
    EXPECT_NE(drawn.find(row.shown), std::string::npos) << row.name << ":\n" << drawn;
    EXPECT_EQ(drawn.find(row.notShown), std::string::npos) << row.name << ":\n" << drawn;
  }
  EXPECT_NE(
      Dashboard{}.windows(weekly(0.5, 3 * 3600), kBase, Calendar::utc()).find("as of 3 h ago"),
      std::string::npos);
}

TEST(DashboardTest, SparklinesScaleToTheLargestDay) {
  EXPECT_EQ(Dashboard::sparkline({0, 0, 0}), "▁▁▁");
  EXPECT_EQ(Dashboard::sparkline({1, 8, 4, 0.01}), "▁█▄▁");
  EXPECT_EQ(Dashboard::sparkline({}), "");
}

}  // namespace
}  // namespace brimlog
