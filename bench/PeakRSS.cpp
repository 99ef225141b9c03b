// brimlog_peak_rss: runs a command and reports its wall time and peak resident memory, for
// benchmark scripts on systems without GNU time.
//
//   brimlog_peak_rss [--report FILE] -- COMMAND [ARGS...]
//
// The command inherits standard input, output and error. When it has finished, one line goes to
// FILE (appended), or to standard error without --report:
//
//   wall_seconds=0.012345 max_rss_kib=8192 user_seconds=0.004 sys_seconds=0.008 status=0
//
// max_rss_kib is the kernel's ru_maxrss for the child (from wait4), in KiB: the largest resident
// set of the command or of any descendant it waited for. The exit status is the command's own
// (128 + the signal when a signal ended it; 127 when it could not be started).

#include <fmt/format.h>
#include <sys/resource.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace {

int usage() {
  std::fputs("usage: brimlog_peak_rss [--report FILE] -- COMMAND [ARGS...]\n", stderr);
  return 2;
}

double seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

}  // namespace

int main(int argc, char** argv) {
  const char* reportPath = nullptr;
  int command = 0;
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    if (arg == "--") {
      command = i + 1;
      break;
    }
    if (arg == "--report" && i + 1 < argc) {
      reportPath = argv[++i];
    } else {
      return usage();
    }
  }
  if (command == 0 || command >= argc) return usage();

  const auto started = std::chrono::steady_clock::now();
  const pid_t child = ::fork();
  if (child < 0) {
    fmt::print(stderr, "brimlog_peak_rss: cannot start a process: {}\n", std::strerror(errno));
    return 127;
  }
  if (child == 0) {
    ::execvp(argv[command], argv + command);
    fmt::print(stderr, "brimlog_peak_rss: cannot run {}: {}\n", argv[command],
               std::strerror(errno));
    ::_exit(127);
  }

  int status = 0;
  rusage usage{};
  pid_t waited = 0;
  do {
    waited = ::wait4(child, &status, 0, &usage);
  } while (waited < 0 && errno == EINTR);
  const double wall =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  if (waited < 0) {
    fmt::print(stderr, "brimlog_peak_rss: cannot wait for {}: {}\n", argv[command],
               std::strerror(errno));
    return 127;
  }
  const int exitStatus = WIFEXITED(status)     ? WEXITSTATUS(status)
                         : WIFSIGNALED(status) ? 128 + WTERMSIG(status)
                                               : 127;

  const std::string line = fmt::format(
      "wall_seconds={:.6f} max_rss_kib={} user_seconds={:.3f} sys_seconds={:.3f} "
      "status={}\n",
      wall, usage.ru_maxrss, seconds(usage.ru_utime), seconds(usage.ru_stime), exitStatus);
  std::FILE* report = reportPath ? std::fopen(reportPath, "a") : stderr;
  if (report == nullptr) {
    fmt::print(stderr, "brimlog_peak_rss: cannot open {}: {}\n", reportPath, std::strerror(errno));
    return 127;
  }
  std::fputs(line.c_str(), report);
  if (report != stderr) std::fclose(report);
  return exitStatus;
}
