#include "state/DaemonLock.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

#include "platform/WholeFile.hpp"

namespace brimlog {

std::filesystem::path DaemonLock::pathFor(const std::filesystem::path& database) {
  return database.string() + ".daemon.lock";
}

std::optional<DaemonLock> DaemonLock::acquire(const std::filesystem::path& database) {
  const std::filesystem::path path = pathFor(database);
  FileDescriptor fd{::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)};
  if (!fd) {
    throw std::filesystem::filesystem_error("Cannot open the daemon's lock file", path,
                                            std::error_code(errno, std::generic_category()));
  }
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
