#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <utility>

#include "display/Snapshot.hpp"

namespace brimlog {

/// Where the snapshot lives: "snapshot.json" directly inside the state folder that the host and
/// the widget process both find (`StateFolder`). The host is its only writer and replaces it
/// whole, atomically; the widget process reads it on every timeline request, without any lock.
///
///     const SnapshotStore store{StateFolder::locate({.home = "/home/ada"})};
///     store.write(Snapshot::make(summary, limits, ProviderID::readableCases, now, calendar));
///     std::optional<Snapshot> shown = store.read();  // nothing when there is none to show
class SnapshotStore {
 public:
  /// A failure of the store itself rather than of the file system or the encoding.
  class StoreError : public std::runtime_error {
   public:
    enum class Case { noFolder };

    /// There is no state folder to write into (see `StateFolder`).
    static StoreError noFolder();

    Case errorCase() const { return case_; }
    bool operator==(const StoreError& other) const { return case_ == other.case_; }

   private:
    StoreError(Case errorCase, const char* message)
        : std::runtime_error(message), case_(errorCase) {}

    Case case_;
  };

  /// `directory` is used as given, nothing is created or checked; nothing means there is no
  /// state folder, so that writing fails and reading finds nothing.
  explicit SnapshotStore(std::optional<std::filesystem::path> directory)
      : directory_(std::move(directory)) {}

  const std::optional<std::filesystem::path>& directory() const { return directory_; }

  /// `directory`/snapshot.json; an empty path when there is no directory.
  std::filesystem::path file() const;

  /// Replaces the file with `snapshot` as compact JSON, in this order: without a directory throws
  /// `StoreError::noFolder()`; encodes the snapshot, throwing `JsonEncodeError` for a number
  /// that is not finite; creates the directory and its missing parents; replaces the file with
  /// `AtomicFile::replace` (readable by the user alone). File-system failures throw
  /// std::filesystem::filesystem_error naming the operation and the path. Whatever fails up to
  /// the rename, the previous file is left as it was; no temporary file ever stays behind.
  void write(const Snapshot& snapshot) const;

  /// The stored snapshot, or nothing when there is no directory, no file, or the file cannot be
  /// read or decoded (see `Snapshot::fromJson`). Only a regular file of at most `kMaxBytes` is
  /// read, so a FIFO or a device in the file's place gives nothing at once. Never throws.
  std::optional<Snapshot> read() const;

  /// A snapshot of four tools with all their windows is under 4 KB; anything past this is not one.
  static constexpr size_t kMaxBytes = size_t{1} << 20;

 private:
  std::optional<std::filesystem::path> directory_;
};

}  // namespace brimlog
