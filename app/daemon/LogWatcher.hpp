#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "ingest/TreeWalker.hpp"
#include "platform/FileDescriptor.hpp"

namespace brimlog {

/// Watches the tools' log folders with inotify, so that a pass can follow a new reply within a
/// second. Every folder under a root is watched down to the depth its logs lie at (a database
/// folder only itself: a write of the database or its WAL is a change of a file there), new ones
/// as they appear; a root that does not exist yet is waited for through its nearest existing
/// parent. A full watch table is told once
/// on standard error and otherwise ignored: the caller's regular passes catch what is missed.
///
///     LogWatcher watcher{tools.possibleLogRoots()};
///     poll({watcher.fd(), POLLIN}, ...);
///     if (watcher.drain()) runPass();  // something under a root changed
class LogWatcher {
 public:
  /// Throws std::system_error when inotify itself is unavailable.
  explicit LogWatcher(std::vector<LogFolder> roots);

  /// The descriptor to wait on: readable when changes are waiting.
  int fd() const { return fd_.get(); }

  /// Reads every waiting change without blocking, watches folders that appeared, and tells
  /// whether anything under a root changed.
  bool drain();

  /// How many folders are watched, parents waited on included.
  size_t watchCount() const { return watches_.size(); }

 private:
  /// Watches the roots that exist and waits for the others; whether a root is watched now that
  /// was not before.
  bool watchRoots();
  void watchTree(const std::filesystem::path& folder, int depth);
  bool add(const std::filesystem::path& folder, uint32_t mask);
  /// The depth left below `path` when it lies under a root: -1 for any, 0 for none; nothing
  /// when it lies under no root.
  std::optional<int> depthBelow(const std::filesystem::path& path) const;

  FileDescriptor fd_;
  std::vector<LogFolder> roots_;
  std::map<int, std::filesystem::path> watches_;
  std::set<std::string> watched_;
  bool warnedFull_ = false;
};

}  // namespace brimlog
