#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
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

// Counts one observation's notifications; waits for them with a generous bound.
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
  bool waitFor(int n) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, std::chrono::seconds(10), [&] { return count >= n; });
  }
  // The count after a short grace, in which a wrong extra delivery would have arrived.
  int settled() {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    const std::lock_guard lock(mutex);
    return count;
  }
};

class NotificationCenterTest : public testing::TempDirTest {
 protected:
  NotificationCenter center() const { return NotificationCenter(dir() / "notifications"); }
  size_t files(const std::string& name) const {
    const auto folder = dir() / "notifications" / name;
    return fs::exists(folder) ? std::distance(fs::directory_iterator(folder), {}) : 0;
  }
};

TEST(NotificationCenterRootTest, UnderAnAbsoluteRuntimeFolderElseAPrivateFolderInTmp) {
  const std::string tmp = "/tmp/brimlog-" + std::to_string(::getuid()) + "/notifications";
  EXPECT_EQ(NotificationCenter::defaultRoot("/run/user/7"), "/run/user/7/brimlog/notifications");
  for (const auto& variable : {std::optional<std::string>{}, {""}, {"run/user/7"}}) {
    EXPECT_EQ(NotificationCenter::defaultRoot(variable), tmp) << variable.value_or("(unset)");
  }
}

TEST_F(NotificationCenterTest, EveryObserverGetsOnePostOnceAndOtherNamesNothing) {
  Receipts first, second, other;
  const auto a = center().observe("app.brimlog.refresh", first.handler());
  const auto b = center().observe("app.brimlog.refresh", second.handler());
  const auto c = center().observe("app.brimlog-refresh_2", other.handler());
  EXPECT_EQ(fs::status(dir() / "notifications").permissions(), fs::perms::owner_all);
  center().post("app.brimlog.refresh");
  ASSERT_TRUE(first.waitFor(1) && second.waitFor(1));
  EXPECT_EQ(first.settled(), 1);
  EXPECT_EQ(second.settled(), 1);
  EXPECT_EQ(other.settled(), 0);
}

TEST_F(NotificationCenterTest, BadNamesAndUnsafeFoldersAreRefusedAndPostIgnoresBadNames) {
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
}

TEST_F(NotificationCenterTest, PostsWithoutObserversDoNothingAndRemoveSocketsLeftByCrashes) {
  center().post("nobody");
  EXPECT_FALSE(fs::exists(dir() / "notifications"));

  Receipts live;
  const auto observation = center().observe("n", live.handler());
  // An observer that crashed: its socket is bound, then closed without being removed.
  const fs::path stale = dir() / "notifications" / "n" / "99999-0";
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, stale.c_str());
  const int fd = ::socket(AF_UNIX, SOCK_DGRAM, 0);
  ASSERT_EQ(::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  ::close(fd);
  EXPECT_EQ(files("n"), 2u);
  center().post("n");
  ASSERT_TRUE(live.waitFor(1));
  EXPECT_FALSE(fs::exists(stale));
  EXPECT_EQ(files("n"), 1u);
}

TEST_F(NotificationCenterTest, AnEndedObservationRemovesItsSocketAndHearsNoMore) {
  Receipts ended, kept;
  auto observation = center().observe("n", ended.handler());
  const auto other = center().observe("n", kept.handler());
  const fs::path socket = observation.socketPath();
  EXPECT_TRUE(fs::is_socket(socket));
  { const auto gone = std::move(observation); }
  EXPECT_FALSE(fs::exists(socket));
  center().post("n");
  ASSERT_TRUE(kept.waitFor(1));
  EXPECT_EQ(ended.settled(), 0);
}

TEST_F(NotificationCenterTest, APostFromAnotherProcessArrives) {
  // The child is forked before any observation thread exists, and posts when told to.
  int go[2];
  ASSERT_EQ(::pipe(go), 0);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    char byte;
    const bool told = ::read(go[0], &byte, 1) == 1;
    if (told) center().post("from.child");
    ::_exit(told ? 0 : 1);
  }
  ::close(go[0]);
  Receipts receipts;
  const auto observation = center().observe("from.child", receipts.handler());
  ASSERT_EQ(::write(go[1], "x", 1), 1);
  ::close(go[1]);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_TRUE(receipts.waitFor(1));
}

}  // namespace
}  // namespace brimlog
