#include <gtest/gtest.h>

#include "display/SnapshotStore.hpp"
#include "support/TempDir.hpp"
#include "timeline/RefreshIntent.hpp"

namespace brimlog {
namespace {

class RefreshIntentTest : public testing::TempDirTest {};

// Checks only that the shared folder is left alone; that exactly one notification reaches an
// observer is for a test with the notification centre's delivery.
TEST_F(RefreshIntentTest, PostsWithoutTouchingTheSnapshot) {
  const SnapshotStore store{dir() / "group"};
  store.write(Snapshot::placeholder());
  const auto written = std::filesystem::last_write_time(store.file());
  RefreshIntent{}.perform(NotificationCenter{dir() / "notifications"});
  EXPECT_EQ(std::filesystem::last_write_time(store.file()), written);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(*store.directory()), {}), 1);
}

}  // namespace
}  // namespace brimlog
