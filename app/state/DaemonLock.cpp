#include "state/DaemonLock.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <string>

#include "platform/WholeFile.hpp"
#include "state/LockFile.hpp"

namespace brimlog {

namespace {

constexpr std::string_view kSuffix = ".daemon.lock";

}  // namespace

std::filesystem::path DaemonLock::pathFor(const std::filesystem::path& database) {
  return LockFile::pathFor(database, kSuffix);
}

std::optional<DaemonLock> DaemonLock::acquire(const std::filesystem::path& database) {
  FileDescriptor fd = LockFile::open(database, kSuffix);
  if (::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) return std::nullopt;
  // Only the holder writes, so a reader sees either the old id or the new one.
  const std::string pid = std::to_string(::getpid()) + "\n";
  if (::ftruncate(fd.get(), 0) != 0 || ::pwrite(fd.get(), pid.data(), pid.size(), 0) < 0) {
    // The lock holds without the id; only the message of a second daemon is poorer.
  }
  return DaemonLock{std::move(fd)};
}

bool DaemonLock::isHeld(const std::filesystem::path& database) {
  const FileDescriptor fd{::open(pathFor(database).c_str(), O_RDONLY | O_CLOEXEC)};
  // A shared lock is refused exactly while the daemon holds its exclusive one.
  return fd && ::flock(fd.get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

std::optional<pid_t> DaemonLock::holder(const std::filesystem::path& database) {
  try {
    const std::string text = WholeFile::read(pathFor(database), WholeFile::kSmallFileLimit).bytes;
    const long pid = std::stol(text);
    if (pid > 0) return static_cast<pid_t>(pid);
  } catch (const std::exception&) {
  }
  return std::nullopt;
}

}  // namespace brimlog
