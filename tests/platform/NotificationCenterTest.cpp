#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>

#include "platform/NotificationCenter.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

namespace fs = std::filesystem;

// Counts one observation's notifications.
struct Receipts {
  std::mutex mutex;
  std::condition_variable changed;
  int count = 0;

  std::function<void()> handler() {
    return [this] {
      const std::lock_guard lock(mutex);
      ++count;
      changed.notify_all();
    };
  }
  // The count once it reaches `n` (waiting at most 10 s) and a short grace has passed, in which
  // a wrong extra delivery would have arrived.
  int settle(int n) {
    std::unique_lock lock(mutex);
    changed.wait_for(lock, std::chrono::seconds(10), [&] { return count >= n; });
    lock.unlock();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    lock.lock();
    return count;
  }
};

class NotificationCenterTest : public testing::TempDirTest {
 protected:
  NotificationCenter center() const { return NotificationCenter(dir() / "notifications"); }
};

TEST_F(NotificationCenterTest, EveryObserverOfANameGetsEachPostOnceUntilItsObservationEnds) {
  const std::string name = "app.brimlog.refresh";
  center().post(name);  // no one listens: nothing happens, nothing is created
  EXPECT_FALSE(fs::exists(dir() / "notifications"));
  Receipts first, second, other;
  const auto a = center().observe(name, first.handler());
  auto b = center().observe(name, second.handler());
  const auto c = center().observe("app.brimlog-refresh_2", other.handler());
  EXPECT_EQ(fs::status(dir() / "notifications" / name).permissions(), fs::perms::owner_all);

  // An observer that crashed: its socket is bound, then closed without being removed.
  const fs::path stale = dir() / "notifications" / name / "99999-0";
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  std::strcpy(address.sun_path, stale.c_str());
  const int fd = ::socket(AF_UNIX, SOCK_DGRAM, 0);
  ASSERT_EQ(::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  ::close(fd);

  center().post(name);
  EXPECT_EQ(first.settle(1) + second.settle(1), 2);
  EXPECT_FALSE(fs::exists(stale));
  const fs::path socket = b.socketPath();
  { const auto ended = std::move(b); }
  EXPECT_FALSE(fs::exists(socket));
  center().post(name);
  EXPECT_EQ(first.settle(2), 2);
  EXPECT_EQ(second.settle(1), 1);
  EXPECT_EQ(other.settle(0), 0);
}

TEST_F(NotificationCenterTest, BadNamesAndFoldersOpenToOthersAreRefused) {
  for (const char* name : {"", ".", "..", "../x", "a/b", "a b", "é"}) {
    EXPECT_THROW((void)center().observe(name, [] {}), NotificationError) << name;
    center().post(name);
  }
  EXPECT_FALSE(fs::exists(dir() / "x") || fs::exists(dir() / "a"));
  fs::create_directories(dir() / "open" / "notifications");
  fs::permissions(dir() / "open", fs::perms::all);
  try {
    (void)NotificationCenter(dir() / "open" / "notifications").observe("x", [] {});
    ADD_FAILURE() << "a root in a folder open to others was used";
  } catch (const NotificationError& error) {
    EXPECT_EQ(error.what(), "Cannot use folder " + (dir() / "open").string() +
                                ": it is not a folder of this user closed to others");
  }
  const std::string tmp = "/tmp/brimlog-" + std::to_string(::getuid()) + "/notifications";
  EXPECT_EQ(NotificationCenter::defaultRoot("/run/user/7"), "/run/user/7/brimlog/notifications");
  EXPECT_EQ(NotificationCenter::defaultRoot("run/user/7"), tmp);
  EXPECT_EQ(NotificationCenter::defaultRoot(std::nullopt), tmp);
}

TEST_F(NotificationCenterTest, APostFromAnotherProcessArrives) {
  // The child is forked before any observation thread exists, and posts when told to.
  int go[2];
  ASSERT_EQ(::pipe(go), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    char byte;
    if (::read(go[0], &byte, 1) == 1) center().post("from.child");
    ::_exit(0);
  }
  Receipts receipts;
  const auto observation = center().observe("from.child", receipts.handler());
  ASSERT_EQ(::write(go[1], "x", 1), 1);
  EXPECT_EQ(receipts.settle(1), 1);
  EXPECT_EQ(::waitpid(child, nullptr, 0), child);
  ::close(go[0]);
  ::close(go[1]);
}

}  // namespace
}  // namespace brimlog
