#include "ingest/LogResume.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>

#include "platform/FileDescriptor.hpp"

namespace brimlog {
namespace {

constexpr const char* kFingerprintKey = "fingerprint";
constexpr const char* kScannedKey = "scanned";
// Bytes hashed at each end of what was read.
constexpr int64_t kWindow = 4096;
// A shorter unfinished line is cheaper to read again than to track.
constexpr int64_t kTrackedLine = 64 << 10;

// Fills `buffer` from `offset`; the bytes read, or nothing on an error.
std::optional<size_t> readAt(int fd, char* buffer, size_t want, int64_t offset) {
  size_t have = 0;
  while (have < want) {
    const ssize_t n = ::pread(fd, buffer + have, want - have, offset + static_cast<off_t>(have));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return std::nullopt;
    if (n == 0) break;
    have += static_cast<size_t>(n);
  }
  return have;
}

// FNV-1a, 64 bits: stable across builds and machines, as a stored value must be.
uint64_t hashed(const char* bytes, size_t length) {
  uint64_t hash = 0xcbf29ce484222325ULL;
  for (size_t i = 0; i < length; ++i) {
    hash ^= static_cast<unsigned char>(bytes[i]);
    hash *= 0x100000001b3ULL;
  }
  return hash;
}

std::string printed(uint64_t head, uint64_t tail) {
  return fmt::format("{:016x}{:016x}", head, tail);
}

// The fingerprint at `offset` from the bytes of a read that ended there, when they reach back
// far enough. The head half comes from the read itself when it started at the top of the file,
// or else from the fingerprint the cursor had before the read, whose head window was already
// whole (its offset, where this read started, was at least one window in).
std::optional<std::string> fingerprintInMemory(std::string_view read, int64_t offset,
                                               const std::string* previous) {
  const auto readLength = static_cast<int64_t>(read.size());
  const int64_t start = offset - readLength;
  // Both windows are this long: a whole window, or everything before the offset.
  const int64_t window = std::min(offset, kWindow);
  if (readLength < window) return std::nullopt;
  const uint64_t tail = hashed(read.data() + readLength - window, window);
  if (start == 0) return printed(hashed(read.data(), window), tail);
  uint64_t head = 0;
  if (start < kWindow || previous == nullptr || previous->size() != 32) return std::nullopt;
  const auto [end, error] = std::from_chars(previous->data(), previous->data() + 16, head, 16);
  if (error != std::errc{} || end != previous->data() + 16) return std::nullopt;
  return printed(head, tail);
}

}  // namespace

std::optional<std::string> LogResume::fingerprint(const std::string& path, int64_t offset) {
  const FileDescriptor fd{::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)};
  if (!fd) return std::nullopt;
  std::array<char, kWindow> buffer{};
  const auto headLength = static_cast<size_t>(std::min(offset, kWindow));
  const auto head = readAt(fd.get(), buffer.data(), headLength, 0);
  if (!head || *head != headLength) return std::nullopt;
  const uint64_t headHash = hashed(buffer.data(), *head);
  const int64_t tailStart = std::max<int64_t>(0, offset - kWindow);
  const auto tailLength = static_cast<size_t>(offset - tailStart);
  const auto tail = readAt(fd.get(), buffer.data(), tailLength, tailStart);
  if (!tail || *tail != tailLength) return std::nullopt;
  return printed(headHash, hashed(buffer.data(), *tail));
}

std::optional<FileCursor> LogResume::verified(const std::string& path,
                                              std::optional<FileCursor> cursor, uint64_t inode,
                                              int64_t size) {
  if (!cursor || cursor->inode != inode || cursor->offset <= 0 || cursor->offset > size) {
    return cursor;
  }
  const auto stored = cursor->context.find(kFingerprintKey);
  if (stored == cursor->context.end()) return cursor;
  if (fingerprint(path, cursor->offset) == stored->second) return cursor;
  return std::nullopt;
}

bool LogResume::onlyUnfinishedLine(const std::string& path, FileCursor& cursor, int64_t size) {
  const std::optional<int64_t> scanned = cursor.integerEntry(kScannedKey);
  if (!scanned || *scanned <= cursor.offset || *scanned > size) return false;
  const FileDescriptor fd{::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)};
  if (!fd) return false;  // the read that follows reports why
  std::array<char, 64 << 10> buffer{};
  for (int64_t at = *scanned; at < size;) {
    const auto want = static_cast<size_t>(std::min<int64_t>(buffer.size(), size - at));
    const auto got = readAt(fd.get(), buffer.data(), want, at);
    if (!got) return false;
    if (std::memchr(buffer.data(), '\n', *got) != nullptr) return false;
    if (*got < want) break;  // shorter than it was: the read that follows sorts it out
    at += static_cast<int64_t>(*got);
  }
  cursor.context[kScannedKey] = std::to_string(size);
  return true;
}

JSONLTail::Result LogResume::read(const std::string& path, const std::optional<FileCursor>& cursor,
                                  int64_t size, int64_t chunkBytes) {
  JSONLTail::Result result;
  if (cursor) {
    FileCursor waiting = *cursor;
    if (onlyUnfinishedLine(path, waiting, size)) {
      result.cursor = std::move(waiting);
      result.atEOF = true;
      return result;
    }
  }
  result = JSONLTail::read(path, cursor, chunkBytes);
  remember(path, result.cursor, result.atEOF, size, result.lines.consumed());
  return result;
}

void LogResume::remember(const std::string& path, FileCursor& cursor, bool atEOF, int64_t size,
                         std::string_view read) {
  if (atEOF && size - cursor.offset >= kTrackedLine) {
    cursor.context[kScannedKey] = std::to_string(size);
  } else {
    cursor.context.erase(kScannedKey);
  }
  std::optional<std::string> print;
  if (cursor.offset > 0) {
    const auto previous = cursor.context.find(kFingerprintKey);
    print = fingerprintInMemory(read, cursor.offset,
                                previous == cursor.context.end() ? nullptr : &previous->second);
    if (!print) print = fingerprint(path, cursor.offset);
  }
  if (print) {
    cursor.context[kFingerprintKey] = *print;
  } else {
    cursor.context.erase(kFingerprintKey);
  }
}

void LogResume::readJob(const ReadJob& job, int64_t chunkBytes, const ReadSink& sink,
                        const std::function<void(const LineBatch&, ReadOutput&)>& take) {
  readFrom(job, verified(job.path, job.cursor, job.inode, job.size), chunkBytes, sink,
           [&](const JSONLTail::Result& read, ReadOutput& output) { take(read.lines, output); });
}

void LogResume::readFrom(const ReadJob& job, std::optional<FileCursor> cursor, int64_t chunkBytes,
                         const ReadSink& sink,
                         const std::function<void(const JSONLTail::Result&, ReadOutput&)>& take) {
  for (bool atEOF = false; !atEOF;) {
    JSONLTail::Result read = LogResume::read(job.path, cursor, job.size, chunkBytes);
    ReadOutput output;
    take(read, output);
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
