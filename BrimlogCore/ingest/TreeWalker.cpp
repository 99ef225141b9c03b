#include "ingest/TreeWalker.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <string_view>
#include <thread>

#include "platform/FileDescriptor.hpp"

namespace brimlog {
namespace {

std::string childPath(const std::string& dir, std::string_view name) {
  std::string path;
  path.reserve(dir.size() + 1 + name.size());
  path.append(dir);
  if (path.empty() || path.back() != '/') path.push_back('/');
  path.append(name);
  return path;
}

}  // namespace

TreeWalker::TreeWalker(const LogFolder& folder, std::vector<FoundFile>& files)
    : folder_(folder), files_(files), buffer_(32 << 10) {}

void TreeWalker::walk(const LogFolder& folder, std::vector<FoundFile>& files,
                      std::vector<SkippedFile>& skipped) {
  const std::string rootPath = folder.root.string();
  TreeWalker first{folder, files};
  const FileDescriptor root{::open(folder.root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
  if (!root) {
    // No folder: the tool is not installed. Any other reason hides the tool's logs.
    if (errno != ENOENT && errno != ENOTDIR) {
      first.skip(rootPath, "cannot open the folder");
      skipped.insert(skipped.end(), first.skipped_.begin(), first.skipped_.end());
    }
    return;
  }
  std::vector<std::string> subfolders = first.list(root.get(), rootPath, 0);
  if (folder.depth == 0) subfolders.clear();

  // A warm pass is mostly this walk, and mostly system calls: two threads share the top folders
  // (Claude's projects), each with its own results, joined in a fixed order.
  std::vector<FoundFile> second;
  std::vector<SkippedFile> secondSkipped;
  std::atomic<size_t> next{0};
  auto share = [&](TreeWalker& walker) {
    for (size_t i = next++; i < subfolders.size(); i = next++) {
      walker.descend(root.get(), rootPath, subfolders[i], 1);
    }
  };
  if (subfolders.size() > 1) {
    std::thread helper{[&] {
      TreeWalker other{folder, second};
      share(other);
      secondSkipped = std::move(other.skipped_);
    }};
    share(first);
    helper.join();
  } else {
    share(first);
  }
  std::move(second.begin(), second.end(), std::back_inserter(files));
  for (std::vector<SkippedFile>* each : {&first.skipped_, &secondSkipped}) {
    std::move(each->begin(), each->end(), std::back_inserter(skipped));
  }
}

void TreeWalker::skip(const std::string& path, const char* what) {
  skipped_.push_back({path, fmt::format("{}: {}", what, std::strerror(errno))});
}

bool TreeWalker::named(std::string_view name) const {
  return std::ranges::any_of(folder_.extensions, [name](std::string_view extension) {
    return name.size() > extension.size() && name.ends_with(extension);
  });
}

bool TreeWalker::holdsLogs(int level) const {
  return folder_.within.empty() || level >= folder_.withinLevel;
}

void TreeWalker::walkFolder(int dirFD, const std::string& dirPath, int level) {
  std::vector<std::string> subfolders = list(dirFD, dirPath, level);
  if (folder_.depth >= 0 && level >= folder_.depth) return;
  for (const std::string& name : subfolders) descend(dirFD, dirPath, name, level + 1);
}

void TreeWalker::descend(int dirFD, const std::string& dirPath, const std::string& name,
                         int level) {
  if (!folder_.within.empty() && level == folder_.withinLevel && name != folder_.within) return;
  const FileDescriptor sub{
      ::openat(dirFD, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)};
  if (sub) {
    walkFolder(sub.get(), childPath(dirPath, name), level);
  } else if (errno != ENOENT) {  // a folder removed since the listing held nothing to count
    skip(childPath(dirPath, name), "cannot open the folder");
  }
}

// Records the log files of the folder `level` folders below the root and returns its subfolders.
std::vector<std::string> TreeWalker::list(int dirFD, const std::string& dirPath, int level) {
  std::vector<std::string> subfolders;
  const bool logsHere = holdsLogs(level);
  // The listing is read with getdents64 into one buffer: no DIR stream, whose set-up costs three
  // more system calls per folder, and folders are most of what a warm pass visits.
  for (;;) {
    const ssize_t filled = ::getdents64(dirFD, buffer_.data(), buffer_.size());
    if (filled < 0) skip(dirPath, "cannot list the folder");  // and take what we have
    if (filled <= 0) break;
    for (ssize_t at = 0; at < filled;) {
      const auto* entry = reinterpret_cast<const dirent64*>(buffer_.data() + at);
      at += entry->d_reclen;
      const std::string_view name = entry->d_name;
      if (name == "." || name == "..") continue;
      // Most file systems tell an entry's type in the listing; others need a stat to know.
      const bool typed = entry->d_type != DT_UNKNOWN;
      if (typed && entry->d_type == DT_DIR) {
        subfolders.emplace_back(name);
        continue;
      }
      if (typed && entry->d_type != DT_REG) continue;  // links, sockets and the like
      const bool log = logsHere && named(name);
      if (typed && !log) continue;
      struct stat status {};
      if (::fstatat(dirFD, entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) continue;
      if (S_ISDIR(status.st_mode)) {
        subfolders.emplace_back(name);
      } else if (S_ISREG(status.st_mode) && log) {
        files_.push_back({childPath(dirPath, name), folder_.provider, status});
      }
    }
  }
  return subfolders;
}

}  // namespace brimlog
