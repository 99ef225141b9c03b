#pragma once

#include <cstdio>
#include <functional>

#include "display/Snapshot.hpp"
#include "platform/Calendar.hpp"

namespace brimlog {

/// `status --watch`: the dashboard kept on a terminal's alternate screen until Ctrl-C or
/// SIGTERM, a pass every `seconds` and the countdowns redrawn every second in between (and at
/// once when the terminal is resized). The terminal is given back as it was on every way out.
struct WatchLoop {
  std::FILE* out = stdout;
  double seconds = 5;
  bool color = true;

  /// Runs `pass` (a sync that returns the new snapshot) until stopped; returns the exit status.
  /// Throws CommandError when `out` is not a terminal; what `pass` throws ends the loop.
  int run(const std::function<Snapshot()>& pass, const Calendar& calendar) const;
};

}  // namespace brimlog
