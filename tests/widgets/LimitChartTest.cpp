// The chart of a window's period in the large widget: where its lines fall and what it says.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "views/LimitChart.hpp"

namespace brimlog {
namespace {

const Date kNow = *parseISO8601("2026-10-29T12:00:00Z");  // a Thursday
constexpr double kDay = 86400, kWidth = 280, kHeight = 50;
using Points = std::vector<std::pair<double, double>>;

// Canvas points at kWidth × kHeight, to a thousandth; x in days of the week from its start, y
// one point above the bottom for nothing used and one below the top for all of it.
Points rounded(Points points) {
  for (auto& [x, y] : points) x = std::round(x * 1000) / 1000, y = std::round(y * 1000) / 1000;
  return points;
}
Points resolved(const ui::Shape& shape) {
  Points points;
  for (const auto& [x, y] : shape.points)
    points.emplace_back(x.resolve(kWidth), y.resolve(kHeight));
  return rounded(points);
}
std::pair<double, double> at(double day, double used) {
  return {kWidth * day / 7, kHeight - 1 - used * (kHeight - 2)};
}

// A week 4 days in, 42% used, read at its start (and an hour before: clocks a little apart), 2
// days in and now; it runs out `runsOutIn` from now, or lasts.
TEST(LimitChartTest, LinesSpanThePeriodFromNothingUsedToAllAndTheLabelSaysTheForecast) {
  const std::tuple<const char*, std::optional<double>, double, std::optional<double>, bool> rows[] =
      {{"lasts until the reset: no projection", 7 * kDay, 3 * kDay, std::nullopt, true},
       {"runs out a day before the reset: dots to all used", 7 * kDay, 3 * kDay, 2 * kDay, true},
       {"reset passed: no chart", 7 * kDay, -60, std::nullopt, false},
       {"no length: no period to chart", std::nullopt, 3 * kDay, 2 * kDay, false}};
  const Date start = kNow - Seconds{4 * kDay};
  for (const auto& [why, duration, resetIn, runsOutIn, drawn] : rows) {
    const LimitWindow window{"weekly",           "Weekly", 0.42, duration, kNow + Seconds{resetIn},
                             LimitSource::live()};
    std::optional<Date> runsOutAt;
    if (runsOutIn) runsOutAt = kNow + Seconds{*runsOutIn};
    const LimitForecast forecast{
        "weekly",
        kNow,
        0.01,
        runsOutAt,
        {{start - Seconds{3600}, 0}, {start + Seconds{2 * kDay}, 0.1}, {kNow, 0.42}}};
    const auto lines = LimitChart::lines(window, forecast, Color::srgb(1, 0, 0), kNow);
    ASSERT_EQ(lines.has_value(), drawn) << why;
    if (!lines) continue;
    EXPECT_EQ(resolved(lines->evenPace), rounded({at(0, 0), at(7, 1)})) << why;
    EXPECT_FALSE(lines->evenPace.dash.empty()) << why;
    EXPECT_EQ(resolved(lines->used), rounded({at(0, 0), at(2, 0.1), at(4, 0.42)})) << why;
    EXPECT_EQ(lines->used.color, Color::srgb(1, 0, 0)) << why;
    EXPECT_EQ(lines->projection.has_value(), runsOutIn.has_value()) << why;
    if (lines->projection) {
      EXPECT_EQ(resolved(*lines->projection), rounded({at(4, 0.42), at(6, 1)})) << why;
      const LimitChart chart{window, forecast, Color::primaryText(), kNow, Calendar::utc()};
      const char* said = "at this pace: runs out Sat 12:00, 1 d before the reset";
      EXPECT_EQ(chart.accessibilityLabel(), std::string("Weekly: 42% used, ") + said);
      EXPECT_THAT(chart.body().texts(), testing::Contains(said));
    }
  }
}

}  // namespace
}  // namespace brimlog
