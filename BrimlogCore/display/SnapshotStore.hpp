#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "display/Snapshot.hpp"

namespace brimlog {

/// Where the snapshot lives: "snapshot.json" directly inside the folder that the host and the
/// widget process share. The host is its only writer and replaces it whole, atomically; the
/// widget process reads it on every timeline request, without any lock.
///
///     // The host and the widget process both resolve the folder from the same variables:
///     const SnapshotStore store{SharedDirectory::forGroup(SnapshotStore::appGroup,
///                                                         environment("XDG_DATA_HOME"),
///                                                         environment("HOME"))};
///     store.write(Snapshot::make(summary, limits, ProviderID::allCases, now, calendar));
///     std::optional<Snapshot> shown = store.read();  // nothing when there is none to show
class SnapshotStore {
 public:
  /// The group whose shared folder holds the file, the same for host and widget process.
  static constexpr std::string_view appGroup = "K7QX2M9T4B.app.brimlog";

  /// A failure of the store itself rather than of the file system or the encoding.
  class StoreError : public std::runtime_error {
   public:
    enum class Case { noContainer };

    /// There is no shared folder to write into (see `SharedDirectory`).
    static StoreError noContainer();

    Case errorCase() const { return case_; }
    bool operator==(const StoreError& other) const { return case_ == other.case_; }

   private:
    StoreError(Case errorCase, const char* message)
        : std::runtime_error(message), case_(errorCase) {}

    Case case_;
  };

  /// `directory` is used as given, nothing is created or checked; nothing means there is no
  /// shared folder, so that writing fails and reading finds nothing.
  explicit SnapshotStore(std::optional<std::filesystem::path> directory)
      : directory_(std::move(directory)) {}

  const std::optional<std::filesystem::path>& directory() const { return directory_; }

  /// `directory`/snapshot.json; an empty path when there is no directory.
  std::filesystem::path file() const;

  /// Replaces the file with `snapshot` as compact JSON, in this order: without a directory throws
  /// `StoreError::noContainer()`; encodes the snapshot, throwing `JsonEncodeError` for a number
  /// that is not finite; creates the directory and its missing parents; replaces the file with
  /// `AtomicFile::replace` (readable by the user alone). File-system failures throw
  /// std::filesystem::filesystem_error naming the operation and the path. Whatever fails up to
  /// the rename, the previous file is left as it was; no temporary file ever stays behind.
  void write(const Snapshot& snapshot) const;

  /// The stored snapshot, or nothing when there is no directory, no file, or the file cannot be
  /// read or decoded (see `Snapshot::fromJson`). Never throws.
  std::optional<Snapshot> read() const;

 private:
  std::optional<std::filesystem::path> directory_;
};

}  // namespace brimlog
