#include <gtest/gtest.h>

#include <limits>

#include "limits/RefreshPolicy.hpp"

namespace brimlog {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

TEST(RefreshPolicyTest, BacksOffOnlyWhileTheServiceIsUnreachableOrLimiting) {
  struct Case {
    ProviderStatus after;
    double previous;
    double delay;
  };
  const Case cases[] = {
      {ProviderStatus::unreachable, 300, 600},
      {ProviderStatus::unreachable, 200, 400},
      {ProviderStatus::unreachable, 1000, 1800},
      {ProviderStatus::unreachable, 1800, 1800},
      {ProviderStatus::unreachable, 100, 300},
      {ProviderStatus::unreachable, -50, 300},
      {ProviderStatus::unreachable, kNaN, 300},
      {ProviderStatus::unreachable, kInfinity, 1800},
      {ProviderStatus::unreachable, -kInfinity, 300},
      {ProviderStatus::rateLimited, 900, 1800},
      {ProviderStatus::rateLimited, kNaN, 300},
      {ProviderStatus::ok, 1800, 300},
      {ProviderStatus::ok, kNaN, 300},
      {ProviderStatus::signInNeeded, 1800, 300},
      {ProviderStatus::accessDenied, 1200, 300},
      {ProviderStatus::unavailable, 600, 300},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(caseName(c.after)) + " after " + std::to_string(c.previous));
    EXPECT_EQ(RefreshPolicy::nextDelay(c.after, c.previous), c.delay);
  }
}

TEST(RefreshPolicyTest, OpeningRefreshesStaleDataButNotTooSoonAfterAnAttempt) {
  const Date now = dateFromUnixSeconds(1'750'000'000);
  const auto ago = [&](double seconds) { return std::optional<Date>(now - Seconds{seconds}); };
  const std::optional<Date> never;
  struct Case {
    std::optional<Date> lastFetch;
    std::optional<Date> lastAttempt;
    bool refresh;
    const char* why;
  };
  const Case cases[] = {
      {never, never, true, "nothing ever fetched"},
      {ago(7200), ago(299), false, "attempted 299 s ago, however old the data"},
      {never, ago(299), false, "attempted 299 s ago, nothing fetched"},
      {ago(7200), ago(-10), false, "an attempt in the future"},
      {ago(300), ago(300), true, "attempted exactly 300 s ago: the fetch decides"},
      {ago(30), ago(300), false, "attempted 300 s ago, fetched 30 s ago"},
      {never, ago(300), true, "attempted 300 s ago, never fetched"},
      {ago(60), never, false, "fetched exactly 60 s ago"},
      {ago(61), never, true, "fetched 61 s ago"},
      {ago(-5), never, false, "a fetch in the future"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(RefreshPolicy::shouldRefreshOnOpen(c.lastFetch, c.lastAttempt, now), c.refresh);
  }
}

}  // namespace
}  // namespace brimlog
