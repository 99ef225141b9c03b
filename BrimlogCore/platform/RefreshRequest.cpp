#include "platform/RefreshRequest.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/inotify.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <system_error>
#include <thread>

namespace brimlog {
namespace fs = std::filesystem;

namespace {

[[noreturn]] void fail(const char* what, const fs::path& path) {
  throw fs::filesystem_error(what, path, std::error_code(errno, std::generic_category()));
}

}  // namespace

bool RefreshRequest::post(const fs::path& folder) {
  {
    const FileDescriptor lock{::open((folder / lockName).c_str(), O_RDONLY | O_CLOEXEC)};
    // A shared lock is refused exactly while the daemon holds its exclusive one; two buttons
    // pressed at once never refuse each other.
    if (!lock || ::flock(lock.get(), LOCK_SH | LOCK_NB) == 0 || errno != EWOULDBLOCK) {
      return false;
    }
  }
  const fs::path request = folder / fileName;
  // Closing it is what the daemon's watch sees; a request already waiting is simply made again.
  const FileDescriptor file{::open(request.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600)};
  if (!file) fail("Cannot write the refresh request", request);
  return true;
}

std::optional<RefreshRequest::Listener> RefreshRequest::listen(const fs::path& folder) {
  const fs::path lockPath = folder / lockName;
  FileDescriptor lock{::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)};
  if (!lock) fail("Cannot open the daemon's lock file", lockPath);
  // The watch comes first, so that no request written once the lock is seen held goes unseen.
  FileDescriptor watch{::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)};
  if (!watch || ::inotify_add_watch(watch.get(), folder.c_str(),
                                    IN_CLOSE_WRITE | IN_MOVED_TO | IN_ONLYDIR) < 0) {
    fail("Cannot watch the folder", folder);
  }
  // A button that is testing the lock holds a shared one for a moment: try a little longer.
  for (int attempt = 0; ::flock(lock.get(), LOCK_EX | LOCK_NB) != 0; ++attempt) {
    if (errno != EWOULDBLOCK || attempt == 20) return std::nullopt;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  ::unlink((folder / fileName).c_str());
  return Listener{folder, std::move(lock), std::move(watch)};
}

bool RefreshRequest::Listener::take() {
  alignas(inotify_event) char buffer[4096];
  bool arrived = false;
  for (ssize_t length; (length = ::read(watch_.get(), buffer, sizeof buffer)) > 0;) {
    for (ssize_t at = 0; at < length;) {
      const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
      at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
      // The folder also holds the snapshot and the state files, which change often.
      arrived = arrived || (event->mask & IN_Q_OVERFLOW) ||
                (event->len > 0 && std::string_view(event->name) == fileName);
    }
  }
  return arrived && ::unlink((folder_ / fileName).c_str()) == 0;
}

}  // namespace brimlog
