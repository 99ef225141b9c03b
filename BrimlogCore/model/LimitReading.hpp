#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/ProviderID.hpp"
#include "model/ProviderLimits.hpp"
#include "platform/Date.hpp"

namespace brimlog {

/// One reading of a limit window, as the history of limits keeps it: what share of the quota had
/// been used when, with the reset time and length the reading named, and where it came from.
///
///     for (const LimitReading& r : LimitReading::of(ProviderID::codex, limits)) store(r);
struct LimitReading {
  /// Asked from the tool's service, or read from the tool's own files (Codex's logs, Claude
  /// Code's status line).
  enum class Origin { service, log };

  ProviderID provider = ProviderID::claude;
  std::string window;
  Date readAt;
  double usedFraction = 0;
  std::optional<Date> resetsAt;
  std::optional<double> duration;
  Origin origin = Origin::service;

  bool operator==(const LimitReading&) const = default;

  /// The readings a limits record holds: one per window that is fresh (from the service just
  /// now, or from a local record as of its own time). Stale windows repeat an earlier reading and
  /// an answer that failed holds none: they give nothing.
  static std::vector<LimitReading> of(ProviderID provider, const ProviderLimits& limits);

  /// Whether `next` says nothing `previous` did not: the same share and the same reset, give or
  /// take the seconds a service's countdown jitters by.
  static bool sameFigures(const LimitReading& previous, const LimitReading& next);

  static std::string_view originName(Origin origin);
  static std::optional<Origin> originNamed(std::string_view name);
};

}  // namespace brimlog
