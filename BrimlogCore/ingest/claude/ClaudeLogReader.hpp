#pragma once

#include "ingest/LogReader.hpp"

namespace brimlog {

/// Reads Claude Code transcripts.
///
/// Claude Code writes one reply over several lines with the same key while it streams, the last
/// holding the final output count. Every line is handed on as it is read: the store counts a
/// reply as soon as any of its lines is seen and adds what a later line carries beyond that, so
/// the newest reply is in the totals at once and ends up with its final counts.
class ClaudeLogReader final : public LogReader {
 public:
  /// `chunkBytes`: how much is read at a time, and so how far a large file gets between commits.
  explicit ClaudeLogReader(int64_t chunkBytes) : chunkBytes_(chunkBytes) {}

  void read(const ReadJob& job, Date now, const ReadSink& sink) const override;

 private:
  int64_t chunkBytes_;
};

}  // namespace brimlog
