#include "ingest/LogReader.hpp"

namespace brimlog {

std::optional<ReadJob> LogReader::plan(const FoundFile& file, std::optional<FileCursor> cursor,
                                       Date) const {
  const int64_t size = file.status.st_size;
  const bool sameFile = cursor && cursor->inode == static_cast<uint64_t>(file.status.st_ino);
  if (sameFile && cursor->offset == size) return std::nullopt;
  const int64_t expected = sameFile && cursor->offset < size ? size - cursor->offset : size;
  return ReadJob{file.path, file.provider,     static_cast<uint64_t>(file.status.st_ino),
                 size,      std::move(cursor), expected};
}

}  // namespace brimlog
