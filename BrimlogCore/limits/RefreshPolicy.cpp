#include "limits/RefreshPolicy.hpp"

#include <algorithm>
#include <cmath>

namespace brimlog {

double RefreshPolicy::nextDelay(ProviderStatus after, double previous) {
  switch (after) {
    case ProviderStatus::unreachable:
    case ProviderStatus::rateLimited:
      if (std::isnan(previous)) return minInterval;
      return std::clamp(2 * previous, minInterval, maxBackoff);
    case ProviderStatus::ok:
    case ProviderStatus::signInNeeded:
    case ProviderStatus::accessDenied:
    case ProviderStatus::unavailable:
      break;
  }
  return minInterval;
}

bool RefreshPolicy::shouldRefreshOnOpen(std::optional<Date> lastFetch,
                                        std::optional<Date> lastAttempt, Date now) {
  if (lastAttempt && (now - *lastAttempt).count() < minInterval) return false;
  if (!lastFetch) return true;
  return (now - *lastFetch).count() > openStaleness;
}

}  // namespace brimlog
