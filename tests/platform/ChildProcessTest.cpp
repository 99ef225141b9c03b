#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <fstream>
#include <thread>

#include "platform/ChildProcess.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

using Clock = std::chrono::steady_clock;
using Outcome = ChildProcess::Outcome;

// Whether a process still runs: a zombie waiting to be collected by its parent does not count.
bool running(pid_t pid) {
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  if (!std::getline(stat, line)) return false;
  const auto close = line.rfind(") ");
  return close == std::string::npos || line.at(close + 2) != 'Z';
}

// A process that is not our child is collected asynchronously once signalled.
bool stopsRunningSoon(pid_t pid) {
  for (int i = 0; i < 200 && running(pid); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return !running(pid);
}

class ChildProcessTest : public testing::TempDirTest {
 protected:
  std::filesystem::path script(const std::string& name, const std::string& body) {
    const auto path = write(name, "#!/bin/sh\n" + body);
    ::chmod(path.c_str(), 0755);
    return path;
  }

  // The number a script wrote into a file (written under another name and renamed into place).
  pid_t awaitPid(const std::string& name) {
    const auto path = dir() / name;
    for (int i = 0; i < 500 && !std::filesystem::exists(path); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return static_cast<pid_t>(std::stol(testing::readFile(path)));
  }

  std::string pidFile(const std::string& name, const std::string& value) {
    const std::string path = (dir() / name).string();
    return "echo " + value + " > '" + path + ".tmp' && mv '" + path + ".tmp' '" + path + "'\n";
  }
};

TEST_F(ChildProcessTest, CollectsStandardOutputAndTheExitStatus) {
  const auto tool = script("tool",
                           "printf '%s|' \"$@\"\n"
                           "cat\n"                   // standard input is empty
                           "echo 'to stderr' >&2\n"  // and standard error is discarded
                           "exit 3\n");
  ChildProcess child(tool, {"one", "two words", ""});
  ASSERT_TRUE(child.launched());
  const auto result = child.wait(Clock::now() + std::chrono::seconds(10));
  EXPECT_EQ(result.outcome, Outcome::exited);
  EXPECT_EQ(result.exitStatus, 3);
  EXPECT_EQ(result.output, "one|two words||");
  EXPECT_TRUE(result.outputComplete);
  EXPECT_FALSE(running(child.pid()));
  const auto again = child.wait(Clock::now());
  EXPECT_EQ(again.output, result.output);
  EXPECT_EQ(again.exitStatus, 3);

  const auto quiet = ChildProcess::run(script("quiet", "exit 0\n"), {}, Seconds{10});
  EXPECT_EQ(quiet.outcome, Outcome::exited);
  EXPECT_EQ(quiet.exitStatus, 0);
  EXPECT_EQ(quiet.output, "");
  EXPECT_TRUE(quiet.outputComplete);

  const auto killed = ChildProcess::run(script("killed", "kill -KILL $$\n"), {}, Seconds{10});
  EXPECT_EQ(killed.outcome, Outcome::signaled);
  EXPECT_EQ(killed.signal, SIGKILL);
}

TEST_F(ChildProcessTest, AFailedStartIsReportedWithItsErrno) {
  const auto missing = ChildProcess::run(dir() / "missing", {}, Seconds{10});
  EXPECT_EQ(missing.outcome, Outcome::notLaunched);
  EXPECT_EQ(missing.launchError, ENOENT);

  const auto notExecutable = write("data.txt", "hello\n");
  ChildProcess child(notExecutable, {});
  EXPECT_FALSE(child.launched());
  EXPECT_EQ(child.pid(), -1);
  const auto result = child.wait(Clock::now() + std::chrono::seconds(10));
  EXPECT_EQ(result.outcome, Outcome::notLaunched);
  EXPECT_EQ(result.launchError, EACCES);
  EXPECT_EQ(result.output, "");
}

TEST_F(ChildProcessTest, ADeadlineTerminatesTheChildAndWhatItStarted) {
  const auto sleeper = script("sleeper", "sleep 30 &\n" + pidFile("helper", "$!") + "wait\n");
  ChildProcess child(sleeper, {});
  ASSERT_TRUE(child.launched());
  const pid_t helper = awaitPid("helper");
  const auto started = Clock::now();
  const auto result = child.wait(started + std::chrono::milliseconds(300));
  EXPECT_EQ(result.outcome, Outcome::timedOut);
  EXPECT_FALSE(result.outputComplete);
  EXPECT_FALSE(running(child.pid()));
  EXPECT_TRUE(stopsRunningSoon(helper));
}

TEST_F(ChildProcessTest, AChildIgnoringTerminationIsKilledAfterTheGrace) {
  const auto stubborn =
      script("stubborn", "trap '' TERM\n" + pidFile("ready", "$$") + "sleep 30\n");
  ChildProcess child(stubborn, {});
  awaitPid("ready");
  const auto started = Clock::now();
  const auto result = child.wait(started);
  EXPECT_EQ(result.outcome, Outcome::timedOut);
  EXPECT_FALSE(running(child.pid()));
}

TEST_F(ChildProcessTest, OutputHeldOpenAfterExitIsReportedIncomplete) {
  // The script exits at once, but the helper it leaves behind keeps the pipe open.
  const auto leaver = script("leaver", "printf partial\nsleep 30 &\n" + pidFile("helper", "$!"));
  ChildProcess child(leaver, {});
  const pid_t helper = awaitPid("helper");
  const auto started = Clock::now();
  const auto result = child.wait(started + std::chrono::milliseconds(300));
  EXPECT_EQ(result.outcome, Outcome::exited);
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_FALSE(result.outputComplete);
  EXPECT_EQ(result.output, "partial");
  EXPECT_TRUE(stopsRunningSoon(helper));
}

TEST_F(ChildProcessTest, DestroyingARunningChildTerminatesAndReapsIt) {
  const auto sleeper = script("sleeper", pidFile("ready", "$$") + "sleep 30\n");
  pid_t pid = -1;
  {
    ChildProcess child(sleeper, {});
    pid = child.pid();
    awaitPid("ready");
  }
  EXPECT_FALSE(running(pid));
}

}  // namespace
}  // namespace brimlog
