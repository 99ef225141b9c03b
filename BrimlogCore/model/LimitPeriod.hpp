#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "model/LimitReading.hpp"
#include "model/ProviderID.hpp"
#include "platform/Date.hpp"

namespace brimlog {

/// One finished period of a limit window: the readings of one provider's window that named the
/// same reset, once that reset has passed. What it says is how close the period came to its
/// quota: the largest share used any reading saw, and whether that was all of it.
///
///     // Readings of a week that reset on Monday: 0.4, 0.9, 1.0 used.
///     auto periods = LimitPeriod::finished(readings, now);
///     periods[0].peakUsed;  // 1.0
///     periods[0].ranOut();  // true
struct LimitPeriod {
  ProviderID provider = ProviderID::claude;
  std::string window;
  /// The reset that ended the period (the latest time its readings named for it).
  Date resetsAt;
  /// The first and the latest reading of the period.
  Date firstReadAt;
  Date lastReadAt;
  double peakUsed = 0;
  size_t readings = 0;

  /// Whether the quota was used up before the reset.
  bool ranOut() const { return peakUsed >= 1; }

  bool operator==(const LimitPeriod&) const = default;

  /// The periods of `readings` (in any order) whose reset is at or before `now`, by provider,
  /// window and reset. Readings of one provider and window whose resets lie within a minute of
  /// each other are one period: a service's countdown moves by a few seconds between answers.
  /// Readings without a reset time belong to no period.
  static std::vector<LimitPeriod> finished(std::span<const LimitReading> readings, Date now);
};

}  // namespace brimlog
