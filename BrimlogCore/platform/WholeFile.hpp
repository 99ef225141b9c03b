#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <string>

namespace brimlog {

/// A file read whole, with the status of the very file that was read (not of whatever the path
/// names a moment later).
struct WholeFile {
  std::string bytes;
  struct stat status {};

  /// Reads the file at `path` to its end. Throws std::filesystem::filesystem_error naming the
  /// operation, the path and the system's reason when it cannot be opened, examined or read.
  ///
  ///     std::string text = WholeFile::read(home / ".codex/auth.json").bytes;
  static WholeFile read(const std::filesystem::path& path);
};

}  // namespace brimlog
