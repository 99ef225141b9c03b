#include "ingest/grok/GrokLogReader.hpp"

#include <limits>

#include "ingest/grok/GrokUsageParser.hpp"
#include "platform/WholeFile.hpp"

namespace brimlog {
namespace {

constexpr const char* kLastTurnKey = "lastTurn";  // turns counted so far
constexpr const char* kSizeKey = "size";          // size at the last read
constexpr const char* kMtimeKey = "mtime";        // modification time (ns) at the last read

// A session document holds its whole conversation; the largest seen are a few hundred kilobytes.
// Past this it is not a session document, and is skipped with its reason.
constexpr size_t kDocumentLimit = size_t{256} << 20;

int64_t mtimeNanoseconds(const struct stat& status) {
  return static_cast<int64_t>(status.st_mtim.tv_sec) * 1'000'000'000 + status.st_mtim.tv_nsec;
}

}  // namespace

std::optional<ReadJob> GrokLogReader::plan(const FoundFile& file, std::optional<FileCursor> cursor,
                                           Date) const {
  const bool unchanged = cursor && cursor->inode == static_cast<uint64_t>(file.status.st_ino) &&
                         cursor->integerEntry(kSizeKey) == file.status.st_size &&
                         cursor->integerEntry(kMtimeKey) == mtimeNanoseconds(file.status);
  if (unchanged) return std::nullopt;
  return ReadJob{file.path,           file.provider,     static_cast<uint64_t>(file.status.st_ino),
                 file.status.st_size, std::move(cursor), file.status.st_size};
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
                              {kLastTurnKey, std::to_string(parsed.lastTurn)},
                              {kSizeKey, std::to_string(document.status.st_size)},
                              {kMtimeKey, std::to_string(mtimeNanoseconds(document.status))}}};
  output.bytes = size;
  output.lines = 1;
  output.fileDone = true;
  output.fileRead = true;
  sink(std::move(output));
}

}  // namespace brimlog
