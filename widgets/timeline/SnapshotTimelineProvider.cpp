#include "timeline/SnapshotTimelineProvider.hpp"

#include <utility>

#include "display/SnapshotStore.hpp"

namespace brimlog {

SnapshotTimelineProvider::SnapshotTimelineProvider(std::optional<std::filesystem::path> stateFolder,
                                                   std::function<Date()> clock)
    : stateFolder_(std::move(stateFolder)), clock_(clock ? std::move(clock) : currentDate) {}

SnapshotEntry SnapshotTimelineProvider::placeholder() const { return SnapshotEntry::placeholder(); }

SnapshotEntry SnapshotTimelineProvider::snapshotEntry(bool isPreview) const {
  const Date now = clock_();
  const SnapshotStore store{stateFolder_};
  if (isPreview) return SnapshotEntry::preview(ProviderID::claude, store, now);
  return {now, store.read(), ProviderID::claude, false};
}

Timeline SnapshotTimelineProvider::timeline() const {
  const Date now = clock_();
  // Every provider is shown, so every provider's resets count.
  return Timeline::make(SnapshotStore{stateFolder_}.read(), ProviderID::claude, now, std::nullopt);
}

}  // namespace brimlog
