#include "cli/CommandContext.hpp"

#include <fmt/format.h>

#include "output/ProgressBar.hpp"
#include "state/ClaudeCodeReading.hpp"
#include "store/UsageStore.hpp"
#include "sync/SnapshotPublisher.hpp"
#include "sync/StoreIngestSink.hpp"

namespace brimlog {

namespace fs = std::filesystem;

std::shared_ptr<UsageStore> CommandContext::store(Access access) {
  if (store_) return store_;
  if (access == Access::read) {
    // Reading creates nothing: with no database yet there is simply nothing stored.
    std::error_code error;
    const bool exists = fs::exists(settings_.database, error);
    store_ = std::make_shared<UsageStore>(exists ? settings_.database : fs::path(":memory:"),
                                          UsageStoreOptions{.readOnly = exists});
    return store_;
  }
  settings_.prepareDatabaseDirectory();
  store_ = std::make_shared<UsageStore>(settings_.database);
  return store_;
}

std::optional<SyncLock> CommandContext::lockForSync(std::optional<int> inherited) {
  if (settings_.database.filename() == ":memory:") return std::nullopt;
  if (inherited) {
    if (std::optional<SyncLock> adopted = SyncLock::adopt(*inherited, settings_.database)) {
      return adopted;
    }
  }
  settings_.prepareDatabaseDirectory();
  if (std::optional<SyncLock> lock = SyncLock::tryAcquire(settings_.database)) return lock;
  fmt::print(stderr, "brimlog: another sync is reading the logs; waiting for it to finish\n");
  return SyncLock::acquire(settings_.database);
}

IngestResult CommandContext::ingest() {
  ProgressBar bar;
  IngestOptions options;
  options.progress = [&bar](const IngestProgress& progress) { bar.update(progress); };
  StoreIngestSink sink{*store()};
  UsageIngestor ingestor{sink, settings_.tools.logFolders(), options};
  IngestResult result = ingestor.run(settings_.now);
  bar.finish();
  for (const SkippedFile& file : result.skipped) {
    fmt::print(stderr, "brimlog: skipped {}: {}\n", file.path, file.reason);
  }
  takeClaudeCodeReading();
  return result;
}

void CommandContext::takeClaudeCodeReading() {
  const fs::path statePath = RefreshState::pathIn(settings_.stateFolder);
  RefreshState state = RefreshState::load(statePath);
  if (!ClaudeCodeReading::takeInto(*store(), state, settings_.stateFolder)) return;
  try {
    state.save(statePath);
  } catch (const std::exception& error) {
    fmt::print(stderr, "brimlog: {}\n", error.what());
  }
}

std::vector<FetchOutcome> CommandContext::fetchLimits(LimitsEndpoints endpoints, bool force) {
  LimitsFetcher fetcher = LimitsFetcher::forTools(store(), settings_.tools, std::move(endpoints));
  const fs::path statePath = RefreshState::pathIn(settings_.stateFolder);
  RefreshState state = RefreshState::load(statePath);
  std::vector<FetchOutcome> outcomes = fetcher.run(settings_.now, state, force);
  try {
    settings_.prepareStateFolder();
    state.save(statePath);
  } catch (const std::exception& error) {
    // The limits are stored; only the timing of the next run is lost.
    fmt::print(stderr, "brimlog: {}\n", error.what());
  }
  return outcomes;
}

Snapshot CommandContext::publish(std::string* writeError) {
  return SnapshotPublisher::publish(*store(), settings_, settings_.now, writeError);
}

Snapshot CommandContext::refresh(bool offline, std::string* writeError) {
  const std::optional<SyncLock> lock = lockForSync();
  store();
  std::optional<LimitsEndpoints> endpoints;
  if (!offline) endpoints = LimitsEndpoints::from(settings_);
  ingest();
  if (endpoints) fetchLimits(std::move(*endpoints), false);
  return publish(writeError);
}

}  // namespace brimlog
