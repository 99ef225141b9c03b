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
// same one; only passed resets count.
TEST(LimitPeriodTest, GroupsReadingsByResetAndKeepsOnlyFinishedPeriods) {
  const ProviderID claude = ProviderID::claude, codex = ProviderID::codex;
  const std::vector<LimitReading> readings = {
      // Out of order, the reset jittering by 30 s: one period, which ran out.
      reading(claude, "weekly", 100, 1.0, 168 + 30.0 / 3600),
      reading(claude, "weekly", 10, 0.4, 168),
      reading(claude, "weekly", 50, 0.9, 168 - 20.0 / 3600),
      // The next week, finished too; another window and another tool with the same reset.
      reading(claude, "weekly", 200, 0.7, 336),
      reading(claude, "weekly", 300, 0.5, 336),
      reading(claude, "session", 160, 0.3, 168),
      reading(codex, "weekly", 20, 0.2, 168),
      // Still running at `now`, and without a reset: none.
      reading(claude, "weekly", 340, 0.1, 504),
      reading(codex, "session", 1, 0.5, std::nullopt),
  };
  const std::vector<LimitPeriod> periods = LimitPeriod::finished(readings, at(400));
  const std::vector<LimitPeriod> expected = {
      {claude, "session", at(168), at(160), at(160), 0.3, 1},
      {claude, "weekly", readings[0].resetsAt.value(), at(10), at(100), 1.0, 3},
      {claude, "weekly", at(336), at(200), at(300), 0.7, 2},
      {codex, "weekly", at(168), at(20), at(20), 0.2, 1},
  };
  EXPECT_EQ(periods, expected);
  EXPECT_TRUE(periods[1].ranOut());
  EXPECT_FALSE(periods[2].ranOut());
  // A reset exactly at `now` has passed; a second later it has not.
  EXPECT_EQ(LimitPeriod::finished(readings, at(336)).size(), 4u);
  EXPECT_EQ(LimitPeriod::finished(readings, at(336) - Seconds{1}).size(), 3u);
}

}  // namespace
}  // namespace brimlog
