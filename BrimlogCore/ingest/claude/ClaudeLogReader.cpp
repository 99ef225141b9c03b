#include "ingest/claude/ClaudeLogReader.hpp"

#include "ingest/LogResume.hpp"
#include "ingest/claude/ClaudeLogParser.hpp"

namespace brimlog {

void ClaudeLogReader::read(const ReadJob& job, Date, const ReadSink& sink) const {
  LogResume::readJob(job, chunkBytes_, sink, [](const LineBatch& lines, ReadOutput& output) {
    for (PaddedLine line : lines) {
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
  });
}

}  // namespace brimlog
