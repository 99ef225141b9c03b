#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "display/Snapshot.hpp"
#include "model/LimitWindow.hpp"
#include "model/ProviderID.hpp"
#include "model/ProviderLimits.hpp"
#include "platform/Date.hpp"

namespace brimlog {

/// What the widgets decide about a snapshot, apart from any drawing: when it is stale and what
/// the notice says, which windows a row has room for, when the timeline has entries and reloads,
/// when a countdown runs as a live timer, and the note of a provider without windows. Every rule
/// is a pure function of its arguments; `now` is passed in, the clock is never read.
///
/// A window's reset has passed when its `resetsAt` is known and not after `now`.
///
///     WidgetDisplay::isStale(generatedAt, generatedAt + Seconds{1800});  // false
///     WidgetDisplay::staleText(generatedAt, generatedAt + Seconds{7200});  // "Updated 2 hr. ago"
///     WidgetDisplay::nextReload(snapshot, now, std::nullopt);  // at most now + 900 s
struct WidgetDisplay {
  /// Seconds: a snapshot older than this is shown as stale.
  static constexpr double staleAfter = 1800;
  /// Seconds: the longest wait until the timeline is reloaded.
  static constexpr double reloadInterval = 900;

  /// Whether `now` is more than `staleAfter` seconds after `generatedAt` (exactly 1800 s is not
  /// stale; a `generatedAt` in the future never is).
  static bool isStale(Date generatedAt, Date now);

  /// For a stale snapshot, "Updated " and how long ago it was built, in English with abbreviated
  /// units, whatever the user's locale. The age is told in its largest whole unit, counted down:
  /// below a minute in "sec.", below an hour in "min.", below a day in "hr.", below 7 days in
  /// "day"/"days", below 30 days in "wk.", below 365 days in "mo." (30-day months), beyond that
  /// in "yr." (365-day years): "Updated 31 min. ago", "Updated 1 day ago", "Updated 2 wk. ago".
  /// Nothing when the snapshot is not stale.
  static std::optional<std::string> staleText(Date generatedAt, Date now);

  /// The `count` windows a row shows: those whose reset has not passed first, then the highest
  /// effective used fraction, then the earlier in the list; returned in their original order.
  static std::vector<LimitWindow> tightestWindows(std::span<const LimitWindow> windows, Date now,
                                                  size_t count);

  /// The small widget's two windows: the first "session" and the first "weekly" window, in that
  /// order, topped up with the other windows in list order (other windows of those two ids are
  /// dropped), at most two in all.
  static std::vector<LimitWindow> sessionAndWeekly(std::span<const LimitWindow> windows);

  /// When to reload the timeline: `now` + `reloadInterval`, or the earliest reset after `now`
  /// (of the provider `only`, when given) that comes sooner.
  static Date nextReload(const std::optional<Snapshot>& snapshot, Date now,
                         std::optional<ProviderID> only);

  /// The timeline's entries: `now`, and also the first moment at which the snapshot counts as
  /// stale (`generatedAt` + 1801 s) when that is still ahead, so the widget redraws itself then.
  static std::vector<Date> entryDates(const std::optional<Snapshot>& snapshot, Date now);

  /// Whether a countdown of `remaining` seconds runs as a self-updating timer: above 0 and below
  /// one day. Longer ones are fixed text.
  static bool usesLiveTimer(double remaining);

  /// How the outcome of a limits fetch is written wherever a person reads it: "ok",
  /// "sign-in needed", "unreachable", "rate limited", "access denied", "unavailable".
  static std::string_view statusText(ProviderStatus status);

  /// The note in the row of a provider without windows: "no live limits" when the service
  /// answered (or has no limits to give), else the fetch's status text.
  static std::string_view noLimitsNote(ProviderStatus status);
};

}  // namespace brimlog
