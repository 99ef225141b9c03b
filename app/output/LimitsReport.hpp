#pragma once

#include <string>
#include <utility>
#include <vector>

#include "model/ProviderLimits.hpp"
#include "output/Dashboard.hpp"
#include "platform/Calendar.hpp"
#include "platform/Date.hpp"

namespace brimlog {

/// What `brimlog limits` prints: per tool a heading with its plan, the status of the last fetch
/// and when it was asked, then its windows as the dashboard draws them; a note under all of them
/// when a figure was kept from an earlier answer.
///
///     Codex · Plus · ok  (asked 2026-11-24 13:57)
///       Weekly    ████████████████│░░░░░░░░░░░   56% left  resets in 4d 0h
struct LimitsReport {
  static std::string render(const std::vector<std::pair<ProviderID, ProviderLimits>>& limits,
                            const Dashboard& dashboard, Date now, const Calendar& calendar);
};

}  // namespace brimlog
