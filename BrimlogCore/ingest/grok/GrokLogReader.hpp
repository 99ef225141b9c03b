#pragma once

#include "ingest/LogReader.hpp"

namespace brimlog {

/// Reads Grok Build session documents: one JSON document per session, rewritten as it grows.
///
/// A document is read again whole when its size or modification time changes; the turns
/// counted so far travel in the cursor (context key "lastTurn") so only later turns count. The
/// cursor's offset is the size read, and "size" and "mtime" (nanoseconds) tell the next pass
/// whether the document changed.
class GrokLogReader final : public LogReader {
 public:
  std::optional<ReadJob> plan(const FoundFile& file, std::optional<FileCursor> cursor,
                              Date now) const override;
  void read(const ReadJob& job, Date now, const ReadSink& sink) const override;
};

}  // namespace brimlog
