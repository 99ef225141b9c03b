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
#include <string_view>
#include <utility>
#include <vector>

#include "platform/FileDescriptor.hpp"

extern char** environ;

namespace brimlog::testing {

// A program running beside the test with its standard output read line by line, or to its end
// by `finish`; unless finished, it gets the end of its input, SIGTERM, and is reaped when the
// object goes. Its standard error is the test's.
class RunningProgram {
 public:
  struct Result {
    // The exit status; -1 when it did not start or was ended by a signal.
    int exitStatus = -1;
    // What it printed that `line` did not take.
    std::string output;
  };

  // Runs a program to its end (see `finish`).
  static Result run(std::vector<std::string> arguments,
                    std::chrono::milliseconds wait = std::chrono::seconds(60)) {
    return RunningProgram{std::move(arguments)}.finish(wait);
  }

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
  pid_t pid() const { return pid_; }

  // Ends its input, reads its output to the end and waits for it to exit; it is killed when that
  // takes longer than `wait`.
  Result finish(std::chrono::milliseconds wait = std::chrono::seconds(60)) {
    Result result;
    if (pid_ <= 0) return result;
    input_.reset();
    const auto deadline = std::chrono::steady_clock::now() + wait;
    char chunk[4096];
    for (;;) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
          deadline - std::chrono::steady_clock::now());
      pollfd ready{output_.get(), POLLIN, 0};
      if (left.count() <= 0 || ::poll(&ready, 1, static_cast<int>(left.count())) <= 0) {
        ::kill(pid_, SIGKILL);
        break;
      }
      const ssize_t n = ::read(output_.get(), chunk, sizeof chunk);
      if (n <= 0) break;
      buffer_.append(chunk, static_cast<size_t>(n));
    }
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
    if (WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
    result.output = std::move(buffer_);
    return result;
  }

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

// `text` as one word of a /bin/sh command line, whatever it holds.
inline std::string shellQuoted(std::string_view text) {
  std::string out = "'";
  for (const char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

}  // namespace brimlog::testing
