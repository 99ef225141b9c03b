#include <gtest/gtest.h>

#include "state/ToolFolders.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

namespace fs = std::filesystem;

class ToolFoldersTest : public testing::TempDirTest {
 protected:
  std::vector<fs::path> claudeRoots(const ToolFolders& tools) const {
    std::vector<fs::path> roots;
    for (const LogFolder& folder : tools.logFolders()) {
      if (folder.provider == ProviderID::claude) roots.push_back(folder.root);
    }
    return roots;
  }
};

TEST_F(ToolFoldersTest, ClaudeFoldersComeFromTheVariableOrBothDefaults) {
  struct Row {
    const char* name;
    std::optional<std::string> variable;
    std::vector<fs::path> expected;
  };
  const fs::path home = dir() / "home";
  const std::vector<Row> rows = {
      {"unset", std::nullopt, {home / ".claude", home / ".config/claude"}},
      {"empty", "", {home / ".claude", home / ".config/claude"}},
      {"one", "/work/a", {"/work/a"}},
      {"a list, spaces and empty entries dropped", " /work/a , ,/work/b,", {"/work/a", "/work/b"}},
      {"only commas", ",,", {home / ".claude", home / ".config/claude"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(ToolFolders::resolve(home, row.variable, std::nullopt).claudeDirs, row.expected);
  }
  EXPECT_EQ(ToolFolders::resolve(home, std::nullopt, "").codexHome, home / ".codex");
  EXPECT_EQ(ToolFolders::resolve(home, std::nullopt, "/c").codexHome, fs::path("/c"));
}

TEST_F(ToolFoldersTest, AFolderReachedByTwoNamesIsReadOnce) {
  fs::create_directories(dir() / "home/.config/claude/projects");
  fs::create_symlink(dir() / "home/.config/claude", dir() / "home/.claude");
  const ToolFolders tools = ToolFolders::resolve(dir() / "home", std::nullopt, std::nullopt);
  EXPECT_EQ(claudeRoots(tools), std::vector<fs::path>{dir() / "home/.claude/projects"});
  EXPECT_TRUE(tools.isPresent(ProviderID::claude));

  // A folder without projects is not read, and does not make Claude present.
  const ToolFolders elsewhere = ToolFolders::resolve(dir() / "home", (dir() / "x").string(), "");
  EXPECT_TRUE(claudeRoots(elsewhere).empty());
  EXPECT_FALSE(elsewhere.isPresent(ProviderID::claude));
}

TEST_F(ToolFoldersTest, CodexIsPresentWhereItsHomeSays) {
  const ToolFolders tools =
      ToolFolders::resolve(dir() / "home", std::nullopt, (dir() / "codex").string());
  write("home/.codex/auth.json", "{}");  // the default place no longer counts
  EXPECT_FALSE(tools.isPresent(ProviderID::codex));
  write("codex/auth.json", "{}");
  EXPECT_TRUE(tools.isPresent(ProviderID::codex));
  EXPECT_EQ(tools.logFolders()[0].root, dir() / "codex/sessions");
}

}  // namespace
}  // namespace brimlog
