#include "views/LimitChart.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "display/LimitBarModel.hpp"
#include "views/LevelColor.hpp"

namespace brimlog {

using namespace ui;

namespace {

// A moment of the period and a share used, as a point of the canvas: x is the moment's share of
// the period, y runs from one point above the bottom (nothing used) to one point below the top
// (all of it), so that a line at either edge is drawn whole.
std::pair<Length, Length> pointAt(Date at, double used, Date start, double length) {
  const double x = std::clamp((at - start).count() / length, 0.0, 1.0);
  const double y = std::clamp(used, 0.0, 1.0);
  return {Length{x, 0}, Length{1 - y, 2 * y - 1}};
}

Shape line(Color color, double width, std::vector<double> dash = {}) {
  Shape shape;
  shape.kind = Shape::Kind::path;
  shape.color = color;
  shape.lineWidth = width;
  shape.dash = std::move(dash);
  return shape;
}

std::string usedText(double used) {
  // Adding 0 turns a rounded -0 into 0, which prints without a sign.
  return fmt::format("{:.0f}% used", std::round(std::clamp(used, 0.0, 1.0) * 100) + 0.0);
}

}  // namespace

std::optional<LimitChart::Lines> LimitChart::lines(const LimitWindow& window,
                                                   const LimitForecast& forecast, Color color,
                                                   Date now) {
  const std::optional<Date> start = LimitForecast::periodStart(window);
  if (!start || window.isReset(now)) return std::nullopt;
  const Date reset = *window.resetsAt;
  const double length = (reset - *start).count();
  if (!(length > 0)) return std::nullopt;

  Lines lines{line(Color::secondaryText(), 1, {3, 3}), line(color, 1.5), std::nullopt};
  lines.evenPace.points = {pointAt(*start, 0, *start, length), pointAt(reset, 1, *start, length)};
  for (const LimitForecast::Point& point : forecast.history) {
    lines.used.points.push_back(pointAt(point.at, point.used, *start, length));
  }
  if (forecast.runsOutAt && !forecast.history.empty()) {
    // Dots two points apart: a dash of 0 with round caps.
    Shape projection = line(color, 1.5, {0, 3});
    projection.opacity = 0.8;
    projection.points = {lines.used.points.back(), pointAt(*forecast.runsOutAt, 1, *start, length)};
    lines.projection = std::move(projection);
  }
  return lines;
}

std::string LimitChart::accessibilityLabel() const {
  std::string label = window.label + ": " + usedText(window.usedFraction);
  if (const auto text = LimitBarModel::forecastText(forecast, window, now, calendar)) {
    label += ", " + *text;
  }
  return label;
}

View LimitChart::body(double height) const {
  const LimitBarModel bar{window, now};
  std::optional<Lines> drawn = lines(window, forecast, levelColor(bar.level, accent), now);
  if (!drawn) return Empty();
  std::vector<Shape> shapes;
  // A faint ground marks the period's extent: where the chart ends, the window resets.
  Shape ground;
  ground.cornerRadius = 2;
  ground.opacity = 0.05;
  shapes.push_back(std::move(ground));
  shapes.push_back(std::move(drawn->evenPace));
  shapes.push_back(std::move(drawn->used));
  if (drawn->projection) shapes.push_back(std::move(*drawn->projection));

  std::vector<View> parts{
      HStack(VerticalAlignment::firstTextBaseline, 4,
             {
                 Text(window.label).foreground(Color::secondaryText()).lineLimit(1),
                 Text(usedText(window.usedFraction)).monospacedDigits().lineLimit(1),
             })
          .font(10),
      Canvas(std::move(shapes))
          .frame(Frame::fullWidth(HorizontalAlignment::leading, height))
          .accessibility(accessibilityLabel())
          .role("limit-chart"),
  };
  if (const auto text = LimitBarModel::forecastText(forecast, window, now, calendar)) {
    // Wrapped rather than cut: the time and how long before the reset are what it is for.
    parts.push_back(Text(*text).font(9).foreground(Color::secondaryText()).role("forecast"));
  }
  return VStack(HorizontalAlignment::leading, 2, std::move(parts))
      .frame(Frame::fullWidth(HorizontalAlignment::leading));
}

}  // namespace brimlog
