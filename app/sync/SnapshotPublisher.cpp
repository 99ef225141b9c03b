#include "sync/SnapshotPublisher.hpp"

#include <map>

#include "display/LimitOutlook.hpp"
#include "display/SnapshotStore.hpp"
#include "store/PriceTable.hpp"
#include "store/UsageSummary.hpp"

namespace brimlog {

Snapshot SnapshotPublisher::publish(UsageStore& store, const HostSettings& settings, Date now,
                                    std::string* writeError) {
  std::map<ProviderID, ProviderLimits> limits;
  for (ProviderID provider : ProviderID::readableCases) {
    try {
      if (auto stored = store.limits(provider)) limits.emplace(provider, std::move(*stored));
    } catch (const JsonDecodeError&) {
      // A damaged record is as good as none; the next fetch replaces it.
    }
  }
  const UsageSummary summary = store.summary(30, now, settings.calendar, PriceTable::bundled());
  Snapshot snapshot =
      Snapshot::make(summary, limits, ProviderID::readableCases, now, settings.calendar,
                     LimitOutlook::forecasts(store, limits, now));
  const SnapshotStore shared{settings.stateFolder};
  try {
    shared.write(snapshot);
  } catch (const std::exception& error) {
    std::string told = "Cannot write the snapshot " + shared.file().string() + ": " + error.what();
    if (!writeError) throw CommandError(told);
    *writeError = std::move(told);
  }
  return snapshot;
}

}  // namespace brimlog
