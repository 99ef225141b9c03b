#pragma once

#include "display/Snapshot.hpp"
#include "state/HostSettings.hpp"
#include "store/UsageStore.hpp"

namespace brimlog {

/// The last step of every run: the 30-day summary at `now` priced with the bundled prices, each
/// tool's stored limits with their forecasts, in the usual order, written as the widgets'
/// snapshot.
struct SnapshotPublisher {
  /// Returns what was written. Throws CommandError naming the file and the reason when it
  /// cannot be written; the previous snapshot is then left as it was. With `writeError`, a
  /// failed write is put there instead, and the snapshot returned all the same.
  static Snapshot publish(UsageStore& store, const HostSettings& settings, Date now,
                          std::string* writeError = nullptr);
};

}  // namespace brimlog
