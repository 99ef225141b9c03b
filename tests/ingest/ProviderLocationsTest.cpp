#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

#include "ingest/ProviderLocations.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

namespace fs = std::filesystem;

class ProviderLocationsTest : public testing::TempDirTest {
 protected:
  std::vector<bool> presence(const ProviderLocations& locations) const {
    std::vector<bool> present;
    for (ProviderID provider : ProviderID::allCases)
      present.push_back(locations.isPresent(provider));
    return present;
  }
};

TEST_F(ProviderLocationsTest, PresenceFollowsWhatExistsOnDisk) {
  const ProviderLocations locations(dir());
  EXPECT_EQ(presence(locations), (std::vector<bool>{false, false, false, false}));

  // Archived sessions alone do not make Codex present; its sign-in file does.
  fs::create_directories(dir() / ".codex" / "archived_sessions");
  EXPECT_FALSE(locations.isPresent(ProviderID::codex));
  write(".codex/auth.json", "{}");
  EXPECT_TRUE(locations.isPresent(ProviderID::codex));
  fs::remove(dir() / ".codex" / "auth.json");
  fs::create_directories(dir() / ".codex" / "sessions");
  EXPECT_TRUE(locations.isPresent(ProviderID::codex));

  // A directory where Cursor keeps its database file counts too.
  fs::create_directories(locations.cursorStateDB());
  fs::create_directories(locations.grokSessions());
  EXPECT_EQ(presence(locations), (std::vector<bool>{false, true, true, true}));
  write(".claude/projects", "");
  EXPECT_EQ(presence(locations), (std::vector<bool>{true, true, true, true}));
}

TEST_F(ProviderLocationsTest, PathsThatCannotBeExaminedCountAsAbsent) {
  // A file where a directory should be, and a name too long for the file system.
  write(".claude", "");
  write(".grok", "");
  EXPECT_EQ(presence(ProviderLocations(dir())), (std::vector<bool>{false, false, false, false}));
  EXPECT_EQ(presence(ProviderLocations(dir() / std::string(5000, 'x'))),
            (std::vector<bool>{false, false, false, false}));
}

TEST(ProviderLocationsLiveTest, IsBuiltOnceFromTheUsersHome) {
  std::vector<const ProviderLocations*> seen(8);
  std::vector<std::thread> threads;
  for (size_t i = 0; i < seen.size(); ++i) {
    threads.emplace_back([&seen, i] { seen[i] = &ProviderLocations::live(); });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(std::set<const ProviderLocations*>(seen.begin(), seen.end()).size(), 1u);

  EXPECT_TRUE(ProviderLocations::live().home().is_absolute());
}

}  // namespace
}  // namespace brimlog
