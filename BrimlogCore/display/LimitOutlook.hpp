#pragma once

#include <map>
#include <vector>

#include "model/LimitForecast.hpp"
#include "model/ProviderLimits.hpp"
#include "store/UsageStore.hpp"

namespace brimlog {

/// The forecasts of stored limits: each window's readings since its period began, read from
/// the store, through `LimitForecast::make`. The one way every screen gets a forecast.
///
///     auto forecasts = LimitOutlook::forecasts(store, ProviderID::codex, limits, now);
struct LimitOutlook {
  /// The forecasts of `limits`' windows that have one, in the windows' order. Stale windows
  /// (kept from an earlier answer) get none: their pace is not known now.
  static std::vector<LimitForecast> forecasts(UsageStore& store, ProviderID provider,
                                              const ProviderLimits& limits, Date now);

  /// The same for every provider of `limits`; providers without a forecast are left out.
  static std::map<ProviderID, std::vector<LimitForecast>> forecasts(
      UsageStore& store, const std::map<ProviderID, ProviderLimits>& limits, Date now);
};

}  // namespace brimlog
