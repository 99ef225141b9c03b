// The background sync that `brimlog line` starts for an old snapshot, with a stand-in for brimlog
// that records each start and then waits until the test lets it go, and with the real one.

#include <fcntl.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

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

// The exit status of `pid`, waiting at most a minute before killing it.
int exitStatus(pid_t pid) {
  int status = 0;
  for (int i = 0; i < 1200 && ::waitpid(pid, &status, WNOHANG) == 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    if (i == 1199) {
      ::kill(pid, SIGKILL);
      ::waitpid(pid, &status, 0);
      ADD_FAILURE() << "the sync did not finish";
    }
  }
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
    // Records its process id, session, standard output and arguments, then waits.
    settings_.executable = write("brimlog", fmt::format(R"(#!/bin/sh
echo "$$ $(cut -d' ' -f6 /proc/$$/stat) $(readlink /proc/$$/fd/1) $*" >> '{0}/starts'
i=0
while [ ! -e '{0}/release' ] && [ $i -lt 1200 ]; do sleep 0.05; i=$((i+1)); done
)",
                                                        dir().string()));
    fs::permissions(settings_.executable, fs::perms::owner_all);
  }

  // What `brimlog line` prints for a snapshot `age` seconds old.
  std::string line(double age) {
    SnapshotStore{settings_.stateFolder}.write(Snapshot{kNow - Seconds{age}, {}, 1, 2, {}});
    char* text = nullptr;
    size_t size = 0;
    std::FILE* out = ::open_memstream(&text, &size);
    Commands{settings_, out}.line({});
    std::fclose(out);
    std::string printed(text, size);
    std::free(text);
    return printed;
  }

  std::vector<std::string> starts() const {
    std::vector<std::string> lines;
    std::istringstream in(fs::exists(dir() / "starts") ? testing::readFile(dir() / "starts") : "");
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
  }

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
  ASSERT_EQ(starts().size(), 1u);
  std::istringstream fields(starts()[0]);
  pid_t pid = 0, session = 0;
  std::string output, arguments;
  fields >> pid >> session >> output;
  std::getline(fields, arguments);
  EXPECT_EQ(session, pid);  // the leader of a session of its own
  EXPECT_EQ(output, "/dev/null");
  const std::string db = settings_.database.string();
  EXPECT_EQ(arguments, fmt::format(" --home {} --db {} --shared-dir {} sync --lock-fd 3",
                                   dir().string(), db, settings_.stateFolder.string()));

  // The stand-in holds the sync lock through the descriptor it was handed, so a second old
  // line starts nothing.
  EXPECT_FALSE(SyncLock::tryAcquire(db));
  line(120);
  write("release", "");
  EXPECT_EQ(exitStatus(pid), 0);
  EXPECT_EQ(starts().size(), 1u);

  // Neither a fresh snapshot nor an old one under a daemon starts one; a started stand-in would
  // hold the lock now that there is no release.
  fs::remove(dir() / "release");
  line(60);
  {
    const std::optional<DaemonLock> daemon = DaemonLock::acquire(db);
    line(3600);
  }
  EXPECT_TRUE(SyncLock::tryAcquire(db));
  EXPECT_EQ(starts().size(), 1u);
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
