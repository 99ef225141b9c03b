#include "display/LimitBarModel.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "display/MeterFormat.hpp"

namespace brimlog {

LimitBarModel::LimitBarModel(const LimitWindow& window, Date now) {
  if (window.isReset(now)) {
    percentLeftText = "100%";
    resetText = "now";
    return;
  }
  leftFraction = 1 - window.usedFraction;
  // Adding 0 turns a rounded -0 into 0, which prints without a sign.
  percentLeftText = fmt::format("{:.0f}%", std::round(leftFraction * 100) + 0.0);
  if (!window.resetsAt) return;

  const double remaining = (*window.resetsAt - now).count();
  resetText = MeterFormat::countdown(remaining);
  if (!window.duration || !(*window.duration > 0)) return;

  timeLeftFraction = std::clamp(remaining / *window.duration, 0.0, 1.0);
  const double timeGone = 1 - *timeLeftFraction;
  const double used = window.usedFraction;
  if (used > timeGone + 0.05) {
    pace = Pace::over;
  } else if (used >= timeGone - 0.15) {
    pace = Pace::onPace;
  } else {
    pace = Pace::under;
  }
}

}  // namespace brimlog
