#include <gtest/gtest.h>

#include "display/LimitBarModel.hpp"

namespace brimlog {
namespace {

const Date kNow = dateFromUnixSeconds(1'793'275'200);

LimitBarModel bar(double used, std::optional<double> duration, std::optional<double> resetIn) {
  std::optional<Date> resetsAt;
  if (resetIn) resetsAt = kNow + Seconds{*resetIn};
  return {LimitWindow{"weekly", "Weekly", used, duration, resetsAt, LimitSource::live()}, kNow};
}

TEST(LimitBarModelTest, OnPaceFromFifteenPointsBelowToFivePointsAboveTheTimeGone) {
  // A quarter of the window's time is left: three quarters have gone.
  for (const auto& [used, pace] : {std::pair{0.5999, Pace::under},
                                   {0.6, Pace::onPace},
                                   {0.8, Pace::onPace},
                                   {0.8001, Pace::over}}) {
    EXPECT_EQ(bar(used, 1000, 250).pace, pace) << used;
  }
  const LimitBarModel week = bar(0.42, 604'800, 259'200);
  EXPECT_NEAR(*week.timeLeftFraction, 3.0 / 7, 1e-12);
  EXPECT_EQ(week.pace, Pace::under);
  EXPECT_EQ(week.percentLeftText + " " + *week.resetText, "58% 3d 0h");
  EXPECT_EQ(bar(0.2, 100, 5000).timeLeftFraction, 1.0);
}

TEST(LimitBarModelTest, APassedResetIsFullAndNoLengthOrResetGivesNoPace) {
  const LimitBarModel passed = bar(0.9, 18000, 0);
  EXPECT_EQ(passed, bar(0.3, std::nullopt, -1));
  EXPECT_EQ(passed.percentLeftText + " " + *passed.resetText, "100% now");
  EXPECT_EQ(passed.leftFraction, 1);

  const LimitBarModel noLength = bar(0.995, std::nullopt, 90);
  EXPECT_EQ(noLength.percentLeftText + " " + *noLength.resetText, "1% 1m");
  EXPECT_EQ(noLength.pace, Pace::unknown);
  EXPECT_EQ(bar(0.5, 0, 90).timeLeftFraction, std::nullopt);
  EXPECT_EQ(bar(0.25, 18000, std::nullopt).resetText, std::nullopt);
}

}  // namespace
}  // namespace brimlog
