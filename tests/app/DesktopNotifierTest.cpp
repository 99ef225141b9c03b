#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "DesktopNotifier.hpp"
#include "platform/FileDescriptor.hpp"
#include "support/TempDir.hpp"

extern char** environ;

namespace brimlog {
namespace {

// A program running beside the test with its standard output read line by line; it gets the end
// of its input, SIGTERM, and is reaped when the object goes.
class RunningProgram {
 public:
  explicit RunningProgram(std::vector<std::string> arguments) {
    int in[2], out[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) return;
    input_ = FileDescriptor{in[1]};
    output_ = FileDescriptor{out[0]};
    const FileDescriptor childIn{in[0]}, childOut{out[1]};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, childIn.get(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, childOut.get(), STDOUT_FILENO);
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    if (posix_spawnp(&pid_, argv[0], &actions, nullptr, argv.data(), environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
  }
  ~RunningProgram() {
    input_.reset();
    if (pid_ > 0 && ::kill(pid_, SIGTERM) == 0) ::waitpid(pid_, nullptr, 0);
  }
  bool started() const { return pid_ > 0; }

  // The next line of output, or nothing when none comes within `wait`.
  std::optional<std::string> line(std::chrono::milliseconds wait = std::chrono::seconds(10)) {
    for (size_t end; (end = buffer_.find('\n')) == std::string::npos;) {
      pollfd ready{output_.get(), POLLIN, 0};
      char chunk[512];
      ssize_t n = 0;
      if (::poll(&ready, 1, static_cast<int>(wait.count())) <= 0 ||
          (n = ::read(output_.get(), chunk, sizeof chunk)) <= 0) {
        return std::nullopt;
      }
      buffer_.append(chunk, static_cast<size_t>(n));
    }
    const size_t end = buffer_.find('\n');
    std::string line = buffer_.substr(0, end);
    buffer_.erase(0, end + 1);
    return line;
  }

 private:
  pid_t pid_ = -1;
  FileDescriptor input_, output_;
  std::string buffer_;
};

class DesktopNotifierTest : public testing::TempDirTest {};

TEST_F(DesktopNotifierTest, DeliversEachAlertOnceToTheNotificationService) {
  RunningProgram bus{{"dbus-daemon", "--session", "--nofork", "--print-address=1"}};
  if (!bus.started()) GTEST_SKIP() << "dbus-daemon not found: install the dbus package";
  const std::optional<std::string> address = bus.line();
  ASSERT_TRUE(address) << "dbus-daemon printed no address";

  std::string why;
  std::optional<DesktopNotifier> notifier = DesktopNotifier::connect(*address, &why);
  ASSERT_TRUE(notifier) << why;
  const LimitAlert first{ProviderID::claude, "session", LimitAlert::Kind::reached80,
                         "Claude Code: Session at 82.0%", "18.0% left, resets in 2h 14m"};
  const LimitAlert second{ProviderID::codex, "weekly", LimitAlert::Kind::reset,
                          "Codex: Weekly has reset", "100.0% left"};
  // Nobody serves notifications yet: the call fails and says so.
  EXPECT_FALSE(notifier->notify(first));
  EXPECT_NE(notifier->lastError().find(*address), std::string::npos) << notifier->lastError();

  RunningProgram listener{{BRIMLOG_NOTIFICATION_LISTENER, *address}};
  ASSERT_EQ(listener.line(), "ready");
  EXPECT_TRUE(notifier->notify(first)) << notifier->lastError();
  EXPECT_TRUE(notifier->notify(second)) << notifier->lastError();
  EXPECT_EQ(listener.line(), first.summary + "\t" + first.body);
  EXPECT_EQ(listener.line(), second.summary + "\t" + second.body);
  // Each call is answered after its line is written, so a repeat would already be there.
  EXPECT_EQ(listener.line(std::chrono::milliseconds(100)), std::nullopt);
}

TEST_F(DesktopNotifierTest, ConnectGivesNothingWhereNoBusListens) {
  const std::string address = "unix:path=" + (dir() / "no-bus").string();
  std::string why;
  EXPECT_FALSE(DesktopNotifier::connect(address, &why).has_value());
  EXPECT_NE(why.find(address), std::string::npos) << why;
}

}  // namespace
}  // namespace brimlog
