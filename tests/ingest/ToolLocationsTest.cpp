#include <gtest/gtest.h>

#include "ingest/ToolLocations.hpp"
#include "ingest/codex/CodexSource.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

namespace fs = std::filesystem;

class ToolLocationsTest : public testing::TempDirTest {
 protected:
  fs::path home() const { return dir() / "home"; }

  std::vector<fs::path> roots(const ToolLocations& tools, ProviderID provider) const {
    std::vector<fs::path> found;
    for (const LogFolder& folder : tools.logFolders()) {
      if (folder.provider == provider) found.push_back(folder.root);
    }
    return found;
  }
};

TEST_F(ToolLocationsTest, ClaudeFoldersComeFromTheVariableOrBothDefaults) {
  const std::vector<fs::path> defaults = {home() / ".claude", home() / ".config/claude"};
  const std::pair<ToolVariables, std::vector<fs::path>> rows[] = {
      {{}, defaults},
      {{{"CLAUDE_CONFIG_DIR", "/work/a"}}, {"/work/a"}},
      {{{"CLAUDE_CONFIG_DIR", " /work/a , ,/work/b,"}}, {"/work/a", "/work/b"}},  // spaces, empties
      {{{"CLAUDE_CONFIG_DIR", ",,"}}, defaults},
  };
  for (const auto& [variables, expected] : rows) {
    EXPECT_EQ(ToolLocations::resolve(home(), variables).places(ProviderID::claude).homes, expected);
  }
}

TEST_F(ToolLocationsTest, AFolderReachedByTwoNamesIsReadOnce) {
  fs::create_directories(home() / ".config/claude/projects");
  fs::create_symlink(home() / ".config/claude", home() / ".claude");
  const ToolLocations tools = ToolLocations::resolve(home(), {});
  EXPECT_EQ(roots(tools, ProviderID::claude), std::vector<fs::path>{home() / ".claude/projects"});
  EXPECT_TRUE(tools.isPresent(ProviderID::claude));

  // A folder without projects is not read and makes nothing present, but is watched for.
  const ToolLocations elsewhere =
      ToolLocations::resolve(home(), {{"CLAUDE_CONFIG_DIR", (dir() / "x").string()}});
  EXPECT_TRUE(roots(elsewhere, ProviderID::claude).empty());
  EXPECT_FALSE(elsewhere.isPresent(ProviderID::claude));
  EXPECT_EQ(elsewhere.possibleLogRoots().front().root, dir() / "x/projects");
}

TEST_F(ToolLocationsTest, PresenceFollowsWhatExistsWhereTheVariablesSay) {
  // The tools present, by raw value.
  auto presence = [](const ToolLocations& tools) {
    std::vector<std::string_view> present;
    for (ProviderID provider : ProviderID::allCases) {
      if (tools.isPresent(provider)) present.push_back(provider.rawValue());
    }
    return present;
  };
  const ToolLocations tools = ToolLocations::resolve(home(), {});
  // Archived sessions alone do not make Codex present; its sign-in file does.
  fs::create_directories(home() / ".codex/archived_sessions");
  EXPECT_FALSE(tools.isPresent(ProviderID::codex));
  write("home/.codex/auth.json", "{}");
  EXPECT_TRUE(tools.isPresent(ProviderID::codex));
  fs::remove(home() / ".codex/auth.json");
  fs::create_directories(home() / ".codex/sessions");
  fs::create_directories(home() / ".grok/sessions");
  write("home/.claude/projects", "");  // a file counts as well as a folder
  EXPECT_EQ(presence(tools), (std::vector<std::string_view>{"claude", "codex", "grok"}));

  // CODEX_HOME moves every Codex place: the default one no longer counts.
  const ToolLocations moved =
      ToolLocations::resolve(home(), {{"CODEX_HOME", (dir() / "codex").string()}});
  EXPECT_FALSE(moved.isPresent(ProviderID::codex));
  write("codex/auth.json", "{}");
  EXPECT_TRUE(moved.isPresent(ProviderID::codex));
  EXPECT_EQ(codexAuthFile(moved.places(ProviderID::codex)), dir() / "codex/auth.json");

  // Paths that cannot be examined (a name too long for the file system) count as absent.
  EXPECT_TRUE(presence(ToolLocations::resolve(dir() / std::string(5000, 'x'), {})).empty());
}

// Gemini CLI is installed once it has written its settings, its registry of projects or its
// temporary folder; GEMINI_CLI_HOME stands in for the home folder.
TEST_F(ToolLocationsTest, GeminiIsWhereItsVariablePutsItsHome) {
  for (const std::string file : {"antigravity/x", "settings.json", "projects.json", "tmp/p/a"}) {
    fs::remove_all(home());
    write("home/.gemini/" + file, "{}");
    EXPECT_EQ(ToolLocations::resolve(home(), {}).isPresent(ProviderID::gemini),
              file != "antigravity/x")
        << file;
  }
  const ToolLocations moved =
      ToolLocations::resolve(home(), {{"GEMINI_CLI_HOME", (dir() / "g").string()}});
  EXPECT_FALSE(moved.isPresent(ProviderID::gemini));
  write("g/.gemini/tmp/p/chats/session-1.jsonl", "");
  EXPECT_TRUE(moved.isPresent(ProviderID::gemini));
  EXPECT_EQ(roots(moved, ProviderID::gemini), std::vector<fs::path>{dir() / "g/.gemini/tmp"});
}

}  // namespace
}  // namespace brimlog
