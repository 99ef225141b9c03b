#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ingest/IngestSink.hpp"
#include "ingest/LogReader.hpp"
#include "ingest/TreeWalker.hpp"
#include "platform/Date.hpp"
#include "platform/Json.hpp"

namespace brimlog {

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
  /// A batch goes to the writer, which commits it on a thread of its own, once this many events
  /// are waiting (or `batchFiles` files' cursors) and the writer is free; while the writer is
  /// busy the batch grows, up to four times as large. Small batches keep the last commit, the one
  /// nothing else overlaps, short.
  size_t batchEvents = 10'000;
  size_t batchFiles = 2'000;
  /// Called on the calling thread as the pass goes on; must be quick.
  std::function<void(const IngestProgress&)> progress;
};

/// What one pass did.
struct IngestResult {
  /// Log files found in the folders.
  size_t filesScanned = 0;
  /// Files opened and read because they were new or had changed.
  size_t filesRead = 0;
  int64_t linesRead = 0;
  int64_t bytesRead = 0;
  /// Events counted for the first time.
  PerProvider<int64_t> newEvents;
  std::vector<SkippedFile> skipped;
  /// The newest Codex limits read from the logs in this pass, and whether they replaced the
  /// stored ones (they do when they are newer).
  std::optional<ProviderLimits> codexLimits;
  bool codexLimitsStored = false;
  /// Every Codex limits record the pass read whose figures changed from the one before it in its
  /// file, for the history of readings; the sink has them by the time the pass returns.
  std::vector<ProviderLimits> codexReadings;
  double elapsedSeconds = 0;

  int64_t totalNewEvents() const;

  /// {"filesScanned":…, "filesRead":…, "linesRead":…, "bytesRead":…,
  ///  "newEvents":{"claude":…,…}, "skipped":[{"path":…,"reason":…}], "elapsedSeconds":…}
  Json toJson() const;
};

/// One pass over the tools' log folders: counts every reply not yet counted, reading each file
/// only from where the previous pass stopped.
///
/// The pass plans and commits; the tools' readers (one for each row of `ToolSource::all`) decide
/// which files changed and turn them into events on worker threads.
/// The calling thread gathers their events with the cursors of the files they came from into
/// batches, and a writer thread commits each batch in one transaction while the reading goes on. A
/// pass that stops part way (a crash, a failed commit) leaves every file either counted up to its
/// stored cursor or not at all, so the next pass neither loses nor repeats a reply.
///
///     UsageIngestor ingestor{sink, folders};
///     IngestResult result = ingestor.run(currentDate());
class UsageIngestor {
 public:
  UsageIngestor(IngestSink& sink, std::vector<LogFolder> folders, IngestOptions options = {});

  /// One pass. Unreadable files are reported in the result and skipped; a sink that fails
  /// throws its error once the workers have stopped.
  IngestResult run(Date now);

 private:
  IngestSink& sink_;
  std::vector<LogFolder> folders_;
  IngestOptions options_;
};

}  // namespace brimlog
