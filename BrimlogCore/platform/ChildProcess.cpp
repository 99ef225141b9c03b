#include "platform/ChildProcess.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <system_error>

#ifdef __linux__
#include <sys/syscall.h>
#endif

namespace brimlog {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Milliseconds until `deadline`, rounded up so a wait never ends just short of it.
int millisecondsUntil(Clock::time_point deadline, Clock::time_point now) {
  const auto left = std::chrono::ceil<milliseconds>(deadline - now).count();
  return static_cast<int>(std::clamp<decltype(left)>(left, 0, INT_MAX));
}

Clock::time_point deadlineAfter(Seconds timeout) {
  const auto now = Clock::now();
  const double seconds = timeout.count();
  if (!(seconds > 0)) return now;
  // Beyond a century the bound means nothing, and converting it could overflow.
  if (seconds > 3.2e9) return Clock::time_point::max();
  return now + std::chrono::duration_cast<Clock::duration>(timeout);
}

// posix_spawn's two option objects, destroyed on every path.
struct SpawnOptions {
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  SpawnOptions() {
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
  }
  ~SpawnOptions() {
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
  }
  SpawnOptions(const SpawnOptions&) = delete;
  SpawnOptions& operator=(const SpawnOptions&) = delete;
};

}  // namespace

ChildProcess::ChildProcess(const std::filesystem::path& executable,
                           const std::vector<std::string>& arguments) {
  // Close-on-exec on every descriptor, so a child started by another thread at the same time
  // cannot inherit our pipe's write end and keep it open.
  int outputPipe[2];
  int wakePipe[2];
  if (::pipe2(outputPipe, O_CLOEXEC) != 0) {
    launchError_ = errno;
    return;
  }
  output_ = FileDescriptor(outputPipe[0]);
  FileDescriptor outputWrite(outputPipe[1]);
  if (::pipe2(wakePipe, O_CLOEXEC) != 0) {
    launchError_ = errno;
    return;
  }
  wakeRead_ = FileDescriptor(wakePipe[0]);
  wakeWrite_ = FileDescriptor(wakePipe[1]);

  // The reader starts before the child: if the start fails, closing the write end below lets
  // it see the end at once.
  try {
    reader_ = std::thread(&ChildProcess::readOutput, this);
  } catch (const std::system_error& error) {
    launchError_ = error.code().value();
    return;
  }

  SpawnOptions options;
  posix_spawn_file_actions_addopen(&options.actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&options.actions, outputWrite.get(), STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&options.actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  // Signals blocked or ignored here (SIGPIPE often is) would stay so across exec; the tool gets
  // the defaults. Its own process group lets a termination reach whatever it starts.
  sigset_t noSignals;
  sigemptyset(&noSignals);
  sigset_t allSignals;
  sigfillset(&allSignals);
  posix_spawnattr_setsigmask(&options.attributes, &noSignals);
  posix_spawnattr_setsigdefault(&options.attributes, &allSignals);
  posix_spawnattr_setpgroup(&options.attributes, 0);
  posix_spawnattr_setflags(&options.attributes,
                           POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);

  std::vector<char*> argv;
  argv.reserve(arguments.size() + 2);
  argv.push_back(const_cast<char*>(executable.c_str()));
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);

  pid_t pid = -1;
  const int spawnError = ::posix_spawn(&pid, executable.c_str(), &options.actions,
                                       &options.attributes, argv.data(), ::environ);
  outputWrite.reset();  // the child holds its own copy now (or there is no child)
  if (spawnError != 0) {
    launchError_ = spawnError;
    return;
  }
  pid_ = pid;
#ifdef SYS_pidfd_open
  // Called directly: not every C library declares a wrapper. Unavailable on kernels before 5.3
  // and under some sandboxes, in which case waiting polls instead.
  pidfd_ = FileDescriptor(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)));
#endif
}

ChildProcess::~ChildProcess() {
  if (!result_ && launched()) terminateAndReap();
  stopReader();
}

ChildProcess::Result ChildProcess::run(const std::filesystem::path& executable,
                                       const std::vector<std::string>& arguments, Seconds timeout) {
  ChildProcess child(executable, arguments);
  return child.wait(deadlineAfter(timeout));
}

