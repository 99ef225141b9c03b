#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <filesystem>
#include <string>

namespace brimlog {

/// A file read whole, with the status of the very file that was read (not of whatever the path
/// names a moment later).
///
/// Only regular files are read, and only up to a limit the caller names: every file Brimlog reads
/// whole lies in a folder another program (or a user's mistake) can put anything into, and a FIFO
/// would block the read forever, a link to /dev/zero would fill the memory, and a file a thousand
/// times its usual size would cost as much time as memory. The open never waits, so a FIFO is
/// refused at once.
struct WholeFile {
  std::string bytes;
  struct stat status {};

  /// Reads the regular file at `path` to its end. Throws std::filesystem::filesystem_error
  /// naming the operation, the path and the reason when it cannot be opened, examined or read,
  /// when it is not a regular file, or when it holds more than `limit` bytes.
  ///
  ///     std::string text = WholeFile::read(home / ".codex/auth.json", 1 << 20).bytes;
  static WholeFile read(const std::filesystem::path& path, size_t limit);

  /// The limit for the small records Brimlog writes or reads beside its database (the snapshot,
  /// state files, credentials, settings): a thousand times their usual size.
  static constexpr size_t kSmallFileLimit = size_t{4} << 20;
};

}  // namespace brimlog
