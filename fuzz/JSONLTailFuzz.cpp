// Reading a growing JSON-lines file in chunks must hand back exactly its complete lines, once:
// read until the end in chunks of a given size, the lines returned are the file's lines ended by
// a line feed (a carriage return before the feed dropped, empty lines left out), in order, each
// followed by the promised padding; a read from the returned cursor finds nothing new; and after
// more bytes are appended, reads from that cursor return only the lines those bytes completed.
//
// The input: its first byte less one is the chunk size (1 to 256 bytes); the second byte says
// where the rest is cut into the file's first part and the part appended later (at that share of
// 255); the rest is the two parts.

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Finding.hpp"
#include "ingest/JSONLTail.hpp"
#include "platform/FileDescriptor.hpp"

using namespace brimlog;

namespace {

[[noreturn]] void systemFailure(const char* operation, const std::string& path) {
  fuzz::finding(std::string(operation) + " " + path + ": " + std::strerror(errno));
}

// One folder per process, made on first use and removed when the process ends.
class ScratchFolder {
 public:
  ScratchFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "brimlog-fuzz-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) systemFailure("mkdtemp", pattern);
    path_ = pattern;
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

void write(const std::filesystem::path& path, std::string_view bytes, int flags) {
  const FileDescriptor fd{::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | flags, 0600)};
  if (!fd) systemFailure("open", path.string());
  while (!bytes.empty()) {
    const ssize_t n = ::write(fd.get(), bytes.data(), bytes.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) systemFailure("write", path.string());
    bytes.remove_prefix(static_cast<size_t>(n));
  }
}

// The lines a reader must hand over for these bytes, and the offset just past the last feed.
std::vector<std::string> completeLines(std::string_view text, int64_t& consumed) {
  std::vector<std::string> lines;
  consumed = 0;
  for (size_t start = 0, feed; (feed = text.find('\n', start)) != std::string_view::npos;
       start = feed + 1) {
    std::string_view line = text.substr(start, feed - start);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (!line.empty()) lines.emplace_back(line);
    consumed = static_cast<int64_t>(feed + 1);
  }
  return lines;
}

// Reads from `cursor` (none: from the start) until the end of the file, checking each read.
std::vector<std::string> readToEnd(const std::filesystem::path& path,
                                   std::optional<FileCursor>& cursor, int64_t chunk,
                                   size_t fileSize) {
  std::vector<std::string> lines;
  // Every read but the last consumes at least one byte.
  const size_t maxReads = fileSize + 2;
  for (size_t reads = 0;; ++reads) {
    fuzz::expect(reads < maxReads,
                 [&] { return "no end of file after " + std::to_string(reads) + " reads"; });
    JSONLTail::Result result = JSONLTail::read(path, cursor, chunk);
    fuzz::expect(!result.reset, [&] { return "a read of a file that only grew reset its cursor"; });
    for (const PaddedLine line : result.lines) {
      // The padding belongs to the batch: the address sanitizer sees a read past its end.
      const volatile char last = line.bytes.data()[line.bytes.size() + LineBatch::kPadding - 1];
      (void)last;
      lines.emplace_back(line.bytes);
    }
    cursor = result.cursor;
    if (result.atEOF) return lines;
  }
}

std::string joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += "[" + line + "]";
  return text;
}

void expectLines(const std::vector<std::string>& read, const std::vector<std::string>& expected,
                 const std::string& when) {
  fuzz::expect(read == expected, [&] {
    return when + ": read " + joined(read) + ", the complete lines are " + joined(expected);
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const int64_t chunk = int64_t{data[0]} + 1;
  const std::string_view rest(reinterpret_cast<const char*>(data) + 2, size - 2);
  const std::string_view firstPart = rest.substr(0, rest.size() * data[1] / 255);
  const std::string whole(rest);

  static const ScratchFolder folder;
  const std::filesystem::path path = folder.path() / "session.jsonl";
  write(path, firstPart, O_TRUNC);

  int64_t firstEnd = 0;
  const std::vector<std::string> firstLines = completeLines(firstPart, firstEnd);
  std::optional<FileCursor> cursor;  // a file never read
  expectLines(readToEnd(path, cursor, chunk, firstPart.size()), firstLines, "the first part");
  fuzz::expect(
      cursor->path == path.string() && cursor->offset == firstEnd && cursor->context.empty(), [&] {
        return "after the first part the cursor is at " + std::to_string(cursor->offset) +
               ", not " + std::to_string(firstEnd) + ", or names another file";
      });

  // The context is the parsers' and rides along untouched.
  cursor->context["model"] = "m1";
  const FileCursor atEnd = *cursor;
  expectLines(readToEnd(path, cursor, chunk, firstPart.size()), {}, "a read at the end");
  fuzz::expect(cursor == atEnd, [&] { return "a read at the end moved the cursor"; });

  write(path, rest.substr(firstPart.size()), O_APPEND);
  int64_t wholeEnd = 0;
  std::vector<std::string> newLines = completeLines(whole, wholeEnd);
  newLines.erase(newLines.begin(), newLines.begin() + static_cast<ptrdiff_t>(firstLines.size()));
  expectLines(readToEnd(path, cursor, chunk, whole.size()), newLines, "the appended part");
  fuzz::expect(cursor->offset == wholeEnd && cursor->inode == atEnd.inode &&
                   cursor->context == atEnd.context,
               [&] {
                 return "after the appended part the cursor is at " +
                        std::to_string(cursor->offset) + ", not " + std::to_string(wholeEnd) +
                        ", or lost its inode or context";
               });
  return 0;
}
