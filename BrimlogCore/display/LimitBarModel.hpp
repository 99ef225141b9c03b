#pragma once

#include <optional>
#include <string>

#include "display/LimitLevel.hpp"
#include "display/Pace.hpp"
#include "model/LimitForecast.hpp"
#include "model/LimitWindow.hpp"
#include "platform/Calendar.hpp"
#include "platform/Date.hpp"

namespace brimlog {

/// What a limit bar shows for one window at `now`: the share of the quota left, the share of
/// the window's time left, the pace, and the texts.
///
///     // 42% used of a week that resets in 3 days:
///     LimitBarModel bar{window, now};
///     bar.percentLeftText;  // "58%"
///     bar.resetText;        // "3d 0h"
///     bar.pace;             // Pace::under: 57% of the week has gone, only 42% of the quota
///
/// Once the reset has passed the bar is full: 1, "100%", pace unknown, whatever the figures say;
/// its reset text is "now" for a minute, then says how long ago it was ("reset 20 h ago"): what
/// the window holds since is unknown until the next reading.
struct LimitBarModel {
  LimitBarModel(const LimitWindow& window, Date now);

  /// 1 - usedFraction, or 1 once the reset has passed.
  double leftFraction = 1;
  /// The share of the window's length still to run, 0 to 1; nothing without a reset time ahead
  /// or a positive length.
  std::optional<double> timeLeftFraction;
  Pace pace = Pace::unknown;
  /// `leftFraction` as a whole percentage, halves away from zero: "58%", "1%" for 0.005.
  std::string percentLeftText;
  /// The countdown to the reset (`MeterFormat::countdown`), "now" within a minute after it,
  /// "reset 20 h ago" later, nothing when the reset time is unknown.
  std::optional<std::string> resetText;
  /// How close the window is to running out (`limitLevelOf` the share used; normal once reset).
  LimitLevel level = LimitLevel::normal;

  /// How long a reading stays current: the refresh interval, and a minute for the fetch itself.
  static constexpr double freshFor = 360;

  /// "as of 3 h ago" for a reading older than `freshFor` at `now`; nothing for a fresh one.
  static std::optional<std::string> ageText(Date readAt, Date now);

  /// The line under a bar: "at this pace: runs out Thu 14:10, 9 h before the reset" (the day
  /// and time in `calendar`), or "at this pace: lasts until the reset". Nothing for a window
  /// already used up or reset by `now`, or whose forecast has no pace yet.
  static std::optional<std::string> forecastText(const LimitForecast& forecast,
                                                 const LimitWindow& window, Date now,
                                                 const Calendar& calendar);

  bool operator==(const LimitBarModel&) const = default;
};

}  // namespace brimlog
