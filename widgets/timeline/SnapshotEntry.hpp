#pragma once

#include <optional>

#include "display/Snapshot.hpp"
#include "display/SnapshotStore.hpp"
#include "model/ProviderID.hpp"
#include "platform/Date.hpp"

namespace brimlog {

/// One entry of a widget's timeline: what the widget shows from `date` on. The views also take
/// `date` as their "now".
///
///     SnapshotEntry::placeholder();  // the sample, before anything was computed
///     SnapshotEntry::preview(ProviderID::grok, store, now);  // the user's data, else the sample
struct SnapshotEntry {
  Date date;
  /// The snapshot read from the state folder; nothing when there was none to read.
  std::optional<Snapshot> snapshot;
  /// The provider the small widget shows; `claude` for the widgets that show them all.
  ProviderID provider = ProviderID::claude;
  /// Whether `snapshot` is `Snapshot::placeholder()` standing in for the user's data.
  bool isSample = false;

  bool operator==(const SnapshotEntry&) const = default;

  /// The entry of the widget gallery for `provider`: the stored snapshot dated `now`, or, when
  /// `store` has none, the sample dated at its own `generatedAt`. Reads the file once.
  static SnapshotEntry preview(ProviderID provider, const SnapshotStore& store, Date now);

  /// The entry shown while nothing has been computed: the sample at its own `generatedAt`, for
  /// `claude` whatever a widget is set to show.
  static SnapshotEntry placeholder();
};

}  // namespace brimlog
