#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/Date.hpp"
#include "platform/FileDescriptor.hpp"

namespace brimlog {

/// One run of a command-line tool whose standard output is wanted, bounded by a deadline.
///
/// The constructor starts the program with standard input and standard error on /dev/null and
/// standard output on a pipe. A reader thread drains that pipe into memory from the start, so a
/// tool that writes more than a pipe holds never stalls waiting for us. The child gets a process
/// group of its own; whenever this class gives up on it (deadline passed, or destroyed while
/// running) the whole group is sent SIGTERM, and SIGKILL if the child is still there after a
/// short grace. The child is always reaped, and the reader always stopped, even when something
/// the child started keeps the pipe open: nothing outlives the object but such leftovers.
///
///     ChildProcess::Result r = ChildProcess::run("/usr/bin/security", {"-h"}, Seconds{30});
///     if (r.outcome == ChildProcess::Outcome::exited && r.exitStatus == 0) use(r.output);
///
/// Not copyable or movable (the reader thread refers to the object). `wait` may be called from
/// one thread at a time; the environment is inherited.
class ChildProcess {
 public:
  enum class Outcome {
    /// The program could not be started; `launchError` says why.
    notLaunched,
    /// It exited by itself with `exitStatus`.
    exited,
    /// It was ended by signal `signal`, before the deadline and not by us.
    signaled,
    /// The deadline passed while it was running; it was terminated.
    timedOut,
  };

  struct Result {
    Outcome outcome = Outcome::notLaunched;
    /// The errno of the failed start (notLaunched only).
    int launchError = 0;
    /// The exit status (exited only); -1 when the status was collected by someone else.
    int exitStatus = 0;
    /// The ending signal (signaled only).
    int signal = 0;
    /// Everything read from the child's standard output.
    std::string output;
    /// The output was read to its end by the deadline. Always false for `timedOut`; also false
    /// for a child that exited in time while something it started still held its output open
    /// past the deadline (those leftovers are sent SIGTERM before `wait` returns).
    bool outputComplete = false;
  };

  /// Starts `executable` with `arguments` (argv[0] is the executable's path). A failure to start
  /// is reported by `launched` and `wait`, never thrown.
  ChildProcess(const std::filesystem::path& executable, const std::vector<std::string>& arguments);
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  /// Terminates and reaps the child if `wait` has not, and stops the reader.
  ~ChildProcess();

  bool launched() const { return pid_ > 0; }
  /// The child's process id (also its process group id), or -1 when it was not started.
  pid_t pid() const { return pid_; }

  /// Waits until the child has exited and its output is read to the end, or until `deadline`.
  /// When the deadline passes with the child still running, it is terminated (see above) and the
  /// outcome is `timedOut`. On return the child has been reaped and the reader has stopped; later
  /// calls return the same result.
  Result wait(std::chrono::steady_clock::time_point deadline);

  /// Starts the program and waits for it at most `timeout` (a negative or NaN timeout is taken as
  /// zero).
  static Result run(const std::filesystem::path& executable,
                    const std::vector<std::string>& arguments, Seconds timeout);

  /// How long a terminated child is given to go before it is killed.
  static constexpr std::chrono::milliseconds terminateGrace{1000};

 private:
  void readOutput();
  bool awaitExit(std::chrono::steady_clock::time_point deadline);
  bool awaitOutput(std::chrono::steady_clock::time_point deadline);
  void signalGroup(int signal) const;
  Result reap();
  void terminateAndReap();
  void stopReader();

  pid_t pid_ = -1;
  int launchError_ = 0;
  bool lost_ = false;         // the child was collected by someone else: its pid is no longer ours
  FileDescriptor output_;     // read end of the child's standard output
  FileDescriptor wakeRead_;   // a byte here tells the reader to stop
  FileDescriptor wakeWrite_;  //
  FileDescriptor pidfd_;      // readable once the child has exited; absent on older kernels
  std::optional<Result> result_;

  std::mutex mutex_;  // guards the three fields below, written by the reader thread
  std::condition_variable readerDone_;
  std::string buffer_;
  bool readerFinished_ = false;
  bool reachedEnd_ = false;

  std::thread reader_;
};

}  // namespace brimlog
