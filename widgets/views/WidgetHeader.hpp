#pragma once

#include "display/Snapshot.hpp"
#include "platform/Date.hpp"
#include "ui/View.hpp"

namespace brimlog {

/// The orange "Updated 31 min. ago" of a snapshot older than half an hour; nothing otherwise.
struct StaleBadge {
  Date generatedAt;
  Date now;
  ui::View body() const;
};

/// The circular arrow that runs the refresh intent.
struct RefreshButton {
  ui::View body() const;
};

/// The top line of the medium and large widgets: Brimlog's symbol and name, the stale badge and
/// the refresh button.
struct WidgetHeader {
  Snapshot snapshot;
  Date now;
  ui::View body() const;
};

}  // namespace brimlog
