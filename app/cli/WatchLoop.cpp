#include "cli/WatchLoop.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <thread>

#include "output/Dashboard.hpp"
#include "output/Terminal.hpp"
#include "state/HostSettings.hpp"

namespace brimlog {
namespace {

volatile std::sig_atomic_t stopRequested = 0;
volatile std::sig_atomic_t resized = 0;
extern "C" void onStop(int) { stopRequested = 1; }
extern "C" void onResize(int) { resized = 1; }

}  // namespace

int WatchLoop::run(const std::function<Snapshot()>& pass, const Calendar& calendar) const {
  if (!Terminal::isTerminal(out)) {
    throw CommandError(
        "status --watch redraws a terminal; standard output is not one (use "
        "status --json for scripts)");
  }
  const auto interval = std::chrono::duration<double>(std::max(seconds, 1.0));
  struct sigaction stop {
  }, resize{}, oldInterrupt{}, oldTerminate{}, oldResize{};
  stop.sa_handler = onStop;
  resize.sa_handler = onResize;
  ::sigaction(SIGINT, &stop, &oldInterrupt);
  ::sigaction(SIGTERM, &stop, &oldTerminate);
  ::sigaction(SIGWINCH, &resize, &oldResize);
  stopRequested = 0;
  fmt::print(out, "\x1b[?1049h\x1b[?25l");  // the alternate screen, no cursor
  auto restore = [&] {
    fmt::print(out, "\x1b[?25h\x1b[?1049l");
    std::fflush(out);
    ::sigaction(SIGINT, &oldInterrupt, nullptr);
    ::sigaction(SIGTERM, &oldTerminate, nullptr);
    ::sigaction(SIGWINCH, &oldResize, nullptr);
  };
  try {
    while (!stopRequested) {
      const Snapshot snapshot = pass();
      const auto passed = std::chrono::steady_clock::now();
      // Between passes only the clock moves: countdowns are redrawn every second.
      while (!stopRequested && std::chrono::steady_clock::now() - passed < interval) {
        resized = 0;
        const Dashboard dashboard{Terminal::width(out), color};
        fmt::print(out, "\x1b[H\x1b[2J{}", dashboard.render(snapshot, currentDate(), calendar));
        std::fflush(out);
        for (int tick = 0; tick < 10 && !stopRequested && !resized; ++tick) {
          std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
      }
    }
  } catch (...) {
    restore();
    throw;
  }
  restore();
  return 0;
}

}  // namespace brimlog
