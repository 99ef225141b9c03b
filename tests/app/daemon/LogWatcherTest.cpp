#include <gtest/gtest.h>

#include <filesystem>

#include "daemon/LogWatcher.hpp"
#include "ingest/ToolLocations.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

namespace fs = std::filesystem;

class LogWatcherTest : public testing::TempDirTest {
 protected:
  fs::path data() const { return dir() / ".local/share/opencode"; }

  // The old store's folders: one per message under storage/part, one per session under
  // storage/message.
  void addStoreFolders(int from, int to) {
    for (int i = from; i < to; ++i) {
      fs::create_directories(data() / "storage/part" / ("msg_" + std::to_string(i)));
      fs::create_directories(data() / "storage/message" / ("ses_" + std::to_string(i % 3)));
    }
  }

  LogWatcher watcher() const {
    return LogWatcher{ToolLocations::resolve(dir(), {}).possibleLogRoots()};
  }
};

// A database's folder is watched alone, whatever lies beside the database: a commit to the WAL
// wakes the watcher, the thousands of folders of the old store cost no watch each.
TEST_F(LogWatcherTest, ADatabaseFolderIsWatchedWithoutTheFoldersBesideIt) {
  write(".local/share/opencode/opencode.db", "");
  addStoreFolders(0, 10);
  const size_t watches = watcher().watchCount();
  addStoreFolders(10, 200);
  LogWatcher watching = watcher();
  EXPECT_EQ(watching.watchCount(), watches);

  append(".local/share/opencode/opencode.db-wal", "a commit");
  EXPECT_TRUE(watching.drain());
  // A part folder of the old store is no log folder: nothing to wake for.
  fs::create_directories(data() / "storage/part/msg_new");
  write(".local/share/opencode/storage/part/msg_new/prt_1.json", "{}");
  EXPECT_FALSE(watching.drain());
  // A new session folder of the old store is, and so is what is written in it.
  fs::create_directories(data() / "storage/message/ses_new");
  EXPECT_TRUE(watching.drain());
  write(".local/share/opencode/storage/message/ses_new/msg_1.json", "{}");
  EXPECT_TRUE(watching.drain());
  EXPECT_EQ(watching.watchCount(), watches + 1);
}

}  // namespace
}  // namespace brimlog
