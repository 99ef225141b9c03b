#include "display/LimitOutlook.hpp"

namespace brimlog {

std::vector<LimitForecast> LimitOutlook::forecasts(UsageStore& store, ProviderID provider,
                                                   const ProviderLimits& limits, Date now) {
  std::vector<LimitForecast> found;
  for (const LimitWindow& window : limits.windows) {
    const std::optional<Date> start = LimitForecast::periodStart(window);
    if (!start || window.source.isStale() || window.isReset(now)) continue;
    const Date readAt = window.source.asOf().value_or(limits.fetchedAt);
    const std::vector<LimitForecast::Point> earlier =
        store.readingPoints(provider, window.id, *start, readAt);
    if (auto forecast = LimitForecast::make(window, readAt,
                                            std::span<const LimitForecast::Point>(earlier), now)) {
      found.push_back(std::move(*forecast));
    }
  }
  return found;
}

std::map<ProviderID, std::vector<LimitForecast>> LimitOutlook::forecasts(
    UsageStore& store, const std::map<ProviderID, ProviderLimits>& limits, Date now) {
  std::map<ProviderID, std::vector<LimitForecast>> all;
  for (const auto& [provider, stored] : limits) {
    if (auto found = forecasts(store, provider, stored, now); !found.empty()) {
      all.emplace(provider, std::move(found));
    }
  }
  return all;
}

}  // namespace brimlog
