#include <gtest/gtest.h>

#include "model/LimitForecast.hpp"

namespace brimlog {
namespace {

constexpr double kHour = 3600;
const Date kStart = dateFromUnixSeconds(1'795'000'000);

// A window of `hours` that began at kStart, last read `at` hours in at `used`.
LimitWindow window(double hours, double used) {
  return {"w", "W", used, hours * kHour, kStart + Seconds{hours * kHour}, LimitSource::live()};
}

std::vector<LimitReading> readings(std::initializer_list<std::pair<double, double>> points) {
  std::vector<LimitReading> list;
  for (const auto& [hour, used] : points) {
    list.push_back({ProviderID::claude, "w", kStart + Seconds{hour * kHour}, used, std::nullopt,
                    std::nullopt, LimitReading::Origin::service});
  }
  return list;
}

TEST(LimitForecastTest, ProjectsTheRecentPaceFromTheLatestReading) {
  const struct {
    const char* name;
    double hours;
    std::vector<LimitReading> before;
    double at, used;
    double perHour;
    std::optional<double> outAtHour;  // nothing: lasts until the reset
  } rows[] = {
      {"a straight line ends before the reset", 6, readings({{0.5, 0.1}, {1, 0.2}}), 2, 0.4, 0.2,
       5.0},
      {"a straight line that ends after the reset lasts", 5, readings({{1, 0.1}}), 2, 0.2, 0.1,
       std::nullopt},
      // A week quiet for four days, then 30 points a day: over the whole week the line would
      // last until the reset.
      {"the last fifth of the window sets the pace", 168,
       readings({{0, 0}, {24, 0.01}, {48, 0.01}, {72, 0.01}, {96, 0.3}, {108, 0.45}}), 120, 0.6,
       0.0125, 152.0},
      {"one reading is measured from the period's start", 5, {}, 2, 0.5, 0.25, 4.0},
      {"readings of an earlier period are passed over", 5, readings({{-1, 0.9}, {1, 0.25}}), 2, 0.5,
       0.25, 4.0},
      {"nothing used, no pace", 5, readings({{1, 0.3}}), 2, 0.3, 0, std::nullopt},
      {"use that fell gives no pace", 5, readings({{1, 0.5}}), 2, 0.3, 0, std::nullopt},
      {"a used-up window has run out when read", 5, readings({{1, 0.5}}), 2, 1.0, 0.5, 2.0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const Date readAt = kStart + Seconds{row.at * kHour};
    const auto forecast =
        LimitForecast::make(window(row.hours, row.used), readAt, row.before, readAt);
    ASSERT_TRUE(forecast);
    EXPECT_NEAR(forecast->usedPerHour, row.perHour, 1e-9);
    if (row.outAtHour) {
      ASSERT_TRUE(forecast->runsOutAt);
      EXPECT_NEAR((*forecast->runsOutAt - kStart).count(), *row.outAtHour * kHour, 1);
    } else {
      EXPECT_EQ(forecast->runsOutAt, std::nullopt);
    }
    EXPECT_EQ(forecast->history.back(), (LimitForecast::Point{readAt, row.used}));
  }

  LimitWindow noLength = window(5, 0.5);
  noLength.duration.reset();
  const Date at = kStart + Seconds{kHour};
  EXPECT_EQ(LimitForecast::make(noLength, at, readings({}), at), std::nullopt);
  EXPECT_EQ(LimitForecast::make(window(5, 0.5), at, readings({}), kStart + Seconds{6 * kHour}),
            std::nullopt);  // reset since
}

TEST(LimitForecastTest, KeepsAThinHistory) {
  std::vector<LimitReading> many;
  for (int minute = 0; minute < 300; ++minute) {
    many.push_back({ProviderID::claude, "w", kStart + Seconds{minute * 60.0}, minute / 1000.0,
                    std::nullopt, std::nullopt, LimitReading::Origin::log});
  }
  const Date readAt = kStart + Seconds{5 * kHour - 60};
  const auto forecast = LimitForecast::make(window(5, 0.3), readAt, many, readAt);
  ASSERT_TRUE(forecast);
  ASSERT_EQ(forecast->history.size(), LimitForecast::maxHistory);
  EXPECT_EQ(forecast->history.front().at, kStart);
  EXPECT_EQ(forecast->history.back().at, readAt);

  // Read back from the snapshot: SnapshotTest's round trip of the sample, which has forecasts.
}

}  // namespace
}  // namespace brimlog
