#include "ingest/claude/ClaudeLogReader.hpp"

#include "ingest/JSONLTail.hpp"
#include "ingest/LogResume.hpp"
#include "ingest/claude/ClaudeLogParser.hpp"

namespace brimlog {

void ClaudeLogReader::read(const ReadJob& job, Date, const ReadSink& sink) const {
  // A cursor whose bytes were rewritten is dropped, as for a new file.
  std::optional<FileCursor> cursor = LogResume::verified(job.path, job.cursor, job.inode, job.size);
  for (bool atEOF = false; !atEOF;) {
    JSONLTail::Result read = LogResume::read(job.path, cursor, job.size, chunkBytes_);
    ReadOutput output;
    for (PaddedLine line : read.lines) {
      std::optional<UsageEvent> event = ClaudeLogParser::event(line);
      if (!event) continue;
      // A streaming reply's lines follow one another: hand on one event for the run, the
      // store's own rule applied early, so a pass carries half as many events.
      if (!output.events.empty() && output.events.back().dedupKey == event->dedupKey) {
        output.events.back().absorb(*event);
      } else {
        output.events.push_back(std::move(*event));
      }
    }
    atEOF = read.atEOF;
    read.cursor.context[FileCursor::providerKey] = job.provider.rawValue();
    output.bytes = static_cast<int64_t>(read.lines.byteCount());
    output.lines = static_cast<int64_t>(read.lines.size());
    output.fileDone = atEOF;
    output.fileRead = atEOF;
    cursor = read.cursor;
    output.cursor = std::move(read.cursor);
    if (!sink(std::move(output))) return;
  }
}

}  // namespace brimlog
