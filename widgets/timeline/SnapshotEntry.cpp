#include "timeline/SnapshotEntry.hpp"

namespace brimlog {

SnapshotEntry SnapshotEntry::preview(ProviderID provider, const SnapshotStore& store, Date now) {
  if (std::optional<Snapshot> stored = store.read()) {
    return {now, std::move(stored), provider, false};
  }
  const Snapshot& sample = Snapshot::placeholder();
  return {sample.generatedAt, sample, provider, true};
}

SnapshotEntry SnapshotEntry::placeholder() {
  const Snapshot& sample = Snapshot::placeholder();
  return {sample.generatedAt, sample, ProviderID::claude, true};
}

}  // namespace brimlog
