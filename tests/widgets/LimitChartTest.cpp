// The chart of a window's period in the large widget: where its lines fall, and what it tells a
// screen reader. (That the sample's large widget charts Claude's two windows is in its expected
// page, WidgetViewsTest.)

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "views/LimitChart.hpp"

namespace brimlog {
namespace {

const Date kNow = *parseISO8601("2026-10-29T12:00:00Z");  // a Thursday
constexpr double kDay = 86400, kWidth = 280, kHeight = 50;
using Points = std::vector<std::pair<double, double>>;

// A week that began 4 days ago and resets in `resetIn`, 42% used, read at its start, 2 days in
// and now; at this pace it runs out `runsOutIn` from now, or lasts.
LimitWindow week(std::optional<double> duration = 7 * kDay, double resetIn = 3 * kDay) {
  return {"weekly", "Weekly", 0.42, duration, kNow + Seconds{resetIn}, LimitSource::live()};
}
LimitForecast forecast(std::optional<double> runsOutIn) {
  const Date start = kNow - Seconds{4 * kDay};
  std::optional<Date> runsOutAt;
  if (runsOutIn) runsOutAt = kNow + Seconds{*runsOutIn};
  return {"weekly",
          kNow,
          0.01,
          runsOutAt,
          {{start, 0}, {start + Seconds{2 * kDay}, 0.1}, {kNow, 0.42}}};
}

// Canvas points at kWidth × kHeight, to a thousandth so that the arithmetic's last bits do not
// count. Nothing used lies a point above the bottom, all of it a point below the top.
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
double x(double days) { return kWidth * days / 7; }
double y(double used) { return kHeight - 1 - used * (kHeight - 2); }

TEST(LimitChartTest, LinesSpanThePeriodFromNothingUsedToAll) {
  struct Row {
    const char* why;
    LimitWindow window;
    std::optional<double> runsOutIn;
    bool drawn;
    std::optional<Points> projection;
  };
  const Row rows[] = {
      {"lasts until the reset: no projection", week(), std::nullopt, true, std::nullopt},
      {"runs out a day before the reset: dots from the latest reading to all used", week(),
       2 * kDay, true, Points{{x(4), y(0.42)}, {x(6), y(1)}}},
      {"reset passed: no chart", week(7 * kDay, -60), std::nullopt, false, std::nullopt},
      {"no length: no period to chart", week(std::nullopt), 2 * kDay, false, std::nullopt},
  };
  const Color red = Color::srgb(1, 0, 0);
  for (const Row& row : rows) {
    const auto lines = LimitChart::lines(row.window, forecast(row.runsOutIn), red, kNow);
    ASSERT_EQ(lines.has_value(), row.drawn) << row.why;
    if (!lines) continue;
    EXPECT_EQ(resolved(lines->evenPace), rounded({{0, y(0)}, {kWidth, y(1)}})) << row.why;
    EXPECT_FALSE(lines->evenPace.dash.empty()) << row.why;
    EXPECT_EQ(resolved(lines->used), rounded({{0, y(0)}, {x(2), y(0.1)}, {x(4), y(0.42)}}));
    EXPECT_EQ(lines->used.color, red) << row.why;
    ASSERT_EQ(lines->projection.has_value(), row.projection.has_value()) << row.why;
    if (row.projection) {
      EXPECT_EQ(resolved(*lines->projection), rounded(*row.projection)) << row.why;
    }
  }
  // A reading from before the period (clocks a little apart) stays on the left edge.
  LimitForecast early = forecast(std::nullopt);
  early.history.front().at -= Seconds{3600};
  EXPECT_EQ(resolved(LimitChart::lines(week(), early, red, kNow)->used).front().first, 0);
}

TEST(LimitChartTest, TheChartIsLabelledWithTheShareUsedAndTheForecast) {
  const LimitChart chart{week(), forecast(2 * kDay), Color::primaryText(), kNow, Calendar::utc()};
  EXPECT_EQ(chart.accessibilityLabel(),
            "Weekly: 42% used, at this pace: runs out Sat 12:00, 1 d before the reset");
  const ui::View view = chart.body();
  const ui::View* canvas =
      view.find([](const ui::View& v) { return v.modifiers.role == "limit-chart"; });
  ASSERT_NE(canvas, nullptr);
  EXPECT_EQ(canvas->modifiers.accessibilityLabel, chart.accessibilityLabel());
  EXPECT_THAT(view.texts(),
              testing::Contains("at this pace: runs out Sat 12:00, 1 d before the reset"));
}

}  // namespace
}  // namespace brimlog
