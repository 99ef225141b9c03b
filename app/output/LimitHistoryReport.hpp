#pragma once

#include <optional>
#include <string>
#include <vector>

#include "model/LimitPeriod.hpp"
#include "model/LimitReading.hpp"
#include "output/ReportSheet.hpp"
#include "platform/Calendar.hpp"
#include "platform/Date.hpp"

namespace brimlog {

/// What `brimlog limits --history` prints: the limit readings of some days, and each finished
/// period among them with its peak share used and whether it ran out (`LimitPeriod`).
///
///     Time              Tool    Window  Used    Reset             Origin
///     2026-11-20 09:00  Codex   weekly  42.0%   2026-11-24 09:00  service
///
///     Finished windows
///     Tool    Window  Reset             Readings  Peak used  Ran out
///     Codex   weekly  2026-11-17 09:00         6     100.0%  yes
///
/// The table in local times; JSON ({"days", "readings": […], "periods": […]}) and CSV (the
/// readings) with UTC instants and raw tool names, as the other reports have them.
struct LimitHistoryReport {
  std::vector<LimitReading> readings;
  /// How many days back the readings go.
  int days = 30;
  Date now;

  ReportSheet readingsSheet() const;
  /// The finished periods of `readings`.
  ReportSheet periodsSheet() const;

  std::string table(const Calendar& calendar, std::optional<size_t> width) const;
  std::string json() const;
  std::string csv() const;
};

}  // namespace brimlog
