#pragma once

#include <optional>

#include "display/LimitBarModel.hpp"
#include "model/Color.hpp"
#include "model/LimitWindow.hpp"
#include "platform/Date.hpp"
#include "ui/View.hpp"

namespace brimlog {

/// A limit bar: the track, the fill of the share left from the leading edge, and the pace marker
/// where the window's time left ends. When the fill stops short of the marker the quota runs out
/// before the window does. From 80% used the fill turns amber, from 95% red (`levelColor`).
struct MiniLimitBar {
  LimitBarModel bar;
  Color accent;
  double height = 5;
  ui::View body() const;
};

/// The time until a reset: a running timer in a live entry when the reset is less than a day
/// away and still ahead, otherwise fixed text such as "3h 0m", "2d 0h" or "now". A window's
/// passed reset is told by `WindowResetText` instead.
struct ResetCountdown {
  Date resetsAt;
  Date now;
  bool live = false;
  ui::View body() const;
};

/// When a window resets: its `ResetCountdown` while the reset is ahead, the bar model's text
/// once it has passed ("now", then "reset 20 h ago"), nothing without a reset time.
struct WindowResetText {
  LimitWindow window;
  Date now;
  bool live = false;
  ui::View body() const;
};

/// One window in a provider's row of the medium and large widgets: label, share left and
/// countdown on one line over a 5-point bar, and "as of 3 h ago" under it when the figures were
/// read longer ago than a refresh (`readAt`). A window kept from an earlier answer is faded.
struct CompactWindowView {
  LimitWindow window;
  Color accent;
  Date now;
  bool live = false;
  /// When the window's figures were read (`Snapshot::Provider::readAtOf`).
  std::optional<Date> readAt;
  ui::View body() const;
};

/// One window of the small widget: label and countdown, the share left in large type (with
/// "as of 3 h ago" beside it for old figures), a 6-point bar.
struct SmallWindowView {
  LimitWindow window;
  Color accent;
  Date now;
  bool live = false;
  std::optional<Date> readAt;
  ui::View body() const;
};

}  // namespace brimlog
