// The chart of a window's period in the large widget: where its lines fall, what it tells a
// screen reader, and when it is drawn at all.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "timeline/SnapshotEntry.hpp"
#include "views/LimitChart.hpp"
#include "views/WidgetViews.hpp"

namespace brimlog {
namespace {

using ui::View;

const Date kNow = *parseISO8601("2026-10-29T12:00:00Z");  // a Thursday
constexpr double kDay = 86400;
constexpr double kWidth = 280, kHeight = 50;

// A week that began 4 days ago and resets in 3, 42% used.
LimitWindow week(std::optional<double> duration = 7 * kDay, double resetIn = 3 * kDay) {
  return LimitWindow{"weekly",           "Weekly", 0.42, duration, kNow + Seconds{resetIn},
                     LimitSource::live()};
}

LimitForecast forecastOf(std::optional<double> runsOutIn) {
  const Date start = kNow - Seconds{4 * kDay};
  std::optional<Date> runsOutAt;
  if (runsOutIn) runsOutAt = kNow + Seconds{*runsOutIn};
  return LimitForecast{"weekly",
                       kNow,
                       0.01,
                       runsOutAt,
                       {{start, 0}, {start + Seconds{2 * kDay}, 0.1}, {kNow, 0.42}}};
}

using Points = std::vector<std::pair<double, double>>;

// Points to a thousandth of a point, so that the arithmetic's last bits do not count.
Points rounded(Points points) {
  for (auto& [x, y] : points) {
    x = std::round(x * 1000) / 1000;
    y = std::round(y * 1000) / 1000;
  }
  return points;
}

// A path's points in canvas points at kWidth × kHeight.
Points resolved(const ui::Shape& shape) {
  Points points;
  for (const auto& [x, y] : shape.points)
    points.emplace_back(x.resolve(kWidth), y.resolve(kHeight));
  return rounded(points);
}

TEST(LimitChartTest, LinesSpanThePeriodFromNothingUsedToAll) {
  // From the start (x 0) to the reset (x kWidth); nothing used lies a point above the bottom,
  // all of it a point below the top: y = 49 - 48 × used.
  const auto y = [](double used) { return kHeight - 1 - used * (kHeight - 2); };
  const auto x = [](double days) { return kWidth * days / 7; };
  struct Row {
    const char* why;
    LimitWindow window;
    std::optional<double> runsOutIn;  // from now
    bool drawn;
    std::optional<Points> projection;
  };
  const Row rows[] = {
      {"lasts until the reset: no projection", week(), std::nullopt, true, std::nullopt},
      {"runs out a day before the reset: dots from now to all used", week(), 2 * kDay, true,
       Points{{x(4), y(0.42)}, {x(6), y(1)}}},
      {"reset passed: no chart", week(7 * kDay, -60), std::nullopt, false, std::nullopt},
      {"no length: no period to chart", week(std::nullopt), 2 * kDay, false, std::nullopt},
  };
  const Color red = Color::srgb(1, 0, 0);
  for (const Row& row : rows) {
    const auto lines = LimitChart::lines(row.window, forecastOf(row.runsOutIn), red, kNow);
    ASSERT_EQ(lines.has_value(), row.drawn) << row.why;
    if (!lines) continue;
    EXPECT_EQ(resolved(lines->evenPace), (Points{{0, y(0)}, {kWidth, y(1)}})) << row.why;
    EXPECT_FALSE(lines->evenPace.dash.empty()) << row.why;
    EXPECT_EQ(resolved(lines->used), rounded({{0, y(0)}, {x(2), y(0.1)}, {x(4), y(0.42)}}))
        << row.why;
    EXPECT_EQ(lines->used.color, red) << row.why;
    EXPECT_TRUE(lines->used.dash.empty()) << row.why;
    ASSERT_EQ(lines->projection.has_value(), row.projection.has_value()) << row.why;
    if (row.projection) {
      EXPECT_EQ(resolved(*lines->projection), rounded(*row.projection)) << row.why;
      EXPECT_FALSE(lines->projection->dash.empty()) << row.why;
    }
  }

  // A reading from before the period (a clock off by a little) stays on the chart's left edge.
  LimitForecast early = forecastOf(std::nullopt);
  early.history.front().at -= Seconds{3600};
  EXPECT_EQ(resolved(LimitChart::lines(week(), early, red, kNow)->used).front().first, 0);
}

TEST(LimitChartTest, TheChartIsLabelledWithTheShareUsedAndTheForecast) {
  const LimitChart chart{week(), forecastOf(2 * kDay), Color::primaryText(), kNow, Calendar::utc()};
  EXPECT_EQ(chart.accessibilityLabel(),
            "Weekly: 42% used, at this pace: runs out Sat 12:00, 1 d before the reset");
  const View view = chart.body();
  const View* canvas = view.find([](const View& node) { return node.kind == View::Kind::canvas; });
  ASSERT_NE(canvas, nullptr);
  EXPECT_EQ(canvas->modifiers.accessibilityLabel, chart.accessibilityLabel());
  EXPECT_EQ(canvas->shapes.size(), 4u);  // the ground, even pace, used, projection
  EXPECT_THAT(view.texts(),
              testing::Contains("at this pace: runs out Sat 12:00, 1 d before the reset"));
}

// The large widget charts the first tool that has forecasts; without any it has no chart.
TEST(LimitChartTest, TheLargeWidgetChartsTheWindowsOfTheFirstToolWithForecasts) {
  const auto charts = [](const Snapshot& snapshot) {
    const SnapshotEntry entry{snapshot.generatedAt, snapshot, ProviderID::claude, true};
    std::vector<std::string> labels;
    std::function<void(const View&)> walk = [&](const View& node) {
      if (node.modifiers.role == "limit-chart") labels.push_back(node.modifiers.accessibilityLabel);
      for (const View& child : node.children) walk(child);
    };
    walk(LargeWidgetView{entry}.body());
    return labels;
  };
  Snapshot sample = Snapshot::placeholder();
  const std::vector<std::string> labels = charts(sample);
  ASSERT_EQ(labels.size(), 2u);
  EXPECT_THAT(labels[0], testing::StartsWith("Session: 15% used"));
  EXPECT_THAT(labels[1], testing::StartsWith("Weekly: 42% used, at this pace: "));
  sample.providers.front().forecasts.clear();
  EXPECT_TRUE(charts(sample).empty());
}

}  // namespace
}  // namespace brimlog
