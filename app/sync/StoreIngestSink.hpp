#pragma once

#include "ingest/IngestSink.hpp"
#include "store/UsageStore.hpp"

namespace brimlog {

/// The usage database as the place where an ingestion pass keeps what it read.
///
///     StoreIngestSink sink{store};
///     UsageIngestor{sink, settings.tools.logFolders()}.run(settings.now);
class StoreIngestSink final : public IngestSink {
 public:
  explicit StoreIngestSink(UsageStore& store) : store_(store) {}

  std::map<std::string, FileCursor> storedCursors() override { return store_.allCursors(); }

  PerProvider<int64_t> commit(std::span<const UsageEvent> events,
                              std::span<const FileCursor> cursors) override {
    PerProvider<int64_t> added;
    store_.ingest(events, cursors, &added);
    return added;
  }

  bool keepIfNewer(ProviderID provider, const ProviderLimits& limits) override {
    std::optional<ProviderLimits> stored;
    try {
      stored = store_.limits(provider);
    } catch (const JsonDecodeError&) {
      // A damaged record is replaced by what the logs say.
    }
    if (stored && stored->fetchedAt >= limits.fetchedAt) return false;
    store_.setLimits(limits, provider);
    return true;
  }

  void keepReadings(ProviderID provider, std::span<const ProviderLimits> limits) override {
    std::vector<LimitReading> readings;
    for (const ProviderLimits& record : limits) {
      const std::vector<LimitReading> some = LimitReading::of(provider, record);
      readings.insert(readings.end(), some.begin(), some.end());
    }
    store_.addReadings(readings);
  }

 private:
  UsageStore& store_;
};

}  // namespace brimlog
