#include "state/SyncLock.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>

namespace brimlog {
namespace {

std::filesystem::filesystem_error failure(const char* what, const std::filesystem::path& path) {
  return std::filesystem::filesystem_error(what, path,
                                           std::error_code(errno, std::generic_category()));
}

}  // namespace

std::filesystem::path SyncLock::pathFor(const std::filesystem::path& database) {
  return database.string() + ".sync.lock";
}

FileDescriptor SyncLock::open(const std::filesystem::path& database) {
  const std::filesystem::path path = pathFor(database);
  FileDescriptor fd{::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)};
  if (!fd) throw failure("Cannot open the sync lock file", path);
  return fd;
}

std::optional<SyncLock> SyncLock::tryAcquire(const std::filesystem::path& database) {
  FileDescriptor fd = open(database);
  if (::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno == EWOULDBLOCK) return std::nullopt;
    throw failure("Cannot lock the sync lock file", pathFor(database));
  }
  return SyncLock{std::move(fd)};
}

SyncLock SyncLock::acquire(const std::filesystem::path& database) {
  FileDescriptor fd = open(database);
  while (::flock(fd.get(), LOCK_EX) != 0) {
    if (errno != EINTR) throw failure("Cannot lock the sync lock file", pathFor(database));
  }
  return SyncLock{std::move(fd)};
}

std::optional<SyncLock> SyncLock::adopt(int fd, const std::filesystem::path& database) {
  struct stat given {
  }, expected{};
  if (fd < 0 || ::fstat(fd, &given) != 0 || ::stat(pathFor(database).c_str(), &expected) != 0 ||
      given.st_dev != expected.st_dev || given.st_ino != expected.st_ino) {
    return std::nullopt;
  }
  // Locking again through a description that holds the lock succeeds at once; failing means
  // the descriptor was never locked and someone else holds the lock now.
  if (::flock(fd, LOCK_EX | LOCK_NB) != 0) return std::nullopt;
  ::fcntl(fd, F_SETFD, FD_CLOEXEC);
  return SyncLock{FileDescriptor{fd}};
}

}  // namespace brimlog
