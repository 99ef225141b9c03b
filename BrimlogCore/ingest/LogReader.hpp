#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ingest/TreeWalker.hpp"
#include "model/FileCursor.hpp"
#include "model/ProviderLimits.hpp"
#include "model/UsageEvent.hpp"
#include "platform/Date.hpp"

namespace brimlog {

/// A file the pass hands a reader, and where reading resumes.
struct ReadJob {
  std::string path;
  ProviderID provider = ProviderID::claude;
  /// The file's inode and size when the walk found it.
  uint64_t inode = 0;
  int64_t size = 0;
  std::optional<FileCursor> cursor;
  /// Bytes the pass expects to read: the unread part of the file. Larger jobs go first.
  int64_t expectedBytes = 0;
};

/// What a reader hands the pass: the events of one file, or of one chunk of a large one, and the
/// cursor to store in the same transaction.
struct ReadOutput {
  std::vector<UsageEvent> events;
  std::optional<FileCursor> cursor;
  /// The newest limits the lines carried (Codex logs its rate limits).
  std::optional<ProviderLimits> limits;
  /// Every limits record of the lines whose figures differ from the one before it, in the
  /// lines' order: the history of readings, without the thousands of repeats a log holds.
  std::vector<ProviderLimits> limitChanges;
  std::optional<SkippedFile> skipped;
  int64_t bytes = 0;
  int64_t lines = 0;
  /// The last output of this job.
  bool fileDone = false;
  /// The job read the file (not only settled its cursor, not skipped it).
  bool fileRead = false;
};

/// Takes a reader's outputs; false when the pass has stopped and reading should end.
using ReadSink = std::function<bool(ReadOutput)>;

/// How one tool's log files are read: when a file found by the walk needs reading, and how its
/// lines become events. Each reader owns the context keys it keeps in a file's cursor, and puts
/// the job's tool under `FileCursor::providerKey` in every cursor it hands over.
///
/// Readers hold only settings; `read` runs on worker threads, several at once.
class LogReader {
 public:
  virtual ~LogReader() = default;

  /// The job for a found file, or nothing when the file has not changed since `cursor` was
  /// stored. The default: a job when the file is new, was replaced, or has grown or shrunk since
  /// the cursor's offset.
  virtual std::optional<ReadJob> plan(const FoundFile& file, std::optional<FileCursor> cursor,
                                      Date now) const;

  /// Reads the job's file from its cursor and hands every output to `sink`; the last one has
  /// `fileDone` set. Throws std::filesystem::filesystem_error when the file cannot be read.
  virtual void read(const ReadJob& job, Date now, const ReadSink& sink) const = 0;

 protected:
  /// For a file rewritten in place (a whole document), which may keep its size: a job when its
  /// inode, size or modification time differ from those `recordRewritten` put in the cursor.
  static std::optional<ReadJob> planRewritten(const FoundFile& file,
                                              std::optional<FileCursor> cursor);
  /// Notes in `cursor` the size and modification time `planRewritten` compares.
  static void recordRewritten(FileCursor& cursor, const struct stat& status);
};

}  // namespace brimlog
