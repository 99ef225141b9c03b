#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "model/LimitForecast.hpp"
#include "model/ProviderLimits.hpp"
#include "output/Dashboard.hpp"
#include "platform/Calendar.hpp"
#include "platform/Date.hpp"
#include "platform/Json.hpp"

namespace brimlog {

/// What `brimlog limits` prints: per tool a heading with its plan, the status of the last fetch
/// and when it was asked, then its windows as the dashboard draws them; a note under all of them
/// when a figure was kept from an earlier answer. Windows with a forecast have it under their
/// bar.
///
///     Codex · Plus · ok  (asked 2026-11-24 13:57)
///       Weekly    ████████████████│░░░░░░░░░░░   56% left  resets in 4d 0h
///                 at this pace: lasts until the reset
struct LimitsReport {
  static std::string render(const std::vector<std::pair<ProviderID, ProviderLimits>>& limits,
                            const std::map<ProviderID, std::vector<LimitForecast>>& forecasts,
                            const Dashboard& dashboard, Date now, const Calendar& calendar);

  /// `limits --json`: each tool's stored limits as they are stored, and on each window with a
  /// forecast `"forecast": {"usedPerHour": 0.01, "runsOutAt": "…", "asOf": "…"}` (runsOutAt only
  /// when it comes before the reset; dates as UTC text).
  static Json json(const std::vector<std::pair<ProviderID, ProviderLimits>>& limits,
                   const std::map<ProviderID, std::vector<LimitForecast>>& forecasts);
};

}  // namespace brimlog
