#pragma once

#include <optional>
#include <string>

#include "model/Color.hpp"
#include "model/LimitForecast.hpp"
#include "model/LimitWindow.hpp"
#include "platform/Calendar.hpp"
#include "platform/Date.hpp"
#include "ui/View.hpp"

namespace brimlog {

/// How one limit window has been used since its period began: the share used over time against
/// the even pace, and where the current pace leads. The chart spans the period from left (its
/// start, `LimitForecast::periodStart`) to right (the reset) and from nothing used at the bottom
/// to all of it one point below the top:
///
/// - the even pace, dashed: from nothing at the start to all of it at the reset;
/// - the share used, through the forecast's `history`, in the window's level colour;
/// - when the quota runs out before the reset, a dotted line from the latest reading to all of
///   it used at `runsOutAt`.
///
/// Under it the forecast's line ("at this pace: runs out Thu 14:10, 9 h before the reset", in
/// `calendar`). Screen readers hear "Weekly: 42% used, " and that line.
struct LimitChart {
  LimitWindow window;
  LimitForecast forecast;
  Color accent;
  Date now;
  Calendar calendar;

  /// The chart's lines, as lengths of the space its canvas gets.
  struct Lines {
    ui::Shape evenPace;
    ui::Shape used;
    std::optional<ui::Shape> projection;
  };
  /// Nothing for a window without a period (no reset time or length) or one already reset.
  static std::optional<Lines> lines(const LimitWindow& window, const LimitForecast& forecast,
                                    Color color, Date now);

  /// "Weekly: 42% used, at this pace: lasts until the reset".
  std::string accessibilityLabel() const;

  /// The label and share used, the chart `height` points high, and the forecast's line; an
  /// empty view when `lines` has nothing to draw.
  ui::View body(double height = 36) const;
};

}  // namespace brimlog
