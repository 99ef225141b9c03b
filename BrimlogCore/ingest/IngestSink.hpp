#pragma once

#include <map>
#include <span>
#include <string>

#include "model/FileCursor.hpp"
#include "model/PerProvider.hpp"
#include "model/ProviderLimits.hpp"
#include "model/UsageEvent.hpp"

namespace brimlog {

/// Where an ingestion pass keeps what it read. The host's usage database is the one real sink;
/// the pass knows only this much of it.
class IngestSink {
 public:
  virtual ~IngestSink() = default;

  /// Every stored cursor, by path; cursors that do not decode are left out.
  virtual std::map<std::string, FileCursor> storedCursors() = 0;

  /// Stores a batch of events and the cursors of the reads that produced them, together or not
  /// at all, and returns how many replies were new, per provider. An event of a reply counted
  /// before adds only what its counts grew by.
  virtual PerProvider<int64_t> commit(std::span<const UsageEvent> events,
                                      std::span<const FileCursor> cursors) = 0;

  /// Stores limits read from a tool's logs when they are newer than the stored ones (or those
  /// cannot be read); whether they were stored.
  virtual bool keepIfNewer(ProviderID provider, const ProviderLimits& limits) = 0;

  /// Adds every limits record read from a tool's logs in a pass, newest or not, to the history
  /// of limit readings.
  virtual void keepReadings(ProviderID provider, std::span<const ProviderLimits> limits) = 0;
};

}  // namespace brimlog
