#pragma once

#include <filesystem>
#include <string_view>
#include <vector>

#include "ingest/ToolSource.hpp"
#include "model/PerProvider.hpp"

namespace brimlog {

/// Where the tools Brimlog reads keep their data on this machine, as the tools themselves decide
/// it from the home folder and the variables they honour (their rows in `ToolSource::all`), and
/// whether each is installed. Resolved once; beyond a tool's own settings file read while
/// resolving (Qwen Code's, which may move its logs), only `logFolders` and `isPresent` look at the
/// disk.
///
///     ToolLocations tools = ToolLocations::resolve(home, {{"CODEX_HOME", "/work/codex"}});
///     tools.logFolders();                  // <home>/.claude/projects, /work/codex/sessions, ...
///     tools.isPresent(ProviderID::codex);  // /work/codex/sessions or /work/codex/auth.json exists
class ToolLocations {
 public:
  ToolLocations() = default;

  /// Every variable some tool honours, each once: what the host reads from its environment.
  static std::vector<std::string_view> variables();

  /// The places under `home`, or where the variables' values (set and not empty) put them.
  static ToolLocations resolve(std::filesystem::path home, const ToolVariables& variables);

  /// The home directory the user database records for this process's user; "/" when it is not
  /// known.
  static std::filesystem::path userHome();

  const std::filesystem::path& home() const { return home_; }

  /// One tool's places; none for a tool Brimlog does not read.
  const ToolPlaces& places(ProviderID provider) const { return places_[provider]; }

  /// Every log folder that exists, each once: one folder reached by two names (such as a link
  /// from ~/.claude to ~/.config/claude) is read under the first.
  std::vector<LogFolder> logFolders() const;

  /// Every folder logs may appear in, whether or not it exists yet, with how deep they lie in it:
  /// what a watch waits on.
  std::vector<LogFolder> possibleLogRoots() const;

  /// Whether the tool is installed: one of its marks exists. A path that cannot be examined
  /// counts as absent; nothing inside is looked at.
  bool isPresent(ProviderID provider) const;

 private:
  std::filesystem::path home_;
  PerProvider<ToolPlaces> places_;
};

}  // namespace brimlog
