#include "display/WidgetDisplay.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace brimlog {
namespace {

// The relative phrase of an age in seconds, in its largest whole unit.
std::string agoPhrase(double seconds) {
  struct Unit {
    double seconds;     // the length of one unit
    double below;       // the unit applies to ages below this many seconds
    const char* one;    // the unit after 1
    const char* other;  // after any other count
  };
  static constexpr double kDay = 86'400;
  static constexpr Unit kUnits[] = {
      {1, 60, "sec.", "sec."},
      {60, 3'600, "min.", "min."},
      {3'600, kDay, "hr.", "hr."},
      {kDay, 7 * kDay, "day", "days"},
      {7 * kDay, 30 * kDay, "wk.", "wk."},
      {30 * kDay, 365 * kDay, "mo.", "mo."},
      {365 * kDay, std::numeric_limits<double>::infinity(), "yr.", "yr."},
  };
  for (const Unit& unit : kUnits) {
    if (seconds < unit.below) {
      const double count = std::floor(seconds / unit.seconds);
      return fmt::format("{:.0f} {} ago", count, count == 1 ? unit.one : unit.other);
    }
  }
  return "long ago";  // only an infinite age gets here
}

}  // namespace

bool WidgetDisplay::isStale(Date generatedAt, Date now) {
  return (now - generatedAt).count() > staleAfter;
}

std::optional<std::string> WidgetDisplay::staleText(Date generatedAt, Date now) {
  if (!isStale(generatedAt, now)) return std::nullopt;
  return "Updated " + agoPhrase((now - generatedAt).count());
}

std::vector<LimitWindow> WidgetDisplay::tightestWindows(std::span<const LimitWindow> windows,
                                                        Date now, size_t count) {
  std::vector<size_t> ranking(windows.size());
  std::iota(ranking.begin(), ranking.end(), size_t{0});
  std::stable_sort(ranking.begin(), ranking.end(), [&](size_t a, size_t b) {
    const bool resetA = windows[a].isReset(now);
    const bool resetB = windows[b].isReset(now);
    if (resetA != resetB) return !resetA;
    return windows[a].effectiveUsedFraction(now) > windows[b].effectiveUsedFraction(now);
  });
  ranking.resize(std::min(count, ranking.size()));
  std::sort(ranking.begin(), ranking.end());
  std::vector<LimitWindow> kept;
  for (const size_t index : ranking) kept.push_back(windows[index]);
  return kept;
}

std::vector<LimitWindow> WidgetDisplay::sessionAndWeekly(std::span<const LimitWindow> windows) {
  std::vector<LimitWindow> result;
  std::vector<std::string_view> picked;
  for (const std::string_view id : {"session", "weekly"}) {
    const auto it = std::find_if(windows.begin(), windows.end(),
                                 [&](const LimitWindow& window) { return window.id == id; });
    if (it != windows.end()) {
      result.push_back(*it);
      picked.push_back(id);
    }
  }
  for (const LimitWindow& window : windows) {
    if (std::find(picked.begin(), picked.end(), window.id) == picked.end()) {
      result.push_back(window);
    }
  }
  if (result.size() > 2) result.erase(result.begin() + 2, result.end());
  return result;
}

Date WidgetDisplay::nextReload(const std::optional<Snapshot>& snapshot, Date now,
                               std::optional<ProviderID> only) {
  Date reload = now + Seconds{reloadInterval};
  if (!snapshot) return reload;
  for (const auto& provider : snapshot->providers) {
    if (only && provider.id != *only) continue;
    for (const auto& window : provider.windows) {
      if (window.resetsAt && *window.resetsAt > now && *window.resetsAt < reload) {
        reload = *window.resetsAt;
      }
    }
  }
  return reload;
}

std::vector<Date> WidgetDisplay::entryDates(const std::optional<Snapshot>& snapshot, Date now) {
  if (!snapshot) return {now};
  // One second past the threshold, so that the snapshot is already stale at that entry.
  const Date turnsStale = snapshot->generatedAt + Seconds{staleAfter + 1};
  if (turnsStale > now) return {now, turnsStale};
  return {now};
}

bool WidgetDisplay::usesLiveTimer(double remaining) { return remaining > 0 && remaining < 86'400; }

std::string_view WidgetDisplay::statusText(ProviderStatus status) {
  switch (status) {
    case ProviderStatus::ok:
      return "ok";
    case ProviderStatus::signInNeeded:
      return "sign-in needed";
    case ProviderStatus::unreachable:
      return "unreachable";
    case ProviderStatus::rateLimited:
      return "rate limited";
    case ProviderStatus::accessDenied:
      return "access denied";
    case ProviderStatus::unavailable:
      break;
  }
  return "unavailable";
}

std::string_view WidgetDisplay::noLimitsNote(ProviderStatus status) {
  if (status == ProviderStatus::ok || status == ProviderStatus::unavailable) {
    return "no live limits";
  }
  return statusText(status);
}

}  // namespace brimlog
