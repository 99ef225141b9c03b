#include "ingest/qwen/QwenLogReader.hpp"

#include "ingest/LogResume.hpp"
#include "ingest/qwen/QwenLogParser.hpp"

namespace brimlog {

namespace {

// Whether a file the walk found by its ".jsonl" ending is a session log rather than a sidecar.
bool isSessionLog(std::string_view path) {
  const auto slash = path.rfind('/');
  const std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
  // Any dot before the ending marks a sidecar.
  return name.find('.') == name.rfind('.');
}

}  // namespace

std::optional<ReadJob> QwenLogReader::plan(const FoundFile& file, std::optional<FileCursor> cursor,
                                           Date now) const {
  if (!isSessionLog(file.path)) return std::nullopt;
  return LogReader::plan(file, std::move(cursor), now);
}

void QwenLogReader::read(const ReadJob& job, Date, const ReadSink& sink) const {
  LogResume::readJob(job, chunkBytes_, sink, [](const LineBatch& lines, ReadOutput& output) {
    for (PaddedLine line : lines) {
      if (std::optional<UsageEvent> event = QwenLogParser::event(line)) {
        output.events.push_back(std::move(*event));
      }
    }
  });
}

}  // namespace brimlog
