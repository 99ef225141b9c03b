#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "model/LimitReading.hpp"
#include "model/LimitWindow.hpp"
#include "platform/Date.hpp"
#include "platform/Json.hpp"

namespace brimlog {

/// How fast a limit window is being used, and when it runs out at that pace.
///
/// The pace is the slope of a least-squares line through the recent readings of the window's
/// current period (those taken since it began, `resetsAt − duration`), the latest figure
/// included: a share of the quota per hour. Recent is the last fifth of the window's length
/// (a day and a half of a week, an hour of a five-hour session); with fewer than two readings
/// a minute apart there, the whole period counts. From the latest reading on, the quota
/// runs out at `readAt + (1 − used) / pace`; that moment is kept only when it comes before the
/// reset (otherwise the window lasts until its reset). A single reading is measured against the
/// start of the period, when nothing of it had been used.
///
///     // 30% used 2 h into a week, 50% read 4 h in:
///     auto f = LimitForecast::make(week, fourHoursIn, readings, now);
///     f->usedPerHour;  // 0.10
///     f->runsOutAt;    // 9 h after the start: 4 h + 0.5 / 0.1 h
///
/// `history` holds the period's readings for a chart, thinned to at most `maxHistory` points
/// (the first and the latest always among them).
struct LimitForecast {
  /// One point of the chart: the share used at a moment.
  struct Point {
    Date at;
    double used = 0;
    bool operator==(const Point&) const = default;
  };

  static constexpr size_t maxHistory = 48;

  std::string window;
  /// When the latest figure was read.
  Date asOf;
  /// Share of the quota used per hour at the current pace (0 when nothing is being used).
  double usedPerHour = 0;
  /// When the quota runs out at this pace, when that is before the reset.
  std::optional<Date> runsOutAt;
  std::vector<Point> history;

  bool operator==(const LimitForecast&) const = default;

  /// The forecast of `window` as last read at `readAt`, from `readings` of the same provider
  /// and window in time order (those of other periods are passed over). Nothing for a window
  /// without a reset ahead of `now` or a positive length. Never fails.
  static std::optional<LimitForecast> make(const LimitWindow& window, Date readAt,
                                           std::span<const LimitReading> readings, Date now);
  /// The same from the window's earlier figures alone, in time order (a reading's `readAt` and
  /// `usedFraction`), as the store hands them over.
  static std::optional<LimitForecast> make(const LimitWindow& window, Date readAt,
                                           std::span<const Point> earlier, Date now);

  /// The readings `make` can use: those after this moment (the start of the window's period).
  /// Nothing for a window without a reset or a length.
  static std::optional<Date> periodStart(const LimitWindow& window);

  /// Dates as UTC text with whole seconds: {"window":"weekly","asOf":"…","usedPerHour":0.01,
  /// "runsOutAt":"…","history":[["…",0.25],…]}. Throws `JsonEncodeError` for a number that is
  /// not finite.
  Json toJson() const;
  /// Throws `JsonDecodeError` for a missing key, a wrong type or more than `maxHistory` points.
  static LimitForecast fromJson(const Json& json);
};

}  // namespace brimlog
