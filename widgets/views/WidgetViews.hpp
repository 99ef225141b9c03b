#pragma once

#include "timeline/SnapshotEntry.hpp"
#include "ui/View.hpp"

namespace brimlog {

/// What a widget shows with no snapshot: Brimlog's symbol over "Open Brimlog to start".
struct EmptyStateView {
  ui::View body() const;
};

/// The three widgets. Each draws its entry with the entry's date as "now"; timers run only in
/// live entries, never in the sample. Without a snapshot a widget is `EmptyStateView`. Every
/// widget opens Brimlog when clicked.
///
///     HtmlRenderer::render(LargeWidgetView{SnapshotEntry::placeholder()}.body());

/// One provider: its name, its session and weekly windows (or why it has none and its 30-day
/// cost), and the stale badge. A provider the snapshot lacks keeps its name, with a note that
/// there is nothing of it (no usage, or a tool not read on this system).
struct SmallWidgetView {
  SnapshotEntry entry;
  ui::View body() const;
};

/// Every provider's two tightest windows under the header.
struct MediumWidgetView {
  SnapshotEntry entry;
  ui::View body() const;
};

/// The medium widget's rows, then today's and the 30-day cost and the daily cost's sparkline.
struct LargeWidgetView {
  SnapshotEntry entry;
  ui::View body() const;
};

}  // namespace brimlog
