#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "model/ProviderID.hpp"

namespace brimlog {

/// A folder holding one tool's logs, and how its log files are named.
struct LogFolder {
  std::filesystem::path root;
  ProviderID provider = ProviderID::claude;
  /// The endings of a log file's name: ".jsonl" for transcripts, ".json" for Grok's documents.
  /// A name that is an ending alone (".jsonl") is a hidden file, not a log.
  std::vector<std::string> extensions;
  /// How many folders deep log files lie at most: 0 for the root's own files only; -1 for any
  /// depth.
  int depth = -1;
  /// When set, log files lie only in the folder of this name found `withinLevel` folders below
  /// the root (1: among the root's own subfolders), and in the folders under it: a tool that keeps
  /// its logs in one folder of each project, beside files of the same endings that are not logs
  /// (caches, checkpoints), names it here. The other folders at that level are not entered, and
  /// no file above it is a log.
  std::string within{};
  int withinLevel = 1;

  bool operator==(const LogFolder&) const = default;
};

/// A log file found by a walk, with its status from the same walk.
struct FoundFile {
  std::string path;  // a plain string: a pass holds thousands and compares them with cursors
  ProviderID provider = ProviderID::claude;
  struct stat status {};
};

/// A file or folder the pass could not read, and why.
struct SkippedFile {
  std::string path;
  std::string reason;

  bool operator==(const SkippedFile&) const = default;
};

/// Finds the log files under a folder and its subfolders, with directory handles and one
/// `fstatat` per entry: no path is resolved twice, and the stat doubles as the file's size and
/// inode for the pass's check whether it changed.
///
/// Symbolic links are not followed, so a link cannot pull another tree's files, or the same file
/// twice, into a pass. A folder that cannot be opened or listed is reported in `skipped` with the
/// system's reason and its files are left out: the logs in it are not counted, and the user must
/// know. A missing root means the tool is not installed and is not reported.
///
///     std::vector<FoundFile> files;
///     std::vector<SkippedFile> skipped;
///     TreeWalker::walk({home / ".claude/projects", ProviderID::claude, {".jsonl"}}, files,
///     skipped);
class TreeWalker {
 public:
  /// Appends the folder's log files to `files`, in a fixed order for a given tree.
  static void walk(const LogFolder& folder, std::vector<FoundFile>& files,
                   std::vector<SkippedFile>& skipped);

 private:
  TreeWalker(const LogFolder& folder, std::vector<FoundFile>& files);

  void skip(const std::string& path, const char* what);

  void walkFolder(int dirFD, const std::string& dirPath, int level);
  void descend(int dirFD, const std::string& dirPath, const std::string& name, int level);
  bool named(std::string_view name) const;
  bool holdsLogs(int level) const;
  std::vector<std::string> list(int dirFD, const std::string& dirPath, int level);

  const LogFolder& folder_;
  std::vector<FoundFile>& files_;
  std::vector<SkippedFile> skipped_;
  std::vector<char> buffer_;
};

}  // namespace brimlog
