#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "platform/FileDescriptor.hpp"

extern char** environ;

namespace brimlog::testing {

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

}  // namespace brimlog::testing
