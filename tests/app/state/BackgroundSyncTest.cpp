// The background sync that `brimlog line` starts for an old snapshot, with a stand-in for brimlog
// that records each start and then waits until the test lets it go, and with the real one.

#include <fcntl.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <sstream>
#include <thread>

#include "cli/Commands.hpp"
#include "display/SnapshotStore.hpp"
#include "state/BackgroundSync.hpp"
#include "state/DaemonLock.hpp"
#include "state/SyncLock.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

namespace fs = std::filesystem;
const Date kNow = *parseISO8601("2026-10-29T12:00:00Z");

// The exit status of `pid`; the stand-in gives up waiting for its release after a minute.
int exitStatus(pid_t pid) {
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class BackgroundSyncTest : public testing::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    settings_.home = dir();
    settings_.database = dir() / "data" / "usage.db";
    settings_.stateFolder = dir() / "shared";
    settings_.now = kNow;
    // Records its process id, whether it leads its session, its standard output and arguments,
    // then waits.
    settings_.executable = write("brimlog", fmt::format(R"sh(#!/bin/sh
leads=$(test "$(cut -d' ' -f6 /proc/$$/stat)" = $$ && echo leader || echo member)
echo "$$ $leads $(readlink /proc/$$/fd/1) $*" >> '{0}/starts'
i=0
while [ ! -e '{0}/release' ] && [ $i -lt 1200 ]; do sleep 0.05; i=$((i+1)); done
)sh",
                                                        dir().string()));
    fs::permissions(settings_.executable, fs::perms::owner_all);
  }

  // What `brimlog line` prints for a snapshot `age` seconds old.
  std::string line(double age) {
    SnapshotStore{settings_.stateFolder}.write(Snapshot{kNow - Seconds{age}, {}, 1, 2, {}});
    std::FILE* out = std::fopen((dir() / "out").c_str(), "w");
    Commands{settings_, out}.line({});
    std::fclose(out);
    return testing::readFile(dir() / "out");
  }

  // One line a start; empty while there is none.
  std::string starts() const { return testing::readFile(dir() / "starts"); }
  size_t startCount() const { return std::ranges::count(starts(), '\n'); }

  HostSettings settings_;
};

TEST_F(BackgroundSyncTest, AnOldSnapshotStartsOneDetachedSyncThatTheLineDoesNotWaitFor) {
  // No snapshot is as old as can be; the age rule itself is line(61) against line(60) below.
  EXPECT_TRUE(BackgroundSync::isDue(std::nullopt, kNow));

  // The line is printed while the stand-in still waits for its release: nobody waited for it.
  EXPECT_EQ(line(61), "today $1.00\n");
  for (int i = 0; i < 600 && starts().empty(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  ASSERT_EQ(startCount(), 1u);
  std::istringstream fields(starts());
  pid_t pid = 0;
  std::string started;
  fields >> pid;
  std::getline(fields, started);
  const std::string db = settings_.database.string();
  EXPECT_EQ(started,
            fmt::format(" leader /dev/null --home {} --db {} --shared-dir {} sync --lock-fd 3",
                        dir().string(), db, settings_.stateFolder.string()));

  // The stand-in holds the sync lock through the descriptor it was handed, so a second old
  // line starts nothing.
  EXPECT_FALSE(SyncLock::tryAcquire(db));
  line(120);
  write("release", "");
  EXPECT_EQ(exitStatus(pid), 0);
  EXPECT_EQ(startCount(), 1u);

  // Neither a fresh snapshot nor an old one under a daemon starts one; a started stand-in would
  // hold the lock now that there is no release.
  fs::remove(dir() / "release");
  line(60);
  {
    const std::optional<DaemonLock> daemon = DaemonLock::acquire(db);
    line(3600);
  }
  EXPECT_TRUE(SyncLock::tryAcquire(db));
  EXPECT_EQ(startCount(), 1u);
}

TEST_F(BackgroundSyncTest, TheRealSyncTakesOverTheLockAndWritesAFreshSnapshot) {
  write("home/.claude/projects/p/s.jsonl",
        R"({"type":"assistant","timestamp":"2026-10-29T11:00:00Z","message":{"id":"m1",)"
        R"("model":"claude-sonnet-4-5","usage":{"input_tokens":1000,"output_tokens":20}}})"
        "\n");
  const fs::path db = settings_.database;
  fs::create_directories(db.parent_path());
  const BackgroundSync sync{BRIMLOG_BINARY,
                            {"--home", (dir() / "home").string(), "--db", db.string(),
                             "--shared-dir", settings_.stateFolder.string(), "sync", "--offline"},
                            db};
  const BackgroundSync::Result started = sync.start();
  ASSERT_EQ(started.outcome, BackgroundSync::Outcome::started);
  EXPECT_EQ(exitStatus(started.pid), 0);
  const std::optional<Snapshot> fresh = SnapshotStore{settings_.stateFolder}.read();
  ASSERT_TRUE(fresh);
  EXPECT_EQ(fresh->providers.size(), 1u);

  // A descriptor on another file is not taken for the lock.
  const std::optional<SyncLock> held = SyncLock::tryAcquire(db);
  ASSERT_TRUE(held);
  const FileDescriptor other{::open(db.c_str(), O_RDONLY | O_CLOEXEC)};
  EXPECT_FALSE(SyncLock::adopt(other.get(), db));
}

}  // namespace
}  // namespace brimlog
