#pragma once

#include "ingest/LogReader.hpp"

namespace brimlog {

/// Reads Qwen Code chat logs: append-only JSON lines, one record per line, each model call
/// written once with its final usage, so every line is handed on as it is read.
///
/// Only session logs are read: the chat folders also hold sidecars, of which some are JSON lines
/// too (a session's prompt ledger, `<session>.ledger.jsonl`), named with a second dot. A session
/// log is `<session id>.jsonl`, its id a uuid without dots.
class QwenLogReader final : public LogReader {
 public:
  /// `chunkBytes`: how much is read at a time, and so how far a large file gets between commits.
  explicit QwenLogReader(int64_t chunkBytes) : chunkBytes_(chunkBytes) {}

  std::optional<ReadJob> plan(const FoundFile& file, std::optional<FileCursor> cursor,
                              Date now) const override;
  void read(const ReadJob& job, Date now, const ReadSink& sink) const override;

 private:
  int64_t chunkBytes_;
};

}  // namespace brimlog
