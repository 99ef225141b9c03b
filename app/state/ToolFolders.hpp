#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "ingest/ProviderLocations.hpp"
#include "ingest/TreeWalker.hpp"

namespace brimlog {

/// Where the tools keep their data on this machine, as the tools themselves decide it: from the
/// home folder and the variables the tools honour.
///
/// - Claude Code: each entry of CLAUDE_CONFIG_DIR (a comma-separated list, as people with several
///   accounts set it) when set; otherwise both `<home>/.claude` and `<home>/.config/claude`
///   (newer versions write there). Transcripts are read from `projects/` under each; the sign-in
///   from the first that has one.
/// - Codex: CODEX_HOME when set, else `<home>/.codex`: logs, sign-in and presence all from it.
/// - Grok Build and Cursor: their places under the home.
///
///     ToolFolders tools = ToolFolders::resolve(home, "/work/a,/work/b", std::nullopt);
///     tools.logFolders();  // /work/a/projects, /work/b/projects, <home>/.codex/sessions, ...
struct ToolFolders {
  std::filesystem::path home;
  std::vector<std::filesystem::path> claudeDirs;
  std::filesystem::path codexHome;

  /// `claudeConfigDir` and `codexHome` are the variables' values as set (absent or empty: unset).
  static ToolFolders resolve(const std::filesystem::path& home,
                             const std::optional<std::string>& claudeConfigDir,
                             const std::optional<std::string>& codexHome);

  /// The fixed places under the home.
  ProviderLocations locations() const { return ProviderLocations{home}; }

  /// Every folder an ingestion pass reads, each once: Claude's projects folders (one folder
  /// reached by two names, such as a link from ~/.claude to ~/.config/claude, is read once),
  /// Codex's current and archived sessions, Grok's sessions.
  std::vector<LogFolder> logFolders() const;

  /// Every folder logs may appear in, whether or not it exists yet: what a watch waits on.
  std::vector<std::filesystem::path> possibleLogRoots() const;

  /// Whether the tool is installed: Claude when any of its folders has `projects/`; Codex when
  /// its home has `sessions/` or `auth.json`; Grok and Cursor by their places under the home.
  bool isPresent(ProviderID provider) const;
};

}  // namespace brimlog