ChildProcess::Result ChildProcess::wait(Clock::time_point deadline) {
  if (result_) return *result_;
  Result result;
  // Whether the output reached its end is settled before anything is signalled: once we
  // terminate what holds the pipe, its end comes from our signal, not from a complete output.
  bool complete = false;
  if (!launched()) {
    result.launchError = launchError_;
  } else if (awaitExit(deadline)) {
    // The child has exited but is not reaped yet, so its process group id cannot be reused:
    // whatever it left holding the output open can still be signalled safely.
    complete = awaitOutput(deadline);
    if (!complete) signalGroup(SIGTERM);
    result = reap();
  } else {
    terminateAndReap();
    result.outcome = Outcome::timedOut;
  }
  stopReader();
  result.output = std::move(buffer_);
  result.outputComplete = complete;
  result_ = std::move(result);
  return *result_;
}

void ChildProcess::readOutput() {
  std::array<char, 64 * 1024> chunk;
  pollfd watched[2] = {{output_.get(), POLLIN, 0}, {wakeRead_.get(), POLLIN, 0}};
  bool end = false;
  for (;;) {
    if (::poll(watched, 2, -1) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    if (watched[1].revents != 0) break;
    if (watched[0].revents == 0) continue;
    const ssize_t count = ::read(output_.get(), chunk.data(), chunk.size());
    if (count < 0) {
      if (errno == EINTR || errno == EAGAIN) continue;
      break;
    }
    if (count == 0) {
      end = true;
      break;
    }
    try {
      const std::lock_guard lock(mutex_);
      buffer_.append(chunk.data(), static_cast<size_t>(count));
    } catch (const std::bad_alloc&) {
      break;  // reported as incomplete output
    }
  }
  {
    const std::lock_guard lock(mutex_);
    readerFinished_ = true;
    reachedEnd_ = end;
  }
  readerDone_.notify_all();
}

bool ChildProcess::awaitExit(Clock::time_point deadline) {
  for (;;) {
    // WNOWAIT leaves the child a zombie: its pid stays ours until `reap`.
    siginfo_t info{};
    if (::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0) {
      if (info.si_pid == pid_) return true;
    } else if (errno != EINTR) {
      // ECHILD: collected elsewhere (SIGCHLD ignored). The pid may already belong to another
      // process, so it is never signalled again.
      lost_ = true;
      return true;
    }
    const auto now = Clock::now();
    if (now >= deadline) return false;
    if (pidfd_) {
      pollfd exited{pidfd_.get(), POLLIN, 0};
      ::poll(&exited, 1, millisecondsUntil(deadline, now));
    } else {
      std::this_thread::sleep_for(std::min(deadline - now, Clock::duration(milliseconds(5))));
    }
  }
}

bool ChildProcess::awaitOutput(Clock::time_point deadline) {
  std::unique_lock lock(mutex_);
  readerDone_.wait_until(lock, deadline, [this] { return readerFinished_; });
  return reachedEnd_;
}

void ChildProcess::signalGroup(int signal) const {
  if (lost_) return;
  ::kill(-pid_, signal);
  ::kill(pid_, signal);  // in case the child moved itself to another group
}

ChildProcess::Result ChildProcess::reap() {
  Result result;
  result.outcome = Outcome::exited;
  siginfo_t info{};
  int status = 0;
  do {
    status = ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED);
  } while (status != 0 && errno == EINTR);
  if (status != 0) {
    result.exitStatus = -1;
  } else if (info.si_code == CLD_EXITED) {
    result.exitStatus = info.si_status;
  } else {
    result.outcome = Outcome::signaled;
    result.signal = info.si_status;
  }
  return result;
}

void ChildProcess::terminateAndReap() {
  signalGroup(SIGTERM);
  if (!awaitExit(Clock::now() + terminateGrace)) signalGroup(SIGKILL);
  reap();
}

void ChildProcess::stopReader() {
  if (!reader_.joinable()) return;
  const char wake = 1;
  while (::write(wakeWrite_.get(), &wake, 1) < 0 && errno == EINTR) {
  }
  reader_.join();
}

}  // namespace brimlog
