#include "ingest/LogReader.hpp"

#include <string>

namespace brimlog {
namespace {

constexpr const char* kSizeKey = "size";    // a rewritten file's size at the last read
constexpr const char* kMtimeKey = "mtime";  // its modification time (ns) then

int64_t mtimeNanoseconds(const struct stat& status) {
  return static_cast<int64_t>(status.st_mtim.tv_sec) * 1'000'000'000 + status.st_mtim.tv_nsec;
}

}  // namespace

std::optional<ReadJob> LogReader::plan(const FoundFile& file, std::optional<FileCursor> cursor,
                                       Date) const {
  const int64_t size = file.status.st_size;
  const bool sameFile = cursor && cursor->inode == static_cast<uint64_t>(file.status.st_ino);
  if (sameFile && cursor->offset == size) return std::nullopt;
  const int64_t expected = sameFile && cursor->offset < size ? size - cursor->offset : size;
  return ReadJob{file.path, file.provider,     static_cast<uint64_t>(file.status.st_ino),
                 size,      std::move(cursor), expected};
}

std::optional<ReadJob> LogReader::planRewritten(const FoundFile& file,
                                                std::optional<FileCursor> cursor) {
  const bool unchanged = cursor && cursor->inode == static_cast<uint64_t>(file.status.st_ino) &&
                         cursor->integerEntry(kSizeKey) == file.status.st_size &&
                         cursor->integerEntry(kMtimeKey) == mtimeNanoseconds(file.status);
  if (unchanged) return std::nullopt;
  return ReadJob{file.path,           file.provider,     static_cast<uint64_t>(file.status.st_ino),
                 file.status.st_size, std::move(cursor), file.status.st_size};
}

void LogReader::recordRewritten(FileCursor& cursor, const struct stat& status) {
  cursor.context[kSizeKey] = std::to_string(status.st_size);
  cursor.context[kMtimeKey] = std::to_string(mtimeNanoseconds(status));
}

}  // namespace brimlog
