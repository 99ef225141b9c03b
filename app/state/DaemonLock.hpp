#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>

#include "platform/FileDescriptor.hpp"

namespace brimlog {

/// One daemon per database: an exclusive `flock` on `<database>.daemon.lock`, which holds the
/// holder's process id. The lock goes with the process, however it ends, so a crashed daemon
/// never blocks the next one.
///
///     std::optional<DaemonLock> lock = DaemonLock::acquire(database);
///     if (!lock) fail("another daemon, process " + DaemonLock::holder(database));
class DaemonLock {
 public:
  /// The lock, or nothing when another process holds it. Throws CommandError when the lock file
  /// cannot be made (see LockFile).
  static std::optional<DaemonLock> acquire(const std::filesystem::path& database);

  /// Whether a daemon holds the lock of `database` now. Creates nothing; false when the lock file
  /// cannot be read.
  static bool isHeld(const std::filesystem::path& database);

  /// The process id written by the current holder, when it can be read.
  static std::optional<pid_t> holder(const std::filesystem::path& database);

  static std::filesystem::path pathFor(const std::filesystem::path& database);

 private:
  explicit DaemonLock(FileDescriptor fd) : fd_(std::move(fd)) {}
  FileDescriptor fd_;
};

}  // namespace brimlog
