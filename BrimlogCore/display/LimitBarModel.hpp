#pragma once

#include <optional>
#include <string>

#include "display/Pace.hpp"
#include "model/LimitWindow.hpp"
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
/// Once the reset has passed the bar is full: 1, "100%", "now", pace unknown, whatever the
/// figures say.
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
  /// The countdown to the reset (`MeterFormat::countdown`), "now" once it has passed, nothing
  /// when the reset time is unknown.
  std::optional<std::string> resetText;

  bool operator==(const LimitBarModel&) const = default;
};

}  // namespace brimlog
