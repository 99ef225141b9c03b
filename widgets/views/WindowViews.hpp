#pragma once

#include "display/LimitBarModel.hpp"
#include "model/Color.hpp"
#include "model/LimitWindow.hpp"
#include "platform/Date.hpp"
#include "ui/View.hpp"

namespace brimlog {

/// A limit bar: the track, the fill of the share left from the leading edge, and the pace marker
/// where the window's time left ends. When the fill stops short of the marker the quota runs out
/// before the window does.
struct MiniLimitBar {
  LimitBarModel bar;
  Color accent;
  double height = 5;
  ui::View body() const;
};

/// The time until a reset: a running timer in a live entry when the reset is less than a day
/// away and still ahead, otherwise fixed text such as "3h 0m", "2d 0h" or "now".
struct ResetCountdown {
  Date resetsAt;
  Date now;
  bool live = false;
  ui::View body() const;
};

/// One window in a provider's row of the medium and large widgets: label, share left and
/// countdown on one line over a 5-point bar. A window kept from an earlier answer is faded.
struct CompactWindowView {
  LimitWindow window;
  Color accent;
  Date now;
  bool live = false;
  ui::View body() const;
};

/// One window of the small widget: label and countdown, the share left in large type, a 6-point
/// bar.
struct SmallWindowView {
  LimitWindow window;
  Color accent;
  Date now;
  bool live = false;
  ui::View body() const;
};

}  // namespace brimlog
