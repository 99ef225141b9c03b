#pragma once

#include <string_view>

#include "platform/NotificationCenter.hpp"

namespace brimlog {

/// The refresh button: asks the host to fetch fresh data by posting `notificationName`, with
/// nothing attached. It reads and writes no snapshot and reloads no timeline; the widgets show
/// newer data once the host has written a new snapshot and their timeline is next reloaded. When
/// the host is not running nothing happens.
struct RefreshIntent {
  static constexpr std::string_view title = "Refresh Brimlog";
  /// The notification the host observes.
  static constexpr std::string_view notificationName = "app.brimlog.refresh";

  void perform(const NotificationCenter& center) const;
};

}  // namespace brimlog
