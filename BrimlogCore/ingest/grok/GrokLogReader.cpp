#include "ingest/grok/GrokLogReader.hpp"

#include <limits>

#include "ingest/grok/GrokUsageParser.hpp"
#include "platform/WholeFile.hpp"

namespace brimlog {
namespace {

constexpr const char* kLastTurnKey = "lastTurn";  // turns counted so far

// A session document holds its whole conversation; the largest seen are a few hundred kilobytes.
// Past this it is not a session document, and is skipped with its reason.
constexpr size_t kDocumentLimit = size_t{256} << 20;

}  // namespace

std::optional<ReadJob> GrokLogReader::plan(const FoundFile& file, std::optional<FileCursor> cursor,
                                           Date) const {
  return planRewritten(file, std::move(cursor));
}

void GrokLogReader::read(const ReadJob& job, Date, const ReadSink& sink) const {
  const WholeFile document = WholeFile::read(job.path, kDocumentLimit);
  const auto inode = static_cast<uint64_t>(document.status.st_ino);
  int64_t afterTurn = std::numeric_limits<int64_t>::min();
  if (job.cursor && job.cursor->inode == inode) {
    afterTurn = job.cursor->integerEntry(kLastTurnKey).value_or(afterTurn);
  }
  GrokUsageParser::Result parsed = GrokUsageParser::events(document.bytes, afterTurn);

  const auto size = static_cast<int64_t>(document.bytes.size());
  ReadOutput output;
  output.events = std::move(parsed.events);
  output.cursor = FileCursor{job.path,
                             inode,
                             size,
                             {{FileCursor::providerKey, std::string(job.provider.rawValue())},
                              {kLastTurnKey, std::to_string(parsed.lastTurn)}}};
  recordRewritten(*output.cursor, document.status);
  output.bytes = size;
  output.lines = 1;
  output.fileDone = true;
  output.fileRead = true;
  sink(std::move(output));
}

}  // namespace brimlog
