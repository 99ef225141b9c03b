#pragma once

#include <optional>

#include "model/ProviderLimits.hpp"
#include "platform/Date.hpp"

namespace brimlog {

/// When to fetch a provider's limits next. No state: the caller keeps, per provider, the time of
/// the last successful fetch, of the last attempt and the delay last used.
///
/// A service that cannot be reached or limits the rate is backed off by doubling, from the
/// regular 300 seconds up to 1800; any other answer, sign-in and permission problems included,
/// brings the delay back to 300:
///
///     double delay = RefreshPolicy::minInterval;
///     delay = RefreshPolicy::nextDelay(ProviderStatus::unreachable, delay);  // 600
///     delay = RefreshPolicy::nextDelay(ProviderStatus::unreachable, delay);  // 1200
///     delay = RefreshPolicy::nextDelay(ProviderStatus::ok, delay);           // 300
struct RefreshPolicy {
  /// Seconds: the regular delay, the smallest one ever returned, and the least gap between two
  /// attempts triggered by opening the user interface.
  static constexpr double minInterval = 300;
  /// Seconds: a successful fetch older than this is refreshed when the user interface opens.
  static constexpr double openStaleness = 60;
  /// Seconds: the largest delay ever returned.
  static constexpr double maxBackoff = 1800;

  /// The delay in seconds until the next fetch, after a fetch that ended with `after` and was
  /// scheduled with `previous` seconds. `unreachable` and `rateLimited` double `previous` within
  /// [minInterval, maxBackoff] (NaN gives minInterval); every other status gives minInterval.
  static double nextDelay(ProviderStatus after, double previous);

  /// Whether opening the user interface should fetch now: never within `minInterval` of the last
  /// attempt (nor when that attempt lies in the future); otherwise when nothing was ever fetched
  /// or the last success is more than `openStaleness` old.
  static bool shouldRefreshOnOpen(std::optional<Date> lastFetch, std::optional<Date> lastAttempt,
                                  Date now);
};

}  // namespace brimlog
