#include "daemon/LogWatcher.hpp"

#include <fmt/format.h>
#include <sys/inotify.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <system_error>

namespace brimlog {
namespace fs = std::filesystem;

namespace {
// What a reply reaching a log looks like: a file written or moved in, a folder made or moved in.
constexpr uint32_t kTreeEvents =
    IN_MODIFY | IN_CLOSE_WRITE | IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE;
// A parent of a root that does not exist yet only needs to say when something appears.
constexpr uint32_t kParentEvents = IN_CREATE | IN_MOVED_TO;
}  // namespace

LogWatcher::LogWatcher(std::vector<LogFolder> roots)
    : fd_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)), roots_(std::move(roots)) {
  if (!fd_) throw std::system_error(errno, std::generic_category(), "Cannot start inotify");
  watchRoots();
}

bool LogWatcher::add(const fs::path& folder, uint32_t mask) {
  if (watched_.count(folder.string()) != 0) return true;
  const int watch = ::inotify_add_watch(fd_.get(), folder.c_str(), mask | IN_ONLYDIR);
  if (watch < 0) {
    if (errno == ENOSPC && !warnedFull_) {
      warnedFull_ = true;
      fmt::print(stderr,
                 "brimlog daemon: the inotify watch table is full (fs.inotify.max_user_watches); "
                 "new replies in unwatched folders wait for the regular pass\n");
    }
    return false;
  }
  watches_[watch] = folder;
  watched_.insert(folder.string());
  return true;
}

// `depth`: how many levels of folders below this one hold logs (-1: any number).
void LogWatcher::watchTree(const fs::path& folder, int depth) {
  if (!add(folder, kTreeEvents) || depth == 0) return;
  std::error_code error;
  for (fs::directory_iterator it{folder, error}, end; !error && it != end; it.increment(error)) {
    if (it->is_directory(error) && !it->is_symlink(error)) {
      watchTree(it->path(), depth < 0 ? depth : depth - 1);
    }
  }
}

bool LogWatcher::watchRoots() {
  bool appeared = false;
  for (const LogFolder& folder : roots_) {
    const fs::path& root = folder.root;
    std::error_code error;
    if (fs::is_directory(root, error)) {
      const bool known = watched_.count(root.string()) != 0;
      watchTree(root, folder.depth);
      appeared = appeared || (!known && watched_.count(root.string()) != 0);
      continue;
    }
    // Wait for the root through the nearest parent that exists.
    for (fs::path parent = root.parent_path(); !parent.empty(); parent = parent.parent_path()) {
      if (fs::is_directory(parent, error)) {
        add(parent, kParentEvents);
        break;
      }
      if (parent == parent.root_path()) break;
    }
  }
  return appeared;
}

std::optional<int> LogWatcher::depthBelow(const fs::path& path) const {
  std::optional<int> deepest;
  for (const LogFolder& folder : roots_) {
    const auto [rootEnd, pathEnd] =
        std::mismatch(folder.root.begin(), folder.root.end(), path.begin(), path.end());
    if (rootEnd != folder.root.end()) continue;
    int depth = folder.depth;
    if (depth >= 0) {
      depth -= static_cast<int>(std::distance(pathEnd, path.end()));
      if (depth < 0) continue;  // below the logs' depth: not a log folder of this root
    }
    if (!deepest || depth < 0 || (*deepest >= 0 && depth > *deepest)) deepest = depth;
  }
  return deepest;
}

bool LogWatcher::drain() {
  alignas(inotify_event) char buffer[16384];
  bool changed = false;
  bool rescan = false;
  for (;;) {
    const ssize_t length = ::read(fd_.get(), buffer, sizeof buffer);
    if (length <= 0) break;  // EAGAIN: nothing more waiting
    for (ssize_t at = 0; at < length;) {
      const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
      at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
      if (event->mask & IN_Q_OVERFLOW) {
        changed = rescan = true;
        continue;
      }
      const auto folder = watches_.find(event->wd);
      if (folder == watches_.end()) continue;
      if (event->mask & IN_IGNORED) {
        watched_.erase(folder->second.string());
        watches_.erase(folder);
        rescan = true;
        continue;
      }
      const fs::path path = event->len ? folder->second / event->name : folder->second;
      const std::optional<int> depth =
          depthBelow(event->mask & IN_ISDIR ? path : path.parent_path());
      if (!depth) {
        rescan = true;  // something appeared on the way to a root
        continue;
      }
      changed = true;
      if ((event->mask & IN_ISDIR) && (event->mask & (IN_CREATE | IN_MOVED_TO))) {
        // A new folder may already hold files written before its watch was in place.
        watchTree(path, *depth);
      }
    }
  }
  // A root that appeared with its first log already inside (a tool's first session makes the
  // whole path at once) gave no event for that log: the pass must look.
  if (rescan && watchRoots()) changed = true;
  return changed;
}

}  // namespace brimlog
