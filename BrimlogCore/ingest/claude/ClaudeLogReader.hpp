#pragma once

#include "ingest/LogReader.hpp"

namespace brimlog {

/// Reads Claude Code transcripts, counting each reply once with its final size.
///
/// Claude Code writes one reply over several lines with the same key, the last holding the final
/// output count: of each run of consecutive events with one key only the last is counted. The
/// run at the end of a transcript may still be growing, so its latest event waits in the file's
/// cursor (context key "pending") until another reply follows it or it is `pendingGrace` seconds
/// old; an unchanged file whose waiting reply has grown old is planned as a job of its own that
/// only settles it.
class ClaudeLogReader final : public LogReader {
 public:
  /// `chunkBytes`: how much is read at a time, and so how far a large file gets between commits.
  ClaudeLogReader(int64_t chunkBytes, double pendingGrace)
      : chunkBytes_(chunkBytes), pendingGrace_(pendingGrace) {}

  std::optional<ReadJob> plan(const FoundFile& file, std::optional<FileCursor> cursor,
                              Date now) const override;
  void read(const ReadJob& job, Date now, const ReadSink& sink) const override;

 private:
  bool isOld(const UsageEvent& event, Date now) const;

  int64_t chunkBytes_;
  double pendingGrace_;
};

}  // namespace brimlog
