#include "cli/WatchLoop.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <csignal>

#include "cli/TerminalKeys.hpp"
#include "output/Dashboard.hpp"
#include "output/Terminal.hpp"
#include "state/HostSettings.hpp"

namespace brimlog {
namespace {

volatile std::sig_atomic_t stopRequested = 0;
volatile std::sig_atomic_t resized = 0;
extern "C" void onStop(int) { stopRequested = 1; }
extern "C" void onResize(int) { resized = 1; }

// The signals the loop answers, handled for its life and given back as they were.
class WatchSignals {
 public:
  WatchSignals() {
    struct sigaction stop {
    }, resize{};
    stop.sa_handler = onStop;
    resize.sa_handler = onResize;
    for (size_t i = 0; i < kStops.size(); ++i) ::sigaction(kStops[i], &stop, &saved_[i]);
    ::sigaction(SIGWINCH, &resize, &saved_.back());
    stopRequested = 0;
  }
  ~WatchSignals() {
    for (size_t i = 0; i < kStops.size(); ++i) ::sigaction(kStops[i], &saved_[i], nullptr);
    ::sigaction(SIGWINCH, &saved_.back(), nullptr);
  }
  WatchSignals(const WatchSignals&) = delete;
  WatchSignals& operator=(const WatchSignals&) = delete;

 private:
  static constexpr std::array<int, 3> kStops = {SIGINT, SIGTERM, SIGHUP};
  std::array<struct sigaction, kStops.size() + 1> saved_{};
};

// The alternate screen without a cursor, for the loop's life.
class AlternateScreen {
 public:
  explicit AlternateScreen(std::FILE* out) : out_(out) {
    fmt::print(out_, "\x1b[?1049h\x1b[?25l");
    std::fflush(out_);
  }
  ~AlternateScreen() {
    fmt::print(out_, "\x1b[?25h\x1b[?1049l");
    std::fflush(out_);
  }
  AlternateScreen(const AlternateScreen&) = delete;
  AlternateScreen& operator=(const AlternateScreen&) = delete;

 private:
  std::FILE* out_;
};

}  // namespace

std::string WatchLoop::frame(const std::string& text, int rows) {
  std::string out = "\x1b[H";
  size_t start = 0;
  for (int row = 0; row < rows && start < text.size(); ++row) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    if (row > 0) out += "\n";
    out.append(text, start, end - start).append("\x1b[K");
    start = end + 1;
  }
  return out + "\x1b[J";
}

std::string WatchLoop::updatedLine(Date readAt, const Calendar& calendar) {
  const int minute = calendar.minuteOfDay(readAt);
  // Every zone's offset is whole minutes, so the seconds are the same everywhere.
  const auto second =
      static_cast<int>(std::fmod(std::floor(readAt.time_since_epoch().count()), 60.0) + 60) % 60;
  return fmt::format("updated {:02}:{:02}:{:02} · q quits", minute / 60, minute % 60, second);
}

int WatchLoop::run(const std::function<Snapshot()>& pass, const Calendar& calendar) const {
  if (!Terminal::isTerminal(out)) {
    throw CommandError(
        "--watch redraws a terminal and standard output is not one; run it in a terminal, or "
        "use --json for scripts");
  }
  const auto interval = std::chrono::duration<double>(std::max(seconds, 1.0));
  const WatchSignals signals;
  const AlternateScreen screen{out};
  const TerminalKeys keys{STDIN_FILENO};
  while (!stopRequested) {
    const Snapshot snapshot = pass();
    const std::string updated = updatedLine(currentDate(), calendar);
    const auto passed = std::chrono::steady_clock::now();
    // Between passes only the clock moves: countdowns are redrawn every second.
    while (!stopRequested && std::chrono::steady_clock::now() - passed < interval) {
      resized = 0;
      const Dashboard dashboard{Terminal::width(out), color};
      const std::string text = dashboard.render(snapshot, currentDate(), calendar) + "\n" + updated;
      fmt::print(out, "{}", frame(text, Terminal::rows(out)));
      std::fflush(out);
      const std::optional<char> key = keys.next(std::chrono::seconds(1));
      if (key == 'q' || key == 'Q') stopRequested = 1;
    }
  }
  return 0;
}

}  // namespace brimlog
