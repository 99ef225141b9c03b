#pragma once

#include <filesystem>
#include <functional>
#include <optional>

#include "platform/Date.hpp"
#include "timeline/SnapshotEntry.hpp"
#include "timeline/Timeline.hpp"

namespace brimlog {

/// Answers the medium and large widgets, which show every provider; their entries name
/// `claude`. Keeps nothing between requests: each one reads the snapshot file anew from the
/// state folder and reads the clock once, at its start. Never writes, never throws for a
/// missing or unusable file, and may be called from several threads at once.
///
///     const SnapshotTimelineProvider provider{stateFolder};
///     Timeline t = provider.timeline();  // now, maybe the moment it turns stale; reload <= 15 min
class SnapshotTimelineProvider {
 public:
  /// `stateFolder` is the folder that holds "snapshot.json", as `SnapshotStore` takes it
  /// (nothing: no state folder, so no snapshot).
  explicit SnapshotTimelineProvider(std::optional<std::filesystem::path> stateFolder,
                                    std::function<Date()> clock = currentDate);

  /// The sample, while nothing has been computed yet.
  SnapshotEntry placeholder() const;

  /// The single entry shown outside a timeline. For the gallery (`isPreview`) the user's data
  /// when there is some, else the sample; otherwise the stored snapshot or none at all, dated
  /// now.
  SnapshotEntry snapshotEntry(bool isPreview) const;

  /// One entry now, and one more at the moment the snapshot turns stale when that lies ahead;
  /// reloaded 15 minutes on, or at any provider's reset that comes sooner.
  Timeline timeline() const;

 private:
  std::optional<std::filesystem::path> stateFolder_;
  std::function<Date()> clock_;
};

}  // namespace brimlog
