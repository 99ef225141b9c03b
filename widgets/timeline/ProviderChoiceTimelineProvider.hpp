#pragma once

#include <filesystem>
#include <functional>
#include <optional>

#include "platform/Date.hpp"
#include "timeline/ProviderChoice.hpp"
#include "timeline/SnapshotEntry.hpp"
#include "timeline/Timeline.hpp"

namespace brimlog {

/// Answers the small widget, set up with the provider it shows: its entries name that provider.
/// Keeps nothing between requests: each one reads the snapshot file anew from the state folder
/// and reads the clock once, at its start. Never writes, never throws for a missing or unusable
/// file, and may be called from several threads at once.
///
///     const ProviderChoiceTimelineProvider provider{stateFolder};
///     Timeline t = provider.timeline(ProviderChoice::codex);  // reloads within 15 minutes
class ProviderChoiceTimelineProvider {
 public:
  /// `stateFolder` is the folder that holds "snapshot.json", as `SnapshotStore` takes it
  /// (nothing: no state folder, so no snapshot).
  explicit ProviderChoiceTimelineProvider(std::optional<std::filesystem::path> stateFolder,
                                          std::function<Date()> clock = currentDate);

  /// The sample for `claude`, whatever the widget is set to show.
  SnapshotEntry placeholder() const;

  /// The single entry shown outside a timeline, for `choice`. For the gallery (`isPreview`) the
  /// user's data when there is some, else the sample; otherwise the stored snapshot or none at
  /// all, dated now.
  SnapshotEntry snapshotEntry(ProviderChoice choice, bool isPreview) const;

  /// One entry now, and one more at the moment the snapshot turns stale when that lies ahead;
  /// reloaded 15 minutes on, or at a reset of `choice`'s windows that comes sooner (other
  /// providers' resets do not count, the widget does not show them).
  Timeline timeline(ProviderChoice choice) const;

 private:
  std::optional<std::filesystem::path> stateFolder_;
  std::function<Date()> clock_;
};

}  // namespace brimlog
