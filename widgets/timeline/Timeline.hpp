#pragma once

#include <optional>
#include <vector>

#include "display/Snapshot.hpp"
#include "model/ProviderID.hpp"
#include "platform/Date.hpp"
#include "timeline/SnapshotEntry.hpp"

namespace brimlog {

/// A widget's timeline: each entry is shown from its date on, in order, and a new timeline is
/// asked for at `reloadAt` (the system may ask later, or sooner when the host asks it to).
struct Timeline {
  std::vector<SnapshotEntry> entries;
  Date reloadAt;

  bool operator==(const Timeline&) const = default;

  /// The timeline of `snapshot` (nothing when none could be read) at `now`: an entry at `now`,
  /// and another at the first moment the snapshot counts as stale when that is still ahead, both
  /// with `snapshot` and `provider`; reloaded `WidgetDisplay::reloadInterval` after `now`, or at
  /// the first reset after `now` that comes sooner, counting only `only`'s windows when given.
  static Timeline make(const std::optional<Snapshot>& snapshot, ProviderID provider, Date now,
                       std::optional<ProviderID> only);
};

}  // namespace brimlog
