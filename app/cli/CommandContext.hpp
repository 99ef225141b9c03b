#pragma once

#include <cstdio>
#include <memory>
#include <optional>
#include <vector>

#include "display/Snapshot.hpp"
#include "ingest/UsageIngestor.hpp"
#include "state/HostSettings.hpp"
#include "state/SyncLock.hpp"
#include "sync/LimitsFetcher.hpp"

namespace brimlog {

class UsageStore;

/// What the commands of one run share: the settings, the database (opened on first use), the
/// sync lock, and the three steps of a run: a pass over the logs, the limit fetches that are
/// due, the snapshot for the widgets.
class CommandContext {
 public:
  CommandContext(HostSettings settings, std::FILE* out)
      : out_(out), settings_(std::move(settings)) {}

  HostSettings& settings() { return settings_; }
  std::FILE* out() const { return out_; }

  enum class Access { read, write };
  /// The store, opened on first use: for writing (creating it and its folder when missing), or
  /// for reading only, which creates and writes nothing.
  std::shared_ptr<UsageStore> store(Access access = Access::write);

  /// Holds the sync lock for a pass over the logs: the one handed down in `inherited` when it
  /// is the database's, else taken here, waiting for a sync that holds it. Nothing for a
  /// database in memory.
  std::optional<SyncLock> lockForSync(std::optional<int> inherited = std::nullopt);

  /// One pass over the logs into the store, with a progress line on a terminal; files that
  /// could not be read are told on standard error. Claude's limits as Claude Code last handed
  /// them to the status line are taken in too.
  IngestResult ingest();

  /// Asks the tools whose limits are due (all of them when `force`) and keeps the timing for
  /// the next run.
  std::vector<FetchOutcome> fetchLimits(LimitsEndpoints endpoints, bool force);

  /// Builds the 30-day snapshot from the store and writes it where the widgets read it. Throws
  /// CommandError naming the file and the reason when it cannot be written; the previous
  /// snapshot is then left as it was.
  Snapshot publish(std::string* writeError = nullptr);

  /// One quick run for the dashboard: new replies, limits when they are due, the snapshot.
  /// `writeError` as for `publish`.
  Snapshot refresh(bool offline, std::string* writeError = nullptr);

 private:
  void takeClaudeCodeReading();

  std::FILE* out_;
  HostSettings settings_;
  std::shared_ptr<UsageStore> store_;
};

}  // namespace brimlog
