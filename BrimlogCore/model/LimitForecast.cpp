#include "model/LimitForecast.hpp"

#include <algorithm>
#include <cmath>

namespace brimlog {
namespace {

// Readings closer together than this say nothing about a pace: one figure read twice.
constexpr double kShortestSpan = 60.0;
// The pace is judged over this share of the window's length before the latest reading: a week
// that picked up speed on its fourth day runs out by how it goes now, not by its quiet start.
constexpr double kRecentShare = 0.2;

// The slope, in share per second, of the least-squares line through `points`; nothing when they
// span less than `kShortestSpan`.
std::optional<double> slopeOf(std::span<const LimitForecast::Point> points) {
  if (points.size() < 2 || (points.back().at - points.front().at).count() < kShortestSpan) {
    return std::nullopt;
  }
  // Times from the first point, so that the sums keep their precision.
  const Date origin = points.front().at;
  double meanT = 0, meanU = 0;
  for (const auto& p : points) {
    meanT += (p.at - origin).count();
    meanU += p.used;
  }
  meanT /= static_cast<double>(points.size());
  meanU /= static_cast<double>(points.size());
  double covariance = 0, variance = 0;
  for (const auto& p : points) {
    const double t = (p.at - origin).count() - meanT;
    covariance += t * (p.used - meanU);
    variance += t * t;
  }
  return covariance / variance;
}

// At most `most` points spread evenly over the time the list covers: for each of `most` moments
// from the first point to the last, the first point at or after it. The first and the last are
// always kept. By time rather than by count, so that a stretch read often (or a history read
// densely only near its end) does not crowd the rest out.
std::vector<LimitForecast::Point> thinned(const std::vector<LimitForecast::Point>& points,
                                          size_t most) {
  if (points.size() <= most) return points;
  std::vector<LimitForecast::Point> kept;
  kept.reserve(most);
  const double span = (points.back().at - points.front().at).count();
  size_t next = 0;
  for (size_t i = 0; i < most && next < points.size(); ++i) {
    const Date moment =
        points.front().at + Seconds{span * static_cast<double>(i) / static_cast<double>(most - 1)};
    while (next + 1 < points.size() && points[next].at < moment) ++next;
    kept.push_back(points[next++]);
  }
  if (kept.back().at != points.back().at) kept.back() = points.back();
  return kept;
}

}  // namespace

std::optional<Date> LimitForecast::periodStart(const LimitWindow& window) {
  if (!window.resetsAt || !window.duration || !(*window.duration > 0)) return std::nullopt;
  return *window.resetsAt - Seconds{*window.duration};
}

std::optional<LimitForecast> LimitForecast::make(const LimitWindow& window, Date readAt,
                                                 std::span<const LimitReading> readings, Date now) {
  std::vector<Point> earlier;
  for (const LimitReading& reading : readings) {
    if (reading.window == window.id) earlier.push_back({reading.readAt, reading.usedFraction});
  }
  return make(window, readAt, std::span<const Point>(earlier), now);
}

std::optional<LimitForecast> LimitForecast::make(const LimitWindow& window, Date readAt,
                                                 std::span<const Point> earlier, Date now) {
  const std::optional<Date> start = periodStart(window);
  if (!start || window.isReset(now)) return std::nullopt;

  std::vector<Point> points;
  points.reserve(earlier.size() + 1);
  for (const Point& point : earlier) {
    if (point.at >= *start && point.at < readAt) points.push_back(point);
  }
  points.push_back({readAt, window.usedFraction});

  LimitForecast forecast{window.id, readAt, 0, std::nullopt, {}};
  const Date recentFrom = readAt - Seconds{*window.duration * kRecentShare};
  const auto recent = std::find_if(points.begin(), points.end(),
                                   [&](const Point& p) { return p.at >= recentFrom; });
  std::optional<double> slope = slopeOf(std::span<const Point>(recent, points.end()));
  if (!slope) slope = slopeOf(points);
  if (!slope && readAt > *start) {
    // One figure: the period began with nothing used.
    slope = window.usedFraction / (readAt - *start).count();
  }
  if (slope && *slope > 0) {
    forecast.usedPerHour = *slope * 3600;
    const double left = std::max(0.0, 1 - window.usedFraction);
    // To the whole second, as every date the snapshot carries.
    const Date out = dateFromUnixSeconds(std::round(unixSeconds(readAt) + left / *slope));
    if (out < *window.resetsAt) forecast.runsOutAt = out;
  }
  forecast.history = thinned(points, maxHistory);
  return forecast;
}

Json LimitForecast::toJson() const {
  Json points = Json::array();
  for (const Point& p : history) {
    points.push_back(Json::array(
        {json::encodeDate(p.at, DateForm::iso8601, "history"), json::finite(p.used, "history")}));
  }
  Json json = {{"window", window},
               {"asOf", json::encodeDate(asOf, DateForm::iso8601, "asOf")},
               {"usedPerHour", json::finite(usedPerHour, "usedPerHour")},
               {"history", std::move(points)}};
  if (runsOutAt) json["runsOutAt"] = json::encodeDate(*runsOutAt, DateForm::iso8601, "runsOutAt");
  return json;
}

LimitForecast LimitForecast::fromJson(const Json& json) {
  LimitForecast forecast;
  forecast.window = json::string(json::require(json, "window"), "window");
  forecast.asOf = json::decodeDate(json::require(json, "asOf"), DateForm::iso8601, "asOf");
  forecast.usedPerHour = json::number(json::require(json, "usedPerHour"), "usedPerHour");
  if (const Json* out = json::optional(json, "runsOutAt")) {
    forecast.runsOutAt = json::decodeDate(*out, DateForm::iso8601, "runsOutAt");
  }
  for (const Json& point :
       json::array(json::require(json, "history"), "history", LimitForecast::maxHistory)) {
    const Json& pair = json::array(point, "history", 2);
    if (pair.size() != 2) throw JsonDecodeError("history: a point is [date, share]");
    forecast.history.push_back({json::decodeDate(pair[0], DateForm::iso8601, "history"),
                                json::number(pair[1], "history")});
  }
  return forecast;
}

}  // namespace brimlog
