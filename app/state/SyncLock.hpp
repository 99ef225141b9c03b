#pragma once

#include <filesystem>
#include <optional>

#include "platform/FileDescriptor.hpp"

namespace brimlog {

/// Held by every pass that reads the logs into a database, for as long as it works: an exclusive
/// `flock` on `<database>.sync.lock`. A pass that finds it taken waits, so passes never overlap;
/// `brimlog line` only looks, and starts no background sync while one is running. The lock goes
/// with the process, however it ends, and with every copy of its descriptor: a process that
/// takes it and hands the descriptor to a child it starts leaves the child holding it.
///
///     std::optional<SyncLock> lock = SyncLock::tryAcquire(database);
///     if (!lock) return;  // a sync is running
class SyncLock {
 public:
  static std::filesystem::path pathFor(const std::filesystem::path& database);

  /// The lock, or nothing when another holds it. Throws CommandError when the lock file cannot
  /// be made (see LockFile), std::filesystem::filesystem_error when it cannot be locked.
  static std::optional<SyncLock> tryAcquire(const std::filesystem::path& database);

  /// The lock, once whoever holds it lets go. Throws like `tryAcquire`.
  static SyncLock acquire(const std::filesystem::path& database);

  /// The lock held through `fd`, a descriptor that the process which started this one took it
  /// with and passed down, when `fd` is open on `database`'s lock file; nothing otherwise (`fd`
  /// is then left alone). The adopted descriptor is closed on exec from then on.
  static std::optional<SyncLock> adopt(int fd, const std::filesystem::path& database);

  /// The descriptor the lock is held through (close-on-exec).
  int fd() const { return fd_.get(); }

 private:
  explicit SyncLock(FileDescriptor fd) : fd_(std::move(fd)) {}
  static FileDescriptor open(const std::filesystem::path& database);

  FileDescriptor fd_;
};

}  // namespace brimlog
