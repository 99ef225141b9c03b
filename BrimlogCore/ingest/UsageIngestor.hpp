#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ingest/ProviderLocations.hpp"
#include "model/ProviderLimits.hpp"
#include "platform/Calendar.hpp"
#include "platform/Date.hpp"
#include "platform/Json.hpp"

namespace brimlog {

class UsageStore;

/// A file a pass could not read, and why.
struct SkippedFile {
  std::string path;
  std::string reason;

  bool operator==(const SkippedFile&) const = default;
};

/// How far a pass has got, reported after every file (or every chunk of a large one).
struct IngestProgress {
  size_t filesDone = 0;
  size_t filesTotal = 0;
  int64_t bytesRead = 0;
  /// Bytes the pass expects to read: the unread part of every changed file.
  int64_t bytesTotal = 0;
  int64_t newEvents = 0;
  /// Transactions committed so far.
  size_t commits = 0;
};

struct IngestOptions {
  /// Threads parsing files; 0 means one per processor.
  unsigned workers = 0;
  /// Bytes read from a log file at a time; also how far a large file gets between commits.
  int64_t chunkBytes = 4 << 20;
  /// A commit is made once this many events are waiting, or `batchFiles` files' cursors.
  size_t batchEvents = 100'000;
  size_t batchFiles = 2'000;
  /// Seconds after which the last reply of a transcript is counted although no later reply has
  /// confirmed it is complete.
  double pendingGrace = 900;
  /// Called on the calling thread as the pass goes on; must be quick.
  std::function<void(const IngestProgress&)> progress;
};

/// What one pass did.
struct IngestResult {
  /// Log files found under the tools' directories.
  size_t filesScanned = 0;
  /// Files opened and read because they were new or had changed.
  size_t filesRead = 0;
  int64_t linesRead = 0;
  int64_t bytesRead = 0;
  /// Events counted for the first time, by `ProviderID::index()`.
  std::array<int64_t, 4> newEvents{};
  std::vector<SkippedFile> skipped;
  /// The newest Codex limits read from the logs in this pass, and whether they replaced the
  /// stored ones (they do when they are newer).
  std::optional<ProviderLimits> codexLimits;
  bool codexLimitsStored = false;
  double elapsedSeconds = 0;

  int64_t totalNewEvents() const;
  int64_t newEventsOf(ProviderID provider) const { return newEvents[provider.index()]; }

  /// {"filesScanned":…, "filesRead":…, "linesRead":…, "bytesRead":…,
  ///  "newEvents":{"claude":…,…}, "skipped":[{"path":…,"reason":…}], "elapsedSeconds":…}
  Json toJson() const;
};

/// Walks the tools' log directories and counts every reply not yet counted, reading each file
/// only from where the previous pass stopped.
///
/// Files are parsed on worker threads; the calling thread commits their events together with
/// the cursors of the files they came from, in large transactions. A pass that stops part way
/// (a crash, a failed commit) leaves every file either counted up to its stored cursor or not at
/// all, so the next pass neither loses nor repeats a reply.
///
/// Claude Code writes one reply over several lines with the same key, the last one holding the
/// final output count: of each run of consecutive events with one key only the last is counted.
/// The run at the end of a transcript may still be growing, so its latest event waits in the
/// file's cursor until another reply follows it or it is `pendingGrace` seconds old.
///
/// Codex logs carry usage in `token_count` events with a cumulative total; every event that
/// raises the total counts its last response's usage (keyed session#total). A file holding
/// usage-record lines counts those alone.
///
///     UsageIngestor ingestor{store, ProviderLocations{home}, Calendar::current()};
///     IngestResult result = ingestor.run(currentDate());
class UsageIngestor {
 public:
  UsageIngestor(UsageStore& store, ProviderLocations locations, Calendar calendar,
                IngestOptions options = {});

  /// One pass. Unreadable files are reported in the result and skipped; a store that fails
  /// throws `UsageStoreError` once the workers have stopped.
  IngestResult run(Date now);

 private:
  UsageStore& store_;
  ProviderLocations locations_;
  Calendar calendar_;
  IngestOptions options_;
};

}  // namespace brimlog
