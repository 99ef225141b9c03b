#include "ingest/JSONLTail.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "platform/FileDescriptor.hpp"

namespace brimlog {
namespace {

[[noreturn]] void throwFileError(const char* operation, const std::filesystem::path& path) {
  throw std::filesystem::filesystem_error(operation, path,
                                          std::error_code(errno, std::generic_category()));
}

// Fills buffer[have, want) from the file at `offset + have`; returns the new fill level, which is
// below `want` only at the end of the file.
size_t fill(int fd, const std::filesystem::path& path, char* buffer, size_t have, size_t want,
            int64_t offset) {
  while (have < want) {
    const ssize_t n = ::pread(fd, buffer + have, want - have, offset + static_cast<off_t>(have));
    if (n < 0) {
      if (errno == EINTR) continue;
      throwFileError("Cannot read log file", path);
    }
    if (n == 0) break;
    have += static_cast<size_t>(n);
  }
  return have;
}

}  // namespace

JSONLTail::Result JSONLTail::read(const std::filesystem::path& path,
                                  const std::optional<FileCursor>& cursor, int64_t maxBytes) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) throwFileError("Cannot examine log file", path);
  const auto inode = static_cast<uint64_t>(status.st_ino);
  const auto size = static_cast<int64_t>(status.st_size);

  Result result;
  if (cursor && cursor->inode == inode && cursor->offset >= 0 && size >= cursor->offset) {
    result.cursor = *cursor;
  } else {
    // A new file, or the old one was replaced or truncated (a negative offset can only come from
    // a damaged store and is treated the same way): start over with an empty context.
    result.cursor = FileCursor{path.string(), inode, 0, {}};
    result.reset = cursor.has_value();
  }

  // Never waits at the open: a FIFO put where a log was fails its first positioned read instead.
  const FileDescriptor fd{::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)};
  if (!fd) throwFileError("Cannot open log file", path);

  const int64_t offset = result.cursor.offset;
  size_t request = static_cast<size_t>(std::max<int64_t>(maxBytes, 1));
  LineBatch& lines = result.lines;
  lines.capacity_ = request + LineBatch::kPadding;
  lines.bytes_ = std::make_unique_for_overwrite<char[]>(lines.capacity_);

  size_t have = 0;
  const char* lastFeed = nullptr;
  for (;;) {
    have = fill(fd.get(), path, lines.bytes_.get(), have, request, offset);
    lastFeed = static_cast<const char*>(::memrchr(lines.bytes_.get(), '\n', have));
    if (lastFeed != nullptr || have < request) break;
    // One line is longer than the request: double it and read on from where this read stopped.
    request *= 2;
    auto larger = std::make_unique_for_overwrite<char[]>(request + LineBatch::kPadding);
    std::memcpy(larger.get(), lines.bytes_.get(), have);
    lines.bytes_ = std::move(larger);
    lines.capacity_ = request + LineBatch::kPadding;
  }
  std::memset(lines.bytes_.get() + have, 0, LineBatch::kPadding);
  result.atEOF = have < request;
  if (lastFeed == nullptr) return result;  // nothing but a line still being written

  const char* const base = lines.bytes_.get();
  const char* const end = lastFeed + 1;
  for (const char* start = base; start < end;) {
    const auto* feed = static_cast<const char*>(std::memchr(start, '\n', end - start));
    size_t length = static_cast<size_t>(feed - start);
    if (length > 0 && start[length - 1] == '\r') --length;
    if (length > 0) lines.spans_.push_back({static_cast<size_t>(start - base), length});
    start = feed + 1;
  }
  lines.consumed_ = static_cast<size_t>(end - base);
  result.cursor.offset = offset + (end - base);
  return result;
}

}  // namespace brimlog
