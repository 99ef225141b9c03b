#include "timeline/ProviderChoiceTimelineProvider.hpp"

#include <utility>

#include "display/SnapshotStore.hpp"

namespace brimlog {

ProviderChoiceTimelineProvider::ProviderChoiceTimelineProvider(
    std::optional<std::filesystem::path> stateFolder, std::function<Date()> clock)
    : stateFolder_(std::move(stateFolder)), clock_(clock ? std::move(clock) : currentDate) {}

SnapshotEntry ProviderChoiceTimelineProvider::placeholder() const {
  return SnapshotEntry::placeholder();
}

SnapshotEntry ProviderChoiceTimelineProvider::snapshotEntry(ProviderChoice choice,
                                                            bool isPreview) const {
  const Date now = clock_();
  const SnapshotStore store{stateFolder_};
  if (isPreview) return SnapshotEntry::preview(choice.providerID(), store, now);
  return {now, store.read(), choice.providerID(), false};
}

Timeline ProviderChoiceTimelineProvider::timeline(ProviderChoice choice) const {
  const Date now = clock_();
  // The widget shows the chosen provider alone, so only its resets bring the reload forward.
  return Timeline::make(SnapshotStore{stateFolder_}.read(), choice.providerID(), now,
                        choice.providerID());
}

}  // namespace brimlog
