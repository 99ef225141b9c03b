#pragma once

#include <filesystem>
#include <vector>

#include "model/ProviderID.hpp"

namespace brimlog {

/// Where each AI coding tool keeps its data, relative to one home directory: the directories
/// ingestion scans and the paths whose presence tells that a tool is installed.
///
///     ProviderLocations here(testDir);
///     here.claudeProjects();            // testDir/.claude/projects
///     here.isPresent(ProviderID::grok);  // whether testDir/.grok/sessions exists
///
/// A value: every path is computed from `home` when asked, and only `isPresent` touches the file
/// system. Which files under the directories are read, and in what order, is the caller's choice.
class ProviderLocations {
 public:
  explicit ProviderLocations(std::filesystem::path home);

  const std::filesystem::path& home() const { return home_; }

  /// Claude Code's transcripts: home/.claude/projects.
  std::filesystem::path claudeProjects() const;

  /// Codex's session logs, current then archived: home/.codex/sessions and
  /// home/.codex/archived_sessions, whether or not they exist.
  std::vector<std::filesystem::path> codexSessions() const;

  /// Grok Build's session documents: home/.grok/sessions.
  std::filesystem::path grokSessions() const;

  /// Cursor's state database (a file):
  /// home/Library/Application Support/Cursor/User/globalStorage/state.vscdb.
  std::filesystem::path cursorStateDB() const;

  /// Codex's sign-in file: home/.codex/auth.json.
  std::filesystem::path codexAuthFile() const;

  /// The same places under a folder the tool was told to use instead of its default (Claude
  /// Code's configuration folder, Codex's home), so every sub-path is named once.
  static std::filesystem::path projectsIn(const std::filesystem::path& claudeDir);
  static std::vector<std::filesystem::path> sessionsIn(const std::filesystem::path& codexHome);
  static std::filesystem::path authFileIn(const std::filesystem::path& codexHome);

  /// Whether the tool's data exists: Claude's projects, Grok's sessions, Cursor's state database;
  /// for Codex its current sessions directory or else its sign-in file (archived sessions alone
  /// do not count). A file or a directory both count; a path that cannot be examined counts as
  /// absent. Nothing inside is looked at.
  bool isPresent(ProviderID provider) const;

  /// The current user's locations: home is the home directory of the user database's entry for
  /// this process's user ("/" if it is not known). The host prefers $HOME when it is set.
  /// Built once, on first use, safely from any thread.
  static const ProviderLocations& live();

 private:
  std::filesystem::path home_;
};

}  // namespace brimlog
