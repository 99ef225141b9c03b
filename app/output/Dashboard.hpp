#pragma once

#include <string>

#include "display/Snapshot.hpp"
#include "platform/Calendar.hpp"
#include "platform/Date.hpp"

namespace brimlog {

/// The terminal dashboard of a snapshot: what bare `brimlog` and `brimlog status` show.
///
///     Brimlog                                     today $8.85 · 30 days $292.60 at API prices
///
///     Claude · Max 5x                                                30 days $214.60
///       Session  ████████████████████████████▌░░░░│░  85% left  resets in 13m
///       Weekly   ██████████████████░░░░░░░░░░│░░░░░░░  58% left  resets in 3d 0h  under pace
///
/// One block per provider with its name, plan and status note; each limit window as a bar of
/// the share left, with a mark where the share left would be if the quota were used exactly as
/// fast as the window's time passes; the tightest windows first when the width is short; the
/// costs with the approximate mark; a sparkline of the last 30 days; the stale notice. A window
/// is yellow from 80% used and red from 95% (`LimitLevel`); one read a while ago says how long
/// ago ("as of 3 h ago"); one with a forecast has it on a dim line under its bar, and the weekly
/// window the sparkline of its week so far.
struct Dashboard {
  /// Columns to fill (at least 40 are used) and whether to colour with ANSI escapes.
  int width = 80;
  bool color = false;

  std::string render(const Snapshot& snapshot, Date now, const Calendar& calendar) const;

  /// The limit-window lines of one provider alone, as `brimlog limits` shows them: under each
  /// bar with a forecast the line "at this pace: …" (times in `calendar`), and under the weekly
  /// window the sparkline of its use so far.
  std::string windows(const Snapshot::Provider& provider, Date now, const Calendar& calendar) const;

  /// Eight levels per value, scaled to the largest: "▁▁▃█▅".
  static std::string sparkline(const std::vector<double>& values);

  /// The share used of a window's current period over time (the forecast's points, in time
  /// order), in `width` columns from the period's start to its reset, "█" for all of the quota:
  /// "▁▁▂▃▃▅" up to `now`, the columns after it left out. Nothing when the period is unknown.
  static std::string periodSparkline(const LimitForecast& forecast, const LimitWindow& window,
                                     Date now, int width);
};

}  // namespace brimlog
