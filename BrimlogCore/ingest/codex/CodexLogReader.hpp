#pragma once

#include "ingest/LogReader.hpp"

namespace brimlog {

/// Reads Codex session logs, counting each model call once from the running totals.
///
/// Codex logs usage in `token_count` events carrying the session's cumulative total and the last
/// call's usage, and often repeats an event unchanged. Every event that raises the total counts
/// its last call's usage, keyed "session#total"; a new session starts from zero again. The total
/// so far travels in the cursor (context key "total") beside the parser's own context.
///
/// A log holding usage-record lines reports its usage through those instead: such a file counts
/// its records alone (remembered as "usageRecords"). Because a record may appear after the
/// token_count events, a Codex file is handed over whole, at its end.
class CodexLogReader final : public LogReader {
 public:
  explicit CodexLogReader(int64_t chunkBytes) : chunkBytes_(chunkBytes) {}

  void read(const ReadJob& job, Date now, const ReadSink& sink) const override;

 private:
  int64_t chunkBytes_;
};

}  // namespace brimlog
