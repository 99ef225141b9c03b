#include "state/SyncLock.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>

#include "state/LockFile.hpp"

namespace brimlog {
namespace {

constexpr std::string_view kSuffix = ".sync.lock";

std::filesystem::filesystem_error failure(const char* what, const std::filesystem::path& path) {
  return std::filesystem::filesystem_error(what, path,
                                           std::error_code(errno, std::generic_category()));
}

}  // namespace

std::filesystem::path SyncLock::pathFor(const std::filesystem::path& database) {
  return LockFile::pathFor(database, kSuffix);
}

FileDescriptor SyncLock::open(const std::filesystem::path& database) {
  return LockFile::open(database, kSuffix);
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
