// brimlog_notification_probe NAME: observes NAME under the default notification root, prints
// "ready" once observing and then one line NAME per notification; ends with status 0 on SIGTERM,
// SIGINT or the end of its standard input. Tests of other processes read its output.
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <mutex>

#include "platform/NotificationCenter.hpp"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s NAME\n", argv[0]);
    return 2;
  }
  // Blocked before the observation's thread starts, so that only the signalfd below sees them.
  sigset_t stops;
  sigemptyset(&stops);
  sigaddset(&stops, SIGTERM);
  sigaddset(&stops, SIGINT);
  pthread_sigmask(SIG_BLOCK, &stops, nullptr);
  const int signals = signalfd(-1, &stops, SFD_CLOEXEC);
  if (signals < 0) {
    std::perror("signalfd");
    return 1;
  }
  try {
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    const brimlog::NotificationCenter center(brimlog::NotificationCenter::defaultRoot(
        runtime ? std::optional<std::string>(runtime) : std::nullopt));
    std::mutex output;
    const std::string name = argv[1];
    const auto observation = center.observe(name, [&] {
      const std::lock_guard lock(output);
      std::printf("%s\n", name.c_str());
      std::fflush(stdout);
    });
    {
      const std::lock_guard lock(output);
      std::printf("ready\n");
      std::fflush(stdout);
    }
    pollfd fds[] = {{STDIN_FILENO, POLLIN, 0}, {signals, POLLIN, 0}};
    char buffer[256];
    while (true) {
      if (poll(fds, 2, -1) < 0) {
        if (errno == EINTR) continue;
        break;
      }
      if (fds[1].revents != 0) break;
      if (fds[0].revents != 0 && read(STDIN_FILENO, buffer, sizeof buffer) <= 0) break;
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "brimlog_notification_probe: %s\n", error.what());
    return 1;
  }
  return 0;
}
