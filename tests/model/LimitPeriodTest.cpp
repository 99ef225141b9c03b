#include <gtest/gtest.h>

#include "model/LimitPeriod.hpp"

namespace brimlog {
namespace {

const Date kMonday = dateFromUnixSeconds(1'795'000'000);

Date at(double hours) { return kMonday + Seconds{hours * 3600}; }

LimitReading reading(ProviderID provider, const char* window, double hour, double used,
                     std::optional<double> resetHour) {
  std::optional<Date> reset;
  if (resetHour) reset = at(*resetHour);
  return {provider, window, at(hour), used, reset, 604800.0, LimitReading::Origin::service};
}

// Periods are told apart by provider, window and reset; a reset that moved by seconds is the
// same one, one that moved by more than a minute is another; only passed resets count.
TEST(LimitPeriodTest, GroupsReadingsByResetAndKeepsOnlyFinishedPeriods) {
  const ProviderID claude = ProviderID::claude;
  const ProviderID codex = ProviderID::codex;
  const std::vector<LimitReading> readings = {
      // Out of order, with the reset jittering by 30 s: one period that ran out.
      reading(claude, "weekly", 100, 1.0, 168 + 30.0 / 3600),
      reading(claude, "weekly", 10, 0.4, 168),
      reading(claude, "weekly", 50, 0.9, 168 - 20.0 / 3600),
      // The next week of the same window, finished too, peak 0.7.
      reading(claude, "weekly", 200, 0.7, 336),
      reading(claude, "weekly", 300, 0.5, 336),
      // Another window and another tool, same reset: periods of their own.
      reading(claude, "session", 160, 0.3, 168),
      reading(codex, "weekly", 20, 0.2, 168),
      // Still running at `now`, and without a reset: none.
      reading(claude, "weekly", 340, 0.1, 504),
      reading(codex, "session", 1, 0.5, std::nullopt),
  };
  const std::vector<LimitPeriod> periods = LimitPeriod::finished(readings, at(400));

  struct Row {
    const char* name;
    ProviderID provider;
    const char* window;
    double resetHour;
    double peak;
    bool ranOut;
    size_t readings;
    double first, last;
  };
  const Row rows[] = {
      {"claude session", claude, "session", 168, 0.3, false, 1, 160, 160},
      {"claude weekly, jittered reset", claude, "weekly", 168 + 30.0 / 3600, 1.0, true, 3, 10, 100},
      {"claude weekly, next week", claude, "weekly", 336, 0.7, false, 2, 200, 300},
      {"codex weekly", codex, "weekly", 168, 0.2, false, 1, 20, 20},
  };
  ASSERT_EQ(periods.size(), std::size(rows));
  for (size_t i = 0; i < periods.size(); ++i) {
    const Row& row = rows[i];
    const LimitPeriod& period = periods[i];
    SCOPED_TRACE(row.name);
    EXPECT_EQ(period.provider, row.provider);
    EXPECT_EQ(period.window, row.window);
    EXPECT_NEAR((period.resetsAt - at(row.resetHour)).count(), 0, 1e-3);
    EXPECT_EQ(period.peakUsed, row.peak);
    EXPECT_EQ(period.ranOut(), row.ranOut);
    EXPECT_EQ(period.readings, row.readings);
    EXPECT_EQ(period.firstReadAt, at(row.first));
    EXPECT_EQ(period.lastReadAt, at(row.last));
  }

  // A reset exactly at `now` has passed; a second later it has not.
  EXPECT_EQ(LimitPeriod::finished(readings, at(336)).size(), 4u);
  EXPECT_EQ(LimitPeriod::finished(readings, at(336) - Seconds{1}).size(), 3u);
  EXPECT_TRUE(LimitPeriod::finished({}, at(400)).empty());
}

}  // namespace
}  // namespace brimlog
