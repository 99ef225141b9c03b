#include <gtest/gtest.h>

#include <limits>
#include <tuple>

#include "limits/RefreshPolicy.hpp"

namespace brimlog {
namespace {

TEST(RefreshPolicyTest, BacksOffOnlyWhileTheServiceIsUnreachableOrLimiting) {
  constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const auto unreachable = ProviderStatus::unreachable;
  // The status that ended a fetch, the delay it was scheduled with, the next delay.
  const std::tuple<ProviderStatus, double, double> rows[] = {
      {unreachable, 300, 600},
      {unreachable, 1000, 1800},
      {unreachable, 0, 300},
      {unreachable, kNaN, 300},
      {unreachable, kInfinity, 1800},
      {unreachable, -kInfinity, 300},
      {ProviderStatus::rateLimited, 900, 1800},
      {ProviderStatus::ok, 1800, 300},
      {ProviderStatus::signInNeeded, 1800, 300},
      {ProviderStatus::accessDenied, 1200, 300},
      {ProviderStatus::unavailable, 600, 300}};
  for (const auto& [after, previous, delay] : rows) {
    EXPECT_EQ(RefreshPolicy::nextDelay(after, previous), delay) << caseName(after) << previous;
  }
}

TEST(RefreshPolicyTest, OpeningRefreshesStaleDataButNotTooSoonAfterAnAttempt) {
  const Date now = dateFromUnixSeconds(1'750'000'000);
  const auto ago = [&](double seconds) { return std::optional<Date>(now - Seconds{seconds}); };
  const std::optional<Date> never;
  // Last fetch, last attempt, whether to refresh, why.
  const std::tuple<std::optional<Date>, std::optional<Date>, bool, const char*> rows[] = {
      {never, never, true, "nothing ever fetched"},
      {ago(7200), ago(299), false, "attempted 299 s ago, however old the data"},
      {never, ago(299), false, "attempted 299 s ago, nothing fetched"},
      {ago(7200), ago(-10), false, "an attempt in the future"},
      {ago(300), ago(300), true, "attempted exactly 300 s ago: the fetch decides"},
      {ago(30), ago(300), false, "attempted 300 s ago, fetched 30 s ago"},
      {never, ago(300), true, "attempted 300 s ago, never fetched"},
      {ago(60), never, false, "fetched exactly 60 s ago"},
      {ago(61), never, true, "fetched 61 s ago"},
      {ago(-5), never, false, "a fetch in the future"}};
  for (const auto& [lastFetch, lastAttempt, refresh, why] : rows) {
    EXPECT_EQ(RefreshPolicy::shouldRefreshOnOpen(lastFetch, lastAttempt, now), refresh) << why;
  }
}

}  // namespace
}  // namespace brimlog
