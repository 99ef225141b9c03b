#pragma once

#include <cstdio>
#include <functional>
#include <string>

#include "display/Snapshot.hpp"
#include "platform/Calendar.hpp"

namespace brimlog {

/// `--watch`: the dashboard kept on a terminal's alternate screen until `q`, Ctrl-C or SIGTERM,
/// a pass every `seconds` and the countdowns redrawn every second in between (and at once when
/// the terminal is resized). Each frame overwrites the last in place, line by line, so nothing
/// flickers; under the dashboard, when the last pass read the logs. The keys are read from
/// standard input without echo. The terminal (screen, cursor, input mode, signal handlers) is
/// given back as it was on every way out.
struct WatchLoop {
  std::FILE* out = stdout;
  double seconds = 5;
  bool color = true;

  /// Runs `pass` (a sync that returns the new snapshot) until stopped; returns the exit status.
  /// Throws CommandError when `out` is not a terminal; what `pass` throws ends the loop.
  int run(const std::function<Snapshot()>& pass, const Calendar& calendar) const;

  /// One frame: from the top left, each line of `text` cleared to its end, at most `rows` lines
  /// (a line more would scroll the screen), then the rest of the screen cleared.
  static std::string frame(const std::string& text, int rows);

  /// "updated 14:03:07 · q quits": the local time of `readAt`.
  static std::string updatedLine(Date readAt, const Calendar& calendar);
};

}  // namespace brimlog
