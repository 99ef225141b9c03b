#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "display/SnapshotStore.hpp"
#include "support/TempDir.hpp"
#include "timeline/RefreshIntent.hpp"

namespace brimlog {
namespace {

class RefreshIntentTest : public testing::TempDirTest {};

// Pressing refresh reaches the host as exactly one notification and leaves the snapshot alone.
TEST_F(RefreshIntentTest, PostsOneNotificationWithoutTouchingTheSnapshot) {
  const SnapshotStore store{dir() / "group"};
  store.write(Snapshot::placeholder());
  const auto written = std::filesystem::last_write_time(store.file());

  const NotificationCenter center{dir() / "notifications"};
  std::mutex mutex;
  std::condition_variable arrived;
  int received = 0;
  const NotificationCenter::Observation observation =
      center.observe(std::string(RefreshIntent::notificationName), [&] {
        const std::lock_guard lock{mutex};
        ++received;
        arrived.notify_all();
      });
  RefreshIntent{}.perform(center);
  {
    std::unique_lock lock{mutex};
    ASSERT_TRUE(arrived.wait_for(lock, std::chrono::seconds(10), [&] { return received > 0; }));
  }
  // A second delivery would follow at once; give it a moment to show up.
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_EQ(received, 1);
  EXPECT_EQ(std::filesystem::last_write_time(store.file()), written);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(*store.directory()), {}), 1);
}

}  // namespace
}  // namespace brimlog
