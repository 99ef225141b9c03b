#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "ingest/LogReader.hpp"

namespace brimlog {

class OpenCodeDatabase;

/// Reads the replies of one OpenCode or Kilo database and hands their events to a pass's sink as
/// it goes; what `OpenCodeLogReader` does with a database once it has decided to read it.
///
/// A first read (`since` at its lowest) takes every message and the steps of every part: one pass
/// over the part table, the bulk of the file, in the order it lies, then one over the messages.
/// Each pass is split in two halves by row number, the upper half read on a thread of its own
/// through a second connection, so that a first read of years of history uses two cores as the
/// reading of many log files does. The second connection's read starts after the first's and may
/// see steps committed since; they are steps of the same replies, counted by the same keys, and
/// the caller's cursor (taken before either read) makes the next pass read those messages again.
/// A later read takes only the messages updated since, with their parts looked up through the
/// part table's index.
///
///     ReadOutput rest;
///     int64_t mark = previousMark;
///     if (OpenCodeDatabaseScan{job, sink}.run(since, rest, mark)) { /* hand `rest` over */ }
class OpenCodeDatabaseScan {
 public:
  OpenCodeDatabaseScan(const ReadJob& job, const ReadSink& sink) : job_(job), sink_(sink) {}

  /// Reads the messages whose `time_updated` is at least `since`, or that have parts of row
  /// numbers above `lastPart`; hands their events to the sink in outputs without a cursor, and
  /// leaves the last ones in `rest`, for the output that carries the cursor. `mark` rises to the
  /// newest `time_updated` read, `lastPart` to the highest part row. False when the pass stopped.
  /// Throws std::runtime_error when the database cannot be read.
  bool run(int64_t since, ReadOutput& rest, int64_t& mark, int64_t& lastPart);

 private:
  bool wholeRead(OpenCodeDatabase& database, ReadOutput& rest, int64_t& mark);

  const ReadJob& job_;
  const ReadSink& sink_;
  std::atomic<bool> stopped_{false};
};

}  // namespace brimlog
