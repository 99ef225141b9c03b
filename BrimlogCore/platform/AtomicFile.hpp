#pragma once

#include <filesystem>
#include <string_view>

namespace brimlog {

/// Replaces a file whole, so that whoever opens it at any moment finds either all of the old
/// bytes or all of the new ones, and so that the new ones survive a crash once `replace` returns.
///
///     AtomicFile::replace(folder / "snapshot.json", json::dump(snapshot.toJson()));
///
/// The bytes go to a temporary file of a unique name beside the target (".<name>.XXXXXX" in the
/// same folder, readable and writable by the user alone), are flushed to disk, and the temporary
/// file is renamed over the target; then the folder is flushed, which puts the rename itself on
/// disk. Unique names let several processes replace the same file at once: the last rename wins
/// and each reader sees one writer's bytes whole.
struct AtomicFile {
  /// `durable`: on disk when `replace` returns (the file and the folder are flushed). `visible`:
  /// whole or not at all for every reader, but a power cut may lose it; for small hand-overs
  /// that the next run would write again, where flushing would cost more than the write.
  enum class Durability { durable, visible };

  /// Replaces `path` with `bytes`; the folder must exist. Throws
  /// std::filesystem::filesystem_error naming the operation, the path and the system's reason.
  /// Whatever fails up to the rename leaves the previous file as it was (a folder standing where
  /// the file should be included); no temporary file stays behind on any path.
  static void replace(const std::filesystem::path& path, std::string_view bytes,
                      Durability durability = Durability::durable);
};

}  // namespace brimlog
