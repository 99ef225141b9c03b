#include "ingest/qwen/QwenLogReader.hpp"

#include "ingest/JSONLTail.hpp"
#include "ingest/LogResume.hpp"
#include "ingest/qwen/QwenLogParser.hpp"

namespace brimlog {

bool QwenLogReader::isSessionLog(std::string_view path) {
  const auto slash = path.rfind('/');
  const std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
  // The walk found it by its ".jsonl" ending: any other dot marks a sidecar.
  return name.find('.') == name.rfind('.');
}

std::optional<ReadJob> QwenLogReader::plan(const FoundFile& file, std::optional<FileCursor> cursor,
                                           Date now) const {
  if (!isSessionLog(file.path)) return std::nullopt;
  return LogReader::plan(file, std::move(cursor), now);
}

void QwenLogReader::read(const ReadJob& job, Date, const ReadSink& sink) const {
  // A cursor whose bytes were rewritten is dropped, as for a new file.
  std::optional<FileCursor> cursor = LogResume::verified(job.path, job.cursor, job.inode, job.size);
  for (bool atEOF = false; !atEOF;) {
    JSONLTail::Result read = LogResume::read(job.path, cursor, job.size, chunkBytes_);
    ReadOutput output;
    for (PaddedLine line : read.lines) {
      if (std::optional<UsageEvent> event = QwenLogParser::event(line)) {
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
